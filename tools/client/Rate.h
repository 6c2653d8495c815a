#pragma once

#include "client/Printer.h"

/// Counts packets and prints, each second, how many came in it.
class CRate
{
public:
    void Count(size_t szPayload);
    uint64_t Packets() const { return m_ullPackets; }
    Clock::time_point NextPrint() const { return m_next; }
    void PrintIfDue(CPrinter& printer);
    void PrintTotal(CPrinter& printer, size_t szSkipped) const;

private:
    uint64_t m_ullPackets = 0;
    uint64_t m_ullBytes = 0; // on the wire
    uint64_t m_ullLastPackets = 0;
    uint64_t m_ullLastBytes = 0;
    Clock::time_point m_start = Clock::now();
    Clock::time_point m_last = m_start;
    Clock::time_point m_next = m_start + std::chrono::seconds(1);
};
