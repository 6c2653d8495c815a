#pragma once

#include "common/ThreadAnnotations.h"
#include "common/xtl.h"
#include "page/FleetBoard.h"
#include "page/PageViews.h"

/// What the page knows of a fleet: fed with the states of the benches, it answers the requests of the browsers. From
/// any thread: one reads the hub, one has the seconds, any number ask.
class CFleetModel : public IPageViews
{
public:
    void SetHub(FLEET_HUB stHub);
    /// A state that the hub got at ullStored, ms since 1970. False when there are too many benches.
    [[nodiscard]] bool Take(const FLEET_BENCH_STATE& stState, uint64_t ullStored);
    void Forget(const std::string& strBench);
    /// Forgets all others.
    void KeepOnly(const std::set<std::string>& benches);
    /// Makes the next tick. now in ns since 1970. To be called once a second, by one thread.
    void OnSecond(uint64_t ullNow);
    bool IsConnected() const;

    std::optional<PAGE_ANSWER> Get(const PAGE_QUERY& stQuery) override;
    std::shared_ptr<const std::string> Tick(const PAGE_QUERY& stQuery) override;

private:
    // Each gives the answer to one address.
    PAGE_ANSWER Page(const PAGE_QUERY& stQuery);
    PAGE_ANSWER Fleet(const PAGE_QUERY& stQuery);
    PAGE_ANSWER Bench(const PAGE_QUERY& stQuery);
    PAGE_ANSWER Metrics(const PAGE_QUERY& stQuery);
    PAGE_ANSWER OfTheTap(const PAGE_QUERY& stQuery);

    std::shared_ptr<const std::string> MakeTick(const std::string& strBench);

    mutable xtl::Mutex m_Lock;
    CFleetBoard m_board GUARDED_BY(m_Lock);
    /// Texts of the newest tick, by bench, "" for the fleet.
    std::map<std::string, std::shared_ptr<const std::string>> m_mapTicks GUARDED_BY(m_Lock);
};
