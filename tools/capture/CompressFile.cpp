#include "capture/CompressFile.h"

#include "capture/SegmentNames.h"
#include "common/Bytes.h"
#include "common/UniqueFd.h"
#include "common/Wait.h"

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <fcntl.h>
#include <memory>
#include <sys/stat.h>
#include <vector>
#include <zstd.h>

namespace
{
constexpr int LEVEL = 1; // 1.2 us a record of 300 bytes; level 3 takes twice the time for a tenth less

struct FREE_CONTEXT
{
    void operator()(ZSTD_CCtx* pContext) const { (void)ZSTD_freeCCtx(pContext); }
};

/// One frame being made. Not for a second one.
class CFrame
{
public:
    CFrame(int nOutFd, uint64_t ullSize)
        : m_nOutFd(nOutFd), m_pContext(ZSTD_createCCtx()), m_vecOut(ZSTD_CStreamOutSize())
    {
        (void)ZSTD_CCtx_setParameter(m_pContext.get(), ZSTD_c_compressionLevel, LEVEL); // both values are valid
        (void)ZSTD_CCtx_setParameter(m_pContext.get(), ZSTD_c_checksumFlag, 1);
        (void)ZSTD_CCtx_setPledgedSrcSize(m_pContext.get(), ullSize); // the frame's head tells it
    }

    /// False, with errno, when it can't be written.
    bool Add(ByteView bytes, bool bLast)
    {
        ZSTD_inBuffer stIn{bytes.data(), bytes.size(), 0};
        for (;;) {
            ZSTD_outBuffer stOut{m_vecOut.data(), m_vecOut.size(), 0};
            const size_t szLeft =
                ZSTD_compressStream2(m_pContext.get(), &stOut, &stIn, bLast ? ZSTD_e_end : ZSTD_e_continue);
            if (ZSTD_isError(szLeft) != 0) {
                errno = EIO; // the file has changed under way, or memory is short
                return false;
            }
            if (WriteAll(m_nOutFd, ByteView(m_vecOut).first(stOut.pos)) < stOut.pos)
                return false;
            if (bLast ? szLeft == 0 : stIn.pos == stIn.size)
                return true;
        }
    }

private:
    const int m_nOutFd;
    std::unique_ptr<ZSTD_CCtx, FREE_CONTEXT> m_pContext;
    std::vector<unsigned char> m_vecOut;
};

/// False, with errno.
bool Compress(int nInFd, int nOutFd)
{
    struct stat stFile
    {
    };
    if (fstat(nInFd, &stFile) != 0)
        return false;
    if (!S_ISREG(stFile.st_mode)) {
        errno = EINVAL; // a device would be deleted afterwards
        return false;
    }
    CFrame frame(nOutFd, static_cast<uint64_t>(stFile.st_size));
    std::vector<unsigned char> vecIn(ZSTD_CStreamInSize());
    for (;;) {
        const ssize_t lRead = RetryOnEintr([&] { return read(nInFd, vecIn.data(), vecIn.size()); });
        if (lRead < 0 || !frame.Add(ByteView(vecIn).first(static_cast<size_t>(lRead)), lRead == 0))
            return false;
        if (lRead == 0)
            return fdatasync(nOutFd) == 0;
    }
}
} // namespace

bool CompressFile(const std::string& strPath, std::string& strError)
{
    const std::string strTarget = strPath + COMPRESSED_SUFFIX;
    const std::string strNew = strTarget + ".tmp";
    const CUniqueFd inFd(open(strPath.c_str(), O_RDONLY | O_CLOEXEC));
    const CUniqueFd outFd(inFd.IsOpen() ? open(strNew.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0666) : -1);
    if (outFd.IsOpen() && Compress(inFd.Get(), outFd.Get()) && rename(strNew.c_str(), strTarget.c_str()) == 0) {
        (void)unlink(strPath.c_str()); // one that stays is compressed again
        return true;
    }
    strError = strPath + ": not compressed: " + std::strerror(errno);
    if (outFd.IsOpen())
        (void)unlink(strNew.c_str());
    return false;
}
