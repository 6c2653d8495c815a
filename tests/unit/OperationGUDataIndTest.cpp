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
    operation.ClearData(ALL_CHANNELS);
    EXPECT_EQ(Take(OmBlock(1, {card})), MODEM_NUM_DUAL)
        << "mode 2 stays, the search finds the mark behind a longer head";
    COperationGUData other;
    Bytes block = OmBlock(1, {card});
    other.ProcessSerialData(nullptr, block, 3);
    EXPECT_EQ(other.GetModemNum(), MODEM_NUM_DUAL) << "offset 17";
    other.ClearData(ALL_CHANNELS);
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
    EXPECT_EQ(log.Count("[INF] : error fail file:./src/data/gu/OperationGUData, line:"), 2);
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
    struct
    {
        const char* pszName;
        Bytes packet;
        size_t szConfirms; // once the version is known
        size_t szIndications;
    } const astCase[] = {
        {"confirm", GuMsg(0xB011, Fill(8)), 1, 0},
        {"confirm, second modem", GuMsg(0xB011, Fill(8), 0, 68), 1, 0},
        {"indication", GuMsg(0xB01E, Fill(8)), 0, 1},
        {"indication, second modem", GuMsg(0xB01E, Fill(8), 0, 68), 0, 1},
        {"chain", GuMsg(0xF021, Fill(8)), 1, 0},
        {"over the air", GuMsg(0xA015, Fill(8), 0, 2), 1, 0},
        {"over the air, second modem", GuMsg(0xA025, Fill(8), 0, 66), 0, 1},
        {"mode", GuAnswer(0x80A6, 1), 1, 0},
        {"trace for a processor", GuTrace(0x1120, 130, Fill(20)), 0, 1},
        {"trace of a configuration", GuTrace(8, 133, Hex("34 12 FF FF 00 00")), 0, 2},
        {"trace of a confirmation", GuTrace(0, 133, Fill(4)), 0, 2},
    };
    for (const auto& stCase : astCase)
        for (const bool bVersion : {false, true}) {
            SCOPED_TRACE(std::string(stCase.pszName) + (bVersion ? ", version known" : ""));
            CGuFixture gu(bVersion ? "TEAK-11" : "");
            gu.Request(0xE560, 81, Hex("01 00 F4 01"));
            gu.Request(0xF518, 84, Hex("01"));
            gu.Request(0xF51B, 84, Hex("01"));
            gu.Forget();
            gu.FromUe(stCase.packet);
            EXPECT_EQ(gu.Confirms().size(), bVersion ? stCase.szConfirms : 0);
            EXPECT_EQ(gu.Indications().size(), bVersion ? stCase.szIndications : 0);
        }
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
