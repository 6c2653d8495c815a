#include "client/Stop.h"
#include "fleet/BenchTable.h"
#include "fleet/Fleet.h"
#include "fleet/FleetTime.h"
#include "fleet/SegmentStore.h"
#include "fleet/SpanWriter.h"
#include "fleet/StreamReader.h"

#include <algorithm>
#include <chrono>
#include <map>

// A fetch takes all messages of the segments that touch the span, lane by lane where they lie, puts the segments
// together in a folder beside the file, and then writes the file out of them.

namespace
{
uint64_t RealTime()
{
    return static_cast<uint64_t>(std::chrono::nanoseconds(std::chrono::system_clock::now().time_since_epoch()).count());
}

std::string SizeText(uint64_t ullBytes)
{
    return ShortNumber(static_cast<double>(ullBytes)) + "B";
}

bool ParseSpan(const FETCH_ARGS& stArgs, TIME_SPAN& stSpan)
{
    const uint64_t ullNow = RealTime();
    const auto from = stArgs.strFrom.empty() ? uint64_t{0} : ParseTime(stArgs.strFrom, ullNow);
    const auto to = stArgs.strTo.empty() ? UINT64_MAX : ParseTime(stArgs.strTo, ullNow);
    if (!from || !to || *from >= *to)
        return false;
    stSpan = {*from, *to};
    return true;
}

/// One line on a terminal that shows how far it is, ten times a second at most.
class CFetchProgress
{
public:
    CFetchProgress(const FLEET_CONTEXT& stContext, const SEQUENCE_RANGE& stRange)
        : m_stContext(stContext), m_stRange(stRange)
    {
    }
    ~CFetchProgress()
    {
        if (m_bShown)
            m_stContext.Put("\r\x1b[K");
    }
    CFetchProgress(const CFetchProgress&) = delete;
    CFetchProgress& operator=(const CFetchProgress&) = delete;

    void Show(uint64_t ullSequence, uint64_t ullBytes)
    {
        constexpr std::chrono::milliseconds PERIOD{100};
        if (!m_stContext.bTerminal || Clock::now() - m_last < PERIOD)
            return;
        m_last = Clock::now();
        m_bShown = true;
        const uint64_t ullDone = ullSequence + 1 - m_stRange.ullBegin;
        const uint64_t ullPercent = ullDone * 100 / (m_stRange.ullEnd - m_stRange.ullBegin);
        m_stContext.Put("\r\x1b[K" + std::to_string(ullPercent) + " %, " + SizeText(ullBytes));
    }

private:
    const FLEET_CONTEXT& m_stContext;
    const SEQUENCE_RANGE m_stRange;
    Clock::time_point m_last{};
    bool m_bShown = false;
};

class CFetch
{
public:
    CFetch(const FLEET_CONTEXT& stContext, const FETCH_ARGS& stArgs, const TIME_SPAN& stSpan, const CFleetLink& link)
        : m_stContext(stContext),
          m_link(link),
          m_stArgs(stArgs),
          m_stSpan(stSpan),
          m_store(stArgs.strFile + ".segments"),
          m_writer(stArgs.strFile, stSpan)
    {
    }

    EXIT_CODE Run()
    {
        CStreamReader reader(m_link.Js(), m_stArgs.strBench);
        natsStatus enStatus{};
        std::string strError;
        if (!reader.Open(enStatus, strError))
            return m_stContext.Fail(m_link.CodeOf(enStatus), strError);
        if (reader.Subjects().empty())
            return m_stContext.Fail(CODE_REFUSED, "the hub has no traffic of bench " + m_stArgs.strBench);
        Plan(reader);
        if (!reader.Error().empty())
            return m_stContext.Fail(CODE_NO_CONNECTION, reader.Error());
        if (!m_store.Open(strError) || !m_writer.Open(strError))
            return m_stContext.Fail(CODE_USAGE, strError);
        if (const EXIT_CODE enCode = Read(reader); enCode != CODE_DONE)
            return enCode;
        return Write();
    }

private:
    /// Where each subject's messages of the segments lie that touch the span.
    void Plan(CStreamReader& reader)
    {
        for (const FLEET_SUBJECT& stSubject : reader.Subjects()) {
            SEQUENCE_RANGE stRange = reader.Range();
            if (m_stSpan.ullFrom > 0)
                stRange.ullBegin = reader.Search(stSubject).FirstFrom(FirstSegment(reader, stSubject));
            if (m_stSpan.ullTo < UINT64_MAX)
                stRange.ullEnd = reader.Search(stSubject).FirstFrom(m_stSpan.ullTo);
            m_mapRanges[stSubject.Text()] = stRange;
            if (stRange.ullBegin >= stRange.ullEnd)
                continue;
            m_stAll = {std::min(m_stAll.ullBegin, stRange.ullBegin), std::max(m_stAll.ullEnd, stRange.ullEnd)};
        }
        m_bToEnd = m_stAll.ullEnd == reader.Range().ullEnd;
    }

    /// Beginning of the segment that holds the span's begin. Every segment begins in the agent's lane.
    uint64_t FirstSegment(CStreamReader& reader, FLEET_SUBJECT stSubject)
    {
        stSubject.stLane = FLEET_AGENT_LANE;
        const auto [row, bNew] = m_mapFirst.try_emplace(stSubject.strEpoch, m_stSpan.ullFrom);
        if (bNew)
            row->second = reader.Search(stSubject).LastBefore(m_stSpan.ullFrom + 1).value_or(m_stSpan.ullFrom);
        return row->second;
    }

    EXIT_CODE Read(CStreamReader& reader)
    {
        CFetchProgress progress(m_stContext, m_stAll);
        uint64_t ullBytes = 0;
        natsStatus enStatus{};
        std::string strError;
        const auto onMessage = [&](const STREAM_MESSAGE& stMessage) {
            if (m_mapRanges[stMessage.stSubject.Text()].Has(stMessage.ullSequence) && !Take(stMessage, strError))
                return false;
            ullBytes += stMessage.stMessage.bytes.size();
            progress.Show(stMessage.ullSequence, ullBytes);
            return true;
        };
        if (!reader.Read(m_stAll, onMessage, StopRequested, enStatus, strError))
            return m_stContext.Fail(m_link.CodeOf(enStatus), strError);
        if (!strError.empty())
            return m_stContext.Fail(CODE_USAGE, strError);
        return StopRequested() ? m_stContext.Fail(CODE_TIME_OUT, "interrupted") : CODE_DONE;
    }

    /// Segments of two installations may have the same name.
    static std::string Key(const STREAM_MESSAGE& stMessage)
    {
        return stMessage.stMessage.strSegment + ' ' + stMessage.stSubject.strEpoch;
    }

    bool Take(const STREAM_MESSAGE& stMessage, std::string& strError)
    {
        const std::string strKey = Key(stMessage);
        std::string& strCompleted = m_mapCompleted[stMessage.stSubject.strEpoch];
        strCompleted = std::max(strCompleted, stMessage.stMessage.stCompleted.strSegment);
        if (stMessage.stMessage.enKind == FLEET_KIND::LOSS) {
            m_mapLost[strKey] = stMessage.stMessage.strSegment;
            return true;
        }
        ByteView rest = stMessage.stMessage.bytes;
        for (const FLEET_RUN& stRun : stMessage.stMessage.vecRuns) {
            if (!m_store.Put(strKey, stRun.ullOffset, Slice(rest, 0, stRun.ulLength), strError))
                return false;
            rest = Slice(rest, stRun.ulLength);
        }
        return true;
    }

    EXIT_CODE Write()
    {
        std::string strError;
        for (const std::string& strKey : m_store.Segments()) {
            const uint64_t ullStart = SegmentTime(NameOf(strKey)).value_or(0);
            if (!m_writer.Add(m_store.Path(strKey), m_store.Coverage(strKey).Prefix(), ullStart, strError))
                return m_stContext.Fail(CODE_USAGE, strError);
        }
        if (!m_writer.Finish(strError))
            return m_stContext.Fail(CODE_USAGE, strError);
        const bool bWhole = TellMissing();
        m_stContext.Tell(m_stArgs.strFile + ": " + std::to_string(m_writer.Packets()) + " records, " +
                         SizeText(m_writer.Bytes()) + ", " + std::to_string(m_writer.Segments()) + " segments");
        return bWhole ? CODE_DONE : CODE_DIFFERENT;
    }

    static std::string NameOf(const std::string& strKey) { return strKey.substr(0, strKey.rfind(' ')); }

    /// False when something is missing for good. What is still under way to the hub isn't.
    bool TellMissing() const
    {
        for (const auto& [strKey, strSegment] : m_mapLost)
            m_stContext.Tell(strSegment + ": the rest was gone from the bench's spool before the hub had it");
        bool bWhole = m_mapLost.empty();
        for (const std::string& strKey : m_store.Segments()) {
            const CCoverage& coverage = m_store.Coverage(strKey);
            const std::string strEpoch = strKey.substr(strKey.rfind(' ') + 1);
            if (coverage.Behind() == 0)
                continue;
            const bool bUnderWay = m_bToEnd && NameOf(strKey) >= m_mapCompleted.at(strEpoch);
            m_stContext.Tell(NameOf(strKey) + ": " + std::to_string(coverage.Behind()) +
                             " bytes behind a gap are left out" + (bUnderWay ? "; the rest is under way" : ""));
            bWhole = bWhole && bUnderWay;
        }
        if (m_store.Twice() > 0)
            m_stContext.Tell(std::to_string(m_store.Twice()) + " bytes are in the stream twice");
        return bWhole && m_store.Twice() == 0;
    }

    const FLEET_CONTEXT& m_stContext;
    const CFleetLink& m_link;
    const FETCH_ARGS& m_stArgs;
    const TIME_SPAN m_stSpan;
    CSegmentStore m_store;
    CSpanWriter m_writer;
    std::map<std::string, SEQUENCE_RANGE> m_mapRanges; // by subject
    std::map<std::string, uint64_t> m_mapFirst;        // beginning of the first segment, by epoch
    std::map<std::string, std::string> m_mapCompleted; // segment before which all is in the stream, by epoch
    std::map<std::string, std::string> m_mapLost;      // names of segments with a loss, by key
    SEQUENCE_RANGE m_stAll{UINT64_MAX, 0};
    bool m_bToEnd = false; // the stream's end has been read
};
} // namespace

EXIT_CODE RunFetch(const FLEET_CONTEXT& stContext, const FETCH_ARGS& stArgs)
{
    TIME_SPAN stSpan;
    if (!ParseSpan(stArgs, stSpan))
        return stContext.Fail(CODE_USAGE, "no time span: from " + stArgs.strFrom + " to " + stArgs.strTo);
    CFleetLink link;
    if (const EXIT_CODE enCode = link.Open(stContext); enCode != CODE_DONE)
        return enCode;
    return CFetch(stContext, stArgs, stSpan, link).Run();
}
