#pragma once

#include "data/gu/reg/RegMsgProcess.h"
#include "data/gu/reg/RegStatTable.h"

#include <algorithm>
#include <vector>

/// The registers that all statistics of an unknown kind need, ascending, as the UE would confirm them. The manager
/// must know its bases.
inline std::vector<unsigned int> AllRegisters(CRegisterManager& manager)
{
    const CRegMsgProcess statistics(&manager);
    std::vector<unsigned int> addrs;
    for (const REG_STAT_ROW& stRow : RegStatTable())
        (void)statistics.Find(stRow.usReq)->GetRegAddr(addrs); // true with all bases
    std::ranges::sort(addrs);
    addrs.erase(std::unique(addrs.begin(), addrs.end()), addrs.end());
    return addrs;
}
