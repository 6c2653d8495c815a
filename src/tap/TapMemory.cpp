#include "tap/TapMemory.h"

#include <fcntl.h>
#include <sys/mman.h>
#include <sys/stat.h>

#ifndef F_SEAL_FUTURE_WRITE
#define F_SEAL_FUTURE_WRITE 0x0010 // Linux 5.1
#endif

namespace
{
constexpr size_t HEAD_BYTES = TAP_HEAD_WORDS * TAP_WORD_SIZE;
} // namespace

CTapMemory::CTapMemory(CUniqueFd fd, size_t szRingBytes, int nProtection) : m_Fd(std::move(fd))
{
    const size_t szBytes = HEAD_BYTES + szRingBytes;
    // Whoever writes, on the road of a packet, is not to wait for a page then.
    const int nFlags = MAP_SHARED | ((nProtection & PROT_WRITE) != 0 ? MAP_POPULATE : 0);
    void* const pMapped = mmap(nullptr, szBytes, nProtection, nFlags, m_Fd.Get(), 0);
    if (pMapped == MAP_FAILED)
        return;
    m_pWords = static_cast<TAP_WORD*>(pMapped); // lock-free atomics have no state beside their value
    m_szWords = szBytes / TAP_WORD_SIZE;
}

CTapMemory::~CTapMemory()
{
    if (m_pWords != nullptr)
        (void)munmap(m_pWords, m_szWords * TAP_WORD_SIZE);
}

CTapMemory::CTapMemory(CTapMemory&& other) noexcept
    : m_Fd(std::move(other.m_Fd)),
      m_pWords(std::exchange(other.m_pWords, nullptr)),
      m_szWords(std::exchange(other.m_szWords, 0))
{
}

CTapMemory& CTapMemory::operator=(CTapMemory&& other) noexcept
{
    std::swap(m_Fd, other.m_Fd);
    std::swap(m_pWords, other.m_pWords);
    std::swap(m_szWords, other.m_szWords);
    return *this;
}

CTapMemory CTapMemory::Create(size_t szRingBytes)
{
    CUniqueFd fd(memfd_create("vex-tap", MFD_CLOEXEC | MFD_ALLOW_SEALING));
    if (!fd.IsOpen() || ftruncate(fd.Get(), static_cast<off_t>(HEAD_BYTES + szRingBytes)) != 0)
        return {};
    CTapMemory memory(std::move(fd), szRingBytes, PROT_READ | PROT_WRITE);
    const int nSeals = F_SEAL_SHRINK | F_SEAL_GROW | F_SEAL_FUTURE_WRITE | F_SEAL_SEAL; // the mapping above stays
    if (memory.IsMapped() && fcntl(memory.Fd(), F_ADD_SEALS, nSeals) != 0)
        return {};
    return memory;
}

CTapMemory CTapMemory::Map(CUniqueFd fd, size_t szRingBytes)
{
    struct stat stFile
    {
    };
    const int nSeals = fcntl(fd.Get(), F_GET_SEALS);
    if (szRingBytes == 0 || szRingBytes % TAP_WORD_SIZE != 0 || nSeals < 0 || (nSeals & F_SEAL_SHRINK) == 0 ||
        fstat(fd.Get(), &stFile) != 0 || static_cast<size_t>(stFile.st_size) != HEAD_BYTES + szRingBytes)
        return {};
    return {std::move(fd), szRingBytes, PROT_READ};
}
