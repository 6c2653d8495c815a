#include "page/PlotStore.h"

#include "page/PageTime.h"

#include <string_view>

namespace
{
constexpr uint64_t DUPLICATE_NS = 2'000'000'000;
constexpr size_t STAMP_OFFSET = 8; // of the packet's head; what comes before it, its number, counts per client

uint64_t HashOf(ByteView bytes)
{
    return std::hash<std::string_view>()({reinterpret_cast<const char*>(bytes.data()), bytes.size()});
}
} // namespace

void CPlotStore::Take(const TAP_RECORD& stRecord, ByteView packet)
{
    if (stRecord.ucUe == TAP_NO_UE)
        return;
    const auto frame = PlotFrameOf(stRecord.ucChannel, packet);
    if (!frame)
        return;
    if (IsDuplicate(frame->strPlot, stRecord, packet)) {
        ++m_ullDuplicates;
        return;
    }
    const PLOT_VALUES values = PlotValues(*frame);
    if (values.empty())
        return;
    ++m_ullReports;
    auto [place, bNew] = m_mapPlots[stRecord.ucUe].try_emplace(frame->strPlot);
    if (bNew) {
        place->second.strTitle = frame->strTitle;
        place->second.strGroup = frame->strGroup;
    }
    AddPoint(place->second, PageTime(stRecord.ullTime), values);
}

void CPlotStore::Add(unsigned int ulUe, const std::string& strPlot, const ENTRY& stNew, double dTime,
                     const PLOT_VALUES& values)
{
    AddPoint(m_mapPlots[ulUe].try_emplace(strPlot, stNew).first->second, dTime, values);
}

void CPlotStore::MarkTick()
{
    for (auto& [ulUe, plots] : m_mapPlots)
        for (auto& [strId, stEntry] : plots)
            stEntry.plot.MarkTick();
}

void CPlotStore::Forget(unsigned int ulUe)
{
    for (const auto& [strId, stEntry] : Of(ulUe))
        m_szBytes -= stEntry.plot.Bytes();
    m_mapPlots.erase(ulUe);
    std::erase_if(m_mapPackets, [&](const auto& entry) { return entry.first.first == ulUe; });
}

const std::map<std::string, CPlotStore::ENTRY>& CPlotStore::Of(unsigned int ulUe) const
{
    static const std::map<std::string, ENTRY> s_none;
    const auto plots = m_mapPlots.find(ulUe);
    return plots == m_mapPlots.end() ? s_none : plots->second;
}

const CPlotStore::ENTRY* CPlotStore::Find(unsigned int ulUe, const std::string& strPlot) const
{
    const auto& plots = Of(ulUe);
    const auto found = plots.find(strPlot);
    return found == plots.end() ? nullptr : &found->second;
}

size_t CPlotStore::Count() const
{
    size_t szCount = 0;
    for (const auto& [ulUe, plots] : m_mapPlots)
        szCount += plots.size();
    return szCount;
}

size_t CPlotStore::Points() const
{
    size_t szCount = 0;
    for (const auto& [ulUe, plots] : m_mapPlots)
        for (const auto& [strId, stEntry] : plots)
            szCount += stEntry.plot.Points().size();
    return szCount;
}

bool CPlotStore::IsDuplicate(const std::string& strPlot, const TAP_RECORD& stRecord, ByteView packet)
{
    PACKETS& stPackets = m_mapPackets[{stRecord.ucUe, strPlot}];
    const SEEN stNew{HashOf(Slice(packet, STAMP_OFFSET)), stRecord.ulClient, stRecord.ullTime};
    for (const SEEN& st : stPackets.astSeen)
        if (st.ullHash == stNew.ullHash && st.ulClient != stNew.ulClient && stNew.ullTime - st.ullTime < DUPLICATE_NS)
            return true;
    stPackets.astSeen[stPackets.szNext++ % stPackets.astSeen.size()] = stNew;
    return false;
}

void CPlotStore::AddPoint(ENTRY& stEntry, double dTime, const PLOT_VALUES& values)
{
    m_szBytes -= stEntry.plot.Bytes();
    stEntry.plot.Add(dTime, values);
    m_szBytes += stEntry.plot.Bytes();
    KeepBounds();
}

void CPlotStore::KeepBounds()
{
    while (m_szBytes > BYTES_MOST) {
        CPlot* pLargest = nullptr;
        for (auto& [ulUe, plots] : m_mapPlots)
            for (auto& [strId, stEntry] : plots)
                if (pLargest == nullptr || stEntry.plot.Bytes() > pLargest->Bytes())
                    pLargest = &stEntry.plot;
        if (pLargest == nullptr)
            return;
        m_szBytes -= pLargest->Bytes();
        (void)pLargest->DropOldest();
        m_szBytes += pLargest->Bytes();
    }
}
