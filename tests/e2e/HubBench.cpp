#include "e2e/HubBench.h"

#include "fleet/FleetBlocks.h"
#include "fleet/FleetTime.h"

#include <array>

namespace
{
constexpr uint64_t SECOND = 1'000'000'000;
constexpr size_t BLOCKS_A_MESSAGE = 4;

struct PLACED
{
    uint64_t ullOffset = 0;
    ByteView block;
};
/// The blocks of each lane, with where they lie. SegmentOf's interfaces are the agent, UE 3 and UE 5 in this order.
std::map<FLEET_LANE, std::vector<PLACED>> Split(const Bytes& segment)
{
    const std::array<FLEET_LANE, 3> lanes = {FLEET_AGENT_LANE, FLEET_LANE{"ue3", "lte-data"}, FLEET_LANE{"ue5", "at"}};
    std::map<FLEET_LANE, std::vector<PLACED>> split;
    size_t szInterfaces = 0;
    ByteView rest(segment);
    for (ByteView block = TakeBlock(rest); !block.empty(); block = TakeBlock(rest)) {
        const uint32_t ulType = LoadLe<uint32_t>(block, 0);
        size_t szLane = 0;
        if (ulType == PCAPNG_INTERFACE)
            szLane = szInterfaces++;
        if (ulType == PCAPNG_PACKET)
            szLane = LoadLe<uint32_t>(block, 8);
        split[lanes.at(szLane)].push_back({static_cast<uint64_t>(block.data() - segment.data()), block});
    }
    return split;
}
} // namespace

Bytes SegmentOf(uint64_t ullStart, unsigned int ulRecords)
{
    Bytes out;
    CPcapngWriter writer(out);
    writer.Begin({"lab7", 1, 2, ullStart}, "test");
    writer.Record({.enKind = TAP_KIND::CONFIGURATION, .ucFlags = TAP_REPLAYED, .ullTime = 1}, AsBytes("config"));
    for (unsigned int i = 0; i < ulRecords; ++i) {
        const bool bAt = i % 3 == 2;
        writer.Record({.enKind = TAP_KIND::UE_TO_AGENT,
                       .ucUe = static_cast<uint8_t>(bAt ? 5 : 3),
                       .ucChannel = static_cast<uint8_t>(bAt ? 4 : 1),
                       .ullNumber = i,
                       .ullTime = ullStart + i * SECOND},
                      AsBytes("12345678"));
    }
    writer.End(ullStart + ulRecords * SECOND);
    return out;
}

std::string SegmentName(uint64_t ullStart)
{
    std::string strTime;
    for (const char c : TimeText(ullStart)) // 2023-11-14T22:13:20Z
        if (c != '-' && c != ':' && c != 'Z')
            strTime += c;
    return "vex_" + strTime + ".000Z_0000000001";
}

CHubBench::CHubBench(HUB_OPTIONS stOptions, std::string strBench, std::string strEpoch)
    : m_strBench(std::move(strBench)), m_strEpoch(std::move(strEpoch))
{
    stOptions.strInboxPrefix = InboxPrefix(m_strBench);
    std::string strError;
    m_pHub = CHub::Open(stOptions, {}, CHub::PATIENCE::ONCE, strError);
    jsCtx* pJs = nullptr;
    if (m_pHub)
        (void)natsConnection_JetStream(&pJs, m_pHub->Get(), nullptr);
    m_pJs.reset(pJs);
}

natsStatus CHubBench::Publish(const FLEET_LANE& lane, const FLEET_MESSAGE& stMessage)
{
    const auto bytes = EncodeMessage(stMessage);
    const FLEET_SUBJECT stSubject{m_strBench, m_strEpoch, lane};
    const std::string strId = MessageId(stSubject, stMessage.strSegment, stMessage.vecRuns.front().ullOffset);
    jsPubOptions stOptions;
    (void)jsPubOptions_Init(&stOptions);
    stOptions.MsgId = strId.c_str();
    stOptions.ExpectLastSubjectSeq = m_mapLast[lane];
    stOptions.MaxWait = 2000;
    jsPubAck* pAck = nullptr;
    const natsStatus enStatus = js_Publish(&pAck, m_pJs.get(), stSubject.Text().c_str(), bytes.data(),
                                           static_cast<int>(bytes.size()), &stOptions, nullptr);
    if (enStatus == NATS_OK)
        m_mapLast[lane] = pAck->Sequence;
    jsPubAck_Destroy(pAck);
    return enStatus;
}

natsStatus CHubBench::Send(const std::string& strSegment, const Bytes& segment, size_t szMost)
{
    for (const auto& [lane, blocks] : Split(segment)) {
        const size_t szEnd = std::min(szMost, blocks.size());
        for (size_t szAt = 0; szAt < szEnd; szAt += BLOCKS_A_MESSAGE) {
            FLEET_MESSAGE stMessage;
            Bytes bytes;
            stMessage.strSegment = strSegment;
            for (size_t i = szAt; i < std::min(szAt + BLOCKS_A_MESSAGE, szEnd); ++i) {
                stMessage.vecRuns.push_back({blocks[i].ullOffset, static_cast<uint32_t>(blocks[i].block.size())});
                bytes.insert(bytes.end(), blocks[i].block.begin(), blocks[i].block.end());
            }
            stMessage.bytes = bytes;
            if (const natsStatus enStatus = Publish(lane, stMessage); enStatus != NATS_OK)
                return enStatus;
        }
    }
    return NATS_OK;
}

natsStatus CHubBench::SendLoss(const std::string& strSegment, uint64_t ullOffset)
{
    FLEET_MESSAGE stMessage;
    stMessage.enKind = FLEET_KIND::LOSS;
    stMessage.strSegment = strSegment;
    stMessage.vecRuns = {{ullOffset, 0}};
    return Publish(FLEET_AGENT_LANE, stMessage);
}

natsStatus CHubBench::PutState(const std::string& strJson)
{
    jsPubAck* pAck = nullptr;
    const natsStatus enStatus = js_Publish(&pAck, m_pJs.get(), StateSubject(m_strBench).c_str(), strJson.data(),
                                           static_cast<int>(strJson.size()), nullptr, nullptr);
    jsPubAck_Destroy(pAck);
    return enStatus;
}

natsStatus CHubBench::PublishAs(const std::string& strOther)
{
    jsPubOptions stOptions;
    (void)jsPubOptions_Init(&stOptions);
    stOptions.MaxWait = 500;
    return js_Publish(nullptr, m_pJs.get(), FLEET_SUBJECT{strOther, m_strEpoch, {}}.Text().c_str(), "x", 1, &stOptions,
                      nullptr);
}
