#include "forward/Forward.h"

#include "client/Stop.h"
#include "forward/ForwardCheck.h"
#include "forward/Forwarder.h"
#include "forward/NatsHub.h"
#include "forward/Requests.h"

#include <csignal>

namespace
{
FORWARD_EXIT Fail(CForwardLog& log, const std::string& strError)
{
    log.Line(strError);
    return FORWARD_SYSTEM;
}

FORWARD_EXIT Serve(const FORWARD_OPTIONS& stOptions, CForwardLog& log)
{
    std::string strError;
    CSegmentLedger ledger(stOptions.strSpool);
    if (!ledger.Open(strError))
        return Fail(log, strError);
    const auto pHub = CNatsHub::Open(stOptions.stHub, stOptions.strBench, strError);
    if (!pHub)
        return Fail(log, strError);
    std::unique_ptr<CRequests> pRequests;
    if (stOptions.bRequests)
        pRequests = CRequests::Open(pHub->Connection(), stOptions.strBench, stOptions.strAgentHost, strError);
    if (stOptions.bRequests && !pRequests)
        return Fail(log, strError);
    log.Line("bench " + stOptions.strBench + ", installation " + ledger.Epoch() + ", spool " + stOptions.strSpool);
    if (!pHub->Connection().IsConnected()) {
        const std::string strWhy = WhyNoHub(stOptions.stHub);
        if (!strWhy.empty() && !pHub->Connection().IsConnected())
            log.Line("waiting for the hub at " + HubNames(stOptions.stHub) + ": " + strWhy);
    }
    CForwarder forwarder({.stPublish = {stOptions.strBench, ledger.Epoch(), stOptions.ullMaxRate},
                          .stateEvery = std::chrono::milliseconds(static_cast<long>(stOptions.dStateEvery * 1000)),
                          .bDelete = stOptions.bDelete,
                          .bRequests = stOptions.bRequests},
                         ledger, *pHub, log);
    forwarder.Run(StopRequested);
    return FORWARD_DONE;
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
    return Serve(stOptions, log);
}
