#include "support/FailingNew.h"

#include <cstdlib>
#include <new>

// Replaces the allocation functions of the whole program. Those for over-aligned types stay as they are.

namespace
{
constexpr int NEVER = -1;

thread_local int t_nLeft = NEVER; // allocations until the one that fails
thread_local bool t_bAll = false; // those behind it fail too
thread_local bool t_bFailed = false;

bool FailsNow()
{
    if (t_nLeft > 0)
        --t_nLeft;
    else if (t_nLeft == 0) {
        t_nLeft = t_bAll ? 0 : NEVER;
        t_bFailed = true;
        return true;
    }
    return false;
}

void* Allocate(std::size_t szLen) noexcept
{
    return FailsNow() ? nullptr : std::malloc(szLen == 0 ? 1 : szLen);
}

void* AllocateOrThrow(std::size_t szLen)
{
    void* const pBlock = Allocate(szLen);
    if (pBlock == nullptr)
        throw std::bad_alloc();
    return pBlock;
}
} // namespace

CFailingNew::CFailingNew(int nNumber, KIND enKind)
{
    t_bFailed = false;
    t_bAll = enKind == ALL_FROM_THERE;
    t_nLeft = nNumber;
}

CFailingNew::~CFailingNew()
{
    t_nLeft = NEVER;
}

bool CFailingNew::HasFailed()
{
    return t_bFailed;
}

void* operator new(std::size_t szLen)
{
    return AllocateOrThrow(szLen);
}
void* operator new[](std::size_t szLen)
{
    return AllocateOrThrow(szLen);
}
void* operator new(std::size_t szLen, const std::nothrow_t&) noexcept
{
    return Allocate(szLen);
}
void* operator new[](std::size_t szLen, const std::nothrow_t&) noexcept
{
    return Allocate(szLen);
}
void operator delete(void* pBlock) noexcept
{
    std::free(pBlock);
}
void operator delete[](void* pBlock) noexcept
{
    std::free(pBlock);
}
void operator delete(void* pBlock, std::size_t) noexcept
{
    std::free(pBlock);
}
void operator delete[](void* pBlock, std::size_t) noexcept
{
    std::free(pBlock);
}
void operator delete(void* pBlock, const std::nothrow_t&) noexcept
{
    std::free(pBlock);
}
void operator delete[](void* pBlock, const std::nothrow_t&) noexcept
{
    std::free(pBlock);
}
