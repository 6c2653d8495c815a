#pragma once

#include <unistd.h>
#include <utility>

/// Owner of a descriptor: closes it at the end of its life. -1 is none.
class CUniqueFd
{
public:
    CUniqueFd() = default;
    explicit CUniqueFd(int nFd) : m_nFd(nFd) {}
    ~CUniqueFd() { Reset(); }
    CUniqueFd(CUniqueFd&& other) noexcept : m_nFd(other.Release()) {}
    CUniqueFd& operator=(CUniqueFd&& other) noexcept
    {
        Reset(other.Release());
        return *this;
    }

    int Get() const { return m_nFd; }
    bool IsOpen() const { return m_nFd >= 0; }
    int Release() { return std::exchange(m_nFd, -1); }
    void Reset(int nFd = -1)
    {
        if (m_nFd >= 0)
            (void)close(m_nFd); // nothing is left to do about a failed close
        m_nFd = nFd;
    }

private:
    int m_nFd = -1;
};
