#pragma once

#include "uesim/Behaviour.h"
#include "uesim/LteLayout.h"
#include "uesim/SimUe.h"

#include <functional>
#include <map>
#include <set>
#include <vector>

/// The LTE diag port: host connect, time stamp, report switches, NV items, DPI messages, the three log switches and
/// an echo of every other command. Every ack of a plain command and of a switch opens with a result word.
class CLteDiagBehaviour : public IBehaviour
{
public:
    /// pfnSwitchesDone is called when the last of the agent's report switches has come.
    CLteDiagBehaviour(CSimUe& ue, std::function<void()> pfnSwitchesDone);

    bool OnPacket(enSerialType enPort, ByteView packet) override;
    void OnPortClosed(enSerialType enPort) override;
    SimTime OnTick(SimTime now) override;

private:
    using Bytes = std::vector<unsigned char>;
    using Answer = Bytes (CLteDiagBehaviour::*)(const LTE_REQUEST&);
    struct ANSWER_ROW
    {
        uint32_t ulCmdId;
        const char* pszName;
        Answer pfnAnswer;
    };
    static const ANSWER_ROW c_astAnswer[];

    Bytes AnswerHostConnect(const LTE_REQUEST& stReq);
    Bytes AnswerTimeStamp(const LTE_REQUEST& stReq);
    Bytes AnswerResult(const LTE_REQUEST& stReq);
    Bytes AnswerNvRead(const LTE_REQUEST& stReq);
    Bytes AnswerNvWrite(const LTE_REQUEST& stReq);
    Bytes AnswerReportSwitch(const LTE_REQUEST& stReq);
    Bytes AnswerDpi(const LTE_REQUEST& stReq);
    Bytes AnswerEcho(const LTE_REQUEST& stReq);

    ANSWER_ROW RowFor(const LTE_REQUEST& stReq) const;
    uint32_t ResultOf(uint32_t ulCmdId) const;
    Bytes& NvItem(uint32_t ulNvId);

    CSimUe& m_ue;
    CLteLayout m_layout;
    std::function<void()> m_pfnSwitchesDone;
    std::map<uint32_t, Bytes> m_nvItems;
    Bytes m_confirmation; // of the host connect, until it is due
    SimTime m_confirmationDue = NEVER;
    std::set<uint32_t> m_switches; // report switches that have come
};
