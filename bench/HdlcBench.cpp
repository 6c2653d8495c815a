#include "ue/TcpChannel.h"

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
        CPacket copy = CPacket::Allocate(payload.size());
        std::memcpy(copy.Bytes().data(), payload.data(), payload.size());
        benchmark::DoNotOptimize(copy.Bytes().data());
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
        const HDLC_RESULT stFrame = hdlc.HdlcEncode(payload);
        benchmark::DoNotOptimize(stFrame.packet.Bytes().data());
    }
    CountBytes(state);
}

std::vector<unsigned char> Frame(size_t szLen)
{
    const HDLC_RESULT stFrame = CHDLCParse().HdlcEncode(Payload(szLen));
    const ByteView frame = stFrame.packet.Bytes();
    return {frame.begin(), frame.end()};
}

void Decode(benchmark::State& state)
{
    const auto frame = Frame(PayloadLen(state));
    const CHDLCParse hdlc;
    for (auto _ : state) {
        const HDLC_RESULT stPacket = hdlc.HdlcDecode(frame);
        benchmark::DoNotOptimize(stPacket.packet.Bytes().data());
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
    TCPChannel link("", 0, false, CHANNEL_LTE_DATA);
    int64_t llPayload = 0;
    for (auto _ : state) {
        for (ByteView rest(stream); !rest.empty(); rest = Slice(rest, READ)) {
            for (ByteView read = Slice(rest, 0, READ); !read.empty();) {
                const CChildChannel::TAKEN_PACKET stTaken = link.Channel().GetHdlcPacket(read);
                read = read.subspan(stTaken.szTaken);
                benchmark::DoNotOptimize(stTaken.packet.Bytes().data());
                llPayload += static_cast<int64_t>(stTaken.packet.size());
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
