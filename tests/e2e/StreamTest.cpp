#include "common/Bytes.h"
#include "e2e/AgentBench.h"
#include "support/WaitFor.h"

#include <atomic>
#include <csignal>
#include <gtest/gtest.h>
#include <mutex>
#include <nlohmann/json.hpp>
#include <poll.h>
#include <sys/socket.h>
#include <thread>

// Streams of LTE indications from simulated modems at the highest rate that their pseudo terminals carry. The
// simulator numbers what the agent is to pass on from 1; the number comes back in the place of the result code, and
// in the payload where the class has a place for it.

namespace
{
using std::chrono::milliseconds;
using std::chrono::seconds;

constexpr size_t FRAME_HEAD = LEAD_LEN + DIAG_PACKET_ACK_STRU::SIZE;
constexpr uint32_t LAYER_MESSAGES = 0x0043; // high half of the ids of layer messages that are no measurements

/// Place of the number in the payload that clients get; nothing where the class has none or rebuilds the payload.
std::optional<size_t> NumberAt(const DIAG_PACKET_ACK_STRU& stHead)
{
    switch (stHead.usPktType & 0xFF) {
    case 0: // DSP and other messages
    case 4: // user plane
    case 5: // DPI
        return 0;
    case 1: // air and IMS keep four bytes in front
    case 6:
        return 4;
    case 2:
        return stHead.ulCmdId >> 16 == LAYER_MESSAGES ? std::optional<size_t>(0) : std::nullopt;
    default:
        return std::nullopt;
    }
}

/// A client of the data channel that reads on a thread of its own and checks that every number is the one behind the
/// last.
class CStreamClient
{
public:
    explicit CStreamClient(unsigned int ulPort) : m_client(CHANNEL_LTE_DATA), m_bBound(m_client.Bind(ulPort))
    {
        m_thread = std::thread([this] { Run(); });
    }
    ~CStreamClient()
    {
        m_bRun = false;
        m_thread.join();
    }

    bool IsBound() const { return m_bBound; }
    uint32_t Last() const { return m_ulLast; }
    uint64_t Checked() const { return m_ullPayloadNumbers; }
    /// What was wrong first; empty when nothing was.
    std::string Fault() const
    {
        const std::lock_guard guard(m_faultMutex);
        return m_strFault;
    }

private:
    void Run()
    {
        Bytes bytes;
        std::array<unsigned char, 65536> aucRead;
        while (m_bRun && Fault().empty()) {
            pollfd stPoll{m_client.Fd().Get(), POLLIN, 0};
            if (poll(&stPoll, 1, 50) <= 0)
                continue;
            const ssize_t lRead = recv(m_client.Fd().Get(), aucRead.data(), aucRead.size(), 0);
            if (lRead <= 0) {
                SetFault("the agent closed the connection");
                return;
            }
            bytes.insert(bytes.end(), aucRead.begin(), aucRead.begin() + lRead);
            const size_t szTaken = TakeFrames(bytes);
            bytes.erase(bytes.begin(), bytes.begin() + static_cast<ptrdiff_t>(szTaken));
        }
    }

    size_t TakeFrames(ByteView bytes)
    {
        size_t szTaken = 0;
        for (;;) {
            const ByteView rest = bytes.subspan(szTaken);
            if (rest.size() < FRAME_HEAD)
                return szTaken;
            DIAG_PACKET_ACK_STRU stHead;
            CByteReader reader(rest.subspan(LEAD_LEN));
            AckHead(reader, stHead);
            if (rest[0] != LEAD_BYTE || rest[1] != LEAD_BYTE) {
                SetFault("no packet behind number " + std::to_string(Last()));
                return szTaken;
            }
            if (rest.size() < FRAME_HEAD + stHead.usLen)
                return szTaken;
            Check(stHead, rest.subspan(FRAME_HEAD, stHead.usLen));
            szTaken += FRAME_HEAD + stHead.usLen;
        }
    }

    void Check(const DIAG_PACKET_ACK_STRU& stHead, ByteView payload)
    {
        const uint32_t ulNumber = stHead.ulRc;
        if (ulNumber == 0)
            return; // passed on now and then only, so not numbered
        if (ulNumber != m_ulLast + 1)
            SetFault(std::to_string(ulNumber) + " came behind " + std::to_string(Last()));
        m_ulLast = ulNumber;
        const auto szAt = NumberAt(stHead);
        if (!szAt)
            return;
        ++m_ullPayloadNumbers;
        if (LoadLe<uint32_t>(payload, *szAt) != ulNumber)
            SetFault("the payload of " + std::to_string(ulNumber) + " has another number");
    }

    void SetFault(const std::string& strFault)
    {
        const std::lock_guard guard(m_faultMutex);
        if (m_strFault.empty())
            m_strFault = strFault;
    }

    CTcpClient m_client;
    const bool m_bBound;
    std::atomic<bool> m_bRun = true;
    std::atomic<uint32_t> m_ulLast = 0;
    std::atomic<uint64_t> m_ullPayloadNumbers = 0;
    mutable std::mutex m_faultMutex;
    std::string m_strFault;
    std::thread m_thread;
};

using StreamClients = std::vector<std::unique_ptr<CStreamClient>>;

constexpr unsigned int DiagPort(unsigned int ulUe)
{
    return 100 * ulUe + 1;
}

/// Sanitizers keep freed memory for a while, so a run under them shows growth that isn't there.
constexpr bool IsMemoryPlain()
{
#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
    return false;
#else
    return true;
#endif
}

class Stream : public testing::Test
{
protected:
    /// Modems that stream from their last report switch on, which leaves a second for the clients to be bound.
    CVexProcess& StartModems(unsigned int ulUes, std::vector<std::string> args)
    {
        m_bench.StartAgent();
        args.insert(args.end(), {"--ues", std::to_string(ulUes), "--lte-rate", "0", "--lte-size", "300",
                                 "--lte-start-on-switch", "--quiet", "--json"});
        return m_bench.StartModem(args);
    }

    void BindClients(unsigned int ulUes)
    {
        for (unsigned int i = 0; i < ulUes; ++i) {
            ASSERT_TRUE(m_bench.WaitConfirmed(DiagPort(i))) << "UE " << i;
            m_clients.push_back(std::make_unique<CStreamClient>(DiagPort(i)));
            ASSERT_TRUE(m_clients.back()->IsBound()) << "UE " << i;
        }
    }

    void ExpectNoFaults() const
    {
        const bool bGaveUp = m_bench.Log().find("SendDataToClient select TimeOut") != std::string::npos;
        for (size_t i = 0; i < m_clients.size(); ++i)
            EXPECT_EQ(m_clients[i]->Fault(), "") << "UE " << i << (bGaveUp ? ", the agent gave up waiting" : "");
    }

    CAgentBench m_bench;
    StreamClients m_clients;
};

/// The simulator's totals: the last line of its output.
nlohmann::json TotalsOf(const std::string& strOutput)
{
    return nlohmann::json::parse(strOutput.substr(std::min(strOutput.rfind("\n{"), strOutput.size())), nullptr, false);
}

/// The last number given to each UE, from the simulator's totals.
std::vector<uint32_t> NumbersGiven(CVexProcess& modem)
{
    modem.Signal(SIGTERM);
    (void)modem.WaitExit();
    const auto totals = TotalsOf(modem.Output());
    std::vector<uint32_t> numbers;
    if (!totals.is_discarded())
        for (const auto& ue : totals["ues"])
            numbers.push_back(ue["counts"]["lte numbered"].get<uint32_t>());
    return numbers;
}
} // namespace

TEST_F(Stream, ThreeUesAtFullRateLoseNothingAndTakeNoMemory)
{
    StartModems(3, {});
    BindClients(3);
    const auto allStream = [&] {
        return std::ranges::all_of(m_clients, [](const auto& pClient) { return pClient->Last() > 10000; });
    };
    ASSERT_TRUE(WaitFor(allStream, seconds(40)));
    const size_t szBefore = m_bench.Agent().ResidentKiB();
    std::vector<uint32_t> before;
    for (const auto& pClient : m_clients)
        before.push_back(pClient->Last());

    std::this_thread::sleep_for(StreamTime());
    const size_t szAfter = m_bench.Agent().ResidentKiB();

    ExpectNoFaults();
    for (size_t i = 0; i < m_clients.size(); ++i) {
        EXPECT_GT(m_clients[i]->Last() - before[i], 100U * static_cast<uint32_t>(StreamTime().count())) << "UE " << i;
        EXPECT_GT(m_clients[i]->Checked(), m_clients[i]->Last() / 2) << "UE " << i; // most payloads have the number
    }
    constexpr size_t GROWTH = 8192; // KiB: what a queue that is fuller than before may take
    if (IsMemoryPlain()) {
        EXPECT_LT(szAfter, szBefore + GROWTH) << "KiB, from " << szBefore;
    }
}

TEST_F(Stream, AClientThatStopsReadingLosesOnlyItsOwnFrames)
{
    constexpr unsigned int COUNT = 20000; // indications a UE
    CVexProcess& modem = StartModems(4, {"--lte-count", std::to_string(COUNT)});
    BindClients(3);
    ASSERT_TRUE(m_bench.WaitConfirmed(DiagPort(3)));
    CTcpClient stalled(CHANNEL_LTE_DATA);
    ASSERT_TRUE(stalled.Bind(DiagPort(3)));
    const auto stFirst = stalled.Receive(seconds(30));
    ASSERT_TRUE(stFirst);

    // It reads no more from here on. The others' streams end long before they would if each frame waited for it.
    std::array<uint32_t, 3> aulLast{};
    const auto isQuiet = [&] {
        std::this_thread::sleep_for(seconds(1));
        const std::array<uint32_t, 3> aulNow = {m_clients[0]->Last(), m_clients[1]->Last(), m_clients[2]->Last()};
        const bool bSame = aulNow[0] > 0 && aulNow[1] > 0 && aulNow[2] > 0 && aulNow == std::exchange(aulLast, aulNow);
        return bSame;
    };
    ASSERT_TRUE(WaitFor(isQuiet, seconds(60)));
    EXPECT_TRUE(m_bench.Logged("Client SendDataToClient select TimeOut, channel:Lte Data"));
    EXPECT_FALSE(SawClose(stalled.Fd(), milliseconds(0))); // it keeps its connection

    ExpectNoFaults();
    const auto given = NumbersGiven(modem);
    ASSERT_EQ(given.size(), 4U);
    for (size_t i = 0; i < m_clients.size(); ++i) {
        EXPECT_EQ(aulLast[i], given[i]) << "UE " << i; // complete to the last one
        EXPECT_GT(aulLast[i], COUNT / 2) << "UE " << i;
    }
}
