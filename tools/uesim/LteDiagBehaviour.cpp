#include "uesim/LteDiagBehaviour.h"

#include "common/LteDiagInitCmd.h"
#include "common/UeConnectionAck.h"
#include "data/DiagPacket.h"

#include <algorithm>

namespace
{
constexpr uint32_t CMD_TYPE_DPI = 5;

// DIAG_OSA_HEADER and what an ack adds.
constexpr size_t OSA_SENDER_PID = 4;
constexpr size_t OSA_RECEIVER_PID = 12;
constexpr size_t OSA_LEN_FIELD = 16;
constexpr size_t OSA_CMD_LOW = 36;
constexpr size_t OSA_SIZE = 40;
constexpr size_t OSA_ACK_SIZE = OSA_SIZE + 4; // and the result word

constexpr uint32_t NV_LAST_ID = 0xFFFF; // items above don't exist
constexpr size_t NV_ITEM_SIZE = 16;     // of an item that was never written
constexpr uint32_t NV_RESULT_UNKNOWN = 7;
constexpr size_t NV_DATA = 8; // offset in a write: id, length, data

std::vector<unsigned char> Words(std::initializer_list<uint32_t> words, ByteView rest = {})
{
    std::vector<unsigned char> bytes(4 * words.size(), 0);
    CByteWriter writer(bytes);
    for (const uint32_t ulWord : words)
        writer.Field(ulWord);
    bytes.insert(bytes.end(), rest.begin(), rest.end());
    return bytes;
}

bool IsDpiMessage(const LTE_REQUEST& stReq)
{
    return stReq.ulCmdType == CMD_TYPE_DPI && stReq.data.size() >= OSA_SIZE &&
           LoadLe<uint32_t>(stReq.data, OSA_CMD_LOW) == (stReq.ulCmdId & 0xFFFF);
}
} // namespace

const CLteDiagBehaviour::ANSWER_ROW CLteDiagBehaviour::c_astAnswer[] = {
    {UE_CMD_HOST_CONNECT, "host connect", &CLteDiagBehaviour::AnswerHostConnect},
    {UE_CMD_TIME_STAMP, "time stamp", &CLteDiagBehaviour::AnswerTimeStamp},
    {UE_CMD_AIR_SWITCH, "air switch", &CLteDiagBehaviour::AnswerResult},
    {UE_CMD_EVENT_SWITCH, "event switch", &CLteDiagBehaviour::AnswerResult},
    {UE_CMD_USER_PLANE_SWITCH, "user plane switch", &CLteDiagBehaviour::AnswerResult},
    {UE_CMD_NV_READ, "nv read", &CLteDiagBehaviour::AnswerNvRead},
    {UE_CMD_NV_WRITE, "nv write", &CLteDiagBehaviour::AnswerNvWrite},
};

CLteDiagBehaviour::CLteDiagBehaviour(CSimUe& ue, std::function<void()> pfnSwitchesDone)
    : m_ue(ue), m_layout(ue.Layout()), m_pfnSwitchesDone(std::move(pfnSwitchesDone))
{
}

bool CLteDiagBehaviour::OnPacket(enSerialType enPort, ByteView packet)
{
    if (enPort != SERIAL_TYPE_DIAG)
        return false;
    const auto stReq = m_layout.ReadRequest(packet);
    if (!stReq)
        return false;
    const ANSWER_ROW stRow = RowFor(*stReq);
    m_ue.Log().Event(m_ue.Name(), "diag %s 0x%08x type %u, %zu bytes%s", stRow.pszName, stReq->ulCmdId,
                     stReq->ulCmdType, stReq->data.size(), stReq->bLengthFits ? "" : ", length field wrong");
    ++m_ue.Counter("lte requests");
    const Bytes payload = (this->*stRow.pfnAnswer)(*stReq);
    if (m_ue.Options().silent.contains(stReq->ulCmdId))
        return true;
    const uint32_t ulAckId = stReq->ulCmdId == UE_CMD_HOST_CONNECT ? m_ue.Options().ulConnectId : stReq->ulCmdId;
    Bytes ack = m_layout.BuildAck({ulAckId, stReq->ulCmdType, 0, m_ue.Clock()}, payload);
    if (stReq->ulCmdId == UE_CMD_HOST_CONNECT && m_ue.Options().ulConnectDelay > 0) {
        m_confirmation = std::move(ack);
        m_confirmationDue = SimClock::now() + std::chrono::milliseconds(m_ue.Options().ulConnectDelay);
        return true;
    }
    m_ue.Send(SERIAL_TYPE_DIAG, ack);
    return true;
}

SimTime CLteDiagBehaviour::OnTick(SimTime now)
{
    if (now >= m_confirmationDue) {
        m_ue.Send(SERIAL_TYPE_DIAG, m_confirmation);
        m_confirmationDue = NEVER;
    }
    return m_confirmationDue;
}

void CLteDiagBehaviour::OnPortClosed(enSerialType enPort)
{
    if (enPort != SERIAL_TYPE_DIAG)
        return;
    m_switches.clear();
    m_confirmationDue = NEVER;
}

CLteDiagBehaviour::ANSWER_ROW CLteDiagBehaviour::RowFor(const LTE_REQUEST& stReq) const
{
    const auto pRow = std::ranges::find(c_astAnswer, stReq.ulCmdId, &ANSWER_ROW::ulCmdId);
    if (pRow != std::end(c_astAnswer))
        return *pRow;
    if (IsLteDiagInitCmd(stReq.ulCmdId))
        return {stReq.ulCmdId, "report switch", &CLteDiagBehaviour::AnswerReportSwitch};
    if (IsDpiMessage(stReq))
        return {stReq.ulCmdId, "dpi message", &CLteDiagBehaviour::AnswerDpi};
    return {stReq.ulCmdId, "command", &CLteDiagBehaviour::AnswerEcho};
}

uint32_t CLteDiagBehaviour::ResultOf(uint32_t ulCmdId) const
{
    const auto pRow = m_ue.Options().fail.find(ulCmdId);
    return pRow != m_ue.Options().fail.end() ? pRow->second : 0;
}

CLteDiagBehaviour::Bytes CLteDiagBehaviour::AnswerHostConnect(const LTE_REQUEST&)
{
    using Ack = ADE_UE_CONNECTION_ACK_STRU;
    Bytes payload(m_ue.Options().ulConnectPayload, 0);
    const ByteSpan bytes(payload);
    StoreText(Slice(bytes, Ack::IMEI, Ack::IMEI_SIZE), m_ue.Identity().strImei);
    for (uint32_t i = 0; i < 3; ++i)
        StoreLe<uint32_t>(bytes, Ack::IDENTITY + 4 * i, 0x00010002 + 0x01000100 * i + m_ue.Index());
    for (size_t i = 0; i < m_ue.Identity().ausVersion.size(); ++i)
        StoreLe<uint16_t>(bytes, Ack::VERSION + 2 * i, m_ue.Identity().ausVersion[i]);
    StoreLe<uint32_t>(bytes, Ack::EXTRA, 0x20260001);
    return payload;
}

CLteDiagBehaviour::Bytes CLteDiagBehaviour::AnswerTimeStamp(const LTE_REQUEST&)
{
    const uint64_t ullClock = m_ue.Clock();
    return Words({static_cast<uint32_t>(ullClock), static_cast<uint32_t>(ullClock >> 32)});
}

CLteDiagBehaviour::Bytes CLteDiagBehaviour::AnswerResult(const LTE_REQUEST& stReq)
{
    return Words({ResultOf(stReq.ulCmdId)});
}

CLteDiagBehaviour::Bytes CLteDiagBehaviour::AnswerNvRead(const LTE_REQUEST& stReq)
{
    const uint32_t ulNvId = LoadLe<uint32_t>(stReq.data, 0);
    const uint32_t ulResult = ulNvId > NV_LAST_ID ? NV_RESULT_UNKNOWN : ResultOf(stReq.ulCmdId);
    if (ulResult != 0)
        return Words({ulResult, ulNvId, 0});
    const Bytes& item = NvItem(ulNvId);
    return Words({0, ulNvId, static_cast<uint32_t>(item.size())}, item);
}

CLteDiagBehaviour::Bytes CLteDiagBehaviour::AnswerNvWrite(const LTE_REQUEST& stReq)
{
    const uint32_t ulNvId = LoadLe<uint32_t>(stReq.data, 0);
    const ByteView value = Slice(stReq.data, NV_DATA, LoadLe<uint32_t>(stReq.data, 4));
    const uint32_t ulResult = ulNvId > NV_LAST_ID ? NV_RESULT_UNKNOWN : ResultOf(stReq.ulCmdId);
    if (ulResult == 0)
        NvItem(ulNvId).assign(value.begin(), value.end());
    return Words({ulResult, ulNvId});
}

/// An item that was never written holds its id's low byte and counts up from there.
CLteDiagBehaviour::Bytes& CLteDiagBehaviour::NvItem(uint32_t ulNvId)
{
    const auto [pItem, bNew] = m_nvItems.try_emplace(ulNvId, NV_ITEM_SIZE);
    if (bNew)
        for (size_t i = 0; i < NV_ITEM_SIZE; ++i)
            pItem->second[i] = static_cast<unsigned char>(ulNvId + i);
    return pItem->second;
}

CLteDiagBehaviour::Bytes CLteDiagBehaviour::AnswerReportSwitch(const LTE_REQUEST& stReq)
{
    const bool bNew = m_switches.insert(stReq.ulCmdId).second;
    if (bNew && m_switches.size() == LTE_INIT_DSPSWITCH_COUNT) {
        m_ue.Log().Event(m_ue.Name(), "diag all report switches are on");
        m_pfnSwitchesDone();
    }
    return AnswerResult(stReq);
}

/// The head of the request with the PIDs exchanged, the result word, and the parameters back.
CLteDiagBehaviour::Bytes CLteDiagBehaviour::AnswerDpi(const LTE_REQUEST& stReq)
{
    Bytes payload(OSA_ACK_SIZE, 0);
    std::ranges::copy(Slice(stReq.data, 0, OSA_SIZE), payload.begin());
    StoreLe<uint32_t>(payload, OSA_SENDER_PID, LoadLe<uint32_t>(stReq.data, OSA_RECEIVER_PID));
    StoreLe<uint32_t>(payload, OSA_RECEIVER_PID, LoadLe<uint32_t>(stReq.data, OSA_SENDER_PID));
    StoreLe<uint32_t>(payload, OSA_LEN_FIELD, LoadLe<uint32_t>(stReq.data, OSA_LEN_FIELD) + 4);
    StoreLe<uint32_t>(payload, OSA_SIZE, ResultOf(stReq.ulCmdId));
    const ByteView params = Slice(stReq.data, OSA_SIZE);
    payload.insert(payload.end(), params.begin(), params.end());
    return payload;
}

/// The agent cuts the result word off plain commands, so that a client finds its own parameters in the ack.
CLteDiagBehaviour::Bytes CLteDiagBehaviour::AnswerEcho(const LTE_REQUEST& stReq)
{
    if (IdClass(stReq.ulCmdId) == 1)
        return Words({ResultOf(stReq.ulCmdId)}, stReq.data);
    return {stReq.data.begin(), stReq.data.end()};
}
