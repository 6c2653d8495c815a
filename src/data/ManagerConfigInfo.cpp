#include "data/ManagerConfigInfo.h"

#include "common/Config.h"
#include "data/DiagPacket.h"

#include <algorithm>

namespace
{
unsigned int Lookup(const std::map<unsigned int, unsigned int>& ids, unsigned int ulId)
{
    const auto it = ids.find(ulId);
    return it != ids.end() ? it->second : ID_INVALID;
}
} // namespace

unsigned int ManagerConfigInfo::Dpi2Cmd(unsigned int ulDpi)
{
    return Lookup(CConfig::Instance()->GetDPH_FILTER_REQ_DPI_CMD_PAIR(), ulDpi);
}

unsigned int ManagerConfigInfo::Cmd2Dpi(unsigned int ulCmd)
{
    return Lookup(CConfig::Instance()->GetDPH_FILTER_REQ_CMD_DPI_PAIR(), ulCmd);
}

unsigned int ManagerConfigInfo::GetPids(unsigned int ulVersion, unsigned int ulDpi, unsigned int* pulPids)
{
    for (const auto& stRow : *CConfig::Instance()->GetDPH_FILTER_REQ_OSA_CFG()) {
        if (stRow.ulUeVer != ulVersion || ulDpi < stRow.ulIdLow || ulDpi > stRow.ulIdHigh)
            continue;
        pulPids[0] = stRow.ulSenderPid;
        pulPids[1] = stRow.ulReceiverPid;
        return DIAG_RC_OK;
    }
    return DIAG_RC_NO_PID;
}

bool ManagerConfigInfo::IsExcludeL1Id(unsigned int ulId)
{
    return CConfig::Instance()->GetL1ExcludeIndMap()->Find(ulId).value_or(true);
}

bool ManagerConfigInfo::IsExcludeL23Id(unsigned int ulId)
{
    return CConfig::Instance()->GetL3ExcludeIndMap()->Find(ulId).value_or(false);
}

bool ManagerConfigInfo::IsIncludeTdsId(unsigned int ulId)
{
    return CConfig::Instance()->GetTdsIncludeIndMap()->contains(ulId);
}

bool ManagerConfigInfo::IsTdsIncludeMeasMsg(unsigned int ulId)
{
    return CConfig::Instance()->GetTdsCombInd()->contains(ulId);
}

unsigned int ManagerConfigInfo::GetTdsMeasMsgPos(unsigned int ulId)
{
    const auto* pPositions = CConfig::Instance()->GetTdsCombInd();
    const auto it = pPositions->find(ulId);
    return it != pPositions->end() ? static_cast<unsigned int>(it->second) : TDS_POS_NONE;
}

unsigned int ManagerConfigInfo::GetTdsMeasMsgId(unsigned int ulPos)
{
    const auto* pIds = CConfig::Instance()->GetTdsCombMsg();
    return ulPos < pIds->size() ? (*pIds)[ulPos] : 0;
}

const std::map<unsigned int, unsigned int>* ManagerConfigInfo::GetLayerMsgCfgMap()
{
    return CConfig::Instance()->GetLayerMsgCfg();
}

bool ManagerConfigInfo::IsDphFilterEnable(unsigned int ulId)
{
    return std::ranges::any_of(*CConfig::Instance()->GetDphFilterRangeList(), [=](const ADE_RANGE_STRU& stRange) {
        return ulId >= stRange.ulLow && ulId <= stRange.ulHigh;
    });
}

unsigned int ManagerConfigInfo::GetCellMeasPacketId(unsigned int* pulIds)
{
    CConfig::Instance()->GetCellMeas(pulIds);
    return DIAG_RC_OK;
}

enCellMeas ManagerConfigInfo::CellMeasKind(unsigned int ulId)
{
    unsigned int aulIds[2] = {};
    (void)GetCellMeasPacketId(aulIds); // has no way to fail
    const bool bConfigured = aulIds[0] != 0 || aulIds[1] != 0;
    if (!bConfigured)
        return CELL_MEAS_NONE;
    if (ulId == aulIds[0])
        return CELL_MEAS_CONNECTED;
    return ulId == aulIds[1] ? CELL_MEAS_IDLE : CELL_MEAS_NONE;
}

bool ManagerConfigInfo::IsIncludeAtIndMsg(const std::string& strText)
{
    return std::ranges::any_of(*CConfig::Instance()->GetATDataMsgFilter(),
                               [&](const std::string& strWord) { return strText.find(strWord) != std::string::npos; });
}

bool ManagerConfigInfo::IsNeedAckParamSplitByBit(unsigned int /*ulId*/)
{
    return false;
}

bool ManagerConfigInfo::IsNeedIndParamSplitByBit(unsigned int /*ulId*/)
{
    return false;
}

bool ManagerConfigInfo::GetAckParamSplitByBit(unsigned int /*ulKey*/, ADE_PARMA_SPLIT_BIT_DATA_STRU& /*stSplit*/)
{
    return false;
}

bool ManagerConfigInfo::GetIndParamSplitByBit(unsigned int /*ulKey*/, ADE_PARMA_SPLIT_BIT_DATA_STRU& /*stSplit*/)
{
    return false;
}
