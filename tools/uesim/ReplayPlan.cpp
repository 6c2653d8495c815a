#include "uesim/ReplayPlan.h"

#include "common/Record.h"
#include "tap/TapEvents.h"

#include <algorithm>

namespace
{
// The agent tells of a port when it has settled, so the device monitor told of it that much earlier.
constexpr uint64_t PORT_SETTLE_NS = 1'000'000'000;

enSerialType PortOf(const TAP_RECORD& stHead)
{
    return CHANNEL_TABLE[stHead.ucChannel].enPort;
}

size_t PlaceOf(enSerialType enPort)
{
    return static_cast<size_t>(enPort);
}
} // namespace

struct CReplayPlan::STATE
{
    std::array<bool, SERIALNUM> attached{};
    CAtCommands atCommands;
    std::optional<size_t> atCommand;                      // the last one's request
    std::map<std::string, std::vector<size_t>> open = {}; // requests without an answer, by name
};

CReplayPlan::CReplayPlan() : m_names(*m_config.GetFilterCfg())
{
    m_config.Init();
}

CReplayPlan::~CReplayPlan() = default;

bool CReplayPlan::Load(const std::string& strPath, std::string& strError)
{
    const auto add = [this](const CAPTURED_RECORD& stRecord) { Add(stRecord); };
    const CPcapngReader::RESULT enResult = ReadCaptureFile(strPath, add, strError);
    m_bCutFile = enResult == CPcapngReader::RESULT::CUT;
    if (enResult == CPcapngReader::RESULT::BAD)
        return false;
    if (!m_bConfigured)
        strError = strPath + ": no configuration record, so the packets can't be read";
    else if (m_ues.empty())
        strError = strPath + ": no modem in this capture";
    return strError.empty();
}

void CReplayPlan::Add(const CAPTURED_RECORD& stRecord)
{
    const TAP_RECORD& stHead = stRecord.stRecord;
    m_start = m_start.value_or(stHead.ullTime);
    m_ullEnd = std::max(m_ullEnd, TimeOf(stHead));
    m_ullLost += stRecord.ullLost;
    m_ullCut += (stHead.ucFlags & TAP_CUT) != 0 ? 1 : 0;
    if (stHead.enKind == TAP_KIND::CONFIGURATION && !m_bConfigured) {
        std::string strText(stRecord.bytes.begin(), stRecord.bytes.end());
        m_bConfigured = m_config.ParseConfig(strText);
        return;
    }
    m_bPicture = m_bPicture && (stHead.ucFlags & TAP_REPLAYED) != 0;
    if (stHead.ucUe >= MAXUENUM || stHead.ucChannel >= CHANNELNUM)
        return;
    if (stHead.enKind == TAP_KIND::PORT_EVENT)
        OnEvent(stHead, stRecord.bytes);
    else if (stHead.enKind == TAP_KIND::AGENT_TO_UE)
        OnToUe(stHead, stRecord.bytes);
    else if (stHead.enKind == TAP_KIND::UE_TO_AGENT)
        OnFromUe(stHead, stRecord.bytes);
}

uint64_t CReplayPlan::TimeOf(const TAP_RECORD& stHead) const
{
    return stHead.ullTime - std::min(stHead.ullTime, m_start.value_or(0)); // a clock may have been set back
}

REPLAY_UE& CReplayPlan::Ue(const TAP_RECORD& stHead)
{
    REPLAY_UE& stUe = m_ues[stHead.ucUe];
    stUe.ulSlot = stHead.ucUe;
    return stUe;
}

/// A packet on a port that no event told of: the port was there all the time.
CReplayPlan::STATE& CReplayPlan::State(const TAP_RECORD& stHead)
{
    STATE& stState = m_states[stHead.ucUe];
    const enSerialType enPort = PortOf(stHead);
    REPLAY_UE& stUe = Ue(stHead);
    if (!stUe.ports[PlaceOf(enPort)]) {
        stUe.ports[PlaceOf(enPort)] = stHead.ulPort;
        stUe.present[PlaceOf(enPort)] = stState.attached[PlaceOf(enPort)] = true;
    }
    return stState;
}

void CReplayPlan::OnEvent(const TAP_RECORD& stHead, ByteView bytes)
{
    switch (static_cast<TAP_EVENT>(LoadLe<uint32_t>(bytes, 0))) {
    case TAP_EVENT::CHANNEL:
        OnChannel(stHead, bytes);
        break;
    case TAP_EVENT::UE:
        OnUe(stHead, bytes);
        break;
    case TAP_EVENT::CLIENT:
    case TAP_EVENT::SINCE:
    case TAP_EVENT::LOG:
        break;
    }
}

void CReplayPlan::OnChannel(const TAP_RECORD& stHead, ByteView bytes)
{
    TAP_CHANNEL_EVENT stEvent;
    const enSerialType enPort = PortOf(stHead);
    if (!DecodeRecord(bytes, stEvent) || ChannelsOf(enPort).front().enChannel != stHead.ucChannel)
        return;
    const bool bArrives = stEvent.ucAttached != 0;
    STATE& stState = m_states[stHead.ucUe];
    if (bArrives == stState.attached[PlaceOf(enPort)])
        return;
    stState.attached[PlaceOf(enPort)] = bArrives;
    REPLAY_UE& stUe = Ue(stHead);
    const uint32_t ulNumber = bArrives ? stHead.ulPort : stUe.ports[PlaceOf(enPort)].value_or(0);
    stUe.ports[PlaceOf(enPort)] = stUe.ports[PlaceOf(enPort)].value_or(ulNumber);
    if (bArrives)
        stUe.strGroup = stEvent.strGroup;
    if (m_bPicture) {
        stUe.present[PlaceOf(enPort)] = bArrives;
        return;
    }
    const uint64_t ullTime = TimeOf(stHead);
    stUe.events.push_back({enPort, bArrives, ulNumber, bArrives ? ullTime - std::min(ullTime, PORT_SETTLE_NS) : ullTime,
                           stUe.steps.size()});
}

void CReplayPlan::OnUe(const TAP_RECORD& stHead, ByteView bytes)
{
    TAP_UE_EVENT stEvent;
    if (!m_bPicture || !DecodeRecord(bytes, stEvent))
        return;
    REPLAY_UE& stUe = Ue(stHead);
    stUe.bConfirmed = true;
    stUe.strImei = stEvent.strImei;
    stUe.strVersion = stEvent.strVersion;
}

void CReplayPlan::OnToUe(const TAP_RECORD& stHead, ByteView bytes)
{
    const enSerialType enPort = PortOf(stHead);
    STATE& stState = State(stHead);
    REPLAY_UE& stUe = Ue(stHead);
    std::vector<std::string> names;
    if (enPort == SERIAL_TYPE_AT)
        names = stState.atCommands.Feed(bytes);
    else if (std::string strName = m_names.Request(enPort, bytes); !strName.empty())
        names.push_back(std::move(strName));
    for (std::string& strName : names) {
        const size_t szRequest = stUe.requests.size();
        if (enPort == SERIAL_TYPE_AT)
            stState.atCommand = szRequest;
        else
            stState.open[strName].push_back(szRequest);
        stUe.requests.push_back({enPort, std::move(strName), TimeOf(stHead), stUe.steps.size()});
    }
}

void CReplayPlan::OnFromUe(const TAP_RECORD& stHead, ByteView bytes)
{
    const enSerialType enPort = PortOf(stHead);
    const STATE& stState = State(stHead);
    REPLAY_UE& stUe = Ue(stHead);
    REPLAY_STEP stStep{enPort, TimeOf(stHead), {bytes.begin(), bytes.end()}, Answered(stState, stUe, enPort, bytes)};
    for (const size_t szRequest : stStep.requests) {
        REPLAY_REQUEST& stRequest = stUe.requests[szRequest];
        stRequest.bAnswered = true;
        std::erase(m_states[stHead.ucUe].open[stRequest.strName], szRequest);
    }
    stUe.steps.push_back(std::move(stStep));
}

std::vector<size_t> CReplayPlan::Answered(const STATE& stState, REPLAY_UE& stUe, enSerialType enPort, ByteView bytes)
{
    std::vector<size_t> requests;
    if (enPort == SERIAL_TYPE_AT) {
        if (stState.atCommand)
            requests.push_back(*stState.atCommand);
        return requests;
    }
    for (const std::string& strName : m_names.AnsweredBy(enPort, bytes)) {
        const auto pOpen = stState.open.find(strName);
        if (pOpen == stState.open.end())
            continue;
        const auto isFree = [&](size_t szRequest) {
            return stUe.requests[szRequest].enPort == enPort &&
                   std::ranges::find(requests, szRequest) == requests.end();
        };
        if (const auto pFirst = std::ranges::find_if(pOpen->second, isFree); pFirst != pOpen->second.end())
            requests.push_back(*pFirst);
    }
    return requests;
}
