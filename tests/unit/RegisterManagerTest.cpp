#include "data/gu/reg/RegisterManager.h"

#include "support/LogCapture.h"
#include "support/RegFixture.h"

#include <gtest/gtest.h>
#include <numeric>

namespace
{
using namespace std::chrono_literals;
using Messages = std::vector<Bytes>;

/// A moment on the agent's clock.
CRegisterManager::Clock::time_point AtMs(unsigned int ulMs)
{
    return CRegisterManager::Clock::time_point(std::chrono::milliseconds(ulMs));
}

/// The five words of the DSP's query block.
std::vector<uint32_t> QueryBlock(unsigned int ulQuery)
{
    return {ulQuery, ulQuery + 4, ulQuery + 0x18, ulQuery + 0x7C, ulQuery + 0xC};
}

/// A manager of its own beside the UE's, with all bases known and a clean line.
class CManagerBench
{
public:
    CManagerBench()
    {
        MakeBasesKnown(m_manager);
        m_gu.Forget();
    }
    CRegisterManager* operator->() { return &m_manager; }
    Messages ToUe() { return m_gu.ToUe(); }
    CGuFixture& Gu() { return m_gu; }

private:
    CGuFixture m_gu{"CEDAR-03C10"};
    CRegisterManager m_manager{&m_gu.Operation()};
};

std::vector<uint32_t> Ascending(uint32_t ulFirst, size_t szCount)
{
    std::vector<uint32_t> addrs(szCount);
    std::iota(addrs.begin(), addrs.end(), ulFirst);
    return addrs;
}

/// Messages of several segments, joined again.
Bytes Joined(const Messages& segments)
{
    Bytes all;
    for (const Bytes& segment : segments)
        all = Join(all, segment);
    return all;
}
} // namespace

TEST(RegisterManager, RequestBytes)
{
    CManagerBench manager;
    manager->UpdateRegRefMap({0x11223344}, true, MODE_0);
    EXPECT_TRUE(manager->SendAllRegReq(true, MODE_0));
    EXPECT_EQ(manager.ToUe(), (Messages{Hex("04 00 1C 00  00 00 00 00  69 00 00 00  00 00 00 00"
                                            "6E 00 00 00  08 00 00 00  10 30 00 00  00 00 00 00"),
                                        Hex("04 00 24 00  00 00 00 00  69 00 00 00  00 00 00 00"
                                            "6E 00 00 00  10 00 00 00  02 F5 00 00  00 00 00 00"
                                            "01 00 00 00  44 33 22 11")}));
    manager->SendCmdOfSdtStatus();
    manager->DspShareAddrQuery();
    EXPECT_EQ(manager.ToUe(), (Messages{TransReq(65027, 201, Le(1U)), TransReq(65025, 201, Le(0U))}));
}

TEST(RegisterManager, TheVersionMessageStartsTheService)
{
    CGuFixture gu;
    gu.FromUe(GuVersion("CEDAR-03C10B001"));
    const Messages sent = gu.ToUe();
    ASSERT_GE(sent.size(), 6U);
    EXPECT_EQ(Messages(sent.begin(), sent.begin() + 6),
              (Messages{StopStream(1), StopStream(0), AskForList(1), AskForList(0), TransReq(65027, 201, Le(1U)),
                        TransReq(65025, 201, Le(0U))}));
}

TEST(RegisterManager, AVersionWithoutARowGetsNoService)
{
    CGuFixture gu;
    gu.FromUe(GuVersion("CEDAR-01-A1"));
    const Messages sent = gu.ToUe();
    ASSERT_GE(sent.size(), 4U);
    for (const Bytes& msg : sent)
        EXPECT_NE(LoadLe<uint32_t>(msg, 24), 65025U);
    gu.FromUe(GuMsg(0xFE02, Le(0x20000000U)));
    gu.FromUe(GuAnswer(0x80A6, 1));
    gu.Forget();
    gu.Request(62741, 84, Hex("01 00 64 00"));
    const auto confirms = gu.Confirms();
    ASSERT_EQ(confirms.size(), 1U);
    ExpectPacket(confirms[0], {0x0154F516, 4, 0, 0x0154, Le(4U)});
}

TEST(RegisterManager, TheModeAnswerAsksForListsAndQueryBlock)
{
    CLogCapture log;
    CGuFixture gu("CEDAR-03C10");
    gu.FromUe(GuMsg(0xFE02, Le(0x20000000U)));
    gu.Forget();
    gu.FromUe(GuAnswer(0x80A6, 1)); // mode 0
    EXPECT_EQ(gu.ToUe(), (Messages{AskForList(1), AskForList(0), AddRegs(0, QueryBlock(0x20000004))}));
    EXPECT_TRUE(log.Saw("Begin query DSP base addr info Mode= 0, ulWDSPQueryAddr=0x20000004"));
    gu.FromUe(GuAnswer(0x80A6, 1));
    EXPECT_EQ(gu.ToUe(), (Messages{AddRegs(0, QueryBlock(0x20000004))})) << "no change, but no HSUPA base yet";
    gu.FromUe(GuAnswer(0x80A6, 0)); // mode 1
    EXPECT_EQ(gu.ToUe(), (Messages{AskForList(1), AskForList(0), AddRegs(1, QueryBlock(0x20000004))}));
    gu.FromUe(GuAnswer(0x80A6, 9)); // no mode
    EXPECT_EQ(gu.ToUe(), (Messages{AskForList(1), AskForList(0)}));
    EXPECT_TRUE(log.Saw("Begin query DSP base addr info Mode= 2, ulWDSPQueryAddr=0x20000004"));
}

TEST(RegisterManager, WithoutAQueryAddressNothingIsAsked)
{
    CGuFixture gu("CEDAR-03C10");
    gu.FromUe(GuAnswer(0x80A6, 1));
    EXPECT_EQ(gu.ToUe(), (Messages{AskForList(1), AskForList(0)}));
}

TEST(RegisterManager, TheShareAddress)
{
    CRegisterManager manager(nullptr);
    manager.RefreshWdspQueryAddr(Join(Fill(16), Hex("00 00 00")));
    EXPECT_EQ(manager.GetBaseAddr().ulWDSPQueryAddr, 0xFFFFFFFFU) << "19 bytes";
    manager.RefreshWdspQueryAddr(Join(Fill(16), Le(0x20000000U)));
    EXPECT_EQ(manager.GetBaseAddr().ulWDSPQueryAddr, 0x20000004U);
    EXPECT_EQ(manager.GetBaseAddr().ulWDSPInfoAddr, 0x20000020U);
    EXPECT_EQ(manager.GetTimeSlotAddr(), 0x2000000CU);
}

TEST(RegisterManager, LearnsTheHsupaBase)
{
    CGuFixture gu("CEDAR-03C10");
    CRegisterManager manager(&gu.Operation());
    manager.SetBaseAddr(WBBP, 0, WDSP_QUERY, 0, TIME_SLOT);
    (void)manager.ChangeRegListByMode(MODE_0);
    manager.ProcessRegCnfMsg(RegCnf(62724, 0, 0, {WDSP_QUERY, WDSP_QUERY + 8}));
    gu.Forget();
    manager.ProcessRegIndMsg(RegInd({0, 0}));
    EXPECT_FALSE(manager.CheckBaseAddrOK()) << "the second word isn't there";
    manager.ProcessRegCnfMsg(RegCnf(62724, 0, 0, {WDSP_QUERY + 4}));
    manager.ProcessRegIndMsg(RegInd({0x30000000}));
    EXPECT_FALSE(manager.CheckBaseAddrOK()) << "the first word isn't there";
    EXPECT_TRUE(gu.ToUe().empty());
    EXPECT_FALSE(manager.BaseAddrValid());

    manager.ProcessRegCnfMsg(RegCnf(62724, 0, 0, {WDSP_QUERY, WDSP_QUERY + 4}));
    manager.ProcessRegIndMsg(RegInd({0, 0x30000000}));
    EXPECT_EQ(manager.GetBaseAddr().ulWUPABaseAddr, 0x30000000U);
    EXPECT_TRUE(manager.CheckBaseAddrOK());
    EXPECT_TRUE(manager.BaseAddrValid());
    EXPECT_EQ(gu.ToUe(), (Messages{RemoveRegs(0, QueryBlock(WDSP_QUERY))}));
    manager.ProcessRegIndMsg(RegInd({0, 0x40000000}));
    EXPECT_EQ(manager.GetBaseAddr().ulWUPABaseAddr, 0x30000000U) << "learned once";
    EXPECT_TRUE(gu.ToUe().empty());
}

TEST(RegisterManager, AFirstWordOtherThanZeroMakesTheBaseZero)
{
    CRegisterManager manager(nullptr);
    manager.SetBaseAddr(WBBP, 0, WDSP_QUERY, 0, TIME_SLOT);
    manager.ProcessRegCnfMsg(RegCnf(62724, 0, 0, {WDSP_QUERY, WDSP_QUERY + 4}));
    manager.ProcessRegIndMsg(RegInd({7, 0x30000000}));
    EXPECT_EQ(manager.GetBaseAddr().ulWUPABaseAddr, 0U);
    EXPECT_TRUE(manager.BaseAddrValid());
}

TEST(RegisterManager, UnknownBasesAndTheirLines)
{
    const auto Missing = [](unsigned int ulWbbp, unsigned int ulGbbp, unsigned int ulQuery) {
        CLogCapture log;
        CRegisterManager manager(nullptr);
        manager.SetBaseAddr(ulWbbp, ulGbbp, ulQuery, 0, 0);
        EXPECT_FALSE(manager.BaseAddrValid());
        (void)log.Saw("is valid");
        return log.Text();
    };
    constexpr unsigned int UNKNOWN = 0xFFFFFFFF;
    EXPECT_NE(Missing(UNKNOWN, UNKNOWN, UNKNOWN).find(" [WAN] : ulGBBPBaseAddr is valid\n"), std::string::npos);
    EXPECT_EQ(Missing(UNKNOWN, UNKNOWN, UNKNOWN).find("ulWBBPBaseAddr"), std::string::npos) << "the first only";
    EXPECT_NE(Missing(UNKNOWN, 0, UNKNOWN).find(" [WAN] : ulWBBPBaseAddr is valid\n"), std::string::npos);
    EXPECT_NE(Missing(0, 0, UNKNOWN).find(" [WAN] : ulWDSPQueryAddr is valid\n"), std::string::npos);
    EXPECT_NE(Missing(0, 0, 0).find(" [WAN] : ulWUPABaseAddr is valid\n"), std::string::npos);
}

TEST(RegisterManager, CountsDecideWhatIsAddedAndRemoved)
{
    CManagerBench manager;
    manager->UpdateRegRefMap({30, 10, 20, 10}, true, MODE_0);
    EXPECT_TRUE(manager->SendAllRegReq(false, MODE_0)) << "the flag has no influence";
    EXPECT_EQ(manager.ToUe(), (Messages{StopStream(0), AddRegs(0, {10, 20, 30})}));
    manager->UpdateRegRefMap({10, 20}, false, MODE_0);
    EXPECT_TRUE(manager->SendAllRegReq(true, MODE_0));
    EXPECT_EQ(manager.ToUe(), (Messages{StopStream(0), RemoveRegs(0, {20}), AddRegs(0, {10, 30})}))
        << "10 was counted twice";
    manager->UpdateRegRefMap({10, 30, 5}, false, MODE_0);
    EXPECT_TRUE(manager->SendAllRegReq(true, MODE_0));
    EXPECT_EQ(manager.ToUe(), (Messages{StopStream(0), RemoveRegs(0, {5, 10, 30})})) << "5 was never there";
    EXPECT_FALSE(manager->SendAllRegReq(true, MODE_0)) << "nothing is left";
    EXPECT_TRUE(manager.ToUe().empty());
    manager->UpdateRegRefMap({7}, false, MODE_0);
    manager->UpdateRegRefMap({7}, true, MODE_0);
    EXPECT_TRUE(manager->SendAllRegReq(true, MODE_0));
    EXPECT_EQ(manager.ToUe(), (Messages{StopStream(0), AddRegs(0, {7})})) << "counts end at 0 downwards";
}

TEST(RegisterManager, ModesOfCounts)
{
    CManagerBench manager;
    manager->UpdateRegRefMap({1}, true, MODE_1);
    manager->UpdateRegRefMap({2}, true, MODE_NONE);
    manager->UpdateRegRefMap({2}, false, MODE_NONE);
    EXPECT_FALSE(manager->SendAllRegReq(true, MODE_0));
    EXPECT_FALSE(manager->SendAllRegReq(true, MODE_NONE));
    EXPECT_TRUE(manager.ToUe().empty());
    EXPECT_TRUE(manager->SendAllRegReq(true, MODE_1));
    EXPECT_EQ(manager.ToUe(), (Messages{StopStream(1), AddRegs(1, {1})}));
    manager->SetBaseAddr(WBBP, 0xFFFFFFFF, WDSP_QUERY, 0, TIME_SLOT);
    EXPECT_FALSE(manager->SendAllRegReq(true, MODE_1)) << "a base is unknown";
    EXPECT_TRUE(manager.ToUe().empty());
}

TEST(RegisterManager, ListsAreCutIntoPiecesOf1024)
{
    CManagerBench manager;
    manager->UpdateRegRefMap(Ascending(1, 1024), true, MODE_0);
    EXPECT_TRUE(manager->SendAllRegReq(true, MODE_0));
    EXPECT_EQ(Joined(manager.ToUe()), Join(StopStream(0), AddRegs(0, Ascending(1, 1024))));
    manager->UpdateRegRefMap({5000}, true, MODE_0);
    EXPECT_TRUE(manager->SendAllRegReq(true, MODE_0));
    EXPECT_EQ(Joined(manager.ToUe()), Join(StopStream(0), AddRegs(0, Ascending(1, 1024)), AddRegs(0, {5000})));
    manager->UpdateRegRefMap(Ascending(1, 1024), false, MODE_0);
    manager->UpdateRegRefMap(Ascending(2000, 1025), false, MODE_0);
    EXPECT_TRUE(manager->SendAllRegReq(true, MODE_0));
    auto first = Ascending(1, 1024);
    auto all = first;
    for (const uint32_t ulAddr : Ascending(2000, 1025))
        all.push_back(ulAddr);
    EXPECT_EQ(Joined(manager.ToUe()), Join(StopStream(0), RemoveRegs(0, first), RemoveRegs(0, Ascending(2000, 1024)),
                                           RemoveRegs(0, {3024}), AddRegs(0, {5000})));
}

TEST(RegisterManager, TheTimeSlotWord)
{
    CManagerBench manager;
    manager->SendCmd_QueryTimeSlot(true);
    manager->SendCmd_QueryTimeSlot(false);
    EXPECT_EQ(manager.ToUe(), (Messages{AddRegs(0, {TIME_SLOT}), RemoveRegs(0, {TIME_SLOT})}));
    manager->SetBaseAddr(WBBP, 0, WDSP_QUERY, 0, 0xFFFFFFFF);
    manager->SendCmd_QueryTimeSlot(true);
    EXPECT_TRUE(manager.ToUe().empty());
}

TEST(RegisterManager, ClearRegInfo)
{
    CManagerBench manager;
    manager->UpdateRegRefMap({1}, true, MODE_0);
    manager->ClearRegInfo();
    EXPECT_EQ(manager.ToUe(), (Messages{StopStream(1), StopStream(0), AskForList(1), AskForList(0)}));
    EXPECT_FALSE(manager->CheckBaseAddrOK());
    EXPECT_EQ(manager->GetBaseAddr().ulWBBPBaseAddr, 0xFFFFFFFFU);
    EXPECT_EQ(manager->GetBaseAddr().ulGBBPBaseAddr, 0xFFFFFFFFU);
    EXPECT_EQ(manager->GetBaseAddr().ulWDSPQueryAddr, 0xFFFFFFFFU);
    EXPECT_EQ(manager->GetBaseAddr().ulWUPABaseAddr, 0xFFFFFFFFU);
    EXPECT_EQ(manager->GetBaseAddr().ulWDSPInfoAddr, 0xFFFFFFFFU);
    EXPECT_EQ(manager->GetTimeSlotAddr(), TIME_SLOT) << "it stands outside the block";
    manager->ProcessRegIndMsg(RegInd({0}));
    EXPECT_TRUE(manager.ToUe().empty()) << "both lists are empty";
    MakeBasesKnown(*manager.operator->());
    (void)manager.ToUe();
    EXPECT_FALSE(manager->SendAllRegReq(true, MODE_0)) << "counts are gone";
}

TEST(RegisterManager, AModeChangeForgetsCountsListsAndHsupaBase)
{
    CManagerBench manager;
    EXPECT_EQ(manager->GetRegMode(0), MODE_NONE);
    EXPECT_FALSE(manager->ChangeRegListByMode(2)) << "the mode it starts with";
    manager->UpdateRegRefMap({1}, true, MODE_0);
    EXPECT_TRUE(manager->ChangeRegListByMode(0));
    EXPECT_EQ(manager->GetRegMode(0), MODE_0);
    EXPECT_EQ(manager->GetRegMode(1), MODE_NONE);
    EXPECT_EQ(manager.ToUe(), (Messages{AskForList(1), AskForList(0)}));
    EXPECT_EQ(manager->GetBaseAddr().ulWUPABaseAddr, 0xFFFFFFFFU);
    EXPECT_EQ(manager->GetBaseAddr().ulWBBPBaseAddr, WBBP);
    EXPECT_FALSE(manager->CheckBaseAddrOK());
    EXPECT_FALSE(manager->ChangeRegListByMode(0));
    EXPECT_TRUE(manager.ToUe().empty());
    MakeBasesKnown(*manager.operator->());
    (void)manager.ToUe();
    EXPECT_FALSE(manager->SendAllRegReq(true, MODE_0)) << "nothing is counted, though the bases are known again";
    EXPECT_TRUE(manager.ToUe().empty());
}

TEST(RegisterManager, ModesOfBothModems)
{
    CRegisterManager manager(nullptr);
    EXPECT_EQ(manager.GetRegMode(1), MODE_NONE);
    manager.SetRegMode(1, MODE_0);
    manager.SetRegMode(2, MODE_0);
    EXPECT_EQ(manager.GetRegMode(0), MODE_NONE);
    EXPECT_EQ(manager.GetRegMode(1), MODE_0);
    EXPECT_EQ(manager.GetRegMode(2), MODE_NONE);
}

TEST(RegisterManager, TheClientSeesTheUesStatus)
{
    CRegUe ue;
    for (const unsigned short usId : Words{62724, 62725}) {
        ue.Gu().FromUe(RegCnf(usId, 0, 0x1234, {1}, 777));
        const auto confirms = ue.Gu().Confirms();
        ASSERT_EQ(confirms.size(), 1U);
        ExpectPacket(confirms[0], {0x01540000U | usId, 0, 777, 0x0154, Le(0x1234U)});
    }
}

// Whether a list was taken over shows in the answer to an indication of so many values: silence, or the question.
TEST(RegisterManager, ConfirmedListsAreTakenOver)
{
    CManagerBench manager;
    CRegisterManager::Clock::time_point now{};
    const auto Fits = [&](size_t szCount, unsigned int ulSender) {
        now += 1s; // every misfit asks
        manager->ProcessRegIndMsg(RegInd(std::vector<uint32_t>(szCount, 0), 0, ulSender), now);
        return manager.ToUe().empty();
    };
    const auto Head = [](unsigned int ulMode, unsigned int ulStatus, unsigned int ulCount) {
        return GuMsg(62724, LeWords({ulMode, ulStatus, ulCount, 1, 2, 3}));
    };
    manager->ProcessRegCnfMsg(Head(0, 0, 3));
    EXPECT_TRUE(Fits(3, 110));
    manager->ProcessRegCnfMsg(Head(1, 0, 2));
    EXPECT_TRUE(Fits(3, 110)) << "list 0 stays";
    EXPECT_TRUE(Fits(2, 122)) << "fewer than the message has";
    manager->ProcessRegCnfMsg(Head(0, 1, 1));
    EXPECT_TRUE(Fits(3, 110)) << "a status other than 0";
    CLogCapture log;
    manager->ProcessRegCnfMsg(Head(2, 0, 1));
    EXPECT_TRUE(log.Saw("register list dropped: mode 2, 1 addresses, message of 40 bytes"));
    EXPECT_TRUE(Fits(3, 110) && Fits(2, 122));
    manager->ProcessRegCnfMsg(Head(0, 0, 4));
    EXPECT_TRUE(log.Saw("register list dropped: mode 0, 4 addresses, message of 40 bytes"));
    EXPECT_TRUE(Fits(3, 110));
    manager->ProcessRegCnfMsg(Head(0, 0, 0x40000001));
    EXPECT_TRUE(Fits(3, 110)) << "a count that wraps in bytes";
    manager->ProcessRegCnfMsg(Head(0, 0, 0));
    EXPECT_TRUE(Fits(0, 110)) << "an empty list beside one that isn't";
    EXPECT_FALSE(Fits(3, 110)) << "and it is empty";
}

// Mode at 16, status at 20, count at 24. Cut anywhere before byte 28 the message would read as an empty list of mode 0.
TEST(RegisterManager, ACutConfirmationIsDropped)
{
    CManagerBench manager;
    manager->ProcessRegCnfMsg(RegCnf(62724, 0, 0, {1, 2, 3}));
    manager.Gu().Forget();
    auto Fits = [&, now = AtMs(0)](size_t szCount) mutable {
        manager->ProcessRegIndMsg(RegInd(std::vector<uint32_t>(szCount, 0)), now += 1s);
        return manager.ToUe().empty();
    };
    const Bytes whole = RegCnf(62724, 0, 0, {});
    ASSERT_EQ(whole.size(), 28U);
    for (const size_t szCut : {0U, 16U, 19U, 20U, 23U, 24U, 27U}) {
        CLogCapture log;
        manager->ProcessRegCnfMsg(Slice(ByteView(whole), 0, szCut));
        EXPECT_TRUE(log.Saw("[WAN] : register confirmation dropped: cut at byte " + std::to_string(szCut)));
        EXPECT_TRUE(manager.Gu().Confirms().empty()) << szCut;
        EXPECT_TRUE(Fits(3)) << szCut;
    }
    manager->ProcessRegCnfMsg(RegCnf(62724, 1, 0, {1}));
    manager.Gu().Forget();
    manager->ProcessRegCnfMsg(whole);
    EXPECT_EQ(manager.Gu().Confirms().size(), 1U) << "28 bytes are a list without addresses";
    EXPECT_TRUE(Fits(0));
}

// Count at 50, values from 52 on: three of them end at 64.
TEST(RegisterManager, ACutIndicationIsDropped)
{
    CManagerBench manager;
    manager->SetBaseAddr(WBBP, 0, 0x500, 0, TIME_SLOT);
    (void)manager->ChangeRegListByMode(MODE_0); // the HSUPA base is unknown again: a sample would learn it
    manager->ProcessRegCnfMsg(RegCnf(62724, 0, 0, {0x500, 0x504, 0x508}));
    manager.Gu().Forget();
    const Bytes fits = RegInd({0, 0x30000000, 7});
    const Bytes other = RegInd({0, 0x30000000, 7, 8});
    ASSERT_EQ(fits.size(), 64U);
    CRegisterManager::Clock::time_point now{};
    const struct
    {
        const char* pszName;
        const Bytes& msg;
        size_t szCut;
        bool bAsks;
    } aRow[] = {
        {"no values, count fits", fits, 52, false},
        {"half a value short", fits, 62, false},
        {"one byte short", fits, 63, false},
        {"count doesn't fit", other, 67, true},
        {"no values, count doesn't", other, 52, true},
        {"half a count word", other, 51, false},
        {"no count word", other, 50, false},
        {"common part only", other, 16, false},
        {"nothing", other, 0, false},
    };
    for (const auto& stRow : aRow) {
        CLogCapture log;
        manager->ProcessRegIndMsg(Slice(ByteView(stRow.msg), 0, stRow.szCut), now += 1s);
        EXPECT_TRUE(log.Saw("[WAN] : register indication dropped: cut at byte " + std::to_string(stRow.szCut)))
            << stRow.pszName;
        EXPECT_EQ(manager.ToUe(), stRow.bAsks ? Messages{AskForList(0)} : Messages{}) << stRow.pszName;
        EXPECT_FALSE(manager->CheckBaseAddrOK()) << stRow.pszName;
    }
    CLogCapture log;
    manager->ProcessRegIndMsg(fits, now);
    EXPECT_TRUE(manager->CheckBaseAddrOK()) << "whole";
    EXPECT_EQ(log.Count("dropped"), 0);
}

TEST(RegisterManager, AnIndicationThatDoesNotFitAsksForTheList)
{
    CManagerBench manager;
    manager->ProcessRegCnfMsg(RegCnf(62724, 0, 0, {1, 2, 3}));
    manager->ProcessRegIndMsg(RegInd({1, 2}), AtMs(0));
    EXPECT_EQ(manager.ToUe(), (Messages{AskForList(0)}));
    manager->ProcessRegIndMsg(RegInd({1, 2, 3, 4}, 0, 123), AtMs(1000));
    EXPECT_EQ(manager.ToUe(), (Messages{AskForList(0)})) << "any sender but 122";
    manager->ProcessRegIndMsg(RegInd({1, 2, 3}, 0, 122), AtMs(1000));
    EXPECT_EQ(manager.ToUe(), (Messages{AskForList(1)})) << "list 1 is empty";
    manager->ProcessRegIndMsg(RegInd({1, 2, 3}, 0, 0x0001007A), AtMs(1000));
    EXPECT_TRUE(manager.ToUe().empty()) << "the sender is a whole word";
}

TEST(RegisterManager, AStaleListIsAskedForOnceASecond)
{
    CManagerBench manager;
    manager->ProcessRegCnfMsg(RegCnf(62724, 0, 0, {1, 2, 3}));
    const auto Asks = [&](const std::vector<uint32_t>& values, unsigned int ulMs) {
        manager->ProcessRegIndMsg(RegInd(values), AtMs(ulMs));
        const Messages sent = manager.ToUe();
        EXPECT_TRUE(sent.empty() || sent == Messages{AskForList(0)});
        return !sent.empty();
    };
    EXPECT_TRUE(Asks({1, 2}, 5000)) << "the first";
    for (unsigned int ulMs = 5000; ulMs < 6000; ulMs += 10)
        EXPECT_FALSE(Asks({1, 2}, ulMs)) << ulMs;
    EXPECT_FALSE(Asks({1}, 5999)) << "another count, the same list";
    EXPECT_TRUE(Asks({1, 2}, 6000));
    EXPECT_FALSE(Asks({1, 2}, 6999));
    EXPECT_TRUE(Asks({1, 2}, 7500));
    EXPECT_FALSE(Asks({1, 2}, 8400)) << "a second from the last question";
    manager->ProcessRegCnfMsg(RegCnf(62724, 0, 0, {1, 2, 3, 4}));
    EXPECT_FALSE(Asks({1, 2}, 8410)) << "a new list that doesn't fit either";
    EXPECT_FALSE(Asks({1, 2, 3, 4}, 8420)) << "it fits";
    EXPECT_TRUE(Asks({1, 2}, 8430)) << "the next misfit is a first one";
    EXPECT_FALSE(Asks({1, 2}, 8440));
}

// The first misfit of either list is asked for; further questions share the second.
TEST(RegisterManager, TwoStaleListsOfAUe)
{
    CManagerBench manager;
    manager->ProcessRegCnfMsg(RegCnf(62724, 0, 0, {1, 2, 3}));
    const auto Sent = [&](unsigned int ulSender, unsigned int ulMs) {
        manager->ProcessRegIndMsg(RegInd({1, 2}, 0, ulSender), AtMs(ulMs));
        return manager.ToUe();
    };
    EXPECT_EQ(Sent(110, 0), Messages{AskForList(0)});
    EXPECT_EQ(Sent(122, 500), Messages{AskForList(1)});
    EXPECT_EQ(Sent(110, 1000), Messages{});
    EXPECT_EQ(Sent(122, 1500), Messages{AskForList(1)});
    EXPECT_EQ(Sent(110, 2499), Messages{});
    EXPECT_EQ(Sent(110, 2500), Messages{AskForList(0)});
}

TEST(RegisterManager, EachUeHasItsOwnSecond)
{
    CManagerBench first;
    CRegisterManager second(&first.Gu().Operation());
    for (CRegisterManager* const pManager : {first.operator->(), &second}) {
        pManager->ProcessRegCnfMsg(RegCnf(62724, 0, 0, {1, 2, 3}));
        pManager->ProcessRegIndMsg(RegInd({1}), AtMs(0));
        EXPECT_EQ(first.ToUe(), Messages{AskForList(0)});
    }
}

TEST(RegisterManager, AModeChangeMakesTheNextMisfitAFirstOne)
{
    CManagerBench manager;
    manager->ProcessRegCnfMsg(RegCnf(62724, 0, 0, {1, 2, 3}));
    manager->ProcessRegIndMsg(RegInd({1}), AtMs(0));
    EXPECT_TRUE(manager->ChangeRegListByMode(MODE_0));
    manager->ProcessRegCnfMsg(RegCnf(62724, 0, 0, {1, 2, 3}));
    (void)manager.ToUe();
    manager->ProcessRegIndMsg(RegInd({1}), AtMs(10));
    EXPECT_EQ(manager.ToUe(), Messages{AskForList(0)});
}

TEST(RegisterManager, AUesIndicationOfTheSecondModemIsNotTaken)
{
    CRegUe ue;
    ue.Confirm({1, 2, 3});
    ue.Gu().Forget();
    Bytes msg = RegInd({1});
    msg[0] = 68;
    ue.Gu().FromUe(msg);
    EXPECT_TRUE(ue.Gu().ToUe().empty());
    ue.Gu().FromUe(RegInd({1}));
    EXPECT_EQ(ue.Gu().ToUe(), (Messages{AskForList(0)}));
    ue.Gu().FromUe(RegInd({1, 2, 3}));
    msg = RegInd({1});
    StoreLe<uint16_t>(msg, 12, 0xE501);
    ue.Gu().FromUe(msg);
    EXPECT_EQ(ue.Gu().ToUe(), (Messages{AskForList(0)})) << "the other id of an indication";
}

TEST(RegisterManager, WithoutAnOperationNothingIsSent)
{
    CRegisterManager manager(nullptr);
    MakeBasesKnown(manager);
    manager.ProcessRegReqPacket(62741, Hex("01 00 64 00"));
    manager.ProcessRegReqPacket(62741, Hex("02 00 64 00"));
    manager.ProcessRegIndMsg(RegInd({1, 2, 3}));
    manager.ClearRegInfo();
    manager.ProcessRegReqPacket(62741, Hex("01 00 64 00"));
    EXPECT_EQ(manager.GetParentAdapter(), nullptr);
    EXPECT_EQ(manager.GetBaseAddr().ulWBBPBaseAddr, 0xFFFFFFFFU);
}
