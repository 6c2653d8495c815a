#include "e2e/IsolationEvents.h"
#include "support/WaitFor.h"

#include <csignal>
#include <fcntl.h>
#include <filesystem>
#include <unistd.h>

namespace
{
using std::chrono::milliseconds;
using std::chrono::seconds;

constexpr std::initializer_list<enSerialType> ALL_TYPES = {SERIAL_TYPE_DIAG, SERIAL_TYPE_DATA, SERIAL_TYPE_GU,
                                                           SERIAL_TYPE_AT};

/// Events of another modem, whose ports all leave at the end.
class COtherModemEvent : public IIsolationEvent
{
public:
    std::string Undo(CIsolationRun& run) override
    {
        for (const enSerialType enType : m_attached)
            if (!m_ue.Detach(enType))
                return "a detach isn't taken";
        for (size_t szLeft = Channels(m_attached); szLeft > 0; --szLeft)
            if (!run.Status().AwaitDisconnects(OTHER_PORTS, 1, EVENT_LIMIT))
                return "a detach has no effect";
        return "";
    }

protected:
    std::string AttachPorts(CIsolationRun& run, const std::vector<enSerialType>& types)
    {
        m_attached = types;
        for (const enSerialType enType : types)
            if (!m_ue.Attach(enType))
                return "an attach isn't taken";
        return Unless(run.Status().AwaitConnects(OTHER_PORTS, Channels(types), EVENT_LIMIT), "an attach has no effect");
    }
    /// Attached, confirmed, with a client on its diag channel.
    std::string BringUp(CIsolationRun& run)
    {
        m_attached = {SERIAL_TYPE_DIAG};
        if (!m_ue.Confirm() || !run.Bench().WaitConfirmed(OTHER_PORT))
            return "the other modem isn't confirmed";
        const auto isBound = [&] {
            return (m_pClient = run.Bench().BoundClient(CHANNEL_LTE_DIAG, OTHER_PORT))->IsOpen();
        };
        return Unless(WaitFor(isBound), "no client can bind to the other modem");
    }

    CScriptedUe m_ue{OTHER_PORT, "other"};
    std::unique_ptr<CTcpClient> m_pClient;
    std::vector<enSerialType> m_attached;

private:
    static size_t Channels(const std::vector<enSerialType>& types)
    {
        size_t szCount = 0;
        for (const enSerialType enType : types)
            szCount += ChannelsOf(enType).size();
        return szCount;
    }
};

class CFourPortsAttach : public COtherModemEvent
{
public:
    std::string Run(CIsolationRun& run) override { return AttachPorts(run, ALL_TYPES); }
};

class CFourPortsDetach : public COtherModemEvent
{
public:
    std::string Prepare(CIsolationRun& run) override { return AttachPorts(run, ALL_TYPES); }
    std::string Run(CIsolationRun& run) override
    {
        const std::string strFault = COtherModemEvent::Undo(run);
        m_attached.clear();
        return strFault;
    }
};

class CHostConnect : public COtherModemEvent
{
public:
    std::string Run(CIsolationRun& run) override
    {
        m_attached = {SERIAL_TYPE_DIAG};
        return Unless(m_ue.Confirm() && run.Status().AwaitUes(1, EVENT_LIMIT), "the other modem isn't confirmed");
    }
};

/// A byte that the agent is told of is gone when it reads.
class CForeignReader : public COtherModemEvent
{
public:
    std::string Prepare(CIsolationRun& run) override { return AttachPorts(run, {SERIAL_TYPE_DATA}); }

    std::string Run(CIsolationRun&) override
    {
        CPtyPair& port = m_ue.Port(SERIAL_TYPE_DATA);
        const CUniqueFd foreign(open(port.Name().c_str(), O_RDONLY | O_NOCTTY | O_NONBLOCK | O_CLOEXEC));
        int nStolen = 0;
        for (int i = 0; i < 12; ++i) {
            port.Write(Bytes{0x55});
            nStolen += Steal(foreign) ? 1 : 0;
            std::this_thread::sleep_for(milliseconds(150)); // nothing comes that would end a read that waits
        }
        return Unless(nStolen > 0, "no byte could be read away");
    }

private:
    static bool Steal(const CUniqueFd& foreign)
    {
        unsigned char ucByte = 0;
        const auto end = MeterClock::now() + milliseconds(2);
        while (MeterClock::now() < end)
            if (read(foreign.Get(), &ucByte, 1) == 1)
                return true;
        return false;
    }
};

/// Its port takes nothing any more, and a client goes on asking.
class CStuckModem : public COtherModemEvent
{
public:
    std::string Prepare(CIsolationRun& run) override { return BringUp(run); }
    std::string Run(CIsolationRun& run) override { return FloodAndAsk(run, m_pClient->Fd(), 1000); }
};

class CStuckModemDetach : public COtherModemEvent
{
public:
    std::string Prepare(CIsolationRun& run) override
    {
        const std::string strFault = BringUp(run);
        (void)FloodRequests(m_pClient->Fd(), 12000, 1000, seconds(3));
        return strFault;
    }
    std::string Run(CIsolationRun& run) override
    {
        const MeterTime begin = MeterClock::now();
        const std::string strFault = COtherModemEvent::Undo(run);
        m_attached.clear();
        // A port that takes nothing may be given its 2 s to send what it holds.
        run.Took("the detach itself", Millis(MeterClock::now() - begin), 3000);
        return strFault;
    }
};

/// A modem that confirms again and again; the sequence of switches starts anew each time.
class CTenConfirmations : public COtherModemEvent
{
public:
    std::string Prepare(CIsolationRun& run) override { return BringUp(run); }

    std::string Run(CIsolationRun& run) override
    {
        for (int i = 0; i < 10; ++i)
            m_ue.SendHostConnectCnf();
        const MeterTime begin = MeterClock::now();
        if (!m_pClient->Send(PLAIN_CMD, PKT_TYPE_CMD) || !AnswerRequest())
            return "a request behind the confirmations doesn't reach the modem";
        if (!m_pClient->Await(PLAIN_CMD, EVENT_LIMIT))
            return "a request behind the confirmations isn't answered";
        run.Took("a request behind them", Millis(MeterClock::now() - begin), 100); // two switches may go first
        return Unless(run.Status().AwaitUes(1, EVENT_LIMIT), "the last confirmation isn't told");
    }

private:
    bool AnswerRequest()
    {
        const MeterTime end = MeterClock::now() + EVENT_LIMIT;
        while (MeterClock::now() < end) {
            const auto stReq = m_ue.ReadRequest();
            if (stReq && stReq->ulCmdId == PLAIN_CMD) {
                m_ue.SendAck(PLAIN_CMD, 0, Fill(4));
                return true;
            }
        }
        return false;
    }
};

/// A simulated modem's GU port alone; the modem stands still until its answer is wanted.
class CGuVersion : public IIsolationEvent
{
public:
    std::string Prepare(CIsolationRun& run) override
    {
        m_pModem = &run.Bench().StartUnreportedModem({"--ues", "1", "--quiet"});
        const std::string strPort = run.Bench().ModemPort(0, "gu");
        if (!WaitFor([&] { return std::filesystem::exists(run.Bench().ModemPort(0, "at")); }))
            return "the simulator has no ports";
        m_pModem->Signal(SIGSTOP);
        return Unless(SendDeviceRecord(PORT, SERIAL_TYPE_GU, 1, strPort, "gu modem") &&
                          run.Status().AwaitConnects({PORT, PORT}, 2, EVENT_LIMIT),
                      "the GU port isn't attached");
    }
    std::string Run(CIsolationRun& run) override
    {
        static const std::string LAST = "single and double card model=";
        const size_t szBefore = run.LogCount(LAST);
        m_pModem->Signal(SIGCONT);
        return Unless(run.AwaitLog(LAST, szBefore + 1, EVENT_LIMIT), "the GU modem isn't set up");
    }
    std::string Undo(CIsolationRun& run) override
    {
        const bool bDetached =
            SendDeviceRecord(PORT, 0, 0, "", "") && run.Status().AwaitDisconnects({PORT, PORT}, 2, EVENT_LIMIT);
        m_pModem->Signal(SIGKILL);
        return Unless(bDetached && m_pModem->WaitExit().has_value(), "the GU port isn't detached");
    }

private:
    static constexpr unsigned int PORT = 203;
    CVexProcess* m_pModem = nullptr;
};

/// With a pause behind each request to the modem. The client's own next request waits for them, nobody else does.
class CGuRequests : public IIsolationEvent
{
public:
    std::string Prepare(CIsolationRun& run) override
    {
        const size_t szBefore = run.LogCount(UP);
        m_pModem = &run.Bench().StartModem({"--ues", "1", "--first-port", std::to_string(OTHER_PORT), "--quiet"});
        if (!run.Bench().WaitConfirmed(OTHER_PORT) || !run.AwaitLog(UP, szBefore + 1, EVENT_LIMIT))
            return "the GU modem isn't set up";
        m_pOther = std::make_unique<CTcpClient>(CHANNEL_LTE_DIAG);
        const auto isBound = [&] {
            return (m_pClient = run.Bench().BoundClient(CHANNEL_GU_CMD, OTHER_PORT))->IsOpen();
        };
        return Unless(WaitFor(isBound), "no client can bind to the GU modem");
    }

    std::string Run(CIsolationRun& run) override
    {
        const MeterTime begin = MeterClock::now();
        for (int i = 0; i < 3; ++i)
            (void)m_pClient->Send(OTA, PKT_TYPE_GU_OTA, Le(0U));               // one piece each
        (void)m_pClient->Send(AGENT_CMD_BIND, PKT_TYPE_AGENT, Le(OTHER_PORT)); // the agent answers it by itself
        if (!m_pOther->Ask(AGENT_CMD_CHANNEL_QUERY, PKT_TYPE_AGENT))
            return "another client's request isn't answered";
        run.Took("another client's request", Millis(MeterClock::now() - begin), 20);
        if (!m_pClient->Await(AGENT_CMD_BIND, EVENT_LIMIT))
            return "the client's own request isn't answered";
        const double dOwn = Millis(MeterClock::now() - begin);
        run.Took("the client's own next request", dOwn, 600);
        return Unless(dOwn >= 290, "the client's own request overtook the pauses: " + std::to_string(dOwn) + " ms");
    }

    std::string Undo(CIsolationRun& run) override
    {
        m_pModem->Signal(SIGTERM); // it detaches its ports
        if (!m_pModem->WaitExit(EVENT_LIMIT))
            return "the GU modem doesn't end";
        return Unless(run.Status().AwaitDisconnects(OTHER_PORTS, CHANNELNUM, EVENT_LIMIT),
                      "the GU modem isn't detached");
    }

private:
    static constexpr uint32_t OTA = 0xC101;
    static inline const std::string UP = "single and double card model=";
    CVexProcess* m_pModem = nullptr;
    std::unique_ptr<CTcpClient> m_pClient;
    std::unique_ptr<CTcpClient> m_pOther;
};
} // namespace

std::vector<ISOLATION_EVENT> ModemEvents()
{
    return {
        {"FourPortsAttach", "another modem's four ports attach", "", MakeEvent<CFourPortsAttach>},
        {"FourPortsDetach", "another modem's four ports detach", "", MakeEvent<CFourPortsDetach>},
        {"HostConnect", "its attach, host connect and 24 switches", "", MakeEvent<CHostConnect>},
        {"GuVersion", "its GU link set-up and version", "", MakeEvent<CGuVersion>},
        {"GuRequests", "three GU requests with pauses of 100 ms", "", MakeEvent<CGuRequests>},
        {"ForeignReader", "a foreign program reads from its port", "", MakeEvent<CForeignReader>},
        {"StuckModem", "12000 requests to a modem that stopped reading", "", MakeEvent<CStuckModem>},
        {"StuckModemDetach", "its detach in that state", "", MakeEvent<CStuckModemDetach>},
        {"TenConfirmations", "ten host connect confirmations in a row", "", MakeEvent<CTenConfirmations>},
    };
}
