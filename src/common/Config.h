#pragma once

#include "common/ConfigForm.h"
#include "common/IdFlags.h"

#include <array>
#include <atomic>
#include <cstdint>
#include <map>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

/// Where one field of a UE packet lies. Valid sizes are 1 to 8; any other makes the field absent.
struct VALUE_STRU
{
    uint16_t usOffset = 0; // bytes from the start of the packet
    uint16_t usSize = 0;   // bytes
};

/// Layout of the UE's LTE packets, as the configuration describes it.
struct FILTER_CFG_STRU
{
    uint8_t ucDataTagFirst = 3; // tag bytes that mark a packet as data; no key changes them
    uint8_t ucDataTagSecond = 0xFF;
    uint16_t usReqHeaderLen = 0;
    uint16_t usReqHeaderSysSize = 0; // kept; nothing reads it
    std::array<VALUE_STRU, 11> astReqHeader;
    uint16_t usAckPayloadOffset = 0;
    std::array<VALUE_STRU, 6> astAckHeader;
    uint16_t usDataPayloadOffset = 0;
    std::array<VALUE_STRU, 5> astDataHeader;
    uint16_t usDataAckOffset = 0;
    std::array<VALUE_STRU, 3> astDataAckUid;
};

/// PIDs of a DPI request by UE version and id, both ends of the range included.
struct DPH_OSAREQ_CFG_STRU
{
    uint32_t ulUeVer = 0;
    uint32_t ulIdLow = 0;
    uint32_t ulIdHigh = 0;
    uint32_t ulSenderPid = 0;
    uint32_t ulReceiverPid = 0;
};

/// A range of ids, both ends included.
struct ADE_RANGE_STRU
{
    uint32_t ulLow = 0;
    uint32_t ulHigh = 0;
};

/// One link of the network UE.
struct PORT_INFO
{
    uint32_t uiPort = 0;
    uint32_t uiIsTcp = 1; // not 0: TCP, 0: UDP
};

/// Addresses that have these leading bits, all in host order.
struct NET_RANGE
{
    uint32_t ulAddress = 0;
    uint32_t ulMask = 0;

    bool Holds(uint32_t ulOther) const { return (ulOther & ulMask) == (ulAddress & ulMask); }
};

/// "a.b.c.d", or "a.b.c.d/n" for all addresses with the same n leading bits; nothing for any other text.
std::optional<NET_RANGE> ParseNetRange(const std::string& strText);

constexpr uint32_t UNUSED_PORT_NUM = 0x7FFFFFFF; // port number of a port that has none

/// Every setting of the agent. Written only while the file is loaded, before any other thread starts; only read
/// from then on, from any thread and without a lock. Members without a default of their own are zero.
class CConfig
{
public:
    /// Creates the object on first use; Init sets the defaults. A call after Destory makes a new one.
    static CConfig* Instance();
    /// Lets go of the object. A thread that still reads it finds it whole.
    static void Destory();

    CConfig();

    /// Sets the defaults; what has none stays as it is, which is zero or empty in a new object.
    void Init();
    /// Reads the file; a missing one leaves the defaults. Always true. A null path does nothing.
    bool LoadConfigFile(const char* path);
    /// Handles the lines of a text in order. Always true.
    bool ParseConfig(std::string& text);
    /// Handles one line: takes the blanks out of it, skips comments, unknown keys and empty values. Numbers that
    /// can't be read are zero or the key's default, numbers that are too large lose their high bits. Always true.
    bool ParseLine(std::string& line);
    /// The pieces of text between occurrences of sep that aren't empty. Always true.
    static bool Split(const std::string& text, std::vector<std::string>& out, const std::string& sep);
    /// Every key there is.
    static std::vector<std::string_view> Keys();
    /// What a key's value should look like; null for an unknown key.
    static const CONFIG_FORM* FormOf(std::string_view key);
    /// Writes the command to DPI map to a file, for debugging; nothing calls it.
    void OutputConfig() const;

    unsigned char GetDebugLevel() const { return m_ucDebugLevel.load(std::memory_order_relaxed); }
    int GetStatusInfoReportInterval() const { return m_iReportInterval; } // seconds
    unsigned int GetTimespaceForGuReq() const { return m_ulTimeSpace; }   // ms
    const char* GetDebugFileName() const { return m_strDebugFileName.c_str(); }
    const char* GetMonitorIPAddr() const { return m_strMonitorIp.c_str(); }
    const char* GetAgentVersion() const { return m_strAgentVersion.c_str(); }
    std::map<unsigned int, unsigned int> GetDPH_FILTER_REQ_DPI_CMD_PAIR() const { return m_mapDpiCmd; }
    std::map<unsigned int, unsigned int> GetDPH_FILTER_REQ_CMD_DPI_PAIR() const { return m_mapCmdDpi; }
    const std::vector<DPH_OSAREQ_CFG_STRU>* GetDPH_FILTER_REQ_OSA_CFG() const { return &m_vecOsaReq; }
    /// Copies both cell measurement ids: connected, idle.
    void GetCellMeas(unsigned int* out) const;
    const FILTER_CFG_STRU* GetFilterCfg() const { return &m_stFilterCfg; }
    bool GetDphFilterEnable() const { return m_bDphFilterEnable; }
    void GetVersion(int& iMajor, int& iMinor, int& iPatch) const;
    const std::vector<std::string>* GetATDataMsgFilter() const { return &m_vecAtFilter; }
    // Id sets; a flag is true for an id listed with "-".
    const CIdFlags* GetL1ExcludeIndMap() const { return &m_mapL1Exclude; }
    const CIdFlags* GetL3ExcludeIndMap() const { return &m_mapL3Exclude; }
    const CIdFlags* GetTdsIncludeIndMap() const { return &m_mapTdsInclude; }
    const std::map<unsigned int, int>* GetTdsCombInd() const { return &m_mapTdsComb; }
    bool IsPrintMessage(unsigned int id) const { return m_mapPrint.contains(id); }
    const std::vector<unsigned int>* GetTdsCombMsg() const { return &m_vecTdsComb; }
    const std::map<unsigned int, unsigned int>* GetLayerMsgCfg() const { return &m_mapLayerMsg; }
    const std::vector<ADE_RANGE_STRU>* GetDphFilterRangeList() const { return &m_vecDphRange; }
    bool GetChannelNameEnable() const { return m_bChannelNameEnable; }
    const std::vector<std::string>* GetChannelNames() const { return &m_vecChannelName; }
    const std::vector<unsigned int>* GetChannelPorts() const { return &m_vecChannelPort; }
    int GetCellMeasTimeOut() const { return m_iCellMeasTimeOut; } // ms
    const std::vector<PORT_INFO>* GetMonitorPortInfo() const { return &m_vecMonitorPort; }
    bool GetRecovery() const { return m_bRecovery; }
    unsigned int GetLogMaxSize() const { return m_ulLogMaxSize; } // MB; 0: no limit
    /// Dotted text; empty for all addresses.
    const char* GetListenAddress() const { return m_strListenAddress.c_str(); }
    /// Path of the tap's socket; empty for no tap.
    const char* GetTapSocket() const { return m_strTapSocket.c_str(); }
    /// Bytes of the tap's ring.
    size_t GetTapBytes() const;
    /// The file as it was read.
    const std::string& GetText() const { return m_strText; }
    /// Whether a peer with this address (host order) may connect.
    bool IsPeerAllowed(uint32_t ulAddress) const;

private:
    using PARSER = void (CConfig::*)(const std::string& strValue);
    struct KEY_ROW
    {
        const char* pszKey;
        PARSER pfnParse;
        CONFIG_FORM stForm;
    };
    static const KEY_ROW c_astKey[];
    static const KEY_ROW* FindKey(std::string_view key);

    void ClearLists();

    // Single values. A value that isn't a number gives ulPreset.
    void ParseDebugLevel(const std::string& strValue);
    template <auto pMember, uint32_t ulPreset = 0> void ParseNumber(const std::string& strValue);
    template <auto pMember> void ParseFlag(const std::string& strValue);
    template <auto pMember> void ParseText(const std::string& strValue);
    void ParseAgentVersion(const std::string& strValue);
    void ParseCellMeas(const std::string& strValue);
    template <auto pMember> void ParseLayoutNumber(const std::string& strValue);
    template <auto pMember> void ParseLayout(const std::string& strValue);

    // Lists.
    void ParseChannelName(const std::string& strValue);
    void ParseChannelPort(const std::string& strValue);
    void ParseMonitorPort(const std::string& strValue);
    void ParseAllowFrom(const std::string& strValue);
    void ParseAtFilter(const std::string& strValue);
    void ParseDphRange(const std::string& strValue);
    void ParseDpiCmdPair(const std::string& strValue);
    void ParseOsaReq(const std::string& strValue);
    void ParseTdsComb(const std::string& strValue);
    void ParsePrintList(const std::string& strValue);
    void ParseLayerMsg(const std::string& strValue);
    template <auto pMember> void ParseIdSet(const std::string& strValue);
    static void ParseFILTERINDCFG(const std::string& strValue, CIdFlags& flags);
    /// Pairs "{%d,%d}" joined by ";"; a pair that can't be read, and all behind it, are zero.
    static void ParsePairs(const std::string& strValue, std::span<VALUE_STRU> pairs);
    /// The pieces between occurrences of sep that aren't empty.
    static std::vector<std::string> Items(const std::string& strText, const char* pszSep);

    std::atomic<unsigned char> m_ucDebugLevel = 0; // tests change it while threads log
    int m_iReportInterval = 0;
    unsigned int m_ulTimeSpace = 0;
    std::string m_strDebugFileName;
    std::string m_strMonitorIp;
    std::string m_strAgentVersion;
    std::map<unsigned int, unsigned int> m_mapDpiCmd;
    std::map<unsigned int, unsigned int> m_mapCmdDpi;
    std::vector<DPH_OSAREQ_CFG_STRU> m_vecOsaReq;
    std::array<unsigned int, 2> m_aulCellMeas{};
    FILTER_CFG_STRU m_stFilterCfg;
    bool m_bDphFilterEnable = false;
    std::array<int, 3> m_aiVersion{};
    std::vector<std::string> m_vecAtFilter;
    CIdFlags m_mapL1Exclude;
    CIdFlags m_mapL3Exclude;
    CIdFlags m_mapTdsInclude;
    std::map<unsigned int, int> m_mapTdsComb;
    std::map<unsigned int, int> m_mapPrint;
    std::vector<unsigned int> m_vecTdsComb;
    std::map<unsigned int, unsigned int> m_mapLayerMsg;
    std::vector<ADE_RANGE_STRU> m_vecDphRange;
    bool m_bChannelNameEnable = true;
    std::vector<std::string> m_vecChannelName;
    std::vector<unsigned int> m_vecChannelPort;
    int m_iCellMeasTimeOut = 0;
    std::vector<PORT_INFO> m_vecMonitorPort;
    bool m_bRecovery = false;
    unsigned int m_ulLogMaxSize = 0;
    std::string m_strListenAddress;
    std::string m_strTapSocket;
    unsigned int m_ulTapSize = 0; // MiB
    std::string m_strText;
    bool m_bAllowAll = true;
    std::vector<NET_RANGE> m_vecAllowFrom;
};
