#include "capture/CaptureOut.h"

#include "capture/PcapngBlocks.h"
#include "common/Wait.h"

#include <array>
#include <fcntl.h>
#include <sys/stat.h>

namespace
{
constexpr int READER_WAIT_MS = 1000;
constexpr mode_t FILE_MODE = 0666; // as the user's mask has it

class CRegularFile : public ICaptureOut
{
public:
    explicit CRegularFile(CUniqueFd fd) : m_fd(std::move(fd)) {}

    bool Append(ByteView& blocks) override
    {
        const size_t szWritten = WriteAll(m_fd.Get(), blocks);
        const int nError = errno;
        const size_t szWhole = szWritten == blocks.size() ? szWritten : WholeBlocks(blocks.first(szWritten));
        m_lSize += static_cast<off_t>(szWhole);
        blocks = blocks.subspan(szWhole);
        if (blocks.empty())
            return true;
        // A part of a block that can't be cut off is overwritten when there is room again.
        (void)!ftruncate(m_fd.Get(), m_lSize);
        (void)lseek(m_fd.Get(), m_lSize, SEEK_SET);
        errno = nError;
        return false;
    }
    CUniqueFd Duplicate() const override { return CUniqueFd(fcntl(m_fd.Get(), F_DUPFD_CLOEXEC, 0)); }

private:
    CUniqueFd m_fd;
    off_t m_lSize = 0;
};

/// Whatever has no end that could be cut: a part of a block goes on where it stopped.
class CStream : public ICaptureOut
{
public:
    explicit CStream(CUniqueFd fd) : m_fd(std::move(fd)) {}

    bool Append(ByteView& blocks) override
    {
        while (!blocks.empty()) {
            std::array<pollfd, 1> astPoll{{{m_fd.Get(), POLLOUT, 0}}};
            if (PollFor(astPoll, READER_WAIT_MS) == 0) {
                errno = EAGAIN;
                return false;
            }
            const ssize_t lWritten = write(m_fd.Get(), blocks.data(), blocks.size());
            if (lWritten > 0)
                blocks = blocks.subspan(static_cast<size_t>(lWritten));
            else if (errno != EAGAIN && errno != EINTR)
                return false;
        }
        return true;
    }

private:
    CUniqueFd m_fd;
};

bool IsOfType(int nFd, mode_t ulType)
{
    struct stat stFile
    {
    };
    return fstat(nFd, &stFile) == 0 && (stFile.st_mode & S_IFMT) == ulType;
}
} // namespace

std::unique_ptr<ICaptureOut> OpenCaptureFile(const std::string& strPath)
{
    CUniqueFd fd(open(strPath.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, FILE_MODE));
    if (!fd.IsOpen())
        return nullptr;
    if (IsOfType(fd.Get(), S_IFREG))
        return std::make_unique<CRegularFile>(std::move(fd));
    return std::make_unique<CStream>(std::move(fd));
}

std::unique_ptr<ICaptureOut> OpenStandardOutput()
{
    // A pipe is opened a second time: not to block must not spread to the others that have it open.
    CUniqueFd fd;
    if (IsOfType(STDOUT_FILENO, S_IFIFO))
        fd.Reset(open("/proc/self/fd/1", O_WRONLY | O_NONBLOCK | O_CLOEXEC));
    if (!fd.IsOpen())
        fd.Reset(fcntl(STDOUT_FILENO, F_DUPFD_CLOEXEC, 0));
    return std::make_unique<CStream>(std::move(fd));
}

std::unique_ptr<ICaptureOut> OpenFifo(const std::string& strPath)
{
    CUniqueFd fd(open(strPath.c_str(), O_WRONLY | O_CLOEXEC));
    if (!fd.IsOpen() || !SetNonBlocking(fd.Get(), true))
        return nullptr;
    return std::make_unique<CStream>(std::move(fd));
}
