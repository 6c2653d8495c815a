#include "RelayRun.h"

#include "e2e/ScriptedUe.h"

#include <algorithm>
#include <atomic>
#include <cstdio>
#include <cstdlib>
#include <fcntl.h>
#include <fstream>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <poll.h>
#include <pty.h>
#include <random>
#include <sstream>
#include <sys/socket.h>
#include <thread>
#include <time.h>
#include <unistd.h>

namespace
{
using Clock = std::chrono::steady_clock;
using std::chrono::milliseconds;

constexpr unsigned char TAG_DATA = 3;
constexpr uint32_t DSP_ID = 0x30000001; // config/vex.cfg lets it pass
constexpr size_t FRAMES = 512;
constexpr size_t WRITE_SIZE = 65536;
constexpr auto LOSS_TIME = std::chrono::seconds(3); // nothing for so long: the rest is lost
constexpr auto LOAD_TICK = milliseconds(10);        // between two portions of a load
constexpr auto LATENCY_PAUSE = std::chrono::microseconds(500);

double Micros(Clock::duration time)
{
    return std::chrono::duration<double, std::micro>(time).count();
}

/// User and system time of a process, all threads, in microseconds.
double CpuMicros(pid_t lPid)
{
    clockid_t clock{};
    timespec stTime{};
    if (clock_getcpuclockid(lPid, &clock) != 0 || clock_gettime(clock, &stTime) != 0)
        return 0; // it has ended
    return static_cast<double>(stTime.tv_sec) * 1e6 + static_cast<double>(stTime.tv_nsec) / 1e3;
}

/// Bytes that wait, without waiting for more.
size_t Receive(const CUniqueFd& sink)
{
    static std::vector<unsigned char> buffer(1 << 18);
    const ssize_t lRead = recv(sink.Get(), buffer.data(), buffer.size(), MSG_DONTWAIT);
    // Without this the receiver's delayed acks would be measured, not the relay.
    const int nOn = 1;
    (void)setsockopt(sink.Get(), IPPROTO_TCP, TCP_QUICKACK, &nOn, sizeof(nOn));
    return lRead > 0 ? static_cast<size_t>(lRead) : 0;
}

/// One lane in a measurement of the rate.
class CPump
{
public:
    CPump(RELAY_LANE& lane, const RELAY_FRAMES& frames, size_t szFrameOut)
        : m_lane(lane), m_frames(frames), m_szFrameOut(szFrameOut)
    {
    }

    // The modem's side, for one thread:
    pollfd Port() const { return {m_bWriting ? m_lane.pty.master.Get() : -1, POLLOUT, 0}; }
    bool IsWriting() const { return m_bWriting; }
    /// Writes what the terminal takes; with bStop up to the end of the frame that has begun.
    void Write(bool bStop)
    {
        const ByteView stream(m_frames.stream);
        const size_t szEnd = bStop ? FrameEnd() : stream.size();
        const size_t szCount = std::min(WRITE_SIZE, szEnd - m_szAt);
        const ssize_t lWritten = szCount > 0 ? write(m_lane.pty.master.Get(), &stream[m_szAt], szCount) : 0;
        if (lWritten > 0)
            Advance(static_cast<size_t>(lWritten));
        m_bWriting = !bStop || m_szAt != FrameEnd();
    }

    // The client's side, for another:
    pollfd Sink() const { return {m_lane.sink.Get(), POLLIN, 0}; }
    /// True when anything came.
    bool Read()
    {
        const size_t szRead = Receive(m_lane.sink);
        m_szReceived += szRead;
        return szRead > 0;
    }

    // When the modem's side has ended:
    size_t Expected() const { return m_szFrameOut > 0 ? Frames() * m_szFrameOut : m_szWritten; }
    size_t Received() const { return m_szReceived; }
    bool HasAll() const { return m_szReceived >= Expected(); }

    size_t Frames() const
    {
        const auto pEnd = std::ranges::upper_bound(m_frames.ends, m_szAt);
        return m_szRounds * m_frames.ends.size() + static_cast<size_t>(pEnd - m_frames.ends.begin());
    }

private:
    /// The place where writing may stop: here when a frame ended here.
    size_t FrameEnd() const { return m_szAt == 0 ? 0 : *std::ranges::lower_bound(m_frames.ends, m_szAt); }

    void Advance(size_t szCount)
    {
        m_szWritten += szCount;
        m_szAt += szCount;
        if (m_szAt == m_frames.stream.size()) {
            m_szAt = 0;
            ++m_szRounds;
        }
    }

    RELAY_LANE& m_lane;
    const RELAY_FRAMES& m_frames;
    size_t m_szFrameOut;
    bool m_bWriting = true;
    size_t m_szAt = 0; // in the stream
    size_t m_szRounds = 0;
    size_t m_szWritten = 0;
    size_t m_szReceived = 0;
};

/// The modems write as much as is taken until then.
void RunModems(std::vector<CPump>& pumps, Clock::time_point end)
{
    std::vector<pollfd> polls(pumps.size());
    while (std::ranges::any_of(pumps, &CPump::IsWriting)) {
        std::ranges::transform(pumps, polls.begin(), &CPump::Port);
        (void)poll(polls.data(), polls.size(), 20);
        const bool bStop = Clock::now() >= end;
        for (size_t i = 0; i < pumps.size(); ++i)
            if ((polls[i].revents & POLLOUT) != 0 || bStop)
                pumps[i].Write(bStop);
    }
}

/// The clients read until all has come out or is lost. The time of the last byte.
Clock::time_point RunClients(std::vector<CPump>& pumps, const std::atomic<bool>& bWritten)
{
    auto last = Clock::now();
    std::vector<pollfd> polls(pumps.size());
    while (!(bWritten && std::ranges::all_of(pumps, &CPump::HasAll)) && Clock::now() < last + LOSS_TIME) {
        std::ranges::transform(pumps, polls.begin(), &CPump::Sink);
        (void)poll(polls.data(), polls.size(), 20);
        for (size_t i = 0; i < pumps.size(); ++i)
            if ((polls[i].revents & POLLIN) != 0 && pumps[i].Read())
                last = Clock::now();
    }
    return last;
}

/// Modems and clients are programs of their own at a bench, so they are threads here.
Clock::time_point RunPumps(std::vector<CPump>& pumps, Clock::time_point end)
{
    std::atomic<bool> bWritten = false;
    std::thread modems([&] {
        RunModems(pumps, end);
        bWritten = true;
    });
    const auto last = RunClients(pumps, bWritten);
    modems.join();
    return last;
}

std::vector<CPump> MakePumps(RELAY& relay, size_t szLanes, const RELAY_FRAMES& frames)
{
    std::vector<CPump> pumps;
    for (size_t i = 0; i < szLanes; ++i)
        pumps.emplace_back(relay.lanes[i], frames, relay.frameOut ? relay.frameOut(frames.szPayload) : 0);
    return pumps;
}

/// Writes the frames into one terminal at a steady rate, whatever piece of them it takes.
class CSteadyLane
{
public:
    CSteadyLane(int nFd, const RELAY_FRAMES& frames) : m_nFd(nFd), m_frames(frames) {}

    /// So many bytes more may go out; what the terminal doesn't take now goes with the next, up to a limit.
    void Send(size_t szBytes)
    {
        m_szBudget = std::min(m_szBudget + szBytes, MOST_BEHIND);
        while (m_szBudget > 0 && Write(m_szBudget)) {
        }
    }
    /// Completes the frame that has begun; the frames that are out.
    size_t Finish()
    {
        while (!std::ranges::binary_search(m_frames.ends, m_szAt) && m_szAt != 0) {
            const size_t szEnd = *std::ranges::upper_bound(m_frames.ends, m_szAt);
            if (!Write(szEnd - m_szAt))
                std::this_thread::sleep_for(milliseconds(1));
        }
        const auto ends = std::ranges::upper_bound(m_frames.ends, m_szAt) - m_frames.ends.begin();
        return m_szRounds * m_frames.ends.size() + static_cast<size_t>(ends);
    }

private:
    static constexpr size_t MOST_BEHIND = 256 * 1024;

    bool Write(size_t szMost)
    {
        const size_t szLen = std::min(szMost, m_frames.stream.size() - m_szAt);
        const ssize_t lWritten = write(m_nFd, &m_frames.stream[m_szAt], szLen);
        if (lWritten <= 0)
            return false;
        m_szBudget -= std::min(static_cast<size_t>(lWritten), m_szBudget);
        m_szAt += static_cast<size_t>(lWritten);
        m_szRounds += m_szAt == m_frames.stream.size() ? 1 : 0;
        m_szAt %= m_frames.stream.size();
        return true;
    }

    int m_nFd;
    const RELAY_FRAMES& m_frames;
    size_t m_szAt = 0; // in the stream
    size_t m_szRounds = 0;
    size_t m_szBudget = 0;
};
} // namespace

double CpuMicros(const RELAY& relay)
{
    double dSum = 0;
    for (const pid_t lPid : relay.pids)
        dSum += CpuMicros(lPid);
    return dSum;
}

RELAY_PTY OpenPty()
{
    int nMaster = -1;
    int nSlave = -1;
    char szName[64];
    termios stRaw{};
    cfmakeraw(&stRaw);
    if (openpty(&nMaster, &nSlave, szName, &stRaw, nullptr) != 0) {
        std::perror("openpty");
        std::abort();
    }
    (void)fcntl(nMaster, F_SETFD, FD_CLOEXEC);
    (void)fcntl(nSlave, F_SETFD, FD_CLOEXEC);
    (void)fcntl(nMaster, F_SETFL, O_RDWR | O_NONBLOCK);
    return {CUniqueFd(nMaster), CUniqueFd(nSlave), szName};
}

RELAY_FRAMES::RELAY_FRAMES(size_t szPayloadLen) : szPayload(szPayloadLen)
{
    std::mt19937 random(1); // one byte in 128 is stuffed, as in traffic that is packed well
    for (uint32_t i = 1; i <= FRAMES; ++i) {
        Bytes payload(szPayload, 0);
        for (unsigned char& ucByte : payload)
            ucByte = static_cast<unsigned char>(random());
        StoreLe<uint32_t>(payload, 0, i);
        const Bytes frame = CScriptedUe::Frame(CScriptedUe::Packet(TAG_DATA, DSP_ID, 0, i, i, payload));
        stream.insert(stream.end(), frame.begin(), frame.end());
        ends.push_back(stream.size());
    }
}

RELAY_RATE MeasureRate(RELAY& relay, size_t szLanes, const RELAY_FRAMES& frames, milliseconds time)
{
    std::vector<CPump> pumps = MakePumps(relay, szLanes, frames);
    const double dCpu = CpuMicros(relay);
    const auto start = Clock::now();
    const auto last = RunPumps(pumps, start + time);
    const double dCpuUsed = CpuMicros(relay) - dCpu;
    double dFrames = 0;
    double dExpected = 0;
    double dReceived = 0;
    for (const CPump& pump : pumps) {
        dFrames += static_cast<double>(pump.Frames());
        dExpected += static_cast<double>(pump.Expected());
        dReceived += static_cast<double>(pump.Received());
    }
    const double dCame = dFrames * dReceived / dExpected;
    return {dCame / Micros(last - start) * 1e6, dCpuUsed / dCame, 1 - dReceived / dExpected};
}

RELAY_LOAD MeasureLoad(RELAY& relay, const RELAY_FRAMES& frames, size_t szBytesPerSecond, milliseconds time)
{
    const size_t szOut = relay.frameOut ? relay.frameOut(frames.szPayload) : frames.stream.size() / frames.ends.size();
    std::vector<CSteadyLane> lanes;
    for (const RELAY_LANE& lane : relay.lanes)
        lanes.emplace_back(lane.pty.master.Get(), frames);
    size_t szReceived = 0;
    const auto receive = [&] {
        size_t szNow = 0;
        for (const RELAY_LANE& lane : relay.lanes)
            szNow += Receive(lane.sink);
        szReceived += szNow;
        return szNow > 0;
    };
    const double dCpu = CpuMicros(relay);
    const auto start = Clock::now();
    for (auto next = start; Clock::now() < start + time;) {
        for (CSteadyLane& lane : lanes)
            lane.Send(szBytesPerSecond / static_cast<size_t>(std::chrono::seconds(1) / LOAD_TICK));
        std::this_thread::sleep_until(next += LOAD_TICK);
        (void)receive();
    }
    const double dCores = (CpuMicros(relay) - dCpu) / Micros(Clock::now() - start);
    size_t szFrames = 0;
    for (CSteadyLane& lane : lanes)
        szFrames += lane.Finish();
    const size_t szExpected = szFrames * szOut;
    for (auto last = Clock::now(); szReceived < szExpected && Clock::now() < last + LOSS_TIME;)
        if (receive())
            last = Clock::now();
    return {dCores, szExpected == 0 ? 0 : 1 - static_cast<double>(szReceived) / static_cast<double>(szExpected),
            szFrames};
}

std::vector<double> MeasureLatency(RELAY& relay, size_t szLanes, const RELAY_FRAMES& frames, milliseconds time)
{
    std::vector<double> micros;
    const auto end = Clock::now() + time;
    for (size_t szFrame = 0; Clock::now() < end; szFrame = (szFrame + 1) % frames.ends.size()) {
        const size_t szBegin = szFrame == 0 ? 0 : frames.ends[szFrame - 1];
        const size_t szLen = frames.ends[szFrame] - szBegin;
        const size_t szOut = relay.frameOut ? relay.frameOut(frames.szPayload) : szLen;
        std::vector<size_t> left(szLanes, szOut);
        const auto start = Clock::now();
        for (size_t i = 0; i < szLanes; ++i)
            if (write(relay.lanes[i].pty.master.Get(), &frames.stream[szBegin], szLen) != static_cast<ssize_t>(szLen))
                return micros; // a terminal that doesn't take one frame: nothing to measure
        size_t szOpen = szLanes;
        while (szOpen > 0 && Clock::now() < start + LOSS_TIME) {
            std::vector<pollfd> polls;
            for (size_t i = 0; i < szLanes; ++i)
                polls.push_back({left[i] > 0 ? relay.lanes[i].sink.Get() : -1, POLLIN, 0});
            (void)poll(polls.data(), polls.size(), 100);
            for (size_t i = 0; i < szLanes; ++i) {
                if ((polls[i].revents & POLLIN) == 0)
                    continue;
                left[i] -= std::min(left[i], Receive(relay.lanes[i].sink));
                if (left[i] == 0) {
                    micros.push_back(Micros(Clock::now() - start));
                    --szOpen;
                }
            }
        }
        std::this_thread::sleep_for(LATENCY_PAUSE);
    }
    std::ranges::sort(micros);
    return micros;
}

double Percentile(const std::vector<double>& sorted, double dShare)
{
    if (sorted.empty())
        return 0;
    return sorted[std::min(sorted.size() - 1, static_cast<size_t>(dShare * static_cast<double>(sorted.size())))];
}

void WidenSink(const CUniqueFd& sink)
{
    const int nBytes = 16 << 20;
    (void)setsockopt(sink.Get(), SOL_SOCKET, SO_RCVBUFFORCE, &nBytes, sizeof(nBytes)); // a help, no must
}

size_t ResidentKiB(const RELAY& relay)
{
    size_t szPages = 0;
    for (const pid_t lPid : relay.pids) {
        size_t szAll = 0;
        size_t szResident = 0;
        std::ifstream("/proc/" + std::to_string(lPid) + "/statm") >> szAll >> szResident;
        szPages += szResident;
    }
    return szPages * static_cast<size_t>(sysconf(_SC_PAGESIZE)) / 1024;
}

void DrainSinks(RELAY& relay, milliseconds quiet)
{
    auto last = Clock::now();
    while (Clock::now() < last + quiet) {
        for (const RELAY_LANE& lane : relay.lanes)
            if (Receive(lane.sink) > 0)
                last = Clock::now();
        std::this_thread::sleep_for(milliseconds(1));
    }
}
