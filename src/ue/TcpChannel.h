#pragma once

#include "common/Bytes.h"
#include "common/Types.h"
#include "common/UniqueFd.h"
#include "common/xtl.h"
#include "ue/ChildChannel.h"
#include "ue/Line.h"

#include <atomic>
#include <cstdint>
#include <memory>
#include <string>

/// One link of the network UE, TCP or UDP: what a port and its channels are to a serial UE. It carries the same
/// frames. A link lives from a network attach to the next network detach.
///
/// The read thread and the write thread use a link side by side, each under a lock of its own that is never held
/// across a wait; Close has both. The counters may be read by anyone.
class TCPChannel : public ILine
{
public:
    /// Connects (TCP, for 5 seconds at most) or binds (UDP, all local addresses, ip isn't used) at once. A link
    /// that failed has no socket: it receives nothing and what is written to it is lost. index is the link's index,
    /// in the numbering of enSerialType, and says which channels it carries: those of the first link when beyond.
    /// bQuiet: nothing is logged when it fails.
    TCPChannel(const std::string& ip, unsigned int port, bool tcp, enChannelType index, bool bQuiet = false);
    ~TCPChannel() override;
    TCPChannel(const TCPChannel&) = delete;
    TCPChannel& operator=(const TCPChannel&) = delete;

    /// Whoever still uses the link finds it without a socket.
    void Close() EXCLUDES(m_ReadLock, m_WriteLock);

    CChildChannel& Channel() override { return m_Channel; }
    UE_INDEX GetUEIdx() const override { return TCP_UE_INDEX; }
    void LogFault(LINE_FAULT enFault) const override;

    int ReadHandle() const override { return m_bPeerClosed ? -1 : GetSocket(); }
    /// Always true: what a link can't receive is no fault.
    bool ReadBytes(int nHandle) override EXCLUDES(m_ReadLock);

    /// A link without a socket refuses each packet, silently.
    LINE_STATE PrepareWrite() override;
    uint64_t Opening() const override { return 0; }
    ssize_t WriteBytes(ByteView data) override EXCLUDES(m_WriteLock);
    int WriteHandle() const override { return GetSocket(); }
    std::chrono::seconds WriteLimit(size_t szRemaining) const override;
    void OnNoHeadway(bool bTimeout) override;

    /// -1 when none.
    int GetSocket() const { return m_iSocket; }
    bool IsTcp() const { return m_bTcp; }
    /// True once the peer has closed: the socket stays, but nothing more will come.
    bool IsPeerClosed() const { return m_bPeerClosed; }
    uint64_t GetTotalBytesRead() const { return m_ullTotalRead; }
    uint64_t GetTotalBytesWrite() const { return m_ullTotalWrite; }

private:
    void CreateConnectSocket(const std::string& ip, bool bQuiet);
    bool Connect(int nSocket, const std::string& ip, bool bQuiet);
    bool BindLocal(int nSocket);
    void RecvData() REQUIRES(m_ReadLock);
    bool IsNothingReceived(ssize_t nReceived);

    CChildChannel m_Channel{*this};
    std::atomic<int> m_iSocket = -1; // owned; changes under both locks, once it is there
    bool m_bTcp;
    unsigned int m_uiPort;
    std::atomic<bool> m_bPeerClosed = false;
    std::unique_ptr<unsigned char[]> m_pRecvBuf;
    std::atomic<uint64_t> m_ullTotalRead = 0;
    std::atomic<uint64_t> m_ullTotalWrite = 0;
    xtl::Mutex m_ReadLock; // before m_WriteLock
    xtl::Mutex m_WriteLock;
};
