#include "data/gu/reg/RegDecodingFrame.h"

#include "data/gu/reg/RegStruct.h"

#include <algorithm>

namespace
{

uint8_t Byte(unsigned int ulValue, unsigned char ucLow, unsigned char ucHigh)
{
    return static_cast<uint8_t>(GetBitValue(ulValue, ucLow, ucHigh));
}

uint8_t Bit(unsigned int ulValue, unsigned char ucBit)
{
    return Byte(ulValue, ucBit, ucBit);
}

void UpdateFirstAddr(TBSCalInfoSTRU& stFrame, unsigned int ulWord)
{
    stFrame.ucValid = Bit(ulWord, 0);
    stFrame.ucFrmType = Byte(ulWord, 4, 7);
    stFrame.ucField2 = Byte(ulWord, 8, 11);
    stFrame.ucScchPart1 = Bit(ulWord, 12);
    stFrame.ucScchCrc = Bit(ulWord, 16);
    stFrame.aucCrc = {Bit(ulWord, 25), Bit(ulWord, 24)};
}

void UpdateSecondAddr(TBSCalInfoSTRU& stFrame, unsigned int ulWord)
{
    stFrame.ausTbs = {static_cast<uint16_t>(GetBitValue(ulWord, 0, 15)),
                      static_cast<uint16_t>(GetBitValue(ulWord, 16, 31))};
}

void UpdateThirdAddr(TBSCalInfoSTRU& stFrame, unsigned int ulWord)
{
    stFrame.ucHarqId = Byte(ulWord, 0, 3);
    stFrame.aucModulation = {Byte(ulWord, 16, 17), Byte(ulWord, 18, 19)};
    stFrame.aucNewData = {Bit(ulWord, 28), Bit(ulWord, 29)};
}

void UpdateForthAddr(TBSCalInfoSTRU& stFrame, unsigned int ulWord)
{
    stFrame.ucField17 = Byte(ulWord, 0, 3);
    stFrame.ucTransCnt = Byte(ulWord, 8, 10);
    stFrame.ucLessOffset = Byte(ulWord, 20, 23);
}

template <size_t N> uint32_t LessTbs(const std::array<cKOI_STRU, N>& table, uint8_t ucIdx)
{
    return ucIdx >= 1 && ucIdx <= N ? table[ucIdx - 1U].tbs : 0;
}

/// The configured sizes. Indices that name none are left out.
class CLessSizes
{
public:
    explicit CLessSizes(const UPDATE_BY_10MS_STRU& stUpdate)
    {
        const size_t szNum = std::min<size_t>(stUpdate.ucLessTbsNum, stUpdate.aucLessTbsIdx.size());
        for (const uint8_t ucIdx : std::span(stUpdate.aucLessTbsIdx).first(szNum)) {
            const uint32_t ulTbs = stUpdate.ucLessTable == 0 ? LessTbs(g_arrTableTbsize_LessA, ucIdx)
                                                             : LessTbs(g_arrTableTbsize_LessB, ucIdx);
            if (ulTbs != 0)
                m_aulTbs[m_szCount++] = ulTbs;
        }
    }

    std::span<const uint32_t> Sizes() const { return std::span(m_aulTbs).first(m_szCount); }

private:
    std::array<uint32_t, 4> m_aulTbs{};
    size_t m_szCount = 0;
};

bool CheckLessFrmArray(const std::vector<TBSOfSixPhaseSTRU>& vecLess, std::span<const uint32_t> sizes)
{
    const auto known = [&](uint32_t ulTbs) {
        return std::ranges::find(vecLess, ulTbs, &TBSOfSixPhaseSTRU::ulTbs) != vecLess.end();
    };
    return sizes.size() == vecLess.size() && std::ranges::all_of(sizes, known);
}

void AddLessFrmArray(std::vector<TBSOfSixPhaseSTRU>& vecLess, std::span<const uint32_t> sizes)
{
    for (const uint32_t ulTbs : sizes) {
        vecLess.emplace_back();
        vecLess.back().ulTbs = ulTbs;
    }
}

} // namespace

UPDATE_BY_10MS_STRU DecodeCommData(std::span<const unsigned int> common)
{
    UPDATE_BY_10MS_STRU stUpdate;
    stUpdate.ucLessEnable = Byte(common[1], 0, 2);
    stUpdate.ucLessTbsNum = Byte(common[3], 0, 2);
    stUpdate.ucLessTable = Bit(common[0], 16);
    stUpdate.aucLessTbsIdx = {Byte(common[2], 0, 6), Byte(common[2], 8, 14), Byte(common[2], 16, 22),
                              Byte(common[2], 24, 30)};
    stUpdate.ucMode = Bit(common[0], 8);
    stUpdate.ulMonitored = GetBitValue(common[4], 8, 8);
    return stUpdate;
}

TBSCalInfoSTRU DecodeFrame(std::span<const unsigned int> block)
{
    TBSCalInfoSTRU stFrame;
    UpdateFirstAddr(stFrame, block[0]);
    UpdateSecondAddr(stFrame, block[1]);
    UpdateThirdAddr(stFrame, block[2]);
    UpdateForthAddr(stFrame, block[3]);
    return stFrame;
}

bool IsLessFrm(const TBSCalInfoSTRU& stFrame)
{
    return stFrame.ucFrmType >= FRM_TYPE_LESS_1 && stFrame.ucFrmType <= FRM_TYPE_LESS_3;
}

bool CrcFlag(const TBSCalInfoSTRU& stFrame)
{
    return stFrame.ucFrmType == FRM_TYPE_LESS_1 || stFrame.ucScchCrc == 1;
}

bool IsUsable(const TBSCalInfoSTRU& stFrame)
{
    const uint8_t ucType = stFrame.ucFrmType;
    return ucType != 5 && ucType != 14 && ucType != 15 && CrcFlag(stFrame);
}

void CFrmFifo::AddFrmToBuf(const TBSCalInfoSTRU& stFrame)
{
    if (m_szCount == CAPACITY) {
        std::copy(m_astFrm.begin() + 1, m_astFrm.end(), m_astFrm.begin());
        --m_szCount;
    }
    m_astFrm[m_szCount++] = stFrame;
}

std::optional<TBSCalInfoSTRU> CFrmFifo::GetLessFrm(uint8_t ucOffset) const
{
    if (ucOffset >= m_szCount || m_szCount - ucOffset >= CAPACITY)
        return std::nullopt;
    return m_astFrm[m_szCount - ucOffset - 1];
}

void HARQ_PROC_STRU::Store(const TBSCalInfoSTRU& stFrame, size_t szStream)
{
    ausTbs[szStream] = stFrame.ausTbs[szStream];
    aucNewData[szStream] = stFrame.aucNewData[szStream];
    aucCrc[szStream] = stFrame.aucCrc[szStream];
}

void UpdateLessFrmArray(std::vector<TBSOfSixPhaseSTRU>& vecLess, const UPDATE_BY_10MS_STRU& stUpdate)
{
    const CLessSizes sizes(stUpdate);
    if (stUpdate.ucLessEnable != 1 || CheckLessFrmArray(vecLess, sizes.Sizes()))
        return;
    vecLess.clear();
    AddLessFrmArray(vecLess, sizes.Sizes());
}
