#include "agent/Client.h"

#include "agent/AgentTap.h"
#include "common/Debug.h"
#include "common/MsgBuf.h"
#include "common/UnixTime.h"
#include "data/DiagPacket.h"
#include "data/DpAt.h"
#include "data/DpGuCmd.h"
#include "data/DpGuData.h"
#include "data/DpLteData.h"
#include "data/DpLteDiag.h"

#include <algorithm>
#include <arpa/inet.h>
#include <poll.h>

namespace
{
constexpr size_t FRAME_HEAD_LEN = LEAD_LEN + DIAG_PACKET_REQ_STRU::SIZE;
constexpr size_t LEAD_PAIR_RESTARTS = 7; // a pair of lead bytes that ends this early starts the frame anew
constexpr size_t AT_RAW_MIN = 3;         // a shorter read is no text

const char* ChannelLabel(enChannelType enType)
{
    const auto szType = static_cast<size_t>(enType);
    return szType < strChannelType.size() ? strChannelType[szType] : "";
}

uint32_t NextNumber()
{
    static std::atomic<uint32_t> s_ulNumber = 0;
    return ++s_ulNumber;
}
} // namespace

std::unique_ptr<CDataProcessor> CreateDataProcessor(enChannelType enType, IBindings* pBindings, IClientPort* pClient)
{
    switch (enType) {
    case CHANNEL_LTE_DIAG:
        return std::make_unique<CDataProcessorLteDiag>(pBindings, pClient);
    case CHANNEL_LTE_DATA:
        return std::make_unique<CDataProcessorLteData>(pBindings, pClient);
    case CHANNEL_GU_CMD:
        return std::make_unique<CDataProcessorGuCmd>(pBindings, pClient);
    case CHANNEL_GU_DATA:
        return std::make_unique<CDataProcessorGuData>(pBindings, pClient);
    case CHANNEL_AT:
        return std::make_unique<CDataProcessorAt>(pBindings, pClient);
    }
    return nullptr;
}

CClient::CClient(int nSocket, enChannelType enType, IBindings* pBindings)
    : m_pBindings(pBindings),
      m_pProcessor(CreateDataProcessor(enType, pBindings, this)),
      m_Socket(nSocket),
      m_enType(enType),
      m_ulNumber(NextNumber()),
      m_ullConnected(UnixTimeNs()),
      m_Out(nSocket, ChannelLabel(enType))
{
}

CClient::~CClient()
{
    TapClient(*this, false);
    {
        const xtl::MutexGuard guard(m_SendMutex);
        m_Out.TellCount();
    }
    m_Socket.Reset();
    m_pProcessor.reset();
    CDebug::Instance()->PrintInfo("Delete Client(com %d) %s", static_cast<int>(m_ulBindPort), ChannelLabel(m_enType));
}

void CClient::OnClientData(ByteView data)
{
    if (m_enType == CHANNEL_AT) {
        OnAtData(data); // no pauses there
        return;
    }
    if (!m_vecKept.empty()) {
        m_vecKept.insert(m_vecKept.end(), data.begin(), data.end());
        return;
    }
    while (!data.empty()) {
        data = CollectFrame(data);
        if (!data.empty() && m_pPacedLoad && MustWait()) {
            m_vecKept.assign(data.begin(), data.end());
            return;
        }
    }
}

void CClient::OnKeptData()
{
    const std::vector<unsigned char> vecKept = std::exchange(m_vecKept, {});
    OnClientData(vecKept);
}

/// Takes bytes up to the end of one frame, and gives the rest.
ByteView CClient::CollectFrame(ByteView data)
{
    const TAKEN_FRAME stTaken = GetDiagReqPacket(data);
    if (!stTaken.frame.empty() && m_pProcessor) {
        TapFromClient(*this, stTaken.frame, false);
        CLineLoad* const pLoad = Load();
        const uint64_t ullBefore = pLoad ? pLoad->PacedPosted() : 0;
        {
            const xtl::MutexGuard guard(m_ProcessorMutex);
            m_pProcessor->ProcessClientData(stTaken.frame);
        }
        const uint64_t ullAfter = pLoad ? pLoad->PacedPosted() : 0;
        m_pPacedLoad = ullAfter == ullBefore ? m_pPacedLoad : pLoad;
        m_ullPacedUntil = ullAfter == ullBefore ? m_ullPacedUntil : ullAfter;
    }
    return data.subspan(stTaken.szTaken);
}

/// What is on its way to the line of the client's UE; null without a binding.
CLineLoad* CClient::Load() const
{
    const UE_INDEX ulUeIdx = m_pBindings ? m_pBindings->GetBindedUE(this) : UE_NONE;
    return ulUeIdx == UE_NONE ? nullptr : CMsgBuf::Instance()->LoadToUe(ulUeIdx, m_enType);
}

bool CClient::IsBlocked() const
{
    const CLineLoad* const pLoad = Load();
    const bool bPaused = pLoad && pLoad == m_pPacedLoad && pLoad->PacedDone() < m_ullPacedUntil;
    return (bPaused && !m_bSkipsPauses) || (pLoad && !pLoad->HasRoom());
}

bool CClient::HasEnded() const
{
    pollfd stPoll{m_Socket.Get(), POLLRDHUP, 0};
    return poll(&stPoll, 1, 0) == 1;
}

bool CClient::MustWait()
{
    m_bHeldBack = IsBlocked();
    if (m_bHeldBack) {
        if (CLineLoad* const pLoad = Load())
            pLoad->Await();
        m_bHeldBack = IsBlocked(); // what changed before the call wakes nobody
    }
    if (!m_bHeldBack)
        m_pPacedLoad = nullptr;
    return m_bHeldBack;
}

/// Text goes on in pieces that end where a frame starts, and with the read: a NUL ends the piece that it is in, and
/// no other.
void CClient::OnAtData(ByteView data)
{
    const bool bIsText = data.size() >= AT_RAW_MIN;
    std::vector<unsigned char> text;
    text.reserve(data.size() + CAtFrameSearch::START_LEN);
    if (!data.empty() && m_nReqLen == 0)
        m_AtSearch.Release(data.front(), text);
    ProcessRawText(text); // of earlier reads
    while (!data.empty()) {
        if (m_nReqLen > 0) {
            const ByteView room = Slice(data, 0, REQ_BUF_LEN - m_nReqLen); // a frame that fills it is given up
            data = data.subspan(room.size() - CollectFrame(room).size());
            continue;
        }
        const ByteView start = m_AtSearch.Take(data.front(), bIsText, text);
        data = data.subspan(1);
        if (start.empty())
            continue;
        ProcessRawText(text);
        (void)CollectFrame(start); // a frame is longer: all of it is taken
    }
    ProcessRawText(text);
}

/// Hands the text to the processor and clears it.
void CClient::ProcessRawText(std::vector<unsigned char>& text)
{
    if (!text.empty() && m_pProcessor) {
        TapFromClient(*this, text, true);
        m_pProcessor->ProcessClientData(text);
    }
    text.clear();
}

CClient::TAKEN_FRAME CClient::GetDiagReqPacket(ByteView data)
{
    for (size_t i = 0; i < data.size(); ++i) {
        TakeByte(data[i]);
        if (!IsFrameComplete())
            continue;
        const ByteView frame = Slice(ByteView(m_aucReqBuf), LEAD_LEN, m_nReqLen - LEAD_LEN);
        m_nReqLen = 0;
        return {i + 1, frame};
    }
    return {data.size(), {}};
}

/// Looks for the pair of lead bytes, then collects. A frame ends by its length, two bytes before a pair behind it
/// could end it, so such a pair is taken for the start of what follows; two pairs in a row count as one.
void CClient::TakeByte(unsigned char ucByte)
{
    if (m_nReqLen < LEAD_LEN) {
        m_aucReqBuf[m_nReqLen] = ucByte;
        m_nReqLen = ucByte == LEAD_BYTE ? m_nReqLen + 1 : 0;
        return;
    }
    m_aucReqBuf[m_nReqLen++] = ucByte;
    const bool bLeadPair = ucByte == LEAD_BYTE && m_aucReqBuf[m_nReqLen - 2] == LEAD_BYTE;
    if (bLeadPair && m_nReqLen <= LEAD_PAIR_RESTARTS)
        m_nReqLen = LEAD_LEN;
    if (m_nReqLen >= REQ_BUF_LEN) {
        CDebug::Instance()->PrintWarn("Socket Request Data Too Big!");
        m_nReqLen = 0;
    }
}

bool CClient::IsFrameComplete() const
{
    if (m_nReqLen < FRAME_HEAD_LEN)
        return false;
    const auto usLen = LoadLe<uint16_t>(m_aucReqBuf, LEAD_LEN + DIAG_PACKET_REQ_STRU::LEN_OFFSET);
    return m_nReqLen == FRAME_HEAD_LEN + usLen;
}

void CClient::OnSerialData(ByteSpan data)
{
    if (m_pProcessor)
        m_pProcessor->ProcessSerialData(data);
}

bool CClient::SendData2Client(ByteView head, ByteView payload)
{
    const xtl::MutexGuard guard(m_SendMutex);
    TapToClient(*this, head, payload);
    const bool bTaken = m_Out.Add(head, payload);
    Watch();
    return bTaken;
}

void CClient::SetHolding(bool bHolding)
{
    const xtl::MutexGuard guard(m_SendMutex);
    m_Out.SetHolding(bHolding);
    Watch();
}

CClient::OUTPUT CClient::Output()
{
    const xtl::MutexGuard guard(m_SendMutex);
    return m_stOutput;
}

void CClient::LookAtOutput()
{
    const xtl::MutexGuard guard(m_SendMutex);
    m_Out.Look();
    Watch();
}

/// Tells whoever waits for the socket, when it would come too late.
void CClient::Watch()
{
    const size_t szBacklog = m_Out.Backlog();
    if (m_pSource && szBacklog > 0)
        m_Backlog = CLineCharge(*m_pSource, szBacklog); // the new one is there before the old one goes
    else
        m_Backlog.Release();
    const OUTPUT stBefore = std::exchange(m_stOutput, OUTPUT{m_Out.IsWaiting(), m_Out.NextLook()});
    if (const bool bHas = m_stOutput.bWaiting || m_stOutput.nextAt != CClientOut::TIME::max(); bHas != m_bHasOutput)
        m_bHasOutput = bHas;
    const bool bTooLate = (m_stOutput.bWaiting && !stBefore.bWaiting) || m_stOutput.nextAt < stBefore.nextAt;
    if (bTooLate && m_pWake)
        m_pWake->Wake();
}

void CClient::SendAck(unsigned int ulCmdId, unsigned short usPktType, unsigned int ulRc, ByteView payload,
                      unsigned long long ullTimeStamp)
{
    if (m_pProcessor)
        m_pProcessor->SendAckToClient(ulCmdId, usPktType, ulRc, payload, ullTimeStamp);
}

std::string CClient::GetAddressText() const
{
    std::array<char, INET_ADDRSTRLEN> acText{};
    (void)inet_ntop(AF_INET, &m_stAddr.sin_addr, acText.data(), acText.size()); // the buffer fits every address
    return acText.data();
}

void CClient::SetBindUePort(unsigned int ulPort)
{
    m_ulBindPort = ulPort;
    if (m_pProcessor)
        m_pProcessor->SetChannelBindPort(ulPort);
}

void CClient::SetSource(CLineLoad* pSource)
{
    const xtl::MutexGuard guard(m_SendMutex);
    m_pSource = pSource;
}
