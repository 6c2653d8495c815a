#include "fleet/FleetFormat.h"

#include "common/Record.h"

#include <algorithm>
#include <cassert>

namespace
{
constexpr size_t NAME_MOST = 64;
constexpr size_t SEGMENT_MOST = 200;
constexpr std::string_view ROOT = "vex";

/// Fixed part of a message's head.
struct MESSAGE_HEAD
{
    static constexpr size_t SIZE = 20;
    static constexpr uint32_t MAGIC = 0x46584556; // "VEXF"
    static constexpr uint8_t VERSION = 1;

    uint32_t ulMagic = MAGIC;
    uint8_t ucVersion = VERSION;
    uint8_t ucKind = 0;      // FLEET_KIND
    uint8_t ucSegment = 0;   // length of the segment's name
    uint8_t ucCompleted = 0; // length of the completed segment's name; 0: the very beginning
    uint64_t ullCompleted = 0;
    uint32_t ulRuns = 0;

    template <class Io, class Self> static void Fields(Io& io, Self& st)
    {
        io.Field(st.ulMagic);      //  0
        io.Field(st.ucVersion);    //  4
        io.Field(st.ucKind);       //  5
        io.Field(st.ucSegment);    //  6
        io.Field(st.ucCompleted);  //  7
        io.Field(st.ullCompleted); //  8
        io.Field(st.ulRuns);       // 16
    }
};
static_assert(SEGMENT_MOST <= UINT8_MAX);

constexpr size_t RUN_SIZE = 12;
/// Order of a run's fields, for reading and writing.
template <class Io, class Run> void RunFields(Io& io, Run& stRun)
{
    io.Field(stRun.ullOffset); // 0
    io.Field(stRun.ulLength);  // 8
}

bool IsPlain(char c)
{
    return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9') || c == '_';
}

/// Cuts the text up to the separator off the front; all of it when there is none.
std::string_view CutToken(std::string_view& strText, char cSeparator)
{
    const std::string_view strToken = strText.substr(0, strText.find(cSeparator));
    strText.remove_prefix(std::min(strToken.size() + 1, strText.size()));
    return strToken;
}

/// A token of a subject: not empty, nothing that the servers take for more than a character.
bool IsToken(std::string_view strToken)
{
    return !strToken.empty() &&
           std::ranges::all_of(strToken, [](char c) { return IsPlain(c) || c == '-' || c == '*'; });
}

bool IsUe(std::string_view strName)
{
    return strName.starts_with("ue") && strName.size() > 2 &&
           std::ranges::all_of(strName.substr(2), [](char c) { return c >= '0' && c <= '9'; });
}

bool AreRunsGood(const FLEET_MESSAGE& stMessage)
{
    uint64_t ullEnd = 0;
    uint64_t ullBytes = 0;
    for (const FLEET_RUN& stRun : stMessage.vecRuns) {
        if (stRun.ullOffset < ullEnd || stRun.ulLength > UINT64_MAX - stRun.ullOffset)
            return false;
        ullEnd = stRun.ullOffset + stRun.ulLength;
        ullBytes += stRun.ulLength;
    }
    return !stMessage.vecRuns.empty() && ullBytes == stMessage.bytes.size();
}

std::string TakeText(CByteReader& reader, size_t szLength)
{
    const ByteView text = reader.Take(szLength);
    return {text.begin(), text.end()};
}
} // namespace

bool IsBenchName(std::string_view strName)
{
    return !strName.empty() && strName.size() <= NAME_MOST &&
           std::ranges::all_of(strName, [](char c) { return IsPlain(c) || c == '-'; });
}

bool IsSegmentName(std::string_view strName)
{
    return !strName.empty() && strName.size() <= SEGMENT_MOST && IsPlain(strName.front()) &&
           std::ranges::all_of(strName, [](char c) { return IsPlain(c) || c == '-' || c == '.' || c == ' '; });
}

FLEET_LANE LaneOfInterface(std::string_view strName)
{
    const std::string_view strChannel = strName.substr(std::min(strName.find('-') + 1, strName.size()));
    const std::string_view strUe = strName.substr(0, strName.find('-'));
    if (!IsUe(strUe) || strUe.size() > 4)
        return FLEET_AGENT_LANE;
    if (strUe.size() == strName.size())
        return {std::string(strUe), FLEET_AGENT_LANE.strChannel};
    return IsBenchName(strChannel) ? FLEET_LANE{std::string(strUe), std::string(strChannel)} : FLEET_AGENT_LANE;
}

std::string FLEET_SUBJECT::Text() const
{
    return std::string(ROOT) + '.' + strBench + '.' + strEpoch + '.' + stLane.strUe + '.' + stLane.strChannel;
}

std::optional<FLEET_SUBJECT> ParseSubject(std::string_view strSubject)
{
    const std::string_view strRoot = CutToken(strSubject, '.');
    FLEET_SUBJECT stSubject;
    for (std::string* pPart :
         {&stSubject.strBench, &stSubject.strEpoch, &stSubject.stLane.strUe, &stSubject.stLane.strChannel}) {
        const std::string_view strToken = CutToken(strSubject, '.');
        if (!IsToken(strToken))
            return std::nullopt;
        *pPart = strToken;
    }
    return strRoot == ROOT && strSubject.empty() ? std::optional(stSubject) : std::nullopt;
}

std::string RequestSubject(const std::string& strBench)
{
    return "vexreq." + strBench;
}

std::string StateSubject(const std::string& strBench)
{
    return std::string("$KV.") + FLEET_BUCKET + '.' + strBench;
}

std::string LastMessageSubject(const std::string& strSubject)
{
    return std::string("$JS.API.DIRECT.GET.") + FLEET_STREAM + '.' + strSubject;
}

std::string InboxPrefix(const std::string& strBench)
{
    return "_INBOX." + strBench;
}

std::string MessageId(const FLEET_SUBJECT& stSubject, const std::string& strSegment, uint64_t ullOffset, bool bLoss)
{
    return stSubject.strEpoch + '-' + stSubject.stLane.strUe + '-' + stSubject.stLane.strChannel + '-' + strSegment +
           '-' + std::to_string(ullOffset) + (bLoss ? "-loss" : "");
}

uint64_t FLEET_MESSAGE::End() const
{
    if (enKind == FLEET_KIND::LOSS)
        return UINT64_MAX;
    return vecRuns.empty() ? 0 : vecRuns.back().ullOffset + vecRuns.back().ulLength;
}

std::vector<unsigned char> EncodeMessage(const FLEET_MESSAGE& stMessage)
{
    assert(AreRunsGood(stMessage));
    const ByteView segment = AsBytes(stMessage.strSegment);
    const ByteView completed = AsBytes(stMessage.stCompleted.strSegment);
    const auto aucHead = EncodeRecord(MESSAGE_HEAD{
        .ucKind = static_cast<uint8_t>(stMessage.enKind),
        .ucSegment = static_cast<uint8_t>(segment.size()),
        .ucCompleted = static_cast<uint8_t>(completed.size()),
        .ullCompleted = stMessage.stCompleted.ullOffset,
        .ulRuns = static_cast<uint32_t>(stMessage.vecRuns.size()),
    });
    std::vector<unsigned char> vecOut(aucHead.size() + segment.size() + completed.size() +
                                      stMessage.vecRuns.size() * RUN_SIZE + stMessage.bytes.size());
    CByteWriter writer(vecOut);
    for (const ByteView part : {ByteView(aucHead), segment, completed})
        writer.Bytes(part);
    for (const FLEET_RUN& stRun : stMessage.vecRuns)
        RunFields(writer, stRun);
    writer.Bytes(stMessage.bytes);
    return vecOut;
}

bool DecodeMessage(ByteView bytes, FLEET_MESSAGE& stMessage)
{
    MESSAGE_HEAD stHead;
    CByteReader reader(bytes);
    MESSAGE_HEAD::Fields(reader, stHead);
    const bool bLoss = stHead.ucKind == static_cast<uint8_t>(FLEET_KIND::LOSS);
    if (!reader.Ok() || stHead.ulMagic != MESSAGE_HEAD::MAGIC || stHead.ucVersion != MESSAGE_HEAD::VERSION ||
        (!bLoss && stHead.ucKind != static_cast<uint8_t>(FLEET_KIND::BLOCKS)))
        return false;
    stMessage.enKind = static_cast<FLEET_KIND>(stHead.ucKind);
    stMessage.strSegment = TakeText(reader, stHead.ucSegment);
    stMessage.stCompleted = {TakeText(reader, stHead.ucCompleted), stHead.ullCompleted};
    if (!reader.Ok() || stHead.ulRuns > reader.Left() / RUN_SIZE || !IsSegmentName(stMessage.strSegment) ||
        (stHead.ucCompleted > 0 && !IsSegmentName(stMessage.stCompleted.strSegment)))
        return false;
    stMessage.vecRuns.resize(stHead.ulRuns);
    for (FLEET_RUN& stRun : stMessage.vecRuns)
        RunFields(reader, stRun);
    stMessage.bytes = reader.Take(reader.Left());
    return AreRunsGood(stMessage) && (!bLoss || (stMessage.vecRuns.size() == 1 && stMessage.bytes.empty()));
}
