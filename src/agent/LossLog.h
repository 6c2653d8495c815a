#pragma once

#include <chrono>
#include <cstddef>

/// The lines about frames that one client lost: ten in a second, then one with the count of the others when the second
/// is over. Not safe from several threads.
class CLossLog
{
public:
    using TIME = std::chrono::steady_clock::time_point;

    explicit CLossLog(const char* pszChannel) : m_pszChannel(pszChannel) {}

    /// A frame that the client took nothing of in time.
    void FrameTimedOut(TIME now);
    /// A frame that couldn't be sent: bytes that were left of it, bytes in all, the reason.
    void FrameFailed(TIME now, size_t szLeft, size_t szTotal, int iError);
    /// When the count is due; never while there is none.
    TIME CountDue() const { return m_ulMore > 0 ? m_SecondEnd : TIME::max(); }
    /// The line with the count, if there is one.
    void TellCount();

private:
    bool MayTell(TIME now);

    const char* m_pszChannel;
    TIME m_SecondEnd{};        // long ago
    int m_nTold = 0;           // lines in this second
    unsigned int m_ulMore = 0; // frames without a line
};
