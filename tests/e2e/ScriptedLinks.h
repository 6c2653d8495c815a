#pragma once

#include "common/Types.h"
#include "support/Sockets.h"

#include <array>
#include <optional>

/// The UE that is reached over the network, played by listening sockets at the MonitorPort numbers of config/vex.cfg.
class CScriptedLinks
{
public:
    static constexpr unsigned short FIRST_PORT = 21000; // of the diag link; the others follow

    bool Listen();
    /// The same with a data link that is UDP: only the other three are connections.
    bool ListenWithoutData();
    /// Takes the agent's connections.
    bool Accept(std::chrono::milliseconds limit = SOCKET_LIMIT);
    /// Answers the handshake on the diag link, up to the last report switch. False when the agent says something else.
    bool Confirm();
    void CloseLinks();

    const CUniqueFd& Link(enSerialType enType) const { return m_aLink[static_cast<size_t>(enType)]; }
    /// Command id of the next request on the diag link; nothing when none comes.
    std::optional<uint32_t> ReadRequest(std::chrono::milliseconds limit = SOCKET_LIMIT) const;
    bool SendAck(uint32_t ulCmdId, const Bytes& payload) const;

    /// The device monitor's records.
    static bool Attach();
    static bool Detach();

private:
    std::array<CUniqueFd, SERIALNUM> m_aListener;
    std::array<CUniqueFd, SERIALNUM> m_aLink; // not open where nobody listens
};
