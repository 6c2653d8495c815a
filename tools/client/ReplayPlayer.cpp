#include "client/ReplayPlayer.h"

#include "client/Stop.h"
#include "common/Bytes.h"

#include <array>
#include <thread>

namespace
{
// Between a connection's coming or going and what follows, so that the agent sees them in this order.
constexpr std::chrono::milliseconds ORDER_TIME(5);

// A client that was there before the capture is bound as it was, once the modem is up.
constexpr std::chrono::seconds BIND_LIMIT(20);
constexpr std::chrono::milliseconds BIND_PAUSE(200);

REPLAY_PACKET BytesOf(const PACKET& stPacket)
{
    REPLAY_PACKET bytes(DIAG_PACKET_ACK_STRU::SIZE + stPacket.payload.size());
    CByteWriter writer(bytes);
    AckHead(writer, stPacket.stHead);
    writer.Bytes(stPacket.payload);
    return bytes;
}

/// What the client gets on the way isn't of the capture.
bool Bind(CConnection& connection, uint32_t ulPort)
{
    std::array<unsigned char, 4> aucPort{};
    StoreLe<uint32_t>(aucPort, 0, ulPort);
    const auto deadline = Clock::now() + CReplayPlayer::WAIT_LIMIT;
    if (!connection.Send(EncodeRequest(AGENT_CMD_BIND, PKT_TYPE_AGENT, aucPort), deadline))
        return false;
    PACKET stPacket;
    while (connection.Receive(stPacket, deadline) == RECV_RESULT::PACKET)
        if (stPacket.stHead.ulCmdId == AGENT_CMD_BIND)
            return stPacket.stHead.ulRc == DIAG_RC_OK;
    return false;
}
} // namespace

CReplayPlayer::CReplayPlayer(const CONTEXT& stContext, const CReplayScript& script, double dScale)
    : m_stContext(stContext), m_script(script), m_dScale(dScale), m_lines(script.Clients().size())
{
}

Clock::duration CReplayPlayer::After(const REPLAY_ACT& stAct) const
{
    return std::chrono::duration_cast<Clock::duration>(
        std::chrono::duration<double, std::nano>(static_cast<double>(stAct.ullTime) * m_dScale));
}

EXIT_CODE CReplayPlayer::Run(bool bNow)
{
    m_base = Clock::now() - (bNow ? After(m_script.Acts().front()) : Clock::duration::zero());
    for (const REPLAY_ACT& stAct : m_script.Acts()) {
        if (StopRequested())
            break;
        LINE& stLine = m_lines[stAct.szClient];
        if (stAct.enKind == REPLAY_ACT::KIND::AWAIT) {
            Await(stLine);
            continue;
        }
        const auto after = After(stAct);
        WaitUntil(m_base + after);
        m_base = std::max(m_base, Clock::now() - after); // later than then: so is all that follows
        if (const EXIT_CODE enCode = Do(stAct); enCode != CODE_DONE)
            return enCode;
    }
    Listen(Clock::now());
    return CODE_DONE;
}

void CReplayPlayer::WaitUntil(Clock::time_point due)
{
    while (Clock::now() < due && !StopRequested())
        Listen(due);
}

/// Once a packet has failed to come, those behind it aren't waited for until something comes again.
void CReplayPlayer::Await(LINE& stLine)
{
    ++stLine.szAwaited;
    const auto deadline = stLine.bSilent ? Clock::now() : Clock::now() + WAIT_LIMIT;
    const auto hasCome = [&] { return stLine.got.size() + stLine.szMissing >= stLine.szAwaited; };
    while (!hasCome() && stLine.pConnection && Clock::now() < deadline && !StopRequested())
        Listen(deadline);
    if (hasCome())
        return;
    stLine.szMissing = stLine.szAwaited - stLine.got.size();
    stLine.bSilent = true;
}

EXIT_CODE CReplayPlayer::Do(const REPLAY_ACT& stAct)
{
    LINE& stLine = m_lines[stAct.szClient];
    switch (stAct.enKind) {
    case REPLAY_ACT::KIND::CONNECT:
        return Connect(m_script.Clients()[stAct.szClient], stLine);
    case REPLAY_ACT::KIND::SEND:
        if (stLine.pConnection && !stLine.pConnection->Send(stAct.bytes, Clock::now() + WAIT_LIMIT))
            stLine.pConnection.reset(); // the answers that don't come are told at the end
        break;
    case REPLAY_ACT::KIND::CLOSE:
        if (stLine.pConnection)
            Read(stLine);
        stLine.pConnection.reset();
        std::this_thread::sleep_for(ORDER_TIME);
        break;
    case REPLAY_ACT::KIND::AWAIT:
        break;
    }
    return CODE_DONE;
}

EXIT_CODE CReplayPlayer::Connect(const REPLAY_CLIENT& stClient, LINE& stLine)
{
    stLine.pConnection = std::make_unique<CConnection>();
    std::string strError;
    const CLIENT_OPTIONS& stOptions = m_stContext.stOptions;
    const auto limit = std::chrono::milliseconds(static_cast<long>(stOptions.dTimeout * 1000));
    const auto usPort = LISTENPORT[static_cast<size_t>(stClient.enChannel)];
    if (!stLine.pConnection->Connect(stOptions.strHost, usPort, limit, strError))
        return m_stContext.Fail(CODE_NO_CONNECTION, strError);
    std::this_thread::sleep_for(ORDER_TIME);
    if (!stClient.bindPort)
        return CODE_DONE;
    const auto deadline = Clock::now() + BIND_LIMIT;
    while (Clock::now() < deadline && !StopRequested()) {
        if (Bind(*stLine.pConnection, *stClient.bindPort))
            return CODE_DONE;
        std::this_thread::sleep_for(BIND_PAUSE);
    }
    return m_stContext.Fail(CODE_NO_CONNECTION, "no binding to the UE with port " + std::to_string(*stClient.bindPort) +
                                                    ", which client " + std::to_string(stClient.ulNumber) +
                                                    " of the capture had from its start");
}

void CReplayPlayer::Listen(Clock::time_point deadline)
{
    std::vector<int> fds;
    for (const LINE& stLine : m_lines)
        if (stLine.pConnection)
            fds.push_back(stLine.pConnection->Fd());
    WaitReadable(fds, deadline);
    for (LINE& stLine : m_lines)
        if (stLine.pConnection)
            Read(stLine);
}

void CReplayPlayer::Read(LINE& stLine)
{
    const bool bOpen = stLine.pConnection->Pump();
    PACKET stPacket;
    while (stLine.pConnection->Next(stPacket)) {
        stLine.got.push_back(BytesOf(stPacket));
        stLine.bSilent = false;
    }
    if (!bOpen)
        stLine.pConnection.reset();
}
