#pragma once

#include "common/Bytes.h"

#include <cstring>
#include <vector>

/// Bytes on their way to a port: appended at the end, taken from the front. The memory is kept and used again.
class CByteQueue
{
public:
    size_t Size() const { return m_szEnd - m_szBegin; }
    bool Empty() const { return m_szBegin == m_szEnd; }
    ByteView Front() const { return {m_bytes.data() + m_szBegin, Size()}; }

    /// Room for szCount bytes behind the end. They become part of the queue with Commit, before any other call.
    ByteSpan Reserve(size_t szCount)
    {
        if (m_bytes.size() - m_szEnd < szCount)
            MakeRoom(szCount);
        return {m_bytes.data() + m_szEnd, szCount};
    }
    void Commit(size_t szCount) { m_szEnd += szCount; }

    void Append(ByteView bytes)
    {
        const ByteSpan room = Reserve(bytes.size());
        std::copy(bytes.begin(), bytes.end(), room.begin());
        Commit(bytes.size());
    }

    void Consume(size_t szCount)
    {
        m_szBegin += szCount;
        if (m_szBegin == m_szEnd)
            Clear();
    }

    void Clear() { m_szBegin = m_szEnd = 0; }

private:
    void MakeRoom(size_t szCount)
    {
        if (m_szBegin != 0) {
            std::memmove(m_bytes.data(), m_bytes.data() + m_szBegin, Size());
            m_szEnd -= m_szBegin;
            m_szBegin = 0;
        }
        if (m_bytes.size() - m_szEnd < szCount)
            m_bytes.resize(std::max(2 * m_bytes.size(), m_szEnd + szCount));
    }

    std::vector<unsigned char> m_bytes;
    size_t m_szBegin = 0;
    size_t m_szEnd = 0;
};
