#pragma once

#include "client/Connection.h"
#include "common/Types.h"
#include "page/ControlOrder.h"

#include <array>
#include <string>

/// How an order went.
struct CONTROL_RESULT
{
    int nStatus = 200; // of HTTP: 409 refused, 504 no answer
    std::string strError = {};

    bool IsOk() const { return nStatus == 200; }
};

/// An ordinary client's two connections to a modem's GU channels, both bound: reports go to whoever holds the data
/// channel. Its calls wait for the agent up to a deadline. For one thread.
class CGuSession
{
public:
    bool IsOpen() const { return m_command.Fd() >= 0 && m_data.Fd() >= 0; }
    /// Connects, and binds to the modem with this port. Closed again when that fails; enRefused tells the channel whose
    /// bind was refused (409).
    CONTROL_RESULT Open(const std::string& strHost, unsigned int ulPort, Clock::time_point deadline,
                        enChannelType& enRefused);
    /// Starts or stops, and waits for the confirm.
    CONTROL_RESULT Request(const CONTROL_ORDER& stOrder, bool bStart, Clock::time_point deadline);
    /// Reads what has come and forgets it: the tap shows it. False when a connection has ended.
    bool Drain();
    void Close();
    /// To wait for what comes.
    std::array<int, 2> Fds() const { return {m_command.Fd(), m_data.Fd()}; }

private:
    CConnection m_command;
    CConnection m_data;
};
