#pragma once

#include "common/Bytes.h"
#include "common/xtl.h"
#include "data/gu/reg/RegStruct.h"

#include <array>
#include <atomic>
#include <chrono>
#include <map>
#include <memory>
#include <vector>

class IGuOperation;
class CRegMsgProcess;

/// Base addresses of the UE's register banks, each ADDR_UNKNOWN until it is known.
struct REG_BASE_ADDR_STRU
{
    static constexpr unsigned int ADDR_UNKNOWN = 0xFFFFFFFF;

    unsigned int ulWBBPBaseAddr = ADDR_UNKNOWN;  // WCDMA baseband registers
    unsigned int ulGBBPBaseAddr = ADDR_UNKNOWN;  // GSM baseband registers; only BaseAddrValid looks at it
    unsigned int ulWDSPQueryAddr = ADDR_UNKNOWN; // the DSP's query block
    unsigned int ulWUPABaseAddr = ADDR_UNKNOWN;  // the DSP's HSUPA data area, learned at run time
    unsigned int ulWDSPInfoAddr = ADDR_UNKNOWN;  // stored only
};

/// The agent's end of the UE's register stream: knows the bases of the register banks, counts who needs which
/// register, tells the UE what to stream, and hands each indication to the statistics.
///
/// Requests of clients come on the main thread, everything from the UE on the UE's thread. A small lock
/// covers addresses, maps and lists; it is never held across a send, since a send pauses and may block.
class CRegisterManager
{
public:
    using Clock = std::chrono::steady_clock;

    /// pParentAdapter isn't owned. Without one (null) nothing is sent and the UE counts as of an unknown kind.
    explicit CRegisterManager(IGuOperation* pParentAdapter);
    virtual ~CRegisterManager();
    CRegisterManager(const CRegisterManager&) = delete;
    CRegisterManager& operator=(const CRegisterManager&) = delete;

    IGuOperation* GetParentAdapter() const { return m_pParentAdapter; }

    /// Stops both streams, forgets lists, counts and all addresses but that of the time slot word, and asks the UE
    /// for both lists.
    void ClearRegInfo();
    void SetBaseAddr(unsigned int ulWBBP, unsigned int ulGBBP, unsigned int ulWDSPQuery, unsigned int ulWDSPInfo,
                     unsigned int ulWTimeSlot);
    /// Tells the UE that a diagnostic tool is attached.
    void SendCmdOfSdtStatus();
    /// Asks the UE for the DSP share address.
    void DspShareAddrQuery();

    /// A client's start or stop request, its parameters without the packet head.
    void ProcessRegReqPacket(unsigned short usMsgId, ByteView data);
    // Whole messages from the UE, common part included. One that ends before what it says it has is dropped.
    void ProcessRegCnfMsg(ByteView msg);
    /// Asks the UE for its list when the indication doesn't fit: at once for the first one, then once a second at
    /// most until one fits.
    void ProcessRegIndMsg(ByteView msg, Clock::time_point now = Clock::now());
    /// The answer to DspShareAddrQuery; ignored below 20 bytes.
    void RefreshWdspQueryAddr(ByteView msg);

    /// True when the four bases that a request needs are known; otherwise a line in the log names one that isn't.
    bool BaseAddrValid();
    /// Takes the first modem's mode over. False when it is the present one; else everything that belongs to the old
    /// mode is forgotten and the UE is asked for both lists.
    bool ChangeRegListByMode(int lMode);
    /// Puts the five words of the DSP's query block into the stream, or takes them out. The mode is that of the
    /// list; MODE_NONE only logs.
    void SendCmd_QueryWDSPReg(bool bAdd, MODE_ENUM enMode);
    /// Puts the time slot word into the stream, or takes it out.
    void SendCmd_QueryTimeSlot(bool bAdd);
    /// True once the HSUPA base has been learned; only tests ask for it.
    bool CheckBaseAddrOK() const { return m_bBaseAddrOK; }
    /// Mode of the first (0) or second (1) modem; MODE_NONE for any other index.
    MODE_ENUM GetRegMode(size_t szModem) const;
    void SetRegMode(size_t szModem, MODE_ENUM enMode);

    /// Counts each address up or down, one that occurs twice twice. One that isn't known counts down to an entry
    /// of 0, so that the next SendAllRegReq takes it out of the UE's stream.
    void UpdateRegRefMap(const std::vector<unsigned int>& addrs, bool bAdd, MODE_ENUM enMode);
    /// Stops the stream and sends it anew as the counts say: removals first, then the whole list. bAdd has no
    /// influence. False without bases or counts, or when a request could not be built.
    bool SendAllRegReq(bool bAdd, MODE_ENUM enMode);

    REG_BASE_ADDR_STRU GetBaseAddr() const;
    unsigned int GetTimeSlotAddr() const;

private:
    using RegList = std::shared_ptr<const std::vector<unsigned int>>;

    struct REG_LIST_STRU
    {
        RegList pAddrs; // never null
        uint64_t ullGeneration = 0;
    };

    void IncreaseRegAddrRef(unsigned int ulAddr, MODE_ENUM enMode) REQUIRES(m_Lock);
    void DecreaseRegAddrRef(unsigned int ulAddr, MODE_ENUM enMode) REQUIRES(m_Lock);
    void ClearRegMap() REQUIRES(m_Lock);
    void ForgetHsupaBase() REQUIRES(m_Lock);
    void SetRegList(MODE_ENUM enMode, std::vector<unsigned int> addrs) REQUIRES(m_Lock);
    void SetListFits(MODE_ENUM enMode);
    bool IsListQuestionDue(MODE_ENUM enMode, Clock::time_point now);
    void StoreConfirmedList(ByteView msg);
    bool LearnUPABaseAddr(const RegStruct& stReg);
    void RefreshUPABaseAddr(const RegStruct& stReg);

    bool SendRegReq(bool bAdd, const std::vector<unsigned int>& addrs, MODE_ENUM enMode);
    bool SendRegReqImmediately(bool bAdd, std::span<const unsigned int> addrs, MODE_ENUM enMode);
    void InformOmSendRegCfg(MODE_ENUM enMode);
    void SendCmd_StopAllReg(MODE_ENUM enMode);
    void SendWords(unsigned short usMsgId, std::span<const unsigned int> words, unsigned int ulReceiver);

    mutable xtl::Mutex m_Lock;
    REG_BASE_ADDR_STRU m_stBaseAddr GUARDED_BY(m_Lock);
    unsigned int ulWTimeSlotAddr GUARDED_BY(m_Lock) = 0; // counts time slots; neither cleared nor set to unknown
    std::unique_ptr<CRegMsgProcess> m_pRegMsgProcess;
    std::array<MODE_ENUM, REG_LIST_COUNT> m_enRegMode GUARDED_BY(m_Lock) = {MODE_NONE, MODE_NONE};
    IGuOperation* const m_pParentAdapter;
    std::array<std::map<unsigned int, int>, REG_LIST_COUNT> m_aRegRefMap GUARDED_BY(m_Lock);
    std::array<REG_LIST_STRU, REG_LIST_COUNT> m_aRegList GUARDED_BY(m_Lock);
    uint64_t m_ullGeneration GUARDED_BY(m_Lock) = 0; // of the list stored last
    /// An indication didn't fit the list, and none has fitted since.
    std::array<bool, REG_LIST_COUNT> m_abListStale GUARDED_BY(m_Lock){};
    Clock::time_point m_ListAsked GUARDED_BY(m_Lock); // last question for a stale list
    unsigned int m_ulUPAQueryWord GUARDED_BY(m_Lock); // first word of the DSP's query block
    std::atomic<bool> m_bBaseAddrOK = false;
    std::atomic<bool> m_bRegCfgCnfRcvd = false; // a 62725 came; for whoever looks at the object in a debugger
};
