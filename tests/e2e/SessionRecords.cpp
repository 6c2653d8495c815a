#include "e2e/SessionRecords.h"

#include "agent/StatusRecords.h"
#include "capture/PcapngReader.h"
#include "capture/PcapngWriter.h"
#include "data/DiagPacket.h"
#include "tap/TapEvents.h"

#include <algorithm>
#include <fstream>
#include <map>
#include <sstream>
#include <tuple>

namespace
{
constexpr size_t EVENT_NAME = 8; // of the device, in a channel event
constexpr size_t EVENT_NAME_SIZE = 128;
constexpr size_t TABLE_NAME_SIZE = 32;

using STREAM = std::tuple<TAP_KIND, unsigned int, unsigned int, uint32_t>; // kind, UE, channel, client or datagram
using STREAMS = std::map<STREAM, std::vector<SESSION_RECORD>>;

bool IsTail(TAP_KIND enKind)
{
    return enKind == TAP_KIND::PORT_EVENT || enKind == TAP_KIND::STATUS;
}

bool IsAside(const SESSION_RECORD& record)
{
    if (record.stHead.enKind == TAP_KIND::STATUS)
        return record.bytes.at(0) == SerialPortTransfer::MSG_ID || record.bytes.at(0) == AgentVer::MSG_ID;
    return record.stHead.enKind == TAP_KIND::CONFIGURATION;
}

void Blank(Bytes& bytes, size_t szOffset, size_t szSize)
{
    std::ranges::fill(Slice(ByteSpan(bytes), szOffset, szSize), static_cast<unsigned char>(0));
}

/// Without the names of devices.
Bytes Lasting(const SESSION_RECORD& record)
{
    Bytes bytes = record.bytes;
    const uint32_t ulFirst = LoadLe<uint32_t>(bytes, 0);
    if (record.stHead.enKind == TAP_KIND::PORT_EVENT && ulFirst == static_cast<uint32_t>(TAP_EVENT::CHANNEL))
        Blank(bytes, EVENT_NAME, EVENT_NAME_SIZE);
    if (record.stHead.enKind == TAP_KIND::AGENT_TO_CLIENT && ulFirst == AGENT_CMD_CHANNEL_QUERY)
        for (size_t szRow = DIAG_PACKET_ACK_STRU::SIZE; szRow < bytes.size(); szRow += SERAIL_CHANNEL_STATUS::SIZE)
            Blank(bytes, szRow, TABLE_NAME_SIZE);
    return bytes;
}

STREAMS StreamsOf(const std::vector<SESSION_RECORD>& session)
{
    STREAMS streams;
    for (const SESSION_RECORD& record : session) {
        const TAP_RECORD& stHead = record.stHead;
        const bool bClient = stHead.enKind == TAP_KIND::CLIENT_TO_AGENT || stHead.enKind == TAP_KIND::AGENT_TO_CLIENT;
        // A client is on one channel, but its UE may change.
        const unsigned int ulUe = bClient ? TAP_NO_UE : stHead.ucUe;
        const uint32_t ulFurther = bClient                             ? stHead.ulClient
                                   : stHead.enKind == TAP_KIND::STATUS ? record.bytes.at(0)
                                                                       : 0;
        if (!IsAside(record))
            streams[{stHead.enKind, ulUe, stHead.ucChannel, ulFurther}].push_back(record);
    }
    return streams;
}

std::string StreamName(const STREAM& stream)
{
    static constexpr const char* KINDS[] = {"",          "from UE", "to UE",  "from client",
                                            "to client", "status",  "events", "configuration"};
    const auto& [enKind, ulUe, ulChannel, ulFurther] = stream;
    return std::string(KINDS[static_cast<size_t>(enKind)]) + ", UE " + std::to_string(ulUe) + ", channel " +
           std::to_string(ulChannel) + ", client or datagram " + std::to_string(ulFurther);
}

bool IsSameHead(const TAP_RECORD& one, const TAP_RECORD& other)
{
    return one.ucUe == other.ucUe && one.ucFlags == other.ucFlags && one.ulPort == other.ulPort &&
           one.ulClient == other.ulClient;
}

std::string RecordText(const SESSION_RECORD& record)
{
    std::ostringstream text;
    text << "UE " << +record.stHead.ucUe << " flags " << +record.stHead.ucFlags << " port " << record.stHead.ulPort
         << " client " << record.stHead.ulClient << ", ";
    PrintTo(record.bytes, &text);
    return text.str();
}

std::string StreamDifference(TAP_KIND enKind, const std::vector<SESSION_RECORD>& recorded,
                             const std::vector<SESSION_RECORD>& replayed)
{
    for (size_t i = 0; i < std::min(recorded.size(), replayed.size()); ++i)
        if (!IsSameHead(recorded[i].stHead, replayed[i].stHead) || Lasting(recorded[i]) != Lasting(replayed[i]))
            return "record " + std::to_string(i) + "\n  was " + RecordText(recorded[i]) + "\n  is  " +
                   RecordText(replayed[i]);
    if (recorded.size() > replayed.size())
        return "missing: " + RecordText(recorded[replayed.size()]);
    if (recorded.size() < replayed.size() && !IsTail(enKind))
        return "not in the session: " + RecordText(replayed[recorded.size()]);
    return "";
}
} // namespace

std::vector<SESSION_RECORD> ReadSession(const std::string& strPath)
{
    std::string strError;
    auto pSource = OpenCaptureSource(strPath, strError);
    if (!pSource)
        return {};
    std::vector<SESSION_RECORD> session;
    CPcapngReader reader(std::move(pSource));
    CAPTURED_RECORD stRecord;
    while (reader.Next(stRecord) == CPcapngReader::RESULT::RECORD)
        session.push_back({stRecord.stRecord, Bytes(stRecord.bytes)});
    return reader.Error().empty() ? session : std::vector<SESSION_RECORD>{};
}

void WriteSession(const std::string& strPath, const std::vector<SESSION_RECORD>& session)
{
    Bytes file;
    CPcapngWriter writer(file);
    writer.Begin({}, "test");
    for (const SESSION_RECORD& record : session)
        writer.Record(record.stHead, record.bytes);
    std::ofstream(strPath, std::ios::binary)
        .write(reinterpret_cast<const char*>(file.data()), static_cast<std::streamsize>(file.size()));
}

std::string SessionConfig(const std::vector<SESSION_RECORD>& session)
{
    for (const SESSION_RECORD& record : session)
        if (record.stHead.enKind == TAP_KIND::CONFIGURATION)
            return {record.bytes.begin(), record.bytes.end()};
    return "";
}

std::string SessionDifference(const std::vector<SESSION_RECORD>& recorded, const std::vector<SESSION_RECORD>& replayed)
{
    const STREAMS was = StreamsOf(recorded);
    STREAMS is = StreamsOf(replayed);
    for (const auto& [stream, records] : was) {
        const std::string strDifference = StreamDifference(std::get<0>(stream), records, is[stream]);
        if (!strDifference.empty())
            return StreamName(stream) + ": " + strDifference;
    }
    for (const auto& [stream, records] : is)
        if (!was.contains(stream) && !IsTail(std::get<0>(stream)))
            return StreamName(stream) + ": not in the session";
    return "";
}
