#pragma once

#include "data/LteMeasurement.h"

/// What the filter works with for one data client.
struct IND_CONTEXT
{
    IND_OUTPUT& stOut;
    IDLE_MEAS_STORE& stStore;
    const CMeasClock& clock;
    unsigned int ulPort; // for log lines only
};

/// Decides by its id what becomes of an indication. DIAG_RC_FILTERED drops it. Otherwise it goes out: the ulCount
/// packets of stOut when there are any, and the packet itself, as the filter left it, when there are none; that
/// holds for every other result as well. Works in place: the head is rewritten and pData moves.
unsigned int VEX_ClientIndFilter(ADE_DATA_PACKET_STRU& stPacket, unsigned int& ulCount, const IND_CONTEXT& stContext);

/// Strips from the front of the payload what DPH_FILTER_IND_LAYER_MSG_CFG tells. DIAG_RC_NO_LAYER_CFG without an
/// entry, DIAG_RC_FAIL when the payload is shorter; the packet is as before then.
unsigned int DoIndLayerFilter(ADE_DATA_PACKET_STRU& stPacket);

/// Takes the 40-byte header of a DPI message off and gives its DPI id. DIAG_RC_FAIL, and nothing changed, when the
/// payload is shorter.
unsigned int BuildDiagIndPacketByDpi(ADE_DATA_PACKET_STRU& stPacket);

/// Splits a packet by the bit set that opens its payload. DIAG_RC_FILTERED for an empty one.
unsigned int DoIndPacketParamSpliyViaBit(const ADE_DATA_PACKET_STRU& stPacket, IND_OUTPUT& stOut,
                                         unsigned int& ulCount);
