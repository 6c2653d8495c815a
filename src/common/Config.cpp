#include "common/Config.h"

#include "common/OwnedFile.h"
#include "common/Scan.h"
#include "common/SingletonSlot.h"

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <iterator>
#include <memory>
#include <type_traits>

using namespace config_form; // the last column of the table of keys

namespace
{

constexpr uint32_t DEFAULT_TIME_SPACE = 100;        // ms
constexpr uint32_t DEFAULT_CELL_MEAS_TIMEOUT = 200; // ms
constexpr uint32_t DEFAULT_TAP_SIZE = 16;           // MiB
constexpr size_t MOST_TAP_SIZE = 1024;              // MiB
constexpr size_t READ_CHUNK = 1023;                 // bytes of one read of the file

uint32_t Number(const std::string& strValue, uint32_t ulPreset)
{
    uint32_t ulValue = ulPreset;
    (void)ScanNumbers(strValue, "%d", {&ulValue});
    return ulValue;
}

} // namespace

template <auto pMember, uint32_t ulPreset> void CConfig::ParseNumber(const std::string& strValue)
{
    using Member = std::remove_reference_t<decltype(this->*pMember)>;
    this->*pMember = static_cast<Member>(Number(strValue, ulPreset));
}

template <auto pMember> void CConfig::ParseFlag(const std::string& strValue)
{
    this->*pMember = Number(strValue, 0) != 0;
}

template <auto pMember> void CConfig::ParseText(const std::string& strValue)
{
    this->*pMember = strValue;
}

template <auto pMember> void CConfig::ParseLayoutNumber(const std::string& strValue)
{
    m_stFilterCfg.*pMember = static_cast<uint16_t>(Number(strValue, 0));
}

template <auto pMember> void CConfig::ParseLayout(const std::string& strValue)
{
    ParsePairs(strValue, m_stFilterCfg.*pMember);
}

template <auto pMember> void CConfig::ParseIdSet(const std::string& strValue)
{
    ParseFILTERINDCFG(strValue, this->*pMember);
}

// One row per key: its name, what takes its value, and what the value should look like. Keys compare exactly; a key
// that isn't here is skipped without a word.
// clang-format off
const CConfig::KEY_ROW CConfig::c_astKey[] = {
    {"debuglevel",                     &CConfig::ParseDebugLevel,                                                      Number(0, 15)},
    {"debugfilename",                  &CConfig::ParseText<&CConfig::m_strDebugFileName>,                              TEXT},
    {"ReportInterval",                 &CConfig::ParseNumber<&CConfig::m_iReportInterval>,                             Number(0, 86'400)},
    {"MonitorIP",                      &CConfig::ParseText<&CConfig::m_strMonitorIp>,                                  ADDRESS},
    {"MonitorPort",                    &CConfig::ParseMonitorPort,                                                     LINKS},
    {"ChannelNameEnable",              &CConfig::ParseFlag<&CConfig::m_bChannelNameEnable>,                            FLAG},
    {"ChannelName",                    &CConfig::ParseChannelName,                                                     NAMES},
    {"ChannelPort",                    &CConfig::ParseChannelPort,                                                     PORT_NUMBERS},
    {"Recovery",                       &CConfig::ParseFlag<&CConfig::m_bRecovery>,                                     FLAG},
    {"LogMaxSize",                     &CConfig::ParseNumber<&CConfig::m_ulLogMaxSize>,                                Number(0, 1'000'000)},
    {"ListenAddress",                  &CConfig::ParseText<&CConfig::m_strListenAddress>,                              ADDRESS},
    {"AllowFrom",                      &CConfig::ParseAllowFrom,                                                       NETS},
    {"TapSocket",                      &CConfig::ParseText<&CConfig::m_strTapSocket>,                                  SOCKET_PATH},
    {"TapSize",                        &CConfig::ParseNumber<&CConfig::m_ulTapSize, DEFAULT_TAP_SIZE>,                 Number(1, MOST_TAP_SIZE)},
    {"TIME_SPACE",                     &CConfig::ParseNumber<&CConfig::m_ulTimeSpace>,                                 MILLISECONDS},  // not its default
    {"agentver",                       &CConfig::ParseAgentVersion,                                                    VERSION},
    {"CELL_MEAS_TIMEOUT",              &CConfig::ParseNumber<&CConfig::m_iCellMeasTimeOut, DEFAULT_CELL_MEAS_TIMEOUT>, MILLISECONDS},
    {"SPC_DPI_CELL_MEAS",              &CConfig::ParseCellMeas,                                                        TWO_IDS},
    {"DPH_FILTER_ENABLE",              &CConfig::ParseFlag<&CConfig::m_bDphFilterEnable>,                              FLAG},
    {"DPH_FILTER_RANGE",               &CConfig::ParseDphRange,                                                        RANGES},
    {"DPH_FILTER_REQ_DPI_CMD_PAIR",    &CConfig::ParseDpiCmdPair,                                                      ID_PAIRS},
    {"DPH_FILTER_REQ_OSA_CFG",         &CConfig::ParseOsaReq,                                                          OSA_ROWS},
    {"DPH_FILTER_IND_LAYER_MSG_CFG",   &CConfig::ParseLayerMsg,                                                        LAYER_ROWS},  // replaces
    {"DPI_L1_FILTER_IND_RANGE_CFG",    &CConfig::ParseIdSet<&CConfig::m_mapL1Exclude>,                                 ID_SET},
    {"DPI_L23_FILTER_IND_RANGE_CFG",   &CConfig::ParseIdSet<&CConfig::m_mapL3Exclude>,                                 ID_SET},
    {"TDS_MSG_MODULE_ID_RANGE",        &CConfig::ParseIdSet<&CConfig::m_mapTdsInclude>,                                ID_SET},
    {"TDS_COMB_IND_MSG_FILTER",        &CConfig::ParseTdsComb,                                                         IDS},  // replaces
    {"LTE_PRINT_ID_FILTER_LIST",       &CConfig::ParsePrintList,                                                       IDS},  // replaces
    {"AT_IND_MSG_FILTER",              &CConfig::ParseAtFilter,                                                        TEXTS},  // replaces
    {"REQ_CHL_PACKET_HEADER_LEN",      &CConfig::ParseLayoutNumber<&FILTER_CFG_STRU::usReqHeaderLen>,                  LAYOUT_BYTES},
    {"REQ_CHL_PACKET_HEADER_SYS_SIZE", &CConfig::ParseLayoutNumber<&FILTER_CFG_STRU::usReqHeaderSysSize>,              LAYOUT_BYTES},
    {"REQ_CHL_PACKET_HEADER",          &CConfig::ParseLayout<&FILTER_CFG_STRU::astReqHeader>,                          Pairs(11)},
    {"ACK_CHL_PACKET_PAYLOAD_OFFSET",  &CConfig::ParseLayoutNumber<&FILTER_CFG_STRU::usAckPayloadOffset>,              LAYOUT_BYTES},
    {"ACK_CHL_PACKET_HEADER",          &CConfig::ParseLayout<&FILTER_CFG_STRU::astAckHeader>,                          Pairs(6)},
    {"DATA_CHL_PACKET_PAYLOAD_OFFSET", &CConfig::ParseLayoutNumber<&FILTER_CFG_STRU::usDataPayloadOffset>,             LAYOUT_BYTES},
    {"DATA_CHL_PACKET_HEADER",         &CConfig::ParseLayout<&FILTER_CFG_STRU::astDataHeader>,                         Pairs(5)},
    {"DATA_ACK_CHL_PACKET_OFFSET",     &CConfig::ParseLayoutNumber<&FILTER_CFG_STRU::usDataAckOffset>,                 LAYOUT_BYTES},
    {"DATA_ACK_CHL_PACKET_UID",        &CConfig::ParseLayout<&FILTER_CFG_STRU::astDataAckUid>,                         Pairs(3)},
};
// clang-format on

CConfig::CConfig()
{
    Init();
}

CConfig* CConfig::Instance()
{
    return CSingletonSlot<CConfig>::Slot().Get([](bool) { return std::make_unique<CConfig>(); });
}

void CConfig::Destory()
{
    (void)CSingletonSlot<CConfig>::Slot().Retire();
}

void CConfig::Init()
{
    m_ucDebugLevel = 0;
    m_strDebugFileName = "Vex";
    m_iReportInterval = 0;
    m_strMonitorIp = "127.0.0.1";
    m_bChannelNameEnable = true;
    m_ulTimeSpace = DEFAULT_TIME_SPACE;
    m_strAgentVersion.clear();
    m_aiVersion = {};
    m_iCellMeasTimeOut = DEFAULT_CELL_MEAS_TIMEOUT;
    m_bDphFilterEnable = false;
    m_bRecovery = false;
    m_ulLogMaxSize = 0;
    m_strListenAddress.clear();
    m_bAllowAll = true;
    m_strTapSocket.clear();
    m_ulTapSize = DEFAULT_TAP_SIZE;
    m_strText.clear();
    m_stFilterCfg.ucDataTagFirst = 3;
    m_stFilterCfg.ucDataTagSecond = 0xFF;
    ClearLists();
}

bool CConfig::LoadConfigFile(const char* path)
{
    if (path == nullptr)
        return true;
    std::string strText;
    if (const OwnedFile pFile{fopen(path, "r")}) {
        char szChunk[READ_CHUNK + 1] = {};
        while (fread(szChunk, 1, READ_CHUNK, pFile.get()) > 0) {
            strText += szChunk; // a zero byte ends its chunk
            std::memset(szChunk, 0, sizeof(szChunk));
        }
    }
    m_strText = strText;
    return ParseConfig(strText);
}

size_t CConfig::GetTapBytes() const
{
    constexpr size_t MIB = 1 << 20;
    return std::clamp<size_t>(m_ulTapSize, 1, MOST_TAP_SIZE) * MIB;
}

bool CConfig::ParseConfig(std::string& text)
{
    for (size_t szBegin = 0; szBegin <= text.size();) {
        const size_t szEnd = std::min(text.find('\n', szBegin), text.size());
        std::string strLine = text.substr(szBegin, szEnd - szBegin);
        (void)ParseLine(strLine); // always true
        szBegin = szEnd + 1;
    }
    return true;
}

bool CConfig::ParseLine(std::string& line)
{
    std::erase_if(line, [](char c) { return c == '\t' || c == ' ' || c == '\r' || c == '\n'; });
    const size_t szEqual = line.find('=');
    if (line.starts_with('#') || szEqual == std::string::npos || szEqual == 0)
        return true;
    const std::string strKey = line.substr(0, szEqual);
    const std::string strValue = line.substr(szEqual + 1);
    const KEY_ROW* const pstRow = FindKey(strKey);
    if (pstRow != nullptr && !strValue.empty())
        (this->*pstRow->pfnParse)(strValue);
    return true;
}

const CConfig::KEY_ROW* CConfig::FindKey(std::string_view key)
{
    const auto row = std::ranges::find(c_astKey, key, &KEY_ROW::pszKey);
    return row == std::end(c_astKey) ? nullptr : row;
}

std::vector<std::string_view> CConfig::Keys()
{
    std::vector<std::string_view> keys;
    std::ranges::transform(c_astKey, std::back_inserter(keys), &KEY_ROW::pszKey);
    return keys;
}

const CONFIG_FORM* CConfig::FormOf(std::string_view key)
{
    const KEY_ROW* const pstRow = FindKey(key);
    return pstRow == nullptr ? nullptr : &pstRow->stForm;
}

bool CConfig::Split(const std::string& text, std::vector<std::string>& out, const std::string& sep)
{
    out.clear();
    if (sep.empty())
        return true;
    const std::string strText = text + sep;
    size_t szBegin = 0;
    for (size_t szEnd = 0; (szEnd = strText.find(sep, szBegin)) != std::string::npos; szBegin = szEnd + sep.size())
        if (szEnd > szBegin)
            out.push_back(strText.substr(szBegin, szEnd - szBegin));
    return true;
}

void CConfig::OutputConfig() const
{
    const OwnedFile pFile(fopen("/cygdrive/d/save.cfg", "w+"));
    if (!pFile)
        return;
    for (const auto& [ulCmd, ulDpi] : m_mapCmdDpi)
        (void)fprintf(pFile.get(), "0x%x, %x\n", ulCmd, ulDpi);
}

bool CConfig::IsPeerAllowed(uint32_t ulAddress) const
{
    return m_bAllowAll ||
           std::ranges::any_of(m_vecAllowFrom, [&](const NET_RANGE& stRange) { return stRange.Holds(ulAddress); });
}

void CConfig::GetCellMeas(unsigned int* out) const
{
    std::ranges::copy(m_aulCellMeas, out);
}

void CConfig::GetVersion(int& iMajor, int& iMinor, int& iPatch) const
{
    iMajor = m_aiVersion[0];
    iMinor = m_aiVersion[1];
    iPatch = m_aiVersion[2];
}

void CConfig::ClearLists()
{
    m_mapDpiCmd.clear();
    m_mapCmdDpi.clear();
    m_vecOsaReq.clear();
    m_vecAtFilter.clear();
    m_mapL1Exclude = {};
    m_mapL3Exclude = {};
    m_mapTdsInclude = {};
    m_mapTdsComb.clear();
    m_mapPrint.clear();
    m_vecTdsComb.clear();
    m_mapLayerMsg.clear();
    m_vecDphRange.clear();
    m_vecChannelName.clear();
    m_vecChannelPort.clear();
    m_vecMonitorPort.clear();
    m_vecAllowFrom.clear();
}

void CConfig::ParseDebugLevel(const std::string& strValue)
{
    m_ucDebugLevel = static_cast<unsigned char>(Number(strValue, 0));
}

void CConfig::ParseAgentVersion(const std::string& strValue)
{
    std::array<uint32_t, 3> aulVersion{};
    (void)ScanNumbers(strValue, "%d.%d.%d", {&aulVersion[0], &aulVersion[1], &aulVersion[2]});
    std::ranges::transform(aulVersion, m_aiVersion.begin(), [](uint32_t ul) { return static_cast<int>(ul); });
    m_strAgentVersion = strValue;
}

void CConfig::ParseCellMeas(const std::string& strValue)
{
    m_aulCellMeas = {};
    (void)ScanNumbers(strValue, "0x%x;0x%x", {&m_aulCellMeas[0], &m_aulCellMeas[1]});
}
