#pragma once

#include <cstdint>
#include <map>
#include <optional>

/// A map from ids to a flag that takes whole ranges of ids at the cost of one entry; 0 to 0xFFFFFFFF is as cheap
/// as one id. A later entry overwrites an earlier one for the ids that both hold.
class CIdFlags
{
public:
    /// Sets the flag of every id from ulLow to ulHigh, both included; nothing when ulLow is above ulHigh.
    void SetRange(uint32_t ulLow, uint32_t ulHigh, bool bFlag);
    void Set(uint32_t ulId, bool bFlag) { SetRange(ulId, ulId, bFlag); }

    /// The flag of an id, none for an id that isn't listed.
    std::optional<bool> Find(uint32_t ulId) const;
    bool contains(uint32_t ulId) const { return Find(ulId).has_value(); }
    bool empty() const { return m_mapRanges.empty(); }

private:
    struct RANGE
    {
        uint32_t ulHigh; // included
        bool bFlag;
    };

    std::map<uint32_t, RANGE> m_mapRanges; // by the low end; ranges don't overlap
};
