#include "fleet/Hub.h"

#include <CLI/CLI.hpp>
#include <algorithm>
#include <array>
#include <condition_variable>
#include <mutex>

namespace
{
constexpr int64_t CONNECT_MS = 3000;
constexpr int64_t RECONNECT_MS = 500;
constexpr int64_t PING_MS = 2000; // with two pings out, a dead link is seen within 4 s
constexpr int PINGS_OUT = 2;
constexpr int64_t WRITE_MS = 4000; // a link that takes nothing for so long is dead, too
constexpr std::chrono::seconds CLOSE_LIMIT{5};

/// A row of settings that ends at the first one that fails.
class CSettings
{
public:
    void Set(natsStatus enStatus, const std::string& strWhat = "")
    {
        if (enStatus != NATS_OK && m_strError.empty())
            m_strError = (strWhat.empty() ? "" : strWhat + ": ") + NatsText(enStatus);
    }
    const std::string& Error() const { return m_strError; }

private:
    std::string m_strError;
};

std::string SetTls(natsOptions* pOptions, const HUB_OPTIONS& stOptions)
{
    if (stOptions.strCert.empty() != stOptions.strKey.empty())
        return "a certificate needs its key, and a key its certificate";
    CSettings settings;
    if (!stOptions.strCert.empty())
        settings.Set(natsOptions_LoadCertificatesChain(pOptions, stOptions.strCert.c_str(), stOptions.strKey.c_str()),
                     stOptions.strCert + ", " + stOptions.strKey);
    if (!stOptions.strCa.empty())
        settings.Set(natsOptions_LoadCATrustedCertificates(pOptions, stOptions.strCa.c_str()), stOptions.strCa);
    if (!stOptions.strCert.empty() || !stOptions.strCa.empty())
        settings.Set(natsOptions_SetSecure(pOptions, true));
    return settings.Error();
}

std::string SetLink(natsOptions* pOptions, const HUB_OPTIONS& stOptions)
{
    std::vector<const char*> servers;
    for (const std::string& strServer : stOptions.servers)
        servers.push_back(strServer.c_str());
    CSettings settings;
    settings.Set(natsOptions_SetServers(pOptions, servers.data(), static_cast<int>(servers.size())), "--servers");
    settings.Set(natsOptions_SetTimeout(pOptions, CONNECT_MS));
    settings.Set(natsOptions_SetMaxReconnect(pOptions, -1));
    settings.Set(natsOptions_SetReconnectWait(pOptions, RECONNECT_MS));
    settings.Set(natsOptions_SetReconnectBufSize(pOptions, 0)); // nothing is sent later than it was meant to be
    settings.Set(natsOptions_SetPingInterval(pOptions, PING_MS));
    settings.Set(natsOptions_SetMaxPingsOut(pOptions, PINGS_OUT));
    settings.Set(natsOptions_SetWriteDeadline(pOptions, WRITE_MS));
    settings.Set(natsOptions_SetNoRandomize(pOptions, stOptions.bInOrder));
    settings.Set(natsOptions_SetIgnoreDiscoveredServers(pOptions, true)); // they may be reachable from the lab alone
    if (!stOptions.strName.empty())
        settings.Set(natsOptions_SetName(pOptions, stOptions.strName.c_str()));
    if (!stOptions.strInboxPrefix.empty())
        settings.Set(natsOptions_SetCustomInboxPrefix(pOptions, stOptions.strInboxPrefix.c_str()));
    return settings.Error();
}

std::string LastErrorOf(natsConnection* pConnection)
{
    const char* pszError = nullptr;
    const natsStatus enStatus = natsConnection_GetLastError(pConnection, &pszError);
    if (pszError != nullptr && *pszError != '\0')
        return pszError;
    return enStatus == NATS_OK ? "the connection has ended" : natsStatus_GetText(enStatus);
}

/// What the library says when it calls no more.
class CHubEnd
{
public:
    static void Set(void* pEnd)
    {
        auto& end = *static_cast<CHubEnd*>(pEnd);
        const std::lock_guard guard(end.m_Lock);
        end.m_bEnded = true;
        end.m_Changed.notify_all();
    }
    /// False when it doesn't say so.
    bool Wait()
    {
        std::unique_lock lock(m_Lock);
        return m_Changed.wait_for(lock, CLOSE_LIMIT, [this] { return m_bEnded; });
    }

private:
    std::mutex m_Lock; // over the flag
    std::condition_variable m_Changed;
    bool m_bEnded = false;
};
} // namespace

#if defined(__SANITIZE_THREAD__)
/// libssl isn't built for the sanitizer, which sees its copies but not its locks.
extern "C" const char* __tsan_default_suppressions();
extern "C" const char* __tsan_default_suppressions()
{
    return "called_from_lib:libssl.so.3\ncalled_from_lib:libcrypto.so.3\n";
}
#endif

std::string HubNames(const HUB_OPTIONS& stOptions)
{
    std::string strNames;
    for (const std::string& strServer : stOptions.servers)
        strNames += (strNames.empty() ? "" : ",") + strServer;
    return strNames;
}

void AddHubOptions(CLI::App& app, HUB_OPTIONS& stOptions)
{
    app.add_option("--servers,--url", stOptions.servers, "servers of the hub, nats://HOST:PORT or tls://HOST:PORT")
        ->delimiter(',')
        ->capture_default_str()
        ->type_name("URL,...");
    app.add_option("--cert", stOptions.strCert, "certificate to show to the hub (PEM)")->type_name("FILE");
    app.add_option("--key", stOptions.strKey, "key of that certificate (PEM)")->type_name("FILE");
    app.add_option("--ca", stOptions.strCa, "who has to have signed the hub's certificate (PEM)")->type_name("FILE");
}

std::string NatsText(natsStatus enStatus, jsErrCode enCode)
{
    std::string strText = natsStatus_GetText(enStatus);
    natsStatus enLast = NATS_OK;
    const char* const pszMore = nats_GetLastError(&enLast);
    std::string strMore = enLast == enStatus && pszMore != nullptr ? pszMore : "";
    if (strMore.starts_with('(')) // "(conn.c:2088): ", its own source
        strMore.erase(0, std::min(strMore.size(), strMore.find(' ') + 1));
    if (!strMore.empty() && strMore != strText)
        strText += ", " + strMore;
    return enCode == 0 ? strText : strText + " (JetStream " + std::to_string(static_cast<int>(enCode)) + ')';
}

/// Lives until the library has said that it calls no more.
struct CHub::STATE
{
    EVENTS events;
    CHubEnd end;

    static void OnConnected(natsConnection*, void* pState)
    {
        if (const auto& onConnected = static_cast<STATE*>(pState)->events.onConnected)
            onConnected();
    }
    static void OnLost(natsConnection* pConnection, void* pState)
    {
        if (const auto& onLost = static_cast<STATE*>(pState)->events.onLost)
            onLost(LastErrorOf(pConnection));
    }
    static void OnError(natsConnection* pConnection, natsSubscription*, natsStatus enStatus, void* pState)
    {
        const char* pszError = nullptr;
        (void)natsConnection_GetLastError(pConnection, &pszError);
        const bool bText = pszError != nullptr && *pszError != '\0';
        if (const auto& onError = static_cast<STATE*>(pState)->events.onError)
            onError(bText ? pszError : natsStatus_GetText(enStatus));
    }
    static void OnClosed(natsConnection*, void* pState) { CHubEnd::Set(&static_cast<STATE*>(pState)->end); }
};

CHub::CHub(EVENTS events) : m_pState(std::make_unique<STATE>())
{
    m_pState->events = std::move(events);
}

std::unique_ptr<CHub> CHub::Open(const HUB_OPTIONS& stOptions, EVENTS events, PATIENCE enPatience,
                                 std::string& strError)
{
    std::unique_ptr<CHub> pHub(new CHub(std::move(events)));
    if (!pHub->Connect(stOptions, enPatience, strError))
        return nullptr;
    return pHub;
}

bool CHub::Connect(const HUB_OPTIONS& stOptions, PATIENCE enPatience, std::string& strError)
{
    natsOptions* pNew = nullptr;
    CSettings settings;
    settings.Set(natsOptions_Create(&pNew));
    const NatsOptions pOptions(pNew);
    strError = settings.Error().empty() ? SetLink(pNew, stOptions) : settings.Error();
    if (strError.empty())
        strError = SetTls(pNew, stOptions);
    if (!strError.empty())
        return false;
    STATE* const pState = m_pState.get();
    settings.Set(natsOptions_SetReconnectedCB(pNew, STATE::OnConnected, pState));
    settings.Set(natsOptions_SetDisconnectedCB(pNew, STATE::OnLost, pState));
    settings.Set(natsOptions_SetErrorHandler(pNew, STATE::OnError, pState));
    settings.Set(natsOptions_SetClosedCB(pNew, STATE::OnClosed, pState));
    if (enPatience == PATIENCE::FOREVER)
        settings.Set(natsOptions_SetRetryOnFailedConnect(pNew, true, STATE::OnConnected, pState));
    strError = settings.Error();
    if (!strError.empty())
        return false;
    const natsStatus enStatus = natsConnection_Connect(&m_pConnection, pNew);
    if (enStatus == NATS_OK && enPatience == PATIENCE::FOREVER)
        STATE::OnConnected(m_pConnection, pState);
    if (enStatus != NATS_OK && enStatus != NATS_NOT_YET_CONNECTED)
        strError = NatsText(enStatus);
    return strError.empty();
}

CHub::~CHub()
{
    if (m_pConnection == nullptr)
        return;
    natsConnection_Close(m_pConnection);
    const bool bClosed = m_pState->end.Wait();
    natsConnection_Destroy(m_pConnection);
    if (!bClosed)
        (void)m_pState.release(); // the library may still call: rather a leak at the end than a crash
}

std::string WhyNoHub(const HUB_OPTIONS& stOptions)
{
    std::string strWhy;
    (void)CHub::Open(stOptions, {}, CHub::PATIENCE::ONCE, strWhy);
    return strWhy;
}

bool CHub::IsConnected() const
{
    return natsConnection_Status(m_pConnection) == NATS_CONN_STATUS_CONNECTED;
}

bool CHub::IsClosed() const
{
    return natsConnection_IsClosed(m_pConnection);
}

std::string CHub::Server() const
{
    std::array<char, 256> szUrl{};
    if (!IsConnected() || natsConnection_GetConnectedUrl(m_pConnection, szUrl.data(), szUrl.size()) != NATS_OK)
        return "";
    return szUrl.data();
}

struct CHubSubscription::STATE
{
    OnMessage onMessage;
    CHubEnd end;

    static void Take(natsConnection*, natsSubscription*, natsMsg* pMsg, void* pState)
    {
        const NatsMsg owner(pMsg);
        static_cast<STATE*>(pState)->onMessage(*pMsg);
    }
};

CHubSubscription::CHubSubscription(OnMessage onMessage) : m_pState(std::make_unique<STATE>())
{
    m_pState->onMessage = std::move(onMessage);
}

std::unique_ptr<CHubSubscription> CHubSubscription::Open(CHub& hub, const std::string& strSubject, OnMessage onMessage,
                                                         std::string& strError)
{
    std::unique_ptr<CHubSubscription> pNew(new CHubSubscription(std::move(onMessage)));
    natsSubscription* pSubscription = nullptr;
    natsStatus enStatus =
        natsConnection_Subscribe(&pSubscription, hub.Get(), strSubject.c_str(), STATE::Take, pNew->m_pState.get());
    pNew->m_pSubscription.reset(pSubscription);
    if (enStatus == NATS_OK)
        enStatus = natsSubscription_SetOnCompleteCB(pSubscription, CHubEnd::Set, &pNew->m_pState->end);
    if (enStatus == NATS_OK)
        enStatus = natsSubscription_SetPendingLimits(pSubscription, -1, -1);
    if (enStatus == NATS_OK)
        return pNew;
    strError = strSubject + ": " + NatsText(enStatus);
    return nullptr;
}

CHubSubscription::~CHubSubscription()
{
    if (!m_pSubscription)
        return;
    (void)natsSubscription_Unsubscribe(m_pSubscription.get()); // fails when the connection has ended it already
    if (!m_pState->end.Wait())
        (void)m_pState.release(); // a call still runs: rather a leak at the end than a crash
}
