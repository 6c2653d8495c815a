#include "ue/TcpChannel.h"

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
    static TCPChannel s_link("", 0, false, CHANNEL_LTE_DATA);
    for (ByteView rest(pData, szLen); !rest.empty();) {
        const CChildChannel::TAKEN_PACKET stTaken = s_link.Channel().GetTextPacket(rest);
        Check(stTaken.szTaken >= 1 && stTaken.szTaken <= rest.size());
        if (stTaken.packet)
            CheckPacket(stTaken.packet.Bytes(), rest.first(stTaken.szTaken));
        rest = rest.subspan(stTaken.szTaken);
    }
    return 0;
}
