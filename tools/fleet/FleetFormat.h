#pragma once

#include "common/Bytes.h"

#include <compare>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <tuple>
#include <vector>

// What benches put on the hub and how it lies there: the one home of subjects, messages and names.
//
//   vex.<bench>.<epoch>.<ue>.<channel>    in the stream FLEET_STREAM: traffic, many records a message
//   <bench>                               in the bucket FLEET_BUCKET: state of the bench (FleetState.h)
//   vexreq.<bench>                        requests to the bench's agent, answered (FleetRequest.h)
//
// A bench's traffic is what vex-capture wrote into its spool, byte for byte. One message carries whole blocks of one
// segment and one lane (one UE and channel, or the agent) behind a head that tells where in the segment each of them
// lay. Whoever puts the bytes of all lanes at their offsets has the segment again.
//
//   message   MESSAGE_HEAD (fixed), name of the segment, name of the completed segment, runs (offset u64, length u32),
//             then the bytes of all runs, one behind the other. Little-endian.
//   run       bytes that lay together. They are whole pcapng blocks, but for a block above FLEET_MESSAGE_MOST, which
//             goes in pieces of that size, a message each.
//   order     within a lane segments follow each other in the order in which they were captured, and offsets rise.
//   completed every byte of the spool before this position, of every lane, had been in the stream for a while when the
//             message was made. Whoever sends goes on from there; whoever reads knows that up to there nothing is
//             missing.
//   loss      a message of its own kind, in the lane "agent": what the stream doesn't have of the segment behind the
//             offset of its one run (of length 0) was gone or damaged before it could be sent. Segments between that
//             one and the next one in the stream may have gone unseen with it.

inline constexpr const char* FLEET_STREAM = "VEX";
inline constexpr const char* FLEET_SUBJECTS = "vex.>"; // of the stream
inline constexpr const char* FLEET_BUCKET = "vex-benches";

constexpr size_t FLEET_MESSAGE_GOAL = 16 * 1024;  // bytes of blocks that a message waits for
constexpr size_t FLEET_MESSAGE_LIMIT = 20 * 1024; // no further block is added beyond; one large block may be alone
constexpr size_t FLEET_MESSAGE_MOST = 512 * 1024; // bytes of a run; a server takes 1 MiB with its default settings

/// Whether it can be a bench's name, which is a token of subjects: 1 to 64 letters, digits, '-' and '_'.
bool IsBenchName(std::string_view strName);
/// Whether it can be a segment's name (of a file, without suffix): 1 to 200 letters, digits, '-', '_', '.' and ' ', the
/// first a letter, a digit or '_'. A name from the hub that passes is safe as a file's name.
bool IsSegmentName(std::string_view strName);

/// The stream of blocks that keep their order: one UE and channel, or the agent.
struct FLEET_LANE
{
    std::string strUe = "agent";     // "ue0" to "ue15", or "agent" for what is of no UE
    std::string strChannel = "none"; // "lte-diag", ... (CAPTURE_CHANNEL_NAMES), or "none"

    bool operator==(const FLEET_LANE&) const = default;
    auto operator<=>(const FLEET_LANE& other) const
    {
        return std::tie(strUe, strChannel) <=> std::tie(other.strUe, other.strChannel);
    }
};
/// The lane of section headers, events of no UE, datagrams to the monitor, statistics, and of interfaces that aren't
/// ours.
inline const FLEET_LANE FLEET_AGENT_LANE{};

/// The lane of an interface of a capture file, by its name: "ue3-lte-data", "ue3", "agent", "status", ...
FLEET_LANE LaneOfInterface(std::string_view strName);

/// "vex.<bench>.<epoch>.<ue>.<channel>". Each part may be "*" where a pattern is wanted.
struct FLEET_SUBJECT
{
    std::string strBench;
    std::string strEpoch; // id of the installation: what a wiped laptop sends is never taken for what it sent before
    FLEET_LANE stLane;

    std::string Text() const;
    bool operator==(const FLEET_SUBJECT&) const = default;
};
/// None for what isn't one.
std::optional<FLEET_SUBJECT> ParseSubject(std::string_view strSubject);

/// "vexreq.<bench>".
std::string RequestSubject(const std::string& strBench);
/// "$KV.vex-benches.<bench>": where a bench puts its state.
std::string StateSubject(const std::string& strBench);
/// "$JS.API.DIRECT.GET.<stream>.<subject>": asks for the last message of a subject; needs allow_direct of the stream.
std::string LastMessageSubject(const std::string& strSubject);
/// "_INBOX.<bench>": where answers to a bench come, so that it needn't be allowed to read those of others.
std::string InboxPrefix(const std::string& strBench);
/// Nats-Msg-Id of a message: "<epoch>-<ue>-<channel>-<segment>-<offset>", with "-loss" for a loss.
std::string MessageId(const FLEET_SUBJECT& stSubject, const std::string& strSegment, uint64_t ullOffset,
                      bool bLoss = false);

/// A place in a spool.
struct FLEET_POSITION
{
    std::string strSegment; // name without folder and suffixes; empty: the very beginning
    uint64_t ullOffset = 0; // of the segment's pcapng bytes, as they were before compression

    bool operator==(const FLEET_POSITION&) const = default;
};

/// Bytes of a segment that lay together.
struct FLEET_RUN
{
    uint64_t ullOffset = 0;
    uint32_t ulLength = 0;

    bool operator==(const FLEET_RUN&) const = default;
};

enum class FLEET_KIND : uint8_t
{
    BLOCKS = 1,
    LOSS = 2,
};

/// One message. The bytes are borrowed: from whoever made it, or from the message it was read from.
struct FLEET_MESSAGE
{
    FLEET_KIND enKind = FLEET_KIND::BLOCKS;
    std::string strSegment;
    FLEET_POSITION stCompleted;
    std::vector<FLEET_RUN> vecRuns; // one at least; offsets rise, and runs don't overlap
    ByteView bytes;                 // of all runs, in their order

    /// Where the lane goes on: behind the last run; behind any offset, with a loss.
    uint64_t End() const;
};

/// The message as it travels. Runs and bytes must fit each other.
std::vector<unsigned char> EncodeMessage(const FLEET_MESSAGE& stMessage);
/// Reads a message and trusts nothing in it; false when it is none of ours, is cut, or has wrong runs or names. On
/// success the message's bytes lie within those given.
[[nodiscard]] bool DecodeMessage(ByteView bytes, FLEET_MESSAGE& stMessage);
