#pragma once

#include "common/ThreadAnnotations.h"
#include "common/xtl.h"
#include "page/PageViews.h"
#include "tap/TapRecord.h"

#include <functional>

/// What the page knows of one agent: fed with the records of the tap, it answers the requests of the browsers. From
/// any thread: one reads the tap, one has the seconds, any number ask.
class CPageModel : public IPageViews
{
public:
    struct SETTINGS
    {
        std::string strTap = {};                 // shown
        std::string strLog = {};                 // the agent's log file; empty: as its configuration says
        bool bControl = false;                   // whether users may start and stop reports
        size_t szPacketBytes = 64 * 1024 * 1024; // of the newest packets
    };
    explicit CPageModel(const SETTINGS& stSettings);
    ~CPageModel() override;

    /// Gives the answer to /api/control for a UE, one object of JSON. Called without any lock of the model; must not
    /// wait. To be set before anything else is called.
    using CONTROL_VIEW = std::function<std::string(unsigned int ulUe)>;
    void SetControlView(CONTROL_VIEW view);

    /// The records that follow are of this run of the agent.
    void BeginRun(const TAP_HELLO& stHello);
    /// A record, with the count of those that were lost right before it. The bytes are borrowed for the call.
    void Take(const TAP_RECORD& stRecord, ByteView bytes, uint64_t ullLost);
    /// The agent has ended, or the connection to it.
    void EndRun();
    /// Ends the second of the rates and makes the next tick; reads what the log has got. now in ns since 1970. To be
    /// called once a second, by one thread.
    void OnSecond(uint64_t ullNow);

    /// Where a client asks for reports of a UE, and who may be in its way.
    struct GU_CHANNEL
    {
        uint32_t ulPort = 0;       // of the UE, to bind to
        uint32_t ulClient = 0;     // bound to the GU command channel; 0 for none
        std::string strAddress;    // of that client, empty when it isn't known
        uint32_t ulDataClient = 0; // the same of the GU data channel
        std::string strDataAddress;
    };
    /// None while the UE has no GU command channel.
    std::optional<GU_CHANNEL> GuChannel(unsigned int ulUe) const;
    bool IsConnected() const;

    std::optional<PAGE_ANSWER> Get(const PAGE_QUERY& stQuery) override;
    std::shared_ptr<const std::string> Tick(const PAGE_QUERY& stQuery) override;

private:
    struct IMPL;
    std::unique_ptr<IMPL> m_pImpl;
};
