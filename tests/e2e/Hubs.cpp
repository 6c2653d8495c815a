#include "e2e/Hubs.h"

#include "support/WaitFor.h"

#include <gtest/gtest.h>

namespace
{
constexpr const char* SERVER = "/usr/sbin/nats-server";
constexpr const char* ADDRESS = "127.0.0.1";
constexpr std::chrono::seconds LIMIT{40};

std::string Program()
{
    return std::string(VEX_BIN_DIR) + "/vex-fleet";
}

/// {"benches": ["b1", "b2"], "lab": ["lab"]}
std::string LabFile(const std::vector<std::string>& benches)
{
    std::string strNames;
    for (const std::string& strBench : benches)
        strNames += (strNames.empty() ? "\"" : ", \"") + strBench + '"';
    return R"({"benches": [)" + strNames + R"(], "lab": ["lab"], "max_bytes": "1G"})";
}
} // namespace

CHubs::CHubs(std::vector<std::string> benches)
{
    m_dir.Write("fleet.json", LabFile(benches));
    benches.insert(benches.begin(), {m_dir.Path(), ADDRESS, "stranger"});
    CVexProcess certificates(std::string(VEX_SOURCE_DIR) + "/scripts/fleet-hubs", benches, m_dir.Path());
    EXPECT_EQ(certificates.WaitExit(LIMIT), 0) << certificates.Errors();
    CVexProcess permissions(Program(), {"init", "fleet.json", "--permissions", "users.conf"}, m_dir.Path());
    EXPECT_EQ(permissions.WaitExit(), 0) << permissions.Errors();
}

void CHubs::Start()
{
    for (size_t i = 0; i < COUNT; ++i)
        if (!m_apHub[i])
            m_apHub[i] = std::make_unique<CVexProcess>(
                SERVER, std::vector<std::string>{"-c", "hub" + std::to_string(i + 1) + ".conf"}, m_dir.Path());
}

bool CHubs::Init() const
{
    return WaitFor([this] { return Fleet({"init", "fleet.json", "--timeout", "2"})->WaitExit() == 0; }, LIMIT);
}

size_t CHubs::StreamLeader() const
{
    // Each server tells of its own elections, at a time that stands at the line's begin, behind its process number.
    constexpr const char* ELECTED = "JetStream cluster new stream leader for '$G > VEX'";
    size_t szLeader = COUNT;
    std::string strNewest;
    for (size_t i = 0; i < COUNT; ++i) {
        const std::string strLog = m_apHub[i] ? m_apHub[i]->Errors() : "";
        const size_t szSaid = strLog.rfind(ELECTED);
        if (szSaid == std::string::npos)
            continue;
        const size_t szTime = strLog.rfind("] 20", szSaid); // "[15781] 2026/11/22 15:28:57.397612 [INF] ..."
        const std::string strTime = strLog.substr(szTime + 2, szSaid - szTime - 2);
        if (strTime > strNewest) {
            strNewest = strTime;
            szLeader = i;
        }
    }
    return szLeader;
}

HUB_OPTIONS CHubs::HubOptions(const std::string& strName) const
{
    return {.servers = {"tls://127.0.0.1:4221", "tls://127.0.0.1:4222", "tls://127.0.0.1:4223"},
            .strCert = m_dir.Path() + "/" + strName + ".pem",
            .strKey = m_dir.Path() + "/" + strName + ".key",
            .strCa = m_dir.Path() + "/ca.pem",
            .strName = strName,
            .strInboxPrefix = ""};
}

std::vector<std::string> CHubs::Options(const std::string& strName) const
{
    const HUB_OPTIONS stOptions = HubOptions(strName);
    return {"--servers", HubNames(stOptions), "--cert", stOptions.strCert,
            "--key",     stOptions.strKey,    "--ca",   stOptions.strCa};
}

std::unique_ptr<CVexProcess> CHubs::Fleet(std::vector<std::string> args, const std::string& strName) const
{
    const std::vector<std::string> options = Options(strName);
    args.insert(args.end(), options.begin(), options.end());
    return std::make_unique<CVexProcess>(Program(), args, m_dir.Path());
}
