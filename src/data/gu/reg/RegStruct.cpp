#include "data/gu/reg/RegStruct.h"

size_t FindReg(std::span<const unsigned int> addrs, unsigned int ulAddr)
{
    size_t szLow = 0;
    size_t szHigh = addrs.size();
    size_t szMid = szHigh / 2;
    while (szMid < addrs.size() && addrs[szMid] != ulAddr) {
        (addrs[szMid] > ulAddr ? szHigh : szLow) = szMid;
        szMid = (szLow + szHigh) / 2;
        if (szMid == szLow)
            break;
    }
    return szMid < addrs.size() && addrs[szMid] == ulAddr ? szMid : REG_NOT_FOUND;
}

bool GetRegValue(const RegStruct& stReg, unsigned int ulAddr, unsigned int& ulValue)
{
    const size_t szPos = FindReg(stReg.m_aulRegAddrs, ulAddr);
    ulValue = szPos == REG_NOT_FOUND ? 0 : RegValueAt(stReg, szPos);
    return szPos != REG_NOT_FOUND;
}
