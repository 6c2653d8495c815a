#include "support/PageRecords.h"

#include <benchmark/benchmark.h>

// What the page's model costs: a record of the tap, a report that is plotted, and the texts that it makes once a
// second.

namespace
{
void Attach(CPageFeed& feed)
{
    feed.BeginRun();
    for (const enChannelType enChannel : ALL_CHANNELS)
        feed.Channel(3, static_cast<uint8_t>(enChannel), true, true);
}

void PacketFromUe(benchmark::State& state)
{
    CPageModel model({});
    CPageFeed feed(model);
    Attach(feed);
    const Bytes packet = Fill(static_cast<size_t>(state.range(0)), 0x55);
    for (auto _ : state)
        feed.Take(feed.Record(TAP_KIND::UE_TO_AGENT, 3, CHANNEL_LTE_DATA), packet);
    state.SetItemsProcessed(state.iterations());
}
BENCHMARK(PacketFromUe)->Arg(100)->Arg(1000);

void PacketToClient(benchmark::State& state)
{
    CPageModel model({});
    CPageFeed feed(model);
    Attach(feed);
    const Bytes packet = Join(Hex("00000120 00000000 0000000000000000 0102 5000"), Fill(80, 0x55)); // air message
    for (auto _ : state)
        feed.ToClient(3, CHANNEL_LTE_DATA, 8, packet);
    state.SetItemsProcessed(state.iterations());
}
BENCHMARK(PacketToClient);

void Report(benchmark::State& state)
{
    CPageModel model({});
    CPageFeed feed(model);
    Attach(feed);
    Bytes packet = CqiIndication();
    for (auto _ : state) {
        feed.ullNow += 100 * PAGE_MS;
        feed.ToClient(3, CHANNEL_GU_DATA, 8, packet);
    }
    state.SetItemsProcessed(state.iterations());
}
BENCHMARK(Report);

/// An hour of one plot as JSON, as a browser asks for it when it opens the plot.
void HourOfAPlot(benchmark::State& state)
{
    CPageModel model({});
    CPageFeed feed(model);
    Attach(feed);
    for (int i = 0; i < 3600; ++i, feed.ullNow += PAGE_SECOND)
        feed.ToClient(3, CHANNEL_GU_DATA, 8, CqiIndication());
    for (auto _ : state)
        benchmark::DoNotOptimize(model.Get({"/api/plot", {{"ue", "3"}, {"plot", "stat/cqi"}}}));
}
BENCHMARK(HourOfAPlot)->Unit(benchmark::kMicrosecond);

/// The ticks of both views, with sixteen modems.
void Tick(benchmark::State& state)
{
    CPageModel model({});
    CPageFeed feed(model);
    feed.BeginRun();
    for (uint8_t i = 0; i < MAXUENUM; ++i)
        for (const enChannelType enChannel : ALL_CHANNELS)
            feed.Channel(i, static_cast<uint8_t>(enChannel), true, true);
    feed.ToClient(3, CHANNEL_GU_DATA, 8, CqiIndication());
    for (auto _ : state) {
        feed.Second();
        benchmark::DoNotOptimize(model.Tick({"", {{"view", "overview"}}}));
        benchmark::DoNotOptimize(model.Tick({"", {{"view", "modem"}, {"ue", "3"}}}));
    }
}
BENCHMARK(Tick)->Unit(benchmark::kMicrosecond);
} // namespace

BENCHMARK_MAIN();
