#include "SoakModems.h"

#include "e2e/ScriptedUe.h"

#include <thread>

namespace
{
constexpr uint32_t DSP_ID = 0x30000001; // config/vex.cfg lets it pass
constexpr int STREAM_COUNT = 50;
constexpr std::initializer_list<enSerialType> ALL_TYPES = {SERIAL_TYPE_DIAG, SERIAL_TYPE_DATA, SERIAL_TYPE_GU,
                                                           SERIAL_TYPE_AT};
} // namespace

void CVanishingModem::Live()
{
    const auto end = std::chrono::steady_clock::now() + m_cycle;
    CScriptedUe ue(m_ulFirstPort, m_strGroup);
    for (const enSerialType enType : ALL_TYPES)
        (void)ue.Attach(enType);
    if (ue.TakeHandshake())
        ++m_ulConfirmed;
    for (uint32_t i = 0; i < STREAM_COUNT; ++i)
        ue.SendIndication(DSP_ID, i, i, Fill(100));
    for (const enSerialType enType : ALL_TYPES)
        ue.Port(enType).Unplug();
    // A device monitor tells it a moment later; sometimes when the agent has long seen it.
    std::this_thread::sleep_for(std::chrono::milliseconds(200 * (m_ulLives % 10)));
    for (const enSerialType enType : ALL_TYPES)
        (void)ue.Detach(enType);
    ++m_ulLives;
    std::this_thread::sleep_until(end);
}

void CBootLoop::Boot()
{
    CScriptedUe ue(m_ulFirstPort, "boot loop");
    if (ue.Confirm())
        ++m_ulConfirmed;
    (void)ue.Detach(SERIAL_TYPE_DIAG);
    ++m_ulBoots;
}
