#include "fleet/SegmentStore.h"

#include "common/Wait.h"
#include "fleet/FleetFormat.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <filesystem>
#include <unistd.h>

namespace
{
bool WriteAt(int nFd, uint64_t ullOffset, ByteView bytes)
{
    while (!bytes.empty()) {
        const ssize_t lWritten =
            RetryOnEintr([&] { return pwrite(nFd, bytes.data(), bytes.size(), static_cast<off_t>(ullOffset)); });
        if (lWritten <= 0)
            return false;
        ullOffset += static_cast<uint64_t>(lWritten);
        bytes = bytes.subspan(static_cast<size_t>(lWritten));
    }
    return true;
}
} // namespace

uint64_t CCoverage::Add(uint64_t ullOffset, uint64_t ullCount)
{
    uint64_t ullBegin = ullOffset;
    uint64_t ullEnd = ullOffset + ullCount;
    uint64_t ullInside = 0; // bytes of the runs that become part of this one
    uint64_t ullKnown = 0;
    auto run = m_mapRuns.upper_bound(ullBegin);
    if (run != m_mapRuns.begin() && std::prev(run)->second >= ullBegin)
        --run;
    while (run != m_mapRuns.end() && run->first <= ullEnd) {
        const uint64_t ullFrom = std::max(run->first, ullOffset);
        const uint64_t ullTo = std::min(run->second, ullOffset + ullCount);
        ullKnown += ullTo > ullFrom ? ullTo - ullFrom : 0;
        ullInside += run->second - run->first;
        ullBegin = std::min(ullBegin, run->first);
        ullEnd = std::max(ullEnd, run->second);
        run = m_mapRuns.erase(run);
    }
    if (ullEnd > ullBegin)
        m_mapRuns[ullBegin] = ullEnd;
    m_ullBytes += ullEnd - ullBegin - ullInside;
    return ullKnown;
}

uint64_t CCoverage::Prefix() const
{
    const auto first = m_mapRuns.begin();
    return first != m_mapRuns.end() && first->first == 0 ? first->second : 0;
}

CSegmentStore::~CSegmentStore()
{
    std::error_code ignored; // nothing more can be done about a leftover
    std::filesystem::remove_all(m_strFolder, ignored);
}

bool CSegmentStore::Open(std::string& strError) const
{
    std::error_code error;
    if (std::filesystem::create_directory(m_strFolder, error))
        return true;
    strError = m_strFolder + ": " + (error ? error.message() : "is there already; another fetch?");
    return false;
}

bool CSegmentStore::Put(const std::string& strSegment, uint64_t ullOffset, ByteView bytes, std::string& strError)
{
    constexpr uint64_t LONGEST = uint64_t{1} << 46; // 64 TiB: no file is longer, and no sum overflows
    if (!IsSegmentName(strSegment) || ullOffset > LONGEST) {
        strError = "a message tells of a segment that can't be: " + strSegment + " at " + std::to_string(ullOffset);
        return false;
    }
    const std::string strPath = Path(strSegment);
    const CUniqueFd fd(open(strPath.c_str(), O_WRONLY | O_CREAT | O_CLOEXEC, 0600));
    if (!fd.IsOpen() || !WriteAt(fd.Get(), ullOffset, bytes)) {
        strError = strPath + ": " + std::strerror(errno);
        return false;
    }
    m_ullTwice += m_mapSegments[strSegment].Add(ullOffset, bytes.size());
    return true;
}

std::vector<std::string> CSegmentStore::Segments() const
{
    std::vector<std::string> names;
    for (const auto& [strSegment, coverage] : m_mapSegments)
        names.push_back(strSegment);
    return names;
}
