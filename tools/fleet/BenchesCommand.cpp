#include "client/Stop.h"
#include "fleet/BenchTable.h"
#include "fleet/Fleet.h"
#include "fleet/FleetFormat.h"
#include "fleet/StreamReader.h"

#include <chrono>

namespace
{
struct FREE_KV
{
    void operator()(kvWatcher* pWatcher) const { kvWatcher_Destroy(pWatcher); }
    void operator()(kvEntry* pEntry) const { kvEntry_Destroy(pEntry); }
};

/// The states of all benches; what in the bucket is none is left out with a line that says so.
natsStatus ReadBenches(const FLEET_CONTEXT& stContext, jsCtx* pJs, std::vector<FLEET_BENCH_STATE>& benches)
{
    benches.clear();
    kvStore* pNewStore = nullptr;
    natsStatus enStatus = js_KeyValue(&pNewStore, pJs, FLEET_BUCKET);
    const KvStore pStore(pNewStore);
    kvWatchOptions stOptions;
    (void)kvWatchOptions_Init(&stOptions); // fails for no pointer alone
    stOptions.IgnoreDeletes = true;
    kvWatcher* pNewWatcher = nullptr;
    if (enStatus == NATS_OK)
        enStatus = kvStore_WatchAll(&pNewWatcher, pStore.get(), &stOptions);
    const std::unique_ptr<kvWatcher, FREE_KV> pWatcher(pNewWatcher);
    while (enStatus == NATS_OK) {
        kvEntry* pNew = nullptr;
        enStatus = kvWatcher_Next(&pNew, pWatcher.get(), stContext.TimeoutMs());
        const std::unique_ptr<kvEntry, FREE_KV> pEntry(pNew);
        if (enStatus != NATS_OK || !pEntry) // none: that was all
            break;
        const char* pszValue = kvEntry_ValueString(pEntry.get());
        if (const auto state = StateFromJson(pszValue == nullptr ? "" : pszValue))
            benches.push_back(*state);
        else
            stContext.Tell(std::string("what stands for ") + kvEntry_Key(pEntry.get()) + " isn't a bench's state");
    }
    return enStatus;
}
} // namespace

EXIT_CODE RunBenches(const FLEET_CONTEXT& stContext)
{
    CFleetLink link;
    if (const EXIT_CODE enCode = link.Open(stContext); enCode != CODE_DONE)
        return enCode;
    std::vector<FLEET_BENCH_STATE> benches;
    natsStatus enStatus{};
    const auto end = Clock::now() + HUB_PATIENCE;
    do {
        enStatus = ReadBenches(stContext, link.Js(), benches);
    } while (link.CodeOf(enStatus) == CODE_TIME_OUT && Clock::now() < end && !StopRequested());
    if (enStatus != NATS_OK)
        return stContext.Fail(link.CodeOf(enStatus),
                              std::string("bucket ") + FLEET_BUCKET + ": " + NatsText(enStatus) +
                                  (enStatus == NATS_NOT_FOUND ? "; vex-fleet init makes it" : ""));
    const auto now = std::chrono::system_clock::now().time_since_epoch();
    if (!stContext.bJson)
        stContext.out << BenchTable(
            benches,
            static_cast<uint64_t>(
                std::chrono::milliseconds(std::chrono::duration_cast<std::chrono::milliseconds>(now)).count()));
    for (const FLEET_BENCH_STATE& stBench : benches)
        if (stContext.bJson)
            stContext.out << StateToJson(stBench) << '\n';
    return CODE_DONE;
}
