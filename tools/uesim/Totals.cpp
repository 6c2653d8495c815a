#include "uesim/Simulator.h"

#include <nlohmann/json.hpp>
#include <sstream>

namespace
{
nlohmann::json PortJson(const CSimPort& port)
{
    const PORT_TOTALS stTotals = port.Totals();
    return {
        {"port", PortLabel(port.Type())},
        {"number", port.Number()},
        {"name", port.Name()},
        {"bytes_out", stTotals.ullBytesOut},
        {"bytes_in", stTotals.ullBytesIn},
        {"packets_out", stTotals.ullPacketsOut},
        {"packets_in", stTotals.ullPacketsIn},
        {"bad_frames_in", stTotals.ullBadFramesIn},
        {"bytes_lost", stTotals.ullBytesLost},
    };
}
} // namespace

std::string TotalsText(const CSimulator& simulator)
{
    std::ostringstream text;
    for (const auto& pUe : simulator.Ues()) {
        for (const auto& pPort : pUe->GetPorts()) {
            if (!pPort)
                continue;
            const PORT_TOTALS stTotals = pPort->Totals();
            text << pUe->Name() << " " << PortLabel(pPort->Type()) << ": out " << stTotals.ullBytesOut << " bytes "
                 << stTotals.ullPacketsOut << " packets, in " << stTotals.ullBytesIn << " bytes "
                 << stTotals.ullPacketsIn << " packets, bad " << stTotals.ullBadFramesIn << ", lost "
                 << stTotals.ullBytesLost << " bytes\n";
        }
        for (const auto& [strName, ullCount] : pUe->Counters())
            text << pUe->Name() << " " << strName << ": " << ullCount << "\n";
    }
    return text.str();
}

std::string TotalsJson(const CSimulator& simulator)
{
    nlohmann::json ues = nlohmann::json::array();
    for (const auto& pUe : simulator.Ues()) {
        nlohmann::json ports = nlohmann::json::array();
        for (const auto& pPort : pUe->GetPorts())
            if (pPort)
                ports.push_back(PortJson(*pPort));
        ues.push_back({{"ue", pUe->Name()}, {"index", pUe->Index()}, {"ports", ports}, {"counts", pUe->Counters()}});
    }
    return nlohmann::json{{"ues", ues}}.dump();
}
