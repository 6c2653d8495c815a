#include "common/Config.h"
#include "common/ConfigCheck.h"

#include <cstdlib>
#include <string>

// A configuration file with any content: every value is parsed and checked, and what the accessors promise holds.

namespace
{

void Require(bool bHolds)
{
    if (!bHolds)
        std::abort();
}

void RequireItems(const std::vector<std::string>& vecItems)
{
    for (const std::string& strItem : vecItems)
        Require(!strItem.empty() && strItem.find_first_of("; \t\r\n") == std::string::npos);
}

void RequireTdsPositions(const CConfig& config)
{
    const std::vector<unsigned int>& vecIds = *config.GetTdsCombMsg();
    for (const auto& [ulId, lPos] : *config.GetTdsCombInd())
        Require(vecIds.at(static_cast<size_t>(lPos)) == ulId);
    for (const unsigned int ulId : vecIds)
        Require(config.GetTdsCombInd()->contains(ulId));
}

void RequireDpiPairs(const CConfig& config)
{
    const auto mapCmdDpi = config.GetDPH_FILTER_REQ_CMD_DPI_PAIR();
    for (const auto& [ulDpi, ulCmd] : config.GetDPH_FILTER_REQ_DPI_CMD_PAIR())
        Require(mapCmdDpi.contains(ulCmd));
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const unsigned char* pucData, size_t szLen)
{
    CConfig config;
    std::string strText(pucData, pucData + szLen);
    Require(config.ParseConfig(strText));
    Require(config.GetFilterCfg()->ucDataTagFirst == 3 && config.GetFilterCfg()->ucDataTagSecond == 0xFF);
    RequireItems(*config.GetChannelNames());
    RequireItems(*config.GetATDataMsgFilter());
    RequireTdsPositions(config);
    RequireDpiPairs(config);
    for (const CIdFlags* pFlags : {config.GetL1ExcludeIndMap(), config.GetL3ExcludeIndMap()})
        for (const uint32_t ulId : {0u, 1u, 0x7FFFFFFFu, 0xFFFFFFFFu})
            Require(pFlags->contains(ulId) == pFlags->Find(ulId).has_value());
    for (const CONFIG_FINDING& stFinding : CheckConfig({pucData, pucData + szLen}))
        Require(stFinding.szLine > 0 && !stFinding.strText.empty());
    return 0;
}
