#pragma once

#include "common/UniqueFd.h"
#include "tap/TapRecord.h"

#include <span>

/// The tap's shared memory as one process has it mapped. Unmapped at the end of its life.
class CTapMemory
{
public:
    CTapMemory() = default;
    ~CTapMemory();
    CTapMemory(CTapMemory&& other) noexcept;
    CTapMemory& operator=(CTapMemory&& other) noexcept;

    /// A new memory with a ring of so many bytes, all zero, that this mapping alone can write. All of it is taken
    /// from the system now, so that no write waits for it. None, with errno, when the system has none.
    static CTapMemory Create(size_t szRingBytes);
    /// The memory behind a descriptor that somebody else made. None when its size isn't that of such a ring, or may
    /// still shrink: then a read could end the process.
    static CTapMemory Map(CUniqueFd fd, size_t szRingBytes);

    bool IsMapped() const { return m_pWords != nullptr; }
    int Fd() const { return m_Fd.Get(); }
    size_t RingBytes() const { return (m_szWords - TAP_HEAD_WORDS) * TAP_WORD_SIZE; }
    /// To be written by the process that made it.
    std::span<TAP_WORD> Words() { return {m_pWords, m_szWords}; }
    std::span<const TAP_WORD> Words() const { return {m_pWords, m_szWords}; }

private:
    CTapMemory(CUniqueFd fd, size_t szRingBytes, int nProtection);

    CUniqueFd m_Fd;
    TAP_WORD* m_pWords = nullptr;
    size_t m_szWords = 0;
};
