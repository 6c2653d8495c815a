#include "hotplug/HotplugLoop.h"

#include "common/Wait.h"
#include "hotplug/Listener.h"

#include <algorithm>

namespace
{
using std::chrono::steady_clock;

constexpr std::chrono::seconds LOOK_PERIOD{1};
constexpr std::chrono::seconds RETRY_TIME{1};

/// "port 101, diag: arrives, /dev/ttyUSB0 of modem pci-0000:00:14.0-usb-0:4"
std::string TextOf(const DEVICE_MONITOR_INFO_STRU& stRecord)
{
    const bool bArrives = stRecord.barrive == DEVICE_MONITOR_INFO_STRU::ARRIVED;
    std::string strText = "port " + std::to_string(stRecord.ulPortNum);
    if (stRecord.szGroupId.empty())
        return strText + ": isn't there";
    strText += std::string(", ") + ROLE_NAMES[stRecord.cSerialType] + (bArrives ? ": arrives, " : ": leaves, ");
    return strText + stRecord.szSerialName + " of modem " + stRecord.szGroupId;
}

std::vector<uint32_t> UnknownPorts(const HOTPLUG_OPTIONS& stOptions, const CNumbers& numbers)
{
    return stOptions.bDryRun ? std::vector<uint32_t>() : numbers.All();
}
} // namespace

CHotplugLoop::CHotplugLoop(const HOTPLUG_OPTIONS& stOptions, const CRules& rules, CNumbers numbers,
                           CStateFile& stateFile, IPortSource& source, CHotplugLog& log)
    : m_stOptions(stOptions),
      m_rules(rules),
      m_numbers(std::move(numbers)),
      m_stateFile(stateFile),
      m_source(source),
      m_log(log),
      m_ledger(UnknownPorts(stOptions, m_numbers))
{
}

HOTPLUG_EXIT CHotplugLoop::Run(int nStopFd)
{
    TakeAll();
    do {
        if (m_stOptions.bDryRun)
            ShowAll();
        else
            TellAll();
        if (m_stOptions.bOnce && !m_delivery.IsUnderWay())
            return m_ledger.Next() ? HOTPLUG_NO_AGENT : HOTPLUG_DONE;
    } while (Wait(nStopFd));
    return m_stOptions.bOnce ? HOTPLUG_NO_AGENT : HOTPLUG_DONE;
}

/// All that can be told without waiting.
void CHotplugLoop::TellAll()
{
    if (const TIME now = steady_clock::now(); now >= m_nextLook)
        LookAtAgent(now);
    while (Tell(steady_clock::now())) {
    }
}

void CHotplugLoop::TakeAll()
{
    m_modems.Replace(m_source.List());
    Update();
}

void CHotplugLoop::TakeEvents()
{
    std::vector<PORT_EVENT> events;
    if (!m_source.Read(events)) {
        m_log.Line("events were lost, looking at all ports");
        return TakeAll();
    }
    for (const PORT_EVENT& stEvent : events) {
        if (stEvent.bArrives)
            m_modems.Arrive(stEvent.stPort);
        else
            m_modems.Leave(stEvent.stPort.strSysPath);
    }
    if (!events.empty())
        Update();
}

/// A number is on the disk before the agent hears of it.
void CHotplugLoop::Update()
{
    const std::vector<PORT_ROW> rows = m_modems.Rows(m_rules, m_numbers);
    std::vector<std::string> complaints = Complaints(rows, m_stOptions.bVerbose);
    std::string strError;
    if (!m_stOptions.bDryRun && !m_stateFile.Save(m_numbers, strError))
        complaints.push_back(strError);
    for (const std::string& strLine : complaints)
        if (std::ranges::find(m_complaints, strLine) == m_complaints.end())
            m_log.Line(strLine);
    m_complaints = std::move(complaints);
    m_ledger.Want(rows);
}

void CHotplugLoop::LookAtAgent(TIME now)
{
    m_nextLook = now + LOOK_PERIOD;
    const uint64_t ullAgent = FindListener(m_stOptions.stAgent);
    m_bPresent = ullAgent != 0;
    m_bWasAbsent = m_bWasAbsent || !m_bPresent;
    if (!m_bPresent)
        m_log.State("no agent listens on " + m_stOptions.strAgent + " of this machine; waiting for one");
    else if (ullAgent != m_ullAgent)
        OnNewAgent(ullAgent);
}

void CHotplugLoop::OnNewAgent(uint64_t ullAgent)
{
    m_log.State("");
    // One that was there before this program may hold ports of an earlier run of it; any other one knows nothing.
    if (m_ullAgent != 0 || m_bWasAbsent) {
        m_log.Line("a new agent listens on " + m_stOptions.strAgent);
        m_ledger.ForgetTold();
        m_delivery.Drop(); // whose agent it went to isn't sure
    }
    m_ullAgent = ullAgent;
    m_retry = {};
}

/// One step. True when the next one can follow at once.
bool CHotplugLoop::Tell(TIME now)
{
    if (!m_delivery.IsUnderWay() && !StartNext(now))
        return false;
    switch (m_delivery.Advance(now)) {
    case CDelivery::STATE::UNDER_WAY:
        return false;
    case CDelivery::STATE::DELIVERED:
        OnDelivered(now);
        return true;
    case CDelivery::STATE::FAILED:
        break;
    }
    OnFailed(now);
    return false;
}

bool CHotplugLoop::StartNext(TIME now)
{
    if (now < m_retry || !m_ledger.Next())
        return false;
    LookAtAgent(now);
    const auto record = m_ledger.Next(); // a new agent changes it
    if (!m_bPresent || !record)
        return false;
    m_stRecord = *record;
    m_delivery.Start(m_stOptions.stAgent, m_stRecord, now);
    return true;
}

void CHotplugLoop::OnDelivered(TIME now)
{
    m_log.State("");
    m_log.Line(TextOf(m_stRecord));
    m_ledger.Told();
    LookAtAgent(now); // was it this agent that took it?
}

void CHotplugLoop::OnFailed(TIME now)
{
    m_log.State(m_stOptions.strAgent + " doesn't take records (" + m_delivery.Error() + "); trying every second");
    m_retry = m_nextLook = now + RETRY_TIME;
}

/// In place of telling: shows each record that would be told.
void CHotplugLoop::ShowAll()
{
    while (const auto record = m_ledger.Next()) {
        m_log.Line("would tell " + TextOf(*record));
        m_ledger.Told();
    }
}

/// Waits for whatever comes next. False when it is to stop.
bool CHotplugLoop::Wait(int nStopFd)
{
    TIME end = std::max(m_nextLook, steady_clock::now());
    if (m_stOptions.bDryRun)
        end = steady_clock::now() + std::chrono::hours(1); // only events matter
    if (m_delivery.IsUnderWay())
        end = std::min(end, m_delivery.End());
    std::array<pollfd, 3> fds = {{{nStopFd, POLLIN, 0}, {m_source.Fd(), POLLIN, 0}, m_delivery.PollFd()}};
    if (PollFor(fds, MsUntil(end)) > 0 && fds[1].revents != 0)
        TakeEvents();
    return fds[0].revents == 0;
}
