#pragma once

#include "uesim/Behaviour.h"
#include "uesim/GuLinkBehaviour.h"
#include "uesim/GuMessages.h"

#include <map>
#include <utility>
#include <vector>

/// Confirms requests for reports, over-the-air messages and traces, and sends what is switched on at the interval of
/// the options, each modem for itself.
class CGuReportBehaviour : public IBehaviour, public IGuService
{
public:
    CGuReportBehaviour(CSimUe& ue, CGuLine& line);

    bool OnRequest(const GU_REQUEST& stReq) override;
    void OnPortClosed(enSerialType enPort) override;
    SimTime OnTick(SimTime now) override;

private:
    /// One message that comes again and again while it is on.
    struct SOURCE
    {
        enum class Kind
        {
            Report,
            Trace,
            Ota,
        };
        Kind enKind;
        size_t szRow; // in the table of its kind
        unsigned int ulModem;
        auto operator<=>(const SOURCE&) const = default; // NOLINT(modernize-use-nullptr): clang-tidy 14 sees a 0 in it
    };
    struct STATE
    {
        bool bOn = false;
        SimTime due{};
        unsigned int ulRound = 0;
    };

    bool OnTransRequest(const GU_REQUEST& stReq);
    bool OnOtaRequest(const GU_REQUEST& stReq);
    bool OnTraceSwitch(const GU_REQUEST& stReq);
    void StartAll();
    void Switch(const SOURCE& stSource, bool bOn);
    void SendChained(const GU_REPORT_ROW& stRow, STATE& stState);
    void SendOne(const SOURCE& stSource, STATE& stState);

    CSimUe& m_ue;
    CGuLine& m_line;
    std::map<SOURCE, STATE> m_states;
};
