#include "SoakClients.h"
#include "SoakModems.h"
#include "SoakRecord.h"
#include "e2e/HealthyModem.h"
#include "e2e/Torrent.h"
#include "support/NetNs.h"
#include "support/WaitFor.h"

#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <nlohmann/json.hpp>

// A long run of the agent with everything that happens on a bench at once: nothing that a reading client was to get
// may be lost, and the agent may not grow.

namespace
{
using std::chrono::milliseconds;
using std::chrono::seconds;

constexpr unsigned int STEADY = 9; // with the healthy one, three that vanish, the boot loop and the torrent: 15
constexpr unsigned int STEADY_PORT = 101;
constexpr unsigned int HEALTHY_PORT = 2101;
constexpr unsigned int VANISHING_PORT = 3101;
constexpr unsigned int VANISHING = 3;
constexpr unsigned int BOOT_PORT = 4101;
constexpr unsigned int TORRENT_PORT = 5101;
constexpr unsigned int GU_CLIENTS = 3; // of the steady modems
constexpr unsigned int LTE_RATE = 200; // indications a second of each steady modem
constexpr double SETUP_SECONDS = 20;
// Three modems: ports vanish 1000 times in an hour.
constexpr auto LIFE_TIME = milliseconds(10800);
constexpr auto PROGRESS_TIME = seconds(5);
constexpr uint16_t GU_LIST_REPORT = 0xE52C;
constexpr uint16_t GU_SIR_STATISTIC = 62726; // computed from registers

struct OPTIONS
{
    double dMinutes = 60;
    std::string strSvg = "soak.svg";
};

void PrintUsage(FILE* pOut)
{
    std::fprintf(pOut, "usage: vex-soak [--minutes N] [--svg FILE]\n\n"
                       "Runs the agent with 15 modems, the network UE and many clients, for an hour or N minutes.\n"
                       "Status 1 when a reading client lost anything, or memory, descriptors or threads grew.\n"
                       "  --minutes N  how long (60)\n"
                       "  --svg FILE   where the plot goes (soak.svg)\n");
}

/// Nothing when the line is wrong.
std::optional<OPTIONS> ParseOptions(int nArgs, char** ppszArgs)
{
    OPTIONS st;
    for (int i = 1; i + 1 < nArgs; i += 2) {
        const std::string strKey = ppszArgs[i];
        if (strKey == "--minutes")
            st.dMinutes = std::atof(ppszArgs[i + 1]);
        else if (strKey == "--svg")
            st.strSvg = ppszArgs[i + 1];
        else
            return std::nullopt;
    }
    return nArgs % 2 == 1 && st.dMinutes > 0 ? std::optional(st) : std::nullopt;
}

constexpr unsigned int SteadyPort(unsigned int ulUe)
{
    return STEADY_PORT + 100 * ulUe;
}

/// The number that a modem gave last, by its totals; 0 for a name that isn't a modem's.
uint64_t NumbersGiven(const nlohmann::json& totals, const std::string& strUe)
{
    for (const auto& ue : totals["ues"])
        if (ue["ue"] == strUe)
            return ue["counts"]["lte numbered"].get<uint64_t>();
    return 0;
}

class CSoak
{
public:
    explicit CSoak(OPTIONS stOptions) : m_stOptions(std::move(stOptions)), m_bench("Recovery = 1\nLogMaxSize = 64") {}

    /// What couldn't be brought up; empty when all runs.
    std::string Start();
    void Run();
    /// The counts and the verdict; true when all was good.
    bool Report();

private:
    void StartSteadyModems();
    std::string AddReaders();
    bool AddReader(const std::string& strName, enChannelType enChannel, unsigned int ulPort,
                   CSoakReader::IsNumbered isNumbered);
    void StartGuReports() const;
    void AskAt() const;
    void StartLoops();
    void Progress();
    void WaitQuiet() const;
    uint64_t Received() const;
    bool ReportReaders(const std::vector<SOAK_COUNT>& counts, const nlohmann::json& totals) const;
    bool ReportHealthy() const;
    bool ReportOthers() const;
    nlohmann::json EndSteadyModems();
    double Seconds() const { return Millis(MeterClock::now() - m_begin) / 1000; }

    OPTIONS m_stOptions;
    CAgentBench m_bench;
    CVexProcess* m_pSteady = nullptr;
    CHealthyModem m_healthy{HEALTHY_PORT};
    CTorrent m_torrent{TORRENT_PORT};
    std::vector<std::unique_ptr<CSoakReader>> m_readers;
    std::vector<std::unique_ptr<CVanishingModem>> m_vanishing;
    CBootLoop m_boot{BOOT_PORT};
    std::atomic<uint64_t> m_ullSlowFrames = 0; // that the slow clients got
    mutable xtl::Mutex m_FaultLock;
    std::vector<std::string> m_faults GUARDED_BY(m_FaultLock); // of clients that come and go
    std::vector<std::unique_ptr<CSoakLoop>> m_loops;           // behind all that they use
    std::vector<SOAK_SAMPLE> m_samples;
    MeterTime m_begin = MeterClock::now();
};

std::string CSoak::Start()
{
    m_bench.StartAgent();
    if (!m_healthy.Start(m_bench))
        return "the healthy modem isn't taken";
    if (!m_torrent.Attach() || !m_bench.WaitConfirmed(TORRENT_PORT))
        return "the torrent modem isn't taken";
    StartSteadyModems();
    if (const std::string strFault = AddReaders(); !strFault.empty())
        return strFault;
    m_torrent.Start();
    StartLoops();
    m_begin = MeterClock::now();
    return "";
}

void CSoak::StartSteadyModems()
{
    // They begin while the other clients are still being bound, and are to last longer than the run.
    const auto ullCount = static_cast<uint64_t>((m_stOptions.dMinutes * 60 + SETUP_SECONDS) * LTE_RATE);
    m_pSteady = &m_bench.StartModem({"--ues", std::to_string(STEADY), "--network", "--first-port",
                                     std::to_string(STEADY_PORT), "--lte-rate", std::to_string(LTE_RATE), "--lte-count",
                                     std::to_string(ullCount), "--lte-start-on-switch", "--at-interval", "500",
                                     "--gu-interval", "500", "--quiet", "--json"});
}

bool CSoak::AddReader(const std::string& strName, enChannelType enChannel, unsigned int ulPort,
                      CSoakReader::IsNumbered isNumbered)
{
    std::unique_ptr<CTcpClient> pClient;
    const auto isBound = [&] { return (pClient = m_bench.BoundClient(enChannel, ulPort))->IsOpen(); };
    if (!WaitFor(isBound, seconds(20)))
        return false;
    m_readers.push_back(std::make_unique<CSoakReader>(strName, std::move(pClient), isNumbered));
    return true;
}

/// The data channels first: their streams begin a second behind the confirmation.
std::string CSoak::AddReaders()
{
    for (unsigned int i = 0; i <= STEADY; ++i) {
        const unsigned int ulPort = i < STEADY ? SteadyPort(i) : 0;
        const std::string strName = i < STEADY ? "ue" + std::to_string(i) : "net"; // as in the simulator's totals
        if (!m_bench.WaitConfirmed(ulPort) || !AddReader(strName, CHANNEL_LTE_DATA, ulPort, IsNumberedLte))
            return "no client can read the data of " + strName;
    }
    const auto isNone = [](const DIAG_PACKET_ACK_STRU&) { return false; };
    for (unsigned int i = 0; i < GU_CLIENTS; ++i) {
        const std::string strName = "ue" + std::to_string(i);
        if (!AddReader(strName + " gu reports", CHANNEL_GU_DATA, SteadyPort(i), IsNumberedGu) ||
            !AddReader(strName + " gu commands", CHANNEL_GU_CMD, SteadyPort(i), isNone) ||
            !AddReader(strName + " at", CHANNEL_AT, SteadyPort(i), isNone))
            return "no client can bind to the GU and AT channels of " + strName;
    }
    const auto areReporting = [&] {
        StartGuReports();
        std::this_thread::sleep_for(seconds(1));
        return std::ranges::all_of(m_readers, [](const auto& pReader) {
            return !pReader->Name().ends_with("reports") || pReader->Count().ullReceived > 0;
        });
    };
    return WaitFor(areReporting, seconds(60)) ? "" : "GU reports don't come";
}

/// A report and a register statistic of each; started again they just go on.
void CSoak::StartGuReports() const
{
    for (const auto& pReader : m_readers)
        for (const uint16_t usId : {GU_LIST_REPORT, GU_SIR_STATISTIC})
            if (pReader->Name().ends_with("commands"))
                (void)SendAll(pReader->Client().Fd(), Join(Hex("9F9F"), Le(uint32_t{usId}),
                                                           Le(uint16_t{PKT_TYPE_GU_TRANS}), Hex("04 00 01 00 F4 01")));
}

/// The AT port opens with the first of these.
void CSoak::AskAt() const
{
    for (const auto& pReader : m_readers)
        if (pReader->Name().ends_with(" at"))
            (void)SendAll(pReader->Client().Fd(), AsBytes("ATI\r"));
}

void CSoak::StartLoops()
{
    for (unsigned int i = 0; i < VANISHING; ++i) {
        m_vanishing.push_back(
            std::make_unique<CVanishingModem>(VANISHING_PORT + 100 * i, "vanishing " + std::to_string(i), LIFE_TIME));
        m_loops.push_back(std::make_unique<CSoakLoop>([pModem = m_vanishing.back().get()] { pModem->Live(); }));
    }
    m_loops.push_back(std::make_unique<CSoakLoop>([this] { m_boot.Boot(); }));
    m_loops.push_back(std::make_unique<CSoakLoop>([] { ComeAndGo(); }));
    m_loops.push_back(std::make_unique<CSoakLoop>([this] {
        const std::string strFault = ReadSlowlyAndStall(m_bench, TORRENT_PORT, m_ullSlowFrames);
        const xtl::MutexGuard guard(m_FaultLock);
        if (!strFault.empty())
            m_faults.push_back(strFault);
    }));
}

void CSoak::Run()
{
    const MeterTime end = m_begin + milliseconds(static_cast<int64_t>(m_stOptions.dMinutes * 60 * 1000));
    MeterTime nextProgress = m_begin;
    while (MeterClock::now() < end && m_bench.Agent().IsRunning()) {
        m_samples.push_back(TakeSample(m_bench.Agent().Pid(), Seconds()));
        AskAt();
        if (MeterClock::now() >= nextProgress) {
            nextProgress += PROGRESS_TIME;
            Progress();
        }
        std::this_thread::sleep_for(seconds(1));
    }
    m_loops.clear();
    m_torrent.Stop();
    m_healthy.StopSending();
    WaitQuiet();
}

void CSoak::Progress()
{
    unsigned int ulLives = 0;
    for (const auto& pModem : m_vanishing)
        ulLives += pModem->Lives();
    uint64_t ullLost = 0;
    for (const auto& pReader : m_readers)
        ullLost += pReader->Count().ullLost;
    const SOAK_SAMPLE& st = m_samples.back();
    std::printf(
        "%6.0f s: %llu received, %llu lost, modems vanished %u, booted %u; %.0f KiB, %.0f files, %.0f threads\n",
        st.dSeconds, static_cast<unsigned long long>(Received()), static_cast<unsigned long long>(ullLost), ulLives,
        m_boot.Boots(), st.dResidentKiB, st.dFiles, st.dThreads);
    (void)std::fflush(stdout);
}

uint64_t CSoak::Received() const
{
    uint64_t ullSum = 0;
    for (const auto& pReader : m_readers)
        ullSum += pReader->Count().ullReceived;
    return ullSum;
}

/// The streams have a count of their own, and may end a little later. GU reports go on.
void CSoak::WaitQuiet() const
{
    std::vector<uint32_t> last;
    const auto isQuiet = [&] {
        std::this_thread::sleep_for(seconds(2));
        std::vector<uint32_t> now;
        for (size_t i = 0; i <= STEADY; ++i)
            now.push_back(m_readers[i]->Count().ulLast);
        return std::exchange(last, now) == now;
    };
    (void)WaitFor(isQuiet, seconds(60));
}

nlohmann::json CSoak::EndSteadyModems()
{
    m_pSteady->Signal(SIGTERM);
    (void)m_pSteady->WaitExit(seconds(20));
    const std::string strOutput = m_pSteady->Output();
    return nlohmann::json::parse(strOutput.substr(std::min(strOutput.rfind("\n{"), strOutput.size())), nullptr, false);
}

/// Each reading client's line.
bool CSoak::ReportReaders(const std::vector<SOAK_COUNT>& counts, const nlohmann::json& totals) const
{
    bool bGood = true;
    for (size_t i = 0; i < counts.size(); ++i) {
        const SOAK_COUNT& st = counts[i];
        const uint64_t ullSent = std::max<uint64_t>(NumbersGiven(totals, m_readers[i]->Name()), st.ulLast);
        const uint64_t ullLost = st.ullLost + (ullSent - st.ulLast); // in between, and behind the last that came
        std::printf("%-16s %12llu %12llu %8llu %12llu  %s\n", m_readers[i]->Name().c_str(),
                    static_cast<unsigned long long>(ullSent), static_cast<unsigned long long>(st.ullReceived),
                    static_cast<unsigned long long>(ullLost), static_cast<unsigned long long>(st.ullFrames),
                    st.strFault.c_str());
        bGood = bGood && ullLost == 0 && st.strFault.empty();
    }
    return bGood;
}

bool CSoak::ReportHealthy() const
{
    const CDelayMeter& meter = m_healthy.Meter();
    const size_t szReceived = meter.Sent() - meter.Missing();
    std::printf("%-16s %12zu %12zu %8zu %12zu  %s worst delay %.1f ms\n", "healthy", meter.Sent(), szReceived,
                meter.Missing(), szReceived, m_healthy.Fault().c_str(),
                meter.WorstMs(m_begin, MeterClock::now(), seconds(0)));
    return meter.Missing() == 0 && m_healthy.Fault().empty();
}

bool CSoak::ReportOthers() const
{
    unsigned int ulLives = 0;
    unsigned int ulConfirmed = 0;
    for (const auto& pModem : m_vanishing) {
        ulLives += pModem->Lives();
        ulConfirmed += pModem->Confirmed();
    }
    std::printf("\nmodems that vanished and came back: %u times, confirmed %u\nboot loop: %u times, confirmed %u\n",
                ulLives, ulConfirmed, m_boot.Boots(), m_boot.Confirmed());
    std::printf("slow and stalled clients: sent %zu frames, received %llu; they alone may lose them\n",
                m_torrent.Sent(), static_cast<unsigned long long>(m_ullSlowFrames.load()));
    const xtl::MutexGuard guard(m_FaultLock);
    for (const std::string& strFault : m_faults)
        std::printf("FAULT: %s\n", strFault.c_str());
    // In the last life the run's end may come first.
    return m_faults.empty() && ulConfirmed + VANISHING >= ulLives && m_boot.Confirmed() + 1 >= m_boot.Boots();
}

bool CSoak::Report()
{
    const bool bRuns = m_bench.Agent().IsRunning();
    std::vector<SOAK_COUNT> counts; // before the modems' end closes their clients
    for (const auto& pReader : m_readers)
        counts.push_back(pReader->Count());
    std::printf("\nNumbered packets, and packets of all kinds:\n%-16s %12s %12s %8s %12s\n", "reading client", "sent",
                "received", "lost", "all");
    const bool bHealthy = ReportHealthy();
    const nlohmann::json totals = EndSteadyModems();
    const bool bRead = !totals.is_discarded() && ReportReaders(counts, totals);
    const bool bOthers = ReportOthers();
    PrintSamples(m_samples);
    std::ofstream(m_stOptions.strSvg) << PlotSvg(m_samples);
    const bool bBounded =
        std::ranges::none_of(SoakSeries(), [&](const SOAK_SERIES& st) { return HasGrown(m_samples, st); });
    std::printf("\nplot: %s\n", m_stOptions.strSvg.c_str());
    const struct
    {
        bool bGood;
        const char* pszFault;
    } astVerdict[] = {
        {bRuns, "the agent ended"},
        {bRead && bHealthy, "a reading client lost packets"},
        {bOthers, "a modem that came back wasn't confirmed, or a frame was torn"},
        {bBounded, "the agent grows"},
    };
    bool bGood = true;
    for (const auto& stRow : astVerdict) {
        if (!stRow.bGood)
            std::printf("FAILED: %s\n", stRow.pszFault);
        bGood = bGood && stRow.bGood;
    }
    return bGood;
}
} // namespace

int main(int nArgs, char** ppszArgs)
{
    const std::string strFirst = nArgs > 1 ? ppszArgs[1] : "";
    if (strFirst == "--help" || strFirst == "-h") {
        PrintUsage(stdout);
        return 0;
    }
    const auto stOptions = ParseOptions(nArgs, ppszArgs);
    if (!stOptions) {
        PrintUsage(stderr);
        return 1;
    }
    if (!IsolateNetwork()) {
        std::perror("no network namespace for the run");
        return 1;
    }
    CSoak soak(*stOptions);
    if (const std::string strFault = soak.Start(); !strFault.empty()) {
        std::fprintf(stderr, "soak: %s\n", strFault.c_str());
        return 1;
    }
    soak.Run();
    return soak.Report() ? 0 : 1;
}
