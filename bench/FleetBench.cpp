#include "capture/PcapngWriter.h"
#include "fleet/FleetTime.h"
#include "forward/Forwarder.h"
#include "forward/NatsHub.h"

#include <CLI/CLI.hpp>
#include <atomic>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <thread>

// Many benches in one process, each with its own certificate, spool and connection, for scripts/fleet --bench. Their
// spools are filled before; a record is 300 bytes of a UE's data channel.
//
//   vex-bench-fleet fill FOLDER --bytes N          a spool as vex-capture leaves it, with N bytes in segments of 64 MB
//   vex-bench-fleet run FOLDER --benches N ...     brings the spools FOLDER/bench1 ... benchN to the hub, until all of
//                                                  it is there

namespace
{
using Clock = std::chrono::steady_clock;

constexpr uint64_t SECOND = 1'000'000'000;
constexpr uint64_t START = 1'700'000'000 * SECOND; // 2023-11-14 22:13:20 UTC
constexpr uint64_t SEGMENT_BYTES = 64 * 1024 * 1024;
constexpr size_t RECORD_BYTES = 300;
constexpr uint64_t RECORD_NS = 200'000; // between two records

struct FLEET_BENCH_OPTIONS
{
    std::string strFolder;
    uint64_t ullBytes = 0;
    unsigned int ulBenches = 1;
    std::string strCerts; // folder of scripts/fleet-hubs
    std::vector<std::string> servers;
    uint64_t ullMaxRate = 0;
};

std::string SegmentFile(uint64_t ullNumber)
{
    std::string strTime;
    for (const char c : TimeText(START + ullNumber * RECORD_NS))
        if (c != '-' && c != ':' && c != 'Z')
            strTime += c;
    const std::string strNumber = std::to_string(ullNumber);
    return "vex_" + strTime + ".000Z_" + std::string(10 - std::min<size_t>(strNumber.size(), 10), '0') + strNumber +
           ".pcapng";
}

/// Writes one segment from this record on; gives the first record of the next one.
uint64_t WriteSegment(const std::string& strFolder, uint64_t ullNumber, uint64_t ullBytes)
{
    constexpr uint8_t UES = 4;
    std::vector<unsigned char> out;
    out.reserve(ullBytes + SEGMENT_BYTES / 1024);
    CPcapngWriter writer(out);
    writer.Begin({"bench", 1, 2, START}, "vex-bench-fleet");
    const std::string strFile = strFolder + '/' + SegmentFile(ullNumber);
    std::vector<unsigned char> record(RECORD_BYTES);
    for (; out.size() < ullBytes; ++ullNumber) {
        StoreLe<uint64_t>(record, 0, ullNumber * 0x9E3779B97F4A7C15); // nothing that compresses to nothing
        writer.Record({.enKind = TAP_KIND::UE_TO_AGENT,
                       .ucUe = static_cast<uint8_t>(ullNumber % UES),
                       .ucChannel = 1,
                       .ullNumber = ullNumber,
                       .ullTime = START + ullNumber * RECORD_NS},
                      record);
    }
    writer.End(START + ullNumber * RECORD_NS);
    std::ofstream(strFile, std::ios::binary)
        .write(reinterpret_cast<const char*>(out.data()), static_cast<std::streamsize>(out.size()));
    return ullNumber;
}

int Fill(const FLEET_BENCH_OPTIONS& stOptions)
{
    std::filesystem::create_directories(stOptions.strFolder);
    uint64_t ullNumber = 0;
    for (uint64_t ullLeft = stOptions.ullBytes; ullLeft > 0;) {
        const uint64_t ullPart = std::min(ullLeft, SEGMENT_BYTES);
        ullNumber = WriteSegment(stOptions.strFolder, ullNumber, ullPart);
        ullLeft -= ullPart;
    }
    std::cout << ullNumber << " records\n";
    return 0;
}

/// One bench, as vex-forward would run it.
class CBench
{
public:
    CBench(const FLEET_BENCH_OPTIONS& stOptions, const std::string& strName)
        : m_stOptions(stOptions), m_strName(strName), m_ledger(stOptions.strFolder + '/' + strName), m_log(std::cerr)
    {
    }
    bool Open(std::string& strError)
    {
        if (!m_ledger.Open(strError))
            return false;
        for (const auto& [ullNumber, stSegment] : m_ledger.Segments())
            m_stEnd = {ullNumber, stSegment.ullBytes};
        HUB_OPTIONS stHub;
        stHub.servers = m_stOptions.servers;
        stHub.strCert = m_stOptions.strCerts + '/' + m_strName + ".pem";
        stHub.strKey = m_stOptions.strCerts + '/' + m_strName + ".key";
        stHub.strCa = m_stOptions.strCerts + "/ca.pem";
        m_pHub = CNatsHub::Open(stHub, m_strName, strError);
        return m_pHub != nullptr;
    }
    /// Until all of the spool is at the hub.
    void Run()
    {
        CForwarder forwarder({.stPublish = {m_strName, m_ledger.Epoch(), m_stOptions.ullMaxRate}}, m_ledger, *m_pHub,
                             m_log);
        forwarder.Run([&] { return forwarder.Publisher().Start() && forwarder.Publisher().Completed() >= m_stEnd; });
        m_ullMessages = forwarder.Publisher().SentMessages();
    }
    uint64_t Messages() const { return m_ullMessages; }

private:
    const FLEET_BENCH_OPTIONS& m_stOptions;
    const std::string m_strName;
    CSegmentLedger m_ledger;
    CForwardLog m_log;
    std::unique_ptr<CNatsHub> m_pHub;
    SPOOL_PLACE m_stEnd;
    uint64_t m_ullMessages = 0;
};

int Run(const FLEET_BENCH_OPTIONS& stOptions)
{
    std::vector<std::unique_ptr<CBench>> benches;
    std::vector<std::thread> threads;
    const auto start = Clock::now();
    for (unsigned int i = 1; i <= stOptions.ulBenches; ++i) {
        benches.push_back(std::make_unique<CBench>(stOptions, "bench" + std::to_string(i)));
        std::string strError;
        if (!benches.back()->Open(strError)) {
            std::cerr << "vex-bench-fleet: " << strError << '\n';
            std::_Exit(1); // threads may be under way
        }
        threads.emplace_back([&bench = *benches.back()] { bench.Run(); });
    }
    uint64_t ullMessages = 0;
    for (size_t i = 0; i < threads.size(); ++i) {
        threads[i].join();
        ullMessages += benches[i]->Messages();
    }
    std::cout << ullMessages << " messages in " << std::chrono::duration<double>(Clock::now() - start).count()
              << " s\n";
    return 0;
}
} // namespace

int main(int argc, char** argv)
{
    FLEET_BENCH_OPTIONS stOptions;
    CLI::App app("Many benches in one process", "vex-bench-fleet");
    app.require_subcommand(1);
    CLI::App* pFill = app.add_subcommand("fill", "fill a spool");
    pFill->add_option("FOLDER", stOptions.strFolder)->required();
    pFill->add_option("--bytes", stOptions.ullBytes)->required();
    CLI::App* pRun = app.add_subcommand("run", "bring spools to the hub");
    pRun->add_option("FOLDER", stOptions.strFolder)->required();
    pRun->add_option("--benches", stOptions.ulBenches);
    pRun->add_option("--certs", stOptions.strCerts)->required();
    pRun->add_option("--servers", stOptions.servers)->delimiter(',')->required();
    pRun->add_option("--max-rate", stOptions.ullMaxRate, "bytes a second and bench, 0: no limit");
    CLI11_PARSE(app, argc, argv);
    return *pFill ? Fill(stOptions) : Run(stOptions);
}
