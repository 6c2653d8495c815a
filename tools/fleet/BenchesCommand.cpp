#include "client/Stop.h"
#include "fleet/BenchBucket.h"
#include "fleet/BenchTable.h"
#include "fleet/Fleet.h"
#include "fleet/FleetFormat.h"
#include "fleet/StreamReader.h"

#include <chrono>

namespace
{
/// The states of all benches; what in the bucket is none is left out with a line that says so.
natsStatus ReadBenches(const FLEET_CONTEXT& stContext, jsCtx* pJs, std::vector<FLEET_BENCH_STATE>& benches)
{
    benches.clear();
    CBenchBucket bucket;
    natsStatus enStatus = bucket.Open(pJs);
    BENCH_NEWS stNews{.enKind = BENCH_NEWS::KIND::GONE, .strBench = {}, .stState = {}};
    while (enStatus == NATS_OK && stNews.enKind != BENCH_NEWS::KIND::ALL_TOLD) {
        enStatus = bucket.Next(stNews, stContext.TimeoutMs());
        if (enStatus != NATS_OK)
            break;
        if (stNews.enKind == BENCH_NEWS::KIND::STATE)
            benches.push_back(stNews.stState);
        else if (stNews.enKind == BENCH_NEWS::KIND::WRONG)
            stContext.Tell("what stands for " + stNews.strBench + " isn't a bench's state");
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
