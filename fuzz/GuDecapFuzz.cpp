#include "data/gu/GUDataProcess.h"

#include <cstdlib>
#include <vector>

// Byte blocks of the GU command channel, cut out of the input: frame mode, then for each block a u16 length and its
// bytes. What is delivered must lie within the largest frame.

extern "C" int LLVMFuzzerTestOneInput(const unsigned char* pucData, size_t szSize)
{
    CByteReader input(ByteView(pucData, szSize));
    unsigned char ucMode = 0;
    input.Field(ucMode);
    CGUDataProcess process;
    unsigned int ulSum = 0;
    process.SetguDataProcess([&](ByteView packet) {
        if (packet.size() > OM_MAX_LENGTH - 4U)
            std::abort();
        for (const unsigned char ucByte : packet)
            ulSum += ucByte;
    });
    while (input.Left() > 0) {
        unsigned short usLen = 0;
        input.Field(usLen);
        const ByteView taken = input.Take(usLen % 5000);
        std::vector<unsigned char> block(taken.begin(), taken.end());
        const size_t szLead = ucMode % 2 == 0 ? FRAME_LEAD_TIME_SSID : FRAME_LEAD_RTC_CPUID;
        (void)process.OM_UsbFrameDecap(block, szLead, 1 + ucMode % 3); // refused blocks are as good
    }
    return ulSum == 0xFFFFFFFF ? -1 : 0;
}
