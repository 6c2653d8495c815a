#pragma once

#include <cstdint>

// Ids of the GU side's own conversation, beside those of the reports (GuMessages.h).

// Link set-up: queries and their answers.
constexpr uint16_t ID_LINK_REQUEST = 0x80B1;
constexpr uint16_t ID_LINK_ANSWER = 0x80B2;
constexpr uint16_t ID_ENABLE_TRANS = 0x5000;
constexpr uint16_t ID_VERSION_QUERY = 0x8081;
constexpr uint16_t ID_VERSION = 0x8082;
constexpr uint16_t ID_MODE_QUERY = 0x80A5;
constexpr uint16_t ID_MODE = 0x80A6;
constexpr uint16_t ID_CARDS_QUERY = 0x8211;
constexpr uint16_t ID_CARDS = 0x8212;

// The register stream.
constexpr uint16_t ID_REG_ADD = 0xF502;
constexpr uint16_t ID_REG_REMOVE = 0xF503; // without addresses: report the list
constexpr uint16_t ID_REG_ADD_CNF = 0xF504;
constexpr uint16_t ID_REG_REMOVE_CNF = 0xF505;
constexpr uint16_t ID_REG_STOP = 0x3010;
constexpr uint16_t ID_REG_SHARE_QUERY = 0xFE01;
constexpr uint16_t ID_REG_SHARE = 0xFE02;
constexpr uint16_t ID_REG_TOOL_ATTACHED = 0xFE03;
constexpr uint16_t ID_REG_INDICATION = 0xF501;
