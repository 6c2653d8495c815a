#include "client/Commands.h"

#include "client/Stop.h"

#include <CLI/CLI.hpp>
#include <functional>

namespace
{
constexpr const char* EXIT_CODES = "Exit status: 0 done, 1 wrong usage, 2 no connection, 3 time-out, 4 refused, "
                                   "5 other answers than recorded";

/// What the command line fills in; the parsed command is in m_run.
class CCommandLine
{
public:
    explicit CCommandLine(bool bTerminal) : m_app("Command-line client of the agent", "vex-client")
    {
        m_stMonitor.bTerminal = bTerminal;
        m_app.footer(EXIT_CODES);
        m_app.require_subcommand(1);
        m_app.fallthrough(); // --json and the like are welcome behind the command too
        m_app.add_option("--host", m_stOptions.strHost, "host of the agent")->capture_default_str();
        m_app.add_flag("--json", m_stOptions.bJson, "one JSON object a line");
        m_app.add_option("--timeout", m_stOptions.dTimeout, "seconds to wait for a connection and for each answer")
            ->check(CLI::Range(0.001, 86400.0))
            ->capture_default_str();
        m_app.add_option("--bind", m_stOptions.bindPort, "bind to the UE with this port first");
        AddDiag();
        AddNv();
        AddLive();
        AddReports("gu", "start reports on the GU channels and show them decoded, until Ctrl-C", GuReports());
        AddReports("stat", "start register statistics and show them decoded, until Ctrl-C", StatReports());
    }

    CLI::App& App() { return m_app; }
    const CLIENT_OPTIONS& Options() const { return m_stOptions; }
    EXIT_CODE Run(const CONTEXT& stContext) const { return m_run(stContext); }

private:
    CLI::App* Command(const char* pszName, const char* pszWhat, std::function<EXIT_CODE(const CONTEXT&)> run)
    {
        CLI::App* pCommand = m_app.add_subcommand(pszName, pszWhat);
        pCommand->footer("The options of vex-client itself (--host, --json, --timeout, --bind) may stand here too.");
        pCommand->callback([this, run = std::move(run)] { m_run = run; });
        return pCommand;
    }

    void AddDiag()
    {
        Command("channels", "show the channel table", RunChannels);
        CLI::App* pBind = Command("bind", "bind to the UE with this port and show the agent's version",
                                  [this](const CONTEXT& st) { return RunBind(st, m_ulPort, m_dHold); });
        pBind->add_option("PORT", m_ulPort, "any port of the UE")->required();
        pBind->add_option("--for", m_dHold, "hold the binding for so many seconds");
        Command("unbind", "free the UE that the agent bound this connection to", RunUnbind);
        Command("version", "show the UE version record", RunVersion);
        Command("timestamp", "show the last time stamp of the UE", RunTimestamp);
        CLI::App* pRequest = Command("request", "send a request on the LTE diag channel and show the ack",
                                     [this](const CONTEXT& st) { return RunRequest(st, m_stRequest); });
        pRequest->add_option("ID", m_stRequest.strId, "id, decimal or 0x...")->required();
        pRequest->add_option("HEX", m_stRequest.hex, "parameters, pairs of hexadecimal digits");
        pRequest->add_option("--type", m_stRequest.strType,
                             "msg, cmd, agent or a number; by default agent for ids 0x5..., cmd for 0x1..., else msg");
        CLI::App* pSwitch = Command("switch", "switch messages on or off: KIND ID VALUE [ID VALUE...] [KIND ...]",
                                    [this](const CONTEXT& st) { return RunSwitch(st, m_switch); });
        pSwitch->add_option("WORDS", m_switch, "air, event, user or user2, then pairs of message id and value")
            ->required();
        CLI::App* pAt = Command("at", "send an AT command and show the answer", [this](const CONTEXT& st) {
            return m_strAtLink.empty() ? RunAt(st, m_strAt) : RunAtPty(st, m_strAtLink);
        });
        pAt->add_option("TEXT", m_strAt, "such as AT+CGSN");
        pAt->add_option("--pty", m_strAtLink, "make this link to a terminal that other programs use as the AT port")
            ->type_name("LINK");
        pAt->require_option(1);
    }

    void AddNv()
    {
        CLI::App* pRead = Command("nv-read", "make the UE read an NV item (the agent passes on failures only)",
                                  [this](const CONTEXT& st) { return RunNvRead(st, m_strNvId); });
        pRead->add_option("ID", m_strNvId, "NV item")->required();
        CLI::App* pWrite = Command("nv-write", "change a field of an NV item: read, modify, write",
                                   [this](const CONTEXT& st) { return RunNvWrite(st, m_stNvWrite); });
        pWrite->add_option("ID", m_stNvWrite.strId, "NV item")->required();
        pWrite->add_option("OFFSET", m_stNvWrite.strOffset, "byte offset of the field")->required();
        pWrite->add_option("SIZE", m_stNvWrite.ulSize, "bytes of the field, 1 to 4")->required();
        pWrite->add_option("VALUE", m_stNvWrite.strValue, "new value")->required();
        pWrite->add_option("--bits", m_stNvWrite.bits, "change the bits LOW to HIGH only")
            ->expected(2)
            ->type_name("LOW HIGH");
    }

    void AddLive()
    {
        CLI::App* pWatch = Command("watch", "show LTE indications live; measurement records are told by their length",
                                   [this](const CONTEXT& st) { return RunWatch(st, m_stWatch); });
        pWatch->add_option("--count", m_stWatch.stLimits.count, "end after so many packets")
            ->check(CLI::Range(uint64_t{1}, UINT64_MAX));
        pWatch->add_option("--for", m_stWatch.stLimits.seconds, "end after so many seconds");
        pWatch->add_flag("--hex", m_stWatch.bHex, "dump the payloads");
        pWatch->add_flag("--quiet", m_stWatch.bQuiet, "rates only");
        CLI::App* pMonitor = Command("monitor", "show ports, UEs, clients and byte rates from the status datagrams",
                                     [this](const CONTEXT& st) { return RunMonitor(st, m_stMonitor); });
        pMonitor->add_option("--for", m_stMonitor.seconds, "end after so many seconds");
        CLI::App* pReplay = Command("replay", "do again what the clients of a capture did, and compare the answers",
                                    [this](const CONTEXT& st) { return RunReplay(st, m_stReplay); });
        pReplay->add_option("FILE", m_stReplay.strFile, "a .pcapng or .pcapng.zst of vex-capture")->required();
        pReplay->add_option("--speed", m_stReplay.strSpeed, "N times as fast as it was, or max");
        pReplay->add_flag("--now", m_stReplay.bNow, "begin with what the first client did, without the time before it");
    }

    void AddReports(const char* pszName, const char* pszWhat, std::span<const REPORT_ROW> rows)
    {
        constexpr unsigned int MAX_PERIOD_MS = 65535;
        CLI::App* pCommand =
            Command(pszName, pszWhat, [this, rows](const CONTEXT& st) { return RunGu(st, m_stGu, rows); });
        pCommand->add_option("NAME", m_stGu.names, "names of --list, or request ids");
        pCommand->add_option("--period", m_stGu.periodMs, "milliseconds between two reports")
            ->check(CLI::Range(0U, MAX_PERIOD_MS));
        pCommand->add_option("--for", m_stGu.stLimits.seconds, "end after so many seconds");
        pCommand->add_option("--count", m_stGu.stLimits.count, "end after so many reports")
            ->check(CLI::Range(uint64_t{1}, UINT64_MAX));
        pCommand->add_flag("--stop", m_stGu.bStop, "stop the reports and end");
        pCommand->add_flag("--keep", m_stGu.bKeep, "don't stop the reports at the end");
        pCommand->add_flag("--list", m_stGu.bList, "list the names");
        if (rows.data() == StatReports().data())
            return;
        pCommand->add_option("--modem", m_stGu.ulModem, "0 or 1")->check(CLI::Range(0, 1));
        pCommand->add_option("--type", m_stGu.strType, "of an id without a name: trans, trace, ota, query or a number")
            ->capture_default_str();
        pCommand->add_option("--data", m_stGu.hex, "parameters of an id without a name, hexadecimal");
    }

    CLI::App m_app;
    CLIENT_OPTIONS m_stOptions;
    unsigned int m_ulPort = 0;
    double m_dHold = 0;
    REQUEST_ARGS m_stRequest;
    std::vector<std::string> m_switch;
    std::string m_strAt;
    std::string m_strAtLink;
    std::string m_strNvId;
    NV_WRITE_ARGS m_stNvWrite;
    WATCH_ARGS m_stWatch;
    MONITOR_ARGS m_stMonitor;
    REPLAY_ARGS m_stReplay;
    GU_ARGS m_stGu;
    std::function<EXIT_CODE(const CONTEXT&)> m_run;
};
} // namespace

EXIT_CODE RunClient(std::vector<std::string> args, std::ostream& out, std::ostream& errors, bool bTerminal)
{
    CCommandLine line(bTerminal);
    try { // the parser reports by exceptions
        std::ranges::reverse(args);
        line.App().parse(args);
    } catch (const CLI::ParseError& error) {
        return line.App().exit(error, out, errors) == 0 ? CODE_DONE : CODE_USAGE;
    }
    CatchStopSignals();
    CPrinter printer(line.Options().bJson, out);
    const CONTEXT stContext{line.Options(), printer, errors};
    const EXIT_CODE enCode = line.Run(stContext);
    printer.Flush();
    return enCode;
}
