#pragma once

#include "page/PageServer.h"

#include <string>

/// What a page shows: its views, and the threads that feed them.
class IPageSource
{
public:
    virtual ~IPageSource() = default;

    /// They live as long as the source.
    virtual IPageViews& Views() = 0;
    /// Adds what the server is to ask the source for: its health, and control if it has any.
    virtual void Equip(CPageServer::SETTINGS& stSettings) = 0;
    /// Begins to read. False, with the reason, when the options are no good.
    [[nodiscard]] virtual bool Start(std::string& strError) = 0;
    /// A second has ended; ns since 1970. Before Start, too.
    virtual void OnSecond(uint64_t ullNow) = 0;
    /// Ends reading and all orders that are under way. To be called while the server is still there.
    virtual void Stop() = 0;
};
