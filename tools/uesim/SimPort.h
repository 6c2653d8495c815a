#pragma once

#include "common/Types.h"
#include "common/UniqueFd.h"
#include "uesim/LineCodec.h"

#include <memory>
#include <string>

/// What went over a port since the start, both directions from the modem's point of view.
struct PORT_TOTALS
{
    uint64_t ullBytesOut = 0; // taken by the line
    uint64_t ullBytesIn = 0;
    uint64_t ullPacketsOut = 0; // given to the line's queue
    uint64_t ullPacketsIn = 0;
    uint64_t ullBadFramesIn = 0;
    uint64_t ullBytesLost = 0; // were still queued when the other end went away, or sent while it was away
};

/// One port of a modem. What is sent waits in a queue until the line takes it; the queue is bounded because
/// streams ask HasRoom before they add, and because a port with a long queue isn't read, so no request comes
/// that would need an answer.
class CSimPort
{
public:
    enum class Change
    {
        None,
        Opened,
        Closed,
    };

    static constexpr size_t STREAM_LIMIT = 128 * 1024; // bytes queued above which streams wait
    static constexpr size_t READ_LIMIT = 1024 * 1024;  // bytes queued above which requests wait

    CSimPort(enSerialType enType, uint32_t ulNumber) : m_enType(enType), m_ulNumber(ulNumber) {}
    virtual ~CSimPort() = default;
    CSimPort(const CSimPort&) = delete;
    CSimPort& operator=(const CSimPort&) = delete;

    enSerialType Type() const { return m_enType; }
    uint32_t Number() const { return m_ulNumber; }
    /// What the other end opens or connects to.
    virtual std::string Name() const = 0;

    /// Looks whether the other end has come or gone. Cheap; called often.
    virtual Change Probe() = 0;
    bool IsOpen() const { return m_bOpen; }
    /// The descriptor to wait on, -1 when only Probe can tell.
    virtual int WaitFd() const = 0;

    /// Queues one packet: a frame, or on the AT port the bytes as they are. Lost, and counted so, while the other
    /// end is away.
    void Send(ByteView packet);
    /// Queues bytes without a frame.
    void SendRaw(ByteView bytes);

    bool HasRoom() const { return m_bOpen && m_line.Size() < STREAM_LIMIT; }
    bool WantsRead() const { return m_line.Size() < READ_LIMIT; }
    bool WantsWrite() const { return m_bOpen && !m_line.Empty(); }
    bool IsDrained() const { return m_line.Empty(); }

    /// Reads what is there and gives each packet to the sink. False when the other end went away.
    bool Read(const PacketSink& sink);
    /// Writes what the line takes at once. False when the other end went away.
    bool Write();
    /// Ends the connection from this side, after Read or Write said so. Gives the bytes that are lost.
    virtual size_t Close();

    PORT_TOTALS Totals() const;

protected:
    virtual int IoFd() const = 0;
    virtual size_t MaxWrite() const { return SIZE_MAX; }
    Change Became(bool bOpen);

private:
    bool HasFrames() const { return !ChannelsOf(m_enType).front().bText; }

    const enSerialType m_enType;
    const uint32_t m_ulNumber;
    bool m_bOpen = false;
    CByteQueue m_line;
    CFrameCollector m_collector;
    PORT_TOTALS m_stTotals;
};

/// A pseudo terminal, raw; the other end opens its slave side. Null, with errno, when none is left.
std::unique_ptr<CSimPort> MakePtyPort(enSerialType enType, uint32_t ulNumber);

/// A link of the network UE: TCP waits for the agent's connection on the port, UDP sends to the address.
std::unique_ptr<CSimPort> MakeTcpPort(enSerialType enType, uint16_t usPort);
std::unique_ptr<CSimPort> MakeUdpPort(enSerialType enType, uint16_t usPort, const std::string& strIp);
