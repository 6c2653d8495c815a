#include "data/LteIndFilter.h"

#include "common/Config.h"
#include "common/Debug.h"
#include "data/ManagerConfigInfo.h"

namespace
{

constexpr unsigned char SYS_MODE_TDS = 3;
constexpr unsigned int OTHER_ID_MASK = 0xFFFF;

void StripFront(ADE_DATA_PACKET_STRU& stPacket, size_t szCount)
{
    stPacket.pData = Slice(stPacket.pData, szCount);
    stPacket.usLen = static_cast<uint16_t>(stPacket.pData.size());
}

unsigned int ExcludeL23(const ADE_DATA_PACKET_STRU& stPacket, unsigned int ulRc = DIAG_RC_OK)
{
    return ManagerConfigInfo::IsExcludeL23Id(stPacket.ulCmdId) ? DIAG_RC_FILTERED : ulRc;
}

bool IsPrinted(unsigned int ulId)
{
    return CConfig::Instance()->IsPrintMessage(ulId);
}

/// An L1 message passes only when it is listed.
unsigned int FilterDsp(ADE_DATA_PACKET_STRU& stPacket, const IND_CONTEXT& stContext)
{
    stPacket.ucIndType = IND_TYPE_OTHER;
    if (IdClass(stPacket.ulCmdId) == ID_CLASS_DSP_TDS)
        stPacket.ucSysMode = SYS_MODE_TDS;
    if (IsPrinted(stPacket.ulCmdId))
        CDebug::Instance()->PrintInfo("dsp message(com %d) id 0x%x", stContext.ulPort, stPacket.ulCmdId);
    return ManagerConfigInfo::IsExcludeL1Id(stPacket.ulCmdId) ? DIAG_RC_FILTERED : DIAG_RC_OK;
}

/// An event has no payload of its own: its id is all there is to tell.
unsigned int FilterEvent(ADE_DATA_PACKET_STRU& stPacket, unsigned int& ulCount, const IND_CONTEXT& stContext)
{
    constexpr size_t EVENT_ID = 4;
    ADE_DATA_PACKET_STRU& stEvent = stContext.stOut.astPacket[0];
    stEvent = stPacket;
    stEvent.ulCmdId = LoadLe<uint32_t>(stPacket.pData, EVENT_ID);
    stEvent.ucIndType = IND_TYPE_EVENT;
    stEvent.usLen = 0;
    stEvent.pData = {};
    const unsigned int ulRc = ExcludeL23(stEvent);
    ulCount = ulRc == DIAG_RC_OK ? 1 : 0;
    if (IsPrinted(stEvent.ulCmdId))
        CDebug::Instance()->PrintInfo("Event message(com %d) id 0x%x", stContext.ulPort, stEvent.ulCmdId);
    return ulRc;
}

// Head of an air, IMS or layer message. Of an air or IMS message a client gets the last four bytes, rewritten.
constexpr size_t AIR_MODULE = 0; // u32
constexpr size_t AIR_FLAGS = 4;  // u32
constexpr size_t AIR_ID = 12;    // u32
constexpr size_t AIR_HEAD = 16;

unsigned int FilterAirOrIms(ADE_DATA_PACKET_STRU& stPacket, unsigned char ucIndType, const IND_CONTEXT& stContext)
{
    if (stPacket.usLen < AIR_HEAD)
        return DIAG_RC_FAIL;
    const unsigned int ulPacketId = stPacket.ulCmdId;
    const auto ulModule = LoadLe<uint32_t>(stPacket.pData, AIR_MODULE);
    stPacket.ulCmdId = LoadLe<uint32_t>(stPacket.pData, AIR_ID);
    if (ManagerConfigInfo::IsIncludeTdsId(ulModule)) {
        stPacket.ulCmdId |= ulModule << 16;
        stPacket.ucSysMode = SYS_MODE_TDS;
    }
    const auto ucFlag = static_cast<uint8_t>(LoadLe<uint32_t>(stPacket.pData, AIR_FLAGS));
    const auto usBody = static_cast<uint16_t>(stPacket.usLen - AIR_HEAD);
    StripFront(stPacket, AIR_ID);
    StoreLe<uint16_t>(stPacket.pData, 0, ucFlag);
    StoreLe<uint16_t>(stPacket.pData, 2, usBody);
    stPacket.ucIndType = ucIndType;
    if (IsPrinted(stPacket.ulCmdId)) {
        CDebug::Instance()->PrintInfo("(com %d)Air or Ims message(pkid:0x%x) id 0x%x", stContext.ulPort, ulPacketId,
                                      stPacket.ulCmdId);
        CDebug::Instance()->PrintRawData("Air or Ims message data ", stPacket.pData);
    }
    return ExcludeL23(stPacket);
}

unsigned int FilterAir(ADE_DATA_PACKET_STRU& stPacket, unsigned int& /*ulCount*/, const IND_CONTEXT& stContext)
{
    return FilterAirOrIms(stPacket, IND_TYPE_AIR, stContext);
}

unsigned int FilterIms(ADE_DATA_PACKET_STRU& stPacket, unsigned int& /*ulCount*/, const IND_CONTEXT& stContext)
{
    return FilterAirOrIms(stPacket, IND_TYPE_IMS, stContext);
}

/// Measurements are rebuilt, all other layer messages lose what the configuration tells.
unsigned int TranslateLayer(ADE_DATA_PACKET_STRU& stPacket, unsigned int& ulCount, const IND_CONTEXT& stContext)
{
    switch (ManagerConfigInfo::CellMeasKind(stPacket.ulCmdId)) {
    case CELL_MEAS_CONNECTED:
        return DoPacketMeasConnectedIn(stPacket, stContext.stOut, ulCount);
    case CELL_MEAS_IDLE: {
        unsigned int aulIds[2] = {};
        (void)ManagerConfigInfo::GetCellMeasPacketId(aulIds); // has no way to fail
        stPacket.ulCmdId = aulIds[CELL_MEAS_CONNECTED];
        return DoPacketMeasIdleIn(stPacket, stContext.stOut, ulCount, stContext.stStore, stContext.clock);
    }
    case CELL_MEAS_NONE:
        break;
    }
    if (ManagerConfigInfo::IsTdsIncludeMeasMsg(stPacket.ulCmdId))
        return DoPaketTdsMeasIn(stPacket, stContext.stOut, ulCount);
    return DoIndLayerFilter(stPacket);
}

unsigned int FilterLayer(ADE_DATA_PACKET_STRU& stPacket, unsigned int& ulCount, const IND_CONTEXT& stContext)
{
    if (stPacket.usLen < AIR_HEAD)
        return DIAG_RC_FAIL;
    stPacket.ulCmdId = LoadLe<uint32_t>(stPacket.pData, AIR_ID);
    StripFront(stPacket, AIR_HEAD);
    stPacket.ucIndType = IND_TYPE_LAYER;
    if (IsPrinted(stPacket.ulCmdId)) {
        CDebug::Instance()->PrintInfo("(com %d)Layer Message id 0x%x", stContext.ulPort, stPacket.ulCmdId);
        CDebug::Instance()->PrintRawData("Layer Message data ", stPacket.pData);
    }
    const unsigned int ulRc = TranslateLayer(stPacket, ulCount, stContext);
    return ExcludeL23(stPacket, ulRc);
}

unsigned int FilterUserPlane(ADE_DATA_PACKET_STRU& stPacket, unsigned int& /*ulCount*/, const IND_CONTEXT& stContext)
{
    constexpr size_t USER_PLANE_ID = 4; // u32
    constexpr size_t USER_PLANE_HEAD = 8;
    if (stPacket.usLen < USER_PLANE_HEAD)
        return DIAG_RC_FAIL;
    stPacket.ulCmdId = LoadLe<uint32_t>(stPacket.pData, USER_PLANE_ID);
    StripFront(stPacket, USER_PLANE_HEAD);
    stPacket.ucIndType = IND_TYPE_USER_PLANE;
    if (IsPrinted(stPacket.ulCmdId)) {
        CDebug::Instance()->PrintInfo("(com %d)Userplane message id 0x%x", stContext.ulPort, stPacket.ulCmdId);
        CDebug::Instance()->PrintRawData("Userplane message data ", stPacket.pData);
    }
    return ExcludeL23(stPacket);
}

/// A message that is too short to hold a DPI goes out under its own id, marked as translated all the same. No
/// exclusion list is asked here.
unsigned int FilterDpi(ADE_DATA_PACKET_STRU& stPacket, unsigned int& ulCount, const IND_CONTEXT& stContext)
{
    (void)BuildDiagIndPacketByDpi(stPacket);
    stPacket.ucIndType = IND_TYPE_DPI;
    if (ManagerConfigInfo::IsNeedIndParamSplitByBit(stPacket.ulCmdId))
        (void)DoIndPacketParamSpliyViaBit(stPacket, stContext.stOut, ulCount);
    return DIAG_RC_OK;
}

unsigned int FilterOther(ADE_DATA_PACKET_STRU& stPacket, const IND_CONTEXT& stContext)
{
    const unsigned int ulSourceId = stPacket.ulCmdId;
    const unsigned int ulRc = ulSourceId == UE_IND_LOGGED_ONLY ? DIAG_RC_FILTERED : DIAG_RC_OK;
    stPacket.ulCmdId &= OTHER_ID_MASK;
    stPacket.ucIndType = IND_TYPE_OTHER;
    if (IsPrinted(stPacket.ulCmdId)) {
        CDebug::Instance()->PrintInfo("(com %d)Other message id 0x%x, src id:0x%x", stContext.ulPort, stPacket.ulCmdId,
                                      ulSourceId);
        CDebug::Instance()->PrintRawData("Other message data ", stPacket.pData);
    }
    return ExcludeL23(stPacket, ulRc);
}

struct IND_ROW
{
    unsigned int ulId;
    unsigned int (*pfnFilter)(ADE_DATA_PACKET_STRU&, unsigned int&, const IND_CONTEXT&);
};

constexpr IND_ROW c_astIndRow[] = {
    {UE_IND_EVENT, &FilterEvent},
    {UE_IND_AIR, &FilterAir},
    {UE_IND_IMS, &FilterIms},
    {UE_IND_LAYER, &FilterLayer},
    {UE_IND_USER_PLANE, &FilterUserPlane},
};

} // namespace

unsigned int VEX_ClientIndFilter(ADE_DATA_PACKET_STRU& stPacket, unsigned int& ulCount, const IND_CONTEXT& stContext)
{
    ulCount = 0;
    const unsigned int ulId = stPacket.ulCmdId;
    switch (IdClass(ulId)) {
    case ID_CLASS_DSP:
    case ID_CLASS_DSP_TDS:
        return FilterDsp(stPacket, stContext);
    case ID_CLASS_DROPPED_1:
    case ID_CLASS_DROPPED_2:
        return DIAG_RC_FILTERED;
    default:
        break;
    }
    for (const IND_ROW& stRow : c_astIndRow)
        if (stRow.ulId == ulId)
            return stRow.pfnFilter(stPacket, ulCount, stContext);
    if (CConfig::Instance()->GetDphFilterEnable() && ManagerConfigInfo::IsDphFilterEnable(ulId))
        return FilterDpi(stPacket, ulCount, stContext);
    if (ulId == UE_IND_DROPPED_1 || ulId == UE_IND_DROPPED_2 || ulId == UE_IND_DROPPED_3)
        return DIAG_RC_FILTERED;
    return FilterOther(stPacket, stContext);
}

unsigned int DoIndLayerFilter(ADE_DATA_PACKET_STRU& stPacket)
{
    const auto& layers = *ManagerConfigInfo::GetLayerMsgCfgMap();
    auto it = layers.find(stPacket.ulCmdId);
    if (it == layers.end())
        it = layers.find(ID_INVALID);
    if (it == layers.end())
        return DIAG_RC_NO_LAYER_CFG;
    const auto usStrip = static_cast<uint16_t>(it->second);
    if (stPacket.usLen < usStrip)
        return DIAG_RC_FAIL;
    StripFront(stPacket, usStrip);
    return DIAG_RC_OK;
}

unsigned int BuildDiagIndPacketByDpi(ADE_DATA_PACKET_STRU& stPacket)
{
    if (stPacket.pData.data() == nullptr || stPacket.usLen < DIAG_OSA_HEADER::SIZE)
        return DIAG_RC_FAIL;
    stPacket.ulCmdId = LoadLe<uint32_t>(stPacket.pData, DIAG_OSA_HEADER::DPI_OFFSET);
    StripFront(stPacket, DIAG_OSA_HEADER::SIZE);
    return DIAG_RC_OK;
}

unsigned int DoIndPacketParamSpliyViaBit(const ADE_DATA_PACKET_STRU& stPacket, IND_OUTPUT& stOut, unsigned int& ulCount)
{
    const auto ulBits = LoadLe<uint32_t>(stPacket.pData, 0);
    if (ulBits == 0)
        return DIAG_RC_FILTERED;
    ulCount = 0;
    for (unsigned int n = 0; n < IND_OUTPUT::PACKETS_MAX; ++n) {
        ADE_PARMA_SPLIT_BIT_DATA_STRU stSplit;
        if ((ulBits >> n & 1) == 0 ||
            !ManagerConfigInfo::GetIndParamSplitByBit(n << 24 | (stPacket.ulCmdId & 0xFFFFFF), stSplit))
            continue;
        ADE_DATA_PACKET_STRU& stPart = stOut.astPacket[ulCount];
        stPart = stPacket;
        stPart.ulCmdId = stSplit.ulNewId;
        stPart.pData = Slice(stPacket.pData, stSplit.usOffset, stSplit.usLen);
        stPart.usLen = static_cast<uint16_t>(stPart.pData.size());
        if (!ManagerConfigInfo::IsExcludeL23Id(stSplit.ulNewId))
            ++ulCount;
    }
    return DIAG_RC_OK;
}
