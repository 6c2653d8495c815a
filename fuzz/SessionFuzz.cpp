#include "agent/Client.h"
#include "support/GuFixture.h"

#include <cstdlib>

// Whole client sessions against an agent without its threads: clients on socket pairs come, talk in whole and cut
// frames, bind and go, while a scripted modem attaches, answers, sends and detaches. The input is steps of a byte for
// the kind and what the step takes. Behind each step the queue to the UEs and all clients are emptied and looked at.

namespace
{
constexpr size_t CLIENTS_MAX = 12;
constexpr size_t CHUNK_MAX = 256; // bytes of a client at a time: what they make the agent say fits the socket
constexpr size_t PACKET_MAX = 4096;
constexpr size_t RUN_MAX = 4; // packets handed over together
constexpr unsigned int PORT_FIRST = 7;
constexpr unsigned int UES[] = {0, 1, TCP_UE_INDEX};

void Require(bool bHolds)
{
    if (!bHolds)
        std::abort();
}

/// Whole packets and nothing else.
void CheckStream(ByteView stream)
{
    while (!stream.empty()) {
        Require(LoadLe<uint16_t>(stream, 0) == 0x9F9F && stream.size() >= LEAD_LEN + DIAG_PACKET_ACK_STRU::SIZE);
        DIAG_PACKET_ACK_STRU stHead;
        CByteReader reader(stream.subspan(LEAD_LEN));
        AckHead(reader, stHead);
        Require(reader.Left() >= stHead.usLen);
        stream = stream.subspan(LEAD_LEN + DIAG_PACKET_ACK_STRU::SIZE + stHead.usLen);
    }
}

class CSession
{
public:
    explicit CSession(ByteView input) : m_Input(input) {}

    void Run()
    {
        while (m_Input.Left() > 0) {
            const STEP pStep = c_apStep[Byte() % STEPS];
            (this->*pStep)();
            RunDue();
            CheckAll();
        }
    }

private:
    using STEP = void (CSession::*)();

    template <class T> T Number()
    {
        T number = 0;
        m_Input.Field(number);
        return number;
    }
    uint8_t Byte() { return Number<uint8_t>(); }
    /// A u16 length and so many bytes, or what is left of them.
    Bytes Block(size_t szMax) { return Bytes(m_Input.Take(Number<uint16_t>() % (szMax + 1))); }
    unsigned int Ue() { return UES[Byte() % std::size(UES)]; }
    enChannelType Channel() { return ALL_CHANNELS[Byte() % ALL_CHANNELS.size()]; }
    static unsigned int PortOf(unsigned int ulUeIdx) { return ulUeIdx == TCP_UE_INDEX ? 0 : PORT_FIRST + ulUeIdx; }

    // Clients.
    void Connect();
    void Say();
    void Request();
    void CutRequest();
    void Bind();
    void Unbind();
    void Close();
    // The modem.
    void Attach();
    void Confirm();
    void Refuse();
    void LinkAnswer();
    void Version();
    void GuPacket();
    void Data();
    void Detach();

    CTestClient* Client() { return m_clients.empty() ? nullptr : m_clients[Byte() % m_clients.size()].get(); }
    void Send(ByteView bytes);
    void FromUe(unsigned int ulUeIdx, enChannelType enChannel, const Bytes& packet);
    void RunDue();
    void CheckAll();

    static constexpr size_t STEPS = 15;
    static const std::array<STEP, STEPS> c_apStep;

    CByteReader m_Input;
    CDueActions::TIME m_DueTime = std::chrono::steady_clock::now(); // runs ahead, so that no step waits
    CAgentFixture m_Agent{std::string(TEST_LAYOUT) + "TIME_SPACE=0\ndebuglevel=0\n"};
    std::vector<std::unique_ptr<CTestClient>> m_clients;
};

// The seeds in corpus/sessions go by these numbers. A client's place in the list is taken while there are any.
const std::array<CSession::STEP, CSession::STEPS> CSession::c_apStep = {
    &CSession::Connect,    // 0: channel
    &CSession::Say,        // 1: block, client
    &CSession::Request,    // 2: u32 id, u16 type, block, client
    &CSession::CutRequest, // 3: u32 id, u16 type, block, u16 bytes of the frame, client
    &CSession::Bind,       // 4: UE, client
    &CSession::Unbind,     // 5: client
    &CSession::Close,      // 6: client
    &CSession::Attach,     // 7: UE
    &CSession::Confirm,    // 8: UE, UE version
    &CSession::Refuse,     // 9: UE
    &CSession::LinkAnswer, // 10: UE
    &CSession::Version,    // 11: UE, known or not
    &CSession::GuPacket,   // 12: UE, frame mode, block
    &CSession::Data,       // 13: UE, channel, number of packets, blocks
    &CSession::Detach,     // 14: UE, channel
};

void CSession::Connect()
{
    const enChannelType enChannel = Channel();
    if (m_clients.size() < CLIENTS_MAX)
        m_clients.push_back(std::make_unique<CTestClient>(m_Agent.Agent(), enChannel));
}

void CSession::Send(ByteView bytes)
{
    CTestClient* const pClient = Client();
    for (; pClient && !bytes.empty(); bytes = Slice(bytes, CHUNK_MAX)) {
        pClient->Send(Slice(bytes, 0, CHUNK_MAX));
        CheckAll();
    }
}

void CSession::Say()
{
    Send(Block(PACKET_MAX));
}

void CSession::Request()
{
    const auto ulId = Number<uint32_t>();
    const auto usType = Number<uint16_t>();
    const Bytes params = Block(PACKET_MAX);
    Send(Join(Hex("9F 9F"), Le(ulId), Le(usType), Le(static_cast<uint16_t>(params.size())), params));
}

void CSession::CutRequest()
{
    const auto ulId = Number<uint32_t>();
    const auto usType = Number<uint16_t>();
    const Bytes params = Block(PACKET_MAX);
    const Bytes frame = Join(Hex("9F 9F"), Le(ulId), Le(usType), Le(static_cast<uint16_t>(params.size())), params);
    Send(Slice(ByteView(frame), 0, Number<uint16_t>() % frame.size()));
}

void CSession::Bind()
{
    const Bytes head = Join(Hex("9F 9F"), Le(AGENT_CMD_BIND), Le<uint16_t>(PKT_TYPE_AGENT), Le<uint16_t>(4));
    Send(Join(head, Le(PortOf(Ue()))));
}

void CSession::Unbind()
{
    Send(Join(Hex("9F 9F"), Le(AGENT_CMD_UNBIND), Le<uint16_t>(PKT_TYPE_AGENT), Le<uint16_t>(0)));
}

/// The agent learns of it by its sends alone: its own reading of sockets needs its main thread.
void CSession::Close()
{
    if (!m_clients.empty())
        m_clients.erase(m_clients.begin() + Byte() % static_cast<std::ptrdiff_t>(m_clients.size()));
}

void CSession::Attach()
{
    const unsigned int ulUeIdx = Ue();
    m_Agent.AttachUe(ulUeIdx, PortOf(ulUeIdx));
}

/// What a full host connect confirmation does but for the switches.
void CSession::Confirm()
{
    const unsigned int ulUeIdx = Ue();
    ADE_UE_CONNECTION_ACK_STRU stAck;
    StoreLe<uint32_t>(stAck.aucData, ADE_UE_CONNECTION_ACK_STRU::UE_VER, Byte() % 3U);
    m_Agent.Agent().UEManager().GetUE(ulUeIdx)->SetUEConnectionAck(stAck);
    m_Agent.Confirm(ulUeIdx);
}

void CSession::Refuse()
{
    FromUe(Ue(), CHANNEL_LTE_DIAG, LteAck(UE_CMD_HOST_CONNECT_CNF, Fill(8)));
}

void CSession::LinkAnswer()
{
    FromUe(Ue(), CHANNEL_GU_CMD, Join(Hex("55 55 AA AA 10 00 01 01 0A 00 08 00 B2 80"), Fill(6)));
}

void CSession::Version()
{
    const unsigned int ulUeIdx = Ue();
    const bool bKnown = Byte() % 2 == 0;
    FromUe(ulUeIdx, CHANNEL_GU_CMD, OmBlock(FRAME_MODE_TIME_SSID, {GuVersion(bKnown ? "CEDAR-03C10" : "TEAK-11")}));
}

void CSession::GuPacket()
{
    const unsigned int ulUeIdx = Ue();
    const unsigned int ulMode = Byte() % 2 == 0 ? FRAME_MODE_TIME_SSID : FRAME_MODE_RTC_CPUID;
    Bytes packet = Block(PACKET_MAX);
    if (packet.size() >= GU_PAYLOAD)
        StoreLe<uint16_t>(packet, GU_PACKET_LEN, static_cast<uint16_t>(packet.size() - GU_LEN_OFFSET_BASE));
    FromUe(ulUeIdx, CHANNEL_GU_CMD, OmBlock(ulMode, {packet}));
}

void CSession::FromUe(unsigned int ulUeIdx, enChannelType enChannel, const Bytes& packet)
{
    m_Agent.FromUe(ulUeIdx, enChannel, packet);
}

/// One switch, or the report behind them, if a host connect confirmation made that due.
void CSession::RunDue()
{
    m_DueTime += CDueActions::SWITCH_INTERVAL;
    (void)m_Agent.Agent().Events().RunDueAction(m_DueTime);
}

void CSession::Data()
{
    const unsigned int ulUeIdx = Ue();
    const enChannelType enChannel = Channel();
    std::vector<MSG_AGENT> run;
    for (size_t szLeft = 1 + Byte() % RUN_MAX; szLeft > 0; --szLeft) {
        const Bytes packet = Block(PACKET_MAX);
        run.push_back({AGENT_MSG_DATA, ulUeIdx, enChannel, CPacket::Copy(packet)});
    }
    m_Agent.Agent().Events().ProcessAgentMsgs(run);
}

void CSession::Detach()
{
    const unsigned int ulUeIdx = Ue();
    m_Agent.Detach(ulUeIdx, Channel());
}

void CSession::CheckAll()
{
    for (const QueuedMsg& stMsg : m_Agent.ToUe()) {
        Require(stMsg.ulUeIdx < MAXUENUM && static_cast<size_t>(stMsg.enChannel) < CHANNELNUM && !stMsg.data.empty());
        Require(stMsg.ulMsgType == (stMsg.ulUeIdx == TCP_UE_INDEX ? UE_MSG_TCP : UE_MSG_SERIAL));
    }
    for (const auto& pClient : m_clients)
        CheckStream(pClient->Pending());
}
} // namespace

extern "C" int LLVMFuzzerTestOneInput(const unsigned char* pucData, size_t szSize);
extern "C" int LLVMFuzzerTestOneInput(const unsigned char* pucData, size_t szSize)
{
    CSession({pucData, szSize}).Run();
    return 0;
}
