#include "hotplug/Modems.h"

#include <algorithm>
#include <map>
#include <tuple>

void CModems::Replace(std::vector<USB_PORT> ports)
{
    std::erase_if(m_visits, [&](const VISIT& stVisit) {
        return std::ranges::find(ports, stVisit.stPort.strSysPath, &USB_PORT::strSysPath) == ports.end();
    });
    std::ranges::sort(ports, {}, [](const USB_PORT& stPort) {
        return std::tie(stPort.strModem, stPort.ucInterface, stPort.strSysPath);
    });
    for (const USB_PORT& stPort : ports)
        Arrive(stPort);
}

void CModems::Arrive(const USB_PORT& stPort)
{
    VISIT* const pVisit = Find(stPort.strSysPath);
    if (pVisit != nullptr && pVisit->stPort.strPlug == stPort.strPlug) {
        pVisit->stPort = stPort;
        return;
    }
    Leave(stPort.strSysPath);
    m_visits.push_back({stPort, ++m_ullVisits});
}

void CModems::Leave(const std::string& strSysPath)
{
    std::erase_if(m_visits, [&](const VISIT& stVisit) { return stVisit.stPort.strSysPath == strSysPath; });
}

CModems::VISIT* CModems::Find(const std::string& strSysPath)
{
    const auto found =
        std::ranges::find_if(m_visits, [&](const VISIT& stVisit) { return stVisit.stPort.strSysPath == strSysPath; });
    return found != m_visits.end() ? &*found : nullptr;
}

std::vector<PORT_ROW> CModems::Rows(const CRules& rules, CNumbers& numbers) const
{
    std::map<std::string, std::array<const USB_PORT*, SERIALNUM>> modems; // ports by role
    std::vector<PORT_ROW> rows;
    for (const VISIT& stVisit : m_visits) {
        const USB_PORT& stPort = stVisit.stPort;
        PORT_ROW& stRow = rows.emplace_back();
        stRow.stPort = stPort;
        stRow.pRule = rules.Find(stPort);
        stRow.ullVisit = stVisit.ullNumber;
        if (stRow.pRule == nullptr)
            continue;
        if (modems.size() == MOST && !modems.contains(stPort.strModem)) {
            stRow.enFate = PORT_FATE::TOO_MANY;
            continue;
        }
        const enSerialType enRole = stRow.pRule->enRole;
        const USB_PORT*& pHolder = modems[stPort.strModem][static_cast<size_t>(enRole)];
        if (pHolder != nullptr) {
            stRow.enFate = PORT_FATE::CONFLICT;
            stRow.strOther = pHolder->strNode;
            continue;
        }
        pHolder = &stPort;
        stRow.enFate = PORT_FATE::SERVED;
        stRow.ulNumber = numbers.PortNumber(stPort.strModem, enRole);
    }
    return rows;
}

namespace
{
/// Empty when nothing is wrong.
std::string ComplaintOf(const PORT_ROW& stRow, bool bAll)
{
    const USB_PORT& stPort = stRow.stPort;
    switch (stRow.enFate) {
    case PORT_FATE::NO_RULE:
        return bAll ? stPort.strNode + " (" + UsbIdOf(stPort) + " if=" + InterfaceOf(stPort) +
                          " driver=" + stPort.strDriver + "): no rule fits, left out"
                    : "";
    case PORT_FATE::CONFLICT:
        return stPort.strNode + ": conflict, " + stRow.strOther + " is the modem's " +
               ROLE_NAMES[static_cast<size_t>(stRow.pRule->enRole)] + " port already; left out (rule of line " +
               std::to_string(stRow.pRule->szLine) + ")";
    case PORT_FATE::TOO_MANY:
        return "modem " + stPort.strModem + " is one too many, the agent serves " + std::to_string(CModems::MOST) +
               "; left out until another one goes";
    case PORT_FATE::SERVED:
        break;
    }
    return "";
}
} // namespace

std::vector<std::string> Complaints(std::span<const PORT_ROW> rows, bool bAll)
{
    std::vector<std::string> lines;
    for (const PORT_ROW& stRow : rows) {
        std::string strLine = ComplaintOf(stRow, bAll);
        if (!strLine.empty() && std::ranges::find(lines, strLine) == lines.end())
            lines.push_back(std::move(strLine));
    }
    return lines;
}
