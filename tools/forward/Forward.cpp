#include "forward/Forward.h"

#include "client/Stop.h"
#include "forward/ForwardCheck.h"
#include "forward/Forwarder.h"
#include "forward/NatsHub.h"
#include "forward/Requests.h"

#include <algorithm>
#include <chrono>
#include <csignal>
#include <optional>
#include <random>
#include <thread>

namespace
{
constexpr std::chrono::seconds REFUSED_PAUSE(5); // before servers that refused the bench are asked again

/// Ends early when the program is to end.
void Pause(std::chrono::milliseconds time)
{
    const auto end = std::chrono::steady_clock::now() + time;
    while (!StopRequested() && std::chrono::steady_clock::now() < end)
        std::this_thread::sleep_for(std::chrono::milliseconds(50));
}

FORWARD_EXIT Fail(CForwardLog& log, const std::string& strError)
{
    log.Line(strError);
    return FORWARD_SYSTEM;
}

void TellWhyNot(const FORWARD_OPTIONS& stOptions, CNatsHub& hub, CForwardLog& log)
{
    if (hub.Connection().IsConnected())
        return;
    const std::string strWhy = WhyNoHub(stOptions.stHub);
    if (!strWhy.empty() && !hub.Connection().IsConnected())
        log.State("waiting", "waiting for the hub at " + HubNames(stOptions.stHub) + ": " + strWhy);
}

/// Until the program is to end; or none, when it is to begin anew: all servers have refused the bench, for which the
/// library gives up, or the one at hand takes nothing for long, and another one comes first then.
std::optional<FORWARD_EXIT> ServeOver(FORWARD_OPTIONS& stOptions, CSegmentLedger& ledger, CForwardLog& log)
{
    std::string strError;
    const auto pHub = CNatsHub::Open(stOptions.stHub, stOptions.strBench, strError);
    if (!pHub)
        return Fail(log, strError);
    std::unique_ptr<CRequests> pRequests;
    if (stOptions.bRequests)
        pRequests = CRequests::Open(pHub->Connection(), stOptions.strBench, stOptions.strAgentHost, strError);
    const auto isClosed = [&] { return pHub->Connection().IsClosed(); };
    if (stOptions.bRequests && !pRequests && !isClosed())
        return Fail(log, strError);
    TellWhyNot(stOptions, *pHub, log);
    CForwarder forwarder({.stPublish = {stOptions.strBench, ledger.Epoch(), stOptions.ullMaxRate},
                          .stateEvery = std::chrono::milliseconds(static_cast<long>(stOptions.dStateEvery * 1000)),
                          .bDelete = stOptions.bDelete,
                          .bRequests = stOptions.bRequests},
                         ledger, *pHub, log);
    const auto isStuck = [&] { return forwarder.Publisher().IsStuck(std::chrono::steady_clock::now()); };
    forwarder.Run([&] { return StopRequested() || isStuck() || isClosed(); });
    if (StopRequested()) {
        log.Line("ended");
        return FORWARD_DONE;
    }
    if (isClosed()) {
        Pause(REFUSED_PAUSE);
        return std::nullopt;
    }
    log.Line("this server of the hub has not taken what waits for a minute; trying the next one");
    auto& servers = stOptions.stHub.servers;
    std::rotate(servers.begin(), servers.begin() + 1, servers.end());
    return std::nullopt;
}

FORWARD_EXIT Serve(FORWARD_OPTIONS stOptions, CForwardLog& log)
{
    auto& servers = stOptions.stHub.servers;
    std::shuffle(servers.begin(), servers.end(), std::mt19937(std::random_device()())); // benches spread over them
    stOptions.stHub.bInOrder = true;
    std::string strError;
    CSegmentLedger ledger(stOptions.strSpool);
    if (!ledger.Open(strError))
        return Fail(log, strError);
    log.Line("bench " + stOptions.strBench + ", installation " + ledger.Epoch() + ", spool " + stOptions.strSpool);
    for (;;)
        if (const auto end = ServeOver(stOptions, ledger, log))
            return *end;
}
} // namespace

FORWARD_EXIT RunForward(std::vector<std::string> args, std::ostream& out, std::ostream& errors)
{
    FORWARD_OPTIONS stOptions;
    if (const auto end = ParseForwardOptions(std::move(args), stOptions, out, errors))
        return *end;
    (void)signal(SIGPIPE, SIG_IGN); // the hub may go: writing says so
    CatchStopSignals();
    if (stOptions.bCheck)
        return CheckForward(stOptions, out);
    CForwardLog log(errors);
    return Serve(std::move(stOptions), log);
}
