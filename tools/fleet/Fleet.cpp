#include "fleet/Fleet.h"

#include "capture/CaptureFormat.h"
#include "client/Stop.h"
#include "fleet/FleetFormat.h"

#include <CLI/CLI.hpp>
#include <algorithm>
#include <csignal>
#include <functional>
#include <mutex>

namespace
{
constexpr const char* FOOTER =
    "Exit status: 0 done, 1 wrong usage, 2 no connection, 3 time-out, 4 refused, 5 something of the span is missing\n"
    "Times: 2026-11-22T12:05:02Z (UTC), -90m (that long ago; s, m, h, d), now";

const CLI::Validator& BenchName()
{
    static const CLI::Validator validator(
        [](const std::string& strName) { return IsBenchName(strName) ? "" : "no name of a bench: " + strName; },
        "NAME");
    return validator;
}

/// What the command line fills in; the parsed command is in m_run.
class CFleetLine
{
public:
    CFleetLine(std::ostream& out, std::ostream& errors, bool bTerminal)
        : m_app("The lab's view of all benches", "vex-fleet"), m_stContext{.out = out, .errors = errors}
    {
        m_stContext.bTerminal = bTerminal;
        m_stContext.stHub.strName = "vex-fleet";
        m_app.footer(FOOTER);
        m_app.require_subcommand(1);
        m_app.fallthrough(); // the hub's options are welcome behind the command too
        AddHubOptions(m_app, m_stContext.stHub);
        m_app.add_flag("--json", m_stContext.bJson, "one JSON object a line");
        m_app.add_option("--timeout", m_stContext.dTimeout, "seconds to wait for each answer")
            ->check(CLI::Range(0.1, 60.0))
            ->capture_default_str();
        Command("benches", "show all benches: when seen, modems, rates, backlog", RunBenches);
        AddWatch();
        AddFetch();
        AddInit();
        AddRequest();
    }

    CLI::App& App() { return m_app; }
    EXIT_CODE Run() const { return m_run(m_stContext); }

private:
    CLI::App* Command(const char* pszName, const char* pszWhat, std::function<EXIT_CODE(const FLEET_CONTEXT&)> run)
    {
        CLI::App* pCommand = m_app.add_subcommand(pszName, pszWhat);
        pCommand->footer(
            "The options of vex-fleet itself (--servers, --cert, --key, --ca, --json, --timeout) may stand "
            "here too.");
        pCommand->callback([this, run = std::move(run)] { m_run = run; });
        return pCommand;
    }

    void AddWatch()
    {
        CLI::App* pWatch = Command("watch", "show records as they reach the hub, until Ctrl-C",
                                   [this](const FLEET_CONTEXT& st) { return RunFleetWatch(st, m_stWatch); });
        pWatch->add_option("--bench", m_stWatch.strBench, "of this bench alone")->check(BenchName());
        pWatch->add_option("--ue", m_stWatch.ue, "of this UE alone, by slot")->check(CLI::Range(0u, MAXUENUM - 1u));
        pWatch->add_option("--channel", m_stWatch.strChannel, "of this channel alone")
            ->check(
                CLI::IsMember(std::vector<std::string>(CAPTURE_CHANNEL_NAMES.begin(), CAPTURE_CHANNEL_NAMES.end())));
        pWatch->add_option("--count", m_stWatch.count, "end after so many records")
            ->check(CLI::Range(uint64_t{1}, UINT64_MAX));
        pWatch->add_option("--for", m_stWatch.seconds, "end after so many seconds");
        pWatch->add_flag("--hex", m_stWatch.bHex, "dump the bytes");
    }

    void AddFetch()
    {
        CLI::App* pFetch = Command("fetch", "write a bench's records of a time span to a capture file",
                                   [this](const FLEET_CONTEXT& st) { return RunFetch(st, m_stFetch); });
        pFetch->add_option("--bench", m_stFetch.strBench, "bench")->required()->check(BenchName());
        pFetch->add_option("--from", m_stFetch.strFrom, "begin of the span; all that there is without it")
            ->type_name("TIME");
        pFetch->add_option("--to", m_stFetch.strTo, "end of the span")->type_name("TIME");
        pFetch->add_option("-w", m_stFetch.strFile, "file to write, .pcapng")->required()->type_name("FILE");
    }

    void AddInit()
    {
        CLI::App* pInit = Command("init", "make or change the stream and the bucket; or write the permissions",
                                  [this](const FLEET_CONTEXT& st) { return RunInit(st, m_stInit); });
        pInit->add_option("FILE", m_stInit.strFile, "the fleet's file, JSON")->required();
        pInit
            ->add_option(
                "--permissions", m_stInit.strPermissions,
                "only write the permissions for the servers' configuration to this file, - for standard output")
            ->type_name("OUT");
    }

    void AddRequest()
    {
        CLI::App* pRequest = Command("request", "send a request to a UE of a bench and show the answer",
                                     [this](const FLEET_CONTEXT& st) { return RunFleetRequest(st, m_stRequest); });
        pRequest->add_option("--bench", m_stRequest.strBench, "bench")->required()->check(BenchName());
        pRequest->add_option("--port", m_stRequest.ulPort, "any port of the UE")->required();
        pRequest->add_option("ID", m_stRequest.strId, "id, decimal or 0x...")->required();
        pRequest->add_option("HEX", m_stRequest.hex, "parameters, pairs of hexadecimal digits");
    }

    CLI::App m_app;
    FLEET_CONTEXT m_stContext;
    FLEET_WATCH_ARGS m_stWatch;
    FETCH_ARGS m_stFetch;
    INIT_ARGS m_stInit;
    FLEET_REQUEST_ARGS m_stRequest;
    std::function<EXIT_CODE(const FLEET_CONTEXT&)> m_run;
};
} // namespace

EXIT_CODE CFleetLink::CodeOf(natsStatus enStatus) const
{
    switch (enStatus) {
    case NATS_OK:
        return CODE_DONE;
    case NATS_TIMEOUT:
        return m_bRefused ? CODE_REFUSED : CODE_TIME_OUT;
    case NATS_CONNECTION_AUTH_FAILED:
    case NATS_NOT_PERMITTED:
    case NATS_NOT_FOUND:
    case NATS_ERR: // JetStream's answers
        return CODE_REFUSED;
    default:
        return CODE_NO_CONNECTION;
    }
}

void FLEET_CONTEXT::Put(const std::string& strText) const
{
    static std::mutex lock; // the library's threads have something to say, too
    const std::lock_guard guard(lock);
    errors << strText << std::flush;
}

void CFleetLink::OnError(const FLEET_CONTEXT& stContext, const std::string& strWhat)
{
    if (strWhat.find("Permissions Violation") != std::string::npos)
        m_bRefused = true;
    stContext.Tell("the hub: " + strWhat);
}

EXIT_CODE CFleetLink::Open(const FLEET_CONTEXT& stContext)
{
    CHub::EVENTS events;
    events.onLost = [this, &stContext](const std::string& strWhy) {
        if (!m_bEnding)
            stContext.Tell("the hub is gone: " + strWhy);
    };
    events.onConnected = [&stContext] { stContext.Tell("the hub is there again"); };
    events.onError = [this, &stContext](const std::string& strWhat) { OnError(stContext, strWhat); };
    std::string strError;
    m_pHub = CHub::Open(stContext.stHub, events, CHub::PATIENCE::ONCE, strError);
    if (!m_pHub) {
        const bool bRefused = strError.find("Authorization") != std::string::npos;
        return stContext.Fail(bRefused ? CODE_REFUSED : CODE_NO_CONNECTION, "no connection to the hub: " + strError);
    }
    jsOptions stOptions;
    (void)jsOptions_Init(&stOptions); // fails for no pointer alone
    stOptions.Wait = stContext.TimeoutMs();
    jsCtx* pJs = nullptr;
    const natsStatus enStatus = natsConnection_JetStream(&pJs, m_pHub->Get(), &stOptions);
    m_pJs.reset(pJs);
    return enStatus == NATS_OK ? CODE_DONE : stContext.Fail(CodeOf(enStatus), NatsText(enStatus));
}

EXIT_CODE RunFleet(std::vector<std::string> args, std::ostream& out, std::ostream& errors, bool bTerminal)
{
    CFleetLine line(out, errors, bTerminal);
    try { // the parser reports by exceptions
        std::ranges::reverse(args);
        line.App().parse(args);
    } catch (const CLI::ParseError& error) {
        return line.App().exit(error, out, errors) == 0 ? CODE_DONE : CODE_USAGE;
    }
    (void)signal(SIGPIPE, SIG_IGN); // the hub may go: writing says so
    CatchStopSignals();
    const EXIT_CODE enCode = line.Run();
    out.flush();
    return enCode;
}
