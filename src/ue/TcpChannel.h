#pragma once

#include "common/Bytes.h"
#include "common/Types.h"
#include "common/UniqueFd.h"
#include "ue/ChildChannel.h"
#include "ue/Line.h"

#include <atomic>
#include <cstdint>
#include <memory>
#include <string>

/// One link of the network UE, TCP or UDP: what a port and its channels are to a serial UE. It carries the same
/// frames. Links live from a network attach to the next network detach; nothing is tried again meanwhile.
///
/// The read thread and the write thread use a link side by side, each under a lock of the UE manager's; its
/// destruction needs both. The counters may be read by anyone.
class TCPChannel : public ILine
{
public:
    /// Connects (TCP, for 5 seconds at most) or binds (UDP, all local addresses, ip isn't used) at once. A link
    /// that failed has no socket: it receives nothing and what is written to it is lost. index is the link's index,
    /// in the numbering of enSerialType, and says which channels it carries: those of the first link when beyond.
    TCPChannel(const std::string& ip, unsigned int port, bool tcp, enChannelType index);
    ~TCPChannel() override;
    TCPChannel(const TCPChannel&) = delete;
    TCPChannel& operator=(const TCPChannel&) = delete;

    /// Frames and sends one packet. Always true: a UDP link has no peer to send to, and a fault loses the data
    /// silently.
    bool SendData(ByteView packet);
    /// Receives once, without waiting, and hands the bytes to the channels.
    void RecvData();

    /// What frames the link's bytes, for all of its channels.
    CChildChannel& Channel() { return m_Channel; }
    UE_INDEX GetUEIdx() const override { return TCP_UE_INDEX; }
    /// Always true: what can't be sent is lost.
    bool WriteBytes(ByteView data) override;
    void LogFault(LINE_FAULT enFault) const override;

    /// -1 when none.
    int GetSocket() const { return m_iSocket.Get(); }
    /// True once the peer has closed: the socket stays, but nothing more will come.
    bool IsPeerClosed() const { return m_bPeerClosed; }
    uint64_t GetTotalBytesRead() const { return m_ullTotalRead; }
    uint64_t GetTotalBytesWrite() const { return m_ullTotalWrite; }

private:
    bool CreateConnectSocket(const std::string& ip);
    bool Connect(const std::string& ip);
    bool BindLocal();
    bool IsNothingReceived(ssize_t nReceived);

    CChildChannel m_Channel{*this};
    CUniqueFd m_iSocket;
    bool m_bTcp;
    unsigned int m_uiPort;
    std::atomic<bool> m_bPeerClosed = false;
    std::unique_ptr<unsigned char[]> m_pRecvBuf;
    std::atomic<uint64_t> m_ullTotalRead = 0;
    std::atomic<uint64_t> m_ullTotalWrite = 0;
};
