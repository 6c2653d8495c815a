#pragma once

#include <cstdint>
#include <deque>
#include <limits>
#include <map>
#include <string>
#include <vector>

/// A number with its name, as a client prints it: "carriers[0].cqi".
struct PLOT_VALUE
{
    std::string strName;
    double dValue = 0;  // exact for integers up to 2^53
    bool bWhole = true; // an integer, printed without a fraction
};
using PLOT_VALUES = std::vector<PLOT_VALUE>;

struct PLOT_LINE
{
    std::string strName;
    bool bWhole = true;
};

struct PLOT_POINT
{
    double dTime = 0;      // ms since 1970
    uint64_t ullCount = 0; // counts the points of the plot from 0
    uint64_t ullHas = 0;   // bit i: line i has a value
    std::vector<double> vecValues;
};

/// Numbers over time: up to LINES_MOST lines, of the last hour at most POINTS_MOST points. Of points that come faster
/// than that, all of the newest FINE_MS are kept (as far as two thirds of the room reach) and fewer of those before.
class CPlot
{
public:
    static constexpr size_t LINES_MOST = 64;
    static constexpr size_t POINTS_MOST = 3600;
    static constexpr double HISTORY_MS = 3'600'000;
    static constexpr double FINE_MS = 600'000;

    void Add(double dTime, const PLOT_VALUES& values);
    /// The points that came since the call before are those of the tick that begins now.
    void MarkTick();
    bool DropOldest();

    const std::vector<PLOT_LINE>& Lines() const { return m_vecLines; }
    const std::deque<PLOT_POINT>& Points() const { return m_points; }
    size_t LinesBeyond() const { return m_mapBeyond.size(); } // that found no room, counted up to LINES_MOST
    double Last() const { return m_points.empty() ? 0 : m_points.back().dTime; }
    /// Whether a point came within the last 5 s or three of its periods.
    bool IsRunning(double dNow) const;
    size_t Bytes() const { return m_szBytes; }
    /// Index of the first point of the newest tick; its end is TickEnd.
    size_t TickBegin() const { return IndexOf(m_ullTickBegin); }
    size_t TickEnd() const { return IndexOf(m_ullTickEnd); }

private:
    size_t LineOf(const PLOT_VALUE& stValue);
    size_t IndexOf(uint64_t ullCount) const;
    void DropOld();
    void Thin();

    std::vector<PLOT_LINE> m_vecLines;
    std::map<std::string, size_t, std::less<>> m_mapLines; // by name
    std::map<std::string, size_t, std::less<>> m_mapBeyond;
    std::deque<PLOT_POINT> m_points;
    uint64_t m_ullAdded = 0;
    uint64_t m_ullTickBegin = 0;
    uint64_t m_ullTickEnd = 0;
    double m_dPeriod = 0; // between the two newest points, ms
    size_t m_szBytes = 0; // of the points
};
