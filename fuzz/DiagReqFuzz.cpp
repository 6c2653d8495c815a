#include "agent/Agent.h"
#include "agent/Client.h"
#include "common/Config.h"
#include "data/DiagPacket.h"

#include <cstdlib>
#include <vector>

// The frame search in what a client sends: the first byte of the input says how the rest is cut into chunks. Cut or
// whole, the same frames must come out, and each must be as long as its head says.

namespace
{
using Frames = std::vector<std::vector<unsigned char>>;

CAgent& Agent()
{
    static CAgent& s_agent = *new CAgent;
    return s_agent;
}

Frames FramesOf(ByteView stream, size_t szChunk)
{
    CClient client(-1, CHANNEL_LTE_DIAG, &Agent().Bindings());
    Frames frames;
    for (size_t szStart = 0; szStart < stream.size(); szStart += szChunk)
        for (ByteView rest = Slice(stream, szStart, szChunk); !rest.empty();) {
            const CClient::TAKEN_FRAME stTaken = client.GetDiagReqPacket(rest);
            if (stTaken.szTaken == 0 || stTaken.szTaken > rest.size())
                std::abort();
            if (!stTaken.frame.empty())
                frames.emplace_back(stTaken.frame.begin(), stTaken.frame.end());
            rest = rest.subspan(stTaken.szTaken);
        }
    return frames;
}
} // namespace

extern "C" int LLVMFuzzerTestOneInput(const unsigned char* pData, size_t szSize)
{
    static const bool s_bSilent = [] {
        std::string strLine = "debuglevel=0"; // nobody reads the log's queue here
        return CConfig::Instance()->ParseLine(strLine);
    }();
    (void)s_bSilent;
    if (szSize == 0)
        return 0;
    const ByteView stream(pData + 1, szSize - 1);
    const Frames whole = FramesOf(stream, stream.size() + 1);
    if (whole != FramesOf(stream, 1 + pData[0] % 64u))
        std::abort();
    for (const auto& frame : whole)
        if (frame.size() != DIAG_PACKET_REQ_STRU::SIZE + ViewReq(frame).stHead.usLen)
            std::abort();
    CClient at(-1, CHANNEL_AT, &Agent().Bindings());
    for (size_t szStart = 0; szStart < stream.size(); szStart += 1 + pData[0])
        at.OnClientData(Slice(stream, szStart, 1 + pData[0]));
    return 0;
}
