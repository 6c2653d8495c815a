#pragma once

#include "data/gu/report/MsgProcess.h"

#include "common/ThreadAnnotations.h"
#include "common/xtl.h"

// The packet data stack of GSM. The byte flow of its layers is in MsgProcessTtfTrace.h.

/// The two sets of coding scheme statistics.
enum ENUM_LEVEL
{
    ENUM_LEVEL_FIRST = 0,
    ENUM_LEVEL_SECOND = 1,
};

constexpr unsigned short TS_POS_NONE = 255; // position of a timeslot that isn't in a set

/// RLC/MAC maintenance information: timeslots and coding schemes. Its periods are in seconds in the tables and in
/// the gate, in milliseconds in the client's requests.
class CGrmMntnInfoMsg : public IMsgProcess
{
public:
    using IMsgProcess::IMsgProcess;
    bool ProcessInd(ByteView packet) override;
    /// Refuses a start whose period is no whole number of seconds.
    bool SendReqToUe(ByteView request) override;
    /// Forgets the counts and the timeslots.
    bool ProcessCnf(ByteView packet) override;

    /// Number of timeslots of a mask.
    static unsigned char GetCountOfTsUsed(unsigned char ucMask);
    /// Writes the timeslot numbers of a mask, bit 7 being timeslot 0, as many as there is room for. Returns the number
    /// of all of them.
    static unsigned char GetTsNumber(unsigned char ucMask, ByteSpan out);
    void SetCodeType(unsigned short usCode, ENUM_LEVEL enLevel);
    /// The scheme of a code as its number; 255 in the other of the two, and in both for an unknown code.
    static void GetCurrentCodeType(unsigned short usCode, unsigned char& ucCs, unsigned char& ucMcs);
    /// The column seen most often, the lowest of several; 0xFFFF when none was.
    unsigned short GetCodingScheme(ENUM_LEVEL enLevel) const;

    // The second timeslot set. The UE's thread only. The count tells all bits of the mask, even if the set
    // holds one fewer.
    ByteView SecondTimeslots() const { return m_aucTs2; }
    unsigned char SecondTimeslotCount() const { return m_ucTs2Count; }

private:
    static constexpr size_t TS_SET_SIZE = 7;
    static constexpr size_t LEVELS = 2;
    static constexpr size_t CODE_COLUMNS = 18; // 0 unused, 1 to 4 CS, 7 to 17 MCS

    void ReportUsage(ByteView payload, unsigned int ulTimeStamp);
    void ReportTimeslots(ByteView payload, unsigned int ulTimeStamp);
    void ReportCurrentCodes(ByteView payload, unsigned int ulTimeStamp);

    // The UE's thread only.
    std::array<unsigned char, TS_SET_SIZE> m_aucTs1{};
    unsigned char m_ucTs1Count = 0;
    std::array<unsigned char, TS_SET_SIZE> m_aucTs2{};
    unsigned char m_ucTs2Count = 0;
    std::array<std::array<unsigned int, CODE_COLUMNS>, LEVELS> m_aulCodeCount{};
};

/// Ciphering state of the packet domain.
class CPsCipherMsg : public IMsgProcess
{
public:
    using IMsgProcess::IMsgProcess;
    bool ProcessInd(ByteView packet) override;
    bool SendReqToUe(ByteView request) override { return SendTraceReqToUe(request, &m_ulPid, 1); }
};

/// Shares of the coding schemes on each timeslot since the last stop request.
class CPhpPacketDataIndMsg : public IMsgProcess
{
public:
    static constexpr size_t BLOCKS = 5; // timeslots of the tables and of the report; further ones are left out
    static constexpr size_t SCALE_COLUMNS = 15;
    using SCALE_TABLE = float (*)[SCALE_COLUMNS];

    using IMsgProcess::IMsgProcess;
    bool ProcessInd(ByteView packet) override;
    /// Keeps the UE sending the maintenance information too, which the timeslots come from.
    bool SendReqToUe(ByteView request) override;

    /// Position of a timeslot in the second set of the first modem's maintenance information, for either modem;
    /// TS_POS_NONE when it isn't there. The UE's thread only.
    unsigned short GetPosOfTsNumber(unsigned short usTn) const;
    void SetCodeType(unsigned short usCode, unsigned char ucPos) EXCLUDES(m_Lock);
    /// Fills the rows of the first usRows positions of a cleared table of BLOCKS rows.
    void CalculateCodeTypeScale(SCALE_TABLE pafScale, unsigned short usRows) EXCLUDES(m_Lock);

private:
    static constexpr size_t CS_COUNT = 4;
    static constexpr size_t MCS_COUNT = 9;

    /// Number of blocks counted at a position.
    unsigned long long StaticCodeTypeByTN(unsigned char ucPos) const REQUIRES(m_Lock);
    void ClearCounts() EXCLUDES(m_Lock);
    void CountBlocks(ByteView payload);
    void Report(unsigned short usBlocks, unsigned int ulTimeStamp);
    void StartMaintenance(unsigned char ucSwitch);

    mutable xtl::Mutex m_Lock; // a request clears what indications count
    std::array<std::array<unsigned int, CS_COUNT>, BLOCKS> m_aulCsCount GUARDED_BY(m_Lock){};
    std::array<std::array<unsigned int, MCS_COUNT>, BLOCKS> m_aulMcsCount GUARDED_BY(m_Lock){};
};
