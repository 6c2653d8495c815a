#include "page/TapSource.h"

#include "client/Stop.h"
#include "page/TapLoop.h"

namespace
{
CPageModel::SETTINGS ModelOf(const PAGE_OPTIONS& stOptions)
{
    CPageModel::SETTINGS stSettings;
    stSettings.strTap = stOptions.strTap;
    stSettings.strLog = stOptions.strLog;
    stSettings.bControl = stOptions.bControl;
    stSettings.szPacketBytes = size_t{stOptions.ulMemoryMiB} * 1024 * 1024;
    return stSettings;
}
} // namespace

CTapSource::CTapSource(const PAGE_OPTIONS& stOptions, CPageLog& log)
    : m_stOptions(stOptions),
      m_log(log),
      m_model(ModelOf(stOptions)),
      m_control({stOptions.bControl, stOptions.strAgent, [this](unsigned int ulUe) { return m_model.GuChannel(ulUe); }})
{
    m_model.SetControlView([this](unsigned int ulUe) { return m_control.View(ulUe); });
}

void CTapSource::Equip(CPageServer::SETTINGS& stSettings)
{
    stSettings.bControl = m_stOptions.bControl;
    stSettings.order = [this](const CONTROL_ORDER& stOrder, const std::function<void(PAGE_ANSWER)>& done) {
        m_control.Post(stOrder, [done](const CONTROL_RESULT& stResult) { done(AnswerOf(stResult)); });
    };
    stSettings.health = [this] {
        return m_model.IsConnected() ? "ok" : "ok, but there is no agent at " + m_stOptions.strTap;
    };
}

bool CTapSource::Start(std::string&)
{
    m_tap = std::thread([this] { ReadTap(); });
    return true;
}

void CTapSource::Stop()
{
    ForgetStop(); // what was started is still to be stopped
    m_control.Stop();
    m_bEnd = true;
    if (m_tap.joinable())
        m_tap.join();
}

void CTapSource::ReadTap()
{
    CTapLoop::FEED stFeed;
    stFeed.begin = [this](const TAP_HELLO& stHello) { m_model.BeginRun(stHello); };
    stFeed.take = [this](const TAP_RECORD& stRecord, ByteView bytes, uint64_t ullLost) {
        m_model.Take(stRecord, bytes, ullLost);
    };
    stFeed.end = [this] { m_model.EndRun(); };
    stFeed.tell = [this](const std::string& strText) { m_log.Line(strText); };
    stFeed.isStopped = [this] { return m_bEnd.load(); };
    CTapLoop(m_stOptions.strTap, std::move(stFeed)).Run();
}
