#include "common/Thread.h"

#include <cerrno>
#include <chrono>
#include <condition_variable>
#include <memory>
#include <mutex>
#include <pthread.h>
#include <set>
#include <unistd.h>

namespace
{

/// The threads that run. Handles are numbered in the order of the starts and never used twice.
struct THREAD_TABLE
{
    std::mutex lock;
    std::condition_variable condEnded;
    std::set<int> setRunning;
    int nNext = 0;
};

/// Never destroyed: threads that nobody waits for may end after main has.
THREAD_TABLE& Table()
{
    static THREAD_TABLE& s_stTable = *new THREAD_TABLE;
    return s_stTable;
}

int AddHandle()
{
    const std::lock_guard guard(Table().lock);
    const int hThread = Table().nNext++;
    Table().setRunning.insert(hThread);
    return hThread;
}

void RemoveHandle(int hThread)
{
    const std::lock_guard guard(Table().lock);
    Table().setRunning.erase(hThread);
    Table().condEnded.notify_all();
}

struct THREAD_START
{
    int bDetached;
    void* (*pfn)(void*);
    void* pArg;
    int hThread;
};

void* RunThread(void* pStart)
{
    const std::unique_ptr<THREAD_START> pOwned(static_cast<THREAD_START*>(pStart));
    void* pResult = pOwned->pfn(pOwned->pArg);
    // Nobody joins; a thread that isn't detached from the start lets go of its stack itself.
    if (!pOwned->bDetached)
        pthread_detach(pthread_self());
    RemoveHandle(pOwned->hThread);
    return pResult;
}

int CreateWithRetry(const pthread_attr_t& stAttr, THREAD_START* pStart)
{
    pthread_t thread{};
    int nResult = pthread_create(&thread, &stAttr, RunThread, pStart);
    while (nResult == EAGAIN) {
        sleep(1);
        nResult = pthread_create(&thread, &stAttr, RunThread, pStart);
    }
    return nResult;
}

} // namespace

int start_thread(int bDetached, void* (*pfn)(void*), void* pArg)
{
    pthread_attr_t stAttr;
    pthread_attr_init(&stAttr);
    if (bDetached)
        pthread_attr_setdetachstate(&stAttr, PTHREAD_CREATE_DETACHED);
    const int hThread = AddHandle();
    auto pStart = std::make_unique<THREAD_START>(THREAD_START{bDetached, pfn, pArg, hThread});
    const int nResult = CreateWithRetry(stAttr, pStart.get());
    pthread_attr_destroy(&stAttr);
    if (nResult != 0) {
        RemoveHandle(hThread);
        return -1;
    }
    (void)pStart.release(); // the thread owns it
    return hThread;
}

bool wait_thread(int hThread, int lTimeoutMs)
{
    std::unique_lock guard(Table().lock);
    return Table().condEnded.wait_for(guard, std::chrono::milliseconds(lTimeoutMs),
                                      [&] { return !Table().setRunning.contains(hThread); });
}
