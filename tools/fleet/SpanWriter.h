#pragma once

#include "common/Bytes.h"
#include "common/UniqueFd.h"

#include <cstdint>
#include <optional>
#include <string>

/// A time span, CLOCK_REALTIME in ns: from the first up to, but without, the last.
struct TIME_SPAN
{
    uint64_t ullFrom = 0;
    uint64_t ullTo = UINT64_MAX;

    bool Has(uint64_t ullTime) const { return ullTime >= ullFrom && ullTime < ullTo; }
};

/// Writes segments one after the other to one capture file, without the packets outside of a time span. Each segment
/// keeps its section, its interfaces, statistics and the picture that it begins with (records marked as replayed), so
/// that what is left still reads; a segment without any packet of the span is left out, unless it began in the span.
class CSpanWriter
{
public:
    /// strPath gets its contents when Finish has succeeded; until then they are in strPath.part.
    CSpanWriter(std::string strPath, const TIME_SPAN& stSpan) : m_strPath(std::move(strPath)), m_stSpan(stSpan) {}
    /// Removes what isn't finished.
    ~CSpanWriter();
    CSpanWriter(const CSpanWriter&) = delete;
    CSpanWriter& operator=(const CSpanWriter&) = delete;

    /// False, with what is wrong, as all below.
    [[nodiscard]] bool Open(std::string& strError);
    /// Adds the first ullLength bytes of a segment's file, up to the last whole block in them. ullStart: the segment's
    /// beginning as its name tells.
    [[nodiscard]] bool Add(const std::string& strFile, uint64_t ullLength, uint64_t ullStart, std::string& strError);
    /// Gives the file its name.
    [[nodiscard]] bool Finish(std::string& strError);

    uint64_t Packets() const { return m_ullPackets; }
    uint64_t Bytes() const { return m_ullBytes; }
    uint64_t Segments() const { return m_ullSegments; }
    /// Where those bytes are until Finish.
    std::string PartPath() const { return m_strPath + ".part"; }

private:
    std::optional<uint64_t> WriteBlocks(ByteView blocks);
    bool AddBlocks(ByteView blocks, uint64_t ullStart);
    bool Write(ByteView bytes);

    const std::string m_strPath;
    const TIME_SPAN m_stSpan;
    CUniqueFd m_fd;
    uint64_t m_ullPackets = 0;
    uint64_t m_ullBytes = 0;
    uint64_t m_ullSegments = 0;
};
