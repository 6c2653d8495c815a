#pragma once

#include "common/Bytes.h"
#include "data/gu/base/PeriodMsgFromUe.h"
#include "data/gu/reg/RegStruct.h"
#include "data/gu/reg/RegTables.h"

#include <array>
#include <optional>
#include <span>
#include <vector>

class CRegMsgProcess;

// A statistic's confirm and its indication have the next two ids behind that of the request.
constexpr unsigned short RegCnfId(unsigned short usReqMsgId)
{
    return static_cast<unsigned short>(usReqMsgId + 1);
}
constexpr unsigned short RegIndId(unsigned short usReqMsgId)
{
    return static_cast<unsigned short>(usReqMsgId + 2);
}

/// How a statistic comes to be: who owns it, the id of its request, and whether the UE is of a known kind and so has
/// the "_V9" registers.
struct REG_STAT_SETUP
{
    CRegMsgProcess* pRegMsgProcess = nullptr;
    unsigned short usReqMsgId = 0;
    bool bV9 = false;
};

/// A register statistic: computes a result from each indication and keeps the latest, until the period that the
/// client gave lets it out. Stopped while the period is 0. Its mutex covers a whole sample with its report, and what
/// a start or stop request changes.
class CPeriodRegMsgFromUe : public CPeriodMsgFromUe
{
public:
    /// table: offsets of the registers that the statistic needs, from the WCDMA bank unless GetRegAddr is overridden.
    CPeriodRegMsgFromUe(const REG_STAT_SETUP& stSetup, std::span<const unsigned int> table);

    using CPeriodMsgFromUe::Process;
    /// Takes one indication as a sample; the stamp is the message's own. Leaves everything as it is when a register
    /// is missing, as happens for a moment whenever the stream is rebuilt.
    virtual void Process(const RegStruct& stReg, unsigned int ulTimeStamp) REQUIRES(m_Mutex);
    /// Appends the absolute addresses of the registers, duplicates included. False, and nothing is appended, while a
    /// base is unknown.
    bool GetRegAddr(std::vector<unsigned int>& addrs) const;
    /// Puts everything back to the start but the time of the last report, and sets the period to 0.
    virtual void CleanStat() REQUIRES(m_Mutex);

    /// Stores a result with the stamp of its sample.
    void InsertData(ByteView data, unsigned int ulTimeStamp) REQUIRES(m_Mutex);

    unsigned short GetReqMsgId() const { return m_usReqMsgId; }
    unsigned short GetCnfMsgId() const { return RegCnfId(m_usReqMsgId); }
    unsigned short GetIndMsgId() const { return RegIndId(m_usReqMsgId); }
    unsigned int GetTimeStamp() const REQUIRES(m_Mutex) { return m_ulTimeStamp; }
    void SetTimeStamp(unsigned int ulTimeStamp) REQUIRES(m_Mutex) { m_ulTimeStamp = ulTimeStamp; }

    /// Growth of a counter; 0 when it stepped back.
    static unsigned int CalcuAddValue(unsigned int ulOld, unsigned int ulNew);
    /// Quotient in double precision, rounded to float at the end; 0 for a divisor of 0.
    static float CalcuDivision(unsigned int ulA, unsigned int ulB);
    /// The same in percent.
    static float CalcuPercent(unsigned int ulA, unsigned int ulB) { return CalcuDivision(ulA, ulB) * 100; }

protected:
    /// Absolute address of each register that the statistic needs, in order; none for one whose base is unknown.
    using Registers = std::vector<std::optional<unsigned int>>;
    virtual Registers GetRegisters() const;
    /// Appends the registers at these offsets from a base, which may be unknown.
    static void AppendRegisters(Registers& registers, unsigned int ulBase, std::span<const unsigned int> offsets);

    /// Finds this statistic's registers in the list of the indication. First step of every Process; costs nothing
    /// while list and bases stay the same. Afterwards registers go by their position in GetRegisters' list; one whose
    /// base is unknown is missing.
    void Locate(const RegStruct& stReg) REQUIRES(m_Mutex);
    /// Sets ulValue to the value of register szIdx, or to 0 when the indication doesn't have it. False then.
    [[nodiscard]] bool GetValue(const RegStruct& stReg, size_t szIdx, unsigned int& ulValue) const REQUIRES(m_Mutex);
    /// The same for values.size() registers from szIdx on, up to the first that is missing.
    [[nodiscard]] bool GetRegValues(const RegStruct& stReg, size_t szIdx, std::span<unsigned int> values) const
        REQUIRES(m_Mutex);

    CRegMsgProcess* const m_pRegMsgProcess;
    unsigned int m_ulTimeStamp GUARDED_BY(m_Mutex) = 0; // of the result in the buffer
    const std::span<const unsigned int> m_pulRegTable;  // of m_ulRegNum offsets
    const unsigned int m_ulRegNum;
    const unsigned short m_usReqMsgId;
    std::array<unsigned int, CARRIER_COUNT> m_aulSampleCnt GUARDED_BY(m_Mutex){}; // samples per carrier

private:
    struct REG_LOCATION_KEY
    {
        uint64_t ullGeneration = 0;
        unsigned int ulWBBPBaseAddr = 0;
        unsigned int ulWUPABaseAddr = 0;
        unsigned int ulWTimeSlotAddr = 0;
        bool operator==(const REG_LOCATION_KEY&) const = default;
    };

    REG_LOCATION_KEY m_stKey GUARDED_BY(m_Mutex);     // what the positions below were found for
    std::vector<size_t> m_aszPos GUARDED_BY(m_Mutex); // in the UE's list, or REG_NOT_FOUND
};
