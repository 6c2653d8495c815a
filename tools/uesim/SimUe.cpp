#include "uesim/SimUe.h"

#include <algorithm>
#include <cinttypes>

namespace
{
constexpr uint64_t CLOCK_START = UE_TICKS_PER_SECOND * 60; // a modem that has been up for a minute

UE_IDENTITY IdentityOf(unsigned int ulIndex)
{
    UE_IDENTITY stIdentity;
    stIdentity.strImei = "8600000001" + std::to_string(10000 + ulIndex); // 15 digits
    stIdentity.ausVersion = {100, 1, 10, 200, static_cast<uint16_t>(ulIndex), 7};
    return stIdentity;
}
} // namespace

const char* PortLabel(enSerialType enPort)
{
    static constexpr std::array<const char*, SERIALNUM> LABELS = {"diag", "data", "gu", "at"};
    return LABELS[static_cast<size_t>(enPort)];
}

std::string UE_IDENTITY::VersionText() const
{
    std::array<char, 64> acText{};
    (void)std::snprintf(acText.data(), acText.size(), "V%03dR%03dC%02dB%03dSP%02d", ausVersion[0], ausVersion[1],
                        ausVersion[2], ausVersion[3], ausVersion[4]);
    return acText.data();
}

CSimUe::CSimUe(unsigned int ulIndex, std::string strName, Ports ports, const UESIM_OPTIONS& stOptions,
               const FILTER_CFG_STRU& stLayout, CSimLog& log)
    : m_ulIndex(ulIndex),
      m_strName(std::move(strName)),
      m_stOptions(stOptions),
      m_stLayout(stLayout),
      m_log(log),
      m_stIdentity(IdentityOf(ulIndex)),
      m_start(SimClock::now()),
      m_ports(std::move(ports))
{
}

void CSimUe::SetIdentity(const std::string& strImei, const std::string& strVersion)
{
    m_stIdentity.strImei = strImei;
    auto& ausVersion = m_stIdentity.ausVersion;
    (void)std::sscanf(strVersion.c_str(),
                      "V%3hu"
                      "R%3hu"
                      "C%2hu"
                      "B%3hu"
                      "SP%2hu",
                      &ausVersion[0], &ausVersion[1], &ausVersion[2], &ausVersion[3], &ausVersion[4]);
}

uint64_t CSimUe::Clock(SimTime now) const
{
    const auto nMicros = std::chrono::duration_cast<std::chrono::microseconds>(now - m_start).count();
    return CLOCK_START + static_cast<uint64_t>(nMicros) * UE_TICKS_PER_SECOND / 1000000;
}

void CSimUe::Send(enSerialType enPort, ByteView packet)
{
    if (const auto& pPort = m_ports[static_cast<size_t>(enPort)])
        pPort->Send(packet);
}

bool CSimUe::HasRoom(enSerialType enPort, SimTime now) const
{
    const auto& pPort = m_ports[static_cast<size_t>(enPort)];
    return pPort && pPort->HasRoom() && now - m_aOpened[static_cast<size_t>(enPort)] >= SETTLE_TIME;
}

void CSimUe::Probe(SimTime now)
{
    for (const auto& pPort : m_ports) {
        const auto change = pPort ? pPort->Probe() : CSimPort::Change::None;
        if (change == CSimPort::Change::Closed)
            Closed(*pPort);
        if (change != CSimPort::Change::Opened)
            continue;
        m_aOpened[static_cast<size_t>(pPort->Type())] = now;
        m_log.Event(m_strName, "%s opened", PortLabel(pPort->Type()));
        for (const auto& pBehaviour : m_behaviours)
            pBehaviour->OnPortOpened(pPort->Type(), now);
    }
}

void CSimUe::Closed(CSimPort& port)
{
    const size_t szLost = port.Close();
    m_log.Event(m_strName, "%s closed, %zu bytes not taken", PortLabel(port.Type()), szLost);
    for (const auto& pBehaviour : m_behaviours)
        pBehaviour->OnPortClosed(port.Type());
}

void CSimUe::OnReadable(CSimPort& port)
{
    if (!port.Read([&](ByteView packet) { HandlePacket(port.Type(), packet); }))
        Closed(port);
}

void CSimUe::OnWritable(CSimPort& port)
{
    if (!port.Write())
        Closed(port);
}

SimTime CSimUe::Tick(SimTime now)
{
    SimTime next = NEVER;
    for (const auto& pBehaviour : m_behaviours)
        next = std::min(next, pBehaviour->OnTick(now));
    return next;
}

void CSimUe::HandlePacket(enSerialType enPort, ByteView packet)
{
    m_log.Dump(m_strName, PortLabel(enPort), packet);
    const bool bTaken =
        std::ranges::any_of(m_behaviours, [&](const auto& pBehaviour) { return pBehaviour->OnPacket(enPort, packet); });
    if (!bTaken)
        m_log.Event(m_strName, "%s unknown packet of %zu bytes", PortLabel(enPort), packet.size());
}
