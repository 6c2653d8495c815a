#pragma once

#include "common/Bytes.h"

#include <vector>

// Throughput from the UE's RLC statistics: six radio bearers of 116 bytes in the payload of the message, of which
// the active ones count. iSeconds, above 0, is the time over which the UE has counted.

/// Three floats: counter A and B per second, and the share of D in D and C (a fraction), 0 without any D.
std::vector<unsigned char> RlcUlReport(ByteView payload, int iSeconds);
/// Three floats: counter A and B per second, and C by D and E in percent, 0 without any D.
std::vector<unsigned char> RlcDlReport(ByteView payload, int iSeconds);
/// u32 count, and for each active bearer its u32 id and a float, counter A per second.
std::vector<unsigned char> RbUlReport(ByteView payload, int iSeconds);
/// The same with the low word of the downlink's counter A.
std::vector<unsigned char> RbDlReport(ByteView payload, int iSeconds);
