#include "page/LogLine.h"

#include "common/Types.h"

#include <array>
#include <charconv>
#include <cstdio>
#include <ctime>

namespace
{
constexpr size_t STAMP_LEN = 23; // "YYYY-MM-DD hh:mm:ss.mmm"

constexpr struct
{
    std::string_view tag;
    LOG_LEVEL enLevel;
} TAGS[] = {
    {" [INF] : ", LOG_LEVEL::INFO},
    {" [WAN] : ", LOG_LEVEL::WARNING},
    {" [ERR] : ", LOG_LEVEL::ERROR},
};

/// Lines about losses, each with what stands before and behind the count; without the latter one packet was lost. The
/// forms stand in agent/LossLog.cpp, ue/LineWriter.cpp, common/NoMemory.cpp and data/gu.
constexpr struct
{
    std::string_view begin;
    std::string_view behindCount;
    const char* pszReason;
    const char* pszWhat;
} LOSSES[] = {
    {"Client SendDataToClient select TimeOut, ", " more frames lost", "client_timeout",
     "a client took nothing in time"},
    {"Client SendDataToClient select TimeOut, ", "", "client_timeout", "a client took nothing in time"},
    {"Client SendDataToClient send Fail, ", "", "client_send_failed", "a client could not be sent to"},
    {"UE ", " packets were lost", "ue_queue_full", "a modem took nothing for long"},
    {"HDLC Decode Error!", "", "hdlc_decode", "a frame from a modem was damaged"},
    {"HDLC Data Too Big!", "", "hdlc_too_big", "a frame from a modem was too long"},
    {"No memory for ", "", "no_memory", "the agent had no memory"},
    {"register confirmation dropped", "", "register_cut", "a register message was cut"},
    {"register indication dropped", "", "register_cut", "a register message was cut"},
    {"register list dropped", "", "register_list", "a register list did not fit"},
};

template <class T> bool Number(std::string_view digits, T& value)
{
    const auto result = std::from_chars(digits.data(), digits.data() + digits.size(), value);
    return result.ec == std::errc() && result.ptr == digits.data() + digits.size();
}

/// The number right behind the mark; none when there is no number.
std::optional<unsigned int> NumberBehind(std::string_view text, std::string_view mark)
{
    const size_t szAt = text.find(mark);
    if (szAt == std::string_view::npos)
        return std::nullopt;
    const std::string_view rest = text.substr(szAt + mark.size());
    unsigned int ulNumber = 0;
    if (!Number(rest.substr(0, rest.find_first_not_of("0123456789")), ulNumber))
        return std::nullopt;
    return ulNumber;
}

std::optional<double> StampTime(std::string_view stamp)
{
    tm stLocal{};
    int nMs = 0;
    const std::string strStamp(stamp);
    if (std::sscanf(strStamp.c_str(), "%4d-%2d-%2d %2d:%2d:%2d.%3d", &stLocal.tm_year, &stLocal.tm_mon,
                    &stLocal.tm_mday, &stLocal.tm_hour, &stLocal.tm_min, &stLocal.tm_sec, &nMs) != 7)
        return std::nullopt;
    stLocal.tm_year -= 1900;
    stLocal.tm_mon -= 1;
    stLocal.tm_isdst = -1;
    return static_cast<double>(std::mktime(&stLocal)) * 1000 + nMs;
}

std::optional<uint8_t> ChannelOf(std::string_view text)
{
    for (const CHANNEL_ROW& stRow : CHANNEL_TABLE)
        if (text.find(std::string("channel:") + stRow.pszLabel + ',') != std::string_view::npos)
            return static_cast<uint8_t>(stRow.enChannel);
    return std::nullopt;
}

/// The number right before the mark.
std::optional<uint64_t> NumberBefore(std::string_view text, std::string_view mark)
{
    const size_t szEnd = text.find(mark);
    if (szEnd == std::string_view::npos)
        return std::nullopt;
    const std::string_view before = text.substr(0, szEnd);
    uint64_t ullNumber = 0;
    if (!Number(before.substr(before.find_last_not_of("0123456789") + 1), ullNumber))
        return std::nullopt;
    return ullNumber;
}
} // namespace

const char* LogLevelName(LOG_LEVEL enLevel)
{
    static constexpr std::array<const char*, 3> NAMES = {"info", "warning", "error"};
    return NAMES[static_cast<size_t>(enLevel)];
}

std::optional<PAGE_LOG_LINE> ParseLogLine(std::string_view line)
{
    if (line.size() < STAMP_LEN)
        return std::nullopt;
    const std::string_view rest = line.substr(STAMP_LEN);
    for (const auto& stTag : TAGS)
        if (rest.starts_with(stTag.tag)) {
            const auto time = StampTime(line.substr(0, STAMP_LEN));
            if (!time)
                return std::nullopt;
            return PAGE_LOG_LINE{*time, stTag.enLevel, std::string(rest.substr(stTag.tag.size()))};
        }
    return std::nullopt;
}

std::optional<LOG_LOSS> LossOf(std::string_view text)
{
    for (const auto& stLoss : LOSSES) {
        if (!text.starts_with(stLoss.begin))
            continue;
        const auto count = stLoss.behindCount.empty() ? 1 : NumberBefore(text, stLoss.behindCount);
        if (count)
            return LOG_LOSS{stLoss.pszReason, stLoss.pszWhat, *count, ChannelOf(text)};
    }
    return std::nullopt;
}

std::optional<unsigned int> UeOfLine(std::string_view text)
{
    const auto ue = NumberBehind(text, "UE ");
    return ue && *ue < MAXUENUM ? ue : std::nullopt;
}

std::optional<uint32_t> PortOfLine(std::string_view text)
{
    for (const std::string_view mark : {"com:", "(com ", "port:"})
        if (const auto port = NumberBehind(text, mark))
            return port;
    return std::nullopt;
}
