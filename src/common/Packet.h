#pragma once

#include "common/Bytes.h"

#include <memory>
#include <new>
#include <utility>

/// One packet that somebody owns: its bytes on the heap, and their count. Moves from hand to hand and is never copied
/// by itself. Without a buffer it is false; a packet of no bytes has one all the same.
class CPacket
{
public:
    CPacket() = default;
    CPacket(CPacket&& other) noexcept : m_pBytes(std::move(other.m_pBytes)), m_szSize(std::exchange(other.m_szSize, 0))
    {
    }
    CPacket& operator=(CPacket&& other) noexcept
    {
        m_pBytes = std::move(other.m_pBytes);
        m_szSize = std::exchange(other.m_szSize, 0);
        return *this;
    }

    /// szSize bytes that nothing has set yet; false when memory is short.
    static CPacket Allocate(size_t szSize) { return {new (std::nothrow) unsigned char[szSize], szSize}; }
    /// szSize bytes, all zero; false when memory is short.
    static CPacket Zeroed(size_t szSize) { return {new (std::nothrow) unsigned char[szSize](), szSize}; }
    /// A copy; false when memory is short.
    static CPacket Copy(ByteView bytes)
    {
        CPacket packet = Allocate(bytes.size());
        if (packet)
            std::copy(bytes.begin(), bytes.end(), packet.m_pBytes.get());
        return packet;
    }

    explicit operator bool() const { return m_pBytes != nullptr; }
    size_t size() const { return m_szSize; }
    ByteSpan Bytes() { return {m_pBytes.get(), m_szSize}; }
    ByteView Bytes() const { return {m_pBytes.get(), m_szSize}; }
    /// Forgets the bytes behind the first szSize.
    void Shrink(size_t szSize) { m_szSize = std::min(m_szSize, szSize); }

private:
    CPacket(unsigned char* pBytes, size_t szSize) : m_pBytes(pBytes), m_szSize(pBytes ? szSize : 0) {}

    std::unique_ptr<unsigned char[]> m_pBytes;
    size_t m_szSize = 0;
};
