#include "fleet/SpanWriter.h"

#include "common/Wait.h"
#include "fleet/FleetBlocks.h"

#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <sys/mman.h>
#include <unistd.h>

namespace
{
/// A file in memory, for reading. Empty when it can't be.
class CMappedFile
{
public:
    CMappedFile(const std::string& strPath, size_t szLength) : m_szLength(szLength)
    {
        const CUniqueFd fd(open(strPath.c_str(), O_RDONLY | O_CLOEXEC));
        if (fd.IsOpen())
            m_pMemory = mmap(nullptr, szLength, PROT_READ, MAP_PRIVATE, fd.Get(), 0);
    }
    ~CMappedFile()
    {
        if (IsOpen())
            (void)munmap(m_pMemory, m_szLength);
    }
    CMappedFile(const CMappedFile&) = delete;
    CMappedFile& operator=(const CMappedFile&) = delete;

    bool IsOpen() const { return m_pMemory != MAP_FAILED; }
    ByteView Bytes() const { return {static_cast<const unsigned char*>(m_pMemory), m_szLength}; }

private:
    void* m_pMemory = MAP_FAILED;
    size_t m_szLength;
};

enum class PLACE
{
    FRAME, // stays in every case: a section's header, an interface, the picture
    INSIDE,
    OUTSIDE,
};
PLACE PlaceOf(ByteView block, const TIME_SPAN& stSpan)
{
    const auto record = RecordIn(block);
    if (!record || (record->stRecord.ucFlags & TAP_REPLAYED) != 0)
        return PLACE::FRAME;
    return stSpan.Has(record->stRecord.ullTime) ? PLACE::INSIDE : PLACE::OUTSIDE;
}
} // namespace

CSpanWriter::~CSpanWriter()
{
    if (m_fd.IsOpen())
        (void)unlink(PartPath().c_str());
}

bool CSpanWriter::Open(std::string& strError)
{
    m_fd = CUniqueFd(open(PartPath().c_str(), O_RDWR | O_CREAT | O_TRUNC | O_CLOEXEC, 0666));
    if (!m_fd.IsOpen())
        strError = PartPath() + ": " + std::strerror(errno);
    return m_fd.IsOpen();
}

bool CSpanWriter::Write(ByteView bytes)
{
    const size_t szWritten = WriteAll(m_fd.Get(), bytes);
    m_ullBytes += szWritten;
    return szWritten == bytes.size();
}

/// Writes the blocks that stay; gives the number of packets of the span among them, or none when it can't write.
std::optional<uint64_t> CSpanWriter::WriteBlocks(ByteView blocks)
{
    uint64_t ullInside = 0;
    ByteView run = blocks.first(0); // blocks in a row that stay, not written yet
    for (ByteView block = TakeBlock(blocks); !block.empty(); block = TakeBlock(blocks)) {
        const PLACE enPlace = PlaceOf(block, m_stSpan);
        ullInside += enPlace == PLACE::INSIDE ? 1 : 0;
        if (enPlace != PLACE::OUTSIDE) {
            run = {run.data(), run.size() + block.size()};
            continue;
        }
        if (!Write(run))
            return std::nullopt;
        run = blocks.first(0);
    }
    return Write(run) ? std::optional(ullInside) : std::nullopt;
}

bool CSpanWriter::AddBlocks(ByteView blocks, uint64_t ullStart)
{
    const uint64_t ullBefore = m_ullBytes;
    const auto inside = WriteBlocks(blocks);
    if (!inside)
        return false;
    if (*inside > 0 || m_stSpan.Has(ullStart)) {
        m_ullPackets += *inside;
        m_ullSegments += m_ullBytes > ullBefore ? 1 : 0;
        return true;
    }
    m_ullBytes = ullBefore;
    const auto lEnd = static_cast<off_t>(ullBefore);
    return ftruncate(m_fd.Get(), lEnd) == 0 && lseek(m_fd.Get(), lEnd, SEEK_SET) == lEnd;
}

bool CSpanWriter::Add(const std::string& strFile, uint64_t ullLength, uint64_t ullStart, std::string& strError)
{
    if (ullLength == 0)
        return true;
    const CMappedFile file(strFile, ullLength);
    if (!file.IsOpen()) {
        strError = strFile + ": " + std::strerror(errno);
        return false;
    }
    if (AddBlocks(file.Bytes(), ullStart))
        return true;
    strError = PartPath() + ": " + std::strerror(errno);
    return false;
}

bool CSpanWriter::Finish(std::string& strError)
{
    if (fsync(m_fd.Get()) == 0 && rename(PartPath().c_str(), m_strPath.c_str()) == 0) {
        m_fd = CUniqueFd();
        return true;
    }
    strError = m_strPath + ": " + std::strerror(errno);
    return false;
}
