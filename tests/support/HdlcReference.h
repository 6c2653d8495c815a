#pragma once

#include "support/TestBytes.h"
#include "ue/HDLCParse.h"

#include <vector>

// Framing written down byte by byte and bit by bit, straight from its rules: slow, and independent of the code that
// it is compared with.

inline unsigned short ReferenceFcs(unsigned short usFcs, ByteView bytes)
{
    for (const unsigned char ucByte : bytes) {
        usFcs = static_cast<unsigned short>(usFcs ^ ucByte);
        for (int iBit = 0; iBit < 8; ++iBit)
            usFcs = static_cast<unsigned short>((usFcs >> 1) ^ ((usFcs & 1) != 0 ? 0x8408 : 0));
    }
    return usFcs;
}

/// The frame of a payload.
inline Bytes FrameOf(ByteView payload)
{
    const Bytes fcs = Le(static_cast<uint16_t>(~ReferenceFcs(0xFFFF, payload)));
    Bytes frame = {0x7E};
    for (const unsigned char ucByte : Join(payload, fcs)) {
        if (ucByte == 0x7E || ucByte == 0x7D) {
            frame.push_back(0x7D);
            frame.push_back(ucByte ^ 0x20);
        } else {
            frame.push_back(ucByte);
        }
    }
    frame.push_back(0x7E);
    return frame;
}

/// Result code of decoding a raw frame; payload is set when it is 0.
inline unsigned int ReferenceDecode(ByteView raw, Bytes& payload)
{
    if (raw.size() <= 21)
        return 2;
    payload.clear();
    size_t i = 1;
    while (i < raw.size() - 2) {
        if (raw[i] != 0x7D) {
            payload.push_back(raw[i++]);
            continue;
        }
        if (raw[i + 1] != 0x5E && raw[i + 1] != 0x5D)
            return 9060;
        payload.push_back(raw[i + 1] ^ 0x20);
        i += 2;
    }
    if (i == raw.size() - 2)
        payload.push_back(raw[i]);
    if (payload.size() < 2 + 18)
        return 9065;
    if (ReferenceFcs(0xFFFF, payload) != 0xF0B8)
        return 9064;
    payload.resize(payload.size() - 2);
    return 0;
}

/// The reassembly of a channel, one byte at a time.
class CReferenceChannel
{
public:
    void Feed(ByteView data)
    {
        for (const unsigned char ucByte : data)
            FeedByte(ucByte);
    }
    std::vector<Bytes> packets;
    int iErrors = 0; // frames that didn't decode
    int iTooBig = 0;

private:
    void FeedByte(unsigned char ucByte)
    {
        if (m_held.empty()) {
            if (ucByte == 0x7E)
                m_held.push_back(ucByte);
            return;
        }
        m_held.push_back(ucByte);
        if (ucByte == 0x7E && m_held.size() <= 4) {
            m_held.resize(1);
        } else if (ucByte == 0x7E) {
            Bytes payload;
            if (ReferenceDecode(m_held, payload) == 0)
                packets.push_back(payload);
            else
                ++iErrors;
            m_held.clear();
        }
        if (m_held.size() > 131071) {
            ++iTooBig;
            m_held.clear();
        }
    }

    Bytes m_held;
};
