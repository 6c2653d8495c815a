#pragma once

#include <cstdint>
#include <string>
#include <vector>

constexpr const char* CAPTURE_SUFFIX = ".pcapng";
constexpr const char* COMPRESSED_SUFFIX = ".zst";

/// Files that one capture writes one after the other:
/// <base>_<YYYYmmddTHHMMSS.mmmZ>_<number of the first record, 10 digits or more>.pcapng, with .zst once compressed.
class CSegmentNames
{
public:
    /// Folder and beginning of the names; a .pcapng at its end is taken off.
    explicit CSegmentNames(const std::string& strBase);

    /// Path of a file that isn't there yet and begins with a record of this time (CLOCK_REALTIME in ns) and number.
    std::string NewPath(uint64_t ullTime, uint64_t ullNumber) const;

    struct SEGMENT
    {
        std::string strPath;
        uint64_t ullBytes = 0;
        bool bCompressed = false;
    };
    /// Those that are there, the oldest first. What has another name is none of them.
    std::vector<SEGMENT> List() const;

    const std::string& Folder() const { return m_strFolder; }

private:
    std::string m_strFolder;
    std::string m_strBase; // of the file's name
};
