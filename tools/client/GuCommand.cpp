#include "client/Commands.h"

#include "client/Names.h"
#include "client/Parse.h"
#include "client/Stop.h"

#include <algorithm>
#include <array>
#include <cstdio>

namespace
{
/// Client ids on the GU channels: the low 16 bits are the message's own id.
constexpr uint16_t MessageId(uint32_t ulCmdId)
{
    return static_cast<uint16_t>(ulCmdId & 0xFFFF);
}

/// One request to make, and how to undo it.
struct TARGET
{
    REPORT_ID stId; // pstRow points to a row of the tables, or is null for a bare id
    uint16_t usBareId = 0;
    uint16_t usPktType = 0;
    uint16_t usPeriodMs = 0;
    std::vector<unsigned char> bareParams = {};

    uint16_t Req() const { return stId.pstRow != nullptr ? stId.Req() : usBareId; }
    bool CanStop() const { return HasForm() && Form() != PARAM_ONCE && Form() != PARAM_QUERY; }
    bool IsQuery() const { return HasForm() && Form() == PARAM_QUERY; }
    bool IsOnce() const { return HasForm() && Form() == PARAM_ONCE; }
    bool HasForm() const { return stId.pstRow != nullptr; }
    PARAM_FORM Form() const { return stId.pstRow->enForm; }
    std::vector<unsigned char> Params(bool bStart) const
    {
        return HasForm() ? ReportParams(Form(), bStart, usPeriodMs) : bareParams;
    }
};

/// An answer to a bare id has that id or one of the next two; a row knows its own.
bool IsConfirm(const TARGET& stTarget, uint32_t ulCmdId)
{
    if (IdName(ulCmdId) != "")
        return false; // a status record or a bind ack
    const uint16_t usId = MessageId(ulCmdId);
    if (stTarget.HasForm())
        return stTarget.stId.IsCnf(usId);
    constexpr uint16_t ERROR_CONFIRM_STEPS = 2;
    return usId >= stTarget.usBareId && usId - stTarget.usBareId <= ERROR_CONFIRM_STEPS;
}

/// Of a bare id nothing but ulRc is known.
uint32_t ResultOf(const TARGET& stTarget, const PACKET& stPacket)
{
    const uint32_t ulRc = stPacket.stHead.ulRc;
    return stTarget.HasForm() ? ConfirmResult(stTarget.Form(), ulRc, stPacket.payload) : ulRc;
}

std::string ReportName(const REPORT_ID& stId)
{
    if (stId.pstRow == nullptr)
        return "";
    return std::string(stId.pstRow->pszName) + (stId.pstRow->usModemStep != 0 && stId.ulModem == 1 ? ", modem 1" : "");
}

void PrintConfirm(CPrinter& printer, const TARGET& stTarget, const PACKET& stPacket)
{
    PACKET_NOTE stNote{.pszEvent = "confirm", .strName = ReportName(stTarget.stId)};
    stNote.strTypeName = PacketTypeName(stPacket.stHead.usPktType);
    if (stTarget.IsQuery())
        stNote.decoded = Decode(*stTarget.stId.pstRow->pstLayout, stPacket.payload);
    else if (stTarget.HasForm())
        stNote.decoded = {{"result", LoadLe<uint32_t>(stPacket.payload, 0)}};
    stNote.bHexDump = !stTarget.HasForm();
    printer.Packet(stPacket, stNote);
}

void PrintIndication(CPrinter& printer, const PACKET& stPacket)
{
    const REPORT_ID stId = FindReportByAnswer(MessageId(stPacket.stHead.ulCmdId));
    PACKET_NOTE stNote{.pszEvent = "indication", .strName = ReportName(stId)};
    stNote.pszRcName = "sn";
    stNote.strTypeName = PacketTypeName(stPacket.stHead.usPktType);
    stNote.bHexDump = stId.pstRow == nullptr || stId.pstRow->pstLayout == nullptr;
    if (!stNote.bHexDump)
        stNote.decoded = Decode(*stId.pstRow->pstLayout, stPacket.payload);
    printer.Packet(stPacket, stNote);
}

/// Fills a target from what the user wrote; false, with the reason, when it names nothing.
bool Resolve(const GU_ARGS& stArgs, std::span<const REPORT_ROW> rows, const std::string& strName, TARGET& stTarget,
             std::string& strError)
{
    uint32_t ulId = 0;
    if (const REPORT_ROW* pstRow = FindReport(rows, strName))
        stTarget.stId = {pstRow, stArgs.ulModem};
    else if (!ParseNumber(strName, ulId) || ulId > 0xFFFF)
        strError = "unknown report " + strName + "; --list shows the names";
    else
        stTarget.stId = FindReportByReq(rows, static_cast<uint16_t>(ulId));
    if (stTarget.HasForm()) {
        stTarget.usPktType = stTarget.stId.pstRow->ucType;
        stTarget.usPeriodMs = static_cast<uint16_t>(stArgs.periodMs.value_or(stTarget.stId.pstRow->usPeriodMs));
        if (stTarget.stId.ulModem != 0 && stTarget.stId.pstRow->usModemStep == 0)
            strError = strName + " has no form for modem 1";
        if (stArgs.bStop && !stTarget.CanStop())
            strError = strName + " answers once, there is nothing to stop";
        return strError.empty();
    }
    stTarget.usBareId = static_cast<uint16_t>(ulId);
    if (strError.empty() && !ParsePacketType(stArgs.strType, stTarget.usPktType))
        strError = "not a packet type: " + stArgs.strType + " (trans, trace, ota, query or a number)";
    if (strError.empty() && (!ParseHex(stArgs.hex, stTarget.bareParams) || stTarget.bareParams.empty()))
        strError = strName + " is in no table: give its parameters as --data with pairs of hexadecimal digits";
    return strError.empty();
}

void PrintList(CPrinter& printer, std::span<const REPORT_ROW> rows)
{
    if (!printer.IsJson())
        printer.Print({}, "name            request  confirm  report  modem 1  period  what\n");
    for (const REPORT_ROW& stRow : rows) {
        const REPORT_ID stSecond{&stRow, 1};
        std::array<char, 192> szLine{};
        const std::string strSecond = stRow.usModemStep == 0 ? "-" : HexId(stSecond.Req()).erase(2, 4);
        (void)std::snprintf(szLine.data(), szLine.size(), "%-15s 0x%04X   0x%04X   0x%04X  %-7s  %6u  %s\n",
                            stRow.pszName, static_cast<unsigned int>(stRow.usReq),
                            static_cast<unsigned int>(stRow.usCnf), static_cast<unsigned int>(stRow.usInd),
                            strSecond.c_str(), static_cast<unsigned int>(stRow.usPeriodMs), stRow.pszWhat);
        printer.Print({{"event", "report"},
                       {"name", stRow.pszName},
                       {"request", stRow.usReq},
                       {"confirm", stRow.usCnf},
                       {"indication", stRow.usInd},
                       {"modem_step", stRow.usModemStep},
                       {"period_ms", stRow.usPeriodMs},
                       {"what", stRow.pszWhat}},
                      szLine.data());
    }
}

/// The two connections of a GU client and what it has started on them.
class CGuRun
{
public:
    CGuRun(const CONTEXT& stContext, const GU_ARGS& stArgs)
        : m_stContext(stContext),
          m_stArgs(stArgs),
          m_command(stContext, CHANNEL_GU_CMD),
          m_data(stContext, CHANNEL_GU_DATA)
    {
    }

    EXIT_CODE Run(const std::vector<TARGET>& targets)
    {
        EXIT_CODE enCode = Open(targets);
        std::vector<const TARGET*> started;
        for (const TARGET& stTarget : targets) {
            if (enCode != CODE_DONE)
                break;
            enCode = Request(stTarget, !m_stArgs.bStop);
            if (enCode == CODE_DONE && stTarget.CanStop() && !m_stArgs.bStop)
                started.push_back(&stTarget);
        }
        if (enCode == CODE_DONE && m_bData)
            enCode = Show(targets);
        return enCode == CODE_NO_CONNECTION || m_stArgs.bKeep ? enCode : StopAll(started, enCode);
    }

private:
    EXIT_CODE Open(const std::vector<TARGET>& targets)
    {
        m_bData = !m_stArgs.bStop && !std::ranges::all_of(targets, &TARGET::IsQuery);
        EXIT_CODE enCode = m_bData ? m_data.Open() : CODE_DONE; // first, so that no indication is missed
        if (enCode == CODE_DONE)
            enCode = m_command.Open();
        return enCode;
    }

    EXIT_CODE Request(const TARGET& stTarget, bool bStart)
    {
        EXIT_CODE enCode = m_command.Send(stTarget.Req(), stTarget.usPktType, stTarget.Params(bStart));
        if (enCode != CODE_DONE)
            return enCode;
        PACKET stAck;
        enCode = m_command.Await([&](uint32_t ulId) { return IsConfirm(stTarget, ulId); }, stAck,
                                 "; is the client bound to a UE (--bind PORT) that has told its version?");
        if (enCode != CODE_DONE && enCode != CODE_REFUSED)
            return enCode;
        PrintConfirm(m_stContext.printer, stTarget, stAck);
        const uint32_t ulResult = ResultOf(stTarget, stAck);
        if (ulResult == DIAG_RC_OK)
            return CODE_DONE;
        return m_stContext.Fail(CODE_REFUSED, ReportName(stTarget.stId) + " refused: " + ResultText(ulResult));
    }

    /// Prints indications and whatever else comes until the run is over.
    EXIT_CODE Show(const std::vector<TARGET>& targets)
    {
        const bool bOnce = std::ranges::all_of(targets, [](const TARGET& st) { return st.IsOnce() || st.IsQuery(); });
        const auto seconds = m_stArgs.stLimits.seconds;
        const auto end = bOnce && !seconds ? After(m_stContext.stOptions.dTimeout) : After(seconds);
        const auto once = static_cast<uint64_t>(std::ranges::count_if(targets, &TARGET::IsOnce));
        const uint64_t ullWanted = bOnce ? once : m_stArgs.stLimits.count.value_or(UINT64_MAX);
        for (uint64_t ullSeen = 0; ullSeen < ullWanted;) {
            for (PACKET stPacket; ullSeen < ullWanted && m_data.Connection().Next(stPacket);)
                ullSeen += PrintData(stPacket) ? 1 : 0;
            for (PACKET stPacket; m_command.Connection().Next(stPacket);)
                m_command.PrintUnsolicited(stPacket);
            m_stContext.printer.Flush();
            if (ullSeen >= ullWanted || StopRequested())
                break;
            if (Clock::now() >= end)
                return bOnce ? m_stContext.Fail(CODE_TIME_OUT, "no report from the UE in time") : CODE_DONE;
            const std::array<int, 2> fds = {m_data.Connection().Fd(), m_command.Connection().Fd()};
            WaitReadable(fds, end);
            if (!m_data.Connection().Pump())
                return m_data.Lost();
            if (!m_command.Connection().Pump())
                return m_command.Lost();
        }
        return CODE_DONE;
    }

    bool PrintData(const PACKET& stPacket)
    {
        if (IdName(stPacket.stHead.ulCmdId).empty()) {
            PrintIndication(m_stContext.printer, stPacket);
            return true;
        }
        m_data.PrintUnsolicited(stPacket);
        return false;
    }

    /// Stops what was started, also after a failure or an interrupt; the first failure is the run's result.
    EXIT_CODE StopAll(const std::vector<const TARGET*>& started, EXIT_CODE enCode)
    {
        ForgetStop();
        for (const TARGET* pstTarget : started)
            if (const EXIT_CODE enStop = Request(*pstTarget, false); enCode == CODE_DONE)
                enCode = enStop;
        return enCode;
    }

    const CONTEXT& m_stContext;
    const GU_ARGS& m_stArgs;
    CSession m_command;
    CSession m_data;
    bool m_bData = false; // indications are to be shown
};
} // namespace

EXIT_CODE RunGu(const CONTEXT& stContext, const GU_ARGS& stArgs, std::span<const REPORT_ROW> rows)
{
    if (stArgs.bList) {
        PrintList(stContext.printer, rows);
        return CODE_DONE;
    }
    std::vector<TARGET> targets;
    for (const std::string& strName : stArgs.names) {
        std::string strError;
        if (!Resolve(stArgs, rows, strName, targets.emplace_back(), strError))
            return stContext.Fail(CODE_USAGE, strError);
    }
    if (targets.empty())
        return stContext.Fail(CODE_USAGE, "name a report; --list shows the names");
    return CGuRun(stContext, stArgs).Run(targets);
}
