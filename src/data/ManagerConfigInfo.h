#pragma once

#include <cstdint>
#include <map>
#include <string>

/// Answer of the bit split questions: the slice of a payload that one bit stands for, and the id it goes out under.
struct ADE_PARMA_SPLIT_BIT_DATA_STRU
{
    uint16_t usOffset = 0; // bytes into the payload
    uint16_t usLen = 0;
    uint32_t ulNewId = 0;
};

/// Place of an id in SPC_DPI_CELL_MEAS.
enum enCellMeas
{
    CELL_MEAS_CONNECTED = 0, // the first id
    CELL_MEAS_IDLE = 1,      // the second
    CELL_MEAS_NONE = 2,
};

/// The questions that the LTE processors ask the configuration about an id. No instance, no state of its own; from
/// any thread.
class ManagerConfigInfo
{
public:
    static constexpr unsigned int TDS_POS_NONE = 0xFFFF;

    /// UE command id of a DPI id and the reverse; ID_INVALID when unknown.
    static unsigned int Dpi2Cmd(unsigned int ulDpi);
    static unsigned int Cmd2Dpi(unsigned int ulCmd);
    /// Sender and receiver PID of the first entry with this UE version and id; DIAG_RC_NO_PID, and nothing
    /// written, without one.
    static unsigned int GetPids(unsigned int ulVersion, unsigned int ulDpi, unsigned int* pulPids);
    // The asymmetry of these two is deliberate: an L1 message must be listed to pass, an L2/L3 message to stop.
    static bool IsExcludeL1Id(unsigned int ulId);
    static bool IsExcludeL23Id(unsigned int ulId);
    /// Only membership counts here, whatever the sign.
    static bool IsIncludeTdsId(unsigned int ulId);
    static bool IsTdsIncludeMeasMsg(unsigned int ulId);
    /// Position in the TDS list; TDS_POS_NONE when the id isn't in it.
    static unsigned int GetTdsMeasMsgPos(unsigned int ulId);
    /// Id at a position of the TDS list; 0 beyond its end.
    static unsigned int GetTdsMeasMsgId(unsigned int ulPos);
    /// Id to: low 16 bits the bytes to strip, high 16 bits kept without use. Key ID_INVALID is the catch-all.
    static const std::map<unsigned int, unsigned int>* GetLayerMsgCfgMap();
    static bool IsDphFilterEnable(unsigned int ulId);
    /// Writes both cell measurement ids, connected and idle; both 0 without configuration. Always 0.
    static unsigned int GetCellMeasPacketId(unsigned int* pulIds);
    /// Which of the two an id is; without configuration none is.
    static enCellMeas CellMeasKind(unsigned int ulId);
    static bool IsIncludeAtIndMsg(const std::string& strText);

    // Bit split: no table stands behind these yet, so the answer is always false.
    static bool IsNeedAckParamSplitByBit(unsigned int ulId);
    static bool IsNeedIndParamSplitByBit(unsigned int ulId);
    static bool GetAckParamSplitByBit(unsigned int ulKey, ADE_PARMA_SPLIT_BIT_DATA_STRU& stSplit);
    static bool GetIndParamSplitByBit(unsigned int ulKey, ADE_PARMA_SPLIT_BIT_DATA_STRU& stSplit);
};
