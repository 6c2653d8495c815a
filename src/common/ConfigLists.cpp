#include "common/Config.h"
#include "common/Scan.h"

#include <algorithm>
#include <arpa/inet.h>
#include <charconv>
#include <iterator>
#include <optional>

// The values that are lists: their small languages, one function each. Items that can't be read count as zero.

namespace
{

constexpr uint32_t LAYER_DEFAULT_ID = 0xFFFFFFFF; // the row "*" of the layer message list

/// The text without its first and last characters, the brackets around a list.
std::string Inside(const std::string& strText)
{
    return strText.size() < 2 ? std::string() : strText.substr(1, strText.size() - 2);
}

/// The text behind the first occurrence of the character, or all of it.
std::string Behind(const std::string& strText, char c)
{
    const size_t szPos = strText.find(c);
    return szPos == std::string::npos ? strText : strText.substr(szPos + 1);
}

uint32_t HexId(const std::string& strText)
{
    uint32_t ulId = 0;
    (void)ScanNumbers(strText, "0x%x", {&ulId});
    return ulId;
}

/// "(a,b)": every id from a - 1 to b - 1, nothing when a is 0. Configuration files in use rely on the shift.
void SetShiftedRange(uint32_t ulLow, uint32_t ulHigh, bool bFlag, CIdFlags& flags)
{
    if (ulLow > 0 && ulHigh > 0)
        flags.SetRange(ulLow - 1, ulHigh - 1, bFlag);
}

} // namespace

std::optional<NET_RANGE> ParseNetRange(const std::string& strText)
{
    constexpr uint32_t ADDRESS_BITS = 32;
    const size_t szSlash = std::min(strText.find('/'), strText.size());
    uint32_t ulBits = ADDRESS_BITS;
    if (szSlash < strText.size()) {
        const char* const pEnd = strText.data() + strText.size();
        const auto [pBehind, error] = std::from_chars(strText.data() + szSlash + 1, pEnd, ulBits);
        if (error != std::errc() || pBehind != pEnd || ulBits > ADDRESS_BITS)
            return std::nullopt;
    }
    in_addr stAddress{};
    if (inet_pton(AF_INET, strText.substr(0, szSlash).c_str(), &stAddress) != 1)
        return std::nullopt;
    return NET_RANGE{ntohl(stAddress.s_addr), static_cast<uint32_t>(~uint64_t{0} << (ADDRESS_BITS - ulBits))};
}

std::vector<std::string> CConfig::Items(const std::string& strText, const char* pszSep)
{
    std::vector<std::string> vecItems;
    (void)Split(strText, vecItems, pszSep); // always true
    return vecItems;
}

/// One that can't be read lets nobody in, as if it were not there; but the key is, so all others stay out.
void CConfig::ParseAllowFrom(const std::string& strValue)
{
    m_bAllowAll = false;
    for (const std::string& strItem : Items(strValue, ";"))
        if (const auto stRange = ParseNetRange(strItem))
            m_vecAllowFrom.push_back(*stRange);
}

void CConfig::ParsePairs(const std::string& strValue, std::span<VALUE_STRU> pairs)
{
    std::vector<uint32_t> vecNumbers(2 * pairs.size());
    std::vector<uint32_t*> vecFields(vecNumbers.size());
    std::ranges::transform(vecNumbers, vecFields.begin(), [](uint32_t& ulNumber) { return &ulNumber; });
    std::string strFormat;
    for (size_t i = 0; i < pairs.size(); ++i)
        strFormat += i == 0 ? "{%d,%d}" : ";{%d,%d}";
    (void)ScanNumbers(strValue, strFormat, vecFields);
    for (size_t i = 0; i < pairs.size(); ++i)
        pairs[i] = {static_cast<uint16_t>(vecNumbers[2 * i]), static_cast<uint16_t>(vecNumbers[2 * i + 1])};
}

void CConfig::ParseChannelName(const std::string& strValue)
{
    std::ranges::copy(Items(strValue, ";"), std::back_inserter(m_vecChannelName));
}

void CConfig::ParseChannelPort(const std::string& strValue)
{
    for (const std::string& strItem : Items(strValue, ";")) {
        uint32_t ulPort = UNUSED_PORT_NUM;
        (void)ScanNumbers(strItem, "%u", {&ulPort});
        m_vecChannelPort.push_back(ulPort);
    }
}

void CConfig::ParseMonitorPort(const std::string& strValue)
{
    for (const std::string& strItem : Items(strValue, ";")) {
        PORT_INFO stPort;
        (void)ScanNumbers(strItem, "%d:%d", {&stPort.uiPort, &stPort.uiIsTcp});
        m_vecMonitorPort.push_back(stPort);
    }
}

void CConfig::ParseAtFilter(const std::string& strValue)
{
    m_vecAtFilter = Items(strValue, ";");
}

void CConfig::ParseDphRange(const std::string& strValue)
{
    for (const std::string& strItem : Items(strValue, ";")) {
        ADE_RANGE_STRU stRange;
        (void)ScanNumbers(strItem, "{0x%x,0x%x}", {&stRange.ulLow, &stRange.ulHigh});
        m_vecDphRange.push_back(stRange);
    }
}

void CConfig::ParseDpiCmdPair(const std::string& strValue)
{
    for (const std::string& strItem : Items(strValue, ";")) {
        uint32_t ulDpi = 0;
        uint32_t ulCmd = 0;
        (void)ScanNumbers(strItem, "{0x%x,0x%x}", {&ulDpi, &ulCmd});
        m_mapDpiCmd[ulDpi] = ulCmd;
        m_mapCmdDpi[ulCmd] = ulDpi;
    }
}

void CConfig::ParseOsaReq(const std::string& strValue)
{
    for (const std::string& strItem : Items(strValue, ";")) {
        DPH_OSAREQ_CFG_STRU stRow;
        (void)ScanNumbers(strItem, "%d-{0x%x-0x%x}:{%d,%d}",
                          {&stRow.ulUeVer, &stRow.ulIdLow, &stRow.ulIdHigh, &stRow.ulSenderPid, &stRow.ulReceiverPid});
        m_vecOsaReq.push_back(stRow);
    }
}

void CConfig::ParseTdsComb(const std::string& strValue)
{
    m_mapTdsComb.clear();
    m_vecTdsComb.clear();
    for (const std::string& strItem : Items(strValue, ";")) {
        const uint32_t ulId = HexId(strItem);
        m_mapTdsComb.emplace(ulId, static_cast<int>(m_vecTdsComb.size())); // a repeated id keeps its first position
        m_vecTdsComb.push_back(ulId);
    }
}

void CConfig::ParsePrintList(const std::string& strValue)
{
    m_mapPrint.clear();
    int lPos = 0;
    for (const std::string& strItem : Items(strValue, ";"))
        m_mapPrint.emplace(HexId(strItem), lPos++);
}

void CConfig::ParseLayerMsg(const std::string& strValue)
{
    m_mapLayerMsg.clear();
    for (const std::string& strItem : Items(strValue, ";")) {
        const std::vector<std::string> vecPieces = Items(strItem, ":");
        if (vecPieces.size() != 2)
            continue;
        uint32_t ulStrip = 0;
        uint32_t ulHigh = 0;
        (void)ScanNumbers(vecPieces[1], "{%d,%d}", {&ulStrip, &ulHigh});
        const uint32_t ulValue = (ulHigh & 0xFFFF) << 16 | (ulStrip & 0xFFFF);
        if (vecPieces[0] == "*") {
            m_mapLayerMsg.emplace(LAYER_DEFAULT_ID, ulValue); // as below: the first row of an id stands
            continue;
        }
        for (const std::string& strId : Items(Inside(vecPieces[0]), ","))
            m_mapLayerMsg.emplace(HexId(strId), ulValue);
    }
}

void CConfig::ParseFILTERINDCFG(const std::string& strValue, CIdFlags& flags)
{
    for (const std::string& strItem : Items(strValue, ";")) {
        if (strItem.size() == 1)
            continue;
        const bool bFlag = strItem.front() == '-';
        const std::string strSet = Behind(Behind(strItem, '+'), '-');
        const std::vector<std::string> vecIds = Items(Inside(strSet), ",");
        if (strSet.starts_with('{')) {
            for (const std::string& strId : vecIds)
                flags.Set(HexId(strId), bFlag);
        } else if (vecIds.size() < 2) {
            continue;
        } else if (strSet.starts_with('[')) {
            flags.SetRange(HexId(vecIds[0]), HexId(vecIds[1]), bFlag);
        } else if (strSet.starts_with('(')) {
            SetShiftedRange(HexId(vecIds[0]), HexId(vecIds[1]), bFlag, flags);
        }
    }
}
