#include "tap/TapConnection.h"

#include "common/Record.h"
#include "common/Wait.h"

#include <cerrno>
#include <cstring>
#include <poll.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <vector>

namespace
{
constexpr int HELLO_WAIT_MS = 5000;

/// None, with what is wrong.
CUniqueFd Connect(const std::string& strPath, std::string& strError)
{
    sockaddr_un stAddress{};
    stAddress.sun_family = AF_UNIX;
    if (strPath.size() >= sizeof(stAddress.sun_path)) {
        strError = strPath + " is too long for a socket's name";
        return {};
    }
    std::memcpy(stAddress.sun_path, strPath.c_str(), strPath.size() + 1);
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
    iovec stPart{aucHello.data(), aucHello.size()};
    alignas(cmsghdr) std::array<char, CMSG_SPACE(sizeof(int))> acControl{};
    msghdr stMsg{};
    stMsg.msg_iov = &stPart;
    stMsg.msg_iovlen = 1;
    stMsg.msg_control = acControl.data();
    stMsg.msg_controllen = acControl.size();
    const ssize_t lRead = RetryOnEintr([&] { return recvmsg(socketFd.Get(), &stMsg, MSG_WAITALL | MSG_CMSG_CLOEXEC); });
    const cmsghdr* const pControl = lRead < 0 ? nullptr : CMSG_FIRSTHDR(&stMsg);
    if (pControl != nullptr && pControl->cmsg_level == SOL_SOCKET && pControl->cmsg_type == SCM_RIGHTS &&
        pControl->cmsg_len == CMSG_LEN(sizeof(int))) {
        int nFd = -1;
        std::memcpy(&nFd, CMSG_DATA(pControl), sizeof(nFd));
        memoryFd.Reset(nFd);
    }
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
