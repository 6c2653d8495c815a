#include "tap/TapConnection.h"

#include "common/Record.h"
#include "common/Wait.h"
#include "tap/TapSocket.h"

#include <cerrno>
#include <cstring>
#include <poll.h>
#include <sys/socket.h>
#include <vector>

namespace
{
constexpr int HELLO_WAIT_MS = 5000;

/// None, with what is wrong.
CUniqueFd Connect(const std::string& strPath, std::string& strError)
{
    sockaddr_un stAddress{};
    if (!FillTapAddress(strPath, stAddress, strError))
        return {};
    CUniqueFd fd(socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0));
    if (connect(fd.Get(), reinterpret_cast<const sockaddr*>(&stAddress), sizeof(stAddress)) == 0)
        return fd;
    strError = strPath + ": " + std::strerror(errno);
    return {};
}

/// The hello and its descriptor; false when what comes is neither.
bool ReceiveHello(const CUniqueFd& socketFd, TAP_HELLO& stHello, CUniqueFd& memoryFd)
{
    std::vector<pollfd> vecPoll{{socketFd.Get(), POLLIN, 0}};
    if (PollFor(vecPoll, HELLO_WAIT_MS) <= 0)
        return false;
    std::array<unsigned char, TAP_HELLO::SIZE> aucHello{};
    CTapMessage message(aucHello);
    const ssize_t lRead =
        RetryOnEintr([&] { return recvmsg(socketFd.Get(), &message.Head(), MSG_WAITALL | MSG_CMSG_CLOEXEC); });
    if (lRead >= 0)
        memoryFd.Reset(message.TakeFd());
    return lRead == static_cast<ssize_t>(aucHello.size()) && DecodeRecord(aucHello, stHello) && memoryFd.IsOpen();
}
} // namespace

std::unique_ptr<CTapConnection> CTapConnection::Open(const std::string& strPath, std::string& strError)
{
    CUniqueFd socketFd = Connect(strPath, strError);
    if (!socketFd.IsOpen())
        return nullptr;
    TAP_HELLO stHello;
    CUniqueFd memoryFd;
    if (!ReceiveHello(socketFd, stHello, memoryFd) || stHello.ullMagic != TAP_HELLO::MAGIC) {
        strError = strPath + ": what listens there is no agent";
        return nullptr;
    }
    if (stHello.ulVersion != TAP_HELLO::VERSION) {
        strError = strPath + ": the agent's tap has version " + std::to_string(stHello.ulVersion) + ", not " +
                   std::to_string(TAP_HELLO::VERSION);
        return nullptr;
    }
    CTapMemory memory = CTapMemory::Map(std::move(memoryFd), stHello.ulRingBytes);
    if (!memory.IsMapped()) {
        strError = strPath + ": the agent's memory can't be read";
        return nullptr;
    }
    return std::unique_ptr<CTapConnection>(new CTapConnection(std::move(socketFd), stHello, std::move(memory)));
}

CTapConnection::CTapConnection(CUniqueFd socketFd, const TAP_HELLO& stHello, CTapMemory memory)
    : m_Socket(std::move(socketFd)),
      m_stHello(stHello),
      m_memory(std::move(memory)),
      m_reader(std::as_const(m_memory).Words(), stHello.ullPosition, stHello.ullNumber)
{
}

bool CTapConnection::Wait(std::chrono::milliseconds time)
{
    std::vector<pollfd> vecPoll{{m_Socket.Get(), POLLIN, 0}};
    return PollFor(vecPoll, static_cast<int>(time.count())) == 0;
}
