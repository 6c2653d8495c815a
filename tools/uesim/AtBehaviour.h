#pragma once

#include "uesim/Behaviour.h"
#include "uesim/SimUe.h"

#include <string>

/// The AT port: what tools ask a modem for (3GPP TS 27.007, ITU-T V.250), an error for all else, and unsolicited lines
/// with a running number at an interval. Starts without echo.
class CAtBehaviour : public IBehaviour
{
public:
    explicit CAtBehaviour(CSimUe& ue) : m_ue(ue) {}

    bool OnPacket(enSerialType enPort, ByteView packet) override;
    void OnPortOpened(enSerialType enPort, SimTime now) override;
    void OnPortClosed(enSerialType enPort) override;
    SimTime OnTick(SimTime now) override;

private:
    struct ROW
    {
        const char* pszCommand;                 // in capitals
        std::string (CAtBehaviour::*pfnText)(); // what comes before OK; empty for nothing
    };
    static const ROW c_astRow[];

    void Execute(const std::string& strCommand);
    std::string AnswerTo(const std::string& strCommand);
    bool Set(const std::string& strCommand);
    std::string Error() const;

    std::string Nothing() { return ""; }
    std::string Identity();
    std::string Manufacturer() { return "Vex"; }
    std::string Model() { return "Simulated modem"; }
    std::string Revision() { return m_ue.Identity().VersionText(); }
    std::string Imei() { return m_ue.Identity().strImei; }
    std::string Quality();
    std::string Operator() { return R"(+COPS: 0,0,"Simulated",7)"; }           // 7: E-UTRAN
    std::string Registration() { return R"(+CREG: 1,1,"0001","00000001",7)"; } // 1,1: told unasked, home network
    std::string Characters() { return "+CSCS: " + m_strCharacters; }
    std::string CharacterSets() { return R"(+CSCS: ("GSM","IRA"))"; }
    std::string ErrorForm() { return "+CMEE: " + std::to_string(m_ulErrorForm); }
    std::string ErrorForms() { return "+CMEE: (0-2)"; }

    void SendText(const std::string& strText);

    CSimUe& m_ue;
    std::string m_strLine; // what came behind the last carriage return
    SimTime m_next = NEVER;
    unsigned int m_ulLines = 0;
    unsigned int m_ulQuality = 0;
    bool m_bEcho = false;
    std::string m_strCharacters = R"("GSM")";
    unsigned int m_ulErrorForm = 0; // of +CMEE: 0 ERROR, 1 with a number, 2 with words
};
