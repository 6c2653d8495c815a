#pragma once

#include "uesim/Behaviour.h"
#include "uesim/GuLinkBehaviour.h"
#include "uesim/RegisterModel.h"

#include <array>
#include <set>
#include <vector>

/// The register service: keeps two lists of addresses, confirms every change with the whole list, and streams the
/// values of a list that isn't empty, in ascending order of address.
class CRegisterBehaviour : public IBehaviour, public IGuService
{
public:
    CRegisterBehaviour(CSimUe& ue, CGuLine& line) : m_ue(ue), m_line(line) {}

    bool OnRequest(const GU_REQUEST& stReq) override;
    void OnPortClosed(enSerialType enPort) override;
    SimTime OnTick(SimTime now) override;

    static constexpr size_t MAX_LIST = 1011; // addresses whose values fit one frame

private:
    struct LIST
    {
        std::set<uint32_t> addresses;
        std::vector<CRegisterModel::PLACE> places; // of the addresses, in their order
        bool bRunning = false;
    };

    void ChangeList(const GU_REQUEST& stReq, bool bAdd);
    void Confirm(uint16_t usId, uint32_t ulMode, uint32_t ulStatus);
    void SendIndication(size_t szMode);

    CSimUe& m_ue;
    CGuLine& m_line;
    std::array<LIST, 2> m_lists; // by mode
    CRegisterModel m_model;
    SimTime m_due{};
};
