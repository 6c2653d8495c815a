#pragma once

#include <chrono>

/// The loops that serve more than one modem or client: none of them may be held up by one.
enum class LOOP
{
    CLIENTS,
    AGENT_MESSAGES,
    SERIAL_READ,
    SERIAL_WRITE,
    DEVICE_MONITOR,
};

/// One turn of a loop, from the end of a wait to the start of the next. A turn of more than 20 ms is told in the log;
/// the longest of each loop at the end of the run.
class CTurn
{
public:
    explicit CTurn(LOOP enLoop) : m_enLoop(enLoop), m_Begin(std::chrono::steady_clock::now()) {}
    ~CTurn();
    CTurn(const CTurn&) = delete;
    CTurn& operator=(const CTurn&) = delete;

    /// One line with the longest turn of each loop so far.
    static void LogLongest();

private:
    LOOP m_enLoop;
    std::chrono::steady_clock::time_point m_Begin;
};
