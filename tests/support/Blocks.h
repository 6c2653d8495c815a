#pragma once

#include "support/WaitFor.h"

#include <atomic>
#include <thread>

/// Runs a call in a thread of its own, to see whether it blocks.
class CBackgroundCall
{
public:
    template <class Call>
    explicit CBackgroundCall(Call call)
        : m_thread([this, call] {
              call();
              m_bDone = true;
          })
    {
    }
    ~CBackgroundCall() { m_thread.join(); }
    CBackgroundCall(const CBackgroundCall&) = delete;
    CBackgroundCall& operator=(const CBackgroundCall&) = delete;

    /// True when the call hasn't come back after a moment.
    bool Blocks() const
    {
        return !WaitFor([this] { return m_bDone.load(); }, std::chrono::milliseconds(30));
    }
    /// Waits until the call has come back; false when it doesn't.
    bool Returns() const
    {
        return WaitFor([this] { return m_bDone.load(); });
    }

private:
    std::atomic<bool> m_bDone = false;
    std::thread m_thread; // last: it uses the flag
};
