#include "uesim/RegisterBehaviour.h"

#include "uesim/GuIds.h"

#include <algorithm>

namespace
{
constexpr uint32_t STATUS_OK = 0;
constexpr uint32_t STATUS_FULL = 1;
constexpr uint32_t STATUS_BAD_MODE = 2;

constexpr size_t REQ_COUNT = 4; // behind the mode
constexpr size_t REQ_ADDRESSES = 8;

// Indication: who sends it, number of values, values.
constexpr size_t IND_SENDER = 4;
constexpr size_t IND_COUNT = 34;
constexpr size_t IND_VALUES = 36;
constexpr uint32_t c_aulSender[] = {121, 122}; // by list

constexpr auto MAX_ARREARS = std::chrono::milliseconds(100);
constexpr auto RETRY_TIME = std::chrono::milliseconds(5);
} // namespace

bool CRegisterBehaviour::OnRequest(const GU_REQUEST& stReq)
{
    if (stReq.ucCategory != GU_CATEGORY_TRANS)
        return false;
    switch (stReq.usId) {
    case ID_REG_ADD:
    case ID_REG_REMOVE:
        ChangeList(stReq, stReq.usId == ID_REG_ADD);
        return true;
    case ID_REG_STOP:
        if (const uint32_t ulMode = LoadLe<uint32_t>(stReq.params, 0); ulMode < m_lists.size())
            m_lists[ulMode].bRunning = false;
        return true;
    case ID_REG_SHARE_QUERY: {
        std::array<unsigned char, 4> aucBase{};
        StoreLe<uint32_t>(aucBase, 0, CRegisterModel::SHARE_BASE);
        m_line.SendTrans(0, ID_REG_SHARE, aucBase);
        return true;
    }
    case ID_REG_TOOL_ATTACHED:
        return true;
    default:
        return false;
    }
}

void CRegisterBehaviour::OnPortClosed(enSerialType enPort)
{
    if (enPort == SERIAL_TYPE_GU)
        m_lists = {};
}

/// An add request starts the list's stream, as its first one after a stop does.
void CRegisterBehaviour::ChangeList(const GU_REQUEST& stReq, bool bAdd)
{
    const uint16_t usConfirm = bAdd ? ID_REG_ADD_CNF : ID_REG_REMOVE_CNF;
    const uint32_t ulMode = LoadLe<uint32_t>(stReq.params, 0);
    if (ulMode >= m_lists.size()) {
        Confirm(usConfirm, ulMode, STATUS_BAD_MODE);
        return;
    }
    const size_t szCount = LoadLe<uint32_t>(stReq.params, REQ_COUNT);
    const ByteView bytes = Slice(stReq.params, REQ_ADDRESSES, 4 * std::min(szCount, stReq.params.size()));
    LIST& stList = m_lists[ulMode];
    std::set<uint32_t> changed = stList.addresses;
    for (size_t i = 0; i + 4 <= bytes.size(); i += 4) {
        const uint32_t ulAddress = LoadLe<uint32_t>(bytes, i);
        if (bAdd)
            changed.insert(ulAddress);
        else
            changed.erase(ulAddress);
    }
    const bool bFits = changed.size() <= MAX_LIST;
    if (bFits) {
        stList.addresses = std::move(changed);
        stList.places.clear();
        std::ranges::transform(stList.addresses, std::back_inserter(stList.places), CRegisterModel::Find);
        stList.bRunning = stList.bRunning || bAdd;
    }
    m_ue.Log().Event(m_ue.Name(), "gu register list %u: %s %zu, %zu now", ulMode, bAdd ? "add" : "remove",
                     bytes.size() / 4, stList.addresses.size());
    Confirm(usConfirm, ulMode, bFits ? STATUS_OK : STATUS_FULL);
}

void CRegisterBehaviour::Confirm(uint16_t usId, uint32_t ulMode, uint32_t ulStatus)
{
    static const std::set<uint32_t> NONE;
    const auto& addresses = ulMode < m_lists.size() ? m_lists[ulMode].addresses : NONE;
    std::vector<unsigned char> payload(12 + 4 * addresses.size(), 0);
    CByteWriter writer(payload);
    writer.Field(ulMode);
    writer.Field(ulStatus);
    writer.Field(static_cast<uint32_t>(addresses.size()));
    for (const uint32_t ulAddress : addresses)
        writer.Field(ulAddress);
    m_line.SendTrans(0, usId, payload);
}

SimTime CRegisterBehaviour::OnTick(SimTime now)
{
    const auto isActive = [](const LIST& stList) { return stList.bRunning && !stList.addresses.empty(); };
    if (std::ranges::none_of(m_lists, isActive))
        return NEVER;
    const auto interval = std::chrono::milliseconds(m_ue.Options().ulRegInterval);
    m_due = std::max(m_due, now - MAX_ARREARS);
    for (; m_due <= now; m_due += interval) {
        if (!m_line.HasRoom(now))
            return now + RETRY_TIME;
        m_model.Advance();
        for (size_t i = 0; i < m_lists.size(); ++i)
            if (isActive(m_lists[i]))
                SendIndication(i);
    }
    m_line.Flush();
    return m_due;
}

void CRegisterBehaviour::SendIndication(size_t szMode)
{
    const LIST& stList = m_lists[szMode];
    std::vector<unsigned char> payload(IND_VALUES + 4 * stList.places.size(), 0);
    StoreLe<uint32_t>(payload, IND_SENDER, c_aulSender[szMode]);
    StoreLe<uint16_t>(payload, IND_COUNT, static_cast<uint16_t>(stList.places.size()));
    for (size_t i = 0; i < stList.places.size(); ++i)
        StoreLe<uint32_t>(payload, IND_VALUES + 4 * i, m_model.Value(stList.places[i]));
    m_line.SendTrans(0, ID_REG_INDICATION, payload);
    ++m_ue.Counter("register indications");
}
