#pragma once

#include "common/Bytes.h"
#include "data/DiagPacket.h"

#include <array>
#include <vector>

/// Tells the frames of an AT client from its text. Text may hold any byte, pairs of lead bytes too (UTF-8 has 9F 9F
/// inside of characters), so a frame starts only where a pair is followed by the id of a command of this channel.
///
/// Bytes that may yet become such a start are held, up to START_LEN - 1 of them; the others are text, in order.
class CAtFrameSearch
{
public:
    static constexpr size_t START_LEN = LEAD_LEN + sizeof(uint32_t); // lead bytes and id

    /// Takes a byte from between two frames. When it completes the start of a frame, gives the bytes of that start,
    /// which are valid until the next call; otherwise nothing. Bytes that turn out to start none, this one among
    /// them, are appended to text, but for those that came with bIsText false: these are lost.
    ByteView Take(unsigned char ucByte, bool bIsText, std::vector<unsigned char>& text);
    /// Appends to text what is held and can't start a frame with this byte behind it. The byte isn't taken.
    void Release(unsigned char ucNext, std::vector<unsigned char>& text);

private:
    void ReleaseFirst(std::vector<unsigned char>& text);
    ByteView Held() const { return Slice(ByteView(m_aucHeld), 0, m_szHeld); }

    std::array<unsigned char, START_LEN> m_aucHeld{};
    std::array<bool, START_LEN> m_abIsText{}; // of each byte held
    size_t m_szHeld = 0;
};
