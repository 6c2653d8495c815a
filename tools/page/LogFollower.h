#pragma once

#include "common/UniqueFd.h"

#include <functional>
#include <string>
#include <string_view>
#include <sys/types.h>

/// Reads the lines that a log file gets, also when it is cut over into NAME.1 or begun anew. For one thread.
class CLogFollower
{
public:
    using LINE = std::function<void(std::string_view)>; // without its end

    /// From now on this file; nothing for an empty name. Its last BACK_BYTES are told first.
    void Follow(const std::string& strPath);
    const std::string& Path() const { return m_strPath; }
    /// Tells each whole line since the last call, READ_MOST bytes at most; what a burst has beyond is passed over.
    void Poll(const LINE& call);

private:
    static constexpr off_t BACK_BYTES = 64 * 1024;
    static constexpr off_t READ_MOST = 4 * 1024 * 1024;
    static constexpr size_t LINE_MOST = 4096; // a longer line is cut

    bool Open();
    bool IsReplaced() const;
    void ReadNew(const LINE& call);
    void Feed(std::string_view bytes, const LINE& call);

    std::string m_strPath;
    CUniqueFd m_Fd;
    off_t m_nAt = 0;          // of the next byte
    bool m_bSkipLine = false; // what comes up to the next line end is no whole line
    bool m_bFirst = true;     // no file of this name was read yet
    std::string m_strLine;    // begun
};
