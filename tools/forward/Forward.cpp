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

namespace
{
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
        log.Line("waiting for the hub at " + HubNames(stOptions.stHub) + ": " + strWhy);
}

/// Until the program is to end, or its server takes nothing for long: then none, and another one is to be tried.
std::optional<FORWARD_EXIT> ServeOver(const FORWARD_OPTIONS& stOptions, CSegmentLedger& ledger, CForwardLog& log)
{
    std::string strError;
    const auto pHub = CNatsHub::Open(stOptions.stHub, stOptions.strBench, strError);
    if (!pHub)
        return Fail(log, strError);
    std::unique_ptr<CRequests> pRequests;
    if (stOptions.bRequests)
        pRequests = CRequests::Open(pHub->Connection(), stOptions.strBench, stOptions.strAgentHost, strError);
    if (stOptions.bRequests && !pRequests)
        return Fail(log, strError);
    TellWhyNot(stOptions, *pHub, log);
    CForwarder forwarder({.stPublish = {stOptions.strBench, ledger.Epoch(), stOptions.ullMaxRate},
                          .stateEvery = std::chrono::milliseconds(static_cast<long>(stOptions.dStateEvery * 1000)),
                          .bDelete = stOptions.bDelete,
                          .bRequests = stOptions.bRequests},
                         ledger, *pHub, log);
    const auto isStuck = [&] { return forwarder.Publisher().IsStuck(std::chrono::steady_clock::now()); };
    forwarder.Run([&] { return StopRequested() || isStuck(); });
    if (!StopRequested())
        return std::nullopt;
    log.Line("ended");
    return FORWARD_DONE;
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
    for (;;) {
        if (const auto end = ServeOver(stOptions, ledger, log))
            return *end;
        log.Line("this server of the hub has not taken what waits for a minute; trying the next one");
        std::rotate(servers.begin(), servers.begin() + 1, servers.end());
    }
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
