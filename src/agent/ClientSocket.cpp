#include "agent/ClientSocket.h"

#include "common/Debug.h"
#include "common/Wait.h"

#include <cerrno>
#include <sys/socket.h>

namespace
{
constexpr int CLIENT_SEND_TIMEOUT_MS = 20; // longest wait for a client to take more

/// Waits until the socket takes bytes again. False, with a line in the log, when it didn't in time.
bool WaitWritable(int nSocket, const char* pszChannel, int iTimeoutMs)
{
    pollfd stFd{nSocket, POLLOUT, 0};
    int iReady = PollFor({&stFd, 1}, iTimeoutMs);
    if (iReady > 0 && (stFd.revents & POLLNVAL) != 0) {
        errno = EBADF;
        iReady = -1;
    }
    if (iReady < 0)
        CDebug::Instance()->PrintError("Client SendDataToClient select Fail, channel:%s, errno :%d", pszChannel, errno);
    else if (iReady == 0)
        CDebug::Instance()->PrintWarn("Client SendDataToClient select TimeOut, channel:%s, errno :%d", pszChannel,
                                      EAGAIN);
    return iReady > 0;
}
} // namespace

bool SendData2Client(int nSocket, ByteView& data, const char* pszChannel, bool bStalled)
{
    if (nSocket == -1 || data.data() == nullptr || data.empty())
        return false;
    if (bStalled && !WaitWritable(nSocket, pszChannel, 0))
        return false; // it had its 20 ms; the threads that send must not spend them again on every packet
    const size_t szTotal = data.size();
    while (!data.empty()) {
        const ssize_t lSent =
            RetryOnEintr([&] { return send(nSocket, data.data(), data.size(), MSG_NOSIGNAL | MSG_DONTWAIT); });
        if (lSent >= 0) {
            data = data.subspan(static_cast<size_t>(lSent));
            continue;
        }
        if (errno != EAGAIN) {
            CDebug::Instance()->PrintError(
                "Client SendDataToClient send Fail, channel:%s, lenth/total: %d/%d, errno :%d", pszChannel,
                static_cast<int>(data.size()), static_cast<int>(szTotal), errno);
            return false;
        }
        if (!WaitWritable(nSocket, pszChannel, CLIENT_SEND_TIMEOUT_MS))
            return false;
    }
    return true;
}
