#pragma once

#include <array>
#include <cstddef>
#include <cstdint>

/// What the registers of a modem hold, frame by frame of 10 ms: an HSDPA link with two carriers, eight HARQ processes
/// with failures and retransmissions, channel quality, power control, and the TTI records of an HSUPA link. The
/// same frame number gives the same values, after the same frames before it.
class CRegisterModel
{
public:
    // Banks are told by bits 20 to 23 of an address.
    static constexpr uint32_t SHARE_BASE = 0x20B00000; // what the DSP shares: query block and time slot word
    static constexpr uint32_t HSUPA_BASE = 0x20A00000; // the DSP's HSUPA data

    /// A register that has been looked up, so that a stream doesn't search again for each frame.
    struct PLACE
    {
        uint8_t ucRow = 0xFF; // none: reads as 0
        uint8_t ucCarrier = 0;
        uint8_t ucIndex = 0; // of a repeated register: subframe, slot, TTI record
    };
    static PLACE Find(uint32_t ulAddress);

    uint32_t Value(const PLACE& stPlace) const;

    /// The next frame.
    void Advance();
    uint32_t Frame() const { return m_ulFrame; }

private:
    static constexpr size_t CARRIERS = 2;
    static constexpr size_t SUBFRAMES = 5; // of 2 ms
    static constexpr size_t PROCESSES = 8;

    using Getter = uint32_t (CRegisterModel::*)(unsigned int ulCarrier, unsigned int ulIndex) const;
    struct ROW
    {
        uint32_t ulBank;
        uint32_t ulFirst; // offset in the bank
        uint32_t ulStep;
        unsigned int ulCount;
        Getter pfnValue;
    };
    static const ROW c_astRow[];

    struct SUBFRAME
    {
        unsigned int ulType = 6;
        unsigned int ulHarqId = 0;
        unsigned int ulRetrans = 0;
        bool bGood = true;
        uint32_t ulTbs[2] = {};
    };
    struct PROCESS
    {
        bool bFailed = false;
        unsigned int ulRetrans = 0;
        uint32_t ulTbs = 0;
    };
    void MakeSubframe(size_t szCarrier, size_t szSubframe);
    unsigned int Wave(unsigned int ulPhase, unsigned int ulLow, unsigned int ulHigh) const;
    /// The same half for both carriers of an HSUPA word, the second one a little later.
    template <class Half> static uint32_t Halves(Half half) { return half(0) | half(1) << 16; }

    template <uint32_t Constant> uint32_t Const(unsigned int, unsigned int) const { return Constant; }
    uint32_t FrameWord0(unsigned int ulCarrier, unsigned int ulIndex) const;
    uint32_t FrameWord1(unsigned int ulCarrier, unsigned int ulIndex) const;
    uint32_t FrameWord2(unsigned int ulCarrier, unsigned int ulIndex) const;
    uint32_t FrameWord3(unsigned int ulCarrier, unsigned int ulIndex) const;
    uint32_t Monitored(unsigned int ulCarrier, unsigned int ulIndex) const;
    uint32_t Counter(unsigned int ulCarrier, unsigned int ulIndex) const;
    uint32_t CqiMode(unsigned int ulCarrier, unsigned int ulIndex) const;
    uint32_t Cqi(unsigned int ulCarrier, unsigned int ulIndex) const;
    uint32_t DschKey(unsigned int ulCarrier, unsigned int ulIndex) const;
    uint32_t DschValue(unsigned int ulCarrier, unsigned int ulIndex) const;
    uint32_t ScchCode(unsigned int ulCarrier, unsigned int ulIndex) const;
    uint32_t SlotPower(unsigned int ulCarrier, unsigned int ulIndex) const;
    uint32_t SetPower(unsigned int ulCarrier, unsigned int ulIndex) const;
    uint32_t SirTarget(unsigned int ulCarrier, unsigned int ulIndex) const;
    uint32_t Signal(unsigned int ulCarrier, unsigned int ulIndex) const;
    uint32_t Noise(unsigned int ulCarrier, unsigned int ulIndex) const;
    uint32_t TpcUl(unsigned int ulCarrier, unsigned int ulIndex) const;
    uint32_t TpcDl(unsigned int ulCarrier, unsigned int ulIndex) const;
    uint32_t Served(unsigned int ulCarrier, unsigned int ulIndex) const;
    uint32_t BlockIndex(unsigned int ulCarrier, unsigned int ulIndex) const;
    uint32_t DataBits(unsigned int ulCarrier, unsigned int ulIndex) const;
    uint32_t HeadBits(unsigned int ulCarrier, unsigned int ulIndex) const;
    uint32_t Happy(unsigned int ulCarrier, unsigned int ulIndex) const;
    uint32_t UlRetrans(unsigned int ulCarrier, unsigned int ulIndex) const;
    uint32_t Limit(unsigned int ulCarrier, unsigned int ulIndex) const;
    uint32_t GrantFlag(unsigned int ulCarrier, unsigned int ulIndex) const;
    uint32_t AbsoluteGrant(unsigned int ulCarrier, unsigned int ulIndex) const;
    uint32_t RelativeCode(unsigned int ulCarrier, unsigned int ulIndex) const;
    uint32_t ServingGrant(unsigned int ulCarrier, unsigned int ulIndex) const;

    uint32_t m_ulFrame = 0;
    std::array<std::array<SUBFRAME, SUBFRAMES>, CARRIERS> m_aSubframe{};
    std::array<std::array<PROCESS, PROCESSES>, CARRIERS> m_aProcess{};
};
