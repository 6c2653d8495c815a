#include "data/gu/OperationGUData.h"
#include "data/gu/reg/RegisterManager.h"
#include "support/RegAddresses.h"

#include <benchmark/benchmark.h>
#include <random>

// Microseconds of one register indication with every statistic running. A UE sends one every 10 ms, and the agent
// has up to 16 UEs. The GU operation has no agent: reports are built, and dropped where they would be sent.

namespace
{
constexpr unsigned int WBBP = 0x50900000;
constexpr unsigned int WUPA = 0x30000000;
constexpr unsigned int WDSP_QUERY = 0x20000004;
constexpr unsigned int TIME_SLOT = 0x2000000C;
constexpr size_t CNF_HEAD = 28;
constexpr size_t IND_HEAD = 52;

std::vector<unsigned char> Confirmation(const std::vector<unsigned int>& addrs)
{
    std::vector<unsigned char> msg(CNF_HEAD + 4 * addrs.size());
    StoreLe<uint16_t>(msg, 12, 62724);
    StoreLe<uint32_t>(msg, 24, static_cast<uint32_t>(addrs.size()));
    for (size_t i = 0; i < addrs.size(); ++i)
        StoreLe<uint32_t>(msg, CNF_HEAD + 4 * i, addrs[i]);
    return msg;
}

std::vector<unsigned char> Indication(const std::vector<unsigned int>& values)
{
    std::vector<unsigned char> msg(IND_HEAD + 4 * values.size());
    StoreLe<uint16_t>(msg, 12, 0xF501);
    StoreLe<uint16_t>(msg, 50, static_cast<uint16_t>(values.size()));
    for (size_t i = 0; i < values.size(); ++i)
        StoreLe<uint32_t>(msg, IND_HEAD + 4 * i, values[i]);
    return msg;
}

void MakeBasesKnown(CRegisterManager& manager)
{
    manager.SetBaseAddr(WBBP, 0, WDSP_QUERY, 0, TIME_SLOT);
    manager.ProcessRegCnfMsg(Confirmation({WDSP_QUERY, WDSP_QUERY + 4}));
    manager.ProcessRegIndMsg(Indication({0, WUPA}));
}

std::vector<unsigned int> AllAddresses()
{
    CRegisterManager manager(nullptr);
    MakeBasesKnown(manager);
    return AllRegisters(manager);
}

/// A busy UE: both carriers active, dual stream frames of twenty sizes, two HSUPA carriers with the 2 ms TTI.
class CStream
{
public:
    explicit CStream(const std::vector<unsigned int>& addrs) : m_addrs(addrs), m_values(addrs.size()) {}

    std::vector<unsigned char> Next()
    {
        for (unsigned int& ulValue : m_values)
            ulValue = Random();
        for (const unsigned int ulCarrier : {WBBP, WBBP + 0x80000}) {
            Set(ulCarrier + 0x8070, 1);
            Set(ulCarrier + 0x71F0, 1);
            for (unsigned int k = 0; k < 5; ++k) {
                const unsigned int ulGood = Random() % 10 != 0 ? 1 : 0;
                Set(ulCarrier + 0x8700 + 0x20 * k, 7U << 4 | 1U << 12 | 1U << 16 | ulGood << 24 | ulGood << 25);
                Set(ulCarrier + 0x8704 + 0x20 * k, 0x00010001U * (1000 + 100 * (Random() % 20)));
            }
        }
        Set(TIME_SLOT, 1);
        Set(WBBP + 0xC000, 1);
        Set(WBBP + 0xCA8C, 1);
        return Indication(m_values);
    }

private:
    unsigned int Random() { return static_cast<unsigned int>(m_random()); }
    void Set(unsigned int ulAddr, unsigned int ulValue)
    {
        m_values[static_cast<size_t>(std::ranges::lower_bound(m_addrs, ulAddr) - m_addrs.begin())] = ulValue;
    }

    std::vector<unsigned int> m_addrs;
    std::vector<unsigned int> m_values;
    std::mt19937 m_random{1};
};

/// Started at 100 ms, each statistic reports with every tenth indication.
void StartAll(CRegisterManager& manager)
{
    MakeBasesKnown(manager);
    static constexpr unsigned char aucStart[] = {1, 0, 100, 0};
    for (const REG_STAT_ROW& stRow : RegStatTable())
        manager.ProcessRegReqPacket(stRow.usReq, aucStart);
}

void AllStatistics(benchmark::State& state)
{
    COperationGUData operation;
    CRegisterManager manager(&operation);
    StartAll(manager);
    const std::vector<unsigned int> addrs = AllAddresses();
    manager.ProcessRegCnfMsg(Confirmation(addrs));
    CStream stream(addrs);
    std::vector<std::vector<unsigned char>> indications;
    for (int i = 0; i < 100; ++i)
        indications.push_back(stream.Next());
    unsigned int ulTicks = 0;
    size_t szNext = 0;
    for (auto _ : state) {
        std::vector<unsigned char>& msg = indications[szNext++ % indications.size()];
        ulTicks -= 328; // 10 ms; the stamps of unknown kinds count down
        StoreLe<uint32_t>(msg, 8, ulTicks);
        manager.ProcessRegIndMsg(msg);
    }
    state.counters["registers"] = static_cast<double>(addrs.size());
}
BENCHMARK(AllStatistics)->Unit(benchmark::kMicrosecond);

void FindEachRegister(benchmark::State& state)
{
    const std::vector<unsigned int> addrs = AllAddresses();
    for (auto _ : state)
        for (const unsigned int ulAddr : addrs)
            benchmark::DoNotOptimize(FindReg(addrs, ulAddr));
    state.SetItemsProcessed(state.iterations() * static_cast<int64_t>(addrs.size()));
}
BENCHMARK(FindEachRegister)->Unit(benchmark::kMicrosecond);
} // namespace

BENCHMARK_MAIN();
