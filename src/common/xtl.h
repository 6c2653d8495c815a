#pragma once

#include "common/ThreadAnnotations.h"

#include <algorithm>
#include <atomic>
#include <chrono>
#include <climits>
#include <cstddef>
#include <memory>
#include <new>
#include <pthread.h>
#include <span>
#include <time.h>
#include <utility>

// Locks and the one kind of channel between threads: a bounded, blocking ring of records with a stop state.
//
// A queue is two counting semaphores (permits to read, permits to write) around one mutex. The pair condWait and
// condSignal splits a critical section across two calls: condWait takes a permit and leaves the mutex locked,
// condSignal gives a permit of the other kind and unlocks it. So a get or a put is one wait, one section and one
// post; one of several records takes the permits that are there without waiting for more. Everything that belongs to a
// queue, its records included, lies in one block of memory.

namespace xtl
{

/// One POSIX mutex, not recursive.
class CAPABILITY("mutex") Mutex
{
public:
    /// bShared: usable by several processes, when it lies in memory that they share.
    explicit Mutex(bool bShared = false)
    {
        pthread_mutexattr_t stAttr;
        pthread_mutexattr_init(&stAttr);
        pthread_mutexattr_setpshared(&stAttr, bShared ? PTHREAD_PROCESS_SHARED : PTHREAD_PROCESS_PRIVATE);
        pthread_mutex_init(&m_stMutex, &stAttr);
        pthread_mutexattr_destroy(&stAttr);
    }
    ~Mutex() { pthread_mutex_destroy(&m_stMutex); }
    Mutex(const Mutex&) = delete;
    Mutex& operator=(const Mutex&) = delete;

    void Lock() ACQUIRE() { pthread_mutex_lock(&m_stMutex); }
    bool TryLock() TRY_ACQUIRE(true) { return pthread_mutex_trylock(&m_stMutex) == 0; }
    void Unlock() RELEASE() { pthread_mutex_unlock(&m_stMutex); }

private:
    friend class Cond;
    pthread_mutex_t m_stMutex;
};

/// Holds a mutex for a scope, or up to an early Unlock.
class SCOPED_CAPABILITY MutexGuard
{
public:
    explicit MutexGuard(Mutex& mutex) ACQUIRE(mutex) : m_pMutex(&mutex) { mutex.Lock(); }
    ~MutexGuard() RELEASE() { Release(); }
    MutexGuard(const MutexGuard&) = delete;
    MutexGuard& operator=(const MutexGuard&) = delete;

    void Unlock() RELEASE() { Release(); }

private:
    void Release() NO_THREAD_SAFETY_ANALYSIS
    {
        if (m_pMutex != nullptr)
            m_pMutex->Unlock();
        m_pMutex = nullptr;
    }

    Mutex* m_pMutex;
};

/// A counting semaphore built on a condition variable. The caller's mutex guards its count.
class Cond
{
public:
    Cond(int nInitial, bool bShared) : nCount(nInitial)
    {
        pthread_condattr_t stAttr;
        pthread_condattr_init(&stAttr);
        pthread_condattr_setpshared(&stAttr, bShared ? PTHREAD_PROCESS_SHARED : PTHREAD_PROCESS_PRIVATE);
        pthread_condattr_setclock(&stAttr, CLOCK_MONOTONIC); // that of std::chrono::steady_clock
        pthread_cond_init(&m_stCond, &stAttr);
        pthread_condattr_destroy(&stAttr);
    }
    ~Cond() { pthread_cond_destroy(&m_stCond); }
    Cond(const Cond&) = delete;
    Cond& operator=(const Cond&) = delete;

    /// Locks the mutex, waits for a permit, takes it and returns with the mutex still locked.
    void condWait(Mutex& mutex) ACQUIRE(mutex)
    {
        mutex.Lock();
        while (nCount <= 0)
            pthread_cond_wait(&m_stCond, &mutex.m_stMutex);
        --nCount;
    }

    /// The same, but waits until then at most: false, with the mutex unlocked, when there was no permit by then.
    bool condWaitUntil(Mutex& mutex, std::chrono::steady_clock::time_point end) TRY_ACQUIRE(true, mutex)
    {
        const auto since = std::chrono::duration_cast<std::chrono::nanoseconds>(end.time_since_epoch()).count();
        const timespec stEnd{static_cast<time_t>(since / 1'000'000'000), static_cast<long>(since % 1'000'000'000)};
        mutex.Lock();
        while (nCount <= 0) {
            // A time that isn't one (EINVAL), as the earliest of all, has passed too.
            if (pthread_cond_timedwait(&m_stCond, &mutex.m_stMutex, &stEnd) != 0 && nCount <= 0) {
                mutex.Unlock();
                return false;
            }
        }
        --nCount;
        return true;
    }

    /// Takes as many further permits as there are, nMost at most, and gives their count. With the mutex held.
    int condTakeMore(int nMost)
    {
        const int nTaken = std::clamp(nCount, 0, nMost);
        nCount -= nTaken;
        return nTaken;
    }

    /// Gives permits and unlocks the mutex, which the caller holds. Whoever is woken finds the mutex free.
    void condSignal(Mutex& mutex, int nPermits = 1) RELEASE(mutex)
    {
        nCount += std::min(nPermits, INT_MAX - nCount);
        mutex.Unlock();
        if (nPermits == 1)
            pthread_cond_signal(&m_stCond);
        else
            pthread_cond_broadcast(&m_stCond);
    }

    /// From now on no condWait blocks. With the mutex held.
    void stop()
    {
        nCount = STOPPED_COUNT;
        pthread_cond_broadcast(&m_stCond);
    }

    /// Sets the permits and wakes nobody. With the mutex held.
    void start(int nPermits) { nCount = nPermits; }

private:
    static constexpr int STOPPED_COUNT = 0x3fffffff; // permits for about a thousand million calls

    int nCount; // permits
    pthread_cond_t m_stCond;
};

/// The ring: this header, directly followed in memory by addsize(capacity) bytes of element slots, which the owner
/// of the memory provides. Whoever pushes sees to it that there is room.
template <class T> class alignas(std::max(alignof(T), alignof(int))) LoopQue_impl
{
public:
    explicit LoopQue_impl(int nSlots) : nCapacity(nSlots)
    {
        std::uninitialized_default_construct_n(reinterpret_cast<T*>(SlotBytes()), static_cast<size_t>(nCapacity));
    }
    ~LoopQue_impl() { std::destroy_n(Slots(), static_cast<size_t>(nCapacity)); }
    LoopQue_impl(const LoopQue_impl&) = delete;
    LoopQue_impl& operator=(const LoopQue_impl&) = delete;

    /// Bytes behind the header for nSlots elements.
    static constexpr size_t addsize(int nSlots) { return static_cast<size_t>(nSlots) * sizeof(T); }

    void push(T&& value)
    {
        Slots()[nTail] = std::move(value);
        nTail = (nTail + 1) % nCapacity;
        ++nSize;
    }
    /// What the record owns must have been moved out: its slot keeps the rest until the next record comes there.
    void pop()
    {
        nHead = (nHead + 1) % nCapacity;
        --nSize;
    }
    T& front() { return Slots()[nHead]; }
    bool empty() const { return nSize == 0; }
    int size() const { return nSize; }
    int capacity() const { return nCapacity; }

private:
    std::byte* SlotBytes() { return reinterpret_cast<std::byte*>(this) + sizeof(*this); }
    T* Slots() { return std::launder(reinterpret_cast<T*>(SlotBytes())); }

    int nHead = 0; // index of the oldest element
    int nTail = 0; // index of the next free slot
    int nSize = 0; // elements held
    int nCapacity; // slots
};

/// The queue itself. Only for memory that has LoopQue_impl<T>::addsize(nCapacity) bytes behind the object.
template <class T> class BufQueue_Impl
{
public:
    BufQueue_Impl(int nCapacity, bool bShared)
        : m_lock(bShared), m_condGet(0, bShared), m_condPut(nCapacity, bShared), m_ring(nCapacity)
    {
    }

    /// Takes the oldest records, as many as are there and out, which isn't empty, has room for; waits for one. Gives
    /// their count, 0 when the queue is stopped and empty.
    size_t get(std::span<T> out)
    {
        CondGard guard(m_lock, m_condGet, m_condPut);
        return Take(out, guard);
    }

    /// The same, but waits until then at most; a time that has passed takes what is there. 0 for that too.
    size_t get(std::span<T> out, std::chrono::steady_clock::time_point end) NO_THREAD_SAFETY_ANALYSIS
    {
        if (!m_condGet.condWaitUntil(m_lock, end))
            return 0;
        CondGard guard(m_lock, m_condGet, m_condPut, CondGard::PERMIT_HELD);
        return Take(out, guard);
    }

    /// Appends the records in order, moving them out of in; waits for room. Gives the count appended, fewer than all
    /// when the queue is stopped: the others stay with the caller.
    size_t put(std::span<T> in)
    {
        std::span<T> rest = in;
        while (!rest.empty()) {
            CondGard guard(m_lock, m_condPut, m_condGet);
            if (!m_bRunning)
                break;
            const auto szPermits = static_cast<size_t>(guard.TakeMore(SlotCount(rest)));
            for (T& record : rest.first(szPermits))
                m_ring.push(std::move(record));
            rest = rest.subspan(szPermits);
        }
        return in.size() - rest.size();
    }

    /// Wakes everyone who waits. From now on put fails at once, and get hands out what is left and then fails.
    void stop()
    {
        // Outside the lock: a put that already has its permit may still push; its record is left for get.
        m_bRunning = false;
        const MutexGuard guard(m_lock);
        m_condGet.stop();
        m_condPut.stop();
    }

    /// Makes a stopped queue run again; does nothing to a running one. Records that were left in the ring stay
    /// there, without permits to read of their own: each comes out in the place of a record put later.
    void start()
    {
        if (m_bRunning)
            return;
        const MutexGuard guard(m_lock);
        if (m_bRunning)
            return;
        m_bRunning = true;
        m_condGet.start(0);
        m_condPut.start(m_ring.capacity() - m_ring.size()); // what is left takes room
    }

    bool running() const { return m_bRunning; }

private:
    /// Holds the lock from the permit that it takes to the one that it gives, however the section is left.
    class SCOPED_CAPABILITY CondGard
    {
    public:
        CondGard(Mutex& mutex, Cond& condTake, Cond& condGive) ACQUIRE(mutex)
            : m_mutex(mutex), m_condTake(condTake), m_condGive(condGive)
        {
            condTake.condWait(mutex);
        }
        static constexpr struct PERMIT_HELD_TAG
        {
        } PERMIT_HELD{};
        /// With the mutex and a permit held already.
        CondGard(Mutex& mutex, Cond& condTake, Cond& condGive, PERMIT_HELD_TAG) REQUIRES(mutex)
            : m_mutex(mutex), m_condTake(condTake), m_condGive(condGive)
        {
        }
        ~CondGard() RELEASE() { m_condGive.condSignal(m_mutex, m_nPermits); }
        CondGard(const CondGard&) = delete;
        CondGard& operator=(const CondGard&) = delete;

        /// Takes the permits that are there, up to nTotal in all, and gives the count held.
        int TakeMore(int nTotal)
        {
            m_nPermits += m_condTake.condTakeMore(nTotal - m_nPermits);
            return m_nPermits;
        }

    private:
        Mutex& m_mutex;
        Cond& m_condTake;
        Cond& m_condGive;
        int m_nPermits = 1; // taken, and given on at the end
    };

    /// Takes what the ring has and out has room for; the guard holds one permit.
    size_t Take(std::span<T> out, CondGard& guard) REQUIRES(m_lock)
    {
        if (m_ring.empty())
            return 0;
        const int nPermits = guard.TakeMore(std::min(SlotCount(out), m_ring.size()));
        for (T& record : out.first(static_cast<size_t>(nPermits))) {
            record = std::move(m_ring.front());
            m_ring.pop();
        }
        return static_cast<size_t>(nPermits);
    }

    static int SlotCount(std::span<T> records) { return static_cast<int>(std::min<size_t>(records.size(), INT_MAX)); }

    std::atomic<bool> m_bRunning = true;
    Mutex m_lock;
    Cond m_condGet;                            // permits to read; takes m_lock itself, as CondGard uses it
    Cond m_condPut;                            // permits to write, likewise
    LoopQue_impl<T> m_ring GUARDED_BY(m_lock); // last: its slots follow the object
};

/// Makes a queue with all its slots in one block.
template <class T> struct BufQueue_allocate
{
    static BufQueue_Impl<T>* allocate(int nCapacity)
    {
        void* pBlock = ::operator new(sizeof(BufQueue_Impl<T>) + LoopQue_impl<T>::addsize(nCapacity),
                                      std::align_val_t(alignof(BufQueue_Impl<T>)));
        return new (pBlock) BufQueue_Impl<T>(nCapacity, false);
    }
    static void deallocate(BufQueue_Impl<T>* pQueue)
    {
        pQueue->~BufQueue_Impl<T>();
        ::operator delete(pQueue, std::align_val_t(alignof(BufQueue_Impl<T>)));
    }
};

/// The queue as its users hold it. Safe for any number of readers and writers, who must all have left it before
/// it is destroyed. What a record owns passes with it.
template <class T, class A> class BufQueue
{
public:
    explicit BufQueue(int nCapacity) : m_pImpl(A::allocate(nCapacity)) {}
    ~BufQueue() { A::deallocate(m_pImpl); }
    BufQueue(const BufQueue&) = delete;
    BufQueue& operator=(const BufQueue&) = delete;

    /// One record: false when the queue is stopped, for a get also empty.
    [[nodiscard]] bool get(T& out) { return m_pImpl->get({&out, 1}) == 1; }
    bool put(T in) { return m_pImpl->put({&in, 1}) == 1; }
    /// Several records under one lock and with one wake of the other side; see BufQueue_Impl.
    [[nodiscard]] size_t get(std::span<T> out) { return m_pImpl->get(out); }
    [[nodiscard]] size_t get(std::span<T> out, std::chrono::steady_clock::time_point end)
    {
        return m_pImpl->get(out, end);
    }
    [[nodiscard]] size_t put(std::span<T> in) { return m_pImpl->put(in); }
    void start() { m_pImpl->start(); }
    void stop() { m_pImpl->stop(); }
    /// False from stop to start.
    bool running() const { return m_pImpl->running(); }

private:
    BufQueue_Impl<T>* m_pImpl; // owned, made by A
};

} // namespace xtl
