#pragma once

#include "page/FleetModel.h"
#include "page/FleetWatch.h"
#include "page/PageLog.h"
#include "page/PageOptions.h"
#include "page/PageSource.h"

/// All benches of a lab, by what they put into the hub's bucket.
class CFleetSource : public IPageSource
{
public:
    /// Options and log outlive the source.
    CFleetSource(const PAGE_OPTIONS& stOptions, CPageLog& log);

    IPageViews& Views() override { return m_model; }
    void Equip(CPageServer::SETTINGS& stSettings) override;
    bool Start(std::string& strError) override { return m_watch.Start(strError); }
    void OnSecond(uint64_t ullNow) override { m_model.OnSecond(ullNow); }
    void Stop() override { m_watch.Stop(); }

private:
    const PAGE_OPTIONS& m_stOptions;
    CFleetModel m_model;
    CFleetWatch m_watch;
};
