#pragma once

#include "capture/CaptureFormat.h"

#include <map>
#include <string>
#include <vector>

/// Where records come from.
struct CAPTURE_RUN
{
    std::string strBench;    // name of the machine, or what the user calls it
    uint64_t ullRunHigh = 0; // the run's id
    uint64_t ullRunLow = 0;
    uint64_t ullAgentStart = 0; // CLOCK_REALTIME in ns

    /// "run 0123456789abcdef0123456789abcdef, agent since 2026-11-22T10:15:00Z, bench lab7".
    std::string Text() const;
};

/// Turns tap records into the blocks of one capture file (CaptureFormat.h). Knows no file: the bytes go to the end of
/// a buffer that the owner writes and clears whenever it likes.
class CPcapngWriter
{
public:
    explicit CPcapngWriter(std::vector<unsigned char>& vecOut) : m_vecOut(vecOut) {}

    /// Starts a file; interfaces and counts of the one before are forgotten.
    void Begin(const CAPTURE_RUN& stRun, const std::string& strApplication);
    /// ullLost: records lost right before this one. The comment is left out when it is empty.
    void Record(const TAP_RECORD& stRecord, ByteView bytes, uint64_t ullLost = 0, const std::string& strComment = "");
    /// Statistics of each interface, with this CLOCK_REALTIME in ns: the end of the file. ullLost: records lost behind
    /// the last one.
    void End(uint64_t ullTime, uint64_t ullLost = 0);

private:
    /// Index of the record's interface, which is made when there is none yet.
    uint32_t InterfaceOf(const TAP_RECORD& stRecord);

    std::vector<unsigned char>& m_vecOut;
    std::map<std::array<uint8_t, 3>, uint32_t> m_mapInterfaces; // indexes by status or not, UE, channel
    std::vector<uint64_t> m_vecRecords;                         // by index of the interface
    uint64_t m_ullLost = 0;
};
