#pragma once

#include "tap/TapConnection.h"

#include <functional>
#include <memory>
#include <string>

/// Reads the rings of an agent and of those that follow it, one run after the other. For a thread of its own.
class CTapLoop
{
public:
    /// What it does with what it reads; all are called on its thread.
    struct FEED
    {
        std::function<void(const TAP_HELLO&)> begin;
        std::function<void(const TAP_RECORD&, ByteView, uint64_t ullLost)> take; // lost: right before the record
        std::function<void()> end;
        std::function<void(const std::string&)> tell; // one line for who looks after the program
        std::function<bool()> isStopped;              // asked a hundred times a second
    };
    CTapLoop(std::string strTap, FEED stFeed) : m_strTap(std::move(strTap)), m_stFeed(std::move(stFeed)) {}

    /// Returns when it is to stop.
    void Run();

private:
    std::unique_ptr<CTapConnection> AwaitAgent();
    void ReadRun(CTapConnection& tap);
    bool ReadRing(CTapReader& reader);

    const std::string m_strTap;
    const FEED m_stFeed;
};
