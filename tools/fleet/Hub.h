#pragma once

#include <functional>
#include <memory>
#include <nats/nats.h>
#include <string>
#include <vector>

// The connection to the hub, and the few things of libnats that its users share.

namespace CLI
{
class App;
}

struct HUB_OPTIONS
{
    std::vector<std::string> servers = {"nats://127.0.0.1:4222"}; // any of them is the hub
    bool bInOrder = false; // the first of them that can be reached; else it is left to chance
    std::string strCert;   // PEM files: client certificate with its key, and who signs the servers'; empty: no TLS
    std::string strKey;
    std::string strCa;
    std::string strName;        // of the connection, as the servers list it
    std::string strInboxPrefix; // where answers come; empty: the library's own
};

/// Its servers, as a user gave them: "nats://a:4222,nats://b:4222".
std::string HubNames(const HUB_OPTIONS& stOptions);

/// --servers (or --url), --cert, --key and --ca.
void AddHubOptions(CLI::App& app, HUB_OPTIONS& stOptions);

// Owners of what libnats hands out.
struct FREE_NATS
{
    void operator()(natsOptions* pOptions) const { natsOptions_Destroy(pOptions); }
    void operator()(natsMsg* pMsg) const { natsMsg_Destroy(pMsg); }
    void operator()(natsSubscription* pSubscription) const { natsSubscription_Destroy(pSubscription); }
    void operator()(jsCtx* pContext) const { jsCtx_Destroy(pContext); }
    void operator()(kvStore* pStore) const { kvStore_Destroy(pStore); }
};
using NatsOptions = std::unique_ptr<natsOptions, FREE_NATS>;
using NatsMsg = std::unique_ptr<natsMsg, FREE_NATS>;
using NatsSubscription = std::unique_ptr<natsSubscription, FREE_NATS>;
using JsContext = std::unique_ptr<jsCtx, FREE_NATS>;
using KvStore = std::unique_ptr<kvStore, FREE_NATS>;

/// What is wrong, in words: the status, what the library adds to it on this thread, and JetStream's code unless it is
/// 0.
std::string NatsText(natsStatus enStatus, jsErrCode enCode = static_cast<jsErrCode>(0));

/// One connection, to one server of the list at a time; when that one goes, or says nothing for 4 s, to the next. What
/// is published while there is none fails at once.
class CHub
{
public:
    /// Called on threads of the library, not after the destructor; empty ones aren't.
    struct EVENTS
    {
        std::function<void()> onConnected; // with PATIENCE::ONCE only for the second connection and later ones
        std::function<void(const std::string&)> onLost;  // why
        std::function<void(const std::string&)> onError; // what else the server or the library complains about
    };
    enum class PATIENCE
    {
        ONCE,    // Open fails when no server can be reached
        FOREVER, // it is tried again and again, in the background
    };
    /// Null, with the reason: wrong options, or no server with PATIENCE::ONCE.
    static std::unique_ptr<CHub> Open(const HUB_OPTIONS& stOptions, EVENTS events, PATIENCE enPatience,
                                      std::string& strError);
    /// Closes the connection. What is subscribed on it must have been ended before.
    ~CHub();
    CHub(const CHub&) = delete;
    CHub& operator=(const CHub&) = delete;

    natsConnection* Get() const { return m_pConnection; }
    bool IsConnected() const;
    /// For good: the library gives up when servers refuse whoever it is.
    bool IsClosed() const;
    /// "nats://10.0.0.1:4222", or empty.
    std::string Server() const;

private:
    struct STATE;
    explicit CHub(EVENTS events);
    bool Connect(const HUB_OPTIONS& stOptions, PATIENCE enPatience, std::string& strError);

    std::unique_ptr<STATE> m_pState; // what the callbacks see
    natsConnection* m_pConnection = nullptr;
};

/// Why no server can be reached: the library tries again and again without a word, a try of our own tells. Takes some
/// seconds where nothing answers. Empty when one can.
std::string WhyNoHub(const HUB_OPTIONS& stOptions);

/// A subscription. Its call comes on a thread of the library, one message after the other.
class CHubSubscription
{
public:
    using OnMessage = std::function<void(natsMsg&)>;
    /// Null, with the reason.
    static std::unique_ptr<CHubSubscription> Open(CHub& hub, const std::string& strSubject, OnMessage onMessage,
                                                  std::string& strError);
    /// When it returns, no call is under way, and none will come.
    ~CHubSubscription();
    CHubSubscription(const CHubSubscription&) = delete;
    CHubSubscription& operator=(const CHubSubscription&) = delete;

private:
    struct STATE;
    explicit CHubSubscription(OnMessage onMessage);

    std::unique_ptr<STATE> m_pState;
    NatsSubscription m_pSubscription;
};
