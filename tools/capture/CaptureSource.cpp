#include "capture/PcapngReader.h"
#include "common/UniqueFd.h"
#include "common/Wait.h"

#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <zstd.h>

namespace
{
class CMemorySource : public ICaptureSource
{
public:
    explicit CMemorySource(ByteView bytes) : m_bytes(bytes) {}
    size_t Read(ByteSpan buffer) override
    {
        const ByteView part = Slice(m_bytes, 0, buffer.size());
        std::copy(part.begin(), part.end(), buffer.begin());
        m_bytes = m_bytes.subspan(part.size());
        return part.size();
    }
    std::string Error() const override { return ""; }

private:
    ByteView m_bytes;
};

class CFileSource : public ICaptureSource
{
public:
    explicit CFileSource(CUniqueFd fd) : m_fd(std::move(fd)) {}
    size_t Read(ByteSpan buffer) override
    {
        size_t szRead = 0;
        while (szRead < buffer.size()) {
            const ByteSpan rest = buffer.subspan(szRead);
            const ssize_t lRead = RetryOnEintr([&] { return read(m_fd.Get(), rest.data(), rest.size()); });
            if (lRead < 0)
                m_strError = std::strerror(errno);
            if (lRead <= 0)
                break;
            szRead += static_cast<size_t>(lRead);
        }
        return szRead;
    }
    std::string Error() const override { return m_strError; }

private:
    CUniqueFd m_fd;
    std::string m_strError;
};

struct FREE_STREAM
{
    void operator()(ZSTD_DStream* pStream) const { (void)ZSTD_freeDStream(pStream); }
};

/// One zstd frame or several, as they lie in another source.
class CZstdSource : public ICaptureSource
{
public:
    explicit CZstdSource(std::unique_ptr<ICaptureSource> pPacked)
        : m_pPacked(std::move(pPacked)), m_pStream(ZSTD_createDStream()), m_vecPacked(ZSTD_DStreamInSize())
    {
    }
    size_t Read(ByteSpan buffer) override
    {
        ZSTD_outBuffer stOut{buffer.data(), buffer.size(), 0};
        while (stOut.pos < stOut.size && m_strError.empty()) {
            if (m_stIn.pos == m_stIn.size && !Refill() && !m_bHeld)
                break;
            const size_t szBefore = stOut.pos;
            m_szWanted = ZSTD_decompressStream(m_pStream.get(), &stOut, &m_stIn);
            if (ZSTD_isError(m_szWanted) != 0)
                m_strError = std::string("not decompressible: ") + ZSTD_getErrorName(m_szWanted);
            // A full buffer within a frame may mean that the decoder holds more.
            m_bHeld = m_szWanted != 0 && stOut.pos == stOut.size && stOut.pos > szBefore;
        }
        return stOut.pos;
    }
    std::string Error() const override
    {
        if (!m_strError.empty())
            return m_strError;
        if (std::string strPacked = m_pPacked->Error(); !strPacked.empty())
            return strPacked;
        return m_szWanted == 0 ? "" : "the compressed file ends early";
    }

private:
    bool Refill()
    {
        m_stIn = {m_vecPacked.data(), m_pPacked->Read(m_vecPacked), 0};
        return m_stIn.size > 0;
    }

    std::unique_ptr<ICaptureSource> m_pPacked;
    std::unique_ptr<ZSTD_DStream, FREE_STREAM> m_pStream;
    std::vector<unsigned char> m_vecPacked;
    ZSTD_inBuffer m_stIn{nullptr, 0, 0};
    size_t m_szWanted = 0; // 0: between two frames
    bool m_bHeld = false;
    std::string m_strError;
};

bool IsZstd(int nFd)
{
    std::array<unsigned char, 4> aucMagic{};
    return pread(nFd, aucMagic.data(), aucMagic.size(), 0) == static_cast<ssize_t>(aucMagic.size()) &&
           LoadLe<uint32_t>(aucMagic, 0) == ZSTD_MAGICNUMBER;
}
} // namespace

std::unique_ptr<ICaptureSource> OpenCaptureSource(const std::string& strPath, std::string& strError)
{
    CUniqueFd fd(open(strPath.c_str(), O_RDONLY | O_CLOEXEC));
    if (!fd.IsOpen()) {
        strError = strPath + ": " + std::strerror(errno);
        return nullptr;
    }
    const bool bPacked = IsZstd(fd.Get());
    auto pFile = std::make_unique<CFileSource>(std::move(fd));
    if (!bPacked)
        return pFile;
    return std::make_unique<CZstdSource>(std::move(pFile));
}

std::unique_ptr<ICaptureSource> MemoryCaptureSource(ByteView bytes)
{
    return std::make_unique<CMemorySource>(bytes);
}
