#pragma once

#include "common/ThreadAnnotations.h"
#include "common/xtl.h"
#include "page/PageViews.h"

#include <memory>
#include <string>
#include <unordered_set>

struct MHD_Connection;
struct MHD_Response;

// Server-sent events (HTML, 9.2). All viewers of a view share the text of a tick; each has no more of its own than its
// place in that text. A viewer sleeps, suspended, while it has seen the newest tick. One that doesn't read stays in the
// middle of its text, costs nothing, and goes on with the newest tick when it reads again.

/// The event streams of one server.
class CEventStreams
{
public:
    explicit CEventStreams(IPageViews& views) : m_views(views) {}
    ~CEventStreams();
    CEventStreams(const CEventStreams&) = delete;
    CEventStreams& operator=(const CEventStreams&) = delete;

    static constexpr size_t MOST_VIEWERS = 200;

    /// A response that streams a view to this connection, the caller's to destroy; null when there are too many, or
    /// the streams have ended. On the server's thread.
    MHD_Response* Open(MHD_Connection* pConnection, const PAGE_QUERY& stQuery);
    /// There is a new tick of all views. From any thread, one at a time.
    void Tick();
    /// Every stream ends after what is under way.
    void End();
    size_t Viewers() const;

private:
    struct VIEWER;
    static ssize_t Read(void* pViewer, uint64_t ullPosition, char* pcOut, size_t szRoom);
    static void Forget(void* pViewer);
    enum class STEP
    {
        NEWS,
        SLEEP, // the connection is suspended
        END,
    };
    STEP Next(VIEWER& viewer);
    void Load(VIEWER& viewer) const;
    void WakeAll() REQUIRES(m_Lock);

    IPageViews& m_views;
    mutable xtl::Mutex m_Lock;                                   // over what follows, and each viewer's bAsleep
    std::unordered_set<VIEWER*> m_setViewers GUARDED_BY(m_Lock); // owned by their responses
    uint64_t m_ullTick GUARDED_BY(m_Lock) = 0;
    bool m_bEnd GUARDED_BY(m_Lock) = false;
};
