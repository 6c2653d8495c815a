#include "page/FleetSource.h"

CFleetSource::CFleetSource(const PAGE_OPTIONS& stOptions, CPageLog& log)
    : m_stOptions(stOptions),
      m_watch(stOptions.stHub, m_model, [&log](const std::string& strText) { log.Line(strText); })
{
}

void CFleetSource::Equip(CPageServer::SETTINGS& stSettings)
{
    stSettings.health = [this] {
        return m_model.IsConnected() ? "ok" : "ok, but there is no hub at " + HubNames(m_stOptions.stHub);
    };
}
