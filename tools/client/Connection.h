#pragma once

#include "common/Bytes.h"
#include "common/UniqueFd.h"
#include "data/DiagPacket.h"

#include <chrono>
#include <span>
#include <string>
#include <vector>

using Clock = std::chrono::steady_clock;

/// A packet from the agent, owned.
struct PACKET
{
    DIAG_PACKET_ACK_STRU stHead;
    std::vector<unsigned char> payload; // stHead.usLen bytes
};

/// Cuts the byte stream from the agent into packets. The agent drops the rest of a packet that a slow client
/// doesn't take, so bytes that aren't at a packet's start are skipped up to the next pair of lead bytes.
class CFrameReader
{
public:
    void Feed(ByteView bytes);
    /// The next whole packet; false when more bytes are needed.
    bool Next(PACKET& stPacket);
    /// Bytes skipped so far because no packet began there.
    size_t Skipped() const { return m_szSkipped; }

private:
    ByteView Pending() const { return Slice(ByteView(m_buffer), m_szStart); }
    void SkipToLead();

    std::vector<unsigned char> m_buffer;
    size_t m_szStart = 0; // of what isn't taken yet
    size_t m_szSkipped = 0;
};

enum class RECV_RESULT
{
    PACKET,
    TIME_OUT, // or the user asked to stop
    CLOSED,   // by the agent, or failed
};

/// The bytes of a request as they go over the wire. usLen is taken from the parameters (at most 65535 bytes).
std::vector<unsigned char> EncodeRequest(uint32_t ulCmdId, uint16_t usPktType, ByteView params);

/// One TCP connection to a channel of the agent. One thread.
class CConnection
{
public:
    /// False, with a readable reason, when there is no connection within the limit.
    [[nodiscard]] bool Connect(const std::string& strHost, unsigned short usPort, std::chrono::milliseconds limit,
                               std::string& strError);
    [[nodiscard]] bool Send(ByteView bytes, Clock::time_point deadline);
    [[nodiscard]] RECV_RESULT Receive(PACKET& stPacket, Clock::time_point deadline);

    /// A packet that has already been read from the socket.
    bool Next(PACKET& stPacket) { return m_reader.Next(stPacket); }
    /// Reads what is there without waiting; false when the connection has ended.
    bool Pump();
    size_t Skipped() const { return m_reader.Skipped(); }
    int Fd() const { return m_fd.Get(); }

private:
    CUniqueFd m_fd;
    CFrameReader m_reader;
};

/// Waits until one of the descriptors is readable, the deadline comes, or the user asks to stop.
void WaitReadable(std::span<const int> fds, Clock::time_point deadline);
