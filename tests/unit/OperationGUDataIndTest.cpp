#include "data/gu/OperationGUData.h"

#include "support/GuFixture.h"
#include "support/LogCapture.h"

#include <gtest/gtest.h>

// Blocks and packets from the UE, and what the clients get of them.

namespace
{
/// Payload bytes that count up from 0x10.
Bytes Counting(size_t szCount)
{
    Bytes bytes(szCount);
    for (size_t i = 0; i < szCount; ++i)
        bytes[i] = static_cast<unsigned char>(0x10 + i);
    return bytes;
}
Bytes Cut(const Bytes& bytes, size_t szCount)
{
    Bytes cut(szCount, 0);
    CopyPadded(cut, bytes);
    return cut;
}
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

TEST(OperationGUDataInd, FrameModes)
{
    CGuFixture gu;
    COperationGUData operation;
    const Bytes card = GuAnswer(0x8212, 2);
    const auto Take = [&](Bytes block) {
        operation.ProcessSerialData(nullptr, block, 3);
        return operation.GetModemNum();
    };
    EXPECT_EQ(Take(OmBlock(2, {})), MODEM_NUM_UNKNOWN);
    EXPECT_EQ(Take({}), MODEM_NUM_UNKNOWN);
    EXPECT_EQ(Take(Join(Fill(13), OmFrame(card))), MODEM_NUM_UNKNOWN) << "a mark at another place: dropped";
    EXPECT_EQ(Take(OmBlock(2, {card})), MODEM_NUM_DUAL) << "offset 9";
    operation.ClearData();
    EXPECT_EQ(Take(OmBlock(1, {card})), MODEM_NUM_DUAL)
        << "mode 2 stays, the search finds the mark behind a longer head";
    COperationGUData other;
    Bytes block = OmBlock(1, {card});
    other.ProcessSerialData(nullptr, block, 3);
    EXPECT_EQ(other.GetModemNum(), MODEM_NUM_DUAL) << "offset 17";
    other.ClearData();
    block = OmBlock(2, {card}); // 24 bytes from offset 17 on don't hold the mark
    other.ProcessSerialData(nullptr, block, 3);
    EXPECT_EQ(other.GetModemNum(), MODEM_NUM_UNKNOWN) << "and mode 1 stays too";
}

TEST(OperationGUDataInd, Categories)
{
    CGuFixture gu("CEDAR-03");
    struct
    {
        unsigned char ucCategory;
        int iResult;
    } const aRow[] = {
        {1, 4}, {2, 4}, {4, 4}, {10, 4}, {66, 4}, {68, 4}, {74, 4}, {0, 2}, {3, 2}, {5, 2}, {46, 2}, {65, 2}, {255, 2},
    };
    for (const auto& stRow : aRow)
        EXPECT_EQ(gu.Operation().TranslateUEPacket(GuMsg(0x1111, Fill(8), 0, stRow.ucCategory)), stRow.iResult)
            << int{stRow.ucCategory};
    EXPECT_EQ(gu.Operation().TranslateUEPacket({}), 2);
    EXPECT_TRUE(gu.Confirms().empty());
    EXPECT_TRUE(gu.Indications().empty());
}

TEST(OperationGUDataInd, WhichMessagesHaveAnSn)
{
    for (int i = 0; i < 256; ++i)
        EXPECT_EQ(COperationGUData::CheckIfMsgHasSn(static_cast<unsigned char>(i)), i != 3 && i != 10 && i != 46) << i;
}

TEST(OperationGUDataInd, SnBooks)
{
    COperationGUData operation;
    EXPECT_EQ(operation.CheckWhetherMsgIsLost(0, 1), 1) << "0 is no SN";
    EXPECT_EQ(operation.CheckWhetherMsgIsLost(7, 1), 0) << "the first one";
    EXPECT_EQ(operation.CheckWhetherMsgIsLost(8, 1), 0);
    EXPECT_EQ(operation.CheckWhetherMsgIsLost(0, 1), 1);
    EXPECT_EQ(operation.CheckWhetherMsgIsLost(9, 1), 0) << "0 changed nothing";
    EXPECT_EQ(operation.CheckWhetherMsgIsLost(11, 1), 1) << "a gap";
    EXPECT_EQ(operation.CheckWhetherMsgIsLost(12, 1), 0);
    EXPECT_EQ(operation.CheckWhetherMsgIsLost(12, 1), 1) << "the same again";
    EXPECT_EQ(operation.CheckWhetherMsgIsLost(100, 7), 0) << "another SSID";
    EXPECT_EQ(operation.CheckWhetherMsgIsLost(0xFFFFFFFF, 0), 0);
    EXPECT_EQ(operation.CheckWhetherMsgIsLost(1, 0), 1) << "no wrap to 1";
}

TEST(OperationGUDataInd, SsidOutOfTheBooks)
{
    const CLogCapture log;
    COperationGUData operation;
    EXPECT_EQ(operation.CheckWhetherMsgIsLost(5, 8), 0);
    EXPECT_EQ(operation.CheckWhetherMsgIsLost(9, 255), 0);
    EXPECT_EQ(log.Count("error fail file:./src/data/gu/OperationGUData, line:"), 2);
}

TEST(OperationGUDataInd, PacketsEnterTheSnBooks)
{
    struct
    {
        unsigned char ucCategory;
        bool bSn;
    } const aRow[] = {{1, true}, {2, true}, {4, true}, {66, true}, {68, true}, {74, true}, {3, false}, {10, false}};
    for (const auto& stRow : aRow) {
        const CLogCapture log; // an SSID out of the books tells that they were looked at
        Bytes packet = GuMsg(0x1111, Fill(8), 0, stRow.ucCategory);
        packet[GU_SSID] = 8;
        packet[GU_SN] = 5;
        COperationGUData operation;
        (void)operation.TranslateUEPacket(packet);
        EXPECT_EQ(log.Count("error fail file:"), stRow.bSn ? 1 : 0) << int{stRow.ucCategory};
        packet[GU_SSID] = 7;
        (void)operation.TranslateUEPacket(packet);
        EXPECT_EQ(operation.CheckWhetherMsgIsLost(6, 7), 0);
        EXPECT_EQ(operation.CheckWhetherMsgIsLost(8, 7), 1);
        EXPECT_EQ(log.Count("error fail file:"), stRow.bSn ? 1 : 0);
    }
}

TEST(OperationGUDataInd, RealTimeStamps)
{
    struct
    {
        const char* pszVersion;
        bool bAsItStands;
    } const aRow[] = {
        {"CEDAR-03", true}, {"CEDAR-30", true}, {"MAPLE-20", true}, {"MAPLE-02", true},
        {"ROWAN-03", true}, {"ROWAN-30", true}, {"OLIVE-01", true}, {"OLIVE-10", true},
        {"PLANE-01", true}, {"PLANE-10", true}, {"TEAK-11", false}, {"cedar-03", false},
    };
    EXPECT_EQ(COperationGUData().GetRealTimeStamp(0x12345678), 0xEDCBA987);
    for (const auto& stRow : aRow) {
        CGuFixture gu(stRow.pszVersion);
        EXPECT_EQ(gu.Operation().GetRealTimeStamp(0x12345678), stRow.bAsItStands ? 0x12345678 : 0xEDCBA987)
            << stRow.pszVersion;
        gu.FromUe(GuMsg(0xB01E, Counting(4), 0x12345678));
        const auto packets = gu.Indications();
        ASSERT_EQ(packets.size(), 1U);
        EXPECT_EQ(packets[0].stHead.ullTimeStamp, stRow.bAsItStands ? 0x12345678U : 0xEDCBA987U);
    }
}

TEST(OperationGUDataInd, VersionClasses)
{
    struct
    {
        const char* pszVersion;
        unsigned int ulClass;
    } const aRow[] = {
        {"CEDAR-03", 0},  {"CEDAR-30", 0},           {"MAPLE-20", 2},          {"MAPLE-02", 2},
        {"ROWAN-03", 2},  {"ROWAN-30", 2},           {"OLIVE-01", 3},          {"OLIVE-10", 3},
        {"PLANE-01", 4},  {"PLANE-10", 4},           {"CEDAR-03.11.22", 0},    {"CEDAR-0", 0xFFFFFFFF},
        {"", 0xFFFFFFFF}, {" CEDAR-03", 0xFFFFFFFF}, {"CEDAR-31", 0xFFFFFFFF},
    };
    for (const auto& stRow : aRow)
        EXPECT_EQ(COperationGUData::ParseVersion(stRow.pszVersion), stRow.ulClass) << stRow.pszVersion;
    EXPECT_EQ(COperationGUData().GetUeVersion(), 0xFFFFFFFF);
}

TEST(OperationGUDataInd, ConfirmBytes)
{
    CGuFixture gu("MAPLE-20");
    gu.FromUe(GuMsg(0xB011, Hex("01 02 03 04 05 06"), 0x0A0B0C0D));
    EXPECT_EQ(gu.Cmd().Pending(), Hex("9F 9F 11 B0 54 01 00 00 00 00 0D 0C 0B 0A 00 00 00 00 54 01 04 00 01 02 03 04"));
}

TEST(OperationGUDataInd, IndicationBytesAndSn)
{
    CGuFixture gu("MAPLE-20");
    gu.FromUe(GuMsg(0xB01E, Hex("01 02 03 04 05 06"), 0x0A0B0C0D));
    gu.FromUe(GuMsg(0xB01E, Hex("07 08 09 0A"), 1));
    EXPECT_EQ(gu.Data().Pending(),
              Hex("9F 9F 1E B0 54 01 01 00 00 00 0D 0C 0B 0A 00 00 00 00 54 01 04 00 01 02 03 04"
                  "9F 9F 1E B0 54 01 02 00 00 00 01 00 00 00 00 00 00 00 54 01 04 00 07 08 09 0A"));
}

TEST(OperationGUDataInd, SilentWithoutVersion)
{
    CGuFixture gu;
    for (const unsigned short usId : Words{0xB011, 0xB01E, 0xF021}) {
        gu.FromUe(GuMsg(usId, Fill(8)));
        gu.FromUe(GuMsg(usId, Fill(8), 0, 68));
    }
    gu.FromUe(GuMsg(0xA015, Fill(8), 0, 2));
    gu.FromUe(GuTrace(0, 133, Fill(8)));
    gu.FromUe(GuAnswer(0x80A6, 1));
    EXPECT_TRUE(gu.Confirms().empty());
    EXPECT_TRUE(gu.Indications().empty());
}

TEST(OperationGUDataInd, OtaTable)
{
    struct
    {
        unsigned short usMsgId;
        bool bConfirm;
        unsigned int aulId[2];
    } const aRow[] = {
        {0xA015, true, {0x0152A015, 0x0152A045}}, {0xA025, false, {0x0152A025, 0x0152A055}},
        {0xB021, true, {0x0152B021, 0x0152B021}}, {0xB022, false, {0x0152B022, 0x0152B022}},
        {0xC102, true, {0x0152C102, 0x0152C105}}, {0xC103, false, {0x0152C103, 0x0152C106}},
    };
    CGuFixture gu("CEDAR-03");
    const Bytes payload = Join(Hex("0A 0B 0C 0D"), Le(5U), Hex("11 12 13 14 15 16 17")); // 5 + 8 bytes count
    unsigned int ulSn = 1;
    for (const auto& stRow : aRow)
        for (unsigned int ulModem = 0; ulModem < 2; ++ulModem) {
            SCOPED_TRACE(stRow.usMsgId);
            gu.FromUe(GuMsg(stRow.usMsgId, payload, 77, ulModem == 0 ? 2 : 66));
            const auto confirms = gu.Confirms();
            const auto indications = gu.Indications();
            ASSERT_EQ(confirms.size(), stRow.bConfirm ? 1U : 0U);
            ASSERT_EQ(indications.size(), stRow.bConfirm ? 0U : 1U);
            if (stRow.bConfirm)
                ExpectPacket(confirms[0], {stRow.aulId[ulModem], 0, 77, 0x0152, Hex("0A 0B 0C 0D")});
            else
                ExpectPacket(indications[0], {stRow.aulId[ulModem], ulSn++, 77, 0x0152, Cut(payload, 13)});
        }
    EXPECT_EQ(gu.Operation().ProcOtaMsgFromUe(GuMsg(0xA016, Fill(4), 0, 2), 0), 4);
    EXPECT_EQ(gu.Operation().ProcOtaMsgFromUe(GuMsg(0xA015, Fill(3), 0, 2), 0), 1) << "19 bytes";
}

TEST(OperationGUDataInd, OtaLengthBeyondThePacket)
{
    CGuFixture gu("CEDAR-03");
    gu.FromUe(GuMsg(0xB022, Join(Hex("0A 0B 0C 0D"), Le(20U)), 0, 2));
    gu.FromUe(GuMsg(0xB022, Join(Hex("0A 0B 0C 0D"), Le(0xFFFFFFFFU)), 0, 2));
    const auto packets = gu.Indications();
    ASSERT_EQ(packets.size(), 2U);
    EXPECT_EQ(packets[0].payload, Join(Hex("0A 0B 0C 0D 14 00 00 00"), Fill(20))) << "completed with zeros";
    EXPECT_EQ(packets[1].payload, Hex("0A 0B 0C 0D FF FF FF")) << "0x100000007 in 16 bits";
}

TEST(OperationGUDataInd, TransTable)
{
    struct
    {
        unsigned short usId;
        bool bConfirm;
        size_t szLen;
    } const aRow[] = {
        {0xB011, true, 4}, {0xB017, true, 4}, {0xB01A, true, 4},   {0xB01D, true, 4},  {0xB061, true, 4},
        {0xC011, true, 4}, {0xF021, true, 4}, {0xB01B, false, 24}, {0xB01E, false, 4}, {0xC002, false, 288},
    };
    CGuFixture gu("CEDAR-03");
    gu.FromUe(GuMsg(0xC002, Fill(288)));
    gu.Forget();
    unsigned int ulSn = 2;
    for (const auto& stRow : aRow)
        for (const unsigned char ucCategory : Bytes{4, 68})
            for (const size_t szPayload : {size_t{6}, size_t{300}}) {
                SCOPED_TRACE(stRow.usId);
                gu.FromUe(GuMsg(stRow.usId, Counting(szPayload), 99, ucCategory));
                const auto confirms = gu.Confirms();
                const auto indications = gu.Indications();
                ASSERT_EQ(confirms.size(), stRow.bConfirm ? 1U : 0U);
                ASSERT_EQ(indications.size(), stRow.bConfirm ? 0U : 1U);
                const Bytes payload = Cut(Counting(szPayload), stRow.szLen); // zeros for what the packet doesn't have
                const unsigned int ulId = 0x01540000U | stRow.usId;
                if (stRow.bConfirm)
                    ExpectPacket(confirms[0], {ulId, 0, 99, 0x0154, payload});
                else
                    ExpectPacket(indications[0], {ulId, ulSn++, 99, 0x0154, payload});
            }
    for (const unsigned short usId : Words{0xB010, 0xB012, 0xB015, 0xB065, 0xD002, 0x1234}) {
        gu.FromUe(GuMsg(usId, Counting(64)));
        EXPECT_TRUE(gu.Confirms().empty());
        EXPECT_TRUE(gu.Indications().empty()) << "stored, noted or unknown";
    }
    EXPECT_EQ(gu.Operation().ProcTransMsgFromUe(GuMsg(0x1234, Fill(8)), 0), 4);
}

TEST(OperationGUDataInd, TransLengths)
{
    CGuFixture gu("CEDAR-03");
    COperationGUData& operation = gu.Operation();
    EXPECT_EQ(operation.ProcTransMsgFromUe(GuMsg(0xB011, Fill(3)), 0), 3) << "19 bytes";
    EXPECT_EQ(operation.ProcTransMsgFromUe(Join(GuMsg(0xB011, Fill(4)), Fill(1)), 0), 3);
    EXPECT_EQ(operation.ProcTransMsgFromUe(Cut(GuMsg(0xB011, Fill(8)), 23), 0), 3);
    EXPECT_TRUE(gu.Confirms().empty());
    EXPECT_EQ(operation.ProcTransMsgFromUe(GuMsg(0xB011, Fill(4)), 0), 0);
    EXPECT_EQ(gu.Confirms().size(), 1U);
    EXPECT_EQ(operation.DecomposeTransMsg(GuMsg(0xB011, Fill(3)), 0), 1);
}

TEST(OperationGUDataInd, Chains)
{
    CGuFixture gu("CEDAR-03");
    COperationGUData& operation = gu.Operation();
    const Bytes first = GuMsg(0xF021, Hex("01 01 01 01"));
    const Bytes second = GuMsg(0xF021, Hex("02 02 02 02 02 02"));
    const Bytes unknown = GuMsg(0xE0FF, Hex("03 03 03 03"));
    const Bytes other = GuMsg(0xB011, Hex("04 04 04 04"));
    struct
    {
        Bytes chain;
        std::vector<unsigned char> delivered; // first payload byte of each
        int iResult;
    } const aRow[] = {
        {first, {1}, 0},
        {Join(first, second), {1, 2}, 0},
        {Join(first, unknown, second), {1, 2}, 0},
        {Join(unknown, first), {1}, 0},
        {Join(first, second, Fill(19)), {1, 2}, 0},            // fewer than 20 bytes left
        {Join(first, Cut(second, second.size() - 1)), {1}, 0}, // the last one cut off
        {Join(first, other, second), {1}, 1},                  // another high byte
        {Join(first, Fill(20)), {1}, 1},                       // a message of 4 bytes with id 0 fits
    };
    for (const auto& stRow : aRow) {
        EXPECT_EQ(operation.DecomposeTransMsg(stRow.chain, 0), stRow.iResult);
        std::vector<unsigned char> delivered;
        for (const auto& packet : gu.Confirms())
            delivered.push_back(packet.payload[0]);
        EXPECT_EQ(delivered, stRow.delivered) << testing::PrintToString(stRow.chain);
    }
}

namespace
{
/// Keeps what a dispatcher gives it.
class CKeeper : public IMsgProcess
{
public:
    using IMsgProcess::IMsgProcess;
    bool ProcessInd(ByteView packet) override
    {
        taken.emplace_back(packet);
        return true;
    }
    bool SendReqToUe(ByteView) override { return false; }

    std::vector<Bytes> taken;
};
constexpr MSG_PROCESS_ROW KEEPER_ROW = {CreateProcessor<CKeeper>, {0xF0AA, 0xE0AA}, NO_ID, NO_ID, {0, 0}, {}, 0, 0};
} // namespace

TEST(OperationGUDataInd, ChainsHaveTheSnOfTheirFirstMessage)
{
    CGuFixture gu("CEDAR-03");
    CKeeper keeper(gu.Operation().GetTransMsgDisp(), KEEPER_ROW, 0);
    const auto Numbered = [](unsigned short usId, unsigned int ulSn) {
        Bytes message = GuMsg(usId, Hex("01 02 03 04"));
        StoreLe<uint32_t>(message, GU_SN, ulSn);
        return message;
    };
    const Bytes chain = Join(Numbered(0xF0AA, 0x01020304), Numbered(0xE0AA, 7), Numbered(0xF0AA, 8));
    EXPECT_EQ(gu.Operation().DecomposeTransMsg(chain, 0), 0);
    EXPECT_EQ(keeper.taken, (std::vector<Bytes>{Numbered(0xF0AA, 0x01020304), Numbered(0xE0AA, 0x01020304),
                                                Numbered(0xF0AA, 0x01020304)}));
}

TEST(OperationGUDataInd, OnlyTheTwoHighBytesChain)
{
    CGuFixture gu("CEDAR-03");
    for (const unsigned short usId : Words{0xB011, 0xC011, 0xF501, 0xE501, 0xF504, 0xE602}) {
        const Bytes two = Join(GuMsg(usId, Fill(4)), GuMsg(usId, Fill(4)));
        EXPECT_EQ(gu.Operation().DecomposeTransMsg(two, 0), 3) << "one message, whose length isn't that of the block";
    }
    EXPECT_TRUE(gu.Confirms().empty());
}

TEST(OperationGUDataInd, ImeiBehindTheVersion)
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

TEST(OperationGUDataInd, LongImeiText)
{
    CGuFixture gu("CEDAR-03");
    gu.FromUe(GuMsg(0xC002, Fill(288, 'x')));
    const auto packets = gu.Confirms();
    ASSERT_EQ(packets.size(), 1U);
    ExpectPacket(packets[0], Status(std::string(55, 'x')));
}

TEST(OperationGUDataInd, ImeiAheadOfTheVersion)
{
    CGuFixture gu;
    gu.FromUe(GuMsg(0xC002, Fill(288, 'x')));
    EXPECT_TRUE(gu.Confirms().empty());
    gu.FromUe(GuVersion("CEDAR-03"));
    const auto packets = gu.Confirms();
    ASSERT_EQ(packets.size(), 1U);
    ExpectPacket(packets[0], Status("")); // it isn't kept
}

TEST(OperationGUDataInd, VersionStartsTheQueries)
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

TEST(OperationGUDataInd, ChipTypes)
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

TEST(OperationGUDataInd, KnownPlatformGetsItsRegisterBase)
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
    gu.Operation().ProcessSerialData(&gu.Agent().Agent(), block, 0);
    EXPECT_EQ(gu.Confirms().size(), 1U);
}

TEST(OperationGUDataInd, DspShareAddress)
{
    const CLogCapture log;
    CGuFixture gu("TEAK-11");
    gu.FromUe(GuMsg(0xFE02, Le(0x1000U)));
    EXPECT_EQ(gu.ToUe(), std::vector<Bytes>{MODE_QUERY});
    EXPECT_EQ(log.Count("Already query dsp addr msg m_pRegisterManager = 0x"), 1);
    gu.Operation().ClearData();
    EXPECT_EQ(gu.Operation().ProcTransMsgFromUe(GuMsg(0xFE02, Le(0x1000U)), 0), 0);
    EXPECT_EQ(log.Count("Already query dsp addr msg m_pRegisterManager = 0x0"), 1);
    EXPECT_TRUE(gu.ToUe().empty()) << "without a manager";
}

TEST(OperationGUDataInd, RegisterConfirms)
{
    CGuFixture gu("TEAK-11");
    const Bytes payload = Join(Le(0U), Le(3U), Le(0U)); // mode, status, count
    for (const unsigned short usId : Words{0xF504, 0xF505}) {
        gu.FromUe(GuMsg(usId, payload, 5));
        const auto packets = gu.Confirms();
        ASSERT_EQ(packets.size(), 1U);
        ExpectPacket(packets[0], {0x01540000U | usId, 0, ~5U, 0x0154, Le(3U)});
    }
    gu.Operation().ClearData();
    EXPECT_EQ(gu.Operation().ProcTransMsgFromUe(GuMsg(0xF504, payload), 0), 0);
    EXPECT_TRUE(gu.Confirms().empty());
}

TEST(OperationGUDataInd, RegisterIndicationsOfTheFirstModem)
{
    CGuFixture gu("TEAK-11");
    gu.FromUe(GuMsg(0xF505, Join(Le(0U), Le(0U), Le(1U), Le(0x2000U)))); // the list of mode 0: one register
    gu.Forget();
    const Bytes stale = Join(Fill(34), Le(static_cast<unsigned short>(9)), Fill(36)); // nine values
    for (const unsigned short usId : Words{0xE501, 0xF501}) {
        gu.FromUe(GuMsg(usId, stale, 0, 68));
        EXPECT_TRUE(gu.ToUe().empty()) << "the second modem's are dropped";
        gu.FromUe(GuMsg(usId, stale));
        EXPECT_EQ(gu.ToUe(), std::vector<Bytes>{TransReq(0xF503, 110, Fill(12))}) << "asks for the list";
    }
}

TEST(OperationGUDataInd, ModeAnswers)
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

TEST(OperationGUDataInd, ModeOfTheAnswer)
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

TEST(OperationGUDataInd, ModeChangeQueriesTheDspBlock)
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

TEST(OperationGUDataInd, CardAnswers)
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

TEST(OperationGUDataInd, DisconnectForgetsTheUe)
{
    CGuFixture gu("CEDAR-03");
    gu.BeDualCard();
    gu.FromUe(GuMsg(0xC002, Fill(288)));
    gu.Request(0xB016, 84, Hex("01 02 F4 01"));
    gu.Forget();
    gu.Operation().ClearData();
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

TEST(OperationGUDataInd, DisconnectDropsTheFrameHeld)
{
    CGuFixture gu("CEDAR-03");
    Bytes block = OmBlock(2, {Fill(4000)});
    block.resize(9 + 100); // the rest of the frame never comes
    gu.Operation().ProcessSerialData(&gu.Agent().Agent(), block, 0);
    gu.Operation().ClearData();
    gu.FromUe(GuVersion("CEDAR-03"));
    EXPECT_TRUE(Holds(gu.ToUe(), MODE_QUERY)) << "the version is heard";
}

TEST(OperationGUDataInd, TraceSendersOfTheSecondModem)
{
    struct
    {
        unsigned int ulPid;
        unsigned int ulId;
    } const aRow[] = {
        {0, 0x0151E562},  {1, 0x0151E562},  {2, 0x0151E662},   {24, 0x0151E662},
        {98, 0x0151E662}, {99, 0x0151E562}, {130, 0x0151E562}, {0x10002, 0x0151E562},
    };
    CGuFixture gu("CEDAR-03");
    gu.BeDualCard();
    gu.Request(0xE560, 81, Hex("01 00 F4 01"));
    gu.Request(0xE660, 81, Hex("01 00 F4 01"));
    gu.Forget();
    unsigned int ulMs = 0;
    for (const auto& stRow : aRow) {
        const Bytes packet = GuTrace(0x1120, stRow.ulPid, Fill(20), Ticks(ulMs += 1000));
        EXPECT_EQ(gu.Operation().ProcTraceMsgFromUe(packet), 14) << "taken";
        const auto packets = gu.Indications();
        ASSERT_EQ(packets.size(), 1U);
        EXPECT_EQ(packets[0].stHead.ulCmdId, stRow.ulId) << stRow.ulPid;
        EXPECT_EQ(gu.Operation().ProcTraceMsgFromUe(packet), 4) << "the gate holds";
    }
}

TEST(OperationGUDataInd, TraceResults)
{
    CGuFixture gu;
    EXPECT_EQ(gu.Operation().ProcTraceMsgFromUe(GuTrace(1, 133, {})), 1) << "no version";
    gu.FromUe(GuVersion("CEDAR-03"));
    EXPECT_EQ(gu.Operation().ProcTraceMsgFromUe(GuTrace(0x1111, 133, Fill(4))), 4) << "no processor";
    EXPECT_EQ(gu.Operation().ProcTraceMsgFromUe(Cut(GuTrace(0, 133, {}), 19)), 3);
    EXPECT_EQ(gu.Operation().ProcTraceMsgFromUe(GuTrace(0, 133, Fill(3))), 4) << "usPacketLen 37";
    EXPECT_EQ(gu.Operation().ProcTraceMsgFromUe(GuTrace(0, 133, Fill(4))), 0) << "38";
    EXPECT_EQ(gu.Operation().ProcTraceMsgFromUe(GuMsg(0x8004, Fill(40), 0, 1)), 4);
}

TEST(OperationGUDataInd, QueryAnswersOfNoKind)
{
    CGuFixture gu("CEDAR-03");
    EXPECT_EQ(gu.Operation().ProcQueryMsgFromUe(GuAnswer(0x80A5, 1), 0), 4);
    EXPECT_EQ(gu.Operation().ProcQueryMsgFromUe(GuAnswer(0x80A6, 1, 4), 0), 4) << "another category";
    EXPECT_EQ(gu.Operation().ProcQueryMsgFromUe(GuAnswer(0x80A6, 1), 2), 4) << "another modem";
    EXPECT_TRUE(gu.Confirms().empty());
}
