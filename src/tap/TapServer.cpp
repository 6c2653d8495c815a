#include "tap/TapServer.h"

#include "common/Record.h"
#include "common/Wait.h"
#include "tap/TapSocket.h"

#include <cerrno>
#include <chrono>
#include <cstring>
#include <random>
#include <sys/socket.h>
#include <sys/stat.h>
#include <thread>
#include <time.h>

namespace
{
constexpr int BACKLOG = 16;
constexpr mode_t SOCKET_MODE = 0660;
constexpr int WAIT_MS = 1000;
constexpr std::chrono::milliseconds SHORT_PAUSE(100);
constexpr size_t MOST_OBSERVERS = 64;

/// Whether somebody listens on it.
bool IsInUse(const sockaddr_un& stAddress)
{
    const CUniqueFd probe(socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0));
    return connect(probe.Get(), reinterpret_cast<const sockaddr*>(&stAddress), sizeof(stAddress)) == 0 ||
           errno == EAGAIN;
}

/// Only a socket is removed.
void RemoveSocket(const std::string& strPath)
{
    struct stat stFile
    {
    };
    if (lstat(strPath.c_str(), &stFile) == 0 && S_ISSOCK(stFile.st_mode))
        (void)unlink(strPath.c_str()); // bind tells when it is still there
}

/// None, with what is wrong.
CUniqueFd Listen(const std::string& strPath, std::string& strError)
{
    sockaddr_un stAddress{};
    if (!FillTapAddress(strPath, stAddress, strError))
        return {};
    if (IsInUse(stAddress)) {
        strError = strPath + " is in use by another agent";
        return {};
    }
    RemoveSocket(strPath);
    CUniqueFd fd(socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0));
    (void)fchmod(fd.Get(), SOCKET_MODE); // of the name that bind makes
    if (bind(fd.Get(), reinterpret_cast<const sockaddr*>(&stAddress), sizeof(stAddress)) != 0 ||
        chmod(strPath.c_str(), SOCKET_MODE) != 0 || listen(fd.Get(), BACKLOG) != 0) {
        strError = strPath + ": " + std::strerror(errno);
        return {};
    }
    return fd;
}

TAP_HELLO MakeHello(size_t szRingBytes)
{
    TAP_HELLO stHello;
    stHello.ulRingBytes = static_cast<uint32_t>(szRingBytes);
    stHello.ullAgentStart = UnixTimeNs();
    std::random_device random;
    stHello.ullRunHigh = uint64_t{random()} << 32 | random();
    stHello.ullRunLow = uint64_t{random()} << 32 | random();
    std::array<char, 65> acHost{}; // HOST_NAME_MAX and a NUL
    (void)gethostname(acHost.data(), acHost.size() - 1);
    stHello.strHost = acHost.data();
    return stHello;
}
} // namespace

std::unique_ptr<CTapServer> CTapServer::Open(const std::string& strPath, size_t szRingBytes, PICTURE picture,
                                             std::string& strError)
{
    CTapMemory memory = CTapMemory::Create(szRingBytes);
    if (!memory.IsMapped()) {
        strError = std::string("no memory for the ring: ") + std::strerror(errno);
        return nullptr;
    }
    CUniqueFd listenFd = Listen(strPath, strError);
    if (!listenFd.IsOpen())
        return nullptr;
    return std::unique_ptr<CTapServer>(
        new CTapServer(strPath, std::move(memory), std::move(listenFd), std::move(picture)));
}

CTapServer::CTapServer(const std::string& strPath, CTapMemory memory, CUniqueFd listenFd, PICTURE picture)
    : m_strPath(strPath),
      m_memory(std::move(memory)),
      m_writer(m_memory.Words()),
      m_Listen(std::move(listenFd)),
      m_picture(std::move(picture)),
      m_stHello(MakeHello(m_memory.RingBytes()))
{
}

CTapServer::~CTapServer()
{
    RemoveSocket(m_strPath);
}

void CTapServer::Pass()
{
    m_vecPoll.assign(1, {m_Listen.Get(), POLLIN, 0});
    for (const CUniqueFd& observer : m_vecObserver)
        m_vecPoll.push_back({observer.Get(), POLLIN, 0}); // nothing is expected but the end
    if (PollFor(m_vecPoll, WAIT_MS) <= 0)
        return;
    for (size_t i = m_vecObserver.size(); i-- > 0;)
        if (m_vecPoll[i + 1].revents != 0)
            m_vecObserver.erase(m_vecObserver.begin() + static_cast<ptrdiff_t>(i));
    if (m_vecPoll[0].revents != 0)
        Accept();
    m_writer.SetObserved(!m_vecObserver.empty());
}

void CTapServer::Accept()
{
    CUniqueFd observer(accept4(m_Listen.Get(), nullptr, nullptr, SOCK_NONBLOCK | SOCK_CLOEXEC));
    if (!observer.IsOpen())
        std::this_thread::sleep_for(SHORT_PAUSE); // the system is short of descriptors: the same again would spin
    else if (m_vecObserver.size() < MOST_OBSERVERS && Greet(observer))
        m_vecObserver.push_back(std::move(observer));
}

bool CTapServer::Greet(const CUniqueFd& observer)
{
    m_writer.SetObserved(true);
    const CTapWriter::PLACE stPlace = m_picture(m_writer);
    TAP_HELLO stHello = m_stHello;
    stHello.ullPosition = stPlace.ullPosition;
    stHello.ullNumber = stPlace.ullNumber;
    auto aucHello = EncodeRecord(stHello);
    CTapMessage message(aucHello);
    message.PutFd(m_memory.Fd());
    const ssize_t lSent = RetryOnEintr([&] { return sendmsg(observer.Get(), &message.Head(), MSG_NOSIGNAL); });
    return lSent == static_cast<ssize_t>(aucHello.size());
}
