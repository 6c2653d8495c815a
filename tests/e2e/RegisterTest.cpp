#include "e2e/GuBench.h"

// Register statistics end to end: the modem streams the registers that the agent has asked for every 10 ms, and each
// statistic reports at the period of its client. StreamTime says how long.

namespace
{
using std::chrono::milliseconds;

constexpr uint64_t ADVANCE = 5;      // ms by which a report may go out early
constexpr uint64_t ROUNDING = 1;     // ms, of stamps
constexpr uint64_t STREAM_STEP = 10; // ms between indications
constexpr uint32_t RC_NO_BASE = 4;   // base addresses not known
constexpr uint32_t RC_PERIOD = 2;    // period out of range
constexpr unsigned int NO_PERIOD = 99;

struct StatRow
{
    const char* pszName;
    uint16_t usReq; // confirm and report are the next two
    unsigned int ulPeriod;
};
constexpr StatRow c_stSir{"sir", 62726, 100};
constexpr StatRow c_stPower{"power", 62729, 200};
constexpr StatRow c_stTpc{"tpc", 62732, 500};
constexpr StatRow c_stDsch{"dsch-cfg", 62735, 1000};
constexpr StatRow c_stCqi{"cqi", 62750, 300};
constexpr StatRow c_stDecoding{"decoding", 62756, 2000};
constexpr StatRow c_stRate{"hsupa-rate", 62768, 700};
constexpr StatRow c_stQuality{"hsupa-quality", 62771, 150};

uint16_t ReportId(const StatRow& stRow)
{
    return static_cast<uint16_t>(stRow.usReq + 2);
}
uint16_t ConfirmId(const StatRow& stRow)
{
    return static_cast<uint16_t>(stRow.usReq + 1);
}

class Registers : public testing::Test
{
protected:
    uint32_t Switch(const StatRow& stRow, unsigned char ucSwitch)
    {
        return m_gu.Report(stRow.usReq, ucSwitch, stRow.ulPeriod, ConfirmId(stRow));
    }
    /// A start whose period is refused changes nothing, and its answer tells whether the base addresses are known;
    /// nothing when none comes, as the agent doesn't know the modem's version then.
    std::optional<uint32_t> Probe()
    {
        const Bytes start = Join(Hex("01 00"), Le(static_cast<uint16_t>(NO_PERIOD)));
        if (!m_gu.Cmd().Send(c_stSir.usReq, PKT_TYPE_GU_TRANS, start))
            return std::nullopt;
        const auto stAnswer = m_gu.Cmd().Await(CGuBench::TransId(ConfirmId(c_stSir)), milliseconds(60));
        return stAnswer ? std::optional(CGuBench::Result(stAnswer)) : std::nullopt;
    }
    /// Probes until the addresses are known; all answers on the way.
    std::vector<uint32_t> AwaitBase()
    {
        std::vector<uint32_t> answers;
        (void)WaitFor(
            [&] {
                if (const auto ulAnswer = Probe())
                    answers.push_back(*ulAnswer);
                return !answers.empty() && answers.back() != RC_NO_BASE;
            },
            std::chrono::seconds(20));
        EXPECT_TRUE(m_gu.Sync()); // an answer that came too late for its probe must not pass for one of a later start
        return answers;
    }

    /// Reads the stream for a while and checks the distances of these reports on the modem's clock.
    void Measure(const std::vector<StatRow>& rows, milliseconds time)
    {
        m_gu.CollectFor(milliseconds(50)); // what is on its way from before
        m_gu.Forget();
        m_gu.CollectFor(time);
        for (const StatRow& stRow : rows) {
            const auto gaps = Gaps(m_gu.StampsOf(ReportId(stRow)));
            ASSERT_FALSE(gaps.empty()) << stRow.pszName;
            const uint64_t ullMin = *std::ranges::min_element(gaps);
            const uint64_t ullMax = *std::ranges::max_element(gaps);
            std::printf("%-14s period %4u ms: %3zu reports, gaps %4llu to %4llu, median %4llu ms\n", stRow.pszName,
                        stRow.ulPeriod, gaps.size() + 1, static_cast<unsigned long long>(ullMin),
                        static_cast<unsigned long long>(ullMax), static_cast<unsigned long long>(Median(gaps)));
            EXPECT_GE(ullMin + ADVANCE + ROUNDING, stRow.ulPeriod) << stRow.pszName;
            EXPECT_LE(Median(gaps), stRow.ulPeriod + STREAM_STEP + ROUNDING) << stRow.pszName;
        }
    }

    CGuBench m_gu{"TIME_SPACE = 100"}; // the pause between requests that modems are given
};
} // namespace

TEST_F(Registers, SeveralStatisticsAtTheirPeriodsWithTheStreamAt10Ms)
{
    ASSERT_TRUE(m_gu.Start({}));
    const auto answers = AwaitBase();
    ASSERT_FALSE(answers.empty());
    ASSERT_EQ(answers.back(), RC_PERIOD);
    ASSERT_TRUE(m_gu.ModemSaw("gu register list 0: remove 5, 0 now")); // learned: the five addresses leave the stream

    const size_t szToLearn = m_gu.Told({0xF502}).size();
    // All at once: the requests don't wait for one another's confirms.
    const std::vector<StatRow> first = {c_stSir, c_stPower, c_stTpc, c_stDsch, c_stDecoding, c_stRate};
    for (const StatRow& stRow : first)
        ASSERT_TRUE(m_gu.Cmd().Send(stRow.usReq, PKT_TYPE_GU_TRANS,
                                    Join(Hex("01 00"), Le(static_cast<uint16_t>(stRow.ulPeriod)))));
    for (const StatRow& stRow : first)
        ASSERT_EQ(CGuBench::Result(m_gu.Cmd().Await(CGuBench::TransId(ConfirmId(stRow)))), 0U) << stRow.pszName;
    ASSERT_TRUE(m_gu.Sync());
    EXPECT_EQ(m_gu.Told({0xF502}).size(), szToLearn + first.size()); // the whole list with each start
    Measure(first, milliseconds(StreamTime()) * 5 / 8);

    // One more and one less in mid-stream; the others go on, and the one that stopped doesn't come back.
    ASSERT_EQ(Switch(c_stQuality, 1), 0U);
    ASSERT_EQ(Switch(c_stPower, 0), 0U);
    ASSERT_EQ(Switch(c_stCqi, 1), 0U);
    ASSERT_TRUE(m_gu.Sync());
    Measure({c_stSir, c_stTpc, c_stDsch, c_stRate, c_stQuality, c_stCqi}, milliseconds(StreamTime()) * 3 / 8);
    EXPECT_TRUE(m_gu.Reports(ReportId(c_stPower)).empty());

    // The modem was told which registers go: its list shrinks to nothing as the statistics stop.
    for (const StatRow& stRow : {c_stSir, c_stTpc, c_stDsch, c_stDecoding, c_stRate, c_stQuality, c_stCqi})
        ASSERT_EQ(Switch(stRow, 0), 0U) << stRow.pszName;
    ASSERT_TRUE(m_gu.Sync());
    EXPECT_TRUE(m_gu.ModemSaw(", 0 now", 2));
    m_gu.CollectFor(milliseconds(50));
    m_gu.Forget();
    EXPECT_FALSE(m_gu.Collect([] { return false; }, milliseconds(300)));
    for (const StatRow& stRow : {c_stSir, c_stTpc, c_stDsch, c_stDecoding, c_stRate, c_stQuality, c_stCqi})
        EXPECT_TRUE(m_gu.Reports(ReportId(stRow)).empty()) << stRow.pszName;
}

TEST_F(Registers, AModemThatRestartsInMidStreamIsLearnedAgain)
{
    ASSERT_TRUE(m_gu.Start({}));
    ASSERT_FALSE(AwaitBase().empty());
    ASSERT_EQ(Switch(c_stSir, 1), 0U);
    ASSERT_EQ(Switch(c_stRate, 1), 0U);
    ASSERT_TRUE(m_gu.CollectEach({ReportId(c_stSir), ReportId(c_stRate)}, 2));

    ASSERT_TRUE(m_gu.Unplug());
    ASSERT_TRUE(m_gu.ModemSaw("ue0 gu closed"));
    m_gu.Plug();
    ASSERT_TRUE(m_gu.Bench().WaitConfirmed(CGuBench::PORT));
    ASSERT_TRUE(m_gu.BindClients()); // the GU link takes longer
    const auto answers = AwaitBase();
    ASSERT_GE(answers.size(), 2U);
    EXPECT_EQ(answers.front(), RC_NO_BASE);
    EXPECT_EQ(answers.back(), RC_PERIOD);
    EXPECT_TRUE(std::ranges::all_of(answers.begin(), answers.end() - 1, [](uint32_t ul) { return ul == RC_NO_BASE; }));
    ASSERT_TRUE(m_gu.ModemSaw("gu register list 0: remove 5, 0 now", 2));
    // What ran before doesn't run now.
    EXPECT_TRUE(m_gu.IsSilent({ReportId(c_stSir), ReportId(c_stRate)}, milliseconds(300)));
    ASSERT_EQ(Switch(c_stSir, 1), 0U);
    ASSERT_EQ(Switch(c_stRate, 1), 0U);
    Measure({c_stSir, c_stRate}, std::chrono::seconds(2));
}
