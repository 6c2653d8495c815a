#include "data/gu/OperationGUData.h"

#include "support/GuFixture.h"
#include "support/LogCapture.h"

#include <gtest/gtest.h>

// What the agent learns of the UE: IMEI, version, register bases, modes, cards, and what a disconnect takes away.

namespace
{
/// The queries that the agent sends by itself.
const Bytes MODE_QUERY = Hex("0A 00 08 00 A5 80 00 00 00 00 00 00");
const Bytes MODE_QUERY_MODEM_1 = Hex("4A 00 08 00 A5 80 00 00 00 00 00 00");
const Bytes CARD_QUERY = Hex("0A 00 04 00 11 82 00 00");

bool Holds(const std::vector<Bytes>& packets, const Bytes& wanted)
{
    return std::ranges::find(packets, wanted) != packets.end();
}
GuPacketMatch Status(const std::string& strText)
{
    Bytes payload = Join(Hex("01 00 38 4F"), Bytes{'U', 'E', '0'}, Fill(29), Fill(56));
    std::copy(strText.begin(), strText.end(), payload.begin() + 36);
    return {0x01F00010, 0, 0, 0x01F0, payload};
}
} // namespace

TEST(OperationGUDataQuery, ImeiBehindTheVersion)
{
    CGuFixture gu("CEDAR-03");
    Bytes payload = Fill(288, 0xEE);
    const std::string strImei = "490154203237518";
    std::copy(strImei.begin(), strImei.end(), payload.begin() + 37);
    payload[37 + strImei.size()] = 0;
    gu.FromUe(GuMsg(0xC002, payload));
    auto packets = gu.Confirms();
    ASSERT_EQ(packets.size(), 1U);
    ExpectPacket(packets[0], Status(strImei));
    gu.FromUe(GuMsg(0xC002, payload));
    EXPECT_TRUE(gu.Confirms().empty()) << "once";
    EXPECT_EQ(gu.Indications().size(), 2U) << "it is an indication as well";
}

TEST(OperationGUDataQuery, LongImeiText)
{
    CGuFixture gu("CEDAR-03");
    gu.FromUe(GuMsg(0xC002, Fill(288, 'x')));
    const auto packets = gu.Confirms();
    ASSERT_EQ(packets.size(), 1U);
    ExpectPacket(packets[0], Status(std::string(55, 'x')));
}

TEST(OperationGUDataQuery, ImeiAheadOfTheVersion)
{
    CGuFixture gu;
    gu.FromUe(GuMsg(0xC002, Fill(288, 'x')));
    EXPECT_TRUE(gu.Confirms().empty());
    gu.FromUe(GuVersion("CEDAR-03"));
    const auto packets = gu.Confirms();
    ASSERT_EQ(packets.size(), 1U);
    ExpectPacket(packets[0], Status("")); // it isn't kept
}

TEST(OperationGUDataQuery, VersionStartsTheQueries)
{
    const CLogCapture log;
    CGuFixture gu;
    gu.FromUe(GuVersion("TEAK-11B01", 1, 515));
    const auto sent = gu.ToUe();
    EXPECT_TRUE(Holds(sent, MODE_QUERY));
    EXPECT_TRUE(Holds(sent, CARD_QUERY));
    EXPECT_EQ(log.Count("mode query: ue id = 0"), 1);
    EXPECT_EQ(log.Count("Rcv version = TEAK-11, type=FPGA"), 1) << "cut at the B";
    EXPECT_TRUE(gu.Confirms().empty()) << "no IMEI yet";
    gu.FromUe(GuVersion("CEDAR-03"));
    EXPECT_TRUE(gu.ToUe().empty()) << "the first one holds";
    EXPECT_EQ(gu.Operation().GetUeVersion(), 0xFFFFFFFF);
}

TEST(OperationGUDataQuery, ChipTypes)
{
    struct
    {
        unsigned int ulType;
        size_t szSize;
        const char* pszText;
    } const aRow[] = {{1, 515, "FPGA"}, {1, 516, "ASIC"}, {2, 516, "PC"}, {0, 516, "FPGA"}, {3, 200, "FPGA"}};
    for (const auto& stRow : aRow) {
        const CLogCapture log;
        CGuFixture gu;
        gu.FromUe(GuVersion("TEAK-11", stRow.ulType, stRow.szSize));
        EXPECT_EQ(log.Count(std::string("Rcv version = TEAK-11, type=") + stRow.pszText), 1);
    }
}

TEST(OperationGUDataQuery, KnownPlatformGetsItsRegisterBase)
{
    const CLogCapture log;
    CGuFixture gu;
    gu.FromUe(GuVersion("CEDAR-03", 1, 600));
    const auto sent = gu.ToUe();
    const Bytes toolAttached = TransReq(0xFE03, 201, Le(1U));
    const Bytes shareAddr = TransReq(0xFE01, 201, Le(0U));
    const auto Place = [&](const Bytes& packet) { return std::ranges::find(sent, packet) - sent.begin(); };
    EXPECT_TRUE(Holds(sent, shareAddr));
    EXPECT_LT(Place(toolAttached), Place(shareAddr));
    EXPECT_LT(Place(shareAddr), Place(MODE_QUERY));
    EXPECT_LT(Place(MODE_QUERY), Place(CARD_QUERY));
    EXPECT_EQ(log.Count("Set DSP query addr ulWDSPQUERY= 0x"), 1);
    // Mode 2 from now on: a block of mode 1 isn't a frame any more at offset 9, one of mode 2 is.
    Bytes block = OmBlock(2, {GuMsg(0xB011, Fill(4))});
    gu.Operation().ProcessSerialData(&gu.Agent().Agent().Bindings(), block, 0);
    EXPECT_EQ(gu.Confirms().size(), 1U);
}

TEST(OperationGUDataQuery, DspShareAddress)
{
    const CLogCapture log;
    CGuFixture gu("TEAK-11");
    gu.FromUe(GuMsg(0xFE02, Le(0x1000U)));
    EXPECT_EQ(gu.ToUe(), std::vector<Bytes>{MODE_QUERY});
    EXPECT_EQ(log.Count("Already query dsp addr msg m_pRegisterManager = 0x"), 1);
    gu.Agent().Detach(0, CHANNEL_AT);
    EXPECT_EQ(gu.Operation().ProcTransMsgFromUe(GuMsg(0xFE02, Le(0x1000U)), 0), 0);
    EXPECT_EQ(log.Count("Already query dsp addr msg m_pRegisterManager = 0x0"), 1);
    EXPECT_TRUE(gu.ToUe().empty()) << "without a manager";
}

TEST(OperationGUDataQuery, RegisterConfirms)
{
    CGuFixture gu("TEAK-11");
    const Bytes payload = Join(Le(0U), Le(3U), Le(0U)); // mode, status, count
    for (const unsigned short usId : Words{0xF504, 0xF505}) {
        gu.FromUe(GuMsg(usId, payload, 5));
        const auto packets = gu.Confirms();
        ASSERT_EQ(packets.size(), 1U);
        ExpectPacket(packets[0], {0x01540000U | usId, 0, ~5U, 0x0154, Le(3U)});
    }
    gu.Agent().Detach(0, CHANNEL_AT);
    EXPECT_EQ(gu.Operation().ProcTransMsgFromUe(GuMsg(0xF504, payload), 0), 0);
    EXPECT_TRUE(gu.Confirms().empty());
}

TEST(OperationGUDataQuery, RegisterIndicationsOfTheFirstModem)
{
    const Bytes stale = Join(Fill(34), Le(static_cast<unsigned short>(9)), Fill(36)); // nine values
    for (const unsigned short usId : Words{0xE501, 0xF501}) {
        CGuFixture gu("TEAK-11");
        gu.FromUe(GuMsg(0xF505, Join(Le(0U), Le(0U), Le(1U), Le(0x2000U)))); // the list of mode 0: one register
        gu.Forget();
        gu.FromUe(GuMsg(usId, stale, 0, 68));
        EXPECT_TRUE(gu.ToUe().empty()) << "the second modem's are dropped";
        gu.FromUe(GuMsg(usId, stale));
        EXPECT_EQ(gu.ToUe(), std::vector<Bytes>{TransReq(0xF503, 110, Fill(12))}) << "asks for the list";
    }
}

TEST(OperationGUDataQuery, ModeAnswers)
{
    const CLogCapture log;
    CGuFixture gu("TEAK-11");
    gu.FromUe(GuAnswer(0x80A6, 0x01020304));
    auto packets = gu.Confirms();
    ASSERT_EQ(packets.size(), 1U);
    ExpectPacket(packets[0], {0x010A80A6, 0, 0, 0x010A, Hex("04 03 02 01")});
    gu.FromUe(GuAnswer(0x80A6, 2, 74));
    packets = gu.Confirms();
    ASSERT_EQ(packets.size(), 1U);
    ExpectPacket(packets[0], {0x010A80A8, 0, 0, 0x010A, Hex("02 00 00 00")});
    gu.FromUe(GuAnswer(0x80A6, 1, 74));
    EXPECT_EQ(log.Count("Rcv Mode Info Buffer=0x"), 3);
    EXPECT_EQ(log.Count("Rcv Mode Info  m_bVersionOk = 1, m_pRegisterManager = 0x"), 3);
    EXPECT_EQ(log.Count(", m_enRegMode=[2,2]"), 2) << "0x01020304 is no mode";
    EXPECT_EQ(log.Count(", m_enRegMode=[2,0]"), 1) << "2 is base + 1";
    CGuFixture known("CEDAR-03");
    known.FromUe(GuAnswer(0x80A6, 7));
    packets = known.Confirms();
    ASSERT_EQ(packets.size(), 1U);
    EXPECT_EQ(packets[0].stHead.ullTimeStamp, 0xFFFFFFFFU);
}

TEST(OperationGUDataQuery, ModeOfTheAnswer)
{
    CGuFixture gu("TEAK-11");
    EXPECT_EQ(gu.Operation().GetCurrentMode(GuAnswer(0x80A6, 2)), 0U);
    EXPECT_EQ(gu.Operation().GetCurrentMode(GuAnswer(0x80A6, 1)), 1U);
    EXPECT_EQ(gu.Operation().GetCurrentMode(GuAnswer(0x80A6, 0)), 2U);
    gu.BeDualCard(); // counts from 0 from now on
    EXPECT_EQ(gu.Operation().GetCurrentMode(GuAnswer(0x80A6, 2)), 2U);
    EXPECT_EQ(gu.Operation().GetCurrentMode(GuAnswer(0x80A6, 1)), 0U);
    EXPECT_EQ(gu.Operation().GetCurrentMode(GuAnswer(0x80A6, 0)), 1U);
    CGuFixture known("PLANE-10");
    EXPECT_EQ(known.Operation().GetCurrentMode(GuAnswer(0x80A6, 1)), 0U) << "a known platform counts from 0";
}

TEST(OperationGUDataQuery, ModeChangeQueriesTheDspBlock)
{
    const CLogCapture log;
    CGuFixture gu("TEAK-11");
    gu.FromUe(GuAnswer(0x80A6, 2));
    EXPECT_EQ(log.Count("Begin query DSP base addr info Mode= 0,"), 1) << "a change";
    gu.FromUe(GuAnswer(0x80A6, 2));
    EXPECT_EQ(log.Count("Begin query DSP base addr info Mode= 0,"), 2) << "no change, but no base address either";
    gu.FromUe(GuAnswer(0x80A6, 1, 74));
    EXPECT_EQ(log.Count("Begin query DSP base addr info"), 2) << "the second modem's mode is only kept";
}

TEST(OperationGUDataQuery, CardAnswers)
{
    struct
    {
        unsigned int ulValue;
        unsigned int ulModemNum;
    } const aRow[] = {{2, MODEM_NUM_DUAL}, {1, MODEM_NUM_SINGLE}, {0, MODEM_NUM_UNKNOWN}, {3, MODEM_NUM_UNKNOWN}};
    for (const auto& stRow : aRow) {
        const CLogCapture log;
        CGuFixture gu;
        gu.FromUe(GuAnswer(0x8212, stRow.ulValue));
        EXPECT_EQ(gu.Operation().GetModemNum(), stRow.ulModemNum);
        EXPECT_EQ(gu.ToUe(), std::vector<Bytes>{MODE_QUERY_MODEM_1});
        EXPECT_EQ(log.Count("single and double card model= " + std::to_string(stRow.ulModemNum)), 1);
        gu.FromUe(GuAnswer(0x8212, 1));
        EXPECT_EQ(log.Count("Rcv single and double card info"), 2);
        EXPECT_EQ(gu.ToUe().size(), stRow.ulModemNum == MODEM_NUM_UNKNOWN ? 1U : 0U) << "once it is known, only a line";
        gu.FromUe(GuAnswer(0x8212, 2, 74));
        EXPECT_EQ(log.Count("Rcv single and double card info"), 2) << "category 10 only";
    }
}

TEST(OperationGUDataQuery, DisconnectForgetsTheUe)
{
    CGuFixture gu("CEDAR-03");
    gu.BeDualCard();
    gu.FromUe(GuMsg(0xC002, Fill(288)));
    gu.Request(0xB016, 84, Hex("01 02 F4 01"));
    gu.Forget();
    gu.Agent().Detach(0, CHANNEL_AT);
    EXPECT_EQ(gu.Operation().GetModemNum(), MODEM_NUM_UNKNOWN);
    gu.FromUe(GuMsg(0xB011, Fill(4))); // the frame mode is still known
    EXPECT_TRUE(gu.Confirms().empty()) << "the version isn't";
    gu.FromUe(GuVersion("CEDAR-03"));
    EXPECT_TRUE(gu.Confirms().empty()) << "no status: the IMEI has to come again";
    gu.FromUe(GuMsg(0xB018, Fill(4), Ticks(5000)));
    const auto packets = gu.Indications();
    ASSERT_EQ(packets.size(), 1U) << "the period survives";
    EXPECT_EQ(packets[0].stHead.ulRc, 2U) << "and so does the SN";
}

TEST(OperationGUDataQuery, FrameHeldAtADisconnect)
{
    const struct
    {
        const char* pszName;
        unsigned int ulUeIdx;
        enChannelType enGone;
        bool bDropped;
    } astCase[] = {
        {"LTE diag", 0, CHANNEL_LTE_DIAG, false},
        {"LTE data", 0, CHANNEL_LTE_DATA, false},
        {"GU command: the rest would come there", 0, CHANNEL_GU_CMD, true},
        {"GU data", 0, CHANNEL_GU_DATA, false},
        {"AT", 0, CHANNEL_AT, false},
        {"network UE: one message for all channels", 15, CHANNEL_LTE_DIAG, true},
    };
    const Bytes frame = OmFrame(GuVersion("CEDAR-03"));
    for (const auto& stCase : astCase) {
        SCOPED_TRACE(stCase.pszName);
        CGuFixture gu;
        gu.Agent().AttachUe(15, 20);
        const auto HearsVersion = [&](ByteView part) {
            gu.Agent().FromUe(stCase.ulUeIdx, CHANNEL_GU_CMD, Join(Fill(17), part));
            return Holds(gu.ToUe(), CARD_QUERY);
        };
        EXPECT_FALSE(HearsVersion(Slice(ByteView(frame), 0, 100)));
        gu.Agent().Detach(stCase.ulUeIdx, stCase.enGone);
        EXPECT_EQ(HearsVersion(Slice(ByteView(frame), 100)), !stCase.bDropped);
        EXPECT_EQ(HearsVersion(frame), stCase.bDropped) << "a whole one, when the first wasn't heard";
    }
}

TEST(OperationGUDataQuery, QueryAnswersOfNoKind)
{
    CGuFixture gu("CEDAR-03");
    EXPECT_EQ(gu.Operation().ProcQueryMsgFromUe(GuAnswer(0x80A5, 1), 0), 4);
    EXPECT_EQ(gu.Operation().ProcQueryMsgFromUe(GuAnswer(0x80A6, 1, 4), 0), 4) << "another category";
    EXPECT_EQ(gu.Operation().ProcQueryMsgFromUe(GuAnswer(0x80A6, 1), 2), 4) << "another modem";
    EXPECT_TRUE(gu.Confirms().empty());
}
