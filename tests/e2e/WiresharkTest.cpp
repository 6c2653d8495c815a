#include "e2e/WiresharkFixture.h"

// The dissector in the real tshark, over records whose bytes stand here: each kind of record, field by field.

TEST_F(Wireshark, ShowsTheHeadOfEveryKindOfRecord)
{
    Expect({TAP_KIND::UE_TO_AGENT, 3, CHANNEL_LTE_DATA, TAP_REPLAYED | TAP_CUT, 302, 7}, Hex("00"),
           {{"vex.version", "1"},
            {"vex.direction", "1"},
            {"vex.ue", "3"},
            {"vex.channel", "1"},
            {"vex.flags", "0x03"},
            {"vex.replayed", "1"},
            {"vex.cut", "1"},
            {"vex.text", "0"},
            {"vex.port", "302"},
            {"vex.client", "7"},
            {"vex.number", "100"}});
    Expect(ToUe(15, CHANNEL_AT), Hex("41"), {{"vex.direction", "2"}, {"vex.ue", "15"}, {"vex.channel", "4"}});
    Expect(FromClient(CHANNEL_AT, 4294967295, TAP_TEXT), Hex("41"),
           {{"vex.direction", "3"}, {"vex.client", "4294967295"}, {"vex.text", "1"}, {"vex.number", "102"}});
    Expect(ToClient(CHANNEL_GU_CMD), Hex("00"), {{"vex.direction", "4"}, {"vex.channel", "2"}});
    Expect(STATUS, Hex("00"), {{"vex.direction", "5"}, {"vex.ue", "255"}, {"vex.channel", "255"}});
    Expect(EVENT, Hex("00"), {{"vex.direction", "6"}, {"vex.ue", "3"}});
    Expect(CONFIG, Hex("0A"), {{"vex.direction", "7"}, {"vex.ue", "255"}, {"vex.channel", "255"}});
    Check();
}

TEST_F(Wireshark, ShowsTheRequestsOfClients)
{
    Expect(FromClient(CHANNEL_LTE_DIAG), Hex("40 00 00 50  F0 00  04 00  65 00 00 00"),
           {{"vex.id", "0x50000040"},
            {"vex.name", "bind"},
            {"vex.type", "240"},
            {"vex.mode", "0"},
            {"vex.reserved", "0"},
            {"vex.length", "4"},
            {"vex.bind.port", "101"},
            {"vex.payload", "65:00:00:00"},
            {"vex.gu_id", "-"},
            {"expert", "-"}});
    // Bits 0-7 0x10, 8-11 2, 12-15 3.
    Expect(FromClient(CHANNEL_LTE_DIAG), Hex("03 40 01 10  10 32  00 00"),
           {{"vex.id", "0x10014003"},
            {"vex.name", "-"},
            {"vex.type", "16"},
            {"vex.mode", "2"},
            {"vex.reserved", "3"},
            {"vex.length", "0"},
            {"vex.payload", "-"}});
    Expect(FromClient(CHANNEL_LTE_DIAG),
           Hex("01 55 01 10  F0 00  14 00  0A 00 00 00  01 00 00 00  04 00 00 00  01 02 03 05  78 56 34 12"),
           {{"vex.name", "NV write"},
            {"vex.nv_write.nv_id", "10"},
            {"vex.nv_write.item_count", "1"},
            {"vex.nv_write.item_offset", "4"},
            {"vex.nv_write.bit_mode", "1"},
            {"vex.nv_write.field_size", "2"},
            {"vex.nv_write.bit_low", "3"},
            {"vex.nv_write.bit_high", "5"},
            {"vex.nv_write.item_value", "305419896"}});
    Expect(FromClient(CHANNEL_LTE_DIAG),
           Hex("17 53 01 10  10 00  18 00  01 00 43 00  01 00 00 00  02 00 00 00"
               "02 00 43 00  03 00 00 00  04 00 00 00"),
           {{"vex.switch.message", "0x00430001,0x00430002"}, {"vex.switch.kind", "1,3"}, {"vex.switch.value", "2,4"}});
    // 62726 is 0xF506: the request of the statistic SIR, every 100 ms.
    Expect(FromClient(CHANNEL_GU_CMD), Hex("06 F5 00 00  54 00  04 00  01 00 64 00"),
           {{"vex.id", "0x0000f506"},
            {"vex.gu_id", "0xf506"},
            {"vex.name", "sir request"},
            {"vex.type", "84"},
            {"vex.period_params.switch", "1"},
            {"vex.period_params.period_ms", "100"}});
    Expect(FromClient(CHANNEL_GU_CMD), Hex("10 B0 00 00  54 00  04 00  01 02 F4 01"),
           {{"vex.name", "w-cell request"},
            {"vex.cell_params.switch", "1"},
            {"vex.cell_params.mode", "2"},
            {"vex.cell_params.period_ms", "500"}});
    Expect(FromClient(CHANNEL_GU_CMD), Hex("20 F0 00 00  54 00  04 00  03 00 F4 01"),
           {{"vex.name", "bler request"}, {"vex.bler_params.switch", "3"}, {"vex.bler_params.period_ms", "500"}});
    Expect(FromClient(CHANNEL_GU_CMD), Hex("18 F5 00 00  54 00  04 00  01 00 00 00"),
           {{"vex.name", "mac-d request"}, {"vex.switch_params.switch", "1"}});
    Expect(FromClient(CHANNEL_GU_CMD), Hex("05 A0 00 00  52 00  04 00  01 00 00 00"),
           {{"vex.name", "ota-gas request"}, {"vex.type", "82"}, {"vex.word_params.switch", "1"}});
    Check();
}

TEST_F(Wireshark, ShowsTheAnswersToClients)
{
    Expect(ToClient(CHANNEL_LTE_DIAG),
           Hex("20 00 00 50  00 00 00 00  01 00 00 00 01 00 00 00  F0 02  1C 00"
               "64 00 01 00 02 00 0A 00 0B 00 05 00  0C 00 00 00  22 11 44 33  07 00 00 00  08 00 00 00"),
           {{"vex.id", "0x50000020"},
            {"vex.name", "UE version"},
            {"vex.rc", "0"},
            {"vex.rc_name", "DIAG_RC_OK"},
            {"vex.timestamp", "4294967297"},
            {"vex.type", "240"},
            {"vex.mode", "2"},
            {"vex.length", "28"},
            {"vex.ue_version.v", "100"},
            {"vex.ue_version.r", "1"},
            {"vex.ue_version.c", "2"},
            {"vex.ue_version.b", "10"},
            {"vex.ue_version.sp", "11"},
            {"vex.ue_version.word_10", "5"},
            {"vex.ue_version.word_12", "12"},
            {"vex.ue_version.identity_high", "4386"},
            {"vex.ue_version.identity_low", "13124"},
            {"vex.ue_version.word_20", "7"},
            {"vex.ue_version.word_24", "8"},
            {"expert", "-"}});
    Expect(ToClient(CHANNEL_LTE_DIAG), Hex("03 40 01 10  29 00 00 00  00 00 00 00 00 00 00 00  10 00  00 00"),
           {{"vex.rc", "41"},
            {"vex.rc_name", "DIAG_RC_NOT_BOUND"},
            {"expert", "Result DIAG_RC_NOT_BOUND (41)"},
            {"vex.payload", "-"}});
    Expect(ToClient(CHANNEL_LTE_DIAG), Hex("03 40 01 10  0D 00 00 00  00 00 00 00 00 00 00 00  10 00  00 00"),
           {{"vex.rc", "13"}, {"vex.rc_name", "-"}, {"expert", "Result 13"}});
    const Bytes status = Join(Hex("01 03 25 4F"), Text("V100R001C00B010SP00", 32), Text("860000000000017", 56));
    Expect(ToClient(CHANNEL_LTE_DIAG),
           Join(Hex("10 00 00 50  00 00 00 00  00 00 00 00 00 00 00 00  00 30  5C 00"), status),
           {{"vex.name", "UE status"},
            {"vex.reserved", "3"},
            {"vex.ue_status.state", "1"},
            {"vex.ue_status.ue", "3"},
            {"vex.ue_status.data_port", "20261"},
            {"vex.ue_status.version", "V100R001C00B010SP00"},
            {"vex.ue_status.imei", "860000000000017"}});
    Expect(ToClient(CHANNEL_GU_CMD),
           Join(Hex("10 00 F0 01  00 00 00 00  00 00 00 00 00 00 00 00  F0 01  5C 00"), status),
           {{"vex.id", "0x01f00010"}, {"vex.name", "GU status"}, {"vex.ue_status.imei", "860000000000017"}});
    Expect(ToClient(CHANNEL_GU_CMD),
           Hex("07 F5 54 01  04 00 00 00  00 80 00 00 00 00 00 00  54 01  04 00  04 00 00 00"),
           {{"vex.id", "0x0154f507"},
            {"vex.gu_id", "0xf507"},
            {"vex.name", "sir confirm"},
            {"vex.rc", "4"},
            {"vex.rc_name", "base addresses not known"},
            {"vex.mode", "1"},
            {"vex.type", "84"},
            {"vex.confirm.result", "4"}});
    // The answer to a bind on a data channel is no indication.
    Expect(ToClient(CHANNEL_LTE_DATA), Hex("40 00 00 50  02 00 00 00  00 00 00 00 00 00 00 00  F0 00  00 00"),
           {{"vex.name", "bind"}, {"vex.rc", "2"}, {"vex.kind", "-"}, {"vex.type", "240"}});
    Check();
}

TEST_F(Wireshark, ShowsTheChannelTable)
{
    Bytes table = Join(Text("/dev/ttyUSB0", 32), Hex("65 00 00 00  01 00 00 00  00 00 00 00"));
    table.resize(3520);
    StoreLe<uint32_t>(table, 3520 - 12, 0xFFFFFFFF); // port of the last channel of the last UE
    m_tshark.Add(ToClient(CHANNEL_LTE_DIAG),
                 Join(Hex("60 00 00 50  00 00 00 00  00 00 00 00 00 00 00 00  F0 00  C0 0D"), table));
    const std::vector<DISSECTED> packets = m_tshark.Packets();
    ASSERT_EQ(packets.size(), 1u);
    const DISSECTED& packet = packets[0];
    const auto Field = [&](const char* pszName) { return packet.at(std::string("vex.channel_table.ues.") + pszName); };
    ASSERT_EQ(Field("channels.port").size(), 80u); // 16 UEs of 5
    EXPECT_EQ(Field("channels.name")[0], "/dev/ttyUSB0");
    EXPECT_EQ(Field("channels.port")[0], "101");
    EXPECT_EQ(Field("channels.attached")[0], "1");
    EXPECT_EQ(Field("channels.bound")[0], "0");
    EXPECT_EQ(Field("channels.port")[79], "-1");
    EXPECT_EQ(Values(packet, "expert"), "-");
}

TEST_F(Wireshark, ShowsLteIndicationsOfEveryKind)
{
    const auto Head = [](const char* pszTypeLen) {
        return Join(Hex("01 00 43 00  08 07 06 05  00 00 01 00 00 00 00 00"), Hex(pszTypeLen));
    };
    Expect(ToClient(CHANNEL_LTE_DATA), Join(Head("00 02 02 00"), Hex("AA BB")),
           {{"vex.id", "0x00430001"},
            {"vex.kind", "0"},
            {"vex.mode", "2"},
            {"vex.ack_field", "84281096"},
            {"vex.rc", "-"},
            {"vex.timestamp", "65536"},
            {"vex.length", "2"},
            {"vex.payload", "aa:bb"},
            {"expert", "-"}});
    Expect(ToClient(CHANNEL_LTE_DATA), Join(Head("01 02 06 00"), Hex("81 00 02 00 0A 0B")),
           {{"vex.kind", "1"}, {"vex.message.info", "129"}, {"vex.message.message_len", "2"}});
    Expect(ToClient(CHANNEL_LTE_DATA), Join(Head("02 02 03 00"), Hex("01 02 03")),
           {{"vex.kind", "2"}, {"vex.payload", "01:02:03"}});
    Expect(ToClient(CHANNEL_LTE_DATA), Head("03 02 00 00"), {{"vex.kind", "3"}, {"vex.payload", "-"}, {"expert", "-"}});
    Expect(ToClient(CHANNEL_LTE_DATA), Join(Head("04 02 01 00"), Hex("FF")), {{"vex.kind", "4"}});
    Expect(ToClient(CHANNEL_LTE_DATA), Join(Head("05 03 01 00"), Hex("FF")), {{"vex.kind", "5"}, {"vex.mode", "3"}});
    Expect(ToClient(CHANNEL_LTE_DATA), Join(Head("06 02 04 00"), Hex("01 00 00 00")),
           {{"vex.kind", "6"}, {"vex.message.info", "1"}});
    // Cell measurement: a connected record of 1096 bytes, which is 0x448.
    Expect(ToClient(CHANNEL_LTE_DATA), Join(Head("02 02 48 04"), Hex("33 00 01"), Fill(1093)),
           {{"vex.lte_cell_measurement.record_type", "51"}, {"vex.lte_cell_measurement.connected", "1"}});
    // TDS measurement of 516 (0x204) bytes, one of its 64 entries in use.
    Expect(ToClient(CHANNEL_LTE_DATA),
           Join(Head("02 03 04 02"), Hex("07 01 00 00  10 27 05 00 3C 00 00 00"), Fill(504)),
           {{"vex.tds_measurement.form", "7"},
            {"vex.tds_measurement.count", "1"},
            {"vex.tds_measurement.entries.channel", "10000"},
            {"vex.tds_measurement.entries.cell_code", "5"},
            {"vex.tds_measurement.entries.level", "60"}});
    Check();
}

TEST_F(Wireshark, ShowsUePacketsByTheDefaultLayout)
{
    Expect(ToUe(3, CHANNEL_LTE_DIAG),
           Hex("00 02 20 01 01 00 00 00  03 40 01 10  0C 00 00 00  00 00 00 00  00 00 00 00  01 02 03 04"),
           {{"vex.id", "0x10014003"},
            {"vex.packet.head", "00:02:20:01:01:00:00:00:03:40:01:10:0c:00:00:00:00:00:00:00:00:00:00:00"},
            {"vex.packet.mode", "2"},
            {"vex.packet.class", "0x20"},
            {"vex.packet.type", "0"},
            {"vex.packet.length", "12"},
            {"vex.payload", "01:02:03:04"},
            {"expert", "-"}});
    Expect(
        FromUe(3, CHANNEL_LTE_DIAG),
        Hex("00 00 00 00  00 00 00 00  03 40 01 10  07 00 00 00  00 80 00 00 00 00 00 00  05 00 00 00  02 00 00 00 EE"),
        {{"vex.id", "0x10014003"},
         {"vex.packet.tag", "0"},
         {"vex.packet.type", "0"},
         {"vex.ack_field", "7"},
         {"vex.timestamp", "32768"},
         {"vex.packet.length", "5"},
         {"vex.packet.result", "2"},
         {"vex.payload", "02:00:00:00:ee"}});
    Expect(FromUe(3, CHANNEL_LTE_DATA),
           Hex("00 00 00 00  03 05 00 00  01 00 00 30  09 00 00 00  01 00 00 00 00 00 00 00  01 00 00 00  AB"),
           {{"vex.id", "0x30000001"},
            {"vex.packet.tag", "3"},
            {"vex.packet.type", "5"},
            {"vex.ack_field", "9"},
            {"vex.timestamp", "1"},
            {"vex.packet.result", "-"},
            {"vex.payload", "ab"}});
    // An indication on the diag channel, by its tag.
    Expect(FromUe(3, CHANNEL_LTE_DIAG),
           Hex("00 00 00 00  FF 00 00 00  01 00 00 20  09 00 00 00  01 00 00 00 00 00 00 00  01 00 00 00"),
           {{"vex.name", "-"}, {"vex.packet.tag", "255"}, {"vex.packet.length", "-"}});
    // A DPI message: a head of 40 bytes behind the packet's own.
    Expect(ToUe(3, CHANNEL_LTE_DIAG),
           Hex("00 02 20 01 01 05 00 00  01 00 02 10  34 00 00 00  00 00 00 00  00 00 00 00"
               "00 00 00 00  78 00 00 00  00 00 00 00  82 00 00 00  18 00 00 00  01 00 41 00"
               "00 00 00 00  00 00 00 00  00 00 00 00  01 00 00 00  AA BB CC DD"),
           {{"vex.packet.type", "5"},
            {"vex.dpi.sender_pid", "120"},
            {"vex.dpi.receiver_pid", "130"},
            {"vex.dpi.length", "24"},
            {"vex.dpi.id", "4259841"},
            {"vex.dpi.command_low", "1"}});
    Check();
}

TEST_F(Wireshark, ShowsUePacketsByTheLayoutThatTheCaptureHolds)
{
    const Bytes packet = Hex("34 12 05 03  00 80 00 00 00 00 00 00  01 00 00 30  00 00 00 00  AB CD");
    const Bytes request = Hex("00 05 00 00  03 40 01 10  0C 00  00 00  01 02");
    Expect(CONFIG,
           Text("# a comment\r\n\tDATA_CHL_PACKET_PAYLOAD_OFFSET = 20\r\n"
                "DATA_CHL_PACKET_HEADER = {12,4}; {0,2}; {2,1}; {4,8}; {0,0}\r\n"
                "DATA_ACK_CHL_PACKET_UID = {0,0}; {3,1}; {0,0}\r\n"
                "REQ_CHL_PACKET_HEADER_LEN=12\n"
                "REQ_CHL_PACKET_HEADER={0,0};{0,0};{0,0};{0,0};{0,0};{1,1};{0,0};{4,4};{8,2};{0,0};{0,0}"),
           {{"vex.config.line",
             "\tDATA_CHL_PACKET_PAYLOAD_OFFSET = 20\r,"
             "DATA_CHL_PACKET_HEADER = {12,4}; {0,2}; {2,1}; {4,8}; {0,0}\r,"
             "DATA_ACK_CHL_PACKET_UID = {0,0}; {3,1}; {0,0}\r,"
             "REQ_CHL_PACKET_HEADER_LEN=12,"
             "REQ_CHL_PACKET_HEADER={0,0};{0,0};{0,0};{0,0};{0,0};{1,1};{0,0};{4,4};{8,2};{0,0};{0,0}"}});
    Expect(FromUe(3, CHANNEL_LTE_DATA), packet,
           {{"vex.id", "0x30000001"},
            {"vex.ack_field", "4660"},
            {"vex.packet.type", "5"},
            {"vex.packet.tag", "3"},
            {"vex.timestamp", "32768"},
            {"vex.payload", "ab:cd"}});
    Expect(ToUe(3, CHANNEL_LTE_DIAG), request,
           {{"vex.id", "0x10014003"},
            {"vex.packet.type", "5"},
            {"vex.packet.length", "12"},
            {"vex.packet.mode", "-"},
            {"vex.payload", "01:02"}});
    // Another one replaces it: no tag, no time, an id of two bytes.
    Expect(CONFIG, Text("DATA_CHL_PACKET_PAYLOAD_OFFSET=21\nDATA_CHL_PACKET_HEADER={12,2};{0,0};{0,0};{0,0};{0,0}\n"),
           {{"expert", "-"}});
    Expect(FromUe(3, CHANNEL_LTE_DATA), packet,
           {{"vex.id", "0x00000001"}, {"vex.timestamp", "-"}, {"vex.packet.tag", "-"}, {"vex.payload", "cd"}});
    // One without a layout, an empty one: the agent can't read such a packet either.
    Expect(CONFIG, Text("debuglevel=7\n"), {});
    Expect(FromUe(3, CHANNEL_LTE_DATA), packet, {{"vex.id", "-"}, {"expert", "no id in 22 bytes"}});
    Expect(CONFIG, Text("DATA_CHL_PACKET_HEADER={12,4};{0,0};{0,0};{0,0};{0,0}"), {});
    Expect(FromUe(3, CHANNEL_LTE_DATA), packet, {{"vex.id", "0x30000001"}});
    // A part of one changes nothing.
    Expect({.enKind = TAP_KIND::CONFIGURATION, .ucFlags = TAP_CUT}, Text("debuglevel=7\n"), {});
    Expect(FromUe(3, CHANNEL_LTE_DATA), packet, {{"vex.id", "0x30000001"}});
    Expect(CONFIG, {}, {{"expert", "-"}});
    Expect(FromUe(3, CHANNEL_LTE_DATA), packet, {{"vex.id", "-"}});
    Check();
}

TEST_F(Wireshark, ShowsOmFramesBothWays)
{
    Expect(ToUe(3, CHANNEL_GU_CMD),
           Hex("01  55 55 AA AA  24 00 01 01"
               "04 00 1C 00  00 00 00 00  69 00 00 00  00 00 00 00  8D 00 00 00  08 00 00 00  01 C0 00 00  11 22 33 44"
               "AA AA 55 55"),
           {{"vex.om.lead", "01"},
            {"vex.om.start", "0xaaaa5555"},
            {"vex.om.length", "36"},
            {"vex.om.segments", "1"},
            {"vex.om.segment", "1"},
            {"vex.om.end", "0x5555aaaa"},
            {"vex.gu.category", "4"},
            {"vex.gu.ssid", "0"},
            {"vex.gu.length", "28"},
            {"vex.gu.sender_pid", "105"},
            {"vex.gu.receiver_pid", "141"},
            {"vex.gu.param_length", "8"},
            {"vex.id", "0x0000c001"},
            {"vex.gu_id", "0xc001"},
            {"vex.payload", "11:22:33:44"},
            {"expert", "-"}});
    // Two frames behind leads of 17 and 16 bytes; the second one's packet is one of the second modem.
    Expect(FromUe(3, CHANNEL_GU_CMD),
           Join(Fill(17, 0x0C),
                Hex("55 55 AA AA  18 00 01 01  04 05 10 00  09 00 00 00  00 80 00 00  11 C0 00 00  01 02 03 04  AA AA "
                    "55 55"),
                Fill(16),
                Hex("55 55 AA AA  18 00 01 01  44 06 10 00  0A 00 00 00  01 00 00 00  02 C0 00 00  05 06 07 08  AA AA "
                    "55 55")),
           {{"vex.gu.category", "4,68"},
            {"vex.gu.ssid", "5,6"},
            {"vex.gu.sn", "9,10"},
            {"vex.gu.timestamp", "32768,1"},
            {"vex.gu_id", "0xc011,0xc002"},
            {"vex.payload", "01:02:03:04,05:06:07:08"},
            {"expert", "-"}});
    // A query's answer holds its id in the place of the number.
    Expect(FromUe(3, CHANNEL_GU_CMD),
           Join(Fill(9), Hex("55 55 AA AA  18 00 01 01  0A 00 10 00  A6 80 00 00  02 00 00 00  00 00 00 00  00 00 00 "
                             "00  AA AA 55 55")),
           {{"vex.gu.category", "10"}, {"vex.gu_id", "0x80a6"}, {"vex.gu.value", "2"}, {"vex.gu.sn", "-"}});
    // Two messages of 20 bytes in one packet, as some ids come.
    Expect(
        FromUe(3, CHANNEL_GU_CMD),
        Join(Fill(17), Hex("55 55 AA AA  2C 00 01 01  04 00 10 00  01 00 00 00  01 00 00 00  01 F0 00 00  AA AA AA AA"
                           "04 00 10 00  00 00 00 00  01 00 00 00  02 F0 00 00  BB BB BB BB  AA AA 55 55")),
        {{"vex.gu_id", "0xf001,0xf002"}, {"vex.payload", "aa:aa:aa:aa,bb:bb:bb:bb"}, {"expert", "-"}});
    // A frame that goes on in the next block, and its rest.
    Expect(FromUe(3, CHANNEL_GU_CMD), Join(Fill(17), Hex("55 55 AA AA  18 00 01 01  04 05 10 00")),
           {{"vex.om.length", "24"}, {"vex.payload", "04:05:10:00"}, {"expert", "-"}});
    Expect(FromUe(3, CHANNEL_GU_CMD), Hex("09 00 00 00  AA AA 55 55"),
           {{"vex.om.start", "-"}, {"vex.payload", "09:00:00:00:aa:aa:55:55"}, {"expert", "-"}});
    // The request for the link goes out without a frame.
    Expect(ToUe(3, CHANNEL_GU_CMD), Hex("10 00 01 01 0A 00 08 00 B1 80 00 00 01 00 00 00"),
           {{"vex.payload", "10:00:01:01:0a:00:08:00:b1:80:00:00:01:00:00:00"}, {"expert", "-"}});
    Check();
}

TEST_F(Wireshark, ShowsAtLinesAndFrames)
{
    Expect(FromUe(3, CHANNEL_AT), Text("\r\nOK\r\n"), {{"vex.at", "\r\nOK\r\n"}, {"vex.id", "-"}});
    Expect(ToUe(3, CHANNEL_AT), Text("AT+CGSN\r"), {{"vex.at", "AT+CGSN\r"}});
    Expect(FromClient(CHANNEL_AT, 5, TAP_TEXT), Text("AT\r"), {{"vex.at", "AT\r"}, {"vex.length", "-"}});
    Expect(FromClient(CHANNEL_AT), Join(Hex("21 00 00 00  00 00  03 00"), Text("AT\r")),
           {{"vex.id", "0x00000021"}, {"vex.name", "AT text"}, {"vex.at", "AT\r"}});
    Expect(ToClient(CHANNEL_AT),
           Join(Hex("22 00 00 00  00 00 00 00  00 00 00 00 00 00 00 00  00 00  08 00"), Text("\r\nRING\r\n")),
           {{"vex.name", "AT indication"}, {"vex.at", "\r\nRING\r\n"}, {"expert", "-"}});
    Check();
}

TEST_F(Wireshark, ShowsStatusDatagrams)
{
    Expect(STATUS, Join(Hex("00 00 00 00  6C 00 00 00"), Text("1-4", 100), Hex("65 00 00 00  04 00 00 00")),
           {{"vex.status.kind", "0"},
            {"vex.status.length", "108"},
            {"vex.status_attached.group", "1-4"},
            {"vex.status_attached.port", "101"},
            {"vex.status_attached.channel", "4"},
            {"expert", "-"}});
    Expect(STATUS, Hex("01 00 00 00  04 00 00 00  66 00 00 00"), {{"vex.status_detached.port", "102"}});
    Expect(STATUS, Join(Hex("02 00 00 00  2D 01 00 00  01"), Text("1-4", 100), Text("86001", 100), Text("V1", 100)),
           {{"vex.status_ue.state", "1"},
            {"vex.status_ue.group", "1-4"},
            {"vex.status_ue.imei", "86001"},
            {"vex.status_ue.version", "V1"}});
    Expect(STATUS, Join(Hex("03 00 00 00  6C 00 00 00  65 00 00 00  01 00 00 00"), Text("127.0.0.1", 100)),
           {{"vex.status_bound.port", "101"},
            {"vex.status_bound.channel", "1"},
            {"vex.status_bound.address", "127.0.0.1"}});
    Expect(STATUS, Hex("04 00 00 00  08 00 00 00  65 00 00 00  02 00 00 00"),
           {{"vex.status_unbound.port", "101"}, {"vex.status_unbound.channel", "2"}});
    Expect(
        STATUS,
        Join(
            Hex("06 00 00 00  18 00 00 00  00 00 00 00  65 00 00 00  00 00 00 00 01 00 00 00  05 00 00 00 00 00 00 00"),
            Fill(184)),
        {{"vex.status_transfer.channel", "0"},
         {"vex.status_transfer.port", "101"},
         {"vex.status_transfer.read_bytes", "4294967296"},
         {"vex.status_transfer.written_bytes", "5"},
         {"expert", "-"}});
    Expect(STATUS, Hex("07 00 00 00  0C 00 00 00  01 00 00 00  02 00 00 00  03 00 00 00"),
           {{"vex.status_version.major", "1"}, {"vex.status_version.minor", "2"}, {"vex.status_version.patch", "3"}});
    Expect(STATUS, Hex("09 00 00 00  01 00 00 00  AA"), {{"vex.status.kind", "9"}, {"vex.payload", "aa"}});
    Check();
}

TEST_F(Wireshark, ShowsEvents)
{
    Expect(EVENT, Join(Hex("01 00 00 00  01 00 00 00"), Text("/dev/ttyUSB3", 128), Text("1-4", 128)),
           {{"vex.event", "1"},
            {"vex.event_channel.event", "1"},
            {"vex.event_channel.attached", "1"},
            {"vex.event_channel.confirmed", "0"},
            {"vex.event_channel.name", "/dev/ttyUSB3"},
            {"vex.event_channel.group", "1-4"}});
    Expect(EVENT, Join(Hex("02 00 00 00"), Text("86001", 100), Text("V1", 100)),
           {{"vex.event", "2"}, {"vex.event_ue.imei", "86001"}, {"vex.event_ue.version", "V1"}});
    Expect(EVENT, Join(Hex("03 00 00 00  01 00 00 00"), Text("127.0.0.1", 16)),
           {{"vex.event_client.connected", "1"}, {"vex.event_client.address", "127.0.0.1"}});
    Expect(
        EVENT,
        Hex("04 00 00 00  00 00 00 00  01 00 00 00 00 00 00 00  02 00 00 00 00 00 00 00  03 00 00 00 00 00 00 00"),
        {{"vex.event_since.state_ns", "1"}, {"vex.event_since.bound_ns", "2"}, {"vex.event_since.connected_ns", "3"}});
    Expect(EVENT, Join(Hex("05 00 00 00"), Text("/var/log/vex/x.d", 1020)),
           {{"vex.event_log.file", "/var/log/vex/x.d"}});
    Expect(EVENT, Hex("06 00 00 00  AA"), {{"vex.event", "6"}, {"vex.payload", "06:00:00:00:aa"}});
    Check();
}
