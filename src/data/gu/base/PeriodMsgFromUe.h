#pragma once

#include "common/Bytes.h"
#include "common/ThreadAnnotations.h"
#include "common/xtl.h"

#include <array>
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
    unsigned int m_ulLastReport = 0; // ms; agent message thread only
};

/// One entry of the MAC-d flow report.
struct MAC_d_Flow_Mapping_STRU
{
    static constexpr size_t SIZE = 12;

    uint32_t ulFlow = 0;
    uint32_t ulSpare = 0;
    uint32_t ulSecond = 0;
};
template <class Io, class Entry> void MacFlowEntry(Io& io, Entry& stEntry)
{
    io.Field(stEntry.ulFlow);   // 0
    io.Field(stEntry.ulSpare);  // 4
    io.Field(stEntry.ulSecond); // 8
}

/// One entry of the reordering queue report.
struct Reordering_Queue_Parameters_STRU
{
    static constexpr size_t SIZE = 44;

    uint32_t ulFirst = 0;
    uint32_t ulSecond = 0;
    uint32_t ulThird = 0;
    std::array<uint32_t, 8> aulList{}; // only the first place is ever filled
};
template <class Io, class Entry> void ReorderingEntry(Io& io, Entry& stEntry)
{
    io.Field(stEntry.ulFirst);  // 0
    io.Field(stEntry.ulSecond); // 4
    io.Field(stEntry.ulThird);  // 8
    for (auto& ulValue : stEntry.aulList)
        io.Field(ulValue); // 12
}

/// Collects the MAC-d flows of a channel configuration until the UE confirms it. Agent message thread.
class CPeriodMACMsgFromUe : public CPeriodMsgFromUe
{
public:
    /// A configuration. True when a report is stored.
    bool MsgProcess(ByteView packet);
    /// The confirmation of a configuration. True when a report is stored.
    bool ConfirmMsg(ByteView packet);
    void BuidIndPacket();
    /// The UE went away: its configuration won't be confirmed any more. The period stays.
    void ForgetConfig();

private:
    std::vector<MAC_d_Flow_Mapping_STRU> m_vecFlows;
    unsigned short m_usWaitTrans = 0; // transaction number awaited
};

/// The same for the reordering queues.
class CPeriodReorderingMsgFromUe : public CPeriodMsgFromUe
{
public:
    bool MsgProcess(ByteView packet);
    bool ConfirmMsg(ByteView packet);
    void BuidIndPacket();
    void ForgetConfig();

private:
    std::vector<Reordering_Queue_Parameters_STRU> m_vecQueues;
    unsigned short m_usWaitTrans = 0;
};
