#pragma once

#include <array>
#include <concepts>
#include <cstddef>
#include <cstdint>
#include <span>
#include <type_traits>

// Layouts of records as data: what shows or checks a record needs no code of its own for it. The layout of a record
// with a field list (a static Fields template, as for CByteReader and CByteWriter) is made from that list.

enum FIELD_TYPE : uint8_t
{
    U8,
    U16,
    I16,
    U32,
    I32,
    U64,
    F32,
    TEXT,  // usCount bytes, ends at the first NUL
    BYTES, // usCount bytes, shown as hexadecimal digits
};

struct FIELD_ROW
{
    const char* pszName;
    uint16_t usOffset; // from the start of the record
    FIELD_TYPE enType;
    uint16_t usCount = 1; // fields in a row; more than one make a list
};

struct RECORD_LAYOUT;

/// Records that follow the fixed part of another, one behind the other. Groups of a record follow each other too.
struct GROUP_ROW
{
    const char* pszName;
    const RECORD_LAYOUT* pstItem;
    uint16_t usFixedCount;      // records, or 0: their number stands in the fixed part
    uint16_t usCountOffset = 0; // where it stands there
    FIELD_TYPE enCountType = U32;
};

struct RECORD_LAYOUT
{
    const char* pszName; // for people; null for the items of a group
    uint16_t usSize;     // bytes of the fixed part
    std::span<const FIELD_ROW> fields;
    std::span<const GROUP_ROW> groups = {};
};

/// A field of a field list, under the name that tools show. Readers and writers of bytes pass over the name; an array
/// is so many fields for them.
template <class Io, class T> constexpr void NamedField(Io& io, const char* pszName, T& value)
{
    if constexpr (requires { io.Named(pszName, value); })
        io.Named(pszName, value);
    else if constexpr (requires { value.size(); })
        for (auto& item : value)
            io.Field(item);
    else
        io.Field(value);
}

/// Takes the place of a reader or writer in a field list and notes what it is led through.
class CFieldRowList
{
public:
    template <class T> constexpr void Named(const char* pszName, const T&) { Add<T>(pszName, 1); }
    template <class T, size_t N> constexpr void Named(const char* pszName, const std::array<T, N>&)
    {
        Add<T>(pszName, N);
    }
    constexpr void Gap(size_t szCount) { m_usOffset = static_cast<uint16_t>(m_usOffset + szCount); }

    constexpr size_t Count() const { return m_szCount; }
    constexpr size_t Size() const { return m_usOffset; } // bytes of all fields and gaps
    constexpr const FIELD_ROW& operator[](size_t szRow) const { return m_astRow[szRow]; }

private:
    static constexpr size_t MAX_FIELDS = 32; // a longer list doesn't compile

    template <class T> static constexpr FIELD_TYPE TypeOf()
    {
        if constexpr (std::same_as<T, float>)
            return F32;
        else if constexpr (std::same_as<T, int32_t>)
            return I32;
        else
            return sizeof(T) == 1 ? U8 : sizeof(T) == 2 ? U16 : sizeof(T) == 4 ? U32 : U64;
    }
    template <class T> constexpr void Add(const char* pszName, uint16_t usCount)
    {
        m_astRow[m_szCount++] = {pszName, m_usOffset, TypeOf<T>(), usCount};
        m_usOffset = static_cast<uint16_t>(m_usOffset + usCount * sizeof(T));
    }

    std::array<FIELD_ROW, MAX_FIELDS> m_astRow{};
    size_t m_szCount = 0;
    uint16_t m_usOffset = 0;
};

/// The fields of a record as rows, from its field list, whose bytes must make up its size.
template <class Rec> constexpr auto FieldRows()
{
    constexpr CFieldRowList LIST = [] {
        CFieldRowList list;
        Rec stRec;
        Rec::Fields(list, stRec);
        return list;
    }();
    static_assert(LIST.Size() == Rec::SIZE);
    std::array<FIELD_ROW, LIST.Count()> rows{};
    for (size_t i = 0; i < rows.size(); ++i)
        rows[i] = LIST[i];
    return rows;
}
template <class Rec> inline constexpr auto FIELD_ROWS = FieldRows<Rec>();

/// A record that has nothing behind its fields.
template <class Rec> inline constexpr RECORD_LAYOUT PLAIN_RECORD{nullptr, Rec::SIZE, FIELD_ROWS<Rec>};
