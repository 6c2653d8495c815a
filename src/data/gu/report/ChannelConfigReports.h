#pragma once

#include "common/Bytes.h"
#include "data/gu/base/PeriodMsgFromUe.h"

#include <array>
#include <vector>

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
