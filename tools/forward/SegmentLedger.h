#pragma once

#include "common/UniqueFd.h"

#include <compare>
#include <cstdint>
#include <ctime>
#include <map>
#include <optional>
#include <string>
#include <tuple>

/// A place in the spool: segments are counted from 1 in the order in which they were first seen; 0 is before all.
struct SPOOL_PLACE
{
    uint64_t ullSegment = 0;
    uint64_t ullOffset = 0; // of the segment's bytes, as they were before compression

    bool operator==(const SPOOL_PLACE&) const = default;
    auto operator<=>(const SPOOL_PLACE& other) const
    {
        return std::tie(ullSegment, ullOffset) <=> std::tie(other.ullSegment, other.ullOffset);
    }
};

/// Which segments a spool has, in which order they came, and which of them are at the hub. Two small files beside the
/// segments remember it: forward.id, a random id of this installation, and forward.segments. A clock that was set back
/// gives new segments names before those of old ones, so their order is that in which they were seen; those that came
/// while nobody looked are taken in the order of their names, the closed ones first.
class CSegmentLedger
{
public:
    /// strSpool: the folder of vex-capture --spool.
    explicit CSegmentLedger(std::string strSpool) : m_strSpool(std::move(strSpool)) {}

    /// Reads the two files, or makes the id, and looks at the spool. Keeps other forwarders off the spool while this
    /// object lives. False, with the reason, when there is no such folder, it can't be written, or another one is
    /// there.
    [[nodiscard]] bool Open(std::string& strError);
    const std::string& Epoch() const { return m_strEpoch; }
    const std::string& Spool() const { return m_strSpool; }

    struct SEGMENT
    {
        std::string strName;
        std::string strPath;      // empty: gone from the spool
        uint64_t ullBytes = 0;    // on the disk, when it was last looked at
        bool bCompressed = false; // and so complete for sure
        bool bDone = false;       // all of it is at the hub
        uint64_t ullDone = 0;     // at least so many of its bytes are; for whoever misses the rest
    };
    /// Looks at the spool again, if something in it may have come or gone.
    void Refresh();
    /// Looks at it in any case, for sizes.
    void Look();
    const std::map<uint64_t, SEGMENT>& Segments() const { return m_segments; }
    /// Null for one that isn't known.
    const SEGMENT* Find(uint64_t ullSegment) const;
    /// 0 for a name that isn't known.
    uint64_t Find(const std::string& strName) const;
    uint64_t Last() const { return m_segments.empty() ? 0 : m_segments.rbegin()->first; }

    /// Everything before this place is at the hub. Segments before it that are gone are forgotten. bWrite: the place is
    /// to be on the disk, too. False, with the reason, when the files can't be written.
    [[nodiscard]] bool SetDone(const SPOOL_PLACE& stPlace, bool bWrite, std::string& strError);
    /// Deletes the compressed files of the segments before this place that are at the hub. They stand in the file as
    /// done: nobody misses them after a crash, or takes them for new ones.
    void DeleteBefore(const SPOOL_PLACE& stPlace) const;

private:
    void Load();
    void Mark(const SPOOL_PLACE& stPlace);
    bool Save(std::string& strError);
    std::string StatePath(const char* pszName) const { return m_strSpool + '/' + pszName; }

    const std::string m_strSpool;
    CUniqueFd m_lock;
    std::string m_strEpoch;
    std::map<uint64_t, SEGMENT> m_segments;
    std::map<std::string, uint64_t> m_mapByName;
    uint64_t m_ullNext = 1;
    bool m_bDirty = false;
    SPOOL_PLACE m_stWritten; // the last place that was to be written
    bool m_bEmpty = false;   // a file was left out because it is empty yet
    timespec m_changed{};    // of the folder, when it was last looked at
};
