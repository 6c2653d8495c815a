#include "page/PageConfig.h"

#include <memory>
#include <string>

FILTER_CFG_STRU ReadPacketLayout(std::string_view text)
{
    const auto pConfig = std::make_unique<CConfig>();
    pConfig->Init();
    std::string strText(text);
    (void)pConfig->ParseConfig(strText); // always true
    return *pConfig->GetFilterCfg();
}
