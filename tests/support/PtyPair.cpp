#include "support/PtyPair.h"

#include <cstdio>
#include <cstdlib>
#include <fcntl.h>
#include <poll.h>
#include <pty.h>
#include <thread>
#include <unistd.h>

CPtyPair::CPtyPair()
{
    int nModem = -1;
    int nPort = -1;
    char szName[64];
    termios stRaw{};
    cfmakeraw(&stRaw);
    if (openpty(&nModem, &nPort, szName, &stRaw, nullptr) != 0) {
        std::perror("openpty");
        std::abort();
    }
    // A program under test must not inherit the modem's end, or the modem couldn't go away.
    (void)fcntl(nModem, F_SETFD, FD_CLOEXEC);
    (void)fcntl(nPort, F_SETFD, FD_CLOEXEC);
    m_Modem.Reset(nModem);
    m_Port.Reset(nPort);
    m_strName = szName;
}

void CPtyPair::Write(ByteView data)
{
    while (!data.empty()) {
        const ssize_t nWritten = write(m_Modem.Get(), data.data(), data.size());
        if (nWritten < 0)
            return;
        data = data.subspan(static_cast<size_t>(nWritten));
    }
}

Bytes CPtyPair::Read(size_t szCount, std::chrono::milliseconds limit)
{
    const auto end = std::chrono::steady_clock::now() + limit;
    Bytes received;
    while (received.size() < szCount) {
        const auto left = std::chrono::ceil<std::chrono::milliseconds>(end - std::chrono::steady_clock::now());
        pollfd stPoll{m_Modem.Get(), POLLIN, 0};
        if (poll(&stPoll, 1, static_cast<int>(std::max<int64_t>(0, left.count()))) <= 0)
            break;
        unsigned char aucPart[4096];
        const ssize_t nRead = read(m_Modem.Get(), aucPart, std::min(sizeof(aucPart), szCount - received.size()));
        if (nRead <= 0)
            break;
        received.insert(received.end(), aucPart, aucPart + nRead);
    }
    return received;
}

void CPtyPair::Unplug()
{
    m_Modem.Reset();
}

void CPtyPair::Clog()
{
    const CUniqueFd port(open(m_strName.c_str(), O_WRONLY | O_NOCTTY | O_NONBLOCK));
    const Bytes block = Fill(256, 'x');
    const auto Fits = [&](size_t szCount) {
        bool bAny = false;
        while (write(port.Get(), block.data(), szCount) > 0)
            bAny = true;
        return bAny;
    };
    // The terminal moves bytes on in the background, so it is full only when it stays full, to the last byte.
    while (Fits(block.size()) || Fits(1))
        std::this_thread::sleep_for(std::chrono::milliseconds(100));
}

termios CPtyPair::Settings() const
{
    termios stSettings{};
    tcgetattr(m_Port.Get(), &stSettings);
    return stSettings;
}
