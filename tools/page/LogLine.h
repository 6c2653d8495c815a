#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

enum class LOG_LEVEL : uint8_t
{
    INFO,
    WARNING,
    ERROR,
};
const char* LogLevelName(LOG_LEVEL enLevel); // "info"

/// A line of the agent's log.
struct PAGE_LOG_LINE
{
    double dTime = 0; // ms since 1970
    LOG_LEVEL enLevel = LOG_LEVEL::INFO;
    std::string strText;
};

/// Reads a line without its end; none for a dump of data and for what is no line of the log.
std::optional<PAGE_LOG_LINE> ParseLogLine(std::string_view line);

/// What a line says of packets that were lost.
struct LOG_LOSS
{
    const char* pszReason; // label of a metric: "client_timeout"
    const char* pszWhat;   // for people
    uint64_t ullCount;
    std::optional<uint8_t> channel; // enChannelType
};
/// None for a line that tells of no loss.
std::optional<LOG_LOSS> LossOf(std::string_view text);
/// The UE that a line is about; none when it doesn't say.
std::optional<unsigned int> UeOfLine(std::string_view text);
/// The number of the port that a line is about; none when it doesn't say.
std::optional<uint32_t> PortOfLine(std::string_view text);
