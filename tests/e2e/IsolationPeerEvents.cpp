#include "e2e/FrameStream.h"
#include "e2e/IsolationEvents.h"
#include "e2e/ScriptedLinks.h"
#include "e2e/Torrent.h"
#include "support/WaitFor.h"

#include <arpa/inet.h>
#include <poll.h>
#include <sys/socket.h>

namespace
{
using std::chrono::milliseconds;
using std::chrono::seconds;

constexpr PORT_RANGE NETWORK_PORT{0, 0};

class CNetworkAttach : public IIsolationEvent
{
public:
    std::string Prepare(CIsolationRun&) override { return Unless(m_links.Listen(), "the links' ports are taken"); }
    std::string Run(CIsolationRun&) override
    {
        return Unless(CScriptedLinks::Attach() && m_links.Accept() && m_links.Confirm(),
                      "the network modem isn't confirmed");
    }
    std::string Undo(CIsolationRun& run) override
    {
        return Unless(CScriptedLinks::Detach() && run.Status().AwaitDisconnects(NETWORK_PORT, CHANNELNUM, EVENT_LIMIT),
                      "the network modem isn't detached");
    }

protected:
    CScriptedLinks m_links;
};

class CStuckLink : public CNetworkAttach
{
public:
    std::string Prepare(CIsolationRun& run) override
    {
        std::string strFault = CNetworkAttach::Prepare(run);
        strFault += CNetworkAttach::Run(run);
        const int nRoom = 16 * 1024; // little room for what isn't read
        (void)setsockopt(m_links.Link(SERIAL_TYPE_DIAG).Get(), SOL_SOCKET, SO_RCVBUF, &nRoom, sizeof(nRoom));
        const auto isBound = [&] { return (m_pClient = run.Bench().BoundClient(CHANNEL_LTE_DIAG, 0))->IsOpen(); };
        return strFault + Unless(WaitFor(isBound), "no client can bind to the network modem");
    }
    std::string Run(CIsolationRun& run) override { return FloodAndAsk(run, m_pClient->Fd(), 4000); }

private:
    std::unique_ptr<CTcpClient> m_pClient;
};

/// Sockets whose queue is full, so that a connect to them gets no answer at all.
class CDeafHost
{
public:
    bool Listen()
    {
        for (unsigned short i = 0; i < SERIALNUM; ++i) {
            const auto usPort = static_cast<unsigned short>(CScriptedLinks::FIRST_PORT + i);
            m_fds.push_back(ListenTcp(usPort, 0));
            if (!m_fds.back().IsOpen())
                return false;
            while (Fill(usPort)) {
            }
        }
        return true;
    }

private:
    /// One more connection; false when it isn't taken at once.
    bool Fill(unsigned short usPort)
    {
        m_fds.emplace_back(socket(AF_INET, SOCK_STREAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0));
        sockaddr_in stAddr{};
        stAddr.sin_family = AF_INET;
        stAddr.sin_port = htons(usPort);
        stAddr.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
        (void)connect(m_fds.back().Get(), reinterpret_cast<const sockaddr*>(&stAddr), sizeof(stAddr));
        pollfd stPoll{m_fds.back().Get(), POLLOUT, 0};
        return poll(&stPoll, 1, 50) == 1 && stPoll.revents == POLLOUT;
    }

    std::vector<CUniqueFd> m_fds;
};

class CDeafAddress : public IIsolationEvent
{
public:
    std::string Prepare(CIsolationRun&) override { return Unless(m_host.Listen(), "the links' ports are taken"); }

    std::string Run(CIsolationRun& run) override
    {
        const MeterTime begin = MeterClock::now();
        (void)CScriptedLinks::Attach();
        (void)m_ue.Attach(SERIAL_TYPE_AT); // opens with the first write
        if (!run.Status().AwaitConnects({OTHER_PORT + SERIAL_TYPE_AT, OTHER_PORT + SERIAL_TYPE_AT}, 1, 2 * EVENT_LIMIT))
            return "an attach behind it has no effect";
        run.Took("an attach of an AT port behind it", Millis(MeterClock::now() - begin), 20);
        (void)m_ue.Attach(SERIAL_TYPE_DATA);
        if (!run.Status().AwaitConnects(OTHER_PORTS, 1, EVENT_LIMIT))
            return "a second attach behind it has no effect";
        run.Took("an attach of a data port behind it", Millis(MeterClock::now() - begin), 1100); // a second settles it
        std::this_thread::sleep_until(begin + seconds(6)); // past the 5 s that a connect may take
        return "";
    }

    std::string Undo(CIsolationRun& run) override
    {
        (void)CScriptedLinks::Detach();
        (void)m_ue.Detach(SERIAL_TYPE_AT);
        (void)m_ue.Detach(SERIAL_TYPE_DATA);
        return Unless(run.Status().AwaitDisconnects(OTHER_PORTS, 2, EVENT_LIMIT), "a detach has no effect");
    }

private:
    CDeafHost m_host;
    CScriptedUe m_ue{OTHER_PORT, "other"};
};

/// Connections to the device monitor's port that say nothing, or half a record.
class CSilentMonitors : public IIsolationEvent
{
public:
    std::string Run(CIsolationRun& run) override
    {
        std::vector<CUniqueFd> silent;
        for (size_t i = 0; i < 3; ++i) {
            silent.push_back(ConnectTcp(DEVICE_MONITOR_PORT));
            (void)SendAll(silent.back(), Fill(i * 200));
        }
        const MeterTime begin = MeterClock::now();
        (void)m_ue.Attach(SERIAL_TYPE_AT); // opens with the first write
        if (!run.Status().AwaitConnects(OTHER_PORTS, 1, 2 * EVENT_LIMIT))
            return "a record behind them has no effect";
        run.Took("an attach behind them", Millis(MeterClock::now() - begin), 20);
        const MeterTime detach = MeterClock::now();
        (void)m_ue.Detach(SERIAL_TYPE_AT);
        if (!run.Status().AwaitDisconnects(OTHER_PORTS, 1, EVENT_LIMIT))
            return "a detach behind them has no effect";
        run.Took("a detach behind them", Millis(MeterClock::now() - detach), 20);
        return "";
    }

private:
    CScriptedUe m_ue{OTHER_PORT, "other"};
};

/// A client of a modem that sends 2 MB/s, with little room for what it doesn't read.
class CTorrentClient : public IIsolationEvent
{
public:
    std::string Prepare(CIsolationRun& run) override
    {
        if (!m_torrent.Attach() || !run.Bench().WaitConfirmed(OTHER_PORT))
            return "the other modem isn't confirmed";
        const auto isBound = [&] {
            return (m_pClient = run.Bench().BoundClient(CHANNEL_LTE_DATA, OTHER_PORT))->IsOpen();
        };
        if (!WaitFor(isBound))
            return "no client can bind to the other modem";
        const int nRoom = 16 * 1024;
        (void)setsockopt(m_pClient->Fd().Get(), SOL_SOCKET, SO_RCVBUF, &nRoom, sizeof(nRoom));
        return "";
    }
    std::string Undo(CIsolationRun& run) override
    {
        m_torrent.Detach();
        return Unless(run.Status().AwaitDisconnects(OTHER_PORTS, 2, EVENT_LIMIT), "a detach has no effect");
    }

protected:
    static constexpr auto TIME = seconds(8); // until all buffers on the way are full

    /// Reads so much; what is wrong with the frames, or empty.
    std::string Read(size_t szBytes, milliseconds limit)
    {
        const Bytes bytes = ReceiveBytes(m_pClient->Fd(), szBytes, limit);
        const bool bWhole = m_stream.Feed(bytes, [&](const DIAG_PACKET_ACK_STRU&, ByteView payload) {
            ++m_szFrames;
            m_bIntact = m_bIntact && CTorrent::IsIntact(payload);
        });
        return Unless(bWhole && m_bIntact, "a torn frame behind " + std::to_string(m_szFrames) + " good ones");
    }
    /// All that is left; whole frames, and fewer than were sent.
    std::string ReadRest()
    {
        m_torrent.Stop();
        std::string strFault;
        for (size_t szBefore = SIZE_MAX; szBefore != m_szFrames && strFault.empty();) {
            szBefore = m_szFrames;
            strFault = Read(1 << 20, milliseconds(200));
        }
        if (strFault.empty() && m_szFrames >= m_torrent.Sent())
            return "nothing was lost: the client wasn't slow";
        return strFault.empty() ? Unless(m_szFrames > 0, "the client got nothing") : strFault;
    }

    CTorrent m_torrent{OTHER_PORT};
    std::unique_ptr<CTcpClient> m_pClient;

private:
    CFrameStream m_stream;
    size_t m_szFrames = 0;
    bool m_bIntact = true;
};

class CSlowClient : public CTorrentClient
{
public:
    std::string Run(CIsolationRun&) override
    {
        m_torrent.Start();
        const MeterTime end = MeterClock::now() + TIME;
        for (MeterTime due = MeterClock::now(); due < end; due += milliseconds(100)) {
            std::this_thread::sleep_until(due);
            if (const std::string strFault = Read(6400, milliseconds(50)); !strFault.empty()) // 64 kB/s
                return strFault;
        }
        return ReadRest();
    }
};

class CStalledClient : public CTorrentClient
{
public:
    std::string Run(CIsolationRun&) override
    {
        m_torrent.Start();
        std::this_thread::sleep_for(TIME);
        return ReadRest();
    }
};
} // namespace

size_t FloodRequests(const CUniqueFd& client, size_t szCount, size_t szParams, milliseconds limit)
{
    const Bytes request = Join(Hex("9F9F"), Le(PLAIN_CMD), Le(uint16_t{PKT_TYPE_CMD}),
                               Le(static_cast<uint16_t>(szParams)), Fill(szParams, 0x11));
    const MeterTime end = MeterClock::now() + limit;
    size_t szAt = 0; // bytes, of all requests
    while (szAt < szCount * request.size() && MeterClock::now() < end) {
        const ByteView rest = ByteView(request).subspan(szAt % request.size());
        const ssize_t lSent = send(client.Get(), rest.data(), rest.size(), MSG_NOSIGNAL | MSG_DONTWAIT);
        if (lSent > 0) {
            szAt += static_cast<size_t>(lSent);
        } else {
            pollfd stPoll{client.Get(), POLLOUT, 0};
            (void)poll(&stPoll, 1, 20);
        }
    }
    return szAt / request.size();
}

std::string FloodAndAsk(CIsolationRun& run, const CUniqueFd& client, size_t szParams)
{
    CTcpClient other(CHANNEL_LTE_DIAG);
    const size_t szSent = FloodRequests(client, 12000, szParams, seconds(4));
    std::this_thread::sleep_for(milliseconds(500)); // until they are where they get stuck
    const MeterTime begin = MeterClock::now();
    if (!other.Ask(AGENT_CMD_CHANNEL_QUERY, PKT_TYPE_AGENT, {}, EVENT_LIMIT))
        return "another client's request isn't answered";
    run.Took("another client's request", Millis(MeterClock::now() - begin), 20);
    const auto dHealthy = run.Healthy().AskMs(EVENT_LIMIT);
    if (!dHealthy)
        return "a request to the healthy modem isn't answered";
    run.Took("a request to the healthy modem", *dHealthy, 20);
    return Unless(szSent > 100, "the agent took only " + std::to_string(szSent) + " requests");
}

std::vector<ISOLATION_EVENT> PeerEvents()
{
    return {
        {"NetworkAttach", "attach of a network modem", "", MakeEvent<CNetworkAttach>},
        {"DeafAddress", "attach of one whose address doesn't answer", "", MakeEvent<CDeafAddress>},
        {"StuckLink", "many requests to a link that stopped reading", "", MakeEvent<CStuckLink>},
        {"SilentMonitors", "three silent connections to the device monitor", "", MakeEvent<CSilentMonitors>},
        {"SlowClient", "a client that reads 64 kB/s of 2 MB/s", "", MakeEvent<CSlowClient>},
        {"StalledClient", "a client that stops reading 2 MB/s", "", MakeEvent<CStalledClient>},
    };
}

std::span<const ISOLATION_EVENT> IsolationEvents()
{
    static const std::vector<ISOLATION_EVENT> all = [] {
        std::vector<ISOLATION_EVENT> events = ModemEvents();
        for (const ISOLATION_EVENT& stEvent : PeerEvents())
            events.push_back(stEvent);
        return events;
    }();
    return all;
}
