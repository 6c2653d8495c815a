#pragma once

#include "common/Bytes.h"
#include "data/RecordLayout.h"
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

    template <class Io, class Rec> static constexpr void Fields(Io& io, Rec& st)
    {
        NamedField(io, "flow", st.ulFlow);    // 0
        NamedField(io, "zero", st.ulSpare);   // 4
        NamedField(io, "value", st.ulSecond); // 8
    }
};

/// One entry of the reordering queue report.
struct Reordering_Queue_Parameters_STRU
{
    static constexpr size_t SIZE = 44;

    uint32_t ulFirst = 0;
    uint32_t ulSecond = 0;
    uint32_t ulThird = 0;
    std::array<uint32_t, 8> aulList{}; // only the first place is ever filled

    template <class Io, class Rec> static constexpr void Fields(Io& io, Rec& st)
    {
        NamedField(io, "first", st.ulFirst);   //  0
        NamedField(io, "second", st.ulSecond); //  4
        NamedField(io, "third", st.ulThird);   //  8
        NamedField(io, "list", st.aulList);    // 12
    }
};

/// Collects the entries of a channel configuration until the UE confirms it, and stores them as a report then: their
/// u32 count and the entries. Agent message thread.
template <class Entry> class CPeriodConfigMsgFromUe : public CPeriodMsgFromUe
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
    std::vector<Entry> m_vecEntries;
    unsigned short m_usWaitTrans = 0; // transaction number awaited
};

using CPeriodMACMsgFromUe = CPeriodConfigMsgFromUe<MAC_d_Flow_Mapping_STRU>;
using CPeriodReorderingMsgFromUe = CPeriodConfigMsgFromUe<Reordering_Queue_Parameters_STRU>;
