#include "uesim/Simulator.h"

#include "uesim/AtBehaviour.h"
#include "uesim/GuLinkBehaviour.h"
#include "uesim/GuReportBehaviour.h"
#include "uesim/LteDiagBehaviour.h"
#include "uesim/LteStreamBehaviour.h"
#include "uesim/RegisterBehaviour.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <poll.h>

namespace
{
constexpr auto PROBE_TIME = std::chrono::milliseconds(20);
constexpr auto DRAIN_TIME = std::chrono::seconds(2);  // how long queues may take to run empty at the end
constexpr auto DETACH_TIME = std::chrono::seconds(6); // how long the agent may take to close detached ports
constexpr uint32_t PORTS_APART = 100;                 // between the numbers of two UEs
const std::string NETWORK_IP = "127.0.0.1";

std::string Join(const auto& items, auto textOf)
{
    std::string strText;
    for (const auto& item : items) {
        if (!strText.empty())
            strText += ';';
        strText += textOf(item);
    }
    return strText;
}
} // namespace

CSimulator::CSimulator(const UESIM_OPTIONS& stOptions, const CConfig& config, CSimLog& log)
    : m_stOptions(stOptions), m_config(config), m_log(log), m_records(stOptions.strAttachHost, log)
{
}

bool CSimulator::Start(std::string& strError)
{
    std::error_code error;
    if (!m_stOptions.strDir.empty() && !std::filesystem::create_directories(m_stOptions.strDir, error) && error) {
        strError = "can't create " + m_stOptions.strDir + ": " + error.message();
        return false;
    }
    for (unsigned int i = 0; i < m_stOptions.ulUes; ++i)
        if (!AddPtyUe(i, strError))
            return false;
    if (m_stOptions.bNetwork && !AddNetworkUe(strError))
        return false;
    if (!m_stOptions.strAttachHost.empty())
        QueueRecords(true);
    return WriteChannels(strError);
}

bool CSimulator::AddPtyUe(unsigned int ulIndex, std::string& strError)
{
    const std::string strName = "ue" + std::to_string(ulIndex);
    CSimUe::Ports ports;
    for (unsigned int i = 0; i < SERIALNUM; ++i) {
        const auto enType = static_cast<enSerialType>(i);
        ports[i] = MakePtyPort(enType, m_stOptions.ulFirstPort + PORTS_APART * ulIndex + i);
        if (!ports[i]) {
            strError = "can't open a pseudo terminal: " + std::string(std::strerror(errno));
            return false;
        }
        if (!MakeLink(*ports[i], strName + "-" + PortLabel(enType), strError))
            return false;
        m_channelPorts.push_back(ports[i]->Number());
    }
    AddUe(ulIndex, strName, std::move(ports));
    return true;
}

bool CSimulator::AddNetworkUe(std::string& strError)
{
    const auto& rows = *m_config.GetMonitorPortInfo();
    if (rows.empty()) {
        strError = "--network needs MonitorPort in " + m_stOptions.strConfig;
        return false;
    }
    CSimUe::Ports ports;
    for (size_t i = 0; i < std::min<size_t>(rows.size(), SERIALNUM); ++i) {
        const auto enType = static_cast<enSerialType>(i);
        const auto usPort = static_cast<uint16_t>(rows[i].uiPort);
        ports[i] = rows[i].uiIsTcp != 0 ? MakeTcpPort(enType, usPort) : MakeUdpPort(enType, usPort, NETWORK_IP);
        if (!ports[i]) {
            strError = "can't use port " + std::to_string(usPort) + ": " + std::strerror(errno);
            return false;
        }
    }
    AddUe(TCP_UE_INDEX, "net", std::move(ports));
    return true;
}

void CSimulator::AddUe(unsigned int ulIndex, const std::string& strName, CSimUe::Ports ports)
{
    auto pUe =
        std::make_unique<CSimUe>(ulIndex, strName, std::move(ports), m_stOptions, *m_config.GetFilterCfg(), m_log);
    CLteStreamBehaviour* pStream = nullptr;
    if (m_stOptions.bLteStream) {
        auto pNew = std::make_unique<CLteStreamBehaviour>(*pUe, m_config);
        pStream = pNew.get();
        pUe->AddBehaviour(std::move(pNew));
    }
    pUe->AddBehaviour(std::make_unique<CLteDiagBehaviour>(*pUe, [pStream] {
        if (pStream != nullptr)
            pStream->OnSwitchesDone();
    }));
    pUe->AddBehaviour(std::make_unique<CAtBehaviour>(*pUe));
    AddGuBehaviours(*pUe);
    m_ues.push_back(std::move(pUe));
}

void CSimulator::AddGuBehaviours(CSimUe& ue) const
{
    auto pLink = std::make_unique<CGuLinkBehaviour>(ue);
    auto pReports = std::make_unique<CGuReportBehaviour>(ue, pLink->Line());
    auto pRegisters = std::make_unique<CRegisterBehaviour>(ue, pLink->Line());
    pLink->AddService(pReports.get());
    pLink->AddService(pRegisters.get());
    ue.AddBehaviour(std::move(pLink));
    ue.AddBehaviour(std::move(pReports));
    ue.AddBehaviour(std::move(pRegisters));
}

/// A stable name for a port; one that a former run left is replaced.
bool CSimulator::MakeLink(const CSimPort& port, const std::string& strName, std::string& strError)
{
    if (m_stOptions.strDir.empty()) {
        m_channelNames.push_back(port.Name());
        return true;
    }
    const auto path = std::filesystem::absolute(m_stOptions.strDir) / strName;
    std::error_code error;
    if (std::filesystem::is_symlink(path, error))
        std::filesystem::remove(path, error);
    std::filesystem::create_symlink(port.Name(), path, error);
    m_channelNames.push_back(path.string());
    if (error)
        strError = "can't create " + path.string() + ": " + error.message();
    return !error;
}

std::string CSimulator::ChannelLines() const
{
    if (m_channelNames.empty())
        return "";
    return "ChannelName=" + Join(m_channelNames, [](const std::string& strName) { return strName; }) +
           "\nChannelPort=" + Join(m_channelPorts, [](uint32_t ulPort) { return std::to_string(ulPort); }) + "\n";
}

bool CSimulator::WriteChannels(std::string& strError) const
{
    if (m_stOptions.strDir.empty())
        return true;
    const auto path = std::filesystem::path(m_stOptions.strDir) / "channels.cfg";
    std::ofstream file(path);
    file << ChannelLines();
    file.close();
    if (!file)
        strError = "can't write " + path.string();
    return !!file;
}

void CSimulator::QueueRecords(bool bArrives)
{
    m_bAttached = bArrives;
    const uint8_t ucArrive = bArrives ? DEVICE_MONITOR_INFO_STRU::ARRIVED : DEVICE_MONITOR_INFO_STRU::LEFT;
    for (size_t i = 0; i < m_channelNames.size(); ++i)
        m_records.Add({m_channelPorts[i], static_cast<uint8_t>(i % SERIALNUM), ucArrive, m_channelNames[i],
                       "sim" + std::to_string(i / SERIALNUM)});
    if (m_stOptions.bNetwork)
        m_records.Add({0, SERIAL_TYPE_DIAG, ucArrive, "", NETWORK_IP});
}

void CSimulator::Run(const std::atomic<bool>& bStop, const sigset_t* pWaitMask)
{
    const SimTime end = m_stOptions.dRunFor > 0
                            ? SimClock::now() + std::chrono::duration_cast<SimDuration>(
                                                    std::chrono::duration<double>(m_stOptions.dRunFor))
                            : NEVER;
    while (!bStop && SimClock::now() < end)
        Pass(end, true, pWaitMask);
    Finish(pWaitMask);
}

/// One turn of the loop: probes and ticks where they are due, then a wait for bytes until the next of them.
void CSimulator::Pass(SimTime limit, bool bTick, const sigset_t* pWaitMask)
{
    const SimTime now = SimClock::now();
    if (now >= m_nextProbe) {
        for (const auto& pUe : m_ues)
            pUe->Probe(now);
        m_nextProbe = now + PROBE_TIME;
    }
    if (m_bToggle.exchange(false) && !m_stOptions.strAttachHost.empty())
        QueueRecords(!m_bAttached);
    SimTime next = std::min({limit, m_nextProbe, m_records.OnTick(now)});
    if (bTick)
        for (const auto& pUe : m_ues)
            next = std::min(next, pUe->Tick(now));
    Wait(next, pWaitMask);
}

void CSimulator::Wait(SimTime until, const sigset_t* pWaitMask)
{
    struct WAITER
    {
        CSimUe* pUe;
        CSimPort* pPort;
    };
    static std::vector<pollfd> polls; // kept for their memory; the simulator has one thread
    static std::vector<WAITER> waiters;
    polls.clear();
    waiters.clear();
    for (const auto& pUe : m_ues)
        for (const auto& pPort : pUe->GetPorts()) {
            if (!pPort || pPort->WaitFd() < 0)
                continue;
            const int nEvents = (pPort->WantsRead() ? POLLIN : 0) | (pPort->WantsWrite() ? POLLOUT : 0);
            polls.push_back({pPort->WaitFd(), static_cast<short>(nEvents), 0});
            waiters.push_back({pUe.get(), pPort.get()});
        }
    const auto nNanos =
        std::max<int64_t>(0, std::chrono::duration_cast<std::chrono::nanoseconds>(until - SimClock::now()).count());
    const timespec stTimeout{nNanos / 1000000000, nNanos % 1000000000};
    if (ppoll(polls.data(), polls.size(), &stTimeout, pWaitMask) <= 0)
        return;
    for (size_t i = 0; i < polls.size(); ++i) {
        const int nEvents = polls[i].revents;
        if (nEvents != 0 && !waiters[i].pPort->IsOpen())
            m_nextProbe = {}; // somebody connects
        if ((nEvents & POLLOUT) != 0 && waiters[i].pPort->IsOpen())
            waiters[i].pUe->OnWritable(*waiters[i].pPort);
        if ((nEvents & (POLLIN | POLLHUP | POLLERR)) != 0 && waiters[i].pPort->IsOpen())
            waiters[i].pUe->OnReadable(*waiters[i].pPort);
    }
}

/// Detached ports stay until the agent has closed them, so that it finds its modems in order to the last.
void CSimulator::Finish(const sigset_t* pWaitMask)
{
    const bool bDetach = m_bAttached;
    if (bDetach)
        QueueRecords(false);
    const SimTime end = SimClock::now() + (bDetach ? SimDuration(DETACH_TIME) : SimDuration(DRAIN_TIME));
    const auto isDone = [&] {
        return (m_records.Empty() || m_records.IsRefused()) && (bDetach ? IsClosed() : IsDrained());
    };
    while (SimClock::now() < end && !isDone())
        Pass(end, false, pWaitMask);
}

bool CSimulator::IsClosed() const
{
    return std::ranges::all_of(m_ues, [](const auto& pUe) {
        return std::ranges::none_of(pUe->GetPorts(), [](const auto& pPort) { return pPort && pPort->IsOpen(); });
    });
}

bool CSimulator::IsDrained() const
{
    return std::ranges::all_of(m_ues, [](const auto& pUe) {
        return std::ranges::all_of(pUe->GetPorts(), [](const auto& pPort) { return !pPort || pPort->IsDrained(); });
    });
}
