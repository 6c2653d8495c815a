#include "page/PageServer.h"

#include "page/PageQueryArgs.h"

#include <arpa/inet.h>
#include <cerrno>
#include <charconv>
#include <chrono>
#include <cstring>
#include <microhttpd.h>
#include <netinet/in.h>
#include <optional>
#include <sys/socket.h>
#include <thread>
#include <unistd.h>

namespace
{
constexpr std::chrono::milliseconds LAST_WORDS{300}; // for viewers that read
constexpr size_t LARGE_BODY = size_t{1024} * 1024;   // counts towards MOST_BODY_BYTES

// The page uses files of its own alone, is shown in no other page, and tells nobody where a link was followed.
const std::map<std::string, std::string> SECURITY_HEADERS = {
    {"Content-Security-Policy",
     "default-src 'self'; img-src 'self' data: blob:; object-src 'none'; base-uri 'none'; form-action 'self'; "
     "frame-ancestors 'none'"},
    {"X-Content-Type-Options", "nosniff"},
    {"X-Frame-Options", "DENY"},
    {"Referrer-Policy", "no-referrer"},
    {"Cross-Origin-Resource-Policy", "same-origin"},
    {"Cross-Origin-Opener-Policy", "same-origin"},
};

std::string Header(MHD_Connection* pConnection, const char* pszName)
{
    const char* const pszValue = MHD_lookup_connection_value(pConnection, MHD_HEADER_KIND, pszName);
    return pszValue == nullptr ? "" : pszValue;
}

MHD_Result AddArg(void* pMap, MHD_ValueKind, const char* pszName, const char* pszValue)
{
    auto& mapArgs = *static_cast<std::map<std::string, std::string>*>(pMap);
    mapArgs.emplace(pszName, pszValue == nullptr ? "" : pszValue); // the first one counts
    return MHD_YES;
}

PAGE_REQUEST RequestOf(MHD_Connection* pConnection, const char* pszPath, const char* pszMethod)
{
    PAGE_REQUEST stRequest;
    stRequest.strMethod = pszMethod;
    stRequest.stQuery.strPath = pszPath;
    (void)MHD_get_connection_values(pConnection, MHD_GET_ARGUMENT_KIND, &AddArg, &stRequest.stQuery.mapArgs);
    stRequest.stAsker = {Header(pConnection, "Host"), Header(pConnection, "Origin"),
                         Header(pConnection, "Authorization"), Header(pConnection, "Cookie"), ""};
    if (const auto node = stRequest.stQuery.mapArgs.extract("token"))
        stRequest.stAsker.strTokenArg = node.mapped();
    stRequest.strIfNoneMatch = Header(pConnection, "If-None-Match");
    stRequest.strType = Header(pConnection, "Content-Type");
    return stRequest;
}

/// Owns the bytes of an answer while the library sends them.
struct BODY
{
    std::string strText;
    std::atomic<size_t>* pCount; // of bytes under way; null for a small one

    ~BODY()
    {
        if (pCount != nullptr)
            *pCount -= strText.size();
    }
    static void Free(void* pBody) { delete static_cast<BODY*>(pBody); }
};

bool FillAddress(const PAGE_ADDRESS& stAddress, sockaddr_storage& stStorage)
{
    auto& st4 = reinterpret_cast<sockaddr_in&>(stStorage);
    auto& st6 = reinterpret_cast<sockaddr_in6&>(stStorage);
    if (inet_pton(AF_INET, stAddress.strHost.c_str(), &st4.sin_addr) == 1) {
        st4.sin_family = AF_INET;
        st4.sin_port = htons(stAddress.usPort);
        return true;
    }
    st6.sin6_family = AF_INET6;
    st6.sin6_port = htons(stAddress.usPort);
    return inet_pton(AF_INET6, stAddress.strHost.c_str(), &st6.sin6_addr) == 1;
}
} // namespace

/// One request, from its first line to its last byte of an answer.
struct CPageServer::CALL
{
    CPageServer& server;
    MHD_Connection* pConnection;
    PAGE_REQUEST stRequest;
    std::optional<PAGE_ANSWER> answer{}; // of an order; written while the connection is suspended
};

struct CPageServer::GLUE
{
    static MHD_Result Handle(void* pServer, MHD_Connection* pConnection, const char* pszPath, const char* pszMethod,
                             const char*, const char* pcData, size_t* pszData, void** ppCall)
    {
        auto& server = *static_cast<CPageServer*>(pServer);
        if (*ppCall == nullptr)
            return Begin(server, pConnection, pszPath, pszMethod, ppCall);
        CALL& call = *static_cast<CALL*>(*ppCall);
        if (*pszData == 0)
            return server.Answer(call) ? MHD_YES : MHD_NO;
        std::string& strBody = call.stRequest.strBody;
        if (*pszData > LARGEST_BODY - strBody.size())
            return MHD_NO; // it said less, or nothing, of its length
        strBody.append(pcData, *pszData);
        *pszData = 0;
        return MHD_YES;
    }

    static MHD_Result Begin(CPageServer& server, MHD_Connection* pConnection, const char* pszPath,
                            const char* pszMethod, void** ppCall)
    {
        ++server.m_ullRequests;
        auto* const pCall = new CALL{server, pConnection, RequestOf(pConnection, pszPath, pszMethod)};
        *ppCall = pCall; // Completed deletes it
        const std::string strLength = Header(pConnection, MHD_HTTP_HEADER_CONTENT_LENGTH);
        uint64_t ullLength = 0;
        (void)std::from_chars(strLength.data(), strLength.data() + strLength.size(), ullLength); // none: 0
        if (ullLength <= LARGEST_BODY)
            return MHD_YES;
        PAGE_REPLY stReply;
        stReply.stAnswer = PageError(MHD_HTTP_CONTENT_TOO_LARGE, "the body is too long");
        return server.Send(*pCall, std::move(stReply)) ? MHD_YES : MHD_NO;
    }

    static void Completed(void*, MHD_Connection*, void** ppCall, MHD_RequestTerminationCode)
    {
        delete static_cast<CALL*>(*ppCall);
        *ppCall = nullptr;
    }
};

CPageServer::CPageServer(SETTINGS stSettings, IPageViews& views)
    : m_stSettings(std::move(stSettings)),
      m_views(views),
      m_router(m_stSettings.stAccess, {views, CPageFiles(m_stSettings.strWeb), m_stSettings.bControl,
                                       m_stSettings.health, [this] { return Metrics(); }}),
      m_streams(views)
{
}

std::unique_ptr<CPageServer> CPageServer::Start(SETTINGS stSettings, IPageViews& views, std::string& strError)
{
    std::unique_ptr<CPageServer> pServer(new CPageServer(std::move(stSettings), views));
    return pServer->Listen(strError) ? std::move(pServer) : nullptr;
}

bool CPageServer::Listen(std::string& strError)
{
    sockaddr_storage stAddress{};
    if (!FillAddress(m_stSettings.stAccess.stListen, stAddress)) {
        strError = m_stSettings.stAccess.stListen.Text() + " is no address";
        return false;
    }
    unsigned int ulFlags = MHD_USE_EPOLL_INTERNAL_THREAD | MHD_ALLOW_SUSPEND_RESUME;
    if (stAddress.ss_family == AF_INET6)
        ulFlags |= MHD_USE_IPv6;
    errno = 0;
    m_pDaemon = MHD_start_daemon(ulFlags, 0, nullptr, nullptr, &GLUE::Handle, this, //
                                 MHD_OPTION_SOCK_ADDR, &stAddress,                  //
                                 MHD_OPTION_NOTIFY_COMPLETED, &GLUE::Completed, nullptr, MHD_OPTION_CONNECTION_LIMIT,
                                 MOST_CONNECTIONS,                                          //
                                 MHD_OPTION_CONNECTION_TIMEOUT, m_stSettings.ulIdleSeconds, //
                                 MHD_OPTION_END);
    if (m_pDaemon == nullptr)
        strError = m_stSettings.stAccess.stListen.Text() + ": " + (errno == 0 ? "can't listen" : std::strerror(errno));
    return m_pDaemon != nullptr;
}

CPageServer::~CPageServer()
{
    if (m_pDaemon == nullptr)
        return;
    const MHD_socket nListen = MHD_quiesce_daemon(m_pDaemon);
    m_streams.End(); // the library can't stop while connections are suspended
    const auto end = std::chrono::steady_clock::now() + LAST_WORDS;
    while (m_streams.Viewers() > 0 && std::chrono::steady_clock::now() < end)
        std::this_thread::sleep_for(std::chrono::milliseconds(1)); // each viewer is told that it is the end
    MHD_stop_daemon(m_pDaemon);
    if (nListen != MHD_INVALID_SOCKET)
        (void)close(nListen);
}

uint16_t CPageServer::Port() const
{
    const MHD_DaemonInfo* const pInfo = MHD_get_daemon_info(m_pDaemon, MHD_DAEMON_INFO_BIND_PORT);
    return pInfo == nullptr ? uint16_t{0} : pInfo->port;
}

bool CPageServer::Answer(CALL& call)
{
    PAGE_REPLY stReply;
    if (call.answer) { // of an order that was sent to control
        stReply.stAnswer = std::move(*call.answer);
        return Send(call, std::move(stReply));
    }
    stReply = m_router.Route(call.stRequest);
    switch (stReply.enKind) {
    case PAGE_REPLY::KIND::STREAM:
        return Stream(call);
    case PAGE_REPLY::KIND::CONTROL:
        return SendToControl(call, stReply.stOrder);
    case PAGE_REPLY::KIND::BODY:
        break;
    }
    return Send(call, std::move(stReply));
}

bool CPageServer::Stream(const CALL& call)
{
    PAGE_REPLY stReply;
    if (m_views.Tick(call.stRequest.stQuery) == nullptr) {
        stReply.stAnswer = PageError(MHD_HTTP_NOT_FOUND, "there is no such view, or nothing was seen of what it shows");
        return Send(call, std::move(stReply));
    }
    MHD_Response* const pResponse = m_streams.Open(call.pConnection, call.stRequest.stQuery);
    if (pResponse == nullptr) {
        stReply.stAnswer = PageError(MHD_HTTP_SERVICE_UNAVAILABLE, "too many viewers, or the page is about to end");
        return Send(call, std::move(stReply));
    }
    (void)MHD_add_response_header(pResponse, "Content-Type", "text/event-stream");
    (void)MHD_add_response_header(pResponse, "Cache-Control", "no-store");
    for (const auto& [strName, strValue] : SECURITY_HEADERS)
        (void)MHD_add_response_header(pResponse, strName.c_str(), strValue.c_str());
    const bool bQueued = MHD_queue_response(call.pConnection, MHD_HTTP_OK, pResponse) == MHD_YES;
    MHD_destroy_response(pResponse); // the connection holds it
    return bQueued;
}

/// The connection sleeps until the answer is there; then the library calls again for it.
bool CPageServer::SendToControl(CALL& call, const CONTROL_ORDER& stOrder)
{
    MHD_suspend_connection(call.pConnection);
    m_stSettings.order(stOrder, [&call](PAGE_ANSWER stAnswer) {
        call.answer = std::move(stAnswer);
        MHD_resume_connection(call.pConnection);
    });
    return true;
}

bool CPageServer::Send(const CALL& call, PAGE_REPLY stReply)
{
    std::string& strText = stReply.stAnswer.strBody;
    const bool bLarge = strText.size() > LARGE_BODY;
    if (bLarge && strText.size() + m_szBodies > MOST_BODY_BYTES) {
        stReply = {};
        strText = (stReply.stAnswer = PageError(MHD_HTTP_SERVICE_UNAVAILABLE, "too many exports at a time")).strBody;
    }
    std::unique_ptr<BODY> pBody(new BODY{std::move(strText), bLarge ? &m_szBodies : nullptr});
    m_szBodies += bLarge ? pBody->strText.size() : 0;
    MHD_Response* const pResponse = MHD_create_response_from_buffer_with_free_callback_cls(
        pBody->strText.size(), pBody->strText.data(), &BODY::Free, pBody.get());
    if (pResponse == nullptr)
        return false;
    (void)pBody.release(); // the response frees it
    auto& mapHeaders = stReply.mapHeaders;
    mapHeaders.insert(SECURITY_HEADERS.begin(), SECURITY_HEADERS.end());
    mapHeaders.emplace("Content-Type", stReply.stAnswer.strType);
    mapHeaders.emplace("Cache-Control", "no-store");
    if (!stReply.stAnswer.strFile.empty())
        mapHeaders.emplace("Content-Disposition", "attachment; filename=\"" + stReply.stAnswer.strFile + "\"");
    for (const auto& [strName, strValue] : mapHeaders)
        (void)MHD_add_response_header(pResponse, strName.c_str(), strValue.c_str());
    const auto ulStatus = static_cast<unsigned int>(stReply.stAnswer.nStatus);
    const bool bQueued = MHD_queue_response(call.pConnection, ulStatus, pResponse) == MHD_YES;
    MHD_destroy_response(pResponse); // the connection holds it
    return bQueued;
}

std::string CPageServer::Metrics() const
{
    const auto metric = [](const char* pszName, const char* pszType, const char* pszHelp, uint64_t ullValue) {
        const std::string strName = std::string("vex_page_") + pszName;
        return "# HELP " + strName + " " + pszHelp + "\n# TYPE " + strName + " " + pszType + "\n" + strName + " " +
               std::to_string(ullValue) + "\n";
    };
    return metric("viewers", "gauge", "Event streams that are open.", Viewers()) +
           metric("http_requests_total", "counter", "Requests to the page.", m_ullRequests) +
           metric("http_refused_total", "counter", "Requests refused for their host, origin or token.",
                  m_router.Refused());
}
