#pragma once

#include "agent/Agent.h"
#include "common/UniqueFd.h"
#include "support/Queues.h"
#include "support/TestBytes.h"

#include <chrono>
#include <memory>
#include <optional>
#include <string>
#include <vector>

/// Layout keys of the UE packets in the tests, those of the example configuration. A request has a head of 24
/// bytes: 00 02 <class of the id << 4> 01 01 <type> 00 00, u32 id, u32 parameters + 8, 8 zero bytes. Acks and
/// indications have one of 28 bytes: u32 -, u8 tag, u8 type, u16 -, u32 id, u32 ack field, u64 time stamp, u32 -.
extern const char* const TEST_LAYOUT;

/// A packet from the agent to a client, without its lead bytes.
struct ClientPacket
{
    DIAG_PACKET_ACK_STRU stHead;
    Bytes payload;
};

/// The far end of a client's connection. Requests run on the calling thread, as they do on the agent's main thread.
class CTestClient
{
public:
    CTestClient(CAgent& agent, enChannelType enType);

    /// The agent's object; null once it has gone.
    CClient* Get() const { return m_pClient.lock().get(); }
    /// Gives the bytes to the agent as one chunk from the socket.
    void Send(ByteView chunk);
    /// One framed request.
    void Request(unsigned int ulCmdId, unsigned short usPktType, ByteView params = {});
    /// The next whole packet; nothing when none comes in time. The test fails on bytes that are no packet.
    std::optional<ClientPacket> Read(std::chrono::milliseconds limit = std::chrono::seconds(2));
    /// Bytes that have arrived and were not read, without waiting.
    Bytes Pending();
    /// Whether the agent has closed the connection.
    bool IsClosed();
    int Socket() const { return m_Socket.Get(); }

private:
    bool ReadMore(int lTimeoutMs);

    CAgent& m_agent;
    CUniqueFd m_Socket;
    std::weak_ptr<CClient> m_pClient;
    Bytes m_received;
    bool m_bClosed = false;
};

/// An agent without its threads: the test takes their place, record by record and request by request.
class CAgentFixture
{
public:
    /// The lines are given to the configuration before the agent is made.
    explicit CAgentFixture(const std::string& strConfig = TEST_LAYOUT);
    ~CAgentFixture();
    CAgentFixture(const CAgentFixture&) = delete;
    CAgentFixture& operator=(const CAgentFixture&) = delete;

    /// Configuration lines, one key each.
    static void Configure(const std::string& strLines);

    /// All five channels of a UE appear, without the handshakes.
    void AttachUe(unsigned int ulUeIdx, unsigned int ulPort, const std::string& strName = "/dev/ttyUSB0",
                  const std::string& strGroup = "group-1");
    void Attach(unsigned int ulUeIdx, enChannelType enChannel, unsigned int ulPort,
                const std::string& strName = "/dev/ttyUSB0", const std::string& strGroup = "group-1");
    /// A channel goes away, as the agent handles the whole message.
    void Detach(unsigned int ulUeIdx, enChannelType enChannel);
    /// The UE has answered the host connect.
    void Confirm(unsigned int ulUeIdx) { m_pAgent->Events().SetConfirmed(ulUeIdx, true); }
    /// One record from the UE side.
    void Process(MSG_AGENT stMsg);
    /// One packet from the UE.
    void FromUe(unsigned int ulUeIdx, enChannelType enChannel, ByteView packet);

    /// A new client of that channel; the agent binds it if it would.
    CTestClient AddClient(enChannelType enType) { return {*m_pAgent, enType}; }
    bool Bind(const CTestClient& client, unsigned int ulPort);

    /// The records on their way to the UEs, taken off their queue.
    std::vector<QueuedMsg> ToUe() { return DrainUeQueue(); }

    CAgent& Agent() { return *m_pAgent; }

private:
    std::unique_ptr<CAgent> m_pAgent;
};

/// An LTE ack by TEST_LAYOUT.
Bytes LteAck(unsigned int ulCmdId, ByteView payload, unsigned long long ullTimeStamp = 0, unsigned char ucCmdType = 0);
