#include "capture/PcapngBlocks.h"

#include "capture/CaptureFormat.h"
#include "common/UniqueFd.h"
#include "common/Wait.h"

#include <fcntl.h>
#include <sys/stat.h>

namespace
{
constexpr size_t BLOCK_HEAD = 8; // type and length

/// Length of the block with this head; 0 when it isn't one or doesn't fit.
uint64_t BlockLength(ByteView head, uint64_t ullLeft)
{
    const uint64_t ullLength = LoadLe<uint32_t>(head, 4);
    return ullLength < PCAPNG_BLOCK_FRAME || ullLength > ullLeft ? 0 : ullLength;
}
} // namespace

size_t WholeBlocks(ByteView bytes)
{
    size_t szWhole = 0;
    while (const uint64_t ullLength = BlockLength(Slice(bytes, szWhole), bytes.size() - szWhole))
        szWhole += ullLength;
    return szWhole;
}

uint64_t CountPackets(ByteView blocks)
{
    uint64_t ullCount = 0;
    while (const uint64_t ullLength = BlockLength(blocks, blocks.size())) {
        ullCount += LoadLe<uint32_t>(blocks, 0) == PCAPNG_PACKET ? 1 : 0;
        blocks = blocks.subspan(ullLength);
    }
    return ullCount;
}

bool CutToWholeBlocks(const std::string& strPath)
{
    const CUniqueFd fd(open(strPath.c_str(), O_RDWR | O_CLOEXEC));
    struct stat stFile
    {
    };
    if (!fd.IsOpen() || fstat(fd.Get(), &stFile) != 0)
        return false;
    const auto ullSize = static_cast<uint64_t>(stFile.st_size);
    uint64_t ullWhole = 0;
    std::array<unsigned char, BLOCK_HEAD> aucHead{};
    for (;;) {
        const ssize_t lRead =
            RetryOnEintr([&] { return pread(fd.Get(), aucHead.data(), aucHead.size(), static_cast<off_t>(ullWhole)); });
        if (lRead < 0)
            return false;
        const uint64_t ullLength =
            BlockLength(Slice(ByteView(aucHead), 0, static_cast<size_t>(lRead)), ullSize - ullWhole);
        if (ullLength == 0)
            break;
        ullWhole += ullLength;
    }
    return ullWhole == ullSize || ftruncate(fd.Get(), static_cast<off_t>(ullWhole)) == 0;
}
