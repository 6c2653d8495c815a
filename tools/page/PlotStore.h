#pragma once

#include "page/Plot.h"
#include "page/PlotSource.h"

#include <array>
#include <map>
#include <string>

/// The plots of all UEs. Not safe from several threads.
class CPlotStore
{
public:
    static constexpr size_t BYTES_MOST = 128 * 1024 * 1024; // of all points; then the oldest of the largest plot go

    struct ENTRY
    {
        std::string strTitle;
        std::string strGroup;
        std::string strUnit = {}; // of all lines; empty: each line's name tells
        CPlot plot;
    };

    /// Takes what a packet to a client has to plot, if anything. A packet that went to another client of the UE just
    /// before counts once.
    void Take(const TAP_RECORD& stRecord, ByteView packet);
    /// A point of a plot that isn't made from packets.
    void Add(unsigned int ulUe, const std::string& strPlot, const ENTRY& stNew, double dTime,
             const PLOT_VALUES& values);
    void MarkTick();
    /// Another modem has come to the UE's place.
    void Forget(unsigned int ulUe);

    /// By id; all of them have a point at least once.
    const std::map<std::string, ENTRY>& Of(unsigned int ulUe) const;
    const ENTRY* Find(unsigned int ulUe, const std::string& strPlot) const;

    size_t Count() const;
    size_t Points() const;
    size_t Bytes() const { return m_szBytes; }
    uint64_t Reports() const { return m_ullReports; }       // packets that were plotted
    uint64_t Duplicates() const { return m_ullDuplicates; } // that went to several clients

private:
    /// A packet as it was seen last: what a second client gets is the same but for its number.
    struct SEEN
    {
        uint64_t ullHash = 0;
        uint32_t ulClient = 0;
        uint64_t ullTime = 0; // ns
    };
    struct PACKETS
    {
        std::array<SEEN, 4> astSeen;
        size_t szNext = 0;
    };
    bool IsDuplicate(const std::string& strPlot, const TAP_RECORD& stRecord, ByteView packet);
    void AddPoint(ENTRY& stEntry, double dTime, const PLOT_VALUES& values);
    void KeepBounds();

    std::map<unsigned int, std::map<std::string, ENTRY>> m_mapPlots;
    std::map<std::pair<unsigned int, std::string>, PACKETS> m_mapPackets; // by UE and plot
    size_t m_szBytes = 0;
    uint64_t m_ullReports = 0;
    uint64_t m_ullDuplicates = 0;
};
