#include "client/Commands.h"

#include "client/Names.h"
#include "client/Parse.h"

#include <algorithm>
#include <array>
#include <cstdio>
#include <set>
#include <thread>

namespace
{
/// Prints an answer of the LTE diag channel, and says in words why a request was refused.
EXIT_CODE PrintAck(const CONTEXT& stContext, EXIT_CODE enCode, const PACKET& stAck)
{
    if (enCode != CODE_DONE && enCode != CODE_REFUSED)
        return enCode;
    PACKET_NOTE stNote{.pszEvent = "ack", .strName = IdName(stAck.stHead.ulCmdId)};
    stNote.strTypeName = PacketTypeName(stAck.stHead.usPktType);
    const RECORD_LAYOUT* pstLayout = AnswerLayout(stAck.stHead.ulCmdId);
    if (pstLayout != nullptr && !stAck.payload.empty())
        stNote.decoded = Decode(*pstLayout, stAck.payload);
    stContext.printer.Packet(stAck, stNote);
    if (enCode == CODE_DONE)
        return enCode;
    const bool bNotBound = stAck.stHead.ulRc == DIAG_RC_NOT_BOUND || stAck.stHead.ulCmdId == AGENT_CMD_UE_VERSION;
    return stContext.Fail(enCode, "refused: " + ResultText(stAck.stHead.ulRc) +
                                      (bNotBound ? "; the client isn't bound to a UE, try --bind PORT" : ""));
}

/// Opens the LTE diag channel, asks, prints the answer.
EXIT_CODE AskAndPrint(const CONTEXT& stContext, uint32_t ulCmdId, uint16_t usPktType, ByteView params)
{
    CSession session(stContext, CHANNEL_LTE_DIAG);
    if (const EXIT_CODE enCode = session.Open(); enCode != CODE_DONE)
        return enCode;
    PACKET stAck;
    const EXIT_CODE enCode = session.Ask(ulCmdId, usPktType, params, stAck);
    return PrintAck(stContext, enCode, stAck);
}

/// A write begins with a read, and a read that fails is answered as a write, so either id answers either request.
EXIT_CODE AskNv(const CONTEXT& stContext, uint32_t ulCmdId, uint16_t usPktType, ByteView params,
                const std::string& strHint)
{
    CSession session(stContext, CHANNEL_LTE_DIAG);
    if (const EXIT_CODE enCode = session.Open(); enCode != CODE_DONE)
        return enCode;
    PACKET stAck;
    EXIT_CODE enCode = session.Send(ulCmdId, usPktType, params);
    if (enCode == CODE_DONE)
        enCode = session.Await([](uint32_t ulId) { return ulId == UE_CMD_NV_READ || ulId == UE_CMD_NV_WRITE; }, stAck,
                               strHint);
    return PrintAck(stContext, enCode, stAck);
}

struct SWITCH_KIND_ROW
{
    const char* pszName;
    uint32_t ulLogKind;
    uint32_t ulUeCmd; // the UE command that its entries travel in
};
constexpr SWITCH_KIND_ROW g_astSwitchKind[] = {
    {"air", 1, UE_CMD_AIR_SWITCH},
    {"user", 2, UE_CMD_USER_PLANE_SWITCH},
    {"event", 3, UE_CMD_EVENT_SWITCH},
    {"user2", 4, UE_CMD_USER_PLANE_SWITCH},
};

/// The entries of a switch request, and the UE commands that the agent makes of them.
bool BuildSwitch(const std::vector<std::string>& words, std::vector<unsigned char>& params, std::set<uint32_t>& ueCmds)
{
    constexpr size_t ENTRY_SIZE = 12;
    const SWITCH_KIND_ROW* pstKind = nullptr;
    for (size_t i = 0; i < words.size();) {
        const auto kind = std::ranges::find(g_astSwitchKind, words[i], &SWITCH_KIND_ROW::pszName);
        if (kind != std::end(g_astSwitchKind)) {
            pstKind = &*kind;
            ++i;
            continue;
        }
        uint32_t ulLogId = 0;
        uint32_t ulValue = 0;
        if (pstKind == nullptr || i + 1 >= words.size() || !ParseNumber(words[i], ulLogId) ||
            !ParseNumber(words[i + 1], ulValue))
            return false;
        params.resize(params.size() + ENTRY_SIZE);
        CByteWriter writer(ByteSpan(params).last(ENTRY_SIZE));
        writer.Field(ulLogId);
        writer.Field(pstKind->ulLogKind);
        writer.Field(ulValue);
        ueCmds.insert(pstKind->ulUeCmd);
        i += 2;
    }
    return !params.empty();
}

bool IsPlausible(const NV_WRITE_ARGS& stArgs)
{
    constexpr unsigned int MAX_BIT = 31;
    if (stArgs.bits.empty())
        return stArgs.ulSize >= 1 && stArgs.ulSize <= 4;
    return (stArgs.ulSize == 1 || stArgs.ulSize == 2 || stArgs.ulSize == 4) && stArgs.bits.size() == 2 &&
           std::ranges::all_of(stArgs.bits, [](unsigned int ulBit) { return ulBit <= MAX_BIT; });
}

std::string ChannelTableText(const ordered_json& table)
{
    std::string strText = "UE  channel   port  attached  bound  name\n";
    for (size_t i = 0; i < MAXUENUM * CHANNELNUM; ++i) {
        const auto& row = table["ues"][i / CHANNELNUM]["channels"][i % CHANNELNUM];
        const auto strName = row["name"].get<std::string>();
        if (strName.empty() && row["attached"] == 0 && row["port"] == -1)
            continue;
        std::array<char, 128> szLine{};
        (void)std::snprintf(szLine.data(), szLine.size(), "%2zu  %-8s %5d  %-8s  %-5s  ", i / CHANNELNUM,
                            strChannelType[i % CHANNELNUM], row["port"].get<int>(), row["attached"] == 0 ? "no" : "yes",
                            row["bound"] == 0 ? "no" : "yes");
        strText += szLine.data() + strName + '\n';
    }
    return strText;
}
} // namespace

EXIT_CODE RunChannels(const CONTEXT& stContext)
{
    CSession session(stContext, CHANNEL_LTE_DIAG);
    if (const EXIT_CODE enCode = session.Open(); enCode != CODE_DONE)
        return enCode;
    PACKET stAck;
    const EXIT_CODE enCode = session.Ask(AGENT_CMD_CHANNEL_QUERY, PKT_TYPE_AGENT, {}, stAck);
    if (enCode != CODE_DONE)
        return PrintAck(stContext, enCode, stAck);
    stAck.payload.resize(size_t{MAXUENUM} * CHANNELNUM * 44); // a short table reads as zero
    const ordered_json table = Decode(*AnswerLayout(AGENT_CMD_CHANNEL_QUERY), stAck.payload);
    if (!stContext.printer.IsJson()) {
        stContext.printer.Print({}, ChannelTableText(table));
        return CODE_DONE;
    }
    for (size_t i = 0; i < MAXUENUM * CHANNELNUM; ++i) {
        ordered_json row = {{"event", "channel"},
                            {"ue", i / CHANNELNUM},
                            {"channel", i % CHANNELNUM},
                            {"channel_name", strChannelType[i % CHANNELNUM]}};
        row.update(table["ues"][i / CHANNELNUM]["channels"][i % CHANNELNUM]);
        stContext.printer.Print(row, "");
    }
    return CODE_DONE;
}

EXIT_CODE RunBind(const CONTEXT& stContext, unsigned int ulPort, double dHold)
{
    CSession session(stContext, CHANNEL_LTE_DIAG);
    PACKET stAck;
    EXIT_CODE enCode = session.Open();
    if (enCode == CODE_DONE)
        enCode = session.Bind(ulPort, stAck);
    if (enCode != CODE_DONE)
        return enCode;
    const std::string strVersion = FixedText(stAck.payload);
    stContext.printer.Print({{"event", "bound"}, {"port", ulPort}, {"agent_version", strVersion}},
                            "bound to port " + std::to_string(ulPort) + ", agent version " + strVersion + '\n');
    const auto end = After(dHold);
    for (PACKET stPacket;;) {
        stContext.printer.Flush();
        const RECV_RESULT enResult = session.Connection().Receive(stPacket, end);
        if (enResult == RECV_RESULT::CLOSED)
            return session.Lost();
        if (enResult == RECV_RESULT::TIME_OUT)
            return CODE_DONE;
        session.PrintUnsolicited(stPacket);
    }
}

EXIT_CODE RunUnbind(const CONTEXT& stContext)
{
    return AskAndPrint(stContext, AGENT_CMD_UNBIND, PKT_TYPE_AGENT, {});
}

EXIT_CODE RunVersion(const CONTEXT& stContext)
{
    return AskAndPrint(stContext, AGENT_CMD_UE_VERSION, PKT_TYPE_AGENT, {});
}

EXIT_CODE RunTimestamp(const CONTEXT& stContext)
{
    constexpr uint32_t NOTHING_STORED = 0; // id of the answer while the UE hasn't told its time stamp
    CSession session(stContext, CHANNEL_LTE_DIAG);
    if (const EXIT_CODE enCode = session.Open(); enCode != CODE_DONE)
        return enCode;
    PACKET stAck;
    EXIT_CODE enCode = session.Send(AGENT_CMD_TIME_STAMP, PKT_TYPE_AGENT, {});
    if (enCode == CODE_DONE)
        enCode =
            session.Await([](uint32_t ulId) { return ulId == AGENT_CMD_TIME_STAMP || ulId == NOTHING_STORED; }, stAck);
    if (enCode == CODE_DONE && stAck.stHead.ulCmdId == NOTHING_STORED)
        return stContext.Fail(CODE_REFUSED, "the agent has no time stamp of this UE yet");
    return PrintAck(stContext, enCode, stAck);
}

EXIT_CODE RunRequest(const CONTEXT& stContext, const REQUEST_ARGS& stArgs)
{
    uint32_t ulCmdId = 0;
    if (!ParseNumber(stArgs.strId, ulCmdId))
        return stContext.Fail(CODE_USAGE, "not an id: " + stArgs.strId);
    uint16_t usPktType = RequestType(ulCmdId);
    if (!stArgs.strType.empty() && !ParsePacketType(stArgs.strType, usPktType))
        return stContext.Fail(CODE_USAGE, "not a packet type: " + stArgs.strType + " (msg, cmd, agent or a number)");
    std::vector<unsigned char> params;
    if (!ParseHex(stArgs.hex, params))
        return stContext.Fail(CODE_USAGE, "parameters are pairs of hexadecimal digits, such as 01 02 0A0B");
    return AskAndPrint(stContext, ulCmdId, usPktType, params);
}

EXIT_CODE RunSwitch(const CONTEXT& stContext, const std::vector<std::string>& words)
{
    std::vector<unsigned char> params;
    std::set<uint32_t> ueCmds;
    if (!BuildSwitch(words, params, ueCmds))
        return stContext.Fail(CODE_USAGE, "expected air, event, user or user2, each with pairs of ID and VALUE");
    CSession session(stContext, CHANNEL_LTE_DIAG);
    PACKET stAck;
    EXIT_CODE enCode = session.Open();
    if (enCode == CODE_DONE)
        enCode = session.Send(UE_CMD_USER_PLANE_SWITCH, PKT_TYPE_CMD, params);
    if (enCode != CODE_DONE)
        return enCode;
    // The UE's acks all come with the id of the request, the agent's own refusals with those of the commands.
    const auto isAck = [&](uint32_t ulId) { return ulId == UE_CMD_USER_PLANE_SWITCH || ueCmds.contains(ulId); };
    for (size_t i = 0; i < ueCmds.size(); ++i) {
        const EXIT_CODE enAck = PrintAck(stContext, session.Await(isAck, stAck), stAck);
        if (enAck != CODE_DONE)
            enCode = enAck;
        if (enAck == CODE_NO_CONNECTION || enAck == CODE_TIME_OUT)
            break;
    }
    return enCode;
}

EXIT_CODE RunNvRead(const CONTEXT& stContext, const std::string& strId)
{
    uint32_t ulNvId = 0;
    if (!ParseNumber(strId, ulNvId))
        return stContext.Fail(CODE_USAGE, "not an NV id: " + strId);
    std::array<unsigned char, 4> aucId{};
    StoreLe<uint32_t>(aucId, 0, ulNvId);
    return AskNv(
        stContext, UE_CMD_NV_READ, PKT_TYPE_CMD, aucId,
        "; the agent keeps the data of a read that succeeds for its own NV writes, and passes on failures only");
}

EXIT_CODE RunNvWrite(const CONTEXT& stContext, const NV_WRITE_ARGS& stArgs)
{
    uint32_t ulNvId = 0;
    uint32_t ulOffset = 0;
    uint32_t ulValue = 0;
    if (!ParseNumber(stArgs.strId, ulNvId) || !ParseNumber(stArgs.strOffset, ulOffset) ||
        !ParseNumber(stArgs.strValue, ulValue))
        return stContext.Fail(CODE_USAGE, "ID, OFFSET and VALUE are numbers, decimal or 0x...");
    if (!IsPlausible(stArgs))
        return stContext.Fail(CODE_USAGE, "SIZE is 1 to 4 bytes; with --bits 1, 2 or 4, and the bits 0 to 31");
    const bool bBits = !stArgs.bits.empty();
    std::array<unsigned char, 20> aucDescriptor{};
    CByteWriter writer(aucDescriptor);
    writer.Field(ulNvId);
    writer.Field(uint32_t{1}); // items
    writer.Field(ulOffset);
    writer.Field(static_cast<uint8_t>(bBits));
    writer.Field(static_cast<uint8_t>(stArgs.ulSize));
    writer.Field(static_cast<uint8_t>(bBits ? stArgs.bits[0] : 0));
    writer.Field(static_cast<uint8_t>(bBits ? stArgs.bits[1] : 0));
    writer.Field(ulValue);
    return AskNv(stContext, UE_CMD_NV_WRITE, PKT_TYPE_AGENT, aucDescriptor, "");
}
