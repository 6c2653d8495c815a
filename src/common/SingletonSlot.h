#pragma once

#include "common/xtl.h"

#include <atomic>
#include <memory>
#include <vector>

/// Holds the one object of a class. The agent's threads are not joined on the way out, so an object that is let go
/// is only put aside: a thread that is still inside it finds it whole for the rest of the process.
template <class T> class CSingletonSlot
{
public:
    /// The slot of class T. Never destroyed, so threads may use it while the process ends.
    static CSingletonSlot& Slot()
    {
        static CSingletonSlot& s_slot = *new CSingletonSlot;
        return s_slot;
    }

    /// The object; Create(bFirst) makes it when there is none. Safe against several first callers.
    template <class Create> T* Get(Create create)
    {
        if (T* pObject = m_pCurrent.load(std::memory_order_acquire))
            return pObject;
        const xtl::MutexGuard guard(m_lock);
        if (m_pCurrent.load(std::memory_order_relaxed) == nullptr) {
            m_vecMade.push_back(create(m_vecMade.empty()));
            m_pCurrent.store(m_vecMade.back().get(), std::memory_order_release);
        }
        return m_pCurrent.load(std::memory_order_relaxed);
    }

    /// Empties the slot. Gives the object that was in it, or null; it stays alive.
    T* Retire() { return m_pCurrent.exchange(nullptr, std::memory_order_acq_rel); }

private:
    CSingletonSlot() = default;

    std::atomic<T*> m_pCurrent = nullptr;
    xtl::Mutex m_lock;
    std::vector<std::unique_ptr<T>> m_vecMade GUARDED_BY(m_lock); // every object of the process
};
