#include "forward/SegmentLedger.h"

#include "capture/SegmentNames.h"
#include "fleet/FleetFormat.h"
#include "hotplug/TextFile.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <filesystem>
#include <sstream>
#include <sys/file.h>
#include <sys/random.h>
#include <sys/stat.h>

namespace
{
constexpr const char* SEGMENT_BASE = "vex"; // of vex-capture --spool
constexpr const char* ID_FILE = "forward.id";
constexpr const char* ORDER_FILE = "forward.segments"; // "segment NAME BYTES" or "done NAME BYTES", a line each
constexpr const char* DONE = "done";
constexpr const char* NOT_DONE = "segment";
constexpr const char* LOCK_FILE = ".vex-forward.lock";
constexpr size_t ID_BYTES = 8;
constexpr long CLOCK_STEP_NS = 20'000'000; // a folder's time is as coarse as the kernel's tick

std::string RandomId()
{
    std::array<unsigned char, ID_BYTES> aucId{};
    (void)!getrandom(aucId.data(), aucId.size(), 0); // never fails for so few
    std::string strId;
    for (const unsigned char uc : aucId)
        for (const int nDigit : {uc >> 4, uc & 15})
            strId += "0123456789abcdef"[nDigit];
    return strId;
}

/// Name without folder and suffixes.
std::string NameOf(const std::string& strPath)
{
    std::string strName = std::filesystem::path(strPath).filename();
    return strName.substr(0, strName.rfind(CAPTURE_SUFFIX));
}
} // namespace

bool CSegmentLedger::Open(std::string& strError)
{
    if (!std::filesystem::is_directory(m_strSpool)) {
        strError = m_strSpool + ": there is no such folder; vex-capture --spool makes it";
        return false;
    }
    m_lock.Reset(open(StatePath(LOCK_FILE).c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0666));
    if (!m_lock.IsOpen() || flock(m_lock.Get(), LOCK_EX | LOCK_NB) != 0) {
        strError = m_strSpool + ": " + (errno == EWOULDBLOCK ? "another forwarder is there" : std::strerror(errno));
        return false;
    }
    std::string strReason;
    const auto id = ReadTextFile(StatePath(ID_FILE), strReason);
    m_strEpoch = id ? id->substr(0, id->find('\n')) : RandomId();
    const bool bGood = id ? IsBenchName(m_strEpoch)
                          : errno == ENOENT && ReplaceTextFile(StatePath(ID_FILE), m_strEpoch + '\n', strReason);
    if (!bGood) {
        strError = StatePath(ID_FILE) + ": " + (strReason.empty() ? "holds no id" : strReason);
        return false;
    }
    if (id)
        Load();
    Look();
    return true;
}

/// An order that can't be read is the order of the names.
void CSegmentLedger::Load()
{
    std::string strReason;
    std::istringstream lines(ReadTextFile(StatePath(ORDER_FILE), strReason).value_or(""));
    std::string strState;
    std::string strName;
    uint64_t ullDone = 0;
    while (lines >> strState >> strName >> ullDone) {
        if (!IsSegmentName(strName) || m_mapByName.contains(strName))
            continue;
        m_mapByName[strName] = m_ullNext;
        m_segments[m_ullNext++] = {.strName = strName, .strPath = "", .bDone = strState == DONE, .ullDone = ullDone};
    }
}

bool CSegmentLedger::Save(std::string& strError)
{
    std::string strText;
    for (const auto& [ullSegment, stSegment] : m_segments)
        strText += (stSegment.bDone ? DONE : NOT_DONE) + (' ' + stSegment.strName) + ' ' +
                   std::to_string(stSegment.ullDone) + '\n';
    std::string strReason;
    if (!ReplaceTextFile(StatePath(ORDER_FILE), strText, strReason)) {
        strError = StatePath(ORDER_FILE) + ": " + strReason;
        return false;
    }
    m_bDirty = false;
    return true;
}

void CSegmentLedger::Refresh()
{
    struct stat stFolder
    {
    };
    timespec stNow{};
    (void)clock_gettime(CLOCK_REALTIME_COARSE, &stNow);
    if (stat(m_strSpool.c_str(), &stFolder) != 0)
        return;
    // What changed within the same tick as the last look shows the same time.
    const bool bRecent =
        stNow.tv_sec == stFolder.st_mtim.tv_sec && std::abs(stNow.tv_nsec - stFolder.st_mtim.tv_nsec) < CLOCK_STEP_NS;
    const bool bSame = stFolder.st_mtim.tv_sec == m_changed.tv_sec && stFolder.st_mtim.tv_nsec == m_changed.tv_nsec;
    if (bSame && !bRecent)
        return;
    Look();
    m_changed = bRecent || m_bEmpty ? timespec{} : stFolder.st_mtim; // an empty file fills without changing the folder
}

void CSegmentLedger::Look()
{
    auto found = CSegmentNames(m_strSpool + '/' + SEGMENT_BASE).List();
    std::stable_partition(found.begin(), found.end(), [](const auto& file) { return file.bCompressed; });
    m_bEmpty = false;
    for (auto& [ullSegment, stSegment] : m_segments)
        stSegment.strPath.clear();
    for (const auto& file : found) {
        const std::string strName = NameOf(file.strPath);
        const auto [entry, bNew] = m_mapByName.try_emplace(strName, m_ullNext);
        if (bNew && (file.ullBytes == 0 || !IsSegmentName(strName))) { // an empty one may go again: nothing is lost
            m_mapByName.erase(entry);
            m_bEmpty = true;
            continue;
        }
        m_ullNext += bNew ? 1 : 0;
        m_bDirty = m_bDirty || bNew;
        SEGMENT& stSegment = m_segments[entry->second];
        if (bNew || stSegment.strPath.empty()) // the compressed one counts where both are there
            stSegment = {strName, file.strPath, file.ullBytes, file.bCompressed, stSegment.bDone, stSegment.ullDone};
    }
}

const CSegmentLedger::SEGMENT* CSegmentLedger::Find(uint64_t ullSegment) const
{
    const auto found = m_segments.find(ullSegment);
    return found == m_segments.end() ? nullptr : &found->second;
}

uint64_t CSegmentLedger::Find(const std::string& strName) const
{
    const auto found = m_mapByName.find(strName);
    return found == m_mapByName.end() ? 0 : found->second;
}

/// Segments before the place are done; what is gone of them is forgotten.
void CSegmentLedger::Mark(const SPOOL_PLACE& stPlace)
{
    for (auto entry = m_segments.begin(); entry != m_segments.end() && entry->first < stPlace.ullSegment;) {
        SEGMENT& stSegment = entry->second;
        m_bDirty = m_bDirty || !stSegment.bDone || stSegment.strPath.empty();
        stSegment.bDone = true;
        if (!stSegment.strPath.empty()) {
            ++entry;
            continue;
        }
        m_mapByName.erase(stSegment.strName);
        entry = m_segments.erase(entry);
    }
}

bool CSegmentLedger::SetDone(const SPOOL_PLACE& stPlace, bool bWrite, std::string& strError)
{
    Mark(stPlace);
    const auto current = m_segments.find(stPlace.ullSegment);
    if (current != m_segments.end())
        current->second.ullDone = stPlace.ullOffset;
    m_bDirty = m_bDirty || (bWrite && m_stWritten != stPlace);
    if (m_bDirty && !Save(strError))
        return false;
    m_stWritten = bWrite ? stPlace : m_stWritten;
    return true;
}

void CSegmentLedger::DeleteBefore(const SPOOL_PLACE& stPlace) const
{
    for (const auto& [ullSegment, stSegment] : m_segments) {
        std::error_code gone;
        if (ullSegment < stPlace.ullSegment && stSegment.bDone && stSegment.bCompressed && !stSegment.strPath.empty())
            (void)std::filesystem::remove(stSegment.strPath, gone);
    }
}
