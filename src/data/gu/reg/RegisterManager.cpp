#include "data/gu/reg/RegisterManager.h"

#include "common/Debug.h"
#include "data/DiagPacket.h"
#include "data/gu/base/GuOperation.h"
#include "data/gu/reg/RegMsgProcess.h"

#include <algorithm>
#include <functional>
#include <utility>

namespace
{

// Requests to the UE and their receivers.
constexpr unsigned short MSG_REG_ADD = 62722;          // u32 mode, u32 count, addresses: stream these too
constexpr unsigned short MSG_REG_REMOVE = 62723;       // same: stop streaming these; with count 0: report the list
constexpr unsigned short MSG_STOP_STREAM = 12304;      // u32 mode
constexpr unsigned short MSG_SHARE_ADDR_QUERY = 65025; // u32 0
constexpr unsigned short MSG_TOOL_STATUS = 65027;      // u32 1: a diagnostic tool is attached
constexpr unsigned int PID_REG = 110;
constexpr unsigned int PID_DSP = 201;

constexpr unsigned short MSG_REG_LIST = 62725;                // one of the two ids of a confirmation
constexpr size_t MAX_REQ_ADDRS = 1024;                        // of one request
constexpr auto LIST_QUESTION_PAUSE = std::chrono::seconds(1); // between two questions for lists that don't fit

// Messages from the UE: offsets from the start.
constexpr size_t MSG_TIME_STAMP = 8; // u32
constexpr size_t MSG_ID = 12;        // u16
constexpr size_t SHARE_ADDR = 16;    // u32
constexpr size_t SHARE_ADDR_LEN = 20;
constexpr size_t CNF_MODE = 16;   // u32
constexpr size_t CNF_STATUS = 20; // u32, 0 is success
constexpr size_t CNF_COUNT = 24;  // u32
constexpr size_t CNF_ADDRS = 28;  // u32 each
constexpr size_t IND_SENDER = 20; // u32
constexpr size_t IND_COUNT = 50;  // u16
constexpr size_t IND_VALUES = 52; // u32 each
constexpr unsigned int SENDER_MODE_1 = 122;

// The DSP's share area, from its address, and the query block.
constexpr unsigned int SHARE_WDSP_QUERY = 4;
constexpr unsigned int SHARE_TIME_SLOT = 0xC;
constexpr unsigned int SHARE_WDSP_INFO = 0x20;
constexpr unsigned int QUERY_UPA_BASE = 4; // second word of the query block
constexpr unsigned int UPA_QUERY_WORD_UNREAD = 2;
constexpr unsigned int c_aulQueryBlock[] = {0, QUERY_UPA_BASE, 0x18, 0x7C, 0xC}; // words asked for, in this order

constexpr unsigned int UNKNOWN = REG_BASE_ADDR_STRU::ADDR_UNKNOWN;

void SortUIntArray(std::vector<unsigned int>& values, bool bDescending)
{
    if (bDescending)
        std::ranges::sort(values, std::ranges::greater());
    else
        std::ranges::sort(values);
}

} // namespace

CRegisterManager::CRegisterManager(IGuOperation* pParentAdapter)
    : m_pParentAdapter(pParentAdapter), m_ulUPAQueryWord(UPA_QUERY_WORD_UNREAD)
{
    for (REG_LIST_STRU& stList : m_aRegList)
        stList.pAddrs = std::make_shared<const std::vector<unsigned int>>();
    m_pRegMsgProcess = std::make_unique<CRegMsgProcess>(this);
}

CRegisterManager::~CRegisterManager() = default;

// ---- Addresses and modes ----

REG_BASE_ADDR_STRU CRegisterManager::GetBaseAddr() const
{
    const xtl::MutexGuard guard(m_Lock);
    return m_stBaseAddr;
}

unsigned int CRegisterManager::GetTimeSlotAddr() const
{
    const xtl::MutexGuard guard(m_Lock);
    return ulWTimeSlotAddr;
}

void CRegisterManager::SetBaseAddr(unsigned int ulWBBP, unsigned int ulGBBP, unsigned int ulWDSPQuery,
                                   unsigned int ulWDSPInfo, unsigned int ulWTimeSlot)
{
    const xtl::MutexGuard guard(m_Lock);
    m_stBaseAddr.ulWBBPBaseAddr = ulWBBP;
    m_stBaseAddr.ulGBBPBaseAddr = ulGBBP;
    m_stBaseAddr.ulWDSPQueryAddr = ulWDSPQuery;
    m_stBaseAddr.ulWDSPInfoAddr = ulWDSPInfo;
    ulWTimeSlotAddr = ulWTimeSlot;
}

void CRegisterManager::RefreshWdspQueryAddr(ByteView msg)
{
    if (msg.size() < SHARE_ADDR_LEN)
        return;
    const unsigned int ulShareAddr = LoadLe<unsigned int>(msg, SHARE_ADDR);
    const xtl::MutexGuard guard(m_Lock);
    m_stBaseAddr.ulWDSPQueryAddr = ulShareAddr + SHARE_WDSP_QUERY;
    m_stBaseAddr.ulWDSPInfoAddr = ulShareAddr + SHARE_WDSP_INFO;
    ulWTimeSlotAddr = ulShareAddr + SHARE_TIME_SLOT;
}

/// The lines say the opposite of what they mean; they are kept, since tools look for them.
bool CRegisterManager::BaseAddrValid()
{
    static constexpr struct
    {
        unsigned int REG_BASE_ADDR_STRU::*pAddr;
        const char* pszUnknown;
    } c_astCheck[] = {
        {&REG_BASE_ADDR_STRU::ulGBBPBaseAddr, "ulGBBPBaseAddr is valid"},
        {&REG_BASE_ADDR_STRU::ulWBBPBaseAddr, "ulWBBPBaseAddr is valid"},
        {&REG_BASE_ADDR_STRU::ulWDSPQueryAddr, "ulWDSPQueryAddr is valid"},
        {&REG_BASE_ADDR_STRU::ulWUPABaseAddr, "ulWUPABaseAddr is valid"},
    };
    const REG_BASE_ADDR_STRU stBase = GetBaseAddr();
    for (const auto& stCheck : c_astCheck) {
        if (stBase.*stCheck.pAddr != UNKNOWN)
            continue;
        CDebug::Instance()->PrintWarn("%s", stCheck.pszUnknown);
        return false;
    }
    return true;
}

MODE_ENUM CRegisterManager::GetRegMode(size_t szModem) const
{
    const xtl::MutexGuard guard(m_Lock);
    return szModem < m_enRegMode.size() ? m_enRegMode[szModem] : MODE_NONE;
}

void CRegisterManager::SetRegMode(size_t szModem, MODE_ENUM enMode)
{
    const xtl::MutexGuard guard(m_Lock);
    if (szModem < m_enRegMode.size())
        m_enRegMode[szModem] = enMode;
}

bool CRegisterManager::ChangeRegListByMode(int lMode)
{
    {
        const xtl::MutexGuard guard(m_Lock);
        if (m_enRegMode[0] == static_cast<MODE_ENUM>(lMode))
            return false;
        m_enRegMode[0] = static_cast<MODE_ENUM>(lMode);
        ClearRegMap();
        ForgetHsupaBase();
    }
    InformOmSendRegCfg(MODE_1);
    InformOmSendRegCfg(MODE_0);
    return true;
}

void CRegisterManager::ClearRegInfo()
{
    SendCmd_StopAllReg(MODE_1);
    SendCmd_StopAllReg(MODE_0);
    {
        const xtl::MutexGuard guard(m_Lock);
        ClearRegMap();
        ForgetHsupaBase();
        m_stBaseAddr = {};
    }
    InformOmSendRegCfg(MODE_1);
    InformOmSendRegCfg(MODE_0);
}

void CRegisterManager::ClearRegMap()
{
    for (const MODE_ENUM enMode : {MODE_1, MODE_0}) {
        m_aRegRefMap[enMode].clear();
        SetRegList(enMode, {});
        m_abListStale[enMode] = false;
    }
}

void CRegisterManager::ForgetHsupaBase()
{
    m_ulUPAQueryWord = UPA_QUERY_WORD_UNREAD;
    m_bBaseAddrOK = false;
    m_stBaseAddr.ulWUPABaseAddr = UNKNOWN;
}

// ---- Who needs which register ----

void CRegisterManager::UpdateRegRefMap(const std::vector<unsigned int>& addrs, bool bAdd, MODE_ENUM enMode)
{
    const xtl::MutexGuard guard(m_Lock);
    for (const unsigned int ulAddr : addrs) {
        if (bAdd)
            IncreaseRegAddrRef(ulAddr, enMode);
        else
            DecreaseRegAddrRef(ulAddr, enMode);
    }
}

void CRegisterManager::IncreaseRegAddrRef(unsigned int ulAddr, MODE_ENUM enMode)
{
    if (enMode < m_aRegRefMap.size())
        ++m_aRegRefMap[enMode][ulAddr];
}

/// An unknown address enters with 0, on purpose: the next SendAllRegReq then names it in a remove request.
void CRegisterManager::DecreaseRegAddrRef(unsigned int ulAddr, MODE_ENUM enMode)
{
    if (enMode >= m_aRegRefMap.size())
        return;
    int& lCount = m_aRegRefMap[enMode][ulAddr];
    lCount = std::max(lCount - 1, 0);
}

bool CRegisterManager::SendAllRegReq(bool /*bAdd*/, MODE_ENUM enMode)
{
    if (enMode >= REG_LIST_COUNT || !BaseAddrValid())
        return false;
    std::vector<unsigned int> remove;
    std::vector<unsigned int> add;
    {
        const xtl::MutexGuard guard(m_Lock);
        auto& refMap = m_aRegRefMap[enMode];
        if (refMap.empty())
            return false;
        for (const auto& [ulAddr, lCount] : refMap)
            (lCount < 1 ? remove : add).push_back(ulAddr);
        std::erase_if(refMap, [](const auto& entry) { return entry.second < 1; });
    }
    SortUIntArray(remove, false);
    SortUIntArray(add, false);
    SendCmd_StopAllReg(enMode);
    const bool bRemoved = remove.empty() || SendRegReq(false, remove, enMode);
    const bool bAdded = add.empty() || SendRegReq(true, add, enMode);
    return bRemoved && bAdded;
}

// ---- Requests to the UE ----

bool CRegisterManager::SendRegReq(bool bAdd, const std::vector<unsigned int>& addrs, MODE_ENUM enMode)
{
    bool bSent = false;
    for (size_t szFirst = 0; szFirst < addrs.size(); szFirst += MAX_REQ_ADDRS) {
        const size_t szCount = std::min(MAX_REQ_ADDRS, addrs.size() - szFirst);
        bSent = SendRegReqImmediately(bAdd, std::span(addrs).subspan(szFirst, szCount), enMode);
    }
    return bSent;
}

bool CRegisterManager::SendRegReqImmediately(bool bAdd, std::span<const unsigned int> addrs, MODE_ENUM enMode)
{
    if (addrs.empty())
        return false;
    std::vector<unsigned int> words = {enMode, static_cast<unsigned int>(addrs.size())};
    words.insert(words.end(), addrs.begin(), addrs.end());
    SendWords(bAdd ? MSG_REG_ADD : MSG_REG_REMOVE, words, PID_REG);
    return true;
}

void CRegisterManager::InformOmSendRegCfg(MODE_ENUM enMode)
{
    const unsigned int aulWords[] = {enMode, 0, 0};
    SendWords(MSG_REG_REMOVE, aulWords, PID_REG);
}

void CRegisterManager::SendCmd_StopAllReg(MODE_ENUM enMode)
{
    const unsigned int aulWords[] = {enMode};
    SendWords(MSG_STOP_STREAM, aulWords, PID_REG);
}

void CRegisterManager::DspShareAddrQuery()
{
    const unsigned int aulWords[] = {0};
    SendWords(MSG_SHARE_ADDR_QUERY, aulWords, PID_DSP);
}

void CRegisterManager::SendCmdOfSdtStatus()
{
    const unsigned int aulWords[] = {1};
    SendWords(MSG_TOOL_STATUS, aulWords, PID_DSP);
}

void CRegisterManager::SendCmd_QueryWDSPReg(bool bAdd, MODE_ENUM enMode)
{
    const unsigned int ulQueryAddr = GetBaseAddr().ulWDSPQueryAddr;
    CDebug::Instance()->PrintInfo("Begin query DSP base addr info Mode= %d, ulWDSPQueryAddr=0x%x",
                                  static_cast<int>(enMode), ulQueryAddr);
    if (enMode >= REG_LIST_COUNT || ulQueryAddr == UNKNOWN)
        return;
    std::array<unsigned int, std::size(c_aulQueryBlock)> aulAddrs{};
    std::ranges::transform(c_aulQueryBlock, aulAddrs.begin(), [=](unsigned int ulOff) { return ulQueryAddr + ulOff; });
    (void)SendRegReqImmediately(bAdd, aulAddrs, enMode); // never empty
}

void CRegisterManager::SendCmd_QueryTimeSlot(bool bAdd)
{
    const unsigned int aulAddr[] = {GetTimeSlotAddr()};
    if (aulAddr[0] != UNKNOWN)
        (void)SendRegReqImmediately(bAdd, aulAddr, MODE_0); // never empty
}

void CRegisterManager::SendWords(unsigned short usMsgId, std::span<const unsigned int> words, unsigned int ulReceiver)
{
    if (m_pParentAdapter == nullptr)
        return;
    std::vector<unsigned char> params(4 * words.size());
    CByteWriter writer(params);
    for (const unsigned int ulWord : words)
        writer.Field(ulWord);
    m_pParentAdapter->BuildTransReqMsg(usMsgId, params, ulReceiver);
}

// ---- Messages ----

void CRegisterManager::ProcessRegReqPacket(unsigned short usMsgId, ByteView data)
{
    m_pRegMsgProcess->ProcessRegReqPacket(usMsgId, data);
}

void CRegisterManager::ProcessRegCnfMsg(ByteView msg)
{
    if (msg.size() < CNF_ADDRS) {
        CDebug::Instance()->PrintWarn("register confirmation dropped: cut at byte %zu", msg.size());
        return;
    }
    const unsigned short usMsgId = LoadLe<unsigned short>(msg, MSG_ID);
    if (usMsgId == MSG_REG_LIST)
        m_bRegCfgCnfRcvd = true;
    if (LoadLe<unsigned int>(msg, CNF_STATUS) == 0)
        StoreConfirmedList(msg);
    std::array<unsigned char, 4> aucStatus{};
    CopyPadded(aucStatus, msg, CNF_STATUS);
    if (m_pParentAdapter != nullptr)
        m_pParentAdapter->BuildMsgCnfPacket(PKT_TYPE_GU_TRANS, DIAG_RC_OK, LoadLe<unsigned int>(msg, MSG_TIME_STAMP),
                                            usMsgId, aucStatus);
}

/// A list that can't be is left out: the lists stay as they are, and the next indication that doesn't fit asks anew.
void CRegisterManager::StoreConfirmedList(ByteView msg)
{
    const unsigned int ulMode = LoadLe<unsigned int>(msg, CNF_MODE);
    const unsigned int ulCount = LoadLe<unsigned int>(msg, CNF_COUNT);
    const ByteView list = Slice(msg, CNF_ADDRS);
    if (ulMode >= REG_LIST_COUNT || ulCount > list.size() / 4) {
        CDebug::Instance()->PrintWarn("register list dropped: mode %u, %u addresses, message of %zu bytes", ulMode,
                                      ulCount, msg.size());
        return;
    }
    std::vector<unsigned int> addrs(ulCount);
    CByteReader reader(list);
    for (unsigned int& ulAddr : addrs)
        reader.Field(ulAddr);
    const xtl::MutexGuard guard(m_Lock);
    SetRegList(static_cast<MODE_ENUM>(ulMode), std::move(addrs));
}

void CRegisterManager::SetRegList(MODE_ENUM enMode, std::vector<unsigned int> addrs)
{
    m_aRegList[enMode] = {std::make_shared<const std::vector<unsigned int>>(std::move(addrs)), ++m_ullGeneration};
}

void CRegisterManager::ProcessRegIndMsg(ByteView msg, Clock::time_point now)
{
    const MODE_ENUM enMode = LoadLe<unsigned int>(msg, IND_SENDER) == SENDER_MODE_1 ? MODE_1 : MODE_0;
    REG_LIST_STRU stList; // keeps the list alive while the statistics look at it
    {
        const xtl::MutexGuard guard(m_Lock);
        if (m_aRegList[MODE_0].pAddrs->empty() && m_aRegList[MODE_1].pAddrs->empty())
            return;
        stList = m_aRegList[enMode];
    }
    const size_t szCount = LoadLe<unsigned short>(msg, IND_COUNT);
    const bool bWhole = msg.size() >= IND_VALUES + 4 * szCount;
    if (!bWhole)
        CDebug::Instance()->PrintWarn("register indication dropped: cut at byte %zu", msg.size());
    if (msg.size() < IND_VALUES)
        return; // without its count it says nothing about the list
    if (szCount != stList.pAddrs->size()) {
        if (IsListQuestionDue(enMode, now))
            InformOmSendRegCfg(enMode);
        return;
    }
    SetListFits(enMode);
    if (!bWhole)
        return;
    const RegStruct stReg{*stList.pAddrs, Slice(msg, IND_VALUES), stList.ullGeneration};
    RefreshUPABaseAddr(stReg);
    m_pRegMsgProcess->Process(stReg, LoadLe<unsigned int>(msg, MSG_TIME_STAMP));
}

void CRegisterManager::SetListFits(MODE_ENUM enMode)
{
    const xtl::MutexGuard guard(m_Lock);
    m_abListStale[enMode] = false;
}

/// The UE may send a hundred indications before its list arrives, and a question for each would hold them up.
bool CRegisterManager::IsListQuestionDue(MODE_ENUM enMode, Clock::time_point now)
{
    const xtl::MutexGuard guard(m_Lock);
    if (std::exchange(m_abListStale[enMode], true) && now - m_ListAsked < LIST_QUESTION_PAUSE)
        return false;
    m_ListAsked = now;
    return true;
}

void CRegisterManager::RefreshUPABaseAddr(const RegStruct& stReg)
{
    if (LearnUPABaseAddr(stReg))
        SendCmd_QueryWDSPReg(false, GetRegMode(0));
}

/// A first word other than 0 makes the base 0, which counts as known from then on.
bool CRegisterManager::LearnUPABaseAddr(const RegStruct& stReg)
{
    const xtl::MutexGuard guard(m_Lock);
    const unsigned int ulQueryAddr = m_stBaseAddr.ulWDSPQueryAddr;
    unsigned int ulUPABase = 0;
    if (m_stBaseAddr.ulWUPABaseAddr != UNKNOWN || !GetRegValue(stReg, ulQueryAddr, m_ulUPAQueryWord) ||
        !GetRegValue(stReg, ulQueryAddr + QUERY_UPA_BASE, ulUPABase))
        return false;
    m_stBaseAddr.ulWUPABaseAddr = m_ulUPAQueryWord != 0 ? 0 : ulUPABase;
    m_bBaseAddrOK = true;
    return true;
}
