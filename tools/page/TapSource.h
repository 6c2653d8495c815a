#pragma once

#include "page/PageControl.h"
#include "page/PageLog.h"
#include "page/PageModel.h"
#include "page/PageOptions.h"
#include "page/PageSource.h"

#include <atomic>
#include <thread>

/// The agent on this host, by its tap, with control of its modems.
class CTapSource : public IPageSource
{
public:
    /// Options and log outlive the source.
    CTapSource(const PAGE_OPTIONS& stOptions, CPageLog& log);

    IPageViews& Views() override { return m_model; }
    void Equip(CPageServer::SETTINGS& stSettings) override;
    bool Start(std::string& strError) override;
    void OnSecond(uint64_t ullNow) override { m_model.OnSecond(ullNow); }
    void Stop() override;

private:
    void ReadTap();

    const PAGE_OPTIONS& m_stOptions;
    CPageLog& m_log;
    CPageModel m_model;
    CPageControl m_control;
    std::atomic<bool> m_bEnd = false;
    std::thread m_tap;
};
