#include "ue/ChildChannel.h"
#include "ue/HDLCParse.h"

#include <cstdlib>

// Bytes from the line, cut into reads: the first byte of the input says how long a read is, 0 being all at once. A
// packet that comes out must give the same packet again when it is framed and taken in once more.

namespace
{
void Check(bool bHolds)
{
    if (!bHolds)
        std::abort();
}

void CheckRoundTrip(ByteView packet)
{
    const CHDLCParse hdlc;
    OwnedBytes pFrame;
    OwnedBytes pAgain;
    unsigned int ulFrameLen = 0;
    unsigned int ulAgainLen = 0;
    Check(hdlc.HdlcEncode(packet, pFrame, ulFrameLen) == 0);
    Check(hdlc.HdlcDecode({pFrame.get(), ulFrameLen}, pAgain, ulAgainLen) == 0);
    Check(std::ranges::equal(packet, ByteView(pAgain.get(), ulAgainLen)));
}

void FeedChannel(CChildChannel& channel, ByteView data)
{
    while (!data.empty()) {
        OwnedBytes pPacket;
        unsigned int ulLen = 0;
        const size_t szUsed = channel.GetHdlcPacket(data, pPacket, ulLen);
        Check(szUsed >= 1 && szUsed <= data.size());
        if (pPacket)
            CheckRoundTrip({pPacket.get(), ulLen});
        data = data.subspan(szUsed);
    }
}
} // namespace

extern "C" int LLVMFuzzerTestOneInput(const unsigned char* pData, size_t szLen);
extern "C" int LLVMFuzzerTestOneInput(const unsigned char* pData, size_t szLen)
{
    const ByteView input(pData, szLen);
    OwnedBytes pPacket;
    unsigned int ulLen = 0;
    if (CHDLCParse().HdlcDecode(input, pPacket, ulLen) == 0)
        CheckRoundTrip({pPacket.get(), ulLen});
    if (input.empty())
        return 0;

    static CChildChannel s_channel; // keeps what it holds of a frame from input to input, as on a line
    const size_t szRead = input.front() == 0 ? input.size() : input.front();
    for (ByteView rest = input.subspan(1); !rest.empty(); rest = Slice(rest, szRead))
        FeedChannel(s_channel, Slice(rest, 0, szRead));
    return 0;
}
