#include "uesim/LteStreamBehaviour.h"

#include <algorithm>
#include <numeric>

namespace
{
constexpr auto RETRY_TIME = std::chrono::milliseconds(10);
constexpr auto MAX_ARREARS = std::chrono::seconds(1); // what a stream that had to wait catches up at most
constexpr size_t MAX_BURST = 10000;                   // indications a tick, so that the other ports get their turn
} // namespace

std::vector<LTE_CLASS> SpreadMix(const LTE_MIX& mix, const std::array<bool, LTE_CLASS_COUNT>& bAvailable)
{
    std::array<int64_t, LTE_CLASS_COUNT> credit{};
    std::array<int64_t, LTE_CLASS_COUNT> weight{};
    for (size_t i = 0; i < LTE_CLASS_COUNT; ++i)
        weight[i] = bAvailable[i] ? mix[i] : 0;
    const int64_t nSum = std::accumulate(weight.begin(), weight.end(), int64_t{0});
    std::vector<LTE_CLASS> order;
    for (int64_t n = 0; n < nSum; ++n) {
        for (size_t i = 0; i < LTE_CLASS_COUNT; ++i)
            credit[i] += weight[i];
        const auto pBest = std::ranges::max_element(credit);
        *pBest -= nSum;
        order.push_back(static_cast<LTE_CLASS>(pBest - credit.begin()));
    }
    return order;
}

CLteStreamBehaviour::CLteStreamBehaviour(CSimUe& ue, const CConfig& config)
    : m_ue(ue),
      m_layout(ue.Layout()),
      m_bStarted(!ue.Options().bLteStartOnSwitch),
      m_ullNumbered(ue.Counter("lte numbered"))
{
    LTE_MESSAGES messages = MakeLteMessages(config, ue.Options());
    std::array<bool, LTE_CLASS_COUNT> bAvailable{};
    for (size_t i = 0; i < LTE_CLASS_COUNT; ++i) {
        bAvailable[i] = !messages[i].empty();
        if (!bAvailable[i] && ue.Options().lteMix[i] > 0)
            ue.Log().Event(ue.Name(), "data no %s messages, the configuration has no ids for them", LTE_CLASS_NAMES[i]);
        m_apCount[i] = &ue.Counter("lte " + std::string(LTE_CLASS_NAMES[i]));
        for (LTE_MESSAGE& stMessage : messages[i]) {
            std::vector<unsigned char> packet(m_layout.IndHeadLen(), 0);
            packet.insert(packet.end(), stMessage.payload.begin(), stMessage.payload.end());
            packet.resize(std::max(packet.size(), m_layout.MinIndLen()), 0);
            m_forms[i].push_back({std::move(stMessage), std::move(packet)});
        }
    }
    m_order = SpreadMix(ue.Options().lteMix, bAvailable);
}

void CLteStreamBehaviour::OnPortOpened(enSerialType enPort, SimTime now)
{
    if (enPort == SERIAL_TYPE_DATA)
        m_due = now + CSimUe::SETTLE_TIME;
}

SimTime CLteStreamBehaviour::OnTick(SimTime now)
{
    if (!m_bStarted || IsDone())
        return NEVER;
    const double dRate = m_ue.Options().dLteRate;
    const auto step = dRate > 0 ? std::chrono::duration_cast<SimDuration>(std::chrono::duration<double>(1 / dRate))
                                : SimDuration::zero();
    for (size_t n = 0; n < MAX_BURST && !IsDone(); ++n) {
        if (!m_ue.HasRoom(SERIAL_TYPE_DATA, now))
            return now + RETRY_TIME;
        if (dRate > 0 && now < m_due)
            return m_due;
        SendNext(now);
        m_due = std::max(m_due, now - MAX_ARREARS) + step;
    }
    return IsDone() ? NEVER : now;
}

bool CLteStreamBehaviour::IsDone() const
{
    const uint64_t ullCount = m_ue.Options().ullLteCount;
    return m_order.empty() || (ullCount > 0 && m_ullSent >= ullCount);
}

void CLteStreamBehaviour::SendNext(SimTime now)
{
    const LTE_CLASS enClass = m_order[m_szNextInOrder];
    m_szNextInOrder = (m_szNextInOrder + 1) % m_order.size();
    auto& forms = m_forms[enClass];
    FORM& stForm = forms[m_aszNextForm[enClass]];
    m_aszNextForm[enClass] = (m_aszNextForm[enClass] + 1) % forms.size();

    const LTE_MESSAGE& stMessage = stForm.stMessage;
    const uint32_t ulNumber = stMessage.bPasses ? static_cast<uint32_t>(++m_ullNumbered) : 0;
    const ByteSpan number =
        Slice(ByteSpan(stForm.packet), m_layout.IndHeadLen() + stMessage.szNumberAt, stMessage.szNumberSize);
    StoreLe<uint32_t>(number, 0, ulNumber);
    m_layout.WriteIndHead({stMessage.ulCmdId, 0, ulNumber, m_ue.Clock(now)}, stForm.packet);
    m_ue.Send(SERIAL_TYPE_DATA, stForm.packet);
    ++*m_apCount[enClass];
    ++m_ullSent;
}
