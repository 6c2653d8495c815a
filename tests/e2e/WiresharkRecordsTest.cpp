#include "client/Decode.h"
#include "client/Reports.h"
#include "common/Types.h"
#include "e2e/Tshark.h"

#include <cctype>
#include <cmath>
#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

// Every report, statistic, answer and measurement in the real tshark: the fields that vex-client's decoder gives.

namespace
{
using nlohmann::ordered_json;

/// A record with bytes that differ, and two records in each group whose number stands in it.
void Fill(Bytes& out, const RECORD_LAYOUT& stLayout, unsigned int& ulSeed)
{
    const size_t szAt = out.size();
    for (size_t i = 0; i < stLayout.usSize; ++i)
        out.push_back(static_cast<unsigned char>(0x21 + ulSeed++ % 0x5D)); // printable, for texts
    for (const GROUP_ROW& stGroup : stLayout.groups) {
        if (stGroup.usFixedCount != 0)
            continue;
        const size_t szBytes = stGroup.enCountType == U8 ? 1 : stGroup.enCountType == U16 ? 2 : 4;
        for (size_t i = 0; i < szBytes; ++i)
            out[szAt + stGroup.usCountOffset + i] = i == 0 ? 2 : 0;
    }
    for (const GROUP_ROW& stGroup : stLayout.groups)
        for (size_t i = stGroup.usFixedCount == 0 ? 2 : stGroup.usFixedCount; i > 0; --i)
            Fill(out, *stGroup.pstItem, ulSeed);
}

/// The abbreviation of a field, by the rule: lower case, one "_" for what is no letter or digit.
std::string Abbreviation(const std::string& strText)
{
    std::string strName;
    for (const char c : strText)
        if (std::isalnum(static_cast<unsigned char>(c)))
            strName += static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
        else if (strName.back() != '_')
            strName += '_';
    return strName;
}

void Leaves(const ordered_json& value, const std::string& strPath, std::map<std::string, ordered_json>& all)
{
    if (value.is_object())
        for (const auto& [strName, inner] : value.items())
            Leaves(inner, strPath + "." + Abbreviation(strName), all);
    else if (value.is_array())
        for (const ordered_json& item : value)
            Leaves(item, strPath, all);
    else
        all[strPath].push_back(value);
}

/// Text without what only separates: tshark writes bytes as aa:bb, the decoder as AABB.
std::string Plain(std::string strText)
{
    std::erase_if(strText, [](char c) { return c == ':' || c == ' '; });
    for (char& c : strText)
        c = static_cast<char>(std::toupper(static_cast<unsigned char>(c)));
    return strText;
}

/// Whether tshark's text is the decoder's value; of a float it shows six digits.
bool Same(const std::string& strShown, const ordered_json& value)
{
    if (value.is_number_float()) {
        const double dValue = value.get<double>();
        return std::abs(std::stod(strShown) - dValue) <= std::abs(dValue) * 1e-5;
    }
    return value.is_string() ? Plain(strShown) == Plain(value.get<std::string>()) : strShown == value.dump();
}

struct CASE
{
    std::string strName;
    const RECORD_LAYOUT* pstLayout;
    Bytes payload;
};

/// Records of every kind as indications and answers, each in a frame of its own.
class WiresharkRecords : public testing::Test
{
protected:
    /// szLeast: bytes of the record, those behind its fields included.
    void Add(const std::string& strName, const RECORD_LAYOUT* pstLayout, enChannelType enChannel, uint32_t ulId,
             uint16_t usType, size_t szLeast = 0)
    {
        if (pstLayout == nullptr)
            return;
        CASE stCase{strName, pstLayout, {}};
        Fill(stCase.payload, *pstLayout, m_ulSeed);
        stCase.payload.resize(std::max(stCase.payload.size(), szLeast));
        m_tshark.Add({.enKind = TAP_KIND::AGENT_TO_CLIENT, .ucUe = 3, .ucChannel = static_cast<uint8_t>(enChannel)},
                     Join(Le(ulId), Le(uint32_t{0}), Le(uint64_t{0}), Le(usType),
                          Le(static_cast<uint16_t>(stCase.payload.size())), stCase.payload));
        m_cases.push_back(stCase);
    }
    void Check()
    {
        const std::vector<DISSECTED> packets = m_tshark.Packets();
        ASSERT_EQ(packets.size(), m_cases.size());
        for (size_t i = 0; i < packets.size(); ++i)
            CheckOne(m_cases[i], packets[i]);
    }

    CTshark m_tshark;
    std::vector<CASE> m_cases;

private:
    static void CheckOne(const CASE& stCase, const DISSECTED& packet)
    {
        EXPECT_EQ(Values(packet, "expert"), "-") << stCase.strName;
        std::map<std::string, ordered_json> wanted;
        Leaves(Decode(*stCase.pstLayout, stCase.payload), "vex." + Abbreviation(stCase.pstLayout->pszName), wanted);
        ASSERT_FALSE(wanted.empty());
        for (const auto& [strField, values] : wanted) {
            ASSERT_TRUE(packet.contains(strField)) << stCase.strName << ": " << strField;
            const std::vector<std::string>& shown = packet.at(strField);
            ASSERT_EQ(shown.size(), values.size()) << stCase.strName << ": " << strField;
            for (size_t i = 0; i < shown.size(); ++i)
                EXPECT_TRUE(Same(shown[i], values[i])) << stCase.strName << ": " << strField << " " << shown[i];
        }
    }

    unsigned int m_ulSeed = 0;
};

constexpr uint32_t GuId(uint16_t usType, uint16_t usId)
{
    return (uint32_t{0x0100} | usType) << 16 | usId;
}
} // namespace

TEST_F(WiresharkRecords, ReportsAndStatisticsShowTheFieldsOfTheClient)
{
    for (const auto rows : {GuReports(), StatReports()})
        for (const REPORT_ROW& stRow : rows)
            for (const unsigned int ulModem : {0U, 1U}) {
                const REPORT_ID stId{&stRow, ulModem};
                if (ulModem == 1 && stRow.usModemStep == 0)
                    continue;
                const bool bQuery = stRow.usInd == 0;
                Add(stRow.pszName, stRow.pstLayout, bQuery ? CHANNEL_GU_CMD : CHANNEL_GU_DATA,
                    GuId(stRow.ucType, bQuery ? stId.Cnf() : stId.Ind()), static_cast<uint16_t>(0x0100 | stRow.ucType));
            }
    EXPECT_GT(m_cases.size(), 100u);
    Check();
}

TEST_F(WiresharkRecords, AnswersAndMeasurementsShowTheFieldsOfTheClient)
{
    for (const ANSWER_ROW& stRow : AnswerLayouts())
        Add(stRow.pstLayout->pszName, stRow.pstLayout, CHANNEL_LTE_DIAG, stRow.ulCmdId, 0x02F0);
    for (const MEASUREMENT_ROW& stRow : MeasurementLayouts()) {
        if (stRow.pstLayout->groups.empty() || stRow.pstLayout->groups[0].usFixedCount != 0)
            Add(stRow.pstLayout->pszName, stRow.pstLayout, CHANNEL_LTE_DATA, 0x00500001, 0x0302, stRow.szLen);
    }
    Check();
}
