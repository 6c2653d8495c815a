#pragma once

#include <atomic>
#include <pthread.h>
#include <thread>

/// Interrupts a thread with a signal every millisecond for the life of the object: each of its system calls that
/// waits ends with EINTR, as the handler is installed without SA_RESTART. The thread must outlive the object.
class CSignals
{
public:
    explicit CSignals(pthread_t target = pthread_self());
    ~CSignals();
    CSignals(const CSignals&) = delete;
    CSignals& operator=(const CSignals&) = delete;

    /// Waits until the thread has been interrupted so many times more.
    static bool WaitForMore(int nSignals);
    /// How often a thread has been interrupted since the start of the program.
    static int Count();

private:
    std::atomic<bool> m_bRun = true;
    std::thread m_thread;
};
