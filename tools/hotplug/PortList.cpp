#include "hotplug/PortList.h"

#include <algorithm>
#include <nlohmann/json.hpp>
#include <ostream>

namespace
{
constexpr size_t COLUMNS = 8;
using Line = std::array<std::string, COLUMNS>;

const char* FateName(PORT_FATE enFate)
{
    switch (enFate) {
    case PORT_FATE::SERVED:
        return "served";
    case PORT_FATE::NO_RULE:
        return "no rule";
    case PORT_FATE::CONFLICT:
        return "conflict";
    case PORT_FATE::TOO_MANY:
        return "too many";
    }
    return "";
}

std::string RoleOf(const PORT_ROW& stRow)
{
    return stRow.pRule != nullptr ? ROLE_NAMES[static_cast<size_t>(stRow.pRule->enRole)] : "";
}

Line LineOf(const PORT_ROW& stRow)
{
    const USB_PORT& stPort = stRow.stPort;
    std::string strRule = FateName(stRow.enFate);
    if (stRow.pRule != nullptr)
        strRule = "line " + std::to_string(stRow.pRule->szLine);
    if (stRow.enFate == PORT_FATE::CONFLICT)
        strRule += ", conflict with " + stRow.strOther;
    else if (stRow.enFate == PORT_FATE::TOO_MANY)
        strRule += ", too many modems";
    const std::string strNumber = stRow.ulNumber != 0 ? std::to_string(stRow.ulNumber) : "";
    return {stPort.strNode, UsbIdOf(stPort), InterfaceOf(stPort), stPort.strDriver, RoleOf(stRow),
            strNumber,      strRule,         stPort.strModem};
}

void PrintLine(std::ostream& out, const Line& line, const std::array<size_t, COLUMNS>& aWidth)
{
    std::string strText;
    for (size_t i = 0; i < COLUMNS; ++i) {
        const std::string strCell = line[i].empty() ? "-" : line[i];
        strText += strCell;
        if (i + 1 < COLUMNS)
            strText += std::string(aWidth[i] - strCell.size() + 2, ' ');
    }
    out << strText << '\n';
}
} // namespace

void PrintPortTable(std::ostream& out, std::span<const PORT_ROW> rows)
{
    if (rows.empty()) {
        out << "no serial port of a USB device is there\n";
        return;
    }
    std::vector<Line> lines = {{"PORT", "ID", "IF", "DRIVER", "ROLE", "NUMBER", "RULE", "MODEM"}};
    for (const PORT_ROW& stRow : rows)
        lines.push_back(LineOf(stRow));
    std::array<size_t, COLUMNS> aWidth{};
    for (const Line& line : lines)
        for (size_t i = 0; i < COLUMNS; ++i)
            aWidth[i] = std::max({aWidth[i], line[i].size(), size_t{1}});
    for (const Line& line : lines)
        PrintLine(out, line, aWidth);
}

void PrintPortJson(std::ostream& out, std::span<const PORT_ROW> rows)
{
    auto list = nlohmann::ordered_json::array();
    for (const PORT_ROW& stRow : rows) {
        const USB_PORT& stPort = stRow.stPort;
        nlohmann::ordered_json item = {{"node", stPort.strNode},         {"name", stPort.strName},
                                       {"id", UsbIdOf(stPort)},          {"interface", InterfaceOf(stPort)},
                                       {"driver", stPort.strDriver},     {"modem", stPort.strModem},
                                       {"state", FateName(stRow.enFate)}};
        if (stRow.pRule != nullptr) {
            item["role"] = RoleOf(stRow);
            item["rule"] = stRow.pRule->szLine;
        }
        if (stRow.ulNumber != 0)
            item["number"] = stRow.ulNumber;
        if (!stRow.strOther.empty())
            item["conflict"] = stRow.strOther;
        list.push_back(std::move(item));
    }
    out << list.dump(2, ' ', false, nlohmann::json::error_handler_t::replace) << '\n';
}
