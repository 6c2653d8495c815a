#pragma once

#include "fleet/FleetState.h"
#include "fleet/Hub.h"

#include <memory>
#include <string>

/// What the bucket of the benches has told.
struct BENCH_NEWS
{
    enum class KIND
    {
        STATE,    // stState is what strBench has put there
        WRONG,    // what stands for strBench isn't its state
        GONE,     // strBench was deleted
        ALL_TOLD, // all that was there at the start; comes once
    };
    KIND enKind = KIND::ALL_TOLD;
    std::string strBench;   // the key
    uint64_t ullStored = 0; // when the hub got it, ms since 1970
    FLEET_BENCH_STATE stState;
};

/// Follows the bucket into which benches put their states. Its consumer is the hub's, and may go with a server: whoever
/// hears nothing for long opens another one.
class CBenchBucket
{
public:
    /// NATS_NOT_FOUND when the hub has no such bucket. The context outlives the bucket.
    [[nodiscard]] natsStatus Open(jsCtx* pJs);
    /// The next news: first what is there, then what comes. NATS_TIMEOUT when there are none in time.
    [[nodiscard]] natsStatus Next(BENCH_NEWS& stNews, int64_t lWaitMs);

private:
    struct FREE_WATCHER
    {
        void operator()(kvWatcher* pWatcher) const { kvWatcher_Destroy(pWatcher); }
    };
    KvStore m_pStore;
    std::unique_ptr<kvWatcher, FREE_WATCHER> m_pWatcher; // goes before the store
};
