#pragma once

#include <map>
#include <memory>
#include <optional>
#include <string>

/// What one request asks for, cut out of its address: "/api/modem" with {"ue": "3"}.
struct PAGE_QUERY
{
    std::string strPath;
    std::map<std::string, std::string> mapArgs;
};

struct PAGE_ANSWER
{
    int nStatus = 200; // of HTTP
    std::string strType = "application/json";
    std::string strBody;
    std::string strFile = {}; // not empty: the name that the browser offers to save the body as
};

/// The views of what the page knows, as docs/page.md has them under "Addresses". From any thread; no call waits for a
/// peer.
class IPageViews
{
public:
    virtual ~IPageViews() = default;

    /// None for a path that is no view. What is wrong with a query is told in the answer.
    virtual std::optional<PAGE_ANSWER> Get(const PAGE_QUERY& stQuery) = 0;
    /// The newest tick of a stream of a view ("view": "overview", or "modem" with "ue"; "fleet", or "bench" with
    /// "bench"): one line of JSON, made once and shared by all who look. Null for another view, and for a UE or bench
    /// that was never seen.
    virtual std::shared_ptr<const std::string> Tick(const PAGE_QUERY& stQuery) = 0;
};
