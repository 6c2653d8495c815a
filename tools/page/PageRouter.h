#pragma once

#include "page/ControlOrder.h"
#include "page/PageFiles.h"
#include "page/PageGuard.h"
#include "page/PageViews.h"

#include <atomic>
#include <functional>
#include <map>
#include <string>

/// A request with all that counts of it.
struct PAGE_REQUEST
{
    std::string strMethod;
    PAGE_QUERY stQuery;
    PAGE_ASKER stAsker;
    std::string strIfNoneMatch;
    std::string strType; // Content-Type
    std::string strBody;
};

/// What is to be done about a request.
struct PAGE_REPLY
{
    enum class KIND
    {
        BODY,    // stAnswer is the answer
        STREAM,  // an event stream of the request's view
        CONTROL, // stOrder is to be carried out, and answers
    };
    KIND enKind = KIND::BODY;
    PAGE_ANSWER stAnswer;
    std::map<std::string, std::string> mapHeaders;
    CONTROL_ORDER stOrder;
};

/// Who may ask, and which part of the page answers. Knows nothing of sockets.
class CPageRouter
{
public:
    struct PARTS
    {
        IPageViews& views;
        CPageFiles files;
        bool bControl = false;
        std::function<std::string()> health;       // one line
        std::function<std::string()> ownMetrics{}; // of the server; behind those of the views
    };
    CPageRouter(PAGE_ACCESS stAccess, PARTS stParts) : m_guard(std::move(stAccess)), m_stParts(std::move(stParts)) {}

    PAGE_REPLY Route(const PAGE_REQUEST& stRequest);
    uint64_t Refused() const { return m_ullRefused; }

private:
    std::optional<PAGE_REPLY> Refuse(const PAGE_REQUEST& stRequest);
    PAGE_REPLY Get(const PAGE_REQUEST& stRequest);
    PAGE_REPLY Post(const PAGE_REQUEST& stRequest) const;
    PAGE_REPLY View(const PAGE_REQUEST& stRequest) const;
    PAGE_REPLY File(const PAGE_REQUEST& stRequest) const;

    const CPageGuard m_guard;
    const PARTS m_stParts;
    std::atomic<uint64_t> m_ullRefused = 0;
};
