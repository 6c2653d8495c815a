#pragma once

#include "data/DiagPacket.h"
#include "support/TestBytes.h"

/// Takes the bytes that a client receives apart, however they were cut. Lead bytes must stand wherever a frame ends.
class CFrameStream
{
public:
    /// Calls onFrame(head, payload) for each frame that is complete. False once a frame didn't begin with the lead
    /// bytes; nothing is taken from then on.
    template <class OnFrame> bool Feed(ByteView bytes, OnFrame onFrame)
    {
        constexpr size_t HEAD_LEN = LEAD_LEN + DIAG_PACKET_ACK_STRU::SIZE;
        m_rest.insert(m_rest.end(), bytes.begin(), bytes.end());
        size_t szAt = 0;
        while (!m_bTorn && m_rest.size() - szAt >= HEAD_LEN) {
            const ByteView rest = ByteView(m_rest).subspan(szAt);
            m_bTorn = rest[0] != LEAD_BYTE || rest[1] != LEAD_BYTE;
            DIAG_PACKET_ACK_STRU stHead;
            CByteReader reader(rest.subspan(LEAD_LEN));
            AckHead(reader, stHead);
            if (m_bTorn || rest.size() < HEAD_LEN + stHead.usLen)
                break;
            onFrame(stHead, rest.subspan(HEAD_LEN, stHead.usLen));
            szAt += HEAD_LEN + stHead.usLen;
        }
        m_rest.erase(m_rest.begin(), m_rest.begin() + static_cast<ptrdiff_t>(szAt));
        return !m_bTorn;
    }

private:
    Bytes m_rest; // of a frame that isn't complete
    bool m_bTorn = false;
};
