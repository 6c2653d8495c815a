#pragma once

#include "common/Bytes.h"
#include "common/ThreadAnnotations.h"
#include "common/xtl.h"

#include <atomic>
#include <vector>

/// The last message of one kind from the UE, and the period at which a client wants it. Its mutex guards the data;
/// a caller that joins several objects or holds the lock over more than one step uses Mutex() and the unlocked forms.
class CPeriodMsgFromUe
{
public:
    CPeriodMsgFromUe() = default;
    virtual ~CPeriodMsgFromUe() = default;
    CPeriodMsgFromUe(const CPeriodMsgFromUe&) = delete;
    CPeriodMsgFromUe& operator=(const CPeriodMsgFromUe&) = delete;

    virtual void Process(ByteView packet);
    virtual void BeforReport();
    virtual void AfterReport();

    xtl::Mutex& Mutex() RETURN_CAPABILITY(m_Mutex) { return m_Mutex; }
    // For callers that can't scope a guard. The agent itself has none, but the pair belongs to the report.
    void EnterCritical() ACQUIRE(m_Mutex) { m_Mutex.Lock(); }
    void LeaveCritical() RELEASE(m_Mutex) { m_Mutex.Unlock(); }

    /// Stores a copy in the place of what is there.
    void InsertData(ByteView data) EXCLUDES(m_Mutex);
    void DeleteData() EXCLUDES(m_Mutex);
    /// The stored data, which are then no longer here; empty without any.
    std::vector<unsigned char> TakeData() EXCLUDES(m_Mutex);

    // For a caller that holds Mutex().
    void InsertDataUnlocked(ByteView data) REQUIRES(m_Mutex);
    void DeleteDataUnlocked() REQUIRES(m_Mutex);
    /// Empty when nothing is stored; valid until the data change.
    ByteView GetData() const REQUIRES(m_Mutex) { return m_data; }
    /// The twin of the above; only tests ask for it.
    size_t GetDataLength() const REQUIRES(m_Mutex) { return m_data.size(); }

    /// True when a report is due: ulAdvance ms before its time at the earliest. It counts as sent then. The stamp is
    /// real time in 32768 Hz ticks. The wrap of the UE's counter isn't evened out: client
    /// tools get a report at once then. Agent message thread.
    bool IsReport(unsigned int ulTimeStamp, unsigned int ulAdvance);

    /// Milliseconds, 0 = off. Any thread.
    unsigned short GetPeriod() const { return m_usPeriod; }
    void SetPeriod(unsigned short usPeriod) { m_usPeriod = usPeriod; }

protected:
    std::atomic<unsigned short> m_usPeriod = 0;
    std::vector<unsigned char> m_data GUARDED_BY(m_Mutex);
    mutable xtl::Mutex m_Mutex;
    unsigned int m_ulLastReport = 0; // ms; the UE's thread only
};
