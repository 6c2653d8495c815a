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
#include <sstream>

namespace
{
constexpr auto PROBE_TIME = std::chrono::milliseconds(20);
constexpr auto DRAIN_TIME = std::chrono::seconds(2);  // how long queues may take to run empty at the end
constexpr auto DETACH_TIME = std::chrono::seconds(6); // how long the agent may take to close detached ports
constexpr uint32_t PORTS_APART = 100;                 // between the numbers of two UEs
const std::string NETWORK_IP = "127.0.0.1";

std::string UeName(unsigned int ulIndex)
{
    return ulIndex == TCP_UE_INDEX ? "net" : "ue" + std::to_string(ulIndex);
}

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

CSimulator::CSimulator(const UESIM_OPTIONS& stOptions, const CConfig& config, CSimLog& log, CReplay* pReplay)
    : m_stOptions(stOptions), m_config(config), m_log(log), m_pReplay(pReplay), m_records(stOptions.strAttachHost, log)
{
}

bool CSimulator::Start(std::string& strError)
{
    std::error_code error;
    if (!m_stOptions.strDir.empty() && !std::filesystem::create_directories(m_stOptions.strDir, error) && error) {
        strError = "can't create " + m_stOptions.strDir + ": " + error.message();
        return false;
    }
    if (!(m_pReplay != nullptr ? AddReplayedUes(strError) : AddSimulatedUes(strError)))
        return false;
    if (!m_stOptions.strAttachHost.empty())
        QueueAtStart();
    return WriteChannels(strError);
}

bool CSimulator::AddSimulatedUes(std::string& strError)
{
    for (unsigned int i = 0; i < m_stOptions.ulUes; ++i)
        if (!AddPtyUe(i, strError))
            return false;
    return !m_stOptions.bNetwork || AddNetworkUe(strError);
}

bool CSimulator::AddPtyUe(unsigned int ulIndex, std::string& strError)
{
    CSimUe::Ports ports;
    for (unsigned int i = 0; i < SERIALNUM; ++i) {
        const uint32_t ulNumber = m_stOptions.ulFirstPort + PORTS_APART * ulIndex + i;
        const std::string strGroup = "sim" + std::to_string(ulIndex);
        if (!AddPty(ulIndex, {ulNumber, static_cast<enSerialType>(i), true, "", strGroup}, ports, strError))
            return false;
    }
    AddBehaviours(AddUe(ulIndex, std::move(ports)));
    return true;
}

bool CSimulator::AddPty(unsigned int ulUe, DEVICE_RECORD stRecord, CSimUe::Ports& ports, std::string& strError)
{
    auto& pPort = ports[static_cast<size_t>(stRecord.enType)];
    pPort = MakePtyPort(stRecord.enType, stRecord.ulPortNum);
    if (!pPort) {
        strError = "can't open a pseudo terminal: " + std::string(std::strerror(errno));
        return false;
    }
    stRecord.strName = MakeLink(*pPort, UeName(ulUe) + "-" + PortLabel(stRecord.enType), strError);
    m_channels.push_back({ulUe, std::move(stRecord)});
    return strError.empty();
}

bool CSimulator::AddNetworkUe(std::string& strError)
{
    CSimUe::Ports ports;
    if (!MakeNetworkPorts(ports, strError))
        return false;
    m_channels.push_back({TCP_UE_INDEX, {0, SERIAL_TYPE_DIAG, true, "", NETWORK_IP}});
    AddBehaviours(AddUe(TCP_UE_INDEX, std::move(ports)));
    return true;
}

bool CSimulator::MakeNetworkPorts(CSimUe::Ports& ports, std::string& strError)
{
    const auto& rows = *m_config.GetMonitorPortInfo();
    if (rows.empty()) {
        strError = "the network UE needs MonitorPort in the configuration";
        return false;
    }
    for (size_t i = 0; i < std::min<size_t>(rows.size(), SERIALNUM); ++i) {
        const auto enType = static_cast<enSerialType>(i);
        const auto usPort = static_cast<uint16_t>(rows[i].uiPort);
        ports[i] = rows[i].uiIsTcp != 0 ? MakeTcpPort(enType, usPort) : MakeUdpPort(enType, usPort, NETWORK_IP);
        if (!ports[i]) {
            strError = "can't use port " + std::to_string(usPort) + ": " + std::strerror(errno);
            return false;
        }
    }
    return true;
}

bool CSimulator::AddReplayedUes(std::string& strError)
{
    return std::ranges::all_of(m_pReplay->Plan().Ues(),
                               [&](const auto& stPair) { return AddReplayedUe(stPair.second, strError); });
}

/// The network UE is one device to the monitor, whatever its links.
bool CSimulator::AddReplayedUe(const REPLAY_UE& stPlan, std::string& strError)
{
    const bool bNetwork = stPlan.ulSlot == TCP_UE_INDEX;
    CSimUe::Ports ports;
    if (bNetwork && !MakeNetworkPorts(ports, strError))
        return false;
    if (bNetwork)
        m_channels.push_back({TCP_UE_INDEX, {0, SERIAL_TYPE_DIAG, stPlan.present[SERIAL_TYPE_DIAG], "", NETWORK_IP}});
    for (size_t i = 0; i < SERIALNUM && !bNetwork; ++i) {
        if (!stPlan.ports[i])
            continue;
        const auto enType = static_cast<enSerialType>(i);
        if (!AddPty(stPlan.ulSlot, {*stPlan.ports[i], enType, stPlan.present[i], "", stPlan.strGroup}, ports, strError))
            return false;
    }
    m_pReplay->Play(AddUe(stPlan.ulSlot, std::move(ports)), stPlan, !m_stOptions.strAttachHost.empty(),
                    [this, &stPlan](const REPLAY_EVENT& stEvent) { PlayEvent(stPlan.ulSlot, stEvent); });
    return true;
}

/// A port may come back with another number.
void CSimulator::PlayEvent(unsigned int ulUe, const REPLAY_EVENT& stEvent)
{
    if (m_stOptions.strAttachHost.empty())
        return;
    for (CHANNEL& stChannel : m_channels) {
        if (stChannel.ulUe != ulUe || stChannel.stRecord.enType != stEvent.enPort)
            continue;
        if (stEvent.bArrives && stChannel.stRecord.ulPortNum != 0)
            stChannel.stRecord.ulPortNum = stEvent.ulNumber;
        QueueRecord(stChannel, stEvent.bArrives);
    }
}

CSimUe& CSimulator::AddUe(unsigned int ulIndex, CSimUe::Ports ports)
{
    m_ues.push_back(std::make_unique<CSimUe>(ulIndex, UeName(ulIndex), std::move(ports), m_stOptions,
                                             *m_config.GetFilterCfg(), m_log));
    return *m_ues.back();
}

void CSimulator::AddBehaviours(CSimUe& ue) const
{
    CLteStreamBehaviour* pStream = nullptr;
    if (m_stOptions.bLteStream) {
        auto pNew = std::make_unique<CLteStreamBehaviour>(ue, m_config);
        pStream = pNew.get();
        ue.AddBehaviour(std::move(pNew));
    }
    ue.AddBehaviour(std::make_unique<CLteDiagBehaviour>(ue, [pStream] {
        if (pStream != nullptr)
            pStream->OnSwitchesDone();
    }));
    ue.AddBehaviour(std::make_unique<CAtBehaviour>(ue));
    AddGuBehaviours(ue);
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

/// A link that a former run left is replaced.
std::string CSimulator::MakeLink(const CSimPort& port, const std::string& strName, std::string& strError) const
{
    if (m_stOptions.strDir.empty())
        return port.Name();
    const auto path = std::filesystem::absolute(m_stOptions.strDir) / strName;
    std::error_code error;
    if (std::filesystem::is_symlink(path, error))
        std::filesystem::remove(path, error);
    std::filesystem::create_symlink(port.Name(), path, error);
    if (error)
        strError = "can't create " + path.string() + ": " + error.message();
    return path.string();
}

/// The network UE has no name that could be configured.
std::string CSimulator::ChannelLines() const
{
    std::vector<DEVICE_RECORD> records;
    for (const CHANNEL& stChannel : m_channels)
        if (!stChannel.stRecord.strName.empty())
            records.push_back(stChannel.stRecord);
    if (records.empty())
        return "";
    return "ChannelName=" + Join(records, [](const DEVICE_RECORD& st) { return st.strName; }) +
           "\nChannelPort=" + Join(records, [](const DEVICE_RECORD& st) { return std::to_string(st.ulPortNum); }) +
           "\n";
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

/// Those that are there from the start; in a replay some may come later.
void CSimulator::QueueAtStart()
{
    m_bAttached = true;
    for (CHANNEL& stChannel : m_channels)
        QueueRecord(stChannel, stChannel.stRecord.bArrives);
}

void CSimulator::QueueRecords(bool bArrives)
{
    m_bAttached = bArrives;
    for (CHANNEL& stChannel : m_channels)
        QueueRecord(stChannel, bArrives);
}

void CSimulator::QueueRecord(CHANNEL& stChannel, bool bArrives)
{
    if (stChannel.bAttached == bArrives)
        return;
    stChannel.bAttached = bArrives;
    DEVICE_RECORD stRecord = stChannel.stRecord;
    stRecord.bArrives = bArrives;
    m_records.Add(std::move(stRecord));
}

void CSimulator::Run(const std::atomic<bool>& bStop, const sigset_t* pWaitMask)
{
    const SimTime end = m_stOptions.dRunFor > 0
                            ? SimClock::now() + std::chrono::duration_cast<SimDuration>(
                                                    std::chrono::duration<double>(m_stOptions.dRunFor))
                            : NEVER;
    while (!bStop && SimClock::now() < end && !IsReplayDone(pWaitMask))
        Pass(end, true, pWaitMask);
    Finish(pWaitMask);
}

/// True at the end of a replay; with --loop that is the start of the next one.
bool CSimulator::IsReplayDone(const sigset_t* pWaitMask)
{
    if (m_pReplay == nullptr || !m_pReplay->IsDone(SimClock::now()))
        return false;
    if (!m_stOptions.bLoop)
        return true;
    std::istringstream report(m_pReplay->Report());
    for (std::string strLine; std::getline(report, strLine);)
        m_log.Event("replay", "%s", strLine.c_str());
    Finish(pWaitMask);
    m_pReplay->Restart(SimClock::now());
    if (!m_stOptions.strAttachHost.empty())
        QueueAtStart();
    return false;
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
