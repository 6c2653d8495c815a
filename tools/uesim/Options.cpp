#include "uesim/Options.h"

#include "capture/Speed.h"

#include <CLI/CLI.hpp>
#include <algorithm>
#include <vector>

namespace
{
constexpr unsigned int MAX_UES = 15; // serial UEs that the agent serves
constexpr unsigned int MAX_PAYLOAD = 8192;

bool ParseId(const std::string& strText, uint32_t& ulId)
{
    char* pEnd = nullptr;
    const unsigned long ulValue = std::strtoul(strText.c_str(), &pEnd, 0);
    ulId = static_cast<uint32_t>(ulValue);
    return !strText.empty() && *pEnd == '\0' && ulValue <= UINT32_MAX;
}

void AddGeneral(CLI::App& app, UESIM_OPTIONS& st)
{
    app.add_option("--ues", st.ulUes, "Modems on pseudo terminals, four ports each")->check(CLI::Range(0U, MAX_UES));
    app.add_option("--dir", st.strDir, "Directory for the links ue0-diag, ue0-data, ... and for channels.cfg");
    app.add_option("--config", st.strConfig, "The agent's configuration file: packet layout and filters")
        ->check(CLI::ExistingFile);
    app.add_flag("--network", st.bNetwork, "Play the network UE too, on the MonitorPort rows of the configuration");
    app.add_option("--first-port", st.ulFirstPort, "Number of UE 0's diag port; UE n's ports start 100 n further on");
    app.add_option("--run-for", st.dRunFor, "Seconds until the end; without it a signal ends the run")
        ->check(CLI::NonNegativeNumber);
    app.add_option("--log", st.strLog, "File for the events; without it they go to standard error");
    app.add_flag("--verbose", st.bVerbose, "Show the bytes of what is received");
    app.add_flag("--quiet", st.bQuiet, "No events at all");
    app.add_flag("--json", st.bJson, "Totals at the end as one JSON object");
}

void AddReplay(CLI::App& app, UESIM_OPTIONS& st, std::string& strSpeed)
{
    CLI::Option* const pReplay =
        app.add_option("--replay", st.strReplay, "Play the modems of this capture file; its configuration counts")
            ->check(CLI::ExistingFile);
    app.add_option("--speed", strSpeed, "N times as fast as it was, or max")->needs(pReplay);
    app.add_flag("--loop", st.bLoop, "Play the capture again and again")->needs(pReplay);
}

void AddScript(CLI::App& app, UESIM_OPTIONS& st, std::vector<std::string>& silent, std::vector<std::string>& fail)
{
    app.add_option("--connect-payload", st.ulConnectPayload, "Bytes of the host connect confirmation's payload")
        ->check(CLI::Range(0U, MAX_PAYLOAD));
    app.add_option("--connect-id", st.ulConnectId, "Id of the host connect confirmation");
    app.add_option("--connect-delay", st.ulConnectDelay, "Milliseconds until the host connect is confirmed")
        ->check(CLI::Range(0U, 60000U));
    app.add_option("--silent", silent, "LTE command ids that get no answer");
    app.add_option("--fail", fail, "ID=RESULT: result word in the acks of an LTE command");
    app.add_option("--at-interval", st.ulAtInterval, "Milliseconds between unsolicited AT lines, 0: none");
}

void AddLteStream(CLI::App& app, UESIM_OPTIONS& st, std::string& strMix)
{
    app.add_option("--lte-rate", st.dLteRate, "LTE indications a second and UE, 0: as fast as the line takes them")
        ->check(CLI::NonNegativeNumber)
        ->each([&](const std::string&) { st.bLteStream = true; });
    app.add_option("--lte-size", st.ulLteSize, "Payload bytes where the class leaves the choice")
        ->check(CLI::Range(0U, MAX_PAYLOAD));
    app.add_option("--lte-mix", strMix, "Weights, such as dsp=4,air=2,event=1; classes not named are left out");
    app.add_option("--lte-count", st.ullLteCount, "Indications a UE, 0: no end");
    app.add_flag("--lte-start-on-switch", st.bLteStartOnSwitch, "Start when the last report switch has come");
    app.add_option("--lte-dsp-id", st.ulLteDspId, "First id of the DSP messages");
}

void AddGu(CLI::App& app, UESIM_OPTIONS& st)
{
    app.add_option("--gu-mode", st.ulGuMode, "Heads between GU frames: 1 time and SSID, 2 RTC and CPU id")
        ->check(CLI::Range(1U, 2U));
    app.add_option("--gu-version", st.strGuVersion, "Version text of the GU side");
    app.add_option("--gu-type", st.strGuType, "Chip type")->check(CLI::IsMember({"ASIC", "FPGA", "PC"}));
    app.add_flag("--dual-card", st.bDualCard, "A modem with two cards");
    app.add_option("--gu-rat", st.ulGuRat, "Value of the mode answer");
    app.add_option("--gu-interval", st.ulGuInterval, "Milliseconds between indications of a running GU report")
        ->check(CLI::PositiveNumber);
    app.add_option("--gu-pack", st.ulGuPack, "GU frames in one block")->check(CLI::Range(1U, 32U));
    app.add_flag("--gu-all", st.bGuAll, "Send every GU report and trace without a request");
    app.add_option("--reg-interval", st.ulRegInterval, "Milliseconds between register indications")
        ->check(CLI::PositiveNumber);
}

bool ReadFailures(const std::vector<std::string>& fail, UESIM_OPTIONS& st)
{
    return std::ranges::all_of(fail, [&](const std::string& strPair) {
        const size_t szSign = strPair.find('=');
        uint32_t ulId = 0;
        uint32_t ulResult = 0;
        const bool bGood = szSign != std::string::npos && ParseId(strPair.substr(0, szSign), ulId) &&
                           ParseId(strPair.substr(szSign + 1), ulResult);
        st.fail[ulId] = ulResult;
        return bGood;
    });
}

bool ReadSilent(const std::vector<std::string>& silent, UESIM_OPTIONS& st)
{
    return std::ranges::all_of(silent, [&](const std::string& strId) {
        uint32_t ulId = 0;
        const bool bGood = ParseId(strId, ulId);
        st.silent.insert(ulId);
        return bGood;
    });
}

void ReadSpeed(const std::string& strSpeed, UESIM_OPTIONS& st)
{
    if (!strSpeed.empty() && !ParseSpeed(strSpeed, st.dSpeed))
        throw CLI::ValidationError("--speed", "expected a number above 0, or max");
}

void Finish(const std::string& strMix, const std::vector<std::string>& silent, const std::vector<std::string>& fail,
            UESIM_OPTIONS& st)
{
    if (!strMix.empty() && !ParseMix(strMix, st.lteMix))
        throw CLI::ValidationError("--lte-mix", "expected CLASS=WEIGHT,... with at least one weight above 0");
    if (!ReadSilent(silent, st))
        throw CLI::ValidationError("--silent", "expected command ids");
    if (!ReadFailures(fail, st))
        throw CLI::ValidationError("--fail", "expected ID=RESULT");
    if (st.strGuVersion.empty())
        st.strGuVersion = st.ulGuMode == 2 ? "MAPLE-20B100" : "HAZEL-07B100";
}
} // namespace

bool ParseMix(const std::string& strText, LTE_MIX& mix)
{
    mix.fill(0);
    unsigned long ulSum = 0;
    for (size_t szAt = 0; szAt < strText.size();) {
        const size_t szEnd = std::min(strText.find(',', szAt), strText.size());
        const std::string strItem = strText.substr(szAt, szEnd - szAt);
        const size_t szSign = std::min(strItem.find('='), strItem.size());
        const auto pRow = std::ranges::find(LTE_CLASS_NAMES, strItem.substr(0, szSign));
        uint32_t ulWeight = 0;
        if (pRow == LTE_CLASS_NAMES.end() || szSign == strItem.size() ||
            !ParseId(strItem.substr(szSign + 1), ulWeight) || ulWeight > 1000)
            return false;
        mix[static_cast<size_t>(pRow - LTE_CLASS_NAMES.begin())] = ulWeight;
        ulSum += ulWeight;
        szAt = szEnd + 1;
    }
    return ulSum > 0;
}

bool ParseOptions(int nArgs, char** ppszArgs, UESIM_OPTIONS& stOptions, int& nStatus)
{
    CLI::App app("Modem simulator: modems on pseudo terminals (and one on TCP) for the agent to serve.", "vex-uesim");
    std::string strMix;
    std::string strSpeed;
    std::vector<std::string> silent;
    std::vector<std::string> fail;
    AddGeneral(app, stOptions);
    // HOST may be left out, and then nothing behind the option belongs to it.
    app.add_option("--attach", stOptions.strAttachHost, "Send the device monitor's records to port 20460 of this host")
        ->expected(0, 1)
        ->default_str("127.0.0.1");
    AddReplay(app, stOptions, strSpeed);
    AddScript(app, stOptions, silent, fail);
    AddLteStream(app, stOptions, strMix);
    AddGu(app, stOptions);
    nStatus = 0;
    try { // the parser's only way to say that the line is wrong
        app.parse(nArgs, ppszArgs);
        if (app.count("--attach") > 0 && stOptions.strAttachHost.empty())
            stOptions.strAttachHost = "127.0.0.1";
        ReadSpeed(strSpeed, stOptions);
        Finish(strMix, silent, fail, stOptions);
    } catch (const CLI::ParseError& error) {
        nStatus = app.exit(error);
        return false;
    }
    return true;
}
