#include "uesim/ReplayNames.h"

#include "data/DiagPacket.h"
#include "uesim/GuIds.h"
#include "uesim/GuLine.h"
#include "uesim/GuMessages.h"

#include <array>
#include <map>

namespace
{
constexpr size_t MAX_LINE = 4096; // of an AT command

std::string LteName(uint32_t ulId)
{
    std::array<char, 16> acText{};
    (void)std::snprintf(acText.data(), acText.size(), "0x%08X", ulId);
    return acText.data();
}

std::string GuName(uint16_t usId)
{
    std::array<char, 16> acText{};
    (void)std::snprintf(acText.data(), acText.size(), "gu 0x%04X", usId);
    return acText.data();
}

using GU_PAIRS = std::multimap<uint16_t, uint16_t>; // answer, request

GU_PAIRS MakeGuPairs()
{
    GU_PAIRS pairs = {{ID_LINK_ANSWER, ID_LINK_REQUEST}, {ID_VERSION, ID_VERSION_QUERY},
                      {ID_MODE, ID_MODE_QUERY},          {ID_CARDS, ID_CARDS_QUERY},
                      {ID_REG_ADD_CNF, ID_REG_ADD},      {ID_REG_REMOVE_CNF, ID_REG_REMOVE},
                      {ID_REG_SHARE, ID_REG_SHARE_QUERY}};
    for (const GU_REPORT_ROW& stRow : GuReports())
        pairs.emplace(stRow.usConfirm != 0 ? stRow.usConfirm : stRow.usIndication, stRow.usRequest);
    for (const GU_OTA_ROW& stRow : GuOtas())
        pairs.emplace(stRow.usConfirm, stRow.usRequest);
    return pairs;
}

std::vector<std::string> GuAnswered(ByteView block)
{
    static const GU_PAIRS PAIRS = MakeGuPairs();
    std::vector<std::string> names;
    for (const uint16_t usId : ReadGuBlockIds(block)) {
        const auto [first, last] = PAIRS.equal_range(usId);
        for (auto pPair = first; pPair != last; ++pPair)
            names.push_back(GuName(pPair->second));
    }
    return names;
}

std::string GuRequest(ByteView packet)
{
    if (IsGuLinkRequest(packet))
        return GuName(ID_LINK_REQUEST);
    const auto stFrame = ReadOmFrame(packet);
    return stFrame && stFrame->ulIndex == 1 ? GuName(ReadGuRequest(stFrame->payload).usId) : "";
}
} // namespace

std::vector<std::string> CAtCommands::Feed(ByteView bytes)
{
    std::vector<std::string> lines;
    for (const unsigned char ucByte : bytes) {
        if (ucByte == '\r' && !m_strLine.empty())
            lines.push_back(std::exchange(m_strLine, {}));
        else if (ucByte >= ' ' && m_strLine.size() < MAX_LINE)
            m_strLine += static_cast<char>(ucByte);
    }
    return lines;
}

std::string CReplayNames::Request(enSerialType enPort, ByteView packet) const
{
    if (enPort == SERIAL_TYPE_GU)
        return GuRequest(packet);
    const auto stRequest = m_layout.ReadRequest(packet);
    return stRequest ? LteName(stRequest->ulCmdId) : "";
}

std::vector<std::string> CReplayNames::AnsweredBy(enSerialType enPort, ByteView packet) const
{
    if (enPort == SERIAL_TYPE_GU)
        return GuAnswered(packet);
    const auto ulId = m_layout.ReadAckId(packet);
    if (!ulId)
        return {};
    return {LteName(*ulId == UE_CMD_HOST_CONNECT_CNF ? UE_CMD_HOST_CONNECT : *ulId)};
}
