#include "common/IdFlags.h"

#include <algorithm>
#include <iterator>

void CIdFlags::SetRange(uint32_t ulLow, uint32_t ulHigh, bool bFlag)
{
    if (ulLow > ulHigh)
        return;
    auto it = m_mapRanges.upper_bound(ulLow);
    if (it != m_mapRanges.begin() && std::prev(it)->second.ulHigh >= ulLow)
        --it;
    // Every range that overlaps gives way; what sticks out of it on either side stays.
    while (it != m_mapRanges.end() && it->first <= ulHigh) {
        const auto [ulOldLow, stOld] = *it;
        it = m_mapRanges.erase(it);
        if (ulOldLow < ulLow)
            m_mapRanges[ulOldLow] = {ulLow - 1, stOld.bFlag};
        if (stOld.ulHigh > ulHigh)
            m_mapRanges[ulHigh + 1] = stOld;
    }
    m_mapRanges[ulLow] = {ulHigh, bFlag};
}

std::optional<bool> CIdFlags::Find(uint32_t ulId) const
{
    const auto it = m_mapRanges.upper_bound(ulId);
    if (it == m_mapRanges.begin() || std::prev(it)->second.ulHigh < ulId)
        return std::nullopt;
    return std::prev(it)->second.bFlag;
}
