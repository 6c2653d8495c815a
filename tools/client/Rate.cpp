#include "client/Rate.h"

#include <array>
#include <cstdio>

namespace
{
double Seconds(Clock::duration time)
{
    return std::chrono::duration<double>(time).count();
}
} // namespace

void CRate::Count(size_t szPayload)
{
    ++m_ullPackets;
    m_ullBytes += szPayload + DIAG_PACKET_ACK_STRU::SIZE + LEAD_LEN;
}

void CRate::PrintIfDue(CPrinter& printer)
{
    const auto now = Clock::now();
    if (now < m_next)
        return;
    const double dSeconds = Seconds(now - m_last);
    const double dPackets = static_cast<double>(m_ullPackets - m_ullLastPackets) / dSeconds;
    const double dBytes = static_cast<double>(m_ullBytes - m_ullLastBytes) / dSeconds;
    std::array<char, 128> szLine{};
    (void)std::snprintf(szLine.data(), szLine.size(), "-- %llu packets, %.0f/s, %.1f kB/s\n",
                        static_cast<unsigned long long>(m_ullPackets), dPackets, dBytes / 1000);
    printer.Print({{"event", "rate"}, {"packets", m_ullPackets}, {"packets_per_s", dPackets}, {"bytes_per_s", dBytes}},
                  szLine.data());
    m_ullLastPackets = m_ullPackets;
    m_ullLastBytes = m_ullBytes;
    m_last = now;
    m_next = now + std::chrono::seconds(1);
}

void CRate::PrintTotal(CPrinter& printer, size_t szSkipped) const
{
    const double dSeconds = Seconds(Clock::now() - m_start);
    std::array<char, 128> szLine{};
    (void)std::snprintf(szLine.data(), szLine.size(), "total %llu packets, %llu bytes in %.1f s",
                        static_cast<unsigned long long>(m_ullPackets), static_cast<unsigned long long>(m_ullBytes),
                        dSeconds);
    const std::string strSkipped = szSkipped == 0 ? "" : ", " + std::to_string(szSkipped) + " bytes lost on the way";
    printer.Print({{"event", "summary"},
                   {"packets", m_ullPackets},
                   {"bytes", m_ullBytes},
                   {"seconds", dSeconds},
                   {"skipped_bytes", szSkipped}},
                  szLine.data() + strSkipped + '\n');
}
