#pragma once

#include "page/EventStreams.h"
#include "page/PageRouter.h"

#include <functional>
#include <memory>
#include <string>
#include <unordered_set>

struct MHD_Daemon;

/// The page's HTTP server: one thread, that never waits for a browser nor for the agent.
class CPageServer
{
public:
    /// Carries out an order, and gives the answer later or right away, from any thread.
    using ORDER = std::function<void(const CONTROL_ORDER&, std::function<void(PAGE_ANSWER)>)>;
    struct SETTINGS
    {
        PAGE_ACCESS stAccess;
        std::string strWeb;
        bool bControl = false;
        ORDER order{};
        std::function<std::string()> health; // one line for /healthz
        unsigned int ulIdleSeconds = 30;     // until a connection that asks nothing, or takes nothing, is closed
    };

    /// Null, with what is wrong, when the address can't be listened on. The views outlive the server.
    static std::unique_ptr<CPageServer> Start(SETTINGS stSettings, IPageViews& views, std::string& strError);
    /// Ends all streams and connections. Orders under way have to be answered before.
    ~CPageServer();
    CPageServer(const CPageServer&) = delete;
    CPageServer& operator=(const CPageServer&) = delete;

    uint16_t Port() const;
    size_t Viewers() const { return m_streams.Viewers(); }
    /// There is a new tick of all views.
    void Tick() { m_streams.Tick(); }

    static constexpr size_t LARGEST_BODY = size_t{16} * 1024; // of a POST
    static constexpr unsigned int MOST_CONNECTIONS = 256;
    static constexpr size_t MOST_BODY_BYTES = size_t{256} * 1024 * 1024; // of large answers under way

private:
    struct CALL;
    struct GLUE; // what the library calls
    CPageServer(SETTINGS stSettings, IPageViews& views);
    bool Listen(std::string& strError);
    bool Answer(CALL& call);
    bool Stream(const CALL& call);
    bool SendToControl(CALL& call, const CONTROL_ORDER& stOrder);
    bool Send(const CALL& call, PAGE_REPLY stReply);
    std::string Metrics() const;

    const SETTINGS m_stSettings;
    IPageViews& m_views;
    CPageRouter m_router;
    CEventStreams m_streams;
    std::atomic<uint64_t> m_ullRequests = 0;
    std::atomic<size_t> m_szBodies = 0; // bytes of answers under way
    MHD_Daemon* m_pDaemon = nullptr;
};
