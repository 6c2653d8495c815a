#include "page/EventStreams.h"

#include <algorithm>
#include <array>
#include <cassert>
#include <microhttpd.h>
#include <string_view>

namespace
{
constexpr size_t BLOCK = size_t{16} * 1024;
constexpr const char* RETRY = "retry: 1000\n\n"; // ms until a browser connects again
constexpr const char* NOTHING = ": nothing is known of it now\n\n";
constexpr std::string_view EVENT_END = "\n\n";
} // namespace

/// One browser's stream. But for bAsleep the server's thread alone uses it.
struct CEventStreams::VIEWER
{
    CEventStreams& streams;
    MHD_Connection* pConnection;
    PAGE_QUERY stQuery;
    bool bAsleep = false;
    uint64_t ullSeen = 0; // the tick that is on its way
    std::string strHead = RETRY;
    std::shared_ptr<const std::string> pData = nullptr; // shared by all that see this tick
    size_t szSent = 0;                                  // of the head, the data and what ends an event

    std::array<std::string_view, 3> Parts() const
    {
        return {strHead, pData ? std::string_view(*pData) : std::string_view(), pData ? EVENT_END : std::string_view()};
    }
    /// Copies what comes next; 0 when all is sent.
    size_t Take(char* pcOut, size_t szRoom)
    {
        size_t szSkip = szSent;
        size_t szTaken = 0;
        for (const std::string_view strPart : Parts()) {
            const std::string_view strRest = strPart.substr(std::min(szSkip, strPart.size()));
            szSkip -= strPart.size() - strRest.size();
            szTaken += strRest.copy(pcOut + szTaken, szRoom - szTaken);
        }
        szSent += szTaken;
        return szTaken;
    }
};

CEventStreams::~CEventStreams()
{
    assert(Viewers() == 0); // the server has ended
}

MHD_Response* CEventStreams::Open(MHD_Connection* pConnection, const PAGE_QUERY& stQuery)
{
    std::unique_ptr<VIEWER> pViewer(new VIEWER{*this, pConnection, stQuery});
    {
        const xtl::MutexGuard guard(m_Lock);
        if (m_bEnd || m_setViewers.size() >= MOST_VIEWERS)
            return nullptr;
        m_setViewers.insert(pViewer.get());
    }
    MHD_Response* const pResponse =
        MHD_create_response_from_callback(MHD_SIZE_UNKNOWN, BLOCK, &Read, pViewer.get(), &Forget);
    if (pResponse == nullptr)
        Forget(pViewer.release());
    else
        (void)pViewer.release(); // Forget deletes it
    return pResponse;
}

ssize_t CEventStreams::Read(void* pViewer, uint64_t, char* pcOut, size_t szRoom)
{
    auto& viewer = *static_cast<VIEWER*>(pViewer);
    size_t szTaken = viewer.Take(pcOut, szRoom);
    while (szTaken == 0) {
        const STEP enStep = viewer.streams.Next(viewer);
        if (enStep != STEP::NEWS)
            return enStep == STEP::END ? static_cast<ssize_t>(MHD_CONTENT_READER_END_OF_STREAM) : 0;
        szTaken = viewer.Take(pcOut, szRoom);
    }
    return static_cast<ssize_t>(szTaken);
}

CEventStreams::STEP CEventStreams::Next(VIEWER& viewer)
{
    {
        const xtl::MutexGuard guard(m_Lock);
        if (m_bEnd)
            return STEP::END;
        if (viewer.ullSeen == m_ullTick) {
            viewer.bAsleep = true;
            MHD_suspend_connection(viewer.pConnection);
            return STEP::SLEEP;
        }
        viewer.ullSeen = m_ullTick;
    }
    Load(viewer);
    return STEP::NEWS;
}

/// The newest tick, whichever the viewer has missed. Without the lock: the views have locks of their own.
void CEventStreams::Load(VIEWER& viewer) const
{
    viewer.szSent = 0;
    viewer.pData = m_views.Tick(viewer.stQuery);
    viewer.strHead = viewer.pData ? "id: " + std::to_string(viewer.ullSeen) + "\ndata: " : NOTHING;
}

void CEventStreams::Forget(void* pViewer)
{
    const std::unique_ptr<VIEWER> pOwned(static_cast<VIEWER*>(pViewer));
    const xtl::MutexGuard guard(pOwned->streams.m_Lock);
    pOwned->streams.m_setViewers.erase(pOwned.get());
}

void CEventStreams::Tick()
{
    const xtl::MutexGuard guard(m_Lock);
    ++m_ullTick;
    WakeAll();
}

void CEventStreams::End()
{
    const xtl::MutexGuard guard(m_Lock);
    m_bEnd = true;
    WakeAll();
}

void CEventStreams::WakeAll()
{
    for (VIEWER* const pViewer : m_setViewers)
        if (std::exchange(pViewer->bAsleep, false))
            MHD_resume_connection(pViewer->pConnection);
}

size_t CEventStreams::Viewers() const
{
    const xtl::MutexGuard guard(m_Lock);
    return m_setViewers.size();
}
