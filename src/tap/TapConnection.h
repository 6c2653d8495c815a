#pragma once

#include "common/UniqueFd.h"
#include "tap/TapMemory.h"
#include "tap/TapReader.h"

#include <chrono>
#include <memory>
#include <string>

/// An observer's connection to a running agent.
class CTapConnection
{
public:
    /// Null, with what is wrong, when no agent listens there or what listens isn't one.
    static std::unique_ptr<CTapConnection> Open(const std::string& strPath, std::string& strError);

    const TAP_HELLO& Hello() const { return m_stHello; }
    CTapReader& Reader() { return m_reader; }
    /// Waits so long, or until the agent ends: then it gives false. The ring still holds what came before.
    bool Wait(std::chrono::milliseconds time);

private:
    CTapConnection(CUniqueFd socketFd, const TAP_HELLO& stHello, CTapMemory memory);

    CUniqueFd m_Socket;
    TAP_HELLO m_stHello;
    CTapMemory m_memory;
    CTapReader m_reader;
};
