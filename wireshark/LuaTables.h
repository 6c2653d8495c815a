#pragma once

#include "client/Names.h"
#include "data/RecordLayout.h"

#include <initializer_list>
#include <map>
#include <ostream>
#include <string>
#include <string_view>
#include <vector>

// Writes the programs' tables as tables of Lua.

/// "LTE cell measurement" gives "lte_cell_measurement": lower case, all but letters and digits one underscore.
std::string FieldName(std::string_view text);
/// In quotes.
std::string LuaText(std::string_view text);

/// A field of a record whose field list has no names: what tools show, and which names its values have (a key of the
/// tables of names), or null.
struct SHOWN_FIELD
{
    const char* pszName;
    const char* pszValues = nullptr;
};

/// Takes the place of a reader in a field list without names and notes the fields under those given.
class CFieldNotes
{
public:
    explicit CFieldNotes(std::initializer_list<SHOWN_FIELD> names) : m_names(names) {}

    template <std::unsigned_integral T> void Field(const T&)
    {
        Add(sizeof(T) == 1 ? U8 : sizeof(T) == 2 ? U16 : sizeof(T) == 4 ? U32 : U64, 1, sizeof(T));
    }
    void Text(const std::string&, size_t szSize) { Add(TEXT, szSize, szSize); }
    void Gap(size_t szCount) { m_szOffset += szCount; }

    struct NOTE
    {
        FIELD_ROW stRow;
        const char* pszValues;
    };
    /// Ends the program when the names aren't as many as the fields.
    const std::vector<NOTE>& Notes() const;
    size_t Size() const { return m_szOffset; }

private:
    void Add(FIELD_TYPE enType, size_t szCount, size_t szBytes);

    std::vector<SHOWN_FIELD> m_names;
    std::vector<NOTE> m_notes;
    size_t m_szFields = 0;
    size_t m_szOffset = 0;
};

/// The fields of a record with a field list.
template <class Record> CFieldNotes NotesOf(std::initializer_list<SHOWN_FIELD> names)
{
    CFieldNotes notes(names);
    Record stRecord;
    Record::Fields(notes, stRecord);
    return notes;
}

/// Collects the layouts of all records; each has a name, which begins the abbreviations of its fields.
class CLayoutTables
{
public:
    /// The name of a layout by its title. Ends the program when another one has it: their fields would mix.
    std::string Add(const RECORD_LAYOUT& stLayout);
    /// A record described by its field list.
    void Add(const std::string& strName, const std::string& strTitle, const CFieldNotes& notes);

    /// "{" lines of all layouts "}".
    void Write(std::ostream& out) const;

private:
    std::map<std::string, std::string> m_mapText; // Lua by name
    std::map<std::string, const RECORD_LAYOUT*> m_mapLayout;
};

/// "{[1] = "...", ...}".
std::string LuaNames(std::span<const NAME_ROW> rows);
/// Places by name: "{id = {0, 4}, ...}", offset and bytes.
std::string LuaPlaces(const CFieldNotes& notes);
