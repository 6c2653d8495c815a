#include "ue/ChildChannel.h"
#include "ue/TcpChannel.h"

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
    const HDLC_RESULT stFrame = hdlc.HdlcEncode(packet);
    Check(stFrame.uiResult == 0);
    const HDLC_RESULT stAgain = hdlc.HdlcDecode(stFrame.packet.Bytes());
    Check(stAgain.uiResult == 0);
    Check(std::ranges::equal(packet, stAgain.packet.Bytes()));
}

void FeedChannel(CChildChannel& channel, ByteView data)
{
    while (!data.empty()) {
        const CChildChannel::TAKEN_PACKET stTaken = channel.GetHdlcPacket(data);
        Check(stTaken.szTaken >= 1 && stTaken.szTaken <= data.size());
        if (stTaken.packet)
            CheckRoundTrip(stTaken.packet.Bytes());
        data = data.subspan(stTaken.szTaken);
    }
}
} // namespace

extern "C" int LLVMFuzzerTestOneInput(const unsigned char* pData, size_t szLen);
extern "C" int LLVMFuzzerTestOneInput(const unsigned char* pData, size_t szLen)
{
    const ByteView input(pData, szLen);
    if (const HDLC_RESULT stResult = CHDLCParse().HdlcDecode(input); stResult.uiResult == 0)
        CheckRoundTrip(stResult.packet.Bytes());
    if (input.empty())
        return 0;

    static TCPChannel s_link("", 0, false,
                             CHANNEL_LTE_DATA); // keeps what it holds of a frame from input to input, as on a line
    const size_t szRead = input.front() == 0 ? input.size() : input.front();
    for (ByteView rest = input.subspan(1); !rest.empty(); rest = Slice(rest, szRead))
        FeedChannel(s_link.Channel(), Slice(rest, 0, szRead));
    return 0;
}
