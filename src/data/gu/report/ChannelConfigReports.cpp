#include "data/gu/report/ChannelConfigReports.h"

#include "data/gu/base/GuPacket.h"

namespace
{
// Channel configuration, offsets in the payload. The entries lie one every 38 bytes.
constexpr size_t CFG_TRANSACTION = 22; // u16
constexpr size_t CFG_TIME = 24;        // u16, activation time; 0xFFFF = at once
constexpr size_t CFG_COUNT = 27;       // u8
constexpr size_t CFG_FIRST_ENTRY = 28;
constexpr size_t CFG_ENTRY_SIZE = 38;
constexpr unsigned char CFG_MAX_COUNT = 8;
constexpr unsigned short CFG_TIME_NOW = 0xFFFF;

// Offsets in an entry.
constexpr size_t ENTRY_FIRST = 0;      // u8
constexpr size_t ENTRY_FLOW = 1;       // u8
constexpr size_t ENTRY_THIRD = 2;      // u16
constexpr size_t ENTRY_SECOND = 4;     // u8
constexpr size_t ENTRY_LIST_COUNT = 5; // u8
constexpr size_t ENTRY_LIST = 6;       // u16

constexpr size_t CNF_TRANSACTION = 38; // u16, offset in the packet of a confirmation

ByteView EntryAt(ByteView payload, size_t szIndex)
{
    return Slice(payload, CFG_FIRST_ENTRY + szIndex * CFG_ENTRY_SIZE);
}

size_t EntryCount(ByteView payload)
{
    return std::min(LoadLe<uint8_t>(payload, CFG_COUNT), CFG_MAX_COUNT);
}

template <class Entry> std::vector<Entry> ReadEntries(ByteView payload);

template <> std::vector<MAC_d_Flow_Mapping_STRU> ReadEntries(ByteView payload)
{
    std::vector<MAC_d_Flow_Mapping_STRU> vecFlows;
    for (size_t i = 0; i < EntryCount(payload); ++i) {
        const ByteView entry = EntryAt(payload, i);
        vecFlows.push_back({LoadLe<uint8_t>(entry, ENTRY_FLOW), 0, LoadLe<uint8_t>(entry, ENTRY_FIRST)});
    }
    return vecFlows;
}

/// Fills the list of a queue and gives the index of the entry at which that ended. The walk counts the entries, not
/// the places of the list: as long as an entry has a list, the first place takes its value and the walk moves on. So
/// a list holds one value, and the caller passes over all entries walked, the one without a list included.
/// Client tools know the report so.
size_t WalkLists(ByteView payload, size_t szIndex, Reordering_Queue_Parameters_STRU& stQueue)
{
    for (; LoadLe<uint8_t>(EntryAt(payload, szIndex), ENTRY_LIST_COUNT) > 0; ++szIndex)
        stQueue.aulList[0] = LoadLe<uint16_t>(EntryAt(payload, szIndex), ENTRY_LIST);
    return szIndex;
}

template <> std::vector<Reordering_Queue_Parameters_STRU> ReadEntries(ByteView payload)
{
    std::vector<Reordering_Queue_Parameters_STRU> vecQueues;
    for (size_t i = 0; i < EntryCount(payload); ++i) {
        const ByteView entry = EntryAt(payload, i);
        auto& stQueue = vecQueues.emplace_back();
        stQueue.ulFirst = LoadLe<uint8_t>(entry, ENTRY_FIRST);
        stQueue.ulSecond = LoadLe<uint8_t>(entry, ENTRY_SECOND);
        stQueue.ulThird = LoadLe<uint16_t>(entry, ENTRY_THIRD);
        i = WalkLists(payload, i, stQueue);
    }
    return vecQueues;
}

/// True for a configuration that holds at once; one that waits leaves the transaction number to wait for.
bool HoldsAtOnce(ByteView payload, unsigned short& usWaitTrans)
{
    const bool bNow = LoadLe<uint16_t>(payload, CFG_TIME) == CFG_TIME_NOW;
    usWaitTrans = bNow ? static_cast<unsigned short>(0) : LoadLe<uint16_t>(payload, CFG_TRANSACTION);
    return bNow;
}

bool Confirms(ByteView packet, unsigned short usWaitTrans)
{
    return LoadLe<uint16_t>(packet, CNF_TRANSACTION) == usWaitTrans;
}
} // namespace

template <class Entry> bool CPeriodConfigMsgFromUe<Entry>::MsgProcess(ByteView packet)
{
    if (m_usPeriod == 0)
        return false;
    m_vecEntries = ReadEntries<Entry>(GuPayload(packet));
    if (!HoldsAtOnce(GuPayload(packet), m_usWaitTrans))
        return false;
    BuidIndPacket();
    return true;
}

template <class Entry> bool CPeriodConfigMsgFromUe<Entry>::ConfirmMsg(ByteView packet)
{
    if (m_usPeriod == 0 || !Confirms(packet, m_usWaitTrans))
        return false;
    BuidIndPacket();
    return true;
}

template <class Entry> void CPeriodConfigMsgFromUe<Entry>::BuidIndPacket()
{
    std::vector<unsigned char> report(4 + m_vecEntries.size() * Entry::SIZE);
    CByteWriter writer(report);
    writer.Field(static_cast<uint32_t>(m_vecEntries.size()));
    for (const Entry& stEntry : m_vecEntries)
        Entry::Fields(writer, stEntry);
    InsertData(report);
}

template <class Entry> void CPeriodConfigMsgFromUe<Entry>::ForgetConfig()
{
    m_vecEntries.clear();
    m_usWaitTrans = 0;
}

template class CPeriodConfigMsgFromUe<MAC_d_Flow_Mapping_STRU>;
template class CPeriodConfigMsgFromUe<Reordering_Queue_Parameters_STRU>;
