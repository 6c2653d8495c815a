#include "fleet/BenchBucket.h"

#include "fleet/FleetFormat.h"

#include <algorithm>

namespace
{
constexpr int64_t NS_PER_MS = 1'000'000;

struct FREE_ENTRY
{
    void operator()(kvEntry* pEntry) const { kvEntry_Destroy(pEntry); }
};

/// A bench is who may write to its key, whatever it says there.
BENCH_NEWS NewsOf(kvEntry* pEntry)
{
    BENCH_NEWS stNews{.enKind = BENCH_NEWS::KIND::WRONG, .strBench = kvEntry_Key(pEntry), .stState = {}};
    stNews.ullStored = static_cast<uint64_t>(std::max<int64_t>(kvEntry_Created(pEntry), 0) / NS_PER_MS);
    if (kvEntry_Operation(pEntry) != kvOp_Put) {
        stNews.enKind = BENCH_NEWS::KIND::GONE;
        return stNews;
    }
    const auto* const pcValue = static_cast<const char*>(kvEntry_Value(pEntry));
    const int nLength = pcValue == nullptr ? 0 : kvEntry_ValueLen(pEntry);
    auto state = StateFromJson(std::string(pcValue == nullptr ? "" : pcValue, static_cast<size_t>(nLength)));
    if (!state || state->strBench != stNews.strBench || !IsBenchName(stNews.strBench))
        return stNews;
    stNews.enKind = BENCH_NEWS::KIND::STATE;
    stNews.stState = std::move(*state);
    return stNews;
}
} // namespace

natsStatus CBenchBucket::Open(jsCtx* pJs)
{
    kvStore* pStore = nullptr;
    natsStatus enStatus = js_KeyValue(&pStore, pJs, FLEET_BUCKET);
    m_pStore.reset(pStore);
    kvWatcher* pWatcher = nullptr;
    if (enStatus == NATS_OK)
        enStatus = kvStore_WatchAll(&pWatcher, m_pStore.get(), nullptr);
    m_pWatcher.reset(pWatcher);
    return enStatus;
}

natsStatus CBenchBucket::Next(BENCH_NEWS& stNews, int64_t lWaitMs)
{
    kvEntry* pNew = nullptr;
    const natsStatus enStatus = kvWatcher_Next(&pNew, m_pWatcher.get(), lWaitMs);
    const std::unique_ptr<kvEntry, FREE_ENTRY> pEntry(pNew);
    if (enStatus == NATS_OK)
        stNews = pEntry ? NewsOf(pEntry.get()) : BENCH_NEWS{.strBench = {}, .stState = {}};
    return enStatus;
}
