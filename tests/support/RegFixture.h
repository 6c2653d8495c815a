#pragma once

#include "data/gu/reg/RegMsgProcess.h"
#include "data/gu/reg/RegisterManager.h"
#include "support/GuFixture.h"

#include <bit>
#include <map>
#include <string>

/// Bit pattern of a float, for rows of 32-bit words.
constexpr uint32_t F(float fValue)
{
    return std::bit_cast<uint32_t>(fValue);
}

/// 32-bit words as bytes.
inline Bytes LeWords(const std::vector<uint32_t>& words)
{
    Bytes bytes;
    for (const uint32_t ulWord : words)
        bytes = Join(bytes, Le(ulWord));
    return bytes;
}

/// Registers by address, as the UE streams them.
using RegMap = std::map<unsigned int, unsigned int>;

/// The UE's confirmation of its register list (62724 or 62725).
inline Bytes RegCnf(unsigned short usMsgId, unsigned int ulMode, unsigned int ulStatus,
                    const std::vector<uint32_t>& addrs, unsigned int ulTimeStamp = 0)
{
    const Bytes head = LeWords({ulMode, ulStatus, static_cast<uint32_t>(addrs.size())});
    return GuMsg(usMsgId, Join(head, LeWords(addrs)), ulTimeStamp);
}

/// An indication: the sender's word at 20, the count at 50, the values from 52 on.
inline Bytes RegInd(const std::vector<uint32_t>& values, unsigned int ulTimeStamp = 0, unsigned int ulSender = 110)
{
    return GuMsg(
        0xF501,
        Join(Fill(4), Le(ulSender), Fill(26, 0xEE), Le(static_cast<unsigned short>(values.size())), LeWords(values)),
        ulTimeStamp);
}

inline std::vector<uint32_t> Addresses(const RegMap& regs)
{
    std::vector<uint32_t> addrs;
    for (const auto& [ulAddr, ulValue] : regs)
        addrs.push_back(ulAddr);
    return addrs;
}

inline std::vector<uint32_t> Values(const RegMap& regs)
{
    std::vector<uint32_t> values;
    for (const auto& [ulAddr, ulValue] : regs)
        values.push_back(ulValue);
    return values;
}

// Bases that the tests work with.
constexpr unsigned int WBBP = 0x10000000;
constexpr unsigned int WUPA = 0x30000000;
constexpr unsigned int WDSP_QUERY = 0x20000004;
constexpr unsigned int TIME_SLOT = 0x2000000C;

/// Makes all bases of a manager known, in the way that the UE does.
inline void MakeBasesKnown(CRegisterManager& manager, unsigned int ulWupa = WUPA)
{
    manager.SetBaseAddr(WBBP, 0, WDSP_QUERY, 0x20000020, TIME_SLOT);
    manager.ProcessRegCnfMsg(RegCnf(62724, 0, 0, {WDSP_QUERY, WDSP_QUERY + 4}));
    manager.ProcessRegIndMsg(RegInd({0, ulWupa}));
}

/// One statistic by itself, without UE and client.
template <class Stat> class CStatBench
{
public:
    explicit CStatBench(bool bV9 = false) : m_stat({&m_process, 62000, bV9})
    {
        MakeBasesKnown(m_manager);
        std::vector<unsigned int> addrs;
        (void)m_stat.GetRegAddr(addrs);
        for (const unsigned int ulAddr : addrs)
            m_regs[ulAddr] = 0;
    }

    /// All of the statistic's registers; the test sets and removes what it wants.
    RegMap& Regs() { return m_regs; }
    /// A register at an offset of the baseband bank.
    unsigned int& Reg(unsigned int ulOffset) { return m_regs[WBBP + ulOffset]; }
    /// A word at an offset of the DSP's HSUPA area.
    unsigned int& Word(unsigned int ulOffset) { return m_regs[WUPA + ulOffset]; }

    /// One indication; gives what is stored afterwards.
    Bytes Sample(unsigned int ulTimeStamp = 0)
    {
        const auto addrs = Addresses(m_regs);
        const Bytes values = LeWords(Values(m_regs));
        const xtl::MutexGuard guard(m_stat.Mutex());
        m_stat.Process(RegStruct{addrs, values}, ulTimeStamp);
        return Bytes(m_stat.GetData());
    }

    /// What a report would send; it is gone afterwards.
    Bytes Report()
    {
        const xtl::MutexGuard guard(m_stat.Mutex());
        m_stat.BeforReport();
        const Bytes data(m_stat.GetData());
        m_stat.DeleteDataUnlocked();
        return data;
    }

    unsigned int TimeStamp()
    {
        const xtl::MutexGuard guard(m_stat.Mutex());
        return m_stat.GetTimeStamp();
    }

    void Stop()
    {
        const xtl::MutexGuard guard(m_stat.Mutex());
        m_stat.CleanStat();
    }

    Stat& Statistic() { return m_stat; }
    CRegisterManager& Manager() { return m_manager; }

private:
    CRegisterManager m_manager{nullptr};
    CRegMsgProcess m_process{&m_manager};
    Stat m_stat;
    RegMap m_regs;
};

/// One HSDPA subframe. As it stands: single stream, scheduled (S: both HS-SCCH flags), good, new data.
struct TestFrame
{
    unsigned int ulType = 6;
    unsigned int ulPart1 = 1;
    unsigned int ulScch = 1;
    unsigned int ulCrc0 = 1;
    unsigned int ulCrc1 = 0;
    unsigned int ulTbs0 = 0;
    unsigned int ulTbs1 = 0;
    unsigned int ulHarq = 0;
    unsigned int ulNew0 = 1;
    unsigned int ulNew1 = 0;
    unsigned int ulMod0 = 0;
    unsigned int ulMod1 = 0;
    unsigned int ulTrans = 0;
    unsigned int ulOffset = 0;

    std::array<unsigned int, 4> Registers() const
    {
        return {ulType << 4 | ulPart1 << 12 | ulScch << 16 | ulCrc1 << 24 | ulCrc0 << 25, ulTbs0 | ulTbs1 << 16,
                ulHarq | ulMod0 << 16 | ulMod1 << 18 | ulNew0 << 28 | ulNew1 << 29, ulTrans << 8 | ulOffset << 20};
    }
};
/// A subframe in which nothing was received.
constexpr TestFrame IDLE = {.ulType = 5, .ulPart1 = 0, .ulScch = 0, .ulCrc0 = 0, .ulNew0 = 0};

/// Writes the five frames of a carrier, frames that aren't given being IDLE, into the plain registers.
template <class Stat>
void SetFrames(CStatBench<Stat>& bench, unsigned int ulCarrier, const std::vector<TestFrame>& frames)
{
    for (unsigned int i = 0; i < 5; ++i) {
        const auto registers = (i < frames.size() ? frames[i] : IDLE).Registers();
        for (unsigned int k = 0; k < 4; ++k)
            bench.Reg(0x80000 * ulCarrier + 0x8700 + 0x20 * i + 4 * k) = registers[k];
    }
}

/// Makes a carrier active, or not, in the plain registers.
template <class Stat> void SetActive(CStatBench<Stat>& bench, unsigned int ulCarrier, bool bActive = true)
{
    bench.Reg(0x80000 * ulCarrier + 0x8070) = bActive ? 1 : 0;
}

/// A UE of a known kind with its register service up: it has told its version, its share address and its mode, and
/// the agent has learned the HSUPA base. What went over the line until then has been read away.
class CRegUe
{
public:
    static constexpr unsigned int BASE = 0x50900000; // of the baseband registers, by the UE's version
    static constexpr unsigned int SHARE = 0x20000000;

    CRegUe()
    {
        m_gu.FromUe(GuMsg(0xFE02, Le(SHARE)));
        m_gu.FromUe(GuAnswer(0x80A6, 1));
        Confirm({SHARE + 4, SHARE + 8});
        m_gu.FromUe(RegInd({0, WUPA}));
        m_gu.Forget();
    }

    CGuFixture& Gu() { return m_gu; }

    void Request(unsigned short usId, const Bytes& params) { m_gu.Request(usId, 84, params); }
    void Start(unsigned short usId, unsigned short usPeriodMs) { Request(usId, Join(Hex("01 00"), Le(usPeriodMs))); }
    void Stop(unsigned short usId) { Request(usId, Hex("00 00 00 00")); }

    void Confirm(const std::vector<uint32_t>& addrs) { m_gu.FromUe(RegCnf(62724, 0, 0, addrs)); }
    /// The UE streams these registers from now on.
    void Stream(RegMap regs)
    {
        m_regs = std::move(regs);
        Confirm(Addresses(m_regs));
        (void)m_gu.Confirms();
    }
    /// The register at an offset of the baseband bank, as the next indications have it.
    unsigned int& Reg(unsigned int ulOffset) { return m_regs[BASE + ulOffset]; }
    /// One indication, at so many milliseconds of the UE's clock.
    void Indicate(unsigned int ulMs) { m_gu.FromUe(RegInd(Values(m_regs), Ticks(ulMs))); }

private:
    CGuFixture m_gu{"CEDAR-03C10"};
    RegMap m_regs;
};

// Requests to the UE in full.
inline Bytes StopStream(unsigned int ulMode)
{
    return TransReq(12304, 110, LeWords({ulMode}));
}
inline Bytes AskForList(unsigned int ulMode)
{
    return TransReq(62723, 110, LeWords({ulMode, 0, 0}));
}
inline Bytes AddRegs(unsigned int ulMode, const std::vector<uint32_t>& addrs)
{
    return TransReq(62722, 110, Join(LeWords({ulMode, static_cast<uint32_t>(addrs.size())}), LeWords(addrs)));
}
inline Bytes RemoveRegs(unsigned int ulMode, const std::vector<uint32_t>& addrs)
{
    return TransReq(62723, 110, Join(LeWords({ulMode, static_cast<uint32_t>(addrs.size())}), LeWords(addrs)));
}
