#pragma once

#include "common/Bytes.h"
#include "common/UniqueFd.h"

#include <map>
#include <string>
#include <vector>

/// How much of one segment is there.
class CCoverage
{
public:
    /// Takes a run of bytes in; gives how many of them had been there before.
    uint64_t Add(uint64_t ullOffset, uint64_t ullCount);

    /// Bytes from the segment's start up to the first gap.
    uint64_t Prefix() const;
    /// Bytes behind that gap.
    uint64_t Behind() const { return m_ullBytes - Prefix(); }

private:
    std::map<uint64_t, uint64_t> m_mapRuns; // end of each run by its beginning; runs neither touch nor overlap
    uint64_t m_ullBytes = 0;                // in all runs
};

/// Segments that are put together out of pieces which come in any order, in a folder for the time being. They are as
/// long as the bench's own files, uncompressed.
class CSegmentStore
{
public:
    /// strFolder is made, and removed with all that is in it at the end.
    explicit CSegmentStore(std::string strFolder) : m_strFolder(std::move(strFolder)) {}
    ~CSegmentStore();
    CSegmentStore(const CSegmentStore&) = delete;
    CSegmentStore& operator=(const CSegmentStore&) = delete;

    /// False, with what is wrong, when the folder can't be made.
    [[nodiscard]] bool Open(std::string& strError) const;
    /// Puts bytes to their place in a segment, which is told from others by its key. False, with what is wrong, when
    /// the disk doesn't take them, or when the key can't be a segment's name (IsSegmentName): it is the name of a file.
    [[nodiscard]] bool Put(const std::string& strSegment, uint64_t ullOffset, ByteView bytes, std::string& strError);

    /// Keys, in their order.
    std::vector<std::string> Segments() const;
    const CCoverage& Coverage(const std::string& strSegment) const { return m_mapSegments.at(strSegment); }
    std::string Path(const std::string& strSegment) const { return m_strFolder + '/' + strSegment; }
    /// Bytes that came a second time. Each is stored once; that there are any is somebody's fault.
    uint64_t Twice() const { return m_ullTwice; }

private:
    const std::string m_strFolder;
    std::map<std::string, CCoverage> m_mapSegments;
    uint64_t m_ullTwice = 0;
};
