#include "client/AtTerminal.h"
#include "client/Commands.h"
#include "client/Stop.h"

namespace
{
constexpr std::chrono::milliseconds LOOK_PERIOD{100}; // for a program that opens the terminal, or a stop

/// Carries text between the terminal and the AT channel.
class CAtBridge
{
public:
    CAtBridge(CSession& session, CAtTerminal& terminal) : m_session(session), m_terminal(terminal) {}

    /// Until the agent ends the connection or the user stops.
    EXIT_CODE Run()
    {
        while (!StopRequested()) {
            const bool bUsed = m_terminal.IsUsed();
            const int fds[] = {m_session.Connection().Fd(), m_terminal.Fd()};
            WaitReadable(std::span(fds).first(bUsed ? 2 : 1), Clock::now() + LOOK_PERIOD);
            if (bUsed)
                TakeTyped();
            else
                m_typing.Forget();
            const bool bConnected = m_session.Connection().Pump();
            TakePackets();
            if (m_enCode != CODE_DONE || !bConnected)
                return bConnected ? m_enCode : m_session.Lost();
        }
        return CODE_DONE;
    }

private:
    void TakeTyped()
    {
        for (const unsigned char ucKey : m_terminal.Read())
            if (const auto command = m_typing.Take(ucKey); command && m_enCode == CODE_DONE)
                m_enCode = m_session.Send(AGENT_CMD_AT, PKT_TYPE_AGENT, AsBytes(*command));
    }

    void TakePackets()
    {
        for (PACKET stPacket; m_session.Connection().Next(stPacket);)
            if (stPacket.stHead.ulCmdId == AGENT_CMD_AT || stPacket.stHead.ulCmdId == AGENT_CMD_AT_IND)
                m_terminal.Write(stPacket.payload);
            else
                m_session.PrintUnsolicited(stPacket);
        m_terminal.Write({}); // what it hasn't taken yet
    }

    CSession& m_session;
    CAtTerminal& m_terminal;
    CAtTyping m_typing;
    EXIT_CODE m_enCode = CODE_DONE;
};
} // namespace

EXIT_CODE RunAtPty(const CONTEXT& stContext, const std::string& strLink)
{
    CSession session(stContext, CHANNEL_AT);
    if (const EXIT_CODE enCode = session.Open(); enCode != CODE_DONE)
        return enCode;
    CAtTerminal terminal;
    std::string strError;
    if (!terminal.Open(strLink, strError))
        return stContext.Fail(CODE_USAGE, strError);
    stContext.printer.Print({{"event", "at terminal"}, {"link", strLink}, {"terminal", terminal.Name()}},
                            strLink + " is the modem's AT port (" + terminal.Name() + "); Ctrl-C ends it\n");
    stContext.printer.Flush();
    return CAtBridge(session, terminal).Run();
}
