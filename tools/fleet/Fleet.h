#pragma once

#include "client/Session.h"
#include "fleet/Hub.h"

#include <atomic>
#include <optional>
#include <ostream>
#include <string>
#include <vector>

// vex-fleet: the commands behind the command line. Each connects, does its work, prints, and answers the exit status,
// which is vex-client's; CODE_DIFFERENT says that something of what was asked for is missing.

struct FLEET_CONTEXT
{
    HUB_OPTIONS stHub = {};
    bool bJson = false;
    double dTimeout = 5; // seconds to wait for each answer
    std::ostream& out;
    std::ostream& errors;
    bool bTerminal = false; // whether the errors go to one

    /// A line on the error stream; from any thread.
    void Tell(const std::string& strText) const { Put("vex-fleet: " + strText + '\n'); }
    /// Bytes on the error stream, as they are; from any thread.
    void Put(const std::string& strText) const;
    EXIT_CODE Fail(EXIT_CODE enCode, const std::string& strReason) const
    {
        Tell(strReason);
        return enCode;
    }
    int64_t TimeoutMs() const { return static_cast<int64_t>(dTimeout * 1000); }
};

/// A connection with JetStream's context.
class CFleetLink
{
public:
    CFleetLink() = default;
    ~CFleetLink() { m_bEnding = true; }
    CFleetLink(const CFleetLink&) = delete;
    CFleetLink& operator=(const CFleetLink&) = delete;

    /// CODE_DONE, or why there is no connection, which has been told. The context outlives the link.
    [[nodiscard]] EXIT_CODE Open(const FLEET_CONTEXT& stContext);

    natsConnection* Connection() const { return m_pHub->Get(); }
    jsCtx* Js() const { return m_pJs.get(); }
    /// The exit status for what libnats answers. What a certificate mustn't ask for gets no answer.
    EXIT_CODE CodeOf(natsStatus enStatus) const;

private:
    void OnError(const FLEET_CONTEXT& stContext, const std::string& strWhat);

    std::atomic<bool> m_bEnding = false;
    std::atomic<bool> m_bRefused = false; // the hub has said that something isn't permitted
    std::unique_ptr<CHub> m_pHub;
    JsContext m_pJs; // goes before the connection
};
EXIT_CODE RunBenches(const FLEET_CONTEXT& stContext);

struct FLEET_WATCH_ARGS
{
    std::string strBench = "*";
    std::optional<unsigned int> ue;
    std::string strChannel = "*"; // of CAPTURE_CHANNEL_NAMES
    std::optional<uint64_t> count;
    std::optional<double> seconds;
    bool bHex = false; // all bytes of each record
};
EXIT_CODE RunFleetWatch(const FLEET_CONTEXT& stContext, const FLEET_WATCH_ARGS& stArgs);

struct FETCH_ARGS
{
    std::string strBench;
    std::string strFrom; // empty: all that there is
    std::string strTo;   // empty: up to now
    std::string strFile;
};
EXIT_CODE RunFetch(const FLEET_CONTEXT& stContext, const FETCH_ARGS& stArgs);

struct INIT_ARGS
{
    std::string strFile;        // LabFile.h
    std::string strPermissions; // where to write them; "-": standard output; empty: make the stream and the bucket
};
EXIT_CODE RunInit(const FLEET_CONTEXT& stContext, const INIT_ARGS& stArgs);

struct FLEET_REQUEST_ARGS
{
    std::string strBench;
    unsigned int ulPort = 0;
    std::string strId;
    std::vector<std::string> hex;
};
EXIT_CODE RunFleetRequest(const FLEET_CONTEXT& stContext, const FLEET_REQUEST_ARGS& stArgs);

/// The whole program. bTerminal: whether the errors go to a terminal.
EXIT_CODE RunFleet(std::vector<std::string> args, std::ostream& out, std::ostream& errors, bool bTerminal);
