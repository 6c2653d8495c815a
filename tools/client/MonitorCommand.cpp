#include "client/Commands.h"

#include "client/MonitorModel.h"
#include "client/Stop.h"

#include <array>
#include <cmath>
#include <cstring>
#include <memory>
#include <netdb.h>
#include <netinet/in.h>
#include <sys/socket.h>

namespace
{
/// A UDP socket on the status port; not open, with errno, when another monitor has it.
CUniqueFd OpenStatusSocket()
{
    CUniqueFd fd(socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0));
    sockaddr_in stAddr{};
    stAddr.sin_family = AF_INET;
    stAddr.sin_port = htons(STATUS_PORT);
    stAddr.sin_addr.s_addr = htonl(INADDR_ANY);
    const auto* pAddr = reinterpret_cast<const sockaddr*>(&stAddr); // the form that the call wants
    if (fd.IsOpen() && bind(fd.Get(), pAddr, sizeof(stAddr)) != 0)
        fd.Reset();
    return fd;
}

/// Asks the agent to tell its whole state.
bool SendQuery(int nFd, const std::string& strHost)
{
    addrinfo stHints{};
    stHints.ai_family = AF_INET;
    stHints.ai_socktype = SOCK_DGRAM;
    addrinfo* pFound = nullptr;
    if (getaddrinfo(strHost.c_str(), std::to_string(STATUS_QUERY_PORT).c_str(), &stHints, &pFound) != 0)
        return false;
    const std::unique_ptr<addrinfo, decltype(&freeaddrinfo)> list(pFound, &freeaddrinfo);
    const unsigned char ucQuery = AGENT_STATUS_QUERY_CURRENT;
    return sendto(nFd, &ucQuery, sizeof(ucQuery), 0, list->ai_addr, list->ai_addrlen) == 1;
}

std::string ValueText(const ordered_json& value)
{
    if (value.is_string())
        return value.get<std::string>();
    return value.is_number_float() ? std::to_string(std::llround(value.get<double>())) : value.dump();
}

/// "port_attached  group=...  port=..."
std::string EventLine(const ordered_json& event)
{
    std::string strLine;
    for (const auto& [strName, value] : event.items())
        strLine += strLine.empty() ? ValueText(value) : "  " + strName + '=' + ValueText(value);
    return strLine + '\n';
}

/// Takes every datagram that is there.
void TakeDatagrams(int nFd, CMonitorModel& model, CPrinter& printer, bool bEvents)
{
    std::array<unsigned char, 2048> aucDatagram{};
    for (;;) {
        const ssize_t lGot = recv(nFd, aucDatagram.data(), aucDatagram.size(), MSG_DONTWAIT);
        if (lGot < 0)
            return;
        const ordered_json event =
            model.Apply(Slice(ByteView(aucDatagram), 0, static_cast<size_t>(lGot)), Clock::now());
        if (bEvents && !event.is_null())
            printer.Print(event, EventLine(event));
    }
}
} // namespace

EXIT_CODE RunMonitor(const CONTEXT& stContext, const MONITOR_ARGS& stArgs)
{
    constexpr const char* CLEAR_SCREEN = "\033[H\033[J";
    CPrinter& printer = stContext.printer;
    const CUniqueFd fd = OpenStatusSocket();
    if (!fd.IsOpen())
        return stContext.Fail(CODE_NO_CONNECTION,
                              std::string("cannot listen on UDP port 20560: ") + std::strerror(errno));
    if (!SendQuery(fd.Get(), stContext.stOptions.strHost))
        return stContext.Fail(CODE_NO_CONNECTION, "cannot send the status query to " + stContext.stOptions.strHost);
    CMonitorModel model;
    const bool bTable = stArgs.bTerminal && !printer.IsJson();
    const auto end = After(stArgs.seconds);
    auto redraw = Clock::now();
    while (!StopRequested() && Clock::now() < end) {
        const int nFd = fd.Get();
        WaitReadable({&nFd, 1}, std::min(end, std::max(redraw, Clock::now() + std::chrono::milliseconds(100))));
        TakeDatagrams(nFd, model, printer, !bTable);
        if (bTable && Clock::now() >= redraw) {
            printer.Print({}, CLEAR_SCREEN + model.Table());
            redraw = Clock::now() + std::chrono::milliseconds(500);
        }
        printer.Flush();
    }
    if (!printer.IsJson())
        printer.Print({}, (bTable ? CLEAR_SCREEN : "\n") + model.Table());
    return CODE_DONE;
}
