#include "wireshark/LuaTables.h"

#include <array>
#include <cctype>
#include <cstdio>
#include <cstdlib>
#include <sstream>

namespace
{
constexpr std::array<const char*, 9> TYPE_NAMES = {"u8",  "u16", "i16",  "u32",  "i32",
                                                   "u64", "f32", "text", "bytes"}; // by FIELD_TYPE
constexpr std::array<unsigned int, 9> TYPE_SIZES = {1, 2, 2, 4, 4, 8, 4, 1, 1};

[[noreturn]] void Fail(const std::string& strReason)
{
    (void)std::fprintf(stderr, "vex-wireshark-tables: %s\n", strReason.c_str());
    std::exit(1);
}

std::string FieldText(const std::string& strPrefix, const FIELD_ROW& stRow, const char* pszValues)
{
    std::ostringstream out;
    out << "{" << LuaText(stRow.pszName) << ", " << LuaText("vex." + strPrefix + "." + FieldName(stRow.pszName)) << ", "
        << stRow.usOffset << ", " << LuaText(TYPE_NAMES.at(stRow.enType)) << ", " << stRow.usCount;
    if (pszValues != nullptr)
        out << ", " << LuaText(pszValues);
    out << "}";
    return out.str();
}

std::string LayoutText(const std::string& strPrefix, const RECORD_LAYOUT& stLayout);

std::string GroupText(const std::string& strPrefix, const GROUP_ROW& stGroup)
{
    std::ostringstream out;
    out << "{name = " << LuaText(stGroup.pszName) << ", fixed = " << stGroup.usFixedCount
        << ", at = " << stGroup.usCountOffset << ", bytes = " << TYPE_SIZES.at(stGroup.enCountType)
        << ", item = " << LayoutText(strPrefix + "." + FieldName(stGroup.pszName), *stGroup.pstItem) << "}";
    return out.str();
}

std::string LayoutText(const std::string& strPrefix, const RECORD_LAYOUT& stLayout)
{
    std::ostringstream out;
    out << "{size = " << stLayout.usSize;
    if (stLayout.pszName != nullptr)
        out << ", title = " << LuaText(stLayout.pszName);
    out << ", fields = {";
    for (const FIELD_ROW& stRow : stLayout.fields)
        out << FieldText(strPrefix, stRow, nullptr) << ", ";
    out << "}, groups = {";
    for (const GROUP_ROW& stGroup : stLayout.groups)
        out << GroupText(strPrefix, stGroup) << ", ";
    out << "}}";
    return out.str();
}
} // namespace

std::string FieldName(std::string_view text)
{
    std::string strName;
    for (const char c : text) {
        const auto ucChar = static_cast<unsigned char>(c);
        if (std::isalnum(ucChar))
            strName += static_cast<char>(std::tolower(ucChar));
        else if (!strName.empty() && strName.back() != '_')
            strName += '_';
    }
    return strName;
}

std::string LuaText(std::string_view text)
{
    std::string strText = "\"";
    for (const char c : text) {
        if (c == '"' || c == '\\' || c == '\n')
            strText += '\\';
        strText += c;
    }
    return strText + '"';
}

const std::vector<CFieldNotes::NOTE>& CFieldNotes::Notes() const
{
    if (m_szFields != m_names.size())
        Fail("a record has " + std::to_string(m_szFields) + " fields, but other names from " +
             std::string(m_names.empty() ? "none" : m_names.front().pszName) + " on");
    return m_notes;
}

void CFieldNotes::Add(FIELD_TYPE enType, size_t szCount, size_t szBytes)
{
    if (m_szFields < m_names.size()) {
        const SHOWN_FIELD& stName = m_names[m_szFields];
        m_notes.push_back({{stName.pszName, static_cast<uint16_t>(m_szOffset), enType, static_cast<uint16_t>(szCount)},
                           stName.pszValues});
    }
    ++m_szFields;
    m_szOffset += szBytes;
}

std::string CLayoutTables::Add(const RECORD_LAYOUT& stLayout)
{
    std::string strName = FieldName(stLayout.pszName);
    const auto [known, bNew] = m_mapLayout.try_emplace(strName, &stLayout);
    if (known->second != &stLayout)
        Fail("two layouts are called " + strName);
    if (bNew && !m_mapText.try_emplace(strName, LayoutText(strName, stLayout)).second)
        Fail("a layout and a record are called " + strName);
    return strName;
}

void CLayoutTables::Add(const std::string& strName, const std::string& strTitle, const CFieldNotes& notes)
{
    std::ostringstream out;
    out << "{size = " << notes.Size() << ", title = " << LuaText(strTitle) << ", fields = {";
    for (const CFieldNotes::NOTE& stNote : notes.Notes())
        out << FieldText(strName, stNote.stRow, stNote.pszValues) << ", ";
    out << "}, groups = {}}";
    if (!m_mapText.try_emplace(strName, out.str()).second)
        Fail("two records are called " + strName);
}

void CLayoutTables::Write(std::ostream& out) const
{
    out << "{\n";
    for (const auto& [strName, strText] : m_mapText)
        out << "  [" << LuaText(strName) << "] = " << strText << ",\n";
    out << "}";
}

std::string LuaNames(std::span<const NAME_ROW> rows)
{
    std::ostringstream out;
    out << "{";
    for (const NAME_ROW& stRow : rows)
        out << "[" << stRow.ulValue << "] = " << LuaText(stRow.pszName) << ", ";
    out << "}";
    return out.str();
}

std::string LuaPlaces(const CFieldNotes& notes)
{
    std::ostringstream out;
    out << "{size = " << notes.Size();
    for (const CFieldNotes::NOTE& stNote : notes.Notes())
        out << ", " << stNote.stRow.pszName << " = {" << stNote.stRow.usOffset << ", "
            << stNote.stRow.usCount * TYPE_SIZES.at(stNote.stRow.enType) << "}";
    out << "}";
    return out.str();
}
