#include "uesim/SimPort.h"

#include "common/PseudoTerminal.h"

#include <arpa/inet.h>
#include <array>
#include <cerrno>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <sys/socket.h>

void CSimPort::Send(ByteView packet)
{
    if (!HasFrames()) {
        SendRaw(packet);
        return;
    }
    if (!m_bOpen) {
        m_stTotals.ullBytesLost += packet.size();
        return;
    }
    AppendFrame(packet, m_line);
    ++m_stTotals.ullPacketsOut;
}

void CSimPort::SendRaw(ByteView bytes)
{
    if (!m_bOpen) {
        m_stTotals.ullBytesLost += bytes.size();
        return;
    }
    m_line.Append(bytes);
    ++m_stTotals.ullPacketsOut;
}

bool CSimPort::Read(const PacketSink& sink)
{
    static std::array<unsigned char, 65536> aucBuf; // the simulator has one thread
    const ssize_t nRead = read(IoFd(), aucBuf.data(), aucBuf.size());
    if (nRead <= 0)
        return nRead < 0 && (errno == EAGAIN || errno == EINTR);
    const ByteView bytes = Slice(ByteView(aucBuf), 0, static_cast<size_t>(nRead));
    m_stTotals.ullBytesIn += bytes.size();
    const auto count = [&](ByteView packet) {
        ++m_stTotals.ullPacketsIn;
        sink(packet);
    };
    if (HasFrames())
        m_collector.Feed(bytes, count);
    else
        count(bytes);
    return true;
}

bool CSimPort::Write()
{
    while (!m_line.Empty()) {
        const ByteView bytes = Slice(m_line.Front(), 0, MaxWrite());
        const ssize_t nWritten = write(IoFd(), bytes.data(), bytes.size());
        if (nWritten < 0 && errno == EINTR)
            continue;
        if (nWritten < 0)
            return errno == EAGAIN;
        m_stTotals.ullBytesOut += static_cast<size_t>(nWritten);
        m_line.Consume(static_cast<size_t>(nWritten));
        if (static_cast<size_t>(nWritten) < bytes.size())
            return true;
    }
    return true;
}

size_t CSimPort::Close()
{
    const size_t szLost = m_line.Size();
    m_stTotals.ullBytesLost += szLost;
    m_line.Clear();
    m_collector.Reset();
    m_bOpen = false;
    return szLost;
}

PORT_TOTALS CSimPort::Totals() const
{
    PORT_TOTALS stTotals = m_stTotals;
    stTotals.ullBadFramesIn = m_collector.BadFrames();
    return stTotals;
}

CSimPort::Change CSimPort::Became(bool bOpen)
{
    if (bOpen == m_bOpen)
        return Change::None;
    if (bOpen)
        m_bOpen = true;
    return bOpen ? Change::Opened : Change::Closed;
}

namespace
{
/// While nobody has the slave side open, poll on the master says so at once and for ever, so such a port isn't
/// waited for but probed.
class CPtyPort : public CSimPort
{
public:
    CPtyPort(enSerialType enType, uint32_t ulNumber, PSEUDO_TERMINAL terminal)
        : CSimPort(enType, ulNumber), m_terminal(std::move(terminal))
    {
    }

    std::string Name() const override { return m_terminal.strName; }
    int WaitFd() const override { return IsOpen() ? m_terminal.master.Get() : -1; }

    Change Probe() override
    {
        // What the other end wrote before it went away is still to be read.
        return Became(m_terminal.IsUsed() || (IsOpen() && m_terminal.HasInput()));
    }

protected:
    int IoFd() const override { return m_terminal.master.Get(); }

private:
    PSEUDO_TERMINAL m_terminal;
};

class CTcpPort : public CSimPort
{
public:
    CTcpPort(enSerialType enType, uint16_t usPort, CUniqueFd listener)
        : CSimPort(enType, 0), m_usPort(usPort), m_listener(std::move(listener))
    {
    }

    std::string Name() const override { return "tcp:" + std::to_string(m_usPort); }
    int WaitFd() const override { return IsOpen() ? m_link.Get() : m_listener.Get(); }

    Change Probe() override
    {
        if (!m_link.IsOpen()) {
            m_link.Reset(accept4(m_listener.Get(), nullptr, nullptr, SOCK_NONBLOCK | SOCK_CLOEXEC));
            const int nOn = 1;
            if (m_link.IsOpen())
                (void)setsockopt(m_link.Get(), IPPROTO_TCP, TCP_NODELAY, &nOn, sizeof(nOn));
        }
        return Became(m_link.IsOpen());
    }

    size_t Close() override
    {
        m_link.Reset();
        return CSimPort::Close();
    }

protected:
    int IoFd() const override { return m_link.Get(); }

private:
    uint16_t m_usPort;
    CUniqueFd m_listener;
    CUniqueFd m_link;
};

class CUdpPort : public CSimPort
{
public:
    CUdpPort(enSerialType enType, std::string strName, CUniqueFd link)
        : CSimPort(enType, 0), m_strName(std::move(strName)), m_link(std::move(link))
    {
    }

    std::string Name() const override { return m_strName; }
    int WaitFd() const override { return m_link.Get(); }
    Change Probe() override { return Became(true); }

protected:
    int IoFd() const override { return m_link.Get(); }
    size_t MaxWrite() const override { return 1400; } // bytes of a datagram

private:
    std::string m_strName;
    CUniqueFd m_link;
};

sockaddr_in AddressOf(const char* pszIp, uint16_t usPort)
{
    sockaddr_in stAddress{};
    stAddress.sin_family = AF_INET;
    stAddress.sin_port = htons(usPort);
    (void)inet_pton(AF_INET, pszIp, &stAddress.sin_addr); // what is no address stays 0.0.0.0 and fails to connect
    return stAddress;
}
} // namespace

std::unique_ptr<CSimPort> MakePtyPort(enSerialType enType, uint32_t ulNumber)
{
    auto terminal = OpenPseudoTerminal();
    return terminal ? std::make_unique<CPtyPort>(enType, ulNumber, std::move(*terminal)) : nullptr;
}

std::unique_ptr<CSimPort> MakeTcpPort(enSerialType enType, uint16_t usPort)
{
    CUniqueFd listener(socket(AF_INET, SOCK_STREAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0));
    const int nOn = 1;
    const sockaddr_in stAddress = AddressOf("0.0.0.0", usPort);
    if (!listener.IsOpen() || setsockopt(listener.Get(), SOL_SOCKET, SO_REUSEADDR, &nOn, sizeof(nOn)) != 0 ||
        bind(listener.Get(), reinterpret_cast<const sockaddr*>(&stAddress), sizeof(stAddress)) != 0 ||
        listen(listener.Get(), 4) != 0)
        return nullptr;
    return std::make_unique<CTcpPort>(enType, usPort, std::move(listener));
}

std::unique_ptr<CSimPort> MakeUdpPort(enSerialType enType, uint16_t usPort, const std::string& strIp)
{
    CUniqueFd link(socket(AF_INET, SOCK_DGRAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0));
    const sockaddr_in stAddress = AddressOf(strIp.c_str(), usPort);
    if (!link.IsOpen() || connect(link.Get(), reinterpret_cast<const sockaddr*>(&stAddress), sizeof(stAddress)) != 0)
        return nullptr;
    return std::make_unique<CUdpPort>(enType, "udp:" + strIp + ":" + std::to_string(usPort), std::move(link));
}
