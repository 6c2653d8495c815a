#include "client/Parse.h"
#include "client/Printer.h"
#include "client/Stop.h"
#include "fleet/Fleet.h"
#include "fleet/FleetBlocks.h"
#include "fleet/FleetTime.h"

namespace
{
constexpr size_t SHOWN_BYTES = 16; // of each record, without --hex

const char* KindName(TAP_KIND enKind)
{
    const auto szKind = static_cast<size_t>(enKind);
    return szKind < CAPTURE_KIND_NAMES.size() ? CAPTURE_KIND_NAMES[szKind] : "";
}

/// Prints records as they come and counts them.
class CWatch
{
public:
    CWatch(const FLEET_CONTEXT& stContext, const FLEET_WATCH_ARGS& stArgs) : m_stContext(stContext), m_stArgs(stArgs) {}

    bool IsDone() const { return m_stArgs.count && m_ullCount >= *m_stArgs.count; }

    void Take(natsMsg* pMsg)
    {
        const auto subject = ParseSubject(natsMsg_GetSubject(pMsg));
        const ByteView bytes(reinterpret_cast<const unsigned char*>(natsMsg_GetData(pMsg)),
                             static_cast<size_t>(natsMsg_GetDataLength(pMsg)));
        FLEET_MESSAGE stMessage;
        if (!subject || !DecodeMessage(bytes, stMessage))
            return m_stContext.Tell(std::string("a message of ") + natsMsg_GetSubject(pMsg) + " isn't of vex-forward");
        if (stMessage.enKind == FLEET_KIND::LOSS)
            m_stContext.Tell(subject->strBench + ": a part of " + stMessage.strSegment + " was lost");
        ForEachRecord(stMessage, [&](const CAPTURED_RECORD& stRecord) {
            if (IsDone())
                return;
            ++m_ullCount;
            if (m_stContext.bJson)
                PrintJson(*subject, stRecord);
            else
                PrintText(*subject, stRecord);
        });
        m_stContext.out.flush();
    }

private:
    void PrintText(const FLEET_SUBJECT& stSubject, const CAPTURED_RECORD& stRecord) const
    {
        const TAP_RECORD& st = stRecord.stRecord;
        m_stContext.out << TimeText(st.ullTime) << ' ' << stSubject.strBench << ' ' << stSubject.stLane.strUe << ' '
                        << stSubject.stLane.strChannel << ' ' << KindName(st.enKind) << ' ' << stRecord.bytes.size()
                        << " bytes";
        if (m_stArgs.bHex)
            m_stContext.out << '\n' << HexDump(stRecord.bytes, "  ");
        else
            m_stContext.out << "  " << HexDigits(Slice(stRecord.bytes, 0, SHOWN_BYTES))
                            << (stRecord.bytes.size() > SHOWN_BYTES ? "..." : "") << '\n';
    }

    void PrintJson(const FLEET_SUBJECT& stSubject, const CAPTURED_RECORD& stRecord) const
    {
        const TAP_RECORD& st = stRecord.stRecord;
        const ordered_json object = {{"event", "record"},
                                     {"bench", stSubject.strBench},
                                     {"ue", stSubject.stLane.strUe},
                                     {"channel", stSubject.stLane.strChannel},
                                     {"kind", KindName(st.enKind)},
                                     {"time_ns", st.ullTime},
                                     {"number", st.ullNumber},
                                     {"replayed", (st.ucFlags & TAP_REPLAYED) != 0},
                                     {"lost_before", stRecord.ullLost},
                                     {"length", stRecord.bytes.size()},
                                     {"bytes", HexDigits(stRecord.bytes)}};
        m_stContext.out << object << '\n';
    }

    const FLEET_CONTEXT& m_stContext;
    const FLEET_WATCH_ARGS& m_stArgs;
    uint64_t m_ullCount = 0;
};

std::string Pattern(const FLEET_WATCH_ARGS& stArgs)
{
    const std::string strUe = stArgs.ue ? "ue" + std::to_string(*stArgs.ue) : "*";
    return FLEET_SUBJECT{stArgs.strBench, "*", {strUe, stArgs.strChannel}}.Text();
}
} // namespace

EXIT_CODE RunFleetWatch(const FLEET_CONTEXT& stContext, const FLEET_WATCH_ARGS& stArgs)
{
    constexpr int64_t WAIT_MS = 100; // before it is looked whether to stop
    CFleetLink link;
    if (const EXIT_CODE enCode = link.Open(stContext); enCode != CODE_DONE)
        return enCode;
    natsSubscription* pNew = nullptr;
    natsStatus enStatus = natsConnection_SubscribeSync(&pNew, link.Connection(), Pattern(stArgs).c_str());
    const NatsSubscription pSubscription(pNew);
    if (enStatus != NATS_OK)
        return stContext.Fail(CODE_NO_CONNECTION, NatsText(enStatus));
    CWatch watch(stContext, stArgs);
    const auto end = After(stArgs.seconds);
    while (!StopRequested() && !watch.IsDone() && Clock::now() < end && stContext.out) { // whoever reads it may go
        natsMsg* pNewMsg = nullptr;
        enStatus = natsSubscription_NextMsg(&pNewMsg, pSubscription.get(), WAIT_MS);
        const NatsMsg pMsg(pNewMsg);
        if (pMsg)
            watch.Take(pMsg.get());
        else if (enStatus == NATS_CONNECTION_CLOSED || enStatus == NATS_INVALID_ARG)
            return stContext.Fail(CODE_NO_CONNECTION, NatsText(enStatus));
        // A subscriber that was too slow, or a hub that went away, has been told by then; what comes next goes on.
    }
    return CODE_DONE;
}
