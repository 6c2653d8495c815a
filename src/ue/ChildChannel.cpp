#include "ue/ChildChannel.h"

#include "common/Debug.h"
#include "common/MsgBuf.h"
#include "common/NoMemory.h"
#include "ue/Serial.h"
#include "ue/UE.h"

#include <cstring>

namespace
{
constexpr size_t RUNT_LEN = 4; // a flag that comes as the fourth byte of a frame or before is taken for a new start
constexpr int DECODE_ERROR_MARK = 182; // number in the decode error line of a channel without a port; no meaning

constexpr unsigned char CRLF[] = {0x0D, 0x0A};

/// Offset of the first such byte, the size of data without one.
size_t FindByte(ByteView data, unsigned char ucByte)
{
    if (data.empty())
        return 0;
    const void* pFound = std::memchr(data.data(), ucByte, data.size());
    return pFound == nullptr ? data.size()
                             : static_cast<size_t>(static_cast<const unsigned char*>(pFound) - data.data());
}

/// Offset of the first CR LF, the size of data without one.
size_t FindCrLf(ByteView data)
{
    const auto found = std::search(data.begin(), data.end(), std::begin(CRLF), std::end(CRLF));
    return static_cast<size_t>(found - data.begin());
}
} // namespace

CChildChannel::CChildChannel() : m_pRecvBuf(new unsigned char[SERIAL_READ_BUF_LEN]) {}

void CChildChannel::OnSerialData(ByteView data, CAgentMsgRun& run)
{
    while (!data.empty()) {
        OwnedBytes pPacket;
        unsigned int ulLen = 0;
        const size_t szUsed =
            m_enType == CHANNEL_AT ? GetTextPacket(data, pPacket, ulLen) : GetHdlcPacket(data, pPacket, ulLen);
        if (ulLen > 0)
            SendPacketToAgent(std::move(pPacket), ulLen, run);
        data = data.subspan(szUsed);
    }
}

size_t CChildChannel::GetHdlcPacket(ByteView data, OwnedBytes& out, unsigned int& outLen)
{
    out.reset();
    outLen = 0;
    size_t szUsed = 0;
    while (szUsed < data.size()) {
        if (m_iRecvLen == 0) {
            szUsed += FindByte(data.subspan(szUsed), HDLC_FLAG);
            if (szUsed < data.size())
                Append(data.subspan(szUsed++, 1));
            continue;
        }
        ByteView frame;
        szUsed += CollectFrame(data, szUsed, frame);
        if (!frame.empty()) {
            DecodeFrame(frame, out, outLen);
            return szUsed;
        }
    }
    return szUsed;
}

/// Takes the bytes from szUsed up to the next flag or as many as the buffer holds, and gives their count. frame is
/// set when that flag closes a frame. A frame that began in these same bytes is not copied: it is decoded where it
/// lies.
size_t CChildChannel::CollectFrame(ByteView data, size_t szUsed, ByteView& frame)
{
    const ByteView room = Slice(data, szUsed, SERIAL_READ_BUF_LEN - m_iRecvLen);
    const size_t szFlag = FindByte(room, HDLC_FLAG);
    if (szFlag == room.size()) {
        Append(room);
        if (m_iRecvLen == SERIAL_READ_BUF_LEN) {
            LogTooBig();
            m_iRecvLen = 0;
        }
        return room.size();
    }
    const size_t szTaken = szFlag + 1;
    if (m_iRecvLen + szTaken <= RUNT_LEN) {
        m_iRecvLen = 1; // the flag in place at the head of the buffer serves as the new one
        return szTaken;
    }
    if (m_iRecvLen == 1 && szUsed > 0) {
        frame = data.subspan(szUsed - 1, 1 + szTaken); // the byte before is the start flag
    } else {
        Append(room.first(szTaken));
        frame = {m_pRecvBuf.get(), m_iRecvLen};
    }
    m_iRecvLen = 0;
    return szTaken;
}

void CChildChannel::Append(ByteView data)
{
    std::memcpy(m_pRecvBuf.get() + m_iRecvLen, data.data(), data.size());
    m_iRecvLen += data.size();
}

void CChildChannel::DecodeFrame(ByteView frame, OwnedBytes& out, unsigned int& outLen)
{
    if (m_Hdlc.HdlcDecode(frame, out, outLen) == 0)
        return;
    out.reset();
    outLen = 0;
    LogDecodeError();
}

void CChildChannel::LogDecodeError() const
{
    if (m_pSerial == nullptr)
        CDebug::Instance()->PrintInfo("HDLC Decode Error!%d", DECODE_ERROR_MARK);
    else
        CDebug::Instance()->PrintError("HDLC Decode Error!com:%d, type:%d", m_pSerial->GetPortNum(),
                                       m_pSerial->GetSerialType());
}

void CChildChannel::LogTooBig() const
{
    if (m_pSerial == nullptr)
        CDebug::Instance()->PrintInfo("HDLC Data Too Big");
    else
        CDebug::Instance()->PrintWarn("HDLC Data Too Big!com:%d, type:%d", m_pSerial->GetPortNum(),
                                      m_pSerial->GetSerialType());
}

size_t CChildChannel::GetTextPacket(ByteView data, OwnedBytes& out, unsigned int& outLen) const
{
    out.reset();
    outLen = 0;
    if (data.size() < 3)
        return data.size();
    const size_t szLine = FindCrLf(data);
    if (szLine == data.size())
        return data.size();
    const size_t szTaken = szLine + sizeof(CRLF);
    if (szLine == 0)
        return szTaken; // a reply's leading CR LF
    if (!DropOnNoMemory("a line of a port", [&] { out = OwnedBytes(new unsigned char[sizeof(CRLF) + szTaken]); }))
        return szTaken;
    std::memcpy(out.get(), CRLF, sizeof(CRLF));
    std::memcpy(out.get() + sizeof(CRLF), data.data(), szTaken);
    outLen = static_cast<unsigned int>(sizeof(CRLF) + szTaken);
    return szTaken;
}

void CChildChannel::SendPacketToAgent(OwnedBytes pPacket, unsigned int ulLen, CAgentMsgRun& run) const
{
    if (!pPacket)
        return;
    const bool bSerialUe = m_bUEType && m_pSerial != nullptr && m_pSerial->GetUE() != nullptr;
    const unsigned int ulUeIdx = bSerialUe ? static_cast<unsigned int>(m_pSerial->GetUE()->GetUEIdx()) : TCP_UE_INDEX;
    run.Add(ulUeIdx, m_enType, std::move(pPacket), ulLen);
}

bool CChildChannel::WriteChannel(ByteView packet)
{
    if (m_pSerial == nullptr)
        return false;
    if (m_enType == CHANNEL_AT)
        return m_pSerial->WriteSerial(packet);
    OwnedBytes pFrame;
    unsigned int ulFrameLen = 0;
    if (m_Hdlc.HdlcEncode(packet, pFrame, ulFrameLen) != 0) {
        CDebug::Instance()->PrintError("HDLC Encode Error!com:%d, type:%d", m_pSerial->GetPortNum(),
                                       m_pSerial->GetSerialType());
        return false;
    }
    return m_pSerial->WriteSerial({pFrame.get(), ulFrameLen});
}
