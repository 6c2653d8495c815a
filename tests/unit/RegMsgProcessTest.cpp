#include "data/gu/reg/RegMsgProcess.h"

#include "support/RegFixture.h"
#include "support/WaitFor.h"

#include <atomic>
#include <gtest/gtest.h>
#include <set>
#include <thread>

namespace
{
using Messages = std::vector<Bytes>;

// Requests of the statistics that the tests start.
constexpr unsigned short REQ_POWER = 62729;
constexpr unsigned short REQ_TPC = 62732;
constexpr unsigned short REQ_DSCH = 62735;
constexpr unsigned short REQ_DPCCH = 62741;
constexpr unsigned short REQ_DECODING_STAT = 62756;
constexpr unsigned short REQ_DECODING_TBS = 62759;

/// Registers of the baseband bank, sorted.
std::vector<uint32_t> Bank(std::initializer_list<uint32_t> offsets)
{
    std::set<uint32_t> addrs;
    for (const uint32_t ulOffset : offsets)
        addrs.insert(CRegUe::BASE + ulOffset);
    return {addrs.begin(), addrs.end()};
}

const std::vector<uint32_t> DPCCH = Bank({0xC040, 0xC074, 0xC078});
const std::vector<uint32_t> TPC = Bank({0xC008, 0x621C, 0x6220, 0x6224, 0xCA8C, 0x8621C, 0x86220, 0x86224});
const std::vector<uint32_t> POWER_ALONE =
    Bank({0x6020, 0x60D4, 0x6188, 0x6044, 0x60F8, 0x61AC, 0x6068, 0x611C, 0x61D0, 0x608C, 0x6140, 0x61F4, 0x60B0,
          0x6164, 0x6218, 0x1A2C, 0x1A30, 0x81A2C, 0x81A30});

/// Both lists and, where they share, one entry.
std::vector<uint32_t> Union(const std::vector<uint32_t>& a, const std::vector<uint32_t>& b)
{
    std::set<uint32_t> all(a.begin(), a.end());
    all.insert(b.begin(), b.end());
    return {all.begin(), all.end()};
}

RegMap Zeros(const std::vector<uint32_t>& addrs)
{
    RegMap regs;
    for (const uint32_t ulAddr : addrs)
        regs[ulAddr] = 0;
    return regs;
}

void ExpectStatus(CRegUe& ue, unsigned short usCnfId, unsigned int ulStatus)
{
    const auto confirms = ue.Gu().Confirms();
    ASSERT_EQ(confirms.size(), 1U);
    ExpectPacket(confirms[0], {0x01540000U | usCnfId, ulStatus, 0xFFFFFFFF, 0x0154, Le(ulStatus)});
}

/// An answer in the place of a confirmation, which bears no time stamp.
void ExpectRefusal(CRegUe& ue, unsigned short usCnfId, unsigned int ulStatus)
{
    const auto confirms = ue.Gu().Confirms();
    ASSERT_EQ(confirms.size(), 1U);
    ExpectPacket(confirms[0], {0x01540000U | usCnfId, ulStatus, 0, 0x0154, Le(ulStatus)});
}

/// Both carriers active, all five subframes of each a scheduled, good frame of one stream with new data and 1000 bits.
RegMap GoodSubframes()
{
    RegMap regs;
    for (const unsigned int ulOffset : g_aulDecodingStatistics_V9)
        regs[CRegUe::BASE + ulOffset] = 0;
    const auto registers = TestFrame{.ulTbs0 = 1000}.Registers();
    for (const unsigned int ulCarrier : {CRegUe::BASE, CRegUe::BASE + 0x20000}) {
        regs[ulCarrier + 0x9070] = 1;
        for (unsigned int i = 0; i < 5; ++i)
            for (unsigned int k = 0; k < 4; ++k)
                regs[ulCarrier + 0x9700 + 0x30 * i + 4 * k] = registers[k];
    }
    return regs;
}

// Of these subframes each is scheduled, single stream and good: C0 and C1 have n of 5, 10, ... in all three counters,
// 100 % and no retransmission; the total has 2 n.
void ExpectWholeDecodingReport(ByteView payload)
{
    const unsigned int ulCount = LoadLe<uint32_t>(payload, 4); // of C0
    EXPECT_TRUE(ulCount > 0 && ulCount % 5 == 0) << ulCount;
    const auto Record = [](uint32_t n) {
        return LeWords({n, n, F(100), F(0), F(0), n, 0, F(100), F(0), F(100), F(0), F(0), F(0), F(0)});
    };
    EXPECT_EQ(Bytes(payload), Join(Le(3U), Record(ulCount), Record(ulCount), Record(2 * ulCount)));
}

// A block each of C0, C1 and the total, with one size in it: n QPSK frames, n good, n of them at the first
// transmission.
void ExpectWholeTbsReport(ByteView payload)
{
    const unsigned int ulCount = LoadLe<uint32_t>(payload, 12); // QPSK frames of C0
    EXPECT_TRUE(ulCount > 0 && ulCount % 5 == 0) << ulCount;
    const auto Block = [](uint32_t n, uint32_t ulQpsk1, float fFirstBler) {
        std::vector<uint32_t> record(31);
        record[0] = 1000;
        record[1] = record[9] = record[21] = record[25] = n;
        record[2] = ulQpsk1;
        record[17] = F(fFirstBler);
        return Join(Le(1U), LeWords(record));
    };
    // Stream 1 of the total gets the frames of C1's stream 0, and its first BLER is of C0's first good ones: 1 - n / 2
    // n.
    EXPECT_EQ(Bytes(payload),
              Join(Le(3U), Block(ulCount, 0, 0), Block(ulCount, 0, 0), Block(2 * ulCount, ulCount, 50)));
}
} // namespace

TEST(RegMsgProcess, ThirteenStatistics)
{
    struct
    {
        unsigned short usReqId;
        size_t szRegs;       // of its list, duplicates counted
        unsigned int ulLast; // offset of the last one
    } const aRow[] = {
        {62726, 62, 0x86210}, {62729, 20, 0x81A30}, {62732, 8, 0x86224},   {62735, 14, 0x4214}, {62738, 5, 0x811C},
        {62741, 3, 0xC040},   {62750, 28, 0x27C20}, {62768, 23, 0xCA8C},   {62771, 28, 0xCA8C}, {62774, 38, 0xCA8C},
        {62756, 92, 0x29070}, {62759, 92, 0x29070}, {62753, 116, 0x29070},
    };
    for (const auto& stRow : aRow) {
        SCOPED_TRACE(stRow.usReqId);
        CRegUe ue;
        CRegisterManager manager(&ue.Gu().Operation());
        MakeBasesKnown(manager);
        const CRegMsgProcess process(&manager);
        ASSERT_NE(process.Find(stRow.usReqId), nullptr);
        EXPECT_EQ(process.Find(stRow.usReqId)->GetCnfMsgId(), stRow.usReqId + 1);
        EXPECT_EQ(process.Find(stRow.usReqId)->GetIndMsgId(), stRow.usReqId + 2);
        std::vector<unsigned int> addrs;
        EXPECT_TRUE(process.Find(stRow.usReqId)->GetRegAddr(addrs));
        ASSERT_EQ(addrs.size(), stRow.szRegs);
        EXPECT_EQ(addrs.back(), WBBP + stRow.ulLast);

        ue.Gu().Forget();
        ue.Start(stRow.usReqId, 100);
        ExpectStatus(ue, static_cast<unsigned short>(stRow.usReqId + 1), 0);
    }
}

TEST(RegMsgProcess, UnknownKindsHaveThePlainRegisters)
{
    CGuFixture gu;
    CRegisterManager manager(&gu.Operation());
    MakeBasesKnown(manager);
    const CRegMsgProcess process(&manager);
    struct
    {
        unsigned short usReqId;
        unsigned int ulLast;
    } const aRow[] = {{62735, 0x4214},  {62738, 0x711C},  {62750, 0x87C20},
                      {62756, 0x88070}, {62759, 0x88070}, {62753, 0x88070}};
    for (const auto& stRow : aRow) {
        std::vector<unsigned int> addrs;
        EXPECT_TRUE(process.Find(stRow.usReqId)->GetRegAddr(addrs));
        EXPECT_EQ(addrs.back(), WBBP + stRow.ulLast) << stRow.usReqId;
    }
    std::vector<unsigned int> dsch;
    EXPECT_TRUE(process.Find(62735)->GetRegAddr(dsch));
    EXPECT_EQ(dsch.front(), WBBP + 0x8074);
}

TEST(RegMsgProcess, StartAndStopOfOne)
{
    CRegUe ue;
    ue.Start(REQ_DPCCH, 100);
    EXPECT_EQ(ue.Gu().ToUe(), (Messages{StopStream(0), AddRegs(0, DPCCH)}));
    ExpectStatus(ue, 62742, 0);
    ue.Stop(REQ_DPCCH);
    EXPECT_EQ(ue.Gu().ToUe(), (Messages{StopStream(0), RemoveRegs(0, DPCCH)}));
    ExpectStatus(ue, 62742, 0);
}

TEST(RegMsgProcess, TwoThatShareARegister)
{
    CRegUe ue;
    const auto both = Union(TPC, POWER_ALONE);
    ue.Start(REQ_TPC, 100);
    EXPECT_EQ(ue.Gu().ToUe(), (Messages{StopStream(0), AddRegs(0, TPC)}));
    ue.Start(REQ_POWER, 100);
    EXPECT_EQ(ue.Gu().ToUe(), (Messages{StopStream(0), AddRegs(0, both)})) << "the complete list again";
    ue.Stop(REQ_POWER);
    EXPECT_EQ(ue.Gu().ToUe(), (Messages{StopStream(0), RemoveRegs(0, POWER_ALONE), AddRegs(0, TPC)}));
    ue.Stop(REQ_TPC);
    EXPECT_EQ(ue.Gu().ToUe(), (Messages{StopStream(0), RemoveRegs(0, TPC)}));
}

TEST(RegMsgProcess, ASecondStartTakesTwoStops)
{
    CRegUe ue;
    ue.Start(REQ_DPCCH, 100);
    ue.Gu().Forget();
    ue.Start(REQ_DPCCH, 200);
    EXPECT_EQ(ue.Gu().ToUe(), (Messages{StopStream(0), AddRegs(0, DPCCH)}));
    ue.Stop(REQ_DPCCH);
    EXPECT_EQ(ue.Gu().ToUe(), (Messages{StopStream(0), AddRegs(0, DPCCH)})) << "still counted once";
    ue.Stop(REQ_DPCCH);
    EXPECT_EQ(ue.Gu().ToUe(), (Messages{StopStream(0), RemoveRegs(0, DPCCH)}));
}

TEST(RegMsgProcess, AStopOfOneThatWasNeverStarted)
{
    CRegUe ue;
    ue.Stop(REQ_DPCCH);
    EXPECT_EQ(ue.Gu().ToUe(), (Messages{StopStream(0), RemoveRegs(0, DPCCH)}));
    ExpectStatus(ue, 62742, 0);
    // It takes the register that it shares away from one that runs.
    ue.Start(REQ_TPC, 100);
    ue.Gu().Forget();
    ue.Stop(REQ_POWER);
    auto rest = TPC;
    std::erase(rest, CRegUe::BASE + 0xC008);
    EXPECT_EQ(ue.Gu().ToUe(),
              (Messages{StopStream(0), RemoveRegs(0, Union(POWER_ALONE, {CRegUe::BASE + 0xC008})), AddRegs(0, rest)}));
}

TEST(RegMsgProcess, ARegisterTwiceInAListCountsTwice)
{
    // Of known kinds, the link statistics have the third words of the blocks 0, 2, 3 and 4 twice in each half.
    CRegUe ue;
    ue.Start(62753, 100);
    const Messages sent = ue.Gu().ToUe();
    ASSERT_EQ(sent.size(), 2U);
    EXPECT_EQ(LoadLe<uint32_t>(sent[1], 32), 116U - 8);
    ue.Stop(62753);
    EXPECT_EQ(LoadLe<uint32_t>(ue.Gu().ToUe().at(1), 24), 62723U) << "one stop takes both counts back";
}

TEST(RegMsgProcess, Periods)
{
    CRegUe ue;
    for (const unsigned short usPeriod : Words{0, 99, 2001, 0xFFFF}) {
        ue.Start(REQ_DPCCH, usPeriod);
        EXPECT_TRUE(ue.Gu().ToUe().empty()) << usPeriod;
        ExpectStatus(ue, 62742, 2);
    }
    for (const unsigned short usPeriod : Words{100, 2000}) {
        ue.Start(REQ_DPCCH, usPeriod);
        EXPECT_EQ(ue.Gu().ToUe().size(), 2U) << usPeriod;
        ExpectStatus(ue, 62742, 0);
    }
}

TEST(RegMsgProcess, RequestsThatAreNone)
{
    CRegUe ue;
    ue.Request(REQ_DPCCH, Hex("02 00 64 00"));
    EXPECT_TRUE(ue.Gu().ToUe().empty());
    ExpectRefusal(ue, 62742, 2);
    for (const unsigned short usId : Words{62727, 62728, 62745, 62776}) {
        ue.Start(usId, 100);
        EXPECT_TRUE(ue.Gu().ToUe().empty() && ue.Gu().Confirms().empty()) << usId;
    }
}

TEST(RegMsgProcess, ShortRequestsReadAsZero)
{
    CRegUe ue;
    ue.Request(REQ_DPCCH, Hex("01 00 64"));
    EXPECT_EQ(ue.Gu().ToUe(), (Messages{StopStream(0), AddRegs(0, DPCCH)})) << "a period of 100";
    ExpectStatus(ue, 62742, 0);
    ue.Request(REQ_DPCCH, Hex("01"));
    ExpectStatus(ue, 62742, 2);
    ue.Request(REQ_DPCCH, Hex("00"));
    EXPECT_EQ(ue.Gu().ToUe(), (Messages{StopStream(0), RemoveRegs(0, DPCCH)}));
}

TEST(RegMsgProcess, NoServiceWithoutBases)
{
    CRegUe ue;
    ue.Gu().FromUe(GuAnswer(0x80A6, 0)); // another mode: the HSUPA base is forgotten
    ue.Gu().Forget();
    for (const Bytes& params : {Hex("01 00 64 00"), Hex("00 00 00 00"), Hex("02 00 00 00")}) {
        ue.Request(REQ_DPCCH, params);
        EXPECT_TRUE(ue.Gu().ToUe().empty());
        ExpectRefusal(ue, 62742, 4);
    }
}

// Seven fields of A = 0x00050506, B = 0x1234, C = 0x0C41 (1, 2, 3).
TEST(RegMsgProcess, AReport)
{
    CRegUe ue;
    ue.Start(REQ_DPCCH, 100);
    ue.Stream(Zeros(DPCCH));
    ue.Reg(0xC074) = 0x00050506;
    ue.Reg(0xC078) = 0x1234;
    ue.Reg(0xC040) = 3 << 10 | 2 << 5 | 1;
    ue.Gu().Forget();
    ue.Indicate(1000);
    const auto indications = ue.Gu().Indications();
    ASSERT_EQ(indications.size(), 1U);
    ExpectPacket(indications[0],
                 {0x0154F517, indications[0].stHead.ulRc, 32768, 0x0154, LeWords({5, 5, 6, 0x1234, 1, 2, 3})});
    ue.Indicate(1100);
    const auto next = ue.Gu().Indications();
    ASSERT_EQ(next.size(), 1U);
    EXPECT_EQ(next[0].stHead.ulRc, indications[0].stHead.ulRc + 1) << "the message SN";
    EXPECT_EQ(next[0].stHead.ullTimeStamp, Ticks(1100));
    EXPECT_TRUE(ue.Gu().Confirms().empty());
}

// A report at 1000, indications every 10 ms: the next one is due at 1095 by the clock of the UE, so at 1100; at a
// pace of 19 ms at 1095 itself.
TEST(RegMsgProcess, ThePeriodThinsTheReportsOut)
{
    CRegUe ue;
    ue.Start(REQ_DPCCH, 100);
    ue.Stream(Zeros(DPCCH));
    ue.Indicate(1000);
    EXPECT_EQ(ue.Gu().Indications().size(), 1U);
    for (unsigned int ulMs = 1010; ulMs < 1100; ulMs += 10) {
        ue.Indicate(ulMs);
        EXPECT_TRUE(ue.Gu().Indications().empty()) << ulMs;
    }
    ue.Indicate(1100);
    EXPECT_EQ(ue.Gu().Indications().size(), 1U);
    ue.Indicate(1194);
    EXPECT_TRUE(ue.Gu().Indications().empty());
    ue.Indicate(1195);
    EXPECT_EQ(ue.Gu().Indications().size(), 1U);
}

TEST(RegMsgProcess, ABadStartKeepsTheOldPeriodAndAGoodOneTheNew)
{
    CRegUe ue;
    ue.Start(REQ_DPCCH, 100);
    ue.Stream(Zeros(DPCCH));
    ue.Indicate(1000);
    ue.Start(REQ_DPCCH, 99);
    ue.Gu().Forget();
    ue.Indicate(1100);
    EXPECT_EQ(ue.Gu().Indications().size(), 1U);
    ue.Start(REQ_DPCCH, 500);
    ue.Gu().Forget();
    ue.Indicate(1200);
    EXPECT_TRUE(ue.Gu().Indications().empty());
    ue.Indicate(1600);
    EXPECT_EQ(ue.Gu().Indications().size(), 1U);
}

TEST(RegMsgProcess, NoResultNoPacketButTheTimeIsUsedUp)
{
    CRegUe ue;
    ue.Start(REQ_DPCCH, 100);
    ue.Stream({{CRegUe::BASE + 0xC074, 0}});
    ue.Indicate(1000);
    EXPECT_TRUE(ue.Gu().Indications().empty());
    ue.Stream(Zeros(DPCCH));
    ue.Indicate(1050);
    EXPECT_TRUE(ue.Gu().Indications().empty());
    ue.Indicate(1100);
    EXPECT_EQ(ue.Gu().Indications().size(), 1U);
}

TEST(RegMsgProcess, AStoppedOneIsSilentAndItsLastReportIsRemembered)
{
    CRegUe ue;
    ue.Start(REQ_DPCCH, 100);
    ue.Stream(Zeros(DPCCH));
    ue.Indicate(1000);
    ue.Indicate(1050); // stored, not due
    ue.Stop(REQ_DPCCH);
    ue.Gu().Forget();
    ue.Indicate(1200);
    EXPECT_TRUE(ue.Gu().Indications().empty());
    ue.Start(REQ_DPCCH, 500);
    ue.Gu().Forget();
    ue.Indicate(1400);
    EXPECT_TRUE(ue.Gu().Indications().empty()) << "500 ms from the report at 1000";
    ue.Indicate(1500);
    EXPECT_EQ(ue.Gu().Indications().size(), 1U);
}

TEST(RegMsgProcess, AResultGoesOutOnce)
{
    CRegUe ue;
    ue.Start(REQ_DPCCH, 100);
    ue.Stream(Zeros(DPCCH));
    ue.Indicate(1000);
    EXPECT_EQ(ue.Gu().Indications().size(), 1U);
    ue.Stream({{CRegUe::BASE + 0xC074, 0}});
    ue.Indicate(1100);
    EXPECT_TRUE(ue.Gu().Indications().empty()) << "due, but no new result";
}

TEST(RegMsgProcess, AStopForgetsTheStoredResult)
{
    CRegUe ue;
    ue.Start(REQ_DPCCH, 100);
    ue.Stream(Zeros(DPCCH));
    ue.Indicate(1000);
    ue.Indicate(1050); // stored, not due
    ue.Stop(REQ_DPCCH);
    ue.Start(REQ_DPCCH, 100);
    ue.Stream({{CRegUe::BASE + 0xC074, 0}});
    ue.Gu().Forget();
    ue.Indicate(1200);
    EXPECT_TRUE(ue.Gu().Indications().empty());
}

TEST(RegMsgProcess, TheFirstReportIsDueByTheCounterOfTheUe)
{
    CRegUe ue;
    ue.Start(REQ_DPCCH, 2000);
    ue.Stream(Zeros(DPCCH));
    ue.Indicate(1990);
    EXPECT_TRUE(ue.Gu().Indications().empty()) << "the last report counts as sent at 0";
    ue.Indicate(1995);
    EXPECT_EQ(ue.Gu().Indications().size(), 1U);
}

TEST(RegMsgProcess, AllRunningOnesReportInTheOrderOfTheirIds)
{
    CRegUe ue;
    for (const unsigned short usId : Words{REQ_DECODING_TBS, REQ_DPCCH, REQ_TPC, REQ_DSCH})
        ue.Start(usId, 100);
    RegMap regs;
    for (const Bytes& msg : ue.Gu().ToUe())
        for (size_t szAt = 36; LoadLe<uint32_t>(msg, 24) == 62722 && szAt < msg.size(); szAt += 4)
            regs[LoadLe<uint32_t>(msg, szAt)] = 0;
    EXPECT_EQ(regs.size(), 92U + 3 + 8 + 14);
    ue.Stream(regs);
    ue.Indicate(1000);
    std::vector<unsigned int> ids;
    for (const auto& packet : ue.Gu().Indications())
        ids.push_back(packet.stHead.ulCmdId & 0xFFFF);
    EXPECT_EQ(ids, (std::vector<unsigned int>{62734, 62737, 62743, 62761}));
}

// Positions in the list are kept from one indication to the next; a new list has its own.
TEST(RegMsgProcess, ANewListIsLookedUpAnew)
{
    CRegUe ue;
    ue.Start(REQ_DPCCH, 100);
    ue.Stream(Zeros(DPCCH));
    ue.Reg(0xC078) = 11;
    ue.Indicate(1000);
    auto regs = Zeros(Union(DPCCH, {CRegUe::BASE + 0x10, CRegUe::BASE + 0xC075}));
    regs[CRegUe::BASE + 0xC078] = 12;
    ue.Stream(regs);
    ue.Indicate(1100);
    const auto indications = ue.Gu().Indications();
    ASSERT_EQ(indications.size(), 2U);
    EXPECT_EQ(LoadLe<uint32_t>(indications[0].payload, 12), 11U);
    EXPECT_EQ(LoadLe<uint32_t>(indications[1].payload, 12), 12U);
}

TEST(RegMsgProcess, TheSecondListServesToo)
{
    CRegUe ue;
    ue.Start(REQ_DPCCH, 100);
    ue.Gu().FromUe(RegCnf(62724, 1, 0, DPCCH));
    ue.Gu().Forget();
    ue.Gu().FromUe(RegInd({1, 2, 3}, Ticks(1000), 122));
    EXPECT_EQ(ue.Gu().Indications().size(), 1U);
}

// An unknown kind counts down: its stamp leaves as the complement. ~(0 - 32768) is 32767: just under a second.
TEST(RegMsgProcess, StampsOfUnknownKindsAreComplements)
{
    CGuFixture gu("OTHER-99");
    CRegisterManager manager(&gu.Operation());
    MakeBasesKnown(manager);
    manager.ProcessRegReqPacket(REQ_DPCCH, Hex("01 00 64 00"));
    manager.ProcessRegCnfMsg(RegCnf(62724, 0, 0, {WBBP + 0xC040, WBBP + 0xC074, WBBP + 0xC078}));
    gu.Forget();
    manager.ProcessRegIndMsg(RegInd({0, 0, 0}, 0U - 32768));
    manager.ProcessRegIndMsg(RegInd({0, 0, 0}, 0U - 32768 - 1000));
    const auto indications = gu.Indications();
    ASSERT_EQ(indications.size(), 1U);
    EXPECT_EQ(indications[0].stHead.ullTimeStamp, 32767U);
}

// The stamp of a table per size is set by whole samples only. A report turns it into real time; the next report,
// without such a sample in between, turns it on its way once more: the complement of the complement.
TEST(RegMsgProcess, AStampThatIsUsedTwiceIsTurnedTwice)
{
    CGuFixture gu("OTHER-99");
    CRegisterManager manager(&gu.Operation());
    MakeBasesKnown(manager);
    manager.ProcessRegReqPacket(REQ_DECODING_TBS, Hex("01 00 64 00"));
    std::vector<uint32_t> addrs;
    for (const unsigned int ulOffset : g_aulDecodingStatistics)
        addrs.push_back(WBBP + ulOffset);
    std::ranges::sort(addrs);
    manager.ProcessRegCnfMsg(RegCnf(62724, 0, 0, addrs));
    gu.Forget();
    manager.ProcessRegIndMsg(RegInd(std::vector<uint32_t>(addrs.size(), 0), ~40000U));
    manager.ProcessRegCnfMsg(RegCnf(62724, 0, 0, {1}));
    manager.ProcessRegIndMsg(RegInd({0}, ~80000U));
    const auto indications = gu.Indications();
    ASSERT_EQ(indications.size(), 2U);
    EXPECT_EQ(indications[0].stHead.ullTimeStamp, 40000U);
    EXPECT_EQ(indications[1].stHead.ullTimeStamp, ~40000U);
    EXPECT_EQ(indications[1].payload, Le(0U));
}

TEST(RegMsgProcess, AModeChangeForgetsRunningStatistics)
{
    CRegUe ue;
    ue.Start(REQ_DPCCH, 100);
    ue.Stream(Zeros(DPCCH));
    ue.Indicate(1000);
    ue.Gu().FromUe(GuAnswer(0x80A6, 0));
    ue.Gu().Forget();
    ue.Indicate(1200);
    EXPECT_TRUE(ue.Gu().Indications().empty()) << "the lists are empty";
    EXPECT_TRUE(ue.Gu().ToUe().empty());
    // Back in mode 0 with a new base: the client's next start sends its registers alone.
    ue.Gu().FromUe(GuAnswer(0x80A6, 1));
    ue.Confirm({CRegUe::SHARE + 4, CRegUe::SHARE + 8});
    ue.Gu().FromUe(RegInd({0, WUPA}));
    ue.Gu().Forget();
    ue.Start(REQ_TPC, 100);
    EXPECT_EQ(ue.Gu().ToUe(), (Messages{StopStream(0), AddRegs(0, TPC)}));
}

// A report of more than 65535 bytes leaves cut to the rest above whole multiples of 65536. 530 sizes give, with one
// carrier, 4 + 4 + 530 x 124 = 65728 bytes: 192 leave.
TEST(RegMsgProcess, TheLengthOfAReportHasSixteenBits)
{
    CRegUe ue;
    ue.Start(REQ_DECODING_TBS, 100);
    RegMap regs;
    for (const unsigned int ulOffset : g_aulDecodingStatistics_V9)
        regs[CRegUe::BASE + ulOffset] = 0;
    ue.Stream(regs);
    ue.Reg(0x9070) = 1;
    for (unsigned int i = 0; i < 106; ++i) {
        for (unsigned int k = 0; k < 5; ++k) {
            const auto registers = TestFrame{.ulTbs0 = 1 + 5 * i + k}.Registers();
            for (unsigned int j = 0; j < 4; ++j)
                ue.Reg(0x9700 + 0x30 * k + 4 * j) = registers[j];
        }
        ue.Indicate(i == 105 ? 1000 : 0);
    }
    const auto indications = ue.Gu().Indications();
    ASSERT_EQ(indications.size(), 1U);
    EXPECT_EQ(indications[0].payload.size(), 192U);
    EXPECT_EQ(LoadLe<uint32_t>(indications[0].payload, 4), 530U) << "the count still tells all";
}

// The client's requests come on the main thread. A mode answer on the other thread makes the HSUPA base unknown between
// the request's look at the bases and what it sends: held at the statistic's lock, the request is just there. When it
// came too late for that it is refused with 4, and it is tried again.
TEST(RegMsgProcess, AModeChangeUnderARequest)
{
    CGuFixture gu("CEDAR-03C10");
    CRegisterManager manager(&gu.Operation());
    CRegMsgProcess process(&manager);
    MODE_ENUM enMode = MODE_0;
    const auto Status = [&](const Bytes& params, int iYields) {
        MakeBasesKnown(manager);
        gu.Forget();
        std::thread request;
        {
            const xtl::MutexGuard guard(process.Find(REQ_DPCCH)->Mutex());
            request = std::thread([&] { process.ProcessRegReqPacket(REQ_DPCCH, params); });
            for (int i = 0; i < iYields; ++i)
                std::this_thread::yield();
            enMode = enMode == MODE_0 ? MODE_1 : MODE_0;
            EXPECT_TRUE(manager.ChangeRegListByMode(enMode));
        }
        request.join();
        EXPECT_EQ(gu.ToUe(), (Messages{AskForList(1), AskForList(0)})) << "nothing of the request";
        const auto confirms = gu.Confirms();
        EXPECT_EQ(confirms.size(), 1U);
        return confirms.empty() ? 0 : LoadLe<uint32_t>(confirms[0].payload, 0);
    };
    for (const Bytes& params : {Hex("01 00 64 00"), Hex("00 00 00 00")}) {
        unsigned int ulStatus = 4;
        for (int iYields = 1; ulStatus == 4 && iYields < 1 << 20; iYields *= 2)
            ulStatus = Status(params, iYields);
        EXPECT_EQ(ulStatus, 46U);
        EXPECT_EQ(process.Find(REQ_DPCCH)->GetPeriod(), params[0] == 1 ? 100 : 0);
    }
}

// What a start or stop changes and what a sample with its report does never mix.
TEST(RegMsgProcess, ReportsAreWholeWhileTheirStatisticsStartAndStop)
{
    CRegUe ue;
    ue.Stream(GoodSubframes());
    std::atomic<bool> bEnd = false;
    std::atomic<unsigned int> ulFed = 0;
    std::atomic<unsigned int> ulRead = 0; // indications whose reports have been read
    std::thread messages([&] {
        while (!bEnd) {
            if (ulFed - ulRead < 100) // the reports of so many are sure to fit the client's socket
                ue.Indicate(50 * ++ulFed);
            else
                std::this_thread::yield();
        }
    });
    unsigned int ulReports[2] = {};
    const auto ReadReports = [&] {
        const unsigned int ulBefore = ulFed;
        while (const auto packet = ue.Gu().Data().Read(std::chrono::milliseconds(5))) {
            const bool bTbs = (packet->stHead.ulCmdId & 0xFFFF) == REQ_DECODING_TBS + 2U;
            (bTbs ? ExpectWholeTbsReport : ExpectWholeDecodingReport)(packet->payload);
            ++ulReports[bTbs ? 1 : 0];
        }
        ulRead = ulBefore == 0 ? 0 : ulBefore - 1; // the last one may be under way
    };
    for (int i = 0; i < 100 && !testing::Test::HasFailure(); ++i) {
        for (const unsigned short usId : {REQ_DECODING_STAT, REQ_DECODING_TBS})
            ue.Start(usId, 100);
        const auto aulBefore = std::to_array(ulReports);
        EXPECT_TRUE(WaitFor([&] {
            ReadReports();
            return ulReports[0] > aulBefore[0] && ulReports[1] > aulBefore[1];
        })) << "both report";
        for (const unsigned short usId : {REQ_DECODING_STAT, REQ_DECODING_TBS})
            ue.Stop(usId);
        (void)ue.Gu().ToUe();
        (void)ue.Gu().Cmd().Pending();
    }
    bEnd = true;
    messages.join();
}

// The main thread starts and stops statistics while indications, lists and mode changes arrive.
TEST(RegMsgProcess, RequestsAndIndicationsOnTwoThreads)
{
    CRegUe ue;
    RegMap regs = Zeros(Union(DPCCH, TPC));
    std::thread messages([&] {
        for (unsigned int i = 1; i <= 300; ++i) {
            if (i % 10 == 1)
                ue.Gu().FromUe(RegCnf(62724, 0, 0, Addresses(regs)));
            ue.Gu().FromUe(RegInd(Values(regs), Ticks(100 * i)));
            if (i % 50 == 0)
                ue.Gu().FromUe(GuAnswer(0x80A6, i % 100 == 0 ? 1 : 0));
        }
    });
    for (int i = 0; i < 100; ++i) {
        for (const unsigned short usId : Words{REQ_DPCCH, REQ_TPC, REQ_POWER}) {
            ue.Start(usId, 100);
            ue.Stop(usId);
        }
        (void)ue.Gu().ToUe();
        (void)ue.Gu().Cmd().Pending();
        (void)ue.Gu().Data().Pending();
    }
    messages.join();
}
