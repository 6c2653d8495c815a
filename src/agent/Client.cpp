#include "agent/Client.h"

#include "agent/ClientSocket.h"
#include "common/Debug.h"
#include "data/DiagPacket.h"
#include "data/DpAt.h"
#include "data/DpGuCmd.h"
#include "data/DpGuData.h"
#include "data/DpLteData.h"
#include "data/DpLteDiag.h"

#include <algorithm>
#include <arpa/inet.h>

namespace
{
constexpr size_t FRAME_HEAD_LEN = LEAD_LEN + DIAG_PACKET_REQ_STRU::SIZE;
constexpr size_t LEAD_PAIR_RESTARTS = 7; // a pair of lead bytes that ends this early starts the frame anew
constexpr size_t AT_RAW_MIN = 3;         // a shorter read is no text
constexpr size_t HOLD_MAX = 16384;       // bytes held back at most, half of the socket's send buffer

const char* ChannelLabel(enChannelType enType)
{
    const auto szType = static_cast<size_t>(enType);
    return szType < strChannelType.size() ? strChannelType[szType] : "";
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
    : m_pProcessor(CreateDataProcessor(enType, pBindings, this)), m_Socket(nSocket), m_enType(enType)
{
}

CClient::~CClient()
{
    m_Socket.Reset();
    m_pProcessor.reset();
    CDebug::Instance()->PrintInfo("Delete Client(com %d) %s", static_cast<int>(m_ulBindPort), ChannelLabel(m_enType));
}

void CClient::OnClientData(ByteView data)
{
    if (m_enType == CHANNEL_AT) {
        OnAtData(data);
        return;
    }
    while (!data.empty())
        data = CollectFrame(data);
}

/// Takes bytes up to the end of one frame, and gives the rest.
ByteView CClient::CollectFrame(ByteView data)
{
    const TAKEN_FRAME stTaken = GetDiagReqPacket(data);
    if (!stTaken.frame.empty() && m_pProcessor)
        m_pProcessor->ProcessClientData(stTaken.frame);
    return data.subspan(stTaken.szTaken);
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
    if (!text.empty() && m_pProcessor)
        m_pProcessor->ProcessClientData(text);
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

bool CClient::SendData2Client(CPacket packet)
{
    const ByteView bytes = std::as_const(packet).Bytes();
    const size_t szLen = bytes.size();
    const xtl::MutexGuard guard(m_SendMutex);
    if (m_szHeld + szLen > HOLD_MAX)
        SendHeld();
    if (!m_bHolding || szLen > HOLD_MAX) {
        SendPackets(bytes, {&szLen, 1});
        return true;
    }
    m_vecHeldEnd.push_back(m_szHeld + szLen); // first, as it may fail
    std::ranges::copy(bytes, m_pHeld.get() + m_szHeld);
    m_szHeld += szLen;
    return true;
}

void CClient::SetHolding(bool bHolding)
{
    const xtl::MutexGuard guard(m_SendMutex);
    SendHeld();
    if (bHolding && !m_pHeld)
        m_pHeld.reset(new (std::nothrow) unsigned char[HOLD_MAX]);
    m_bHolding = bHolding && m_pHeld; // without room each packet is sent on its own
}

void CClient::SendHeld()
{
    SendPackets({m_pHeld.get(), m_szHeld}, m_vecHeldEnd);
    m_szHeld = 0;
    m_vecHeldEnd.clear();
}

/// Sends packets that lie one behind the other. When the client stops taking bytes, the packet at that point is lost
/// for it and each one behind it is tried on its own.
void CClient::SendPackets(ByteView packets, std::span<const size_t> ends)
{
    for (size_t szDone = 0; szDone < packets.size();) {
        ByteView rest = packets.subspan(szDone);
        m_bStalled = !::SendData2Client(m_Socket.Get(), rest, ChannelLabel(m_enType), m_bStalled);
        const size_t szSent = packets.size() - rest.size();
        szDone = m_bStalled ? *std::ranges::upper_bound(ends, szSent) : packets.size();
    }
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
