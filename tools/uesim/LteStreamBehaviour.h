#pragma once

#include "uesim/Behaviour.h"
#include "uesim/LteLayout.h"
#include "uesim/LteMessages.h"
#include "uesim/SimUe.h"

#include <vector>

/// Streams LTE indications on the data port. Those that the agent is to pass on are numbered from 1, over all
/// classes: the number is the ack field, which clients get in the place of the result, and stands in the payload too
/// where the class has a place for it. All others have the ack field 0. A line that is full makes the stream wait.
class CLteStreamBehaviour : public IBehaviour
{
public:
    CLteStreamBehaviour(CSimUe& ue, const CConfig& config);

    /// Lets a stream that waits for the report switches begin.
    void OnSwitchesDone() { m_bStarted = true; }

    void OnPortOpened(enSerialType enPort, SimTime now) override;
    SimTime OnTick(SimTime now) override;

private:
    bool IsDone() const;
    void SendNext(SimTime now);

    CSimUe& m_ue;
    CLteLayout m_layout;
    bool m_bStarted;
    std::vector<LTE_CLASS> m_order; // the mix, spread evenly
    size_t m_szNextInOrder = 0;

    struct FORM
    {
        LTE_MESSAGE stMessage;
        std::vector<unsigned char> packet; // head and payload
    };
    std::array<std::vector<FORM>, LTE_CLASS_COUNT> m_forms;
    std::array<size_t, LTE_CLASS_COUNT> m_aszNextForm{};
    std::array<uint64_t*, LTE_CLASS_COUNT> m_apCount{};
    uint64_t& m_ullNumbered; // the last number given
    uint64_t m_ullSent = 0;
    SimTime m_due{}; // of the next indication
};

/// Each class as often as its weight says, spread evenly over the list; classes in bAvailable only.
std::vector<LTE_CLASS> SpreadMix(const LTE_MIX& mix, const std::array<bool, LTE_CLASS_COUNT>& bAvailable);
