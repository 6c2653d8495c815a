#include "ue/ChildChannel.h"

#include <cstdlib>

// One read from an AT port. Every packet must be a line of that read between two CR LF.

namespace
{
void Check(bool bHolds)
{
    if (!bHolds)
        std::abort();
}

void CheckPacket(ByteView packet, ByteView taken)
{
    Check(packet.size() >= 5 && packet.size() == taken.size() + 2);
    Check(packet[0] == '\r' && packet[1] == '\n');
    Check(std::ranges::equal(packet.subspan(2), taken));
    Check(packet[packet.size() - 2] == '\r' && packet.back() == '\n');
}
} // namespace

extern "C" int LLVMFuzzerTestOneInput(const unsigned char* pData, size_t szLen);
extern "C" int LLVMFuzzerTestOneInput(const unsigned char* pData, size_t szLen)
{
    static const CChildChannel s_channel;
    for (ByteView rest(pData, szLen); !rest.empty();) {
        OwnedBytes pPacket;
        unsigned int ulLen = 0;
        const size_t szUsed = s_channel.GetTextPacket(rest, pPacket, ulLen);
        Check(szUsed >= 1 && szUsed <= rest.size());
        Check((pPacket != nullptr) == (ulLen > 0));
        if (pPacket)
            CheckPacket({pPacket.get(), ulLen}, rest.first(szUsed));
        rest = rest.subspan(szUsed);
    }
    return 0;
}
