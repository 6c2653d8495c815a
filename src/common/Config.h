#pragma once

#include <array>
#include <cstdint>
#include <map>
#include <string>
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
    uint8_t ucDataTagFirst = 3;     // tag bytes that mark a packet as data; no key changes them
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

constexpr uint32_t UNUSED_PORT_NUM = 0x7FFFFFFF; // port number of a port that has none

/// Every setting of the agent. Written only while the file is loaded, before any other thread starts; only read
/// from then on, from any thread and without a lock. Members without a default of their own are zero.
class CConfig
{
public:
    /// Creates the object on first use; Init sets the defaults.
    static CConfig* Instance();
    static void Destory();

    CConfig();

    void Init();
    /// Reads the file; a missing one leaves the defaults. Always true. A null path does nothing.
    bool LoadConfigFile(const char* path);
    /// Handles the lines of a text in order.
    bool ParseConfig(std::string& text);
    /// Handles one line: strips blanks, skips comments, unknown keys and empty values.
    bool ParseLine(std::string& line);
    /// The pieces of text between occurrences of sep that aren't empty. Always true.
    bool Split(std::string& text, std::vector<std::string>& out, const std::string& sep);
    /// Writes the command to DPI map to a file, for debugging; nothing calls it.
    void OutputConfig() const;

    unsigned char GetDebugLevel() const { return m_ucDebugLevel; }
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
    const std::map<unsigned int, bool>* GetL1ExcludeIndMap() const { return &m_mapL1Exclude; }
    const std::map<unsigned int, bool>* GetL3ExcludeIndMap() const { return &m_mapL3Exclude; }
    const std::map<unsigned int, bool>* GetTdsIncludeIndMap() const { return &m_mapTdsInclude; }
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

private:
    unsigned char m_ucDebugLevel = 0;
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
    std::map<unsigned int, bool> m_mapL1Exclude;
    std::map<unsigned int, bool> m_mapL3Exclude;
    std::map<unsigned int, bool> m_mapTdsInclude;
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
};
