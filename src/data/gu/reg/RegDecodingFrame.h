#pragma once

#include "data/gu/reg/HsdschTbs.h"
#include "data/gu/reg/RegTables.h"

#include <array>
#include <cstdint>
#include <optional>
#include <span>
#include <vector>

// What the HSDPA decoder leaves in the registers of an indication, as values: the common settings, one frame for each
// of five subframes of 2 ms, and the memory of the last frames that HS-SCCH-less operation needs.

/// Settings common to the subframes of an indication, of one carrier.
struct UPDATE_BY_10MS_STRU
{
    uint8_t ucLessEnable = 0; // HS-SCCH-less operation; 1 is on
    uint8_t ucLessTbsNum = 0; // configured HS-SCCH-less sizes, 0 to 7; only four have an index
    uint8_t ucLessTable = 0;  // 0: g_arrTableTbsize_LessA, else B
    std::array<uint8_t, 4> aucLessTbsIdx{};
    uint8_t ucMode = 0;
    uint32_t ulMonitored = 0;
};

/// From the common registers R0 to R4.
UPDATE_BY_10MS_STRU DecodeCommData(std::span<const unsigned int> common);

/// Frame types that have a meaning here; 5, 14 and 15 hold no decoded data.
constexpr uint8_t FRM_TYPE_LESS_1 = 1; // HS-SCCH-less, without an HS-SCCH of its own
constexpr uint8_t FRM_TYPE_LESS_2 = 2;
constexpr uint8_t FRM_TYPE_LESS_3 = 3;
constexpr uint8_t FRM_TYPE_NO_DATA = 5;
constexpr uint8_t FRM_TYPE_SINGLE = 6; // single stream
constexpr uint8_t FRM_TYPE_DUAL = 7;   // dual stream

/// One frame, that is one subframe of a carrier.
struct TBSCalInfoSTRU
{
    uint8_t ucValid = 0; // not used further
    uint8_t ucFrmType = 0;
    uint8_t ucField2 = 0; // not used further
    uint8_t ucScchPart1 = 0;
    uint8_t ucScchCrc = 0;
    std::array<uint8_t, STREAM_COUNT> aucCrc{}; // of the HS-DSCH; 1 is good
    uint8_t ucHarqId = 0;
    std::array<uint16_t, STREAM_COUNT> ausTbs{}; // bits
    std::array<uint8_t, STREAM_COUNT> aucModulation{};
    std::array<uint8_t, STREAM_COUNT> aucNewData{}; // 1: new data on this process
    uint8_t ucTransCnt = 0;                         // number of the transmission, from 0
    uint8_t ucField17 = 0;                          // not used further
    uint8_t ucLessOffset = 0;                       // distance of the earlier frame of an HS-SCCH-less one
};

/// From the first four registers W0 to W3 of a subframe block.
TBSCalInfoSTRU DecodeFrame(std::span<const unsigned int> block);

bool IsLessFrm(const TBSCalInfoSTRU& stFrame);
/// The frame's HS-SCCH was decoded; a frame of type 1 has none and counts as decoded.
bool CrcFlag(const TBSCalInfoSTRU& stFrame);
/// The frame holds decoded data that are meant for this UE.
bool IsUsable(const TBSCalInfoSTRU& stFrame);

/// The last frames with a block on stream 0.
class CFrmFifo
{
public:
    static constexpr size_t CAPACITY = 14;

    /// Drops the oldest frame when full.
    void AddFrmToBuf(const TBSCalInfoSTRU& stFrame);
    /// The frame that many places before the newest one, if it is there. The newest frame of a full buffer is out of
    /// reach: the test allows 13 frames at most. Client tools rely on the counts that come of
    /// it.
    std::optional<TBSCalInfoSTRU> GetLessFrm(uint8_t ucOffset) const;
    void Clear() { m_szCount = 0; }

private:
    std::array<TBSCalInfoSTRU, CAPACITY> m_astFrm{}; // oldest first
    size_t m_szCount = 0;
};

/// What is remembered of a HARQ process: the last frame, for each stream, and that there was one.
struct HARQ_PROC_STRU
{
    std::array<uint16_t, STREAM_COUNT> ausTbs{};
    std::array<uint8_t, STREAM_COUNT> aucNewData{};
    std::array<uint8_t, STREAM_COUNT> aucCrc{};
    bool bSeen = false; // by any stream

    void Store(const TBSCalInfoSTRU& stFrame, size_t szStream);
};
constexpr size_t HARQ_NUM = 16;

/// A size with what was counted for it. The counters run from the start of a statistic.
struct TBSOfSixPhaseSTRU
{
    static constexpr size_t PHASE_NUM = 6;
    static constexpr size_t MODULATION_NUM = 4;
    template <size_t N> using Counters = std::array<uint32_t, N>;

    uint32_t ulCnt = 0;                                             // times touched
    uint32_t ulTbs = 0;                                             // the key
    std::array<Counters<MODULATION_NUM>, STREAM_COUNT> aulModCnt{}; // 0 QPSK, 2 16QAM, 3 64QAM; 1 is never counted
    uint32_t ulMode = 0;
    Counters<STREAM_COUNT> aulBlockErr{};
    Counters<STREAM_COUNT> aulCrcOk{};
    Counters<STREAM_COUNT> aulTbsChange{};   // size changed on a retransmission that was then good
    Counters<STREAM_COUNT> aulNewAfterErr{}; // given up: new data after a failed retransmission
    Counters<STREAM_COUNT> aulAckRetrans{};  // retransmission after a good CRC
    Counters<PHASE_NUM> aulPhase{};          // good blocks by number of the transmission, the last takes all later ones
    const char* szCarrier = "";              // kept, not sent
    Counters<STREAM_COUNT> aulFirstOk{};     // good at new data
    bool bDirty = false;                     // touched since the last report
};

/// Keeps the entries of the configured HS-SCCH-less sizes in line with the settings, while these are on. An index
/// of 0 or beyond the table names no size; of a number of sizes above four, four count.
void UpdateLessFrmArray(std::vector<TBSOfSixPhaseSTRU>& vecLess, const UPDATE_BY_10MS_STRU& stUpdate);
