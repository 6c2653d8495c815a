#pragma once

#include "common/UniqueFd.h"
#include "data/DiagPacket.h"
#include "support/TestBytes.h"

#include <array>
#include <poll.h>
#include <string>
#include <sys/socket.h>

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

/// Waits for bytes, at most lWaitMs, and takes apart what one read gives: onFrame(head, payload) for each whole frame.
/// Says what is wrong with the connection; nothing when all is well.
template <class OnFrame>
std::string ReadFrames(const CUniqueFd& client, int lWaitMs, CFrameStream& stream, OnFrame onFrame)
{
    std::array<unsigned char, 65536> aucPart;
    pollfd stPoll{client.Get(), POLLIN, 0};
    if (poll(&stPoll, 1, lWaitMs) <= 0)
        return "";
    const ssize_t lRead = recv(client.Get(), aucPart.data(), aucPart.size(), 0);
    if (lRead <= 0)
        return "the agent closed the connection";
    return stream.Feed(ByteView(aucPart).first(static_cast<size_t>(lRead)), onFrame) ? "" : "a torn frame";
}
