#include "page/Plot.h"

#include <algorithm>

namespace
{
constexpr double RUNNING_MS = 5000;
constexpr size_t FINE_MOST = CPlot::POINTS_MOST * 2 / 3;
constexpr size_t FREED_BY_THINNING = 256; // at least, so that not every point thins again

size_t PointBytes(const PLOT_POINT& stPoint)
{
    return sizeof(PLOT_POINT) + stPoint.vecValues.capacity() * sizeof(double);
}
} // namespace

void CPlot::Add(double dTime, const PLOT_VALUES& values)
{
    PLOT_POINT stPoint{dTime, m_ullAdded++, 0, {}};
    stPoint.vecValues.reserve(std::min(values.size(), LINES_MOST));
    for (const PLOT_VALUE& stValue : values) {
        const size_t szLine = LineOf(stValue);
        if (szLine == LINES_MOST)
            continue;
        if (szLine >= stPoint.vecValues.size())
            stPoint.vecValues.resize(szLine + 1);
        stPoint.vecValues[szLine] = stValue.dValue;
        stPoint.ullHas |= uint64_t{1} << szLine;
    }
    m_dPeriod = m_points.empty() ? 0 : dTime - Last();
    m_szBytes += PointBytes(stPoint);
    m_points.push_back(std::move(stPoint));
    DropOld();
}

void CPlot::MarkTick()
{
    m_ullTickBegin = m_ullTickEnd;
    m_ullTickEnd = m_ullAdded;
}

bool CPlot::DropOldest()
{
    if (m_points.empty())
        return false;
    m_szBytes -= PointBytes(m_points.front());
    m_points.pop_front();
    return true;
}

bool CPlot::IsRunning(double dNow) const
{
    return !m_points.empty() && dNow - Last() <= std::max(RUNNING_MS, 3 * m_dPeriod);
}

/// Index of the line of that name; LINES_MOST when there is no room for it.
size_t CPlot::LineOf(const PLOT_VALUE& stValue)
{
    if (const auto line = m_mapLines.find(stValue.strName); line != m_mapLines.end())
        return line->second;
    if (m_vecLines.size() == LINES_MOST) {
        if (m_mapBeyond.size() < LINES_MOST)
            m_mapBeyond.emplace(stValue.strName, 0);
        return LINES_MOST;
    }
    m_mapLines.emplace(stValue.strName, m_vecLines.size());
    m_vecLines.push_back({stValue.strName, stValue.bWhole});
    return m_vecLines.size() - 1;
}

size_t CPlot::IndexOf(uint64_t ullCount) const
{
    const auto point = std::ranges::lower_bound(m_points, ullCount, {}, &PLOT_POINT::ullCount);
    return static_cast<size_t>(point - m_points.begin());
}

void CPlot::DropOld()
{
    while (m_points.front().dTime < Last() - HISTORY_MS)
        (void)DropOldest();
    if (m_points.size() > POINTS_MOST)
        Thin();
    while (m_points.size() > POINTS_MOST) // the clock was set back and forth
        (void)DropOldest();
}

/// Drops points before the fine part until what is left of an hour fits, evenly spaced.
void CPlot::Thin()
{
    const size_t szByTime = static_cast<size_t>(
        std::ranges::count_if(m_points, [&](const PLOT_POINT& st) { return st.dTime > Last() - FINE_MS; }));
    const size_t szFine = std::min(szByTime, FINE_MOST);
    const auto room = static_cast<double>(POINTS_MOST - szFine - FREED_BY_THINNING);
    const double dSpacing = HISTORY_MS / room;
    const size_t szCoarse = m_points.size() - szFine;
    double dKept = -std::numeric_limits<double>::infinity();
    size_t szAt = 0;
    const auto isTooClose = [&](const PLOT_POINT& stPoint) {
        if (szAt++ >= szCoarse || stPoint.dTime >= dKept + dSpacing) {
            dKept = stPoint.dTime;
            return false;
        }
        m_szBytes -= PointBytes(stPoint);
        return true;
    };
    std::deque<PLOT_POINT> kept;
    for (PLOT_POINT& stPoint : m_points)
        if (!isTooClose(stPoint))
            kept.push_back(std::move(stPoint));
    m_points.swap(kept);
}
