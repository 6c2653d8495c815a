#pragma once

#include "fleet/FleetFormat.h"
#include "fleet/Hub.h"

#include <chrono>
#include <functional>
#include <map>
#include <optional>
#include <string>

/// How long a hub that has lost a server, and so gives no answer, is asked again.
constexpr std::chrono::seconds HUB_PATIENCE{30};

/// Where the messages of a subject lie in the stream: from the first sequence up to, but without, the last.
struct SEQUENCE_RANGE
{
    uint64_t ullBegin = 0;
    uint64_t ullEnd = 0;

    bool Has(uint64_t ullSequence) const { return ullSequence >= ullBegin && ullSequence < ullEnd; }
};

/// Looks for the first message of a subject whose segment began at a time or later. Segments of a subject follow each
/// other in time, so it halves the stream again and again.
class CSegmentSearch
{
public:
    struct FOUND
    {
        uint64_t ullSequence = 0;
        uint64_t ullTime = 0; // when its segment began
    };
    /// First message at or behind a sequence; none when there is none.
    using NextMessage = std::function<std::optional<FOUND>(uint64_t ullSequence)>;

    CSegmentSearch(NextMessage next, SEQUENCE_RANGE stRange) : m_next(std::move(next)), m_stRange(stRange) {}

    /// A sequence from which on all messages of the range are of segments that began at ullTime or later, and before
    /// which none is.
    uint64_t FirstFrom(uint64_t ullTime) const;
    /// When the last segment began that did so before ullTime; none when there is none.
    std::optional<uint64_t> LastBefore(uint64_t ullTime) const;

private:
    uint64_t Search(uint64_t ullTime, std::optional<FOUND>& before) const;

    const NextMessage m_next;
    const SEQUENCE_RANGE m_stRange;
};

/// A message of the stream, decoded.
struct STREAM_MESSAGE
{
    FLEET_SUBJECT stSubject;
    uint64_t ullSequence = 0;
    uint64_t ullPending = 0; // messages of the subscription behind it
    FLEET_MESSAGE stMessage; // borrows the bytes
};

/// Reads what a bench has put into the stream.
class CStreamReader
{
public:
    CStreamReader(jsCtx* pJs, std::string strBench) : m_pJs(pJs), m_strBench(std::move(strBench)) {}

    /// Asks for the bench's subjects and for the whole stream's range. False, with the status and what is wrong.
    [[nodiscard]] bool Open(natsStatus& enStatus, std::string& strError);
    const std::vector<FLEET_SUBJECT>& Subjects() const { return m_vecSubjects; }
    const SEQUENCE_RANGE& Range() const { return m_stRange; }

    /// To look for the segments of one of the subjects; lives no longer than the reader. A message that can't be got
    /// counts as none, with the reason in Error.
    CSegmentSearch Search(const FLEET_SUBJECT& stSubject);
    const std::string& Error() const { return m_strError; }

    /// Gives all messages of the bench in a range of the stream to onMessage, in the stream's order, until it says
    /// false or there are no more. isStopped is asked meanwhile. A hub that goes away is waited for. False, with the
    /// status and what is wrong, when nothing comes for 30 s, or a message isn't ours.
    [[nodiscard]] bool Read(const SEQUENCE_RANGE& stRange, const std::function<bool(const STREAM_MESSAGE&)>& onMessage,
                            const std::function<bool()>& isStopped, natsStatus& enStatus, std::string& strError);

private:
    std::optional<CSegmentSearch::FOUND> Next(const std::string& strSubject, uint64_t ullSequence);

    jsCtx* m_pJs;
    const std::string m_strBench;
    std::vector<FLEET_SUBJECT> m_vecSubjects;
    SEQUENCE_RANGE m_stRange;
    std::string m_strError;
};

/// Decodes a message of the stream. False, with what is wrong, when it isn't one of ours.
[[nodiscard]] bool DecodeStreamMessage(natsMsg* pMsg, STREAM_MESSAGE& stMessage, std::string& strError);
