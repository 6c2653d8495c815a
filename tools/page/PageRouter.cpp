#include "page/PageRouter.h"

#include "page/PageQueryArgs.h"

namespace
{
constexpr const char* EVENTS = "/api/events";
constexpr const char* CONTROL = "/api/control";
constexpr const char* HEALTH = "/healthz";
constexpr const char* METRICS = "/metrics";

PAGE_REPLY Body(PAGE_ANSWER stAnswer)
{
    PAGE_REPLY stReply;
    stReply.stAnswer = std::move(stAnswer);
    return stReply;
}

PAGE_REPLY Error(int nStatus, const std::string& strError)
{
    return Body(PageError(nStatus, strError));
}

bool IsForPrograms(const std::string& strPath)
{
    return strPath.starts_with("/api/") || strPath == METRICS;
}
} // namespace

PAGE_REPLY CPageRouter::Route(const PAGE_REQUEST& stRequest)
{
    if (auto refusal = Refuse(stRequest)) {
        ++m_ullRefused;
        return *refusal;
    }
    PAGE_REPLY stReply;
    if (stRequest.strMethod == "GET" || stRequest.strMethod == "HEAD") {
        stReply = Get(stRequest);
    } else if (stRequest.strMethod == "POST" && stRequest.stQuery.strPath == CONTROL) {
        stReply = Post(stRequest);
    } else {
        stReply = Error(405, stRequest.strMethod + " isn't answered here");
        stReply.mapHeaders["Allow"] = stRequest.stQuery.strPath == CONTROL ? "GET, HEAD, POST" : "GET, HEAD";
    }
    if (m_guard.HasTokenArg(stRequest.stAsker))
        stReply.mapHeaders["Set-Cookie"] = m_guard.Cookie();
    return stReply;
}

std::optional<PAGE_REPLY> CPageRouter::Refuse(const PAGE_REQUEST& stRequest)
{
    if (const std::string strWhy = m_guard.Refusal(stRequest.stAsker); !strWhy.empty())
        return Error(403, strWhy);
    if (m_guard.HasToken(stRequest.stAsker) || stRequest.stQuery.strPath == HEALTH)
        return std::nullopt;
    PAGE_REPLY stReply = Error(401, "a token is needed: open /?token=TOKEN once, or send Authorization: Bearer TOKEN");
    stReply.mapHeaders["WWW-Authenticate"] = "Bearer";
    return stReply;
}

PAGE_REPLY CPageRouter::Get(const PAGE_REQUEST& stRequest)
{
    const std::string& strPath = stRequest.stQuery.strPath;
    if (strPath == HEALTH)
        return Body({200, "text/plain; charset=utf-8", m_stParts.health() + "\n"});
    if (strPath == EVENTS)
        return stRequest.strMethod == "HEAD" ? Error(405, "a stream has no HEAD")
                                             : PAGE_REPLY{PAGE_REPLY::KIND::STREAM, {}, {}, {}};
    // A page's address shows the token no longer than it has to.
    if (!IsForPrograms(strPath) && m_guard.HasTokenArg(stRequest.stAsker)) {
        PAGE_REPLY stReply = Body({303, "text/plain; charset=utf-8", ""});
        stReply.mapHeaders["Location"] = strPath;
        return stReply;
    }
    return View(stRequest);
}

PAGE_REPLY CPageRouter::View(const PAGE_REQUEST& stRequest) const
{
    auto answer = m_stParts.views.Get(stRequest.stQuery);
    if (!answer)
        return File(stRequest);
    if (stRequest.stQuery.strPath == METRICS && m_stParts.ownMetrics)
        answer->strBody += m_stParts.ownMetrics();
    PAGE_REPLY stReply = Body(std::move(*answer));
    stReply.mapHeaders["Cache-Control"] = "no-store";
    return stReply;
}

PAGE_REPLY CPageRouter::File(const PAGE_REQUEST& stRequest) const
{
    auto file = m_stParts.files.Read(stRequest.stQuery.strPath);
    if (!file)
        return Error(404, "there is nothing at " + stRequest.stQuery.strPath);
    const bool bKnown = stRequest.strIfNoneMatch == file->strTag;
    PAGE_REPLY stReply = Body({bKnown ? 304 : 200, file->strType, bKnown ? "" : std::move(file->strBody)});
    stReply.mapHeaders["ETag"] = file->strTag;
    stReply.mapHeaders["Cache-Control"] = "no-cache"; // kept, but asked for each time
    return stReply;
}

PAGE_REPLY CPageRouter::Post(const PAGE_REQUEST& stRequest) const
{
    if (const auto answer = m_stParts.views.Get(stRequest.stQuery); answer && answer->nStatus == 404)
        return Body(*answer); // nothing to control in what the page shows
    if (!m_stParts.bControl)
        return Error(403, "control is off; start vex-page with --control");
    if (!stRequest.strType.starts_with("application/json")) // a form of another site can't send that
        return Error(400, "the body has to be application/json");
    PAGE_REPLY stReply;
    std::string strError;
    if (!ParseOrder(stRequest.strBody, stReply.stOrder, strError))
        return Error(400, strError);
    stReply.enKind = PAGE_REPLY::KIND::CONTROL;
    return stReply;
}
