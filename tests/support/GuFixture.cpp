#include "support/GuFixture.h"

#include "agent/Client.h"

#include <gtest/gtest.h>

Bytes GuMsg(unsigned short usMsgId, const Bytes& payload, unsigned int ulTimeStamp, unsigned char ucCategory)
{
    Bytes packet = Join(Fill(GU_PAYLOAD), payload);
    packet[GU_CATEGORY] = ucCategory;
    StoreLe<uint16_t>(packet, GU_PACKET_LEN, static_cast<uint16_t>(packet.size() - 4));
    StoreLe<uint32_t>(packet, GU_TIME_STAMP, ulTimeStamp);
    StoreLe<uint16_t>(packet, GU_MSG_ID, usMsgId);
    return packet;
}

Bytes GuAnswer(unsigned short usMsgId, unsigned int ulValue, unsigned char ucCategory)
{
    return Join(Bytes{ucCategory, 0, 8, 0}, Le(usMsgId), Fill(2), Le(ulValue));
}

Bytes GuVersion(const std::string& strVersion, unsigned int ulType, size_t szSize)
{
    Bytes packet = GuAnswer(0x8082, ulType);
    packet.resize(109);
    packet.insert(packet.end(), strVersion.begin(), strVersion.end());
    packet.resize(std::max(szSize, packet.size() + 1));
    StoreLe<uint16_t>(packet, GU_PACKET_LEN, static_cast<uint16_t>(packet.size() - 4));
    return packet;
}

Bytes GuTrace(unsigned short usName, unsigned int ulSenderPid, const Bytes& tail, unsigned int ulTimeStamp)
{
    Bytes packet = GuMsg(0x8003, Join(Fill(22), tail), ulTimeStamp, GU_CATEGORY_TRACE);
    StoreLe<uint32_t>(packet, GU_TRACE_SENDER_PID, ulSenderPid);
    StoreLe<uint16_t>(packet, GU_TRACE_MSG_NAME, usName);
    return packet;
}

Bytes OmFrame(const Bytes& packet, unsigned char ucTotal, unsigned char ucIndex)
{
    return Join(Hex("55 55 AA AA"), Le(static_cast<unsigned short>(packet.size() + 4)), Bytes{ucTotal, ucIndex}, packet,
                Fill((4 - packet.size() % 4) % 4), Hex("AA AA 55 55"));
}

Bytes OmHead(unsigned int ulMode, unsigned char ucSsid)
{
    Bytes head = Fill(ulMode == FRAME_MODE_TIME_SSID ? 16 : 8, 0xEE);
    head[head.size() - (ulMode == FRAME_MODE_TIME_SSID ? 14 : 8)] = ucSsid;
    return head;
}

Bytes OmBlock(unsigned int ulMode, const std::vector<Bytes>& packets, unsigned char ucSsid)
{
    Bytes block{0xDD};
    for (const Bytes& packet : packets)
        block = Bytes(Join(block, OmHead(ulMode, ucSsid), OmFrame(packet)));
    return block;
}

Bytes TransReq(unsigned short usId, unsigned int ulPid, const Bytes& params)
{
    const auto ulLen = static_cast<unsigned int>(params.size());
    return Join(Hex("04 00"), Le(static_cast<unsigned short>(ulLen + 24)), Le(0U), Le(105U), Le(0U), Le(ulPid),
                Le(ulLen + 4), Le(static_cast<unsigned int>(usId)), params);
}

Bytes TraceSwitch(const std::vector<unsigned int>& pids)
{
    Bytes packet = Join(Hex("01 00"), Le(static_cast<unsigned short>(12 + 4 * pids.size())),
                        Hex("01 81 00 00 01 00 01 00"), Le(static_cast<unsigned int>(pids.size())));
    for (const unsigned int ulPid : pids)
        packet = Join(packet, Le(ulPid));
    return packet;
}

namespace
{
/// The first client of each type is bound to the UE from now on.
void BringUp(CAgentFixture& agent)
{
    agent.AttachUe(0, 7);
    agent.Confirm(0);
}
} // namespace

CGuFixture::CGuFixture(const std::string& strVersion)
    : m_Agent(std::string(TEST_LAYOUT) + "TIME_SPACE=0\n"),
      m_Cmd((BringUp(m_Agent), m_Agent.AddClient(CHANNEL_GU_CMD))),
      m_Data(m_Agent.AddClient(CHANNEL_GU_DATA))
{
    m_pOperation = dynamic_cast<COperationGUData*>(m_Agent.Agent().Bindings().GetOperationGUFromClient(m_Cmd.Get()));
    if (!strVersion.empty())
        FromUe(GuVersion(strVersion));
    if (COperationGUData::ParseVersion(strVersion) != UE_VERSION_UNKNOWN)
        m_ulMode = FRAME_MODE_RTC_CPUID;
    Forget();
}

void CGuFixture::FromUe(const Bytes& packet)
{
    Bytes block = OmBlock(m_ulMode, {packet});
    m_pOperation->ProcessSerialData(&m_Agent.Agent().Bindings(), block, 0);
}

void CGuFixture::BeDualCard()
{
    FromUe(GuAnswer(0x8212, 2));
    Forget();
}

std::vector<Bytes> CGuFixture::ToUe()
{
    std::vector<Bytes> packets;
    for (const QueuedMsg& stMsg : m_Agent.ToUe()) {
        const ByteView frame(stMsg.data);
        const size_t szLen = LoadLe<uint16_t>(frame, 5) - size_t{4};
        EXPECT_EQ(stMsg.enChannel, CHANNEL_GU_CMD);
        EXPECT_EQ(Bytes(Slice(frame, 0, 5)), Hex("01 55 55 AA AA"));
        EXPECT_EQ(frame.size(), (szLen + 3) / 4 * 4 + 13);
        EXPECT_EQ(Bytes(Slice(frame, frame.size() - 4)), Hex("AA AA 55 55"));
        packets.emplace_back(Slice(frame, 9, szLen));
    }
    return packets;
}

std::vector<ClientPacket> CGuFixture::Take(CTestClient& client)
{
    std::vector<ClientPacket> packets;
    while (auto packet = client.Read(std::chrono::milliseconds(0)))
        packets.push_back(std::move(*packet));
    EXPECT_EQ(client.Pending(), Bytes()) << "a part of a packet";
    return packets;
}

void CGuFixture::Forget()
{
    (void)m_Agent.ToUe();
    (void)m_Cmd.Pending();
    (void)m_Data.Pending();
}

void ExpectPacket(const ClientPacket& packet, const GuPacketMatch& expected)
{
    EXPECT_EQ(packet.stHead.ulCmdId, expected.ulCmdId);
    EXPECT_EQ(packet.stHead.ulRc, expected.ulRc);
    EXPECT_EQ(packet.stHead.ullTimeStamp, expected.ullTimeStamp);
    EXPECT_EQ(packet.stHead.usPktType, expected.usPktType);
    EXPECT_EQ(packet.payload, expected.payload);
}
