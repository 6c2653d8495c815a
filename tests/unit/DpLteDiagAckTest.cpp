#include "data/DpLteDiag.h"

#include "agent/Client.h"
#include "common/LteDiagInitCmd.h"
#include "support/AgentFixture.h"
#include "support/LogCapture.h"

#include <gtest/gtest.h>
#include <random>

namespace
{

const std::string DPI_PAIR = "DPH_FILTER_REQ_DPI_CMD_PAIR={0x11,0x10020304}\n";

/// UE 0 with a diag client; what the UE sends and what the client sees of it.
class DpLteDiagAck : public testing::Test
{
protected:
    DpLteDiagAck() : m_fixture(TEST_LAYOUT + DPI_PAIR + "DPH_FILTER_ENABLE=0\n")
    {
        m_fixture.AttachUe(0, 41);
        m_fixture.Confirm(0);
        m_client.emplace(m_fixture.AddClient(CHANNEL_LTE_DIAG));
        (void)m_client->Pending();
    }

    Bytes Seen(const Bytes& packet)
    {
        m_fixture.FromUe(0, CHANNEL_LTE_DIAG, packet);
        return m_client->Pending();
    }

    CAgentFixture m_fixture;
    std::optional<CTestClient> m_client;
};

/// A packet to the client, time stamp 0x0102.
Bytes Ack(const std::string& strId, const std::string& strRc, const std::string& strType, const Bytes& payload = {})
{
    return Join(Hex("9F 9F"), Hex(strId), Hex(strRc), Hex("02 01 00 00 00 00 00 00"), Hex(strType),
                Le(static_cast<unsigned short>(payload.size())), payload);
}

constexpr unsigned long long STAMP = 0x0102;
constexpr unsigned char DPI = 5;

/// Payload of an ack to a DPI message: DPI id 0x11 at 20, result 0x2A at 40.
Bytes DpiPayload(const Bytes& rest = {})
{
    return Join(Fill(20, 0xEE), Hex("11 00 00 00"), Fill(16, 0xEE), Hex("2A 00 00 00"), rest);
}

} // namespace

TEST_F(DpLteDiagAck, AnAckToAPlainCommandLosesItsResultWord)
{
    const CLogCapture log;
    EXPECT_EQ(Seen(LteAck(0x10020304, Hex("07 00 00 00 AA BB"), STAMP)),
              Ack("04 03 02 10", "00 00 00 00", "10 02", Hex("AA BB")));
    EXPECT_EQ(log.Count("[INF] : UE(com 41) to Client: lte cmd id is 0x10020304, ulRc:0x0, type is 16, line:"), 1);
}

// The result word that is cut off stays unread: required.
TEST_F(DpLteDiagAck, AnAckToAPlainCommandIsAlwaysASuccess)
{
    EXPECT_EQ(Seen(LteAck(0x10020304, Hex("FF FF FF FF"), STAMP)), Ack("04 03 02 10", "00 00 00 00", "10 02"));
    EXPECT_EQ(Seen(LteAck(0x10020304, Hex("FF FF FF"), STAMP)), Ack("04 03 02 10", "00 00 00 00", "10 02"))
        << "three bytes or fewer are dropped as well";
}

TEST_F(DpLteDiagAck, OtherIdsKeepTheirPayload)
{
    EXPECT_EQ(Seen(LteAck(0x30A00001, Hex("01 02 03 04 05"), STAMP)),
              Ack("01 00 A0 30", "00 00 00 00", "10 02", Hex("01 02 03 04 05")));
}

TEST_F(DpLteDiagAck, AnAckWithoutPayloadPassesUntouched)
{
    for (const unsigned int ulId : {0x10020304u, 0x10015317u, 0x10015312u}) {
        const Bytes seen = Seen(LteAck(ulId, {}, STAMP));
        EXPECT_EQ(seen, Join(Hex("9F 9F"), Le(ulId), Fill(4), Le(STAMP), Hex("10 02 00 00")));
    }
    CAgentFixture::Configure("DPH_FILTER_ENABLE=1\n");
    EXPECT_EQ(Seen(LteAck(0x10020304, {}, STAMP, DPI)), Ack("04 03 02 10", "00 00 00 00", "05 02"));
}

TEST_F(DpLteDiagAck, TheSwitchesAllComeBackUnderTheIdThatTheClientSent)
{
    const CLogCapture log;
    const struct
    {
        const char* pszName;
        unsigned int ulId;
        const char *pszPayload, *pszRc, *pszLog;
    } c_astCase[] = {
        {"air", 0x10015312, "00 00 00 00", "00 00 00 00", "lte cmd id(air) is 0x10015317, ulRc:0x0, type is 16, line:"},
        {"event", 0x10015315, "00 00 00 00 01", "00 00 00 00",
         "lte cmd id(event) is 0x10015317, ulRc:0x0, type is 16, line:"},
        {"user plane, 5 is a success", 0x10015317, "05 00 00 00", "00 00 00 00",
         "lte cmd id is 0x10015317, ulRc:0x0, type is 16, line:"},
        {"air failed", 0x10015312, "01 00 00 00", "2B 00 00 00",
         "lte cmd id(air) is 0x10015317, ulRc:0x2b, type is 16, line:"},
        {"event failed, a short result", 0x10015315, "06", "2B 00 00 00",
         "lte cmd id(event) is 0x10015317, ulRc:0x2b, type is 16, line:"},
        {"user plane failed", 0x10015317, "00 00 00 80", "2B 00 00 00",
         "lte cmd id is 0x10015317, ulRc:0x2b, type is 16, line:"},
    };
    for (const auto& st : c_astCase) {
        EXPECT_EQ(Seen(LteAck(st.ulId, Hex(st.pszPayload), STAMP)), Ack("17 53 01 10", st.pszRc, "10 02"))
            << st.pszName;
        EXPECT_EQ(log.Count(std::string("[INF] : UE(com 41) to Client: ") + st.pszLog), 1) << st.pszName;
    }
}

TEST_F(DpLteDiagAck, TheSwitchFilterKnowsTwoMoreIds)
{
    for (const unsigned int ulId : {0x10015311u, 0x10015313u}) {
        DIAG_PACKET_ACK_VIEW stOut;
        unsigned int ulCount = 0;
        const Bytes payload = Hex("01 00 00 00");
        const DIAG_PACKET_ACK_VIEW stIn{{ulId, 0, STAMP, 0x0210, 4}, payload};
        EXPECT_EQ(CDataProcessorLteDiag::DoAirLayerEventUserPlaneAckFilter(stIn, stOut, ulCount, 41), DIAG_RC_OK);
        EXPECT_EQ(ulCount, 1u);
        EXPECT_EQ(stOut.stHead.ulCmdId, 0x10015317u);
        EXPECT_EQ(stOut.stHead.ulRc, 43u);
        EXPECT_EQ(stOut.stHead.usLen, 0);
        EXPECT_TRUE(stOut.data.empty());
        // No path leads there: for the client they are plain commands.
        EXPECT_EQ(Seen(LteAck(ulId, payload, STAMP)).size(), 22u);
    }
    DIAG_PACKET_ACK_VIEW stOut;
    unsigned int ulCount = 7;
    const DIAG_PACKET_ACK_VIEW stIn{{0x10015314, 0, STAMP, 0x0210, 0}, {}};
    EXPECT_EQ(CDataProcessorLteDiag::DoAirLayerEventUserPlaneAckFilter(stIn, stOut, ulCount, 41), DIAG_RC_OK);
    EXPECT_EQ(ulCount, 7u) << "any other id leaves the count alone";
}

TEST_F(DpLteDiagAck, WithoutTheFilterADpiAckKeepsItsHeadAndTheUesId)
{
    EXPECT_EQ(Seen(LteAck(0x10020304, DpiPayload(Hex("AA")), STAMP, DPI)),
              Ack("04 03 02 10", "00 00 00 00", "05 02", DpiPayload(Hex("AA"))));
}

TEST_F(DpLteDiagAck, WithTheFilterADpiAckHasTheDpiIdAndTheResult)
{
    CAgentFixture::Configure("DPH_FILTER_ENABLE=1\n");
    const CLogCapture log;
    EXPECT_EQ(Seen(LteAck(0x10020304, DpiPayload(Hex("AA BB")), STAMP, DPI)),
              Ack("11 00 00 00", "2A 00 00 00", "05 02", Hex("AA BB")));
    EXPECT_EQ(log.Count("[INF] : UE(com 41) to Client: lte cmd id is 0x11, ulRc:0x2a, type is 5, line:"), 1);
    EXPECT_EQ(Seen(LteAck(0x10020304, DpiPayload(), STAMP, DPI)), Ack("11 00 00 00", "2A 00 00 00", "05 02"))
        << "exactly 44 bytes";
    EXPECT_EQ(Seen(LteAck(0x10020304, Fill(43, 1), STAMP, DPI)), Bytes{}) << "43 are dropped";
}

TEST_F(DpLteDiagAck, AnAckWithResult5ComesBackUnderItsDpi)
{
    CAgentFixture::Configure("DPH_FILTER_ENABLE=1\n");
    CDataProcessorLteDiag processor(nullptr, nullptr);
    CDataProcessorLteDiag::CAcks out;
    const Bytes payload = Hex("AA BB");
    DIAG_PACKET_ACK_VIEW stAck{{0x10020304, 5, STAMP, 0xA205, 2}, payload};
    unsigned int ulCount = 9;
    EXPECT_EQ(processor.AckFilter(stAck, out, ulCount), DIAG_RC_OK);
    EXPECT_EQ(ulCount, 0u);
    EXPECT_EQ(stAck.stHead.ulCmdId, 0x11u);
    EXPECT_EQ(stAck.stHead.usPktType, 0x5205);
    EXPECT_EQ(stAck.stHead.ulRc, 5u);
    EXPECT_EQ(stAck.stHead.usLen, 0);
    EXPECT_TRUE(stAck.data.empty());
}

TEST_F(DpLteDiagAck, TheAckFilterLooksAtTheResultItIsGiven)
{
    CDataProcessorLteDiag processor(nullptr, nullptr);
    const Bytes payload = Hex("01 02 03 04 AA");
    for (const auto& [ulRc, ulExpected] : {std::pair(0u, 0u), std::pair(5u, 5u), std::pair(7u, 43u)}) {
        CDataProcessorLteDiag::CAcks out;
        DIAG_PACKET_ACK_VIEW stAck{{0x10020304, ulRc, STAMP, 0x0210, 5}, payload};
        unsigned int ulCount = 0;
        EXPECT_EQ(processor.AckFilter(stAck, out, ulCount), DIAG_RC_OK);
        ASSERT_EQ(ulCount, 1u);
        EXPECT_EQ(out[0].stHead.ulRc, ulExpected);
        EXPECT_EQ(Bytes(out[0].data), Hex("AA"));
    }
}

TEST_F(DpLteDiagAck, OtherTypesPassUnchanged)
{
    CDataProcessorLteDiag processor(nullptr, nullptr);
    const Bytes payload = Hex("01 02 03 04 AA");
    CDataProcessorLteDiag::CAcks out;
    DIAG_PACKET_ACK_VIEW stAck{{0x10015501, 0, STAMP, 0x02F0, 5}, payload};
    unsigned int ulCount = 9;
    EXPECT_EQ(processor.AckFilter(stAck, out, ulCount), DIAG_RC_OK);
    EXPECT_EQ(ulCount, 0u);
    EXPECT_EQ(Bytes(stAck.data), payload);
}

TEST_F(DpLteDiagAck, AcksOfTheAgentsOwnSwitchesAreSwallowed)
{
    for (const auto& stRow : LTE_DIAG_INIT_CMD)
        EXPECT_EQ(Seen(LteAck(stRow.ulCmdId, Hex("00 00 00 00"))), Bytes{}) << std::hex << stRow.ulCmdId;
    EXPECT_NE(Seen(LteAck(0x30900018, Hex("00 00 00 00"))), Bytes{});
    EXPECT_NE(Seen(LteAck(0x30900000, Hex("00 00 00 00"))), Bytes{});
}

TEST_F(DpLteDiagAck, WhatIsNoAckIsRefused)
{
    const CLogCapture log;
    CDataProcessorLteDiag processor(nullptr, nullptr);
    processor.SetChannelBindPort(41);
    Bytes tooShort = Fill(8);
    EXPECT_EQ(processor.ProcessSerialData(tooShort), 0);
    EXPECT_EQ(log.Count("[ERR] : Read invalid data from lte diag channel, port:41"), 1);
    Bytes data = LteAck(0x10020304, {});
    data[4] = 3;
    EXPECT_EQ(processor.ProcessSerialData(data), 0);
    EXPECT_EQ(log.Count("[WAN] : Lte Diag Channel Receive NO ACK Data from Serial, port:41, pktype:1"), 1);
    Bytes mgr = LteAck(0x10065000, {});
    EXPECT_EQ(processor.ProcessSerialData(mgr), 0);
    EXPECT_EQ(log.Count("[WAN] : Lte Diag Channel Receive NO ACK Data from Serial, port:41, pktype:3"), 1);
    Bytes noPayload = Fill(27); // sorted, but it ends before its payload
    EXPECT_EQ(processor.ProcessSerialData(noPayload), 0);
    Bytes ack = LteAck(0x10020304, {});
    EXPECT_EQ(processor.ProcessSerialData(ack), 1);
    Bytes lphy = LteAck(0x30900001, {});
    EXPECT_EQ(processor.ProcessSerialData(lphy), 1) << "consumed";
}

TEST_F(DpLteDiagAck, PayloadsUpTo8191BytesReachTheClient)
{
    EXPECT_EQ(Seen(LteAck(0x30A00001, Fill(8191, 0x5A), STAMP)),
              Ack("01 00 A0 30", "00 00 00 00", "10 02", Fill(8191, 0x5A)));
    EXPECT_EQ(Seen(LteAck(0x30A00001, Fill(8192, 0x5A), STAMP)), Bytes{}) << "dropped without a word";
}

TEST_F(DpLteDiagAck, AnAckWithoutBitSetIsFiltered)
{
    CDataProcessorLteDiag::CAcks out;
    unsigned int ulCount = 0;
    const auto Split = [&](uint16_t usLen, const Bytes& rest) {
        const Bytes payload = DpiPayload(rest);
        const DIAG_PACKET_ACK_VIEW stIn{{0x11, 0, 0, 0x0205, usLen}, payload};
        return CDataProcessorLteDiag::DoAckPacketParamSpliyViaBit(0x10020304, stIn, out, ulCount);
    };
    EXPECT_EQ(Split(4, Hex("FF FF FF FF")), DIAG_RC_FILTERED) << "four bytes hold no more than the bit set";
    EXPECT_EQ(Split(5, Hex("00 00 00 00 AA")), DIAG_RC_FILTERED);
    EXPECT_EQ(Split(5, Hex("FF FF FF FF AA")), DIAG_RC_OK);
    EXPECT_EQ(ulCount, 0u) << "no table stands behind the bits";
}

TEST_F(DpLteDiagAck, IdClasses)
{
    EXPECT_TRUE(CDataProcessorLteDiag::IsMspCmd(0x10000000));
    EXPECT_FALSE(CDataProcessorLteDiag::IsMspCmd(0x20000000));
    EXPECT_TRUE(CDataProcessorLteDiag::IsMgrAckPacketId(0x10065000));
    EXPECT_FALSE(CDataProcessorLteDiag::IsMgrAckPacketId(0x10015503));
}

// Whatever the UE sends, nothing outside of the packet is touched (the sanitizers watch) and the client gets whole
// packets only.
TEST_F(DpLteDiagAck, RandomPacketsNeverReadOutside)
{
    CAgentFixture::Configure("DPH_FILTER_ENABLE=1\n");
    std::mt19937 random(20261121);
    const unsigned int aulIds[] = {0x10015503, 0x10015501, 0x10015317, 0x10015312, 0x10020304, 0x30A00001};
    for (int i = 0; i < 3000; ++i) {
        Bytes packet(random() % 120, 0);
        for (unsigned char& ucByte : packet)
            ucByte = static_cast<unsigned char>(random());
        if (packet.size() > 5 && i % 4 != 0)
            packet[4] = 0;
        if (packet.size() > 5 && i % 3 != 0)
            packet[5] = DPI;
        if (i % 5 != 0)
            StoreLe<uint32_t>(packet, 8, aulIds[random() % std::size(aulIds)]);
        m_fixture.FromUe(0, CHANNEL_LTE_DIAG, packet);
        for (Bytes seen = m_client->Pending(); !seen.empty();) {
            const size_t szLen = 22u + LoadLe<uint16_t>(seen, 20);
            ASSERT_EQ(LoadLe<uint16_t>(seen, 0), 0x9F9F);
            ASSERT_GE(seen.size(), szLen);
            ASSERT_LE(szLen, 22u + packet.size());
            seen.erase(seen.begin(), seen.begin() + static_cast<long>(szLen));
        }
    }
}
