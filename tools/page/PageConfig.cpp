#include "page/PageConfig.h"

#include <memory>

PAGE_CONFIG ReadPageConfig(std::string_view text)
{
    const auto pConfig = std::make_unique<CConfig>();
    pConfig->Init();
    std::string strText(text);
    (void)pConfig->ParseConfig(strText); // always true
    const std::string strName = pConfig->GetDebugFileName();
    const bool bKnown = pConfig->GetDebugLevel() != 0 && strName.starts_with('/');
    return {bKnown ? strName : "", *pConfig->GetFilterCfg()};
}
