#include "support/AgentFixture.h"

#include "agent/Client.h"
#include "common/Config.h"

#include <arpa/inet.h>
#include <gtest/gtest.h>
#include <poll.h>
#include <sstream>
#include <sys/socket.h>

const char* const TEST_LAYOUT = R"(
REQ_CHL_PACKET_HEADER_LEN=24
REQ_CHL_PACKET_HEADER={0,1};{1,1};{2,1};{3,1};{4,1};{5,1};{6,2};{8,4};{12,4};{16,4};{20,4}
ACK_CHL_PACKET_PAYLOAD_OFFSET=28
ACK_CHL_PACKET_HEADER={8,4};{24,4};{12,4};{5,1};{16,8};{0,0}
DATA_CHL_PACKET_PAYLOAD_OFFSET=28
DATA_CHL_PACKET_HEADER={8,4};{12,4};{5,1};{16,8};{24,4}
DATA_ACK_CHL_PACKET_OFFSET=8
DATA_ACK_CHL_PACKET_UID={8,4};{4,1};{5,1}
)";

CTestClient::CTestClient(CAgent& agent, enChannelType enType) : m_agent(agent)
{
    int anPair[2] = {-1, -1};
    if (socketpair(AF_UNIX, SOCK_STREAM | SOCK_NONBLOCK, 0, anPair) != 0)
        std::abort();
    m_Socket.Reset(anPair[0]);
    sockaddr_in stAddr{};
    stAddr.sin_family = AF_INET;
    stAddr.sin_addr.s_addr = inet_addr("192.0.2.1");
    const xtl::MutexGuard guard(agent.Bindings().Mutex());
    m_pClient = agent.Clients().AddClient(anPair[1], enType, stAddr)->Hold();
}

void CTestClient::Send(ByteView chunk)
{
    const xtl::MutexGuard guard(m_agent.Bindings().Mutex());
    if (const auto pClient = m_pClient.lock())
        pClient->OnClientData(chunk);
}

void CTestClient::Request(unsigned int ulCmdId, unsigned short usPktType, ByteView params)
{
    Send(Join(Hex("9F 9F"), Le(ulCmdId), Le(usPktType), Le(static_cast<unsigned short>(params.size())), params));
}

std::optional<ClientPacket> CTestClient::Read(std::chrono::milliseconds limit)
{
    constexpr size_t HEAD = LEAD_LEN + DIAG_PACKET_ACK_STRU::SIZE;
    const auto end = std::chrono::steady_clock::now() + limit;
    ClientPacket stPacket;
    for (;;) {
        CByteReader reader(Slice(ByteView(m_received), LEAD_LEN));
        AckHead(reader, stPacket.stHead);
        if (m_received.size() >= HEAD && m_received.size() >= HEAD + stPacket.stHead.usLen)
            break;
        const auto left = std::chrono::ceil<std::chrono::milliseconds>(end - std::chrono::steady_clock::now());
        if (!ReadMore(std::max(0, static_cast<int>(left.count()))))
            return std::nullopt;
    }
    EXPECT_EQ(LoadLe<uint16_t>(m_received, 0), 0x9F9F) << "lead bytes";
    stPacket.payload = Bytes(Slice(ByteView(m_received), HEAD, stPacket.stHead.usLen));
    m_received.erase(m_received.begin(), m_received.begin() + static_cast<long>(HEAD + stPacket.payload.size()));
    return stPacket;
}

Bytes CTestClient::Pending()
{
    while (ReadMore(0)) {
    }
    return std::exchange(m_received, {});
}

bool CTestClient::IsClosed()
{
    while (ReadMore(0)) {
    }
    return m_bClosed;
}

bool CTestClient::ReadMore(int lTimeoutMs)
{
    pollfd stFd{m_Socket.Get(), POLLIN, 0};
    if (m_bClosed || poll(&stFd, 1, lTimeoutMs) <= 0)
        return false;
    std::array<unsigned char, 65536> aucBuf;
    const ssize_t lRead = recv(m_Socket.Get(), aucBuf.data(), aucBuf.size(), 0);
    m_bClosed = lRead <= 0;
    m_received.insert(m_received.end(), aucBuf.begin(), aucBuf.begin() + std::max<ssize_t>(lRead, 0));
    return lRead > 0;
}

CAgentFixture::CAgentFixture(const std::string& strConfig)
{
    Configure(strConfig);
    CMsgBuf::Instance()->Start();
    m_pAgent = std::make_unique<CAgent>();
}

CAgentFixture::~CAgentFixture()
{
    (void)ToUe();
} // frees what the agent left there

void CAgentFixture::Configure(const std::string& strLines)
{
    std::istringstream lines(strLines);
    for (std::string strLine; std::getline(lines, strLine);)
        CConfig::Instance()->ParseLine(strLine);
}

void CAgentFixture::AttachUe(unsigned int ulUeIdx, unsigned int ulPort, const std::string& strName,
                             const std::string& strGroup)
{
    if (ulUeIdx == TCP_UE_INDEX) // one message speaks for all channels
        return Attach(ulUeIdx, CHANNEL_LTE_DIAG, ulPort, strName, strGroup);
    for (const enChannelType enChannel : ALL_CHANNELS)
        Attach(ulUeIdx, enChannel, ulPort, strName, strGroup);
}

void CAgentFixture::Attach(unsigned int ulUeIdx, enChannelType enChannel, unsigned int ulPort,
                           const std::string& strName, const std::string& strGroup)
{
    Bytes block(UE_ATTACH_INFO_STRU::SIZE, 0);
    CByteWriter writer(block);
    const UE_ATTACH_INFO_STRU stInfo{ulPort, strName, strGroup};
    AttachInfo(writer, stInfo);
    m_pAgent->Events().UpdateSerialInfo({AGENT_MSG_CONNECT, ulUeIdx, enChannel, CPacket::Copy(block)});
}

void CAgentFixture::Process(MSG_AGENT stMsg)
{
    m_pAgent->Events().ProcessAgentMsgs({&stMsg, 1});
}

void CAgentFixture::Detach(unsigned int ulUeIdx, enChannelType enChannel)
{
    Process({AGENT_MSG_DISCONNECT, ulUeIdx, enChannel, {}});
}

void CAgentFixture::FromUe(unsigned int ulUeIdx, enChannelType enChannel, ByteView packet)
{
    Process({AGENT_MSG_DATA, ulUeIdx, enChannel, CPacket::Copy(packet)});
}

bool CAgentFixture::Bind(const CTestClient& client, unsigned int ulPort)
{
    const xtl::MutexGuard guard(m_pAgent->Bindings().Mutex());
    return m_pAgent->Bindings().BindCOM(client.Get(), ulPort);
}

Bytes LteAck(unsigned int ulCmdId, ByteView payload, unsigned long long ullTimeStamp, unsigned char ucCmdType)
{
    Bytes packet(28, 0);
    packet[5] = ucCmdType;
    StoreLe<uint32_t>(packet, 8, ulCmdId);
    StoreLe<uint64_t>(packet, 16, ullTimeStamp);
    StoreLe<uint32_t>(packet, 24, static_cast<uint32_t>(payload.size()));
    packet.insert(packet.end(), payload.begin(), payload.end());
    return packet;
}
