#pragma once

#include "data/DiagPacket.h"

#include <array>
#include <sys/time.h>

// Cell measurements among the layer messages come in the UE's internal structure, which moves with every firmware.
// Clients get a fixed record instead. All routines work on the payload behind the 16 bytes that the layer rule
// strips; a message shorter than what is read is completed with zeros, and what isn't filled in a record is zero.

constexpr size_t LTE_MEAS_RECORD_SIZE = 1096;
constexpr size_t MEAS_RECORD_MAX = 1264; // of all records

/// What the filter makes of one packet. Which packets count is told by the count that goes with it.
struct IND_OUTPUT
{
    static constexpr size_t PACKETS_MAX = 32; // one for each bit of a bit set

    std::array<ADE_DATA_PACKET_STRU, PACKETS_MAX> astPacket;
    std::array<unsigned char, MEAS_RECORD_MAX> aucRecord{}; // payload of a rebuilt measurement
};

/// The last idle measurement message of kind 31.
struct IDLE_MEAS_STORE
{
    std::array<unsigned char, 8192> aucPayload{}; // a shorter payload leaves the bytes behind it as they were
    uint32_t ulTimeoutMs = 0;                     // CELL_MEAS_TIMEOUT
    ADE_DATA_PACKET_STRU stHead;                  // ullTimeStamp is the time of arrival, ms on the clock below
};

/// Milliseconds since a start, by the time of day.
class CMeasClock
{
public:
    using NOW = timeval (*)();

    /// pfnNow gives the time; tests give their own.
    explicit CMeasClock(const timeval& stStart, NOW pfnNow = &TimeOfDay) : m_stStart(stStart), m_pfnNow(pfnNow) {}

    uint32_t ElapsedMs() const;
    static timeval TimeOfDay();

private:
    timeval m_stStart;
    NOW m_pfnNow;
};

/// Connected cell measurement to record, always. Without a payload (null) nothing is built. 0.
unsigned int DoPacketMeasConnectedIn(const ADE_DATA_PACKET_STRU& stIn, IND_OUTPUT& stOut, unsigned int& ulCount);

/// Idle cell measurement to record. DIAG_RC_FILTERED for a message of kind 31 that comes before the time-out.
unsigned int DoPacketMeasIdleIn(const ADE_DATA_PACKET_STRU& stIn, IND_OUTPUT& stOut, unsigned int& ulCount,
                                IDLE_MEAS_STORE& stStore, const CMeasClock& clock);

/// TDS measurement to record, by the position of its id in the TDS list. DIAG_RC_FILTERED for a position without
/// a record, and for a report of entries without samples.
unsigned int DoPaketTdsMeasIn(const ADE_DATA_PACKET_STRU& stIn, IND_OUTPUT& stOut, unsigned int& ulCount);

// The routines of the TDS records. Each takes the message, the head that goes out (some rename it) and its record,
// zeroed. DIAG_RC_FILTERED when the position of the message's id isn't theirs.
unsigned int DoPaketCmacMeasIndMsg(const ADE_DATA_PACKET_STRU& stIn, ADE_DATA_PACKET_STRU& stHead, ByteSpan record);
unsigned int DoPaketLTMeasIndMsg(const ADE_DATA_PACKET_STRU& stIn, ADE_DATA_PACKET_STRU& stHead, ByteSpan record);
unsigned int DoPaketTLMeasIndMsg(const ADE_DATA_PACKET_STRU& stIn, ADE_DATA_PACKET_STRU& stHead, ByteSpan record);
unsigned int DoPaketLGMeasIndMsg(const ADE_DATA_PACKET_STRU& stIn, ADE_DATA_PACKET_STRU& stHead, ByteSpan record);
unsigned int DoPaketGTMeasIndMsg(const ADE_DATA_PACKET_STRU& stIn, ADE_DATA_PACKET_STRU& stHead, ByteSpan record);
unsigned int DoPaketTGMeasIndMsg(const ADE_DATA_PACKET_STRU& stIn, ADE_DATA_PACKET_STRU& stHead, ByteSpan record);
