#include "ue/ChildChannel.h"

#include "common/MsgBuf.h"
#include "common/NoMemory.h"
#include "ue/Line.h"

#include <cstring>

namespace
{
constexpr size_t RUNT_LEN = 4; // a flag that comes as the fourth byte of a frame or before is taken for a new start

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

CChildChannel::CChildChannel(ILine& line) : m_Line(line), m_pRecvBuf(new unsigned char[SERIAL_READ_BUF_LEN]) {}

void CChildChannel::OnSerialData(ByteView data, CAgentMsgRun& run)
{
    while (!data.empty()) {
        TAKEN_PACKET stTaken = IsText() ? GetTextPacket(data) : GetHdlcPacket(data);
        SendPacketToAgent(std::move(stTaken.packet), run);
        data = data.subspan(stTaken.szTaken);
    }
}

CChildChannel::TAKEN_PACKET CChildChannel::GetHdlcPacket(ByteView data)
{
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
        if (!frame.empty())
            return {szUsed, DecodeFrame(frame)};
    }
    return {szUsed, {}};
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
            LogFault(LINE_FAULT::TOO_BIG);
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

CPacket CChildChannel::DecodeFrame(ByteView frame) const
{
    HDLC_RESULT stResult = m_Hdlc.HdlcDecode(frame);
    if (stResult.uiResult != 0)
        LogFault(LINE_FAULT::DECODE);
    return std::move(stResult.packet);
}

/// One line for each channel that the packet was for.
void CChildChannel::LogFault(LINE_FAULT enFault) const
{
    for (size_t i = 0; i < m_Rows.size(); ++i)
        m_Line.LogFault(enFault);
}

CChildChannel::TAKEN_PACKET CChildChannel::GetTextPacket(ByteView data) const
{
    if (data.size() < 3)
        return {data.size(), {}};
    const size_t szLine = FindCrLf(data);
    if (szLine == data.size())
        return {data.size(), {}};
    const size_t szTaken = szLine + sizeof(CRLF);
    if (szLine == 0)
        return {szTaken, {}}; // a reply's leading CR LF
    CPacket packet = CPacket::Allocate(sizeof(CRLF) + szTaken);
    if (!packet) {
        LogNoMemory("a line of a port");
        return {szTaken, {}};
    }
    std::memcpy(packet.Bytes().data(), CRLF, sizeof(CRLF));
    std::memcpy(packet.Bytes().data() + sizeof(CRLF), data.data(), szTaken);
    return {szTaken, std::move(packet)};
}

void CChildChannel::SendPacketToAgent(CPacket packet, CAgentMsgRun& run) const
{
    if (!packet || m_Rows.empty())
        return;
    for (const CHANNEL_ROW& stRow : m_Rows.first(m_Rows.size() - 1)) {
        if (CPacket copy = CPacket::Copy(packet.Bytes()))
            run.Add(m_Line.GetUEIdx(), stRow.enChannel, std::move(copy));
        else
            LogNoMemory("a channel's copy of a packet");
    }
    run.Add(m_Line.GetUEIdx(), m_Rows.back().enChannel, std::move(packet));
}

CPacket CChildChannel::WriteChannel(CPacket packet)
{
    if (IsText())
        return packet;
    HDLC_RESULT stFrame = m_Hdlc.HdlcEncode(std::as_const(packet).Bytes());
    if (stFrame.uiResult != 0)
        m_Line.LogFault(LINE_FAULT::ENCODE);
    return std::move(stFrame.packet);
}
