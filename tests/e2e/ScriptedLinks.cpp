#include "e2e/ScriptedLinks.h"

#include "e2e/AgentBench.h"
#include "e2e/ScriptedUe.h"

#include <algorithm>

namespace
{
constexpr uint32_t HOST_CONNECT = 0x10065000;
constexpr uint32_t TIME_STAMP = 0x10067000;
constexpr int REPORT_SWITCHES = 24;
constexpr unsigned char FLAG = 0x7E;
} // namespace

bool CScriptedLinks::Listen()
{
    for (unsigned short i = 0; i < SERIALNUM; ++i)
        m_aListener[i] = ListenTcp(static_cast<unsigned short>(FIRST_PORT + i));
    return std::ranges::all_of(m_aListener, &CUniqueFd::IsOpen);
}

bool CScriptedLinks::ListenWithoutData()
{
    const bool bListens = Listen();
    m_aListener[SERIAL_TYPE_DATA].Reset();
    return bListens;
}

bool CScriptedLinks::Accept(std::chrono::milliseconds limit)
{
    const auto end = std::chrono::steady_clock::now() + limit;
    for (size_t i = 0; i < SERIALNUM; ++i) {
        if (!m_aListener[i].IsOpen())
            continue;
        const auto left = std::chrono::ceil<std::chrono::milliseconds>(end - std::chrono::steady_clock::now());
        m_aLink[i] = AcceptTcp(m_aListener[i], std::max(std::chrono::milliseconds(0), left));
        if (!m_aLink[i].IsOpen())
            return false;
    }
    return true;
}

bool CScriptedLinks::Confirm()
{
    if (ReadRequest() != HOST_CONNECT || ReadRequest() != TIME_STAMP ||
        !SendAck(HOST_CONNECT, CScriptedUe::HostConnectPayload()))
        return false;
    for (int i = 0; i < REPORT_SWITCHES; ++i)
        if (!ReadRequest())
            return false;
    return true;
}

void CScriptedLinks::CloseLinks()
{
    for (CUniqueFd& link : m_aLink)
        link.Reset();
}

std::optional<uint32_t> CScriptedLinks::ReadRequest(std::chrono::milliseconds limit) const
{
    constexpr size_t CMD_ID = 8;
    const CUniqueFd& diag = Link(SERIAL_TYPE_DIAG);
    Bytes frame = ReceiveBytes(diag, 1, limit);
    while (!frame.empty() && (frame.size() < 2 || frame.back() != FLAG)) {
        const Bytes next = ReceiveBytes(diag, 1, limit);
        if (next.empty())
            return std::nullopt;
        frame.push_back(next[0]);
    }
    const auto packet = frame.empty() ? std::nullopt : CScriptedUe::Unframe(frame);
    return packet ? std::optional(LoadLe<uint32_t>(*packet, CMD_ID)) : std::nullopt;
}

bool CScriptedLinks::SendAck(uint32_t ulCmdId, const Bytes& payload) const
{
    return SendAll(Link(SERIAL_TYPE_DIAG), CScriptedUe::Frame(CScriptedUe::Packet(0, ulCmdId, 0, 0, 0, payload)));
}

bool CScriptedLinks::Attach()
{
    return SendDeviceRecord(0, 0, 1, "", "127.0.0.1");
}

bool CScriptedLinks::Detach()
{
    return SendDeviceRecord(0, 0, 0, "", "");
}
