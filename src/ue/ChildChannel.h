#pragma once

#include "common/Bytes.h"
#include "common/Types.h"
#include "ue/HDLCParse.h"

class CAgentMsgRun;
class CSerial;

constexpr size_t SERIAL_READ_BUF_LEN = 0x20000; // bytes of a port's read buffer and of a channel's reassembly buffer

/// One logical channel on a port or a network link: turns the byte stream into whole packets for the agent, and
/// frames what the agent sends. All channels but CHANNEL_AT speak HDLC frames; that one speaks lines of text.
///
/// A frame may be spread over any number of reads, and a read may hold any number of frames. OnSerialData runs
/// only in the serial read thread and WriteChannel only in the serial write thread.
class CChildChannel
{
public:
    CChildChannel();
    CChildChannel(const CChildChannel&) = delete;
    CChildChannel& operator=(const CChildChannel&) = delete;

    void SetType(enChannelType enType) { m_enType = enType; }
    enChannelType GetType() const { return m_enType; }
    void SetSerial(CSerial* pSerial) { m_pSerial = pSerial; }
    /// False marks a channel of a network link.
    void SetUEType(bool bUEType) { m_bUEType = bUEType; }

    /// Takes what was read, and adds each packet that it completes to those for the agent.
    void OnSerialData(ByteView data, CAgentMsgRun& run);

    /// Frames and writes one packet; false when it could not be written whole, or on a network link.
    bool WriteChannel(ByteView packet);

    /// Takes bytes up to the end of the first packet, or all of them, and gives their count. A packet that is
    /// complete passes to the caller with outLen bytes, else out is empty and outLen 0.
    size_t GetHdlcPacket(ByteView data, OwnedBytes& out, unsigned int& outLen);
    /// The same for lines: a packet is a line with a CR LF on each side. Keeps nothing from call to call: a line
    /// that does not end within these bytes is lost.
    size_t GetTextPacket(ByteView data, OwnedBytes& out, unsigned int& outLen) const;

    /// Adds one packet to the run; null does nothing.
    void SendPacketToAgent(OwnedBytes pPacket, unsigned int ulLen, CAgentMsgRun& run) const;

private:
    size_t CollectFrame(ByteView data, size_t szUsed, ByteView& frame);
    void Append(ByteView data);
    void DecodeFrame(ByteView frame, OwnedBytes& out, unsigned int& outLen);
    void LogDecodeError() const;
    void LogTooBig() const;

    bool m_bUEType = true;
    CSerial* m_pSerial = nullptr; // the port; null on a network link
    enChannelType m_enType = CHANNEL_LTE_DIAG;
    CHDLCParse m_Hdlc;
    OwnedBytes m_pRecvBuf; // SERIAL_READ_BUF_LEN bytes; pages that no frame ever reached cost no memory
    /// Bytes of the frame at hand. 0 while the channel looks for a start flag; from 1 on the first one is a flag.
    size_t m_iRecvLen = 0;
};
