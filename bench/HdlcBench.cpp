#include "ue/ChildChannel.h"
#include "ue/HDLCParse.h"

#include <benchmark/benchmark.h>
#include <cstring>
#include <random>
#include <vector>

// Bytes of payload per second through framing and the FCS, beside a memcpy of the same payload. Random payloads:
// one byte in 128 is stuffed, as in traffic that is packed well.

namespace
{
std::vector<unsigned char> Payload(size_t szLen)
{
    std::mt19937 random(1);
    std::vector<unsigned char> payload(szLen);
    for (unsigned char& ucByte : payload)
        ucByte = static_cast<unsigned char>(random());
    return payload;
}

size_t PayloadLen(const benchmark::State& state)
{
    return static_cast<size_t>(state.range(0));
}

void CountBytes(benchmark::State& state)
{
    state.SetBytesProcessed(state.iterations() * state.range(0));
}

void Memcpy(benchmark::State& state)
{
    const auto payload = Payload(PayloadLen(state));
    for (auto _ : state) {
        const OwnedBytes pCopy(new unsigned char[payload.size()]);
        std::memcpy(pCopy.get(), payload.data(), payload.size());
        benchmark::DoNotOptimize(pCopy.get());
        benchmark::ClobberMemory();
    }
    CountBytes(state);
}

void Fcs(benchmark::State& state)
{
    const auto payload = Payload(PayloadLen(state));
    const CHDLCParse hdlc;
    for (auto _ : state)
        benchmark::DoNotOptimize(hdlc.CalFcs(0xFFFF, payload));
    CountBytes(state);
}

void Encode(benchmark::State& state)
{
    const auto payload = Payload(PayloadLen(state));
    const CHDLCParse hdlc;
    for (auto _ : state) {
        OwnedBytes pFrame;
        unsigned int ulLen = 0;
        benchmark::DoNotOptimize(hdlc.HdlcEncode(payload, pFrame, ulLen));
        benchmark::DoNotOptimize(pFrame.get());
    }
    CountBytes(state);
}

std::vector<unsigned char> Frame(size_t szLen)
{
    OwnedBytes pFrame;
    unsigned int ulLen = 0;
    if (CHDLCParse().HdlcEncode(Payload(szLen), pFrame, ulLen) != 0)
        return {};
    return {pFrame.get(), pFrame.get() + ulLen};
}

void Decode(benchmark::State& state)
{
    const auto frame = Frame(PayloadLen(state));
    const CHDLCParse hdlc;
    for (auto _ : state) {
        OwnedBytes pPacket;
        unsigned int ulLen = 0;
        benchmark::DoNotOptimize(hdlc.HdlcDecode(frame, pPacket, ulLen));
        benchmark::DoNotOptimize(pPacket.get());
    }
    CountBytes(state);
}

/// The way of frames through a channel, in reads as long as a terminal gives them.
void Reassemble(benchmark::State& state)
{
    constexpr size_t READ = 4096;
    const auto frame = Frame(PayloadLen(state));
    std::vector<unsigned char> stream;
    while (stream.size() < 16 * READ)
        stream.insert(stream.end(), frame.begin(), frame.end());
    CChildChannel channel;
    int64_t llPayload = 0;
    for (auto _ : state) {
        for (ByteView rest(stream); !rest.empty(); rest = Slice(rest, READ)) {
            for (ByteView read = Slice(rest, 0, READ); !read.empty();) {
                OwnedBytes pPacket;
                unsigned int ulLen = 0;
                read = read.subspan(channel.GetHdlcPacket(read, pPacket, ulLen));
                benchmark::DoNotOptimize(pPacket.get());
                llPayload += ulLen;
            }
        }
    }
    state.SetBytesProcessed(llPayload);
}
} // namespace

BENCHMARK(Memcpy)->Arg(64)->Arg(300)->Arg(1500)->Arg(65536);
BENCHMARK(Fcs)->Arg(64)->Arg(300)->Arg(1500)->Arg(65536);
BENCHMARK(Encode)->Arg(64)->Arg(300)->Arg(1500)->Arg(65536);
BENCHMARK(Decode)->Arg(64)->Arg(300)->Arg(1500)->Arg(65536);
BENCHMARK(Reassemble)->Arg(64)->Arg(300)->Arg(1500)->Arg(65536);

BENCHMARK_MAIN();
