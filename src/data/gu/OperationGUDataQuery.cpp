#include "data/gu/OperationGUData.h"

#include "common/Debug.h"
#include "data/gu/reg/GuRegister.h"
#include "data/gu/reg/RegisterManager.h"

// What the UE says about itself: version, number of cards, radio mode; and the register reader's set-up that follows.

namespace
{
/// A pointer as the log shows it.
unsigned int LogPointer(const void* p)
{
    return static_cast<unsigned int>(reinterpret_cast<uintptr_t>(p));
}
} // namespace

void COperationGUData::TakeDspShareAddr(ByteView packet)
{
    const auto pManager = RegisterManager();
    CDebug::Instance()->PrintInfo("Already query dsp addr msg m_pRegisterManager = 0x%x", LogPointer(pManager.get()));
    if (!pManager)
        return;
    pManager->RefreshWdspQueryAddr(packet);
    if (m_pBindings != nullptr)
        CGuLink::ModeQuery(MODEM_ID_0, m_ulUeId);
}

namespace
{
constexpr unsigned short ID_MODE_ANSWER = 0x80A6;
constexpr unsigned short ID_MODE_ANSWER_MODEM_1 = 0x80A8; // towards clients; the UE sends ID_MODE_ANSWER
constexpr unsigned short ID_VERSION_ANSWER = 0x8082;
constexpr unsigned short ID_CARD_ANSWER = 0x8212;

unsigned short QueryId(ByteView packet)
{
    return LoadLe<uint16_t>(packet, GU_QUERY_MSG_ID);
}
unsigned int QueryValue(ByteView packet)
{
    return LoadLe<uint32_t>(packet, GU_QUERY_VALUE);
}
bool IsModem1(ByteView packet)
{
    return GuCategory(packet) == GU_CATEGORY_QUERY + GU_CATEGORY_MODEM_1;
}
} // namespace

int COperationGUData::ProcQueryMsgFromUe(ByteView packet, unsigned int ulModem)
{
    if (ulModem > 1 || (GuCategory(packet) != GU_CATEGORY_QUERY && !IsModem1(packet)))
        return GU_RESULT_UNKNOWN_ID;
    switch (QueryId(packet)) {
    case ID_MODE_ANSWER:
        return OnModeAnswer(packet);
    case ID_VERSION_ANSWER:
        ProcessVersionMsg(packet);
        return GU_RESULT_OK;
    default:
        return GU_RESULT_UNKNOWN_ID;
    }
}

/// The confirm has the type 10, the UE's category, not the 90 of the request: client tools look for that.
int COperationGUData::OnModeAnswer(ByteView packet)
{
    const auto pManager = RegisterManager();
    const unsigned int ulMode0 = pManager ? pManager->GetRegMode(0) : MODE_NONE;
    const unsigned int ulMode1 = pManager ? pManager->GetRegMode(1) : MODE_NONE;
    CDebug::Instance()->PrintRawData("Rcv Mode Info", packet);
    CDebug::Instance()->PrintInfo("Rcv Mode Info  m_bVersionOk = %d, m_pRegisterManager = 0x%x, m_enRegMode=[%d,%d]",
                                  m_bVersionOk ? 1 : 0, LogPointer(pManager.get()), static_cast<int>(ulMode0),
                                  static_cast<int>(ulMode1));
    if (!m_bVersionOk)
        return GU_RESULT_NOTHING;
    unsigned char aucValue[4];
    StoreLe<uint32_t>(aucValue, 0, QueryValue(packet));
    BuildMsgCnfPacket(GU_CATEGORY_QUERY, 0, STAMP_NONE, IsModem1(packet) ? ID_MODE_ANSWER_MODEM_1 : ID_MODE_ANSWER,
                      aucValue);
    RefreshMode(packet);
    return GU_RESULT_OK;
}

void COperationGUData::RefreshMode(ByteView packet)
{
    const unsigned int enMode = GetCurrentMode(packet);
    if (IsModem1(packet)) {
        SetMode(1, enMode);
        return;
    }
    const auto pManager = RegisterManager();
    if (!pManager)
        return;
    if (pManager->ChangeRegListByMode(static_cast<int>(enMode)) || !pManager->BaseAddrValid())
        pManager->SendCmd_QueryWDSPReg(true, static_cast<MODE_ENUM>(enMode));
}

void COperationGUData::SetMode(unsigned int ulModem, unsigned int ulMode)
{
    if (const auto pManager = RegisterManager())
        pManager->SetRegMode(ulModem, static_cast<MODE_ENUM>(ulMode));
}

/// MODE_ENUM of a mode answer.
unsigned int COperationGUData::GetCurrentMode(ByteView packet) const
{
    const unsigned int ulValue = QueryValue(packet);
    if (ulValue == m_ulModeBase + 1)
        return 0;
    return ulValue == m_ulModeBase ? 1 : 2;
}

void COperationGUData::RefreshModem(ByteView packet)
{
    if (GuCategory(packet) != GU_CATEGORY_QUERY || QueryId(packet) != ID_CARD_ANSWER)
        return;
    CDebug::Instance()->PrintInfo("Rcv single and double card info");
    if (m_enModemNum != MODEM_NUM_UNKNOWN)
        return;
    m_ulModeBase = 0;
    const unsigned int enModemNum = SetUeModemId(QueryValue(packet));
    m_enModemNum = enModemNum;
    if (m_pBindings != nullptr)
        CGuLink::ModeQuery(MODEM_ID_1, m_ulUeId);
    CDebug::Instance()->PrintInfo("single and double card model= %d", static_cast<int>(enModemNum));
}

unsigned int COperationGUData::SetUeModemId(unsigned int ulValue)
{
    if (ulValue == 2)
        return MODEM_NUM_DUAL;
    return ulValue == 1 ? MODEM_NUM_SINGLE : MODEM_NUM_UNKNOWN;
}

namespace
{
constexpr size_t VERSION_NAME_LEN = 8; // characters of the version text that name the platform
struct VERSION_ROW
{
    const char* pszName;
    unsigned int ulClass;
};
constexpr VERSION_ROW g_astVersion[] = {
    {"CEDAR-03", 0}, {"CEDAR-30", 0},                                                                     //
    {"MAPLE-20", 2}, {"MAPLE-02", 2}, {"ROWAN-03", 2}, {"ROWAN-30", 2}, {"OLIVE-01", 3}, {"OLIVE-10", 3}, //
    {"PLANE-01", 4}, {"PLANE-10", 4},
};

constexpr size_t VERSION_TEXT = 109;
constexpr size_t VERSION_TYPE = 8;
constexpr size_t VERSION_ASIC_MIN = 515; // an ASIC's answer is longer than this
constexpr unsigned int PID_BLER_KNOWN = 203;
constexpr unsigned int PID_BLER_OTHER = 515;

const char* TypeText(ByteView packet)
{
    switch (LoadLe<uint32_t>(packet, VERSION_TYPE)) {
    case 1:
        return GuPacketSize(packet) > VERSION_ASIC_MIN ? "ASIC" : "FPGA";
    case 2:
        return "PC";
    default:
        return "FPGA";
    }
}
} // namespace

unsigned int COperationGUData::ParseVersion(const std::string& strVersion)
{
    const std::string strName = strVersion.substr(0, VERSION_NAME_LEN);
    for (const VERSION_ROW& stRow : g_astVersion)
        if (strName == stRow.pszName)
            return stRow.ulClass;
    return UE_VERSION_UNKNOWN;
}

void COperationGUData::ProcessVersionMsg(ByteView packet)
{
    if (m_bVersionOk || QueryId(packet) != ID_VERSION_ANSWER)
        return;
    const std::string strType = TypeText(packet);
    std::string strVersion = FixedText(Slice(packet, VERSION_TEXT));
    if (ParseVersion(strVersion) != UE_VERSION_UNKNOWN) {
        m_ulFrameMode = FRAME_MODE_RTC_CPUID;
        m_ulModeBase = 0;
    }
    strVersion = strVersion.substr(0, strVersion.find('B'));
    m_bVersionOk = true;
    if (m_bImeiOk)
        SendGUPacketToClient("");
    m_enUeVersion = ParseVersion(strVersion);
    m_ulBlerPid = IsKnownUeVersion(m_enUeVersion) ? PID_BLER_KNOWN : PID_BLER_OTHER;
    ReplaceRegisterManager();
    InitRegisterInfo(strType, strVersion);
    if (m_pBindings == nullptr)
        return;
    const UE_INDEX ulUeIdx = m_ulUeId;
    CDebug::Instance()->PrintInfo("mode query: ue id = %d", static_cast<int>(ulUeIdx));
    CDebug::Instance()->PrintInfo("Rcv version = %s, type=%s", strVersion.c_str(), strType.c_str());
    CGuLink::ModeQuery(MODEM_ID_0, ulUeIdx);
    CGuLink::QueryUeModemNum(ulUeIdx);
}

void COperationGUData::ReplaceRegisterManager()
{
    auto pManager = std::make_shared<CRegisterManager>(this);
    const xtl::MutexGuard guard(m_RegisterLock);
    m_pRegisterManager.swap(pManager);
}

void COperationGUData::InitRegisterInfo(const std::string& strType, const std::string& strVersion)
{
    const auto pManager = RegisterManager();
    if (!pManager)
        return;
    pManager->ClearRegInfo();
    const unsigned int ulIndex = m_pGuRegister->GetIndexValueByVersion(strVersion, strType);
    if (ulIndex == REG_INDEX_NONE)
        return;
    const auto Addr = [&](unsigned int ulField) { return m_pGuRegister->GetAddrValueByIndex(ulIndex, ulField); };
    pManager->SetBaseAddr(Addr(REG_FIELD_WBBP), Addr(REG_FIELD_GBBP), Addr(REG_FIELD_WDSP_QUERY),
                          Addr(REG_FIELD_WDSP_INFO), Addr(REG_FIELD_TIME_SLOT));
    pManager->SendCmdOfSdtStatus();
    pManager->DspShareAddrQuery();
    CDebug::Instance()->PrintInfo("Set DSP query addr ulWDSPQUERY= 0x%x", Addr(REG_FIELD_WDSP_QUERY));
}
