#pragma once

#include "page/PacketStore.h"

#include <nlohmann/json_fwd.hpp>
#include <string>

/// One row of the table of packets: number, time, who, what, how long and a few words.
nlohmann::ordered_json PacketRow(const KEPT_PACKET& stPacket);
/// The row with all that is known of the packet: its head, its fields by name and its bytes.
nlohmann::ordered_json PacketDetail(const KEPT_PACKET& stPacket);
/// Whether the record is a row of the table: no start of a run and no configuration.
bool IsPacketRow(const TAP_RECORD& stRecord);
