#include "client/Commands.h"

#include "client/Stop.h"

#include <algorithm>

namespace
{
// What ends the answer to an AT command (3GPP TS 27.007, ITU-T V.250).
constexpr const char* c_apszGood[] = {"OK", "CONNECT"};
constexpr const char* c_apszBad[] = {"ERROR",       "+CME ERROR", "+CMS ERROR", "NO CARRIER",
                                     "NO DIALTONE", "BUSY",       "NO ANSWER",  "COMMAND NOT SUPPORT"};

bool IsGood(const std::string& strLine)
{
    return std::ranges::find(c_apszGood, strLine) != std::end(c_apszGood) || strLine.starts_with("CONNECT ");
}

bool IsBad(const std::string& strLine)
{
    return std::ranges::any_of(c_apszBad, [&](const char* pszText) { return strLine.starts_with(pszText); });
}

/// Takes the whole lines out of the text, without their ends and without empty ones.
std::vector<std::string> TakeLines(std::string& strText)
{
    std::vector<std::string> lines;
    for (size_t szEnd = 0; (szEnd = strText.find_first_of("\r\n")) != std::string::npos;) {
        if (szEnd > 0)
            lines.push_back(strText.substr(0, szEnd));
        strText.erase(0, szEnd + 1);
    }
    return lines;
}

/// Prints the modem's lines until one ends the answer.
class CAtAnswer
{
public:
    explicit CAtAnswer(const CONTEXT& stContext) : m_stContext(stContext) {}

    /// True when the answer has ended; Code() then tells how.
    bool Take(const PACKET& stPacket)
    {
        const bool bUnsolicited = stPacket.stHead.ulCmdId == AGENT_CMD_AT_IND;
        std::string& strText = bUnsolicited ? m_strUnsolicited : m_strAnswer;
        strText.append(stPacket.payload.begin(), stPacket.payload.end());
        for (const std::string& strLine : TakeLines(strText)) {
            m_stContext.printer.Print({{"event", "at"}, {"unsolicited", bUnsolicited}, {"text", strLine}},
                                      (bUnsolicited ? "* " : "") + strLine + '\n');
            if (!bUnsolicited && (IsGood(strLine) || IsBad(strLine))) {
                m_enCode = IsGood(strLine) ? CODE_DONE : CODE_REFUSED;
                return true;
            }
        }
        return false;
    }
    EXIT_CODE Code() const { return m_enCode; }

private:
    const CONTEXT& m_stContext;
    std::string m_strAnswer;
    std::string m_strUnsolicited;
    EXIT_CODE m_enCode = CODE_TIME_OUT;
};
} // namespace

EXIT_CODE RunAt(const CONTEXT& stContext, const std::string& strText)
{
    CSession session(stContext, CHANNEL_AT);
    EXIT_CODE enCode = session.Open();
    if (enCode == CODE_DONE)
        enCode = session.Send(AGENT_CMD_AT, PKT_TYPE_AGENT, AsBytes(strText + '\r'));
    if (enCode != CODE_DONE)
        return enCode;
    const auto deadline = After(stContext.stOptions.dTimeout);
    CAtAnswer answer(stContext);
    for (PACKET stPacket;;) {
        stContext.printer.Flush();
        switch (session.Connection().Receive(stPacket, deadline)) {
        case RECV_RESULT::CLOSED:
            return session.Lost();
        case RECV_RESULT::TIME_OUT:
            return stContext.Fail(CODE_TIME_OUT, StopRequested() ? "interrupted"
                                                                 : "no final answer from the modem in time; is the "
                                                                   "client bound to a UE (--bind PORT)?");
        case RECV_RESULT::PACKET:
            if (stPacket.stHead.ulCmdId != AGENT_CMD_AT && stPacket.stHead.ulCmdId != AGENT_CMD_AT_IND)
                session.PrintUnsolicited(stPacket);
            else if (answer.Take(stPacket))
                return answer.Code();
        }
    }
}
