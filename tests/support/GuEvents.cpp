#include "support/GuEvents.h"

#include <cstdlib>
#include <ios>
#include <ostream>
#include <sys/socket.h>
#include <utility>

// A packet to the UE is queued, one to a client is sent. What the queue holds at the moment of a send came first.

namespace
{
CGuEvents* g_pEvents = nullptr;

unsigned int IdToUe(ByteView packet)
{
    const bool bLongHead = GuCategory(packet) == GU_CATEGORY_TRANS || GuCategory(packet) == GU_CATEGORY_OTA;
    return bLongHead ? LoadLe<uint32_t>(packet, GU_REQ_MSG_ID) : LoadLe<uint16_t>(packet, GU_QUERY_MSG_ID);
}
} // namespace

// The linker's --wrap gives these names to what the agent calls and to the system's function.
// NOLINTBEGIN(bugprone-reserved-identifier)
extern "C" ssize_t __real_send(int nSocket, const void* pData, size_t szLen, int iFlags);
extern "C" ssize_t __wrap_send(int nSocket, const void* pData, size_t szLen, int iFlags);

extern "C" ssize_t __wrap_send(int nSocket, const void* pData, size_t szLen, int iFlags)
{
    if (g_pEvents)
        g_pEvents->OnSend({static_cast<const unsigned char*>(pData), szLen});
    return __real_send(nSocket, pData, szLen, iFlags);
}
// NOLINTEND(bugprone-reserved-identifier)

void PrintTo(const GuEvent& stEvent, std::ostream* pStream)
{
    *pStream << (stEvent.enTo == GuEvent::CLIENT ? "client " : "UE ") << std::hex << stEvent.ulId << std::dec;
}

CGuEvents::CGuEvents(CGuFixture& gu) : m_gu(gu)
{
    if (std::exchange(g_pEvents, this))
        std::abort();
    m_gu.Forget();
}

CGuEvents::~CGuEvents()
{
    g_pEvents = nullptr;
}

std::vector<GuEvent> CGuEvents::Take()
{
    TakeToUe();
    return std::exchange(m_events, {});
}

void CGuEvents::OnSend(ByteView packet)
{
    TakeToUe();
    m_events.push_back({GuEvent::CLIENT, LoadLe<uint32_t>(packet, LEAD_LEN)});
}

void CGuEvents::TakeToUe()
{
    for (const Bytes& packet : m_gu.ToUe())
        m_events.push_back({GuEvent::UE, IdToUe(packet)});
}
