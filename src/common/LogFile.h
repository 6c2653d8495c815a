#pragma once

#include "common/UniqueFd.h"

#include <cstdint>
#include <string>
#include <string_view>

/// A text file of whole lines: one that the disk has no room for is lost, and never part of another. With a limit the
/// file is cut over into NAME.1, in the place of an earlier one, before it grows beyond; so both together hold the
/// newest lines of up to twice the limit.
class CLogFile
{
public:
    /// Truncates the file; with errno, when that fails. ullMaxSize in bytes; 0 is no limit.
    CLogFile(std::string strName, uint64_t ullMaxSize);

    bool IsOpen() const { return m_Fd.IsOpen(); }
    /// Writes a line with its end, which is in the file when this returns; nothing for an empty text. A line beyond the
    /// limit is cut. Does nothing without a file.
    void Write(std::string_view line);

private:
    void WriteLine(std::string_view line);
    size_t WriteBytes(std::string_view bytes);
    void DropTail(size_t szCount);
    void CutOver();

    std::string m_strName;
    uint64_t m_ullMaxSize;
    CUniqueFd m_Fd;
    bool m_bRegular = false; // a file of a disk, and no device or pipe
    bool m_bTorn = false;    // it ends within a line
    uint64_t m_ullSize = 0;  // bytes written
};
