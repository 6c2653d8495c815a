#pragma once

#include "common/Bytes.h"
#include "common/Types.h"
#include "common/UniqueFd.h"
#include "ue/ChildChannel.h"
#include "ue/HDLCParse.h"

#include <array>
#include <atomic>
#include <cstdint>
#include <string>

/// One link of the network UE, TCP or UDP: what a port and its channels are to a serial UE. It carries the same
/// frames. Links live from a network attach to the next network detach; nothing is tried again meanwhile.
///
/// The read thread and the write thread use a link side by side, each under a lock of the UE manager's; its
/// destruction needs both. The counters may be read by anyone.
class TCPChannel
{
public:
    /// Connects (TCP, for 5 seconds at most) or binds (UDP, all local addresses, ip isn't used) at once. A link
    /// that failed has no socket: it receives nothing and what is written to it is lost. index is the link's index,
    /// in the numbering of enSerialType.
    TCPChannel(const std::string& ip, unsigned int port, bool tcp, enChannelType index);
    ~TCPChannel();
    TCPChannel(const TCPChannel&) = delete;
    TCPChannel& operator=(const TCPChannel&) = delete;

    /// Frames and sends one packet; on the AT link the bytes go as they are. Always true: a UDP link has no peer
    /// to send to, and a fault loses the data silently.
    bool SendData(ByteView packet);
    /// Receives once, without waiting, and hands the bytes to the channels.
    void RecvData();

    /// -1 when none.
    int GetSocket() const { return m_iSocket.Get(); }
    /// True once the peer has closed: the socket stays, but nothing more will come.
    bool IsPeerClosed() const { return m_bPeerClosed; }
    uint64_t GetTotalBytesRead() const { return m_ullTotalRead; }
    uint64_t GetTotalBytesWrite() const { return m_ullTotalWrite; }

private:
    void ConfigureChannels(size_t szIndex);
    bool CreateConnectSocket(const std::string& ip);
    bool Connect(const std::string& ip);
    bool BindLocal();
    bool DoSendData(ByteView data);
    bool IsNothingReceived(ssize_t nReceived);

    uint8_t m_iChannelCount = 1;
    std::array<CChildChannel, 4> m_aChannel; // two are ever used
    CUniqueFd m_iSocket;
    bool m_bTcp;
    unsigned int m_uiPort;
    CHDLCParse m_Hdlc; // of the sending side
    bool m_bRawAt = false;
    std::atomic<bool> m_bPeerClosed = false;
    OwnedBytes m_pRecvBuf;
    std::atomic<uint64_t> m_ullTotalRead = 0;
    std::atomic<uint64_t> m_ullTotalWrite = 0;
};
