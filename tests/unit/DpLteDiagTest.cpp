#include "data/DpLteDiag.h"

#include "agent/Client.h"
#include "data/ManagerConfigInfo.h"
#include "support/AgentFixture.h"
#include "support/LogCapture.h"
#include "ue/UE.h"

#include <gtest/gtest.h>
#include <thread>

namespace
{

const std::string CONFIG = std::string(TEST_LAYOUT) +
                           "SPC_DPI_CELL_MEAS=0x100;0x200\n"
                           "DPH_FILTER_REQ_DPI_CMD_PAIR={0x11,0x10020304};{0x12,0x0};{0x13,0x10020305}\n"
                           "DPH_FILTER_REQ_OSA_CFG=2-{0x10-0x12}:{101,102};1-{0x11-0x11}:{201,202}\n";

/// A request as the UE gets it by TEST_LAYOUT.
Bytes UeReq(unsigned int ulCmdId, unsigned char ucType, const Bytes& params)
{
    const auto ucClass = static_cast<unsigned char>(ulCmdId >> 28 == 3 ? 0x30 : 0x20);
    return Join(Bytes{0, 2, ucClass, 1, 1, ucType, 0, 0}, Le(ulCmdId), Le(static_cast<unsigned int>(params.size() + 8)),
                Fill(8), params);
}

/// UE 0 with port 41 and a diag client, bound by default.
class DpLteDiag : public testing::Test
{
protected:
    DpLteDiag() : m_fixture(CONFIG)
    {
        m_fixture.AttachUe(0, 41);
        m_fixture.Confirm(0);
        m_client.emplace(m_fixture.AddClient(CHANNEL_LTE_DIAG));
        (void)m_client->Pending(); // the UE status packet of the default binding
        (void)m_fixture.ToUe();
    }

    void Unbind()
    {
        m_client->Request(AGENT_CMD_UNBIND, PKT_TYPE_AGENT);
        (void)m_client->Pending();
    }

    /// What went to the UE's diag channel.
    std::vector<Bytes> Sent()
    {
        std::vector<Bytes> packets;
        for (const QueuedMsg& stMsg : m_fixture.ToUe()) {
            EXPECT_EQ(stMsg.enChannel, CHANNEL_LTE_DIAG);
            EXPECT_EQ(stMsg.ulUeIdx, 0u);
            packets.push_back(stMsg.data);
        }
        return packets;
    }

    void SetUeVer(unsigned int ulUeVer)
    {
        ADE_UE_CONNECTION_ACK_STRU stAck;
        StoreLe<uint32_t>(stAck.aucData, ADE_UE_CONNECTION_ACK_STRU::UE_VER, ulUeVer);
        m_fixture.Agent().UEManager().GetUE(0)->SetUEConnectionAck(stAck);
    }

    CAgentFixture m_fixture;
    std::optional<CTestClient> m_client;
};

using Packets = std::vector<Bytes>;

Bytes Entry(unsigned int ulId, unsigned int ulKind, unsigned int ulValue)
{
    return Join(Le(ulId), Le(ulKind), Le(ulValue));
}

/// The requests that one switch becomes.
Packets Split(const Bytes& params, unsigned int& ulRc)
{
    const Bytes req = Join(Hex("17 53 01 10 10 A5"), Le(static_cast<unsigned short>(params.size())), params);
    CDataProcessorLteDiag::CRequests out;
    unsigned int ulCount = 0;
    ulRc = CDataProcessorLteDiag::DoAirLayerEventUserPlaneReqFilter(ViewReq(req), out, ulCount, 41);
    Packets packets;
    ByteView left(out);
    for (; ulCount > 0; --ulCount) {
        const size_t szLen = 8u + LoadLe<uint16_t>(left, 6);
        packets.push_back(Bytes(Slice(left, 0, szLen)));
        left = Slice(left, szLen);
    }
    EXPECT_TRUE(left.empty());
    return packets;
}

Packets Split(const Bytes& params)
{
    unsigned int ulRc = 0;
    Packets packets = Split(params, ulRc);
    EXPECT_EQ(ulRc, DIAG_RC_OK);
    return packets;
}

Bytes Times(unsigned int ulCount, const Bytes& entry)
{
    Bytes all;
    for (; ulCount > 0; --ulCount)
        all.insert(all.end(), entry.begin(), entry.end());
    return all;
}

} // namespace

TEST_F(DpLteDiag, PlainAndUnknownTypesGoToTheUeAsTheyAre)
{
    const CLogCapture log;
    m_client->Request(0x10020304, PKT_TYPE_CMD, Hex("AA BB"));
    m_client->Request(0x30900001, 0x0107, Hex("CC"));
    m_client->Request(0x10020304, PKT_TYPE_CMD);
    EXPECT_EQ(Sent(), (Packets{Hex("00 02 20 01 01 00 00 00  04 03 02 10  0A 00 00 00  00 00 00 00 00 00 00 00  AA BB"),
                               UeReq(0x30900001, 0, Hex("CC")), UeReq(0x10020304, 0, {})}));
    EXPECT_TRUE(m_client->Pending().empty()) << "the UE answers, not the agent";
    EXPECT_EQ(log.Count("[INF] : Client to UE(com 41): lte cmd id is 0x30900001, type is 7, line:"), 1);
}

TEST_F(DpLteDiag, NullIsRefused)
{
    const CLogCapture log;
    CDataProcessorLteDiag processor(nullptr, nullptr);
    EXPECT_EQ(processor.ProcessClientData({}), 0);
    EXPECT_EQ(log.Count("[ERR] : Lte Diag Reques is NULL"), 1);
    EXPECT_EQ(processor.ProcessClientData(Fill(8)), 1) << "and without an agent nothing happens";
}

TEST_F(DpLteDiag, ParametersOf4076BytesReachTheUeWholeAndMoreDoNot)
{
    const CLogCapture log;
    m_client->Request(0x10020304, PKT_TYPE_CMD, Fill(4076, 0x5A));
    EXPECT_EQ(Sent(), (Packets{UeReq(0x10020304, 0, Fill(4076, 0x5A))}));
    m_client->Request(0x10020304, PKT_TYPE_CMD, Fill(4077, 0x5A));
    EXPECT_EQ(Sent(), Packets{});
    EXPECT_EQ(log.Count("[WAN] : Ade Req Packet Too big"), 1);
    EXPECT_TRUE(m_client->Pending().empty());
}

TEST_F(DpLteDiag, BuildUeBufGivesNothingThatItCannotFill)
{
    const DIAG_PACKET_REQ_VIEW stReq{{0x10020304, 16, 4077}, {}};
    EXPECT_FALSE(CDataProcessorLteDiag::BuildUeBuf(stReq, 0));
    const Bytes data = Hex("01");
    const CPacket packet = CDataProcessorLteDiag::BuildUeBuf({{0x10020304, 16, 3}, data}, 5);
    EXPECT_EQ(Bytes(packet.Bytes()), UeReq(0x10020304, 5, Hex("01 00 00"))) << "completed with zeros";
}

TEST_F(DpLteDiag, AnUnboundClientIsTold)
{
    const CLogCapture log;
    Unbind();
    m_client->Request(0x10020304, 0xA510, Hex("AA"));
    EXPECT_EQ(m_client->Pending(), Hex("9F 9F  04 03 02 10  29 00 00 00  00 00 00 00 00 00 00 00  10 A5  00 00"));
    EXPECT_EQ(log.Count("[WAN] : client is not bind to any channel"), 1);
    EXPECT_EQ(Sent(), Packets{});
}

TEST_F(DpLteDiag, AChannelThatIsNotUpIsToldToo)
{
    const CLogCapture log;
    SetUeVer(2);
    m_fixture.Agent().Events().SetConfirmed(0, false);
    m_client->Request(0x10020304, PKT_TYPE_CMD);
    m_client->Request(0x11, PKT_TYPE_MSG);
    auto ack = m_client->Read();
    ASSERT_TRUE(ack);
    EXPECT_EQ(ack->stHead.ulCmdId, 0x10020304u);
    EXPECT_EQ(ack->stHead.ulRc, 41u);
    ack = m_client->Read();
    ASSERT_TRUE(ack);
    EXPECT_EQ(ack->stHead.ulCmdId, 0x11u) << "the DPI that the client sent, not the command that it became";
    EXPECT_EQ(ack->stHead.ulRc, 41u);
    EXPECT_EQ(log.Count("[WAN] : Channel is not ok"), 2);
}

TEST_F(DpLteDiag, ADpiMessageBecomesACommandWithTheOsaHeader)
{
    SetUeVer(2);
    m_client->Request(0x11, 0x0105, Hex("AA BB CC"));
    EXPECT_EQ(Sent(), (Packets{UeReq(0x10020304, 5,
                                     Hex("00 00 00 00  65 00 00 00  00 00 00 00  66 00 00 00" // PIDs 101, 102
                                         "17 00 00 00  11 00 00 00"                           // 3 + 20, DPI
                                         "00 00 00 00  00 00 00 00  00 00 00 00  04 03 00 00" // low half of the id
                                         "AA BB CC"))}));
    SetUeVer(1);
    m_client->Request(0x11, PKT_TYPE_MSG);
    const Packets sent = Sent();
    ASSERT_EQ(sent.size(), 1u);
    EXPECT_EQ(LoadLe<uint32_t>(sent[0], 24 + 4), 201u) << "the PIDs of UE version 1";
    EXPECT_TRUE(m_client->Pending().empty());
}

TEST_F(DpLteDiag, TheOsaRequestKeepsThePacketType)
{
    CDataProcessorLteDiag::CRequests out;
    const Bytes in = Hex("11 00 00 00  05 A5  01 00  AA");
    ASSERT_TRUE(CDataProcessorLteDiag::BuildDiagReqPacketByDpi(2, 0x11, 0x10020304, ViewReq(in), out));
    EXPECT_EQ(Bytes(Slice(ByteView(out), 0, 8)), Hex("04 03 02 10  05 A5  29 00"));
    EXPECT_EQ(out.size(), 8u + 41u);
}

TEST_F(DpLteDiag, ADpiWhoseCommandIs0IsSentWithId0)
{
    SetUeVer(2);
    m_client->Request(0x12, PKT_TYPE_MSG);
    const Packets sent = Sent();
    ASSERT_EQ(sent.size(), 1u);
    EXPECT_EQ(LoadLe<uint32_t>(sent[0], 8), 0u);
}

TEST_F(DpLteDiag, DpiMessagesThatCannotBeSentGetNoAnswer)
{
    const CLogCapture log;
    SetUeVer(2);
    m_client->Request(0x99, PKT_TYPE_MSG);
    EXPECT_EQ(log.Count("[WAN] : ManagerConfigInfo::Dpi2Cmd fail! ulId is 0x99"), 1);
    m_client->Request(0x13, PKT_TYPE_MSG); // no PIDs
    EXPECT_EQ(log.Count("[ERR] : BuildDiagReqPacketByDpi is fail, ulId is 0x13, ulCmdId is 0x10020305"), 1);
    EXPECT_EQ(Sent(), Packets{});
    EXPECT_TRUE(m_client->Pending().empty());
}

TEST_F(DpLteDiag, DpiParametersOf4036BytesFitAndMoreAreTooBig)
{
    const CLogCapture log;
    SetUeVer(2);
    m_client->Request(0x11, PKT_TYPE_MSG, Fill(4036, 0x5A));
    const Packets sent = Sent();
    ASSERT_EQ(sent.size(), 1u);
    EXPECT_EQ(Bytes(Slice(ByteView(sent[0]), 24 + 40)), Fill(4036, 0x5A));
    EXPECT_EQ(log.Count("Ade Req Packet Too big"), 0);
    m_client->Request(0x11, PKT_TYPE_MSG, Fill(4037, 0x5A));
    EXPECT_EQ(Sent(), Packets{});
    EXPECT_EQ(log.Count("[WAN] : Ade Req Packet Too big"), 1);
}

TEST_F(DpLteDiag, AnUnboundClientGetsItsDpiMessageBack)
{
    Unbind();
    m_client->Request(0x11, 0xA505, Hex("AA"));
    EXPECT_EQ(m_client->Pending(), Hex("9F 9F  11 00 00 00  29 00 00 00  00 00 00 00 00 00 00 00  05 A5  00 00"));
}

TEST_F(DpLteDiag, AZeroPidFails)
{
    CAgentFixture::Configure("DPH_FILTER_REQ_OSA_CFG=3-{0x11-0x11}:{0,5};4-{0x11-0x11}:{5,0}\n");
    CDataProcessorLteDiag::CRequests out;
    const Bytes in = Hex("11 00 00 00  05 00  00 00");
    EXPECT_FALSE(CDataProcessorLteDiag::BuildDiagReqPacketByDpi(3, 0x11, 1, ViewReq(in), out));
    EXPECT_FALSE(CDataProcessorLteDiag::BuildDiagReqPacketByDpi(4, 0x11, 1, ViewReq(in), out));
    EXPECT_TRUE(CDataProcessorLteDiag::BuildDiagReqPacketByDpi(2, 0x11, 1, ViewReq(in), out));
}

TEST_F(DpLteDiag, OneSwitchBecomesUpToThreeRequests)
{
    const Bytes params = Join(Entry(1, 1, 0x0A), Entry(0x300, 2, 0x0B), Entry(2, 3, 0x0C), Entry(0x301, 4, 0x0D),
                              Entry(3, 1, 0x0E), Entry(4, 3, 0x0F));
    const CLogCapture log;
    EXPECT_EQ(Split(params), (Packets{
                                 Hex("12 53 01 10 10 A5 10 00  0A 00 00 00 01 00 00 00  0E 00 00 00 01 00 00 00"),
                                 Hex("15 53 01 10 10 A5 08 00  0C 00 00 00  0F 00 00 00"),
                                 Hex("17 53 01 10 10 A5 18 00  00 03 00 00 00 10 00 00 0B 00 00 00"
                                     "01 03 00 00 00 02 00 00 0D 00 00 00"),
                             }));
    EXPECT_EQ(log.Count("[INF] : Client to UE(com 41): lte cmd id is 0x300, switch: 0xb, line:"), 1);
}

TEST_F(DpLteDiag, OnlyListsWithEntriesAreSent)
{
    EXPECT_EQ(Split(Entry(9, 3, 0x0C)), (Packets{Hex("15 53 01 10 10 A5 04 00  0C 00 00 00")}));
    EXPECT_EQ(Split(Entry(9, 1, 0x0C)), (Packets{Hex("12 53 01 10 10 A5 08 00  0C 00 00 00 01 00 00 00")}));
}

TEST_F(DpLteDiag, TheCellMeasurementSwitchesBothItsIds)
{
    EXPECT_EQ(Split(Entry(0x100, 2, 1)), (Packets{Hex("17 53 01 10 10 A5 18 00  00 01 00 00 00 10 00 00 01 00 00 00"
                                                      "00 02 00 00 00 10 00 00 01 00 00 00")}));
    EXPECT_EQ(Split(Entry(0x200, 2, 1)), (Packets{Hex("17 53 01 10 10 A5 0C 00  00 02 00 00 00 10 00 00 01 00 00 00")}))
        << "the second id alone stands for itself";
    EXPECT_EQ(Split(Entry(0x100, 4, 1)), (Packets{Hex("17 53 01 10 10 A5 0C 00  00 01 00 00 00 02 00 00 01 00 00 00")}))
        << "the second kind of user plane too";
    CAgentFixture::Configure("SPC_DPI_CELL_MEAS=0x0;0x0\n");
    EXPECT_EQ(Split(Entry(0, 2, 1)), (Packets{Hex("17 53 01 10 10 A5 0C 00  00 00 00 00 00 10 00 00 01 00 00 00")}))
        << "without configuration 0 is no cell measurement";
}

// An entry of unknown kind holds the walk up: required.
TEST_F(DpLteDiag, AnUnknownKindLosesAllEntriesBehindIt)
{
    EXPECT_EQ(Split(Join(Entry(1, 3, 7), Entry(1, 5, 8), Entry(1, 3, 9))),
              (Packets{Hex("15 53 01 10 10 A5 04 00  07 00 00 00")}));
    EXPECT_EQ(Split(Join(Entry(1, 0, 7), Entry(1, 3, 8))), Packets{}) << "nothing at all, without an error";
}

TEST_F(DpLteDiag, ASwitchHas1To200Entries)
{
    const CLogCapture log;
    unsigned int ulRc = 0;
    EXPECT_EQ(Split(Fill(11), ulRc), Packets{});
    EXPECT_EQ(ulRc, DIAG_RC_FAIL);
    EXPECT_EQ(Split(Times(201, Entry(1, 3, 7)), ulRc), Packets{});
    EXPECT_EQ(ulRc, DIAG_RC_FAIL);
    EXPECT_EQ(Split(Times(200, Entry(1, 3, 7)), ulRc).size(), 1u);
    EXPECT_EQ(ulRc, DIAG_RC_OK);
    EXPECT_EQ(log.Count("[ERR] : usLogCatInCnt is 0"), 1);
    EXPECT_EQ(log.Count("[ERR] : usLogCatInCnt is 201"), 1);
    EXPECT_EQ(Split(Join(Entry(1, 3, 7), Fill(11, 1))).size(), 1u) << "a rest below 12 bytes is none";
}

TEST_F(DpLteDiag, TheSwitchReachesTheUeAndTooLongAPartIsRefusedAlone)
{
    const CLogCapture log;
    m_client->Request(0x10015317, 0xA510, Join(Entry(1, 3, 7), Entry(0x300, 2, 1)));
    EXPECT_EQ(Sent(), (Packets{UeReq(0x10015315, 0, Hex("07 00 00 00")),
                               UeReq(0x10015317, 0, Hex("00 03 00 00 00 10 00 00 01 00 00 00"))}));
    // One event and 199 cell measurements: 398 entries of 12 bytes are more than a request takes.
    m_client->Request(0x10015317, PKT_TYPE_CMD, Join(Entry(1, 3, 7), Times(199, Entry(0x100, 2, 1))));
    EXPECT_EQ(Sent(), (Packets{UeReq(0x10015315, 0, Hex("07 00 00 00"))}));
    EXPECT_EQ(log.Count("[WAN] : Ade Req Packet Too big"), 1);
    EXPECT_TRUE(m_client->Pending().empty());
    m_client->Request(0x10015317, PKT_TYPE_CMD);
    EXPECT_EQ(log.Count("DoAirLayerEventUserPlaneReqFilter() error!"), 1);
    EXPECT_EQ(Sent(), Packets{});
    EXPECT_TRUE(m_client->Pending().empty());
}

TEST_F(DpLteDiag, TwoHundredCellMeasurementsAreFourHundredEntries)
{
    const Packets packets = Split(Times(200, Entry(0x100, 2, 1)));
    ASSERT_EQ(packets.size(), 1u);
    EXPECT_EQ(packets[0].size(), 8u + 4800u);
}

TEST_F(DpLteDiag, TheUeVersionRecord)
{
    ADE_UE_CONNECTION_ACK_STRU stAck;
    for (size_t i = 0; i < 60; ++i)
        stAck.aucData[i] = static_cast<unsigned char>(i);
    m_fixture.Agent().UEManager().GetUE(0)->SetUEConnectionAck(stAck);
    m_client->Request(0x50000020, 0x05F0);
    EXPECT_EQ(m_client->Pending(), Hex("9F 9F  20 00 00 50  00 00 00 00  00 00 00 00 00 00 00 00  F0 05  1C 00"
                                       "20 21  22 23  24 25  26 27  28 29  2A 2B" // V, R, C, B, SP, next: 32 to 43
                                       "2C 2D 2E 2F"                              // word at 44
                                       "16 17"                                    // high half of the word at 20
                                       "14 15"                                    // low half
                                       "18 19 1A 1B"                              // word at 24
                                       "1C 1D 1E 1F"));                           // word at 28
    Unbind();
    m_client->Request(0x50000020, 0x05F0);
    EXPECT_EQ(m_client->Pending(), Hex("9F 9F  20 00 00 50  02 00 00 00  00 00 00 00 00 00 00 00  F0 05  00 00"));
}

TEST_F(DpLteDiag, TheChannelTableNeedsNoBinding)
{
    Unbind();
    m_client->Request(0x50000060, PKT_TYPE_AGENT);
    const auto ack = m_client->Read();
    ASSERT_TRUE(ack);
    EXPECT_EQ(ack->stHead.ulCmdId, 0x50000060u);
    EXPECT_EQ(ack->stHead.ulRc, 0u);
    EXPECT_EQ(ack->stHead.usPktType, 240);
    ASSERT_EQ(ack->payload.size(), 3520u);
    EXPECT_EQ(LoadLe<uint32_t>(ack->payload, 32), 41u) << "port of the first row";
    EXPECT_EQ(LoadLe<uint32_t>(ack->payload, 36), 1u) << "attached";
    EXPECT_EQ(LoadLe<uint32_t>(ack->payload, 220 + 32), 0xFFFFFFFFu) << "no second UE";
}

TEST_F(DpLteDiag, TheStoredTimeStampGoesOutUnchanged)
{
    m_fixture.FromUe(0, CHANNEL_LTE_DIAG, LteAck(0x10067000, Hex("AA BB CC"), 0x1122334455667788));
    m_client->Request(0x50000070, 0x05F0);
    EXPECT_EQ(m_client->Pending(), Hex("9F 9F  70 00 00 50  00 00 00 00  88 77 66 55 44 33 22 11  10 02  03 00"
                                       "AA BB CC"));
    Unbind();
    m_client->Request(0x50000070, 0x05F0);
    EXPECT_EQ(m_client->Pending(), Hex("9F 9F  70 00 00 50  29 00 00 00  00 00 00 00 00 00 00 00  F0 05  00 00"));
}

TEST_F(DpLteDiag, AgentCommandsWithoutAnswer)
{
    const CLogCapture log;
    m_client->Request(0x00000005, PKT_TYPE_AGENT, Fill(4, 1));
    EXPECT_EQ(log.Count("no process client command"), 0);
    m_client->Request(0x50000099, PKT_TYPE_AGENT);
    EXPECT_EQ(log.Count("[WAN] : no process client command 50000099"), 1);
    EXPECT_TRUE(m_client->Pending().empty());
    EXPECT_EQ(Sent(), Packets{});
}

TEST_F(DpLteDiag, UnbindIsAcknowledged)
{
    m_client->Request(0x50000050, 0x05F0);
    EXPECT_EQ(m_client->Pending(), Hex("9F 9F  50 00 00 50  00 00 00 00  00 00 00 00 00 00 00 00  F0 05  00 00"));
}

namespace
{
/// Descriptor for NV item 7: two bytes at offset 1.
Bytes NvWrite(unsigned int ulValue, unsigned int ulOffset = 1, unsigned char ucSize = 2)
{
    return Join(Le(7u), Le(1u), Le(ulOffset), Bytes{0, ucSize, 0, 0}, Le(ulValue));
}

/// The UE's answer to the read: result, NV id, length, data.
Bytes NvRead(unsigned int ulResult, const Bytes& data, unsigned int ulNvId = 7)
{
    return LteAck(0x10015503, Join(Le(ulResult), Le(ulNvId), Le(static_cast<unsigned int>(data.size())), data), 99, 5);
}

Bytes NvWritten(const Bytes& data)
{
    return UeReq(0x10015501, 5, Join(Le(7u), Le(static_cast<unsigned int>(data.size())), data));
}
const Bytes NV_READ_REQ = UeReq(0x10015503, 5, Hex("07 00 00 00"));
} // namespace

TEST_F(DpLteDiag, AnNvWriteIsReadModifyWrite)
{
    m_client->Request(0x10015501, 0xA5F0, NvWrite(0x2211));
    EXPECT_EQ(Sent(), Packets{NV_READ_REQ});
    m_fixture.FromUe(0, CHANNEL_LTE_DIAG, NvRead(0, Hex("AA BB CC DD")));
    EXPECT_EQ(Sent(), Packets{NvWritten(Hex("AA 11 22 DD"))});
    EXPECT_TRUE(m_client->Pending().empty()) << "the read isn't the client's business";
    m_fixture.FromUe(0, CHANNEL_LTE_DIAG, LteAck(0x10015501, Hex("00 00 00 00 07 00 00 00"), 100, 5));
    EXPECT_EQ(m_client->Pending(), Hex("9F 9F  01 55 01 10  00 00 00 00  64 00 00 00 00 00 00 00  F0 02  08 00"
                                       "00 00 00 00 07 00 00 00"));
    m_fixture.FromUe(0, CHANNEL_LTE_DIAG, NvRead(0, Hex("AA BB CC DD")));
    EXPECT_EQ(Sent(), Packets{}) << "the write is done, nothing waits for a second read";
}

TEST_F(DpLteDiag, ABitFieldOfAnNvItem)
{
    // Bits 4 to 11 of the word at 1 become 0x12: CCBB & ~0FF0 | 0120 = C12B.
    m_client->Request(0x10015501, PKT_TYPE_AGENT,
                      Hex("07 00 00 00  01 00 00 00  01 00 00 00  01 02 04 0B  12 00 00 00"));
    (void)Sent();
    m_fixture.FromUe(0, CHANNEL_LTE_DIAG, NvRead(0, Hex("AA BB CC DD")));
    EXPECT_EQ(Sent(), Packets{NvWritten(Hex("AA 2B C1 DD"))});
}

TEST_F(DpLteDiag, ASecondNvWriteInFlightKeepsTheFirstDescriptor)
{
    m_client->Request(0x10015501, PKT_TYPE_AGENT, NvWrite(0x2211));
    m_client->Request(0x10015501, PKT_TYPE_AGENT, NvWrite(0x4433));
    EXPECT_EQ(Sent(), (Packets{NV_READ_REQ, NV_READ_REQ}));
    m_fixture.FromUe(0, CHANNEL_LTE_DIAG, NvRead(0, Hex("AA BB CC DD")));
    m_fixture.FromUe(0, CHANNEL_LTE_DIAG, NvRead(0, Hex("AA BB CC DD")));
    EXPECT_EQ(Sent(), Packets{NvWritten(Hex("AA 11 22 DD"))});
}

TEST_F(DpLteDiag, AFailedNvReadIsToldAndTheDescriptorStays)
{
    m_client->Request(0x10015501, PKT_TYPE_AGENT, NvWrite(0x2211));
    (void)Sent();
    m_fixture.FromUe(0, CHANNEL_LTE_DIAG, NvRead(9, {}));
    EXPECT_EQ(m_client->Pending(), Hex("9F 9F  01 55 01 10  09 00 00 00  63 00 00 00 00 00 00 00  F0 02  08 00"
                                       "09 00 00 00 07 00 00 00"));
    EXPECT_EQ(Sent(), Packets{});
    m_client->Request(0x10015501, PKT_TYPE_AGENT, NvWrite(0x4433));
    (void)Sent();
    m_fixture.FromUe(0, CHANNEL_LTE_DIAG, NvRead(0, Hex("AA BB CC DD")));
    EXPECT_EQ(Sent(), Packets{NvWritten(Hex("AA 11 22 DD"))}) << "a new write doesn't replace the first";
}

TEST_F(DpLteDiag, AnNvReadWithoutPayloadIsTold)
{
    m_fixture.FromUe(0, CHANNEL_LTE_DIAG, LteAck(0x10015503, {}, 99, 5));
    EXPECT_EQ(m_client->Pending(), Hex("9F 9F  01 55 01 10  A3 86 01 00  63 00 00 00 00 00 00 00  F0 02  08 00"
                                       "A3 86 01 00  01 55 01 10")); // 100003
}

TEST_F(DpLteDiag, AnNvReadThatNobodyAskedForIsSwallowed)
{
    m_fixture.FromUe(0, CHANNEL_LTE_DIAG, NvRead(0, Hex("AA BB CC DD")));
    EXPECT_EQ(Sent(), Packets{});
    EXPECT_TRUE(m_client->Pending().empty());
}

TEST_F(DpLteDiag, AnNvFieldOutsideItsDataFailsAndTheNextWriteStartsAfresh)
{
    m_client->Request(0x10015501, PKT_TYPE_AGENT, NvWrite(0x2211, 3, 2));
    (void)Sent();
    m_fixture.FromUe(0, CHANNEL_LTE_DIAG, NvRead(0, Hex("AA BB CC DD")));
    EXPECT_EQ(m_client->Pending(), Hex("9F 9F  01 55 01 10  02 00 00 00  63 00 00 00 00 00 00 00  F0 02  08 00"
                                       "02 00 00 00 07 00 00 00"));
    EXPECT_EQ(Sent(), Packets{});
    m_client->Request(0x10015501, PKT_TYPE_AGENT, NvWrite(0x2211, 2, 2));
    (void)Sent();
    m_fixture.FromUe(0, CHANNEL_LTE_DIAG, NvRead(0, Hex("AA BB CC DD")));
    EXPECT_EQ(Sent(), Packets{NvWritten(Hex("AA BB 11 22"))});
}

TEST_F(DpLteDiag, OnlyTheFirstNvItemIsAppliedAndNoneForACountOf0)
{
    Bytes params = NvWrite(0x2211);
    StoreLe<uint32_t>(params, 4, 3);
    m_client->Request(0x10015501, PKT_TYPE_AGENT, Join(params, Fill(24, 0xFF)));
    (void)Sent();
    m_fixture.FromUe(0, CHANNEL_LTE_DIAG, NvRead(0, Hex("AA BB CC DD")));
    EXPECT_EQ(Sent(), Packets{NvWritten(Hex("AA 11 22 DD"))});
    StoreLe<uint32_t>(params, 4, 0);
    m_client->Request(0x10015501, PKT_TYPE_AGENT, params);
    (void)Sent();
    m_fixture.FromUe(0, CHANNEL_LTE_DIAG, NvRead(0, Hex("AA BB CC DD")));
    EXPECT_EQ(Sent(), Packets{NvWritten(Hex("AA BB CC DD"))});
}

TEST_F(DpLteDiag, AnNvReadShorterThanItSaysIsToldAndNothingIsWritten)
{
    const struct
    {
        const char* pszName;
        Bytes payload; // result, NV id, length, data
        const char* pszNvId;
    } astCase[] = {
        {"one byte short", Hex("00 00 00 00  07 00 00 00  05 00 00 00  AA BB CC DD"), "07 00 00 00"},
        {"all data missing", Hex("00 00 00 00  07 00 00 00  04 00 00 00"), "07 00 00 00"},
        {"longer than a request, too", Hex("00 00 00 00  07 00 00 00  E5 0F 00 00  AA BB CC DD"), "07 00 00 00"},
        {"the greatest length", Hex("00 00 00 00  07 00 00 00  FF FF FF FF  AA BB CC DD"), "07 00 00 00"},
        {"cut in the length", Hex("00 00 00 00  07 00 00 00  04 00 00"), "07 00 00 00"},
        {"cut in the id", Hex("00 00 00 00  07 00"), "07 00 00 00"},
        {"the result alone", Hex("00 00 00 00"), "00 00 00 00"},
    };
    m_client->Request(0x10015501, PKT_TYPE_AGENT, NvWrite(0x2211));
    (void)Sent();
    for (const auto& stCase : astCase) {
        m_fixture.FromUe(0, CHANNEL_LTE_DIAG, LteAck(0x10015503, stCase.payload, 99, 5));
        EXPECT_EQ(m_client->Pending(), Join(Hex("9F 9F  01 55 01 10  02 00 00 00  63 00 00 00 00 00 00 00  F0 02  08 00"
                                                "02 00 00 00"),
                                            Hex(stCase.pszNvId)))
            << stCase.pszName;
        EXPECT_EQ(Sent(), Packets{}) << stCase.pszName;
    }
    m_fixture.FromUe(0, CHANNEL_LTE_DIAG, NvRead(0, Hex("AA BB CC DD")));
    EXPECT_EQ(Sent(), Packets{NvWritten(Hex("AA 11 22 DD"))}) << "the descriptor stayed for a whole read";
}

TEST_F(DpLteDiag, BytesBehindTheNvDataAreNotWritten)
{
    m_client->Request(0x10015501, PKT_TYPE_AGENT, NvWrite(0x2211));
    (void)Sent();
    m_fixture.FromUe(0, CHANNEL_LTE_DIAG,
                     LteAck(0x10015503, Hex("00 00 00 00  07 00 00 00  04 00 00 00  AA BB CC DD EE FF"), 99, 5));
    EXPECT_EQ(Sent(), Packets{NvWritten(Hex("AA 11 22 DD"))});
}

TEST_F(DpLteDiag, AnNvItemTooLongForARequestIsNotWritten)
{
    const CLogCapture log;
    for (const size_t szLen : {4069u, 8179u}) { // the second is the most that an ack carries
        m_client->Request(0x10015501, PKT_TYPE_AGENT, NvWrite(0x2211));
        (void)Sent();
        m_fixture.FromUe(0, CHANNEL_LTE_DIAG, NvRead(0, Fill(szLen, 1)));
        EXPECT_EQ(Sent(), Packets{}) << szLen;
    }
    EXPECT_EQ(log.Count("[WAN] : Ade Req Packet Too big"), 2);
    m_client->Request(0x10015501, PKT_TYPE_AGENT, NvWrite(0x2211));
    (void)Sent();
    m_fixture.FromUe(0, CHANNEL_LTE_DIAG, NvRead(0, Fill(4068, 1)));
    EXPECT_EQ(Sent(), (Packets{NvWritten(Join(Hex("01 11 22"), Fill(4065, 1)))})) << "4076 parameter bytes fit";
}

TEST_F(DpLteDiag, AnUnboundNvWriteIsTold)
{
    Unbind();
    m_client->Request(0x10015501, 0xA5F0, NvWrite(0x2211));
    EXPECT_EQ(m_client->Pending(), Hex("9F 9F  03 55 01 10  29 00 00 00  00 00 00 00 00 00 00 00  F0 A5  00 00"));
}

TEST_F(DpLteDiag, NvWritesThatNobodyAnswersDoNotPileUpForever)
{
    const CLogCapture log;
    CAgentFixture::Configure("debuglevel=0\n");
    CDataProcessorLteDiag processor(nullptr, nullptr);
    Bytes req = Join(Hex("01 55 01 10  F0 00  14 00"), NvWrite(1));
    for (unsigned int ulNvId = 0; ulNvId < 65536; ++ulNvId) {
        StoreLe<uint32_t>(req, 8, ulNvId);
        processor.ProcessClientData(req);
    }
    CAgentFixture::Configure("debuglevel=15\n");
    processor.ProcessClientData(req);
    EXPECT_EQ(log.Count("Get memory faild"), 0) << "an item that waits already";
    StoreLe<uint32_t>(req, 8, 65536);
    processor.ProcessClientData(req);
    EXPECT_EQ(log.Count("(com 0)DpLteDiag: function ProcessNVWrite Get memory faild"), 1);
}

TEST_F(DpLteDiag, NvWritesAndReadsMeetFromTwoThreads)
{
    CDataProcessorLteDiag processor(nullptr, nullptr);
    const Bytes req = Join(Hex("01 55 01 10  F0 00  14 00"), NvWrite(0x2211));
    std::thread client([&] {
        for (int i = 0; i < 2000; ++i)
            processor.ProcessClientData(req);
    });
    for (int i = 0; i < 2000; ++i) {
        Bytes packet = NvRead(0, Hex("AA BB CC DD"));
        EXPECT_EQ(processor.ProcessSerialData(packet), 1);
    }
    client.join();
}
