#pragma once

#include "e2e/IsolationRun.h"

#include <vector>

// The table of events stands in two files: what modems do, and what clients, links and monitors do.
std::vector<ISOLATION_EVENT> ModemEvents();
std::vector<ISOLATION_EVENT> PeerEvents();

template <class Event> std::unique_ptr<IIsolationEvent> MakeEvent()
{
    return std::make_unique<Event>();
}

constexpr unsigned int OTHER_PORT = 201; // diag port of the modem that the events happen to
constexpr PORT_RANGE OTHER_PORTS{OTHER_PORT, OTHER_PORT + SERIALNUM - 1};
constexpr uint32_t PLAIN_CMD = 0x10014003;
constexpr auto EVENT_LIMIT = std::chrono::seconds(20); // an agent that needs longer is told so

/// Empty when bGood, else the text: for steps of an event.
inline std::string Unless(bool bGood, const std::string& strFault)
{
    return bGood ? "" : strFault;
}

/// A request over and over, as fast as the agent takes it; never waits for long. How many were taken whole.
size_t FloodRequests(const CUniqueFd& client, size_t szCount, size_t szParams, std::chrono::milliseconds limit);
/// 12000 of them; then another client asks for something that the agent answers by itself, and a third one asks the
/// healthy modem.
std::string FloodAndAsk(CIsolationRun& run, const CUniqueFd& client, size_t szParams);
