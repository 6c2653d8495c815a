#pragma once

#include "common/Packet.h"
#include "common/Types.h"
#include "ue/HDLCParse.h"

#include <memory>
#include <span>

class CAgentMsgRun;
class ILine;
enum class LINE_FAULT;

constexpr size_t SERIAL_READ_BUF_LEN = 0x20000; // bytes of a port's read buffer and of a channel's reassembly buffer

/// The framing of one line: turns the byte stream into whole packets for the agent, and frames what the agent sends.
/// Each packet goes to every channel that the line carries. CHANNEL_AT speaks lines of text, all others HDLC frames.
///
/// A frame may be spread over any number of reads, and a read may hold any number of frames. OnSerialData runs
/// only in the serial read thread and WriteChannel only in the serial write thread.
class CChildChannel
{
public:
    /// What one of the two below gives: bytes taken, and the packet that they complete, if they do.
    struct TAKEN_PACKET
    {
        size_t szTaken = 0;
        CPacket packet;
    };

    /// The line must outlive the object.
    explicit CChildChannel(ILine& line);
    CChildChannel(const CChildChannel&) = delete;
    CChildChannel& operator=(const CChildChannel&) = delete;

    /// The channels that the line carries; all speak alike.
    void SetRows(std::span<const CHANNEL_ROW> rows) { m_Rows = rows; }
    std::span<const CHANNEL_ROW> Rows() const { return m_Rows; }

    /// Takes what was read, and adds each packet that it completes to those for the agent.
    void OnSerialData(ByteView data, CAgentMsgRun& run);

    /// What goes on the line for one packet, which is used up; false, when it can't be framed, with the line's word.
    CPacket WriteChannel(CPacket packet);

    /// Takes bytes up to the end of the first packet, or all of them.
    TAKEN_PACKET GetHdlcPacket(ByteView data);
    /// The same for lines: a packet is a line with a CR LF on each side. Keeps nothing from call to call: a line
    /// that does not end within these bytes is lost.
    TAKEN_PACKET GetTextPacket(ByteView data) const;

    /// Adds one packet to the run, for each channel; one without a buffer does nothing.
    void SendPacketToAgent(CPacket packet, CAgentMsgRun& run) const;

private:
    bool IsText() const { return !m_Rows.empty() && m_Rows.front().bText; }
    size_t CollectFrame(ByteView data, size_t szUsed, ByteView& frame);
    void Append(ByteView data);
    CPacket DecodeFrame(ByteView frame) const;
    void LogFault(LINE_FAULT enFault) const;

    ILine& m_Line;
    std::span<const CHANNEL_ROW> m_Rows;
    CHDLCParse m_Hdlc;
    /// SERIAL_READ_BUF_LEN bytes; pages that no frame ever reached cost no memory.
    std::unique_ptr<unsigned char[]> m_pRecvBuf;
    /// Bytes of the frame at hand. 0 while the channel looks for a start flag; from 1 on the first one is a flag.
    size_t m_iRecvLen = 0;
};
