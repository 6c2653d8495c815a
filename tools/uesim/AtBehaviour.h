#pragma once

#include "uesim/Behaviour.h"
#include "uesim/SimUe.h"

#include <string>

/// The AT port: a few commands, ERROR for all others, and unsolicited lines with a running number at an interval.
class CAtBehaviour : public IBehaviour
{
public:
    explicit CAtBehaviour(CSimUe& ue) : m_ue(ue) {}

    bool OnPacket(enSerialType enPort, ByteView packet) override;
    void OnPortOpened(enSerialType enPort, SimTime now) override;
    void OnPortClosed(enSerialType enPort) override;
    SimTime OnTick(SimTime now) override;

private:
    void Execute(const std::string& strCommand);
    std::string AnswerTo(const std::string& strCommand);
    void SendText(const std::string& strText);

    CSimUe& m_ue;
    std::string m_strLine; // what came behind the last carriage return
    SimTime m_next = NEVER;
    unsigned int m_ulLines = 0;
    unsigned int m_ulQuality = 0;
};
