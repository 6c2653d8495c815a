#include "tap/Tap.h"

namespace
{
std::atomic<CTapWriter*> g_pTap = nullptr;
} // namespace

CTapWriter* ObservedTap()
{
    CTapWriter* const pTap = g_pTap.load(std::memory_order_acquire);
    return pTap != nullptr && pTap->IsObserved() ? pTap : nullptr;
}

void SetTap(CTapWriter* pTap)
{
    g_pTap = pTap;
}
