#include "capture/PcapngReader.h"

#include <cstdlib>

// A hostile capture file: whatever it holds, the reader ends, its records lie within the file, and it says what is
// wrong.

extern "C" int LLVMFuzzerTestOneInput(const unsigned char* pData, size_t szLen);
extern "C" int LLVMFuzzerTestOneInput(const unsigned char* pData, size_t szLen)
{
    using RESULT = CPcapngReader::RESULT;
    CPcapngReader reader(MemoryCaptureSource({pData, szLen}));
    CAPTURED_RECORD stRecord;
    RESULT enResult{};
    size_t szTaken = 0;
    unsigned char ucSum = 0;
    while ((enResult = reader.Next(stRecord)) == RESULT::RECORD) {
        szTaken += PCAPNG_BLOCK_FRAME + CAPTURE_HEAD::SIZE + stRecord.bytes.size();
        for (const unsigned char ucByte : stRecord.bytes)
            ucSum = static_cast<unsigned char>(ucSum + ucByte);
        if (szTaken > szLen)
            std::abort();
    }
    [[maybe_unused]] volatile unsigned char ucKept = ucSum; // each byte is read
    const bool bGood = reader.Next(stRecord) == enResult && reader.Error().empty() == (enResult == RESULT::END);
    if (!bGood)
        std::abort();
    return 0;
}
