#pragma once

#include "common/Record.h"
#include "data/RecordLayout.h"

#include <array>
#include <cstddef>
#include <cstdint>

// Reports of records, written by their field lists.

/// Head of most lists: that many records follow.
struct Record_Count_STRU
{
    static constexpr size_t SIZE = 4;

    uint32_t ulCount = 0;

    template <class Io, class Rec> static constexpr void Fields(Io& io, Rec& st)
    {
        NamedField(io, "count", st.ulCount); // 0
    }
};

/// A report of a head and at most MAX records, built without the heap. The head's ulCount is their number.
template <class Rec, size_t MAX, class Head = Record_Count_STRU> class CRecordList
{
public:
    /// Everything of the head but the count.
    explicit CRecordList(const Head& stHead = {}) : m_stHead(stHead) { WriteHead(); }

    void Add(const Rec& stRec)
    {
        CByteWriter writer(Slice(ByteSpan(m_aucBytes), Size(), Rec::SIZE));
        Rec::Fields(writer, stRec);
        ++m_stHead.ulCount;
        WriteHead();
    }

    ByteView Bytes() const { return ByteView(m_aucBytes).first(Size()); }

private:
    size_t Size() const { return Head::SIZE + m_stHead.ulCount * Rec::SIZE; }
    void WriteHead()
    {
        CByteWriter writer(m_aucBytes);
        Head::Fields(writer, m_stHead);
    }

    std::array<unsigned char, Head::SIZE + MAX * Rec::SIZE> m_aucBytes{};
    Head m_stHead;
};
