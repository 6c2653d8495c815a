#pragma once

#include "common/Config.h"
#include "common/Packet.h"

#include <cstdlib>
#include <string>

// An input of the LTE fuzzers: one byte of flags, for RANDOM_LAYOUT the layout, and then packets, each a u16 length
// and its bytes.

enum : unsigned char
{
    FLAG_DPH_FILTER = 1,     // DPH_FILTER_ENABLE
    FLAG_CELL_MEAS = 2,      // SPC_DPI_CELL_MEAS 0x800, 0x801
    FLAG_LAYER_STRIP = 4,    // a catch-all of 8 bytes
    FLAG_PRINT = 8,          // a few ids are printed
    FLAG_RANDOM_LAYOUT = 16, // the layout comes from the input, otherwise that of the example configuration
};

inline void Require(bool bHolds)
{
    if (!bHolds)
        std::abort();
}

inline void Configure(const std::string& strKey, const std::string& strValue)
{
    std::string strLine = strKey + "=" + strValue;
    CConfig::Instance()->ParseLine(strLine);
}

/// The lists to which a repeated key would only add.
inline void ConfigureOnce()
{
    static const bool s_bDone = [] {
        Configure("DPH_FILTER_RANGE", "{0x20030000,0x20030000};{0x80000000,0x8FFFFFFF}");
        Configure("DPH_FILTER_REQ_DPI_CMD_PAIR", "{0x11,0x10020304}");
        Configure("DPI_L1_FILTER_IND_RANGE_CFG", "+[0x30000000,0x3000FFFF]");
        Configure("DPI_L23_FILTER_IND_RANGE_CFG", "-{0x500}");
        Configure("TDS_MSG_MODULE_ID_RANGE", "{0x77}");
        Configure("TDS_COMB_IND_MSG_FILTER", "0xA0;0xA1;0xA2;0xA3;0xA4;0xA5;0xA6;0xA7;0xA8;0xA9;0xAA;0xAB");
        return true;
    }();
    (void)s_bDone;
}

inline unsigned int TakeByte(CByteReader& reader)
{
    uint8_t ucByte = 0;
    reader.Field(ucByte);
    return ucByte;
}

/// szCount pairs with an offset up to 510 and a size up to 9.
inline std::string RandomPairs(CByteReader& reader, size_t szCount)
{
    std::string strPairs;
    for (size_t i = 0; i < szCount; ++i) {
        const unsigned int ulOffset = 2 * TakeByte(reader);
        strPairs += (i > 0 ? ";{" : "{") + std::to_string(ulOffset) + "," + std::to_string(TakeByte(reader) % 10) + "}";
    }
    return strPairs;
}

inline void ConfigureLayout(CByteReader& reader, bool bRandom)
{
    const auto Number = [&](const char* pszExample) {
        return bRandom ? std::to_string(2 * TakeByte(reader)) : std::string(pszExample);
    };
    const auto Pairs = [&](size_t szCount, const char* pszExample) {
        return bRandom ? RandomPairs(reader, szCount) : std::string(pszExample);
    };
    Configure("REQ_CHL_PACKET_HEADER_LEN", Number("24"));
    Configure("REQ_CHL_PACKET_HEADER",
              Pairs(11, "{0,1};{1,1};{2,1};{3,1};{4,1};{5,1};{6,2};{8,4};{12,4};{16,4};{20,4}"));
    Configure("ACK_CHL_PACKET_PAYLOAD_OFFSET", Number("28"));
    Configure("ACK_CHL_PACKET_HEADER", Pairs(6, "{8,4};{24,4};{12,4};{5,1};{16,8};{0,0}"));
    Configure("DATA_CHL_PACKET_PAYLOAD_OFFSET", Number("28"));
    Configure("DATA_CHL_PACKET_HEADER", Pairs(5, "{8,4};{12,4};{5,1};{16,8};{24,4}"));
    Configure("DATA_ACK_CHL_PACKET_OFFSET", Number("8"));
    Configure("DATA_ACK_CHL_PACKET_UID", Pairs(3, "{8,4};{4,1};{5,1}"));
}

/// Takes flags and layout off the input.
inline void ConfigureFrom(CByteReader& reader)
{
    ConfigureOnce();
    const unsigned int ulFlags = TakeByte(reader);
    Configure("DPH_FILTER_ENABLE", ulFlags & FLAG_DPH_FILTER ? "1" : "0");
    Configure("SPC_DPI_CELL_MEAS", ulFlags & FLAG_CELL_MEAS ? "0x800;0x801" : "0x0;0x0");
    Configure("DPH_FILTER_IND_LAYER_MSG_CFG", ulFlags & FLAG_LAYER_STRIP ? "*:{8,0}" : "{0x600}:{4,0}");
    Configure("LTE_PRINT_ID_FILTER_LIST", ulFlags & FLAG_PRINT ? "0x0;0x500;0x800;0x30000000" : "0xFFFFFFFF");
    ConfigureLayout(reader, (ulFlags & FLAG_RANDOM_LAYOUT) != 0);
}

/// The next packet, in a heap block of exactly its size; empty at the end of the input.
inline CPacket TakePacket(CByteReader& reader)
{
    uint16_t usLen = 0;
    reader.Field(usLen);
    return CPacket::Copy(reader.Take(usLen));
}

/// Whether the part lies inside the whole.
inline bool LiesIn(ByteView part, ByteView whole)
{
    return part.empty() || (part.data() >= whole.data() && part.data() + part.size() <= whole.data() + whole.size());
}
