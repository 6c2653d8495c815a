#pragma once

#include "common/Config.h"
#include "page/PacketStore.h"

#include <nlohmann/json_fwd.hpp>
#include <string>

// stLayout: that of the modems' LTE packets.

/// One row of the table of packets: number, time, who, what, how long and a few words.
nlohmann::ordered_json PacketRow(const KEPT_PACKET& stPacket, const FILTER_CFG_STRU& stLayout);
/// The row with all that is known of the packet: its head, its fields by name and its bytes.
nlohmann::ordered_json PacketDetail(const KEPT_PACKET& stPacket, const FILTER_CFG_STRU& stLayout);
/// Whether the record is a row of the table: no start of a run and no configuration.
bool IsPacketRow(const TAP_RECORD& stRecord);
