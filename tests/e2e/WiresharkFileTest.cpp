#include "e2e/WiresharkFixture.h"
#include "support/VexProcess.h"

#include <fstream>
#include <gmock/gmock.h>
#include <random>
#include <sstream>

// What the dissector makes of a whole file: links, expert infos, filters, columns; and any bytes.

using WiresharkFile = Wireshark;

TEST_F(WiresharkFile, LinksRequestsWithTheirAnswers)
{
    const Bytes request = Hex("03 40 01 10  10 00  00 00");
    const Bytes ack = Hex("03 40 01 10  00 00 00 00  00 00 00 00 00 00 00 00  10 02  00 00");
    const Fields none = {{"vex.request_in", "-"}, {"vex.answer_in", "-"}, {"vex.answer_time", "-"}};
    Expect(FromClient(CHANNEL_LTE_DIAG, 5), request, {{"vex.answer_in", "5"}});                                // 1
    Expect(FromClient(CHANNEL_LTE_DIAG, 6), request, {{"vex.answer_in", "4"}});                                // 2
    Expect(FromClient(CHANNEL_LTE_DIAG, 5), request, {{"vex.answer_in", "6"}, {"vex.request_in", "-"}});       // 3
    Expect(ToClient(CHANNEL_LTE_DIAG, 6), ack, {{"vex.request_in", "2"}, {"vex.answer_time", "0.002000000"}}); // 4
    Expect(ToClient(CHANNEL_LTE_DIAG, 5), ack, {{"vex.request_in", "1"}, {"vex.answer_time", "0.004000000"}}); // 5
    Expect(ToClient(CHANNEL_LTE_DIAG, 5), ack, {{"vex.request_in", "3"}, {"vex.answer_time", "0.003000000"}}); // 6
    Expect(ToClient(CHANNEL_LTE_DIAG, 5), ack, none);                                                          // 7
    // A GU request's confirm has another id.
    Expect(FromClient(CHANNEL_GU_CMD), Hex("06 F5 00 00  54 00  04 00  01 00 64 00"), {{"vex.answer_in", "9"}}); // 8
    Expect(ToClient(CHANNEL_GU_CMD),
           Hex("07 F5 54 01  00 00 00 00  00 00 00 00 00 00 00 00  54 01  04 00  00 00 00 00"),
           {{"vex.request_in", "8"}, {"vex.answer_time", "0.001000000"}}); // 9
    // Between agent and UE, LTE and GU.
    Expect(ToUe(3, CHANNEL_LTE_DIAG),
           Hex("00 02 20 01 01 00 00 00  03 40 01 10  08 00 00 00  00 00 00 00  00 00 00 00"),
           {{"vex.answer_in", "12"}}); // 10
    Expect(FromUe(4, CHANNEL_LTE_DIAG),
           Hex("00 00 00 00  00 00 00 00  03 40 01 10  00 00 00 00  00 00 00 00 00 00 00 00  00 00 00 00"), none); // 11
    Expect(FromUe(3, CHANNEL_LTE_DIAG),
           Hex("00 00 00 00  00 00 00 00  03 40 01 10  00 00 00 00  00 00 00 00 00 00 00 00  00 00 00 00"),
           {{"vex.request_in", "10"}, {"vex.answer_time", "0.002000000"}}); // 12
    Expect(ToUe(3, CHANNEL_GU_CMD),
           Hex("01  55 55 AA AA  20 00 01 01  04 00 18 00  00 00 00 00  69 00 00 00  00 00 00 00  8D 00 00 00"
               "04 00 00 00  01 C0 00 00  AA AA 55 55"),
           {{"vex.answer_in", "14"}}); // 13
    Expect(
        FromUe(3, CHANNEL_GU_CMD),
        Join(Fill(17), Hex("55 55 AA AA  18 00 01 01  04 05 10 00  09 00 00 00  00 80 00 00  11 C0 00 00  00 00 00 00"
                           "AA AA 55 55")),
        {{"vex.request_in", "13"}, {"vex.answer_time", "0.001000000"}}); // 14
    // The switch of a client has an answer for each of its parts.
    const Bytes ackSwitch = Hex("17 53 01 10  00 00 00 00  00 00 00 00 00 00 00 00  10 02  00 00");
    Expect(FromClient(CHANNEL_LTE_DIAG), Hex("17 53 01 10  10 00  00 00"), {{"vex.answer_in", "16"}}); // 15
    Expect(ToClient(CHANNEL_LTE_DIAG), ackSwitch, {{"vex.request_in", "15"}});                         // 16
    Expect(ToClient(CHANNEL_LTE_DIAG), ackSwitch, {{"vex.request_in", "15"}});                         // 17
    Check();
}

TEST_F(WiresharkFile, ALateAnswerBelongsToNoRequest)
{
    const Bytes ack = Hex("03 40 01 10  00 00 00 00  00 00 00 00 00 00 00 00  10 02  00 00");
    Expect(FromClient(CHANNEL_LTE_DIAG), Hex("03 40 01 10  10 00  00 00"), {{"vex.answer_in", "2"}});
    m_tshark.Pass(std::chrono::seconds(29));
    Expect(ToClient(CHANNEL_LTE_DIAG), ack, {{"vex.answer_time", "29.001000000"}});
    Expect(FromClient(CHANNEL_LTE_DIAG), Hex("03 40 01 10  10 00  00 00"), {{"vex.answer_in", "-"}});
    m_tshark.Pass(std::chrono::seconds(30));
    Expect(ToClient(CHANNEL_LTE_DIAG), ack, {{"vex.request_in", "-"}});
    Check();
}

TEST_F(WiresharkFile, SaysWhatIsWrongWithAPacket)
{
    const Bytes lead = Fill(17);
    Expect(FromClient(CHANNEL_LTE_DIAG), Hex("03 40 01"), {{"expert", "request of 3 bytes"}});
    Expect(ToClient(CHANNEL_LTE_DIAG), Hex("03 40 01"), {{"expert", "packet of 3 bytes"}});
    Expect(FromClient(CHANNEL_LTE_DIAG), Hex("03 40 01 10  10 00  05 00  01 02"),
           {{"expert", "payload of 5 bytes has 2"}, {"vex.payload", "01:02"}});
    Expect(FromUe(3, CHANNEL_LTE_DIAG), Hex("00 00 00 00  00 00 00 00  03 40 01 10"),
           {{"expert", "head of 28 bytes has 12"}, {"vex.id", "0x10014003"}});
    // The GU packet's own length says 24 bytes; then a frame with another word in the place of the end mark.
    Expect(FromUe(3, CHANNEL_GU_CMD),
           Join(lead, Hex("55 55 AA AA  18 00 01 01  04 05 14 00  09 00 00 00  00 80 00 00  11 C0 00 00  01 02 03 04"
                          "AA AA 55 55")),
           {{"expert", "GU packet of 24 bytes has 20"}, {"vex.payload", "01:02:03:04"}});
    Expect(FromUe(3, CHANNEL_GU_CMD),
           Join(lead, Hex("55 55 AA AA  18 00 01 01  04 05 10 00  09 00 00 00  00 80 00 00  11 C0 00 00  01 02 03 04"
                          "AA AA 55 54")),
           {{"expert", "no end mark"}});
    Expect(STATUS, Hex("01 00 00 00  04 00 00 00  66 00"),
           {{"expert", "record of 4 bytes has 2,port detached ends early"}});
    Expect(STATUS, Hex("01 00 00"), {{"expert", "datagram of 3 bytes"}});
    Expect(EVENT, Hex("01 00"), {{"expert", "event of 2 bytes"}});
    Expect(FromUe(3, CHANNEL_AT), {}, {{"expert", "no bytes"}});
    Check();
}

TEST_F(WiresharkFile, TellsErrorsAndLossesInExpertInfos)
{
    m_tshark.Add(ToClient(CHANNEL_LTE_DIAG), Hex("03 40 01 10  02 00 00 00  00 00 00 00 00 00 00 00  10 02  00 00"));
    m_tshark.Add(FromUe(3, CHANNEL_AT), Text("OK"), 7);
    m_tshark.Add({.enKind = TAP_KIND::UE_TO_AGENT, .ucUe = 3, .ucChannel = CHANNEL_LTE_DIAG, .ucFlags = TAP_CUT},
                 Hex("00 00"));
    m_tshark.Add(FromClient(CHANNEL_LTE_DIAG), Hex("03 40 01 10  10 00  05 00  01 02"));
    m_tshark.Add(FromClient(CHANNEL_LTE_DIAG), Hex("03 40 01"));
    m_tshark.Add(ToClient(CHANNEL_GU_DATA),
                 Hex("08 F5 54 01  01 00 00 00  00 00 00 00 00 00 00 00  54 01  08 00  02 00 00 00  00 00 80 3F"));
    m_tshark.Add(FromUe(3, CHANNEL_GU_CMD), Join(Fill(17), Hex("55 55 AA AA  08 00 01 01  00 00 00 00  00 00 00 00")));
    m_tshark.Add(ToClient(CHANNEL_LTE_DIAG), Hex("03 40 01 10  00 00 00 00  00 00 00 00 00 00 00 00  10 02  00 00"));
    EXPECT_EQ(m_tshark.Passing("vex.expert.result"), (std::vector<unsigned int>{1}));
    EXPECT_EQ(m_tshark.Passing("vex.expert.lost && vex.lost == 7"), (std::vector<unsigned int>{2}));
    EXPECT_EQ(m_tshark.Passing("vex.expert.cut"), (std::vector<unsigned int>{3}));
    EXPECT_EQ(m_tshark.Passing("vex.expert.malformed"), (std::vector<unsigned int>{4, 5, 7}));
    EXPECT_EQ(m_tshark.Passing("vex.expert.short"), (std::vector<unsigned int>{6}));
    EXPECT_EQ(m_tshark.Passing("_ws.expert.severity == error"), (std::vector<unsigned int>{4, 5, 7}));
}

TEST_F(WiresharkFile, FiltersByNumbersAndNames)
{
    m_tshark.Add(ToClient(CHANNEL_GU_DATA), Hex("26 F5 54 01  01 00 00 00  00 00 00 00 00 00 00 00  54 01  00 00"));
    m_tshark.Add(ToClient(CHANNEL_GU_DATA), Hex("08 F5 54 01  01 00 00 00  00 00 00 00 00 00 00 00  54 01  00 00"));
    TAP_RECORD stOther = ToClient(CHANNEL_GU_DATA);
    stOther.ucUe = 4;
    m_tshark.Add(stOther, Hex("26 F5 54 01  01 00 00 00  00 00 00 00 00 00 00 00  54 01  00 00"));
    m_tshark.Add(STATUS, Hex("01 00 00 00  04 00 00 00  66 00 00 00"));
    EXPECT_EQ(m_tshark.Passing("vex.ue == 3 && vex.id == 0x0154f526"), (std::vector<unsigned int>{1}));
    EXPECT_EQ(m_tshark.Passing("vex.ue && vex.channel && vex.direction"), (std::vector<unsigned int>{1, 2, 3, 4}));
    EXPECT_EQ(m_tshark.Passing("vex.channel == \"gu-data\" && vex.direction == \"to-client\""),
              (std::vector<unsigned int>{1, 2, 3}));
    EXPECT_EQ(m_tshark.Passing("vex.name == \"sir report\""), (std::vector<unsigned int>{2}));
}

TEST_F(WiresharkFile, FillsTheColumns)
{
    m_tshark.Add(FromClient(CHANNEL_LTE_DIAG), Hex("40 00 00 50  F0 00  04 00  65 00 00 00"));
    m_tshark.Add(ToClient(CHANNEL_LTE_DIAG), Hex("40 00 00 50  02 00 00 00  00 00 00 00 00 00 00 00  F0 00  00 00"));
    m_tshark.Add(ToUe(3, CHANNEL_LTE_DIAG),
                 Hex("00 02 20 01 01 00 00 00  03 40 01 10  08 00 00 00  00 00 00 00  00 00 00 00"));
    m_tshark.Add(FromUe(3, CHANNEL_AT), Text("\r\n+CREG: 1\r\n"));
    m_tshark.Add(ToClient(CHANNEL_GU_DATA), Hex("08 F5 54 01  01 00 00 00  00 00 00 00 00 00 00 00  54 01  14 00"
                                                "02 00 00 00  00 00 C0 3F 00 00 20 40  00 00 60 40 00 00 90 40"));
    m_tshark.Add(STATUS, Hex("01 00 00 00  04 00 00 00  66 00 00 00"));
    TAP_RECORD stClient = EVENT;
    stClient.ulClient = 9;
    m_tshark.Add(stClient, Join(Hex("03 00 00 00  01 00 00 00"), Text("127.0.0.1", 16)));
    m_tshark.Add(CONFIG, Text("debuglevel=7\n"));
    m_tshark.Add(ToClient(CHANNEL_LTE_DATA), Hex("01 00 43 00  00 00 00 00  00 00 00 00 00 00 00 00  03 02  00 00"));
    EXPECT_EQ(m_tshark.Columns(),
              (std::vector<std::string>{
                  "client 5|agent|Vex LTE|request bind  port=101",
                  "agent|client 5|Vex LTE|ack bind  DIAG_RC_FAIL (2)",
                  "agent|UE 3|Vex LTE|command 0x10014003",
                  "UE 3|agent|Vex AT|AT +CREG: 1",
                  "agent|client 5|Vex GU|indication sir report  count=2 sir_db=1.5 sir_target_db=2.5 sir_db=3.5",
                  "agent|monitor|Vex status|port detached  port=102",
                  "client 9|agent|Vex|client at connected  127.0.0.1",
                  "agent||Vex|(before) configuration, 1 lines",
                  "agent|client 5|Vex LTE|event indication 0x00430001  0 bytes",
              }));
}

TEST_F(WiresharkFile, TakesAnyBytesWithoutALuaError)
{
    const Bytes seeds[] = {
        Hex("06 F5 00 00  54 00  04 00  01 00 64 00"),
        Hex("08 F5 54 01  01 00 00 00  00 00 00 00 00 00 00 00  54 01  14 00  02 00 00 00  00 00 C0 3F 00 00 20 40"),
        Hex("20 00 00 50  00 00 00 00  01 00 00 00 01 00 00 00  F0 02  1C 00  64 00 01 00 02 00 0A 00 0B 00 05 00"),
        Hex("00 02 20 01 01 05 00 00  03 40 01 10  08 00 00 00  00 00 00 00  00 00 00 00  01 02 03 04"),
        Join(Fill(17), Hex("55 55 AA AA  18 00 01 01  04 05 10 00  09 00 00 00  00 80 00 00  01 F0 00 00  00 00 00 00"
                           "AA AA 55 55")),
        Hex("01  55 55 AA AA  20 00 01 01  04 00 18 00  00 00 00 00  69 00 00 00  00 00 00 00  AA AA 55 55"),
        Hex("06 00 00 00  18 00 00 00  00 00 00 00  65 00 00 00"),
        Join(Hex("01 00 00 00  01 00 00 00"), Text("/dev/ttyUSB3", 128), Text("1-4", 128)),
        Text("REQ_CHL_PACKET_HEADER={0,0};{9,9};{-1,4}\nDATA_CHL_PACKET_HEADER={65535,8};{0,2}\n"),
        Text("\r\n+CREG: 1\xFF\xC3\r\n"),
    };
    std::mt19937 random(1);
    for (int i = 0; i < 4000; ++i) {
        Bytes bytes = i % 3 == 0 ? Fill(random() % 60) : seeds[random() % std::size(seeds)];
        for (size_t j = i % 3 == 0 ? bytes.size() : random() % 4; j > 0 && !bytes.empty(); --j)
            bytes[random() % bytes.size()] = static_cast<unsigned char>(random());
        bytes.resize(random() % (bytes.size() + 1));
        const auto enKind = static_cast<TAP_KIND>(random() % 9);
        const auto ucChannel = static_cast<uint8_t>(random() % 7 == 6 ? TAP_NO_CHANNEL : random() % 6);
        m_tshark.Add({.enKind = enKind,
                      .ucUe = static_cast<uint8_t>(random() % 3 == 0 ? TAP_NO_UE : 3),
                      .ucChannel = ucChannel,
                      .ucFlags = static_cast<uint8_t>(random() % 8)},
                     bytes);
    }
    const std::string strTrees = m_tshark.Run({"-V"}); // fails on a Lua error
    EXPECT_NE(strTrees.find("Frame 4000:"), std::string::npos);
    EXPECT_EQ(m_tshark.Passing("vex.ue && vex.channel && vex.direction").size(), 4000u);
}

TEST(WiresharkCheck, ALuaErrorIsSeenInTheOutput)
{
    CTempDir dir;
    dir.Write("bad.lua", "local p = Proto('bad', 'Bad') function p.dissector() error('on purpose') end "
                         "register_postdissector(p)");
    CTshark tshark;
    tshark.Add(FromUe(3, CHANNEL_AT), Text("OK"));
    ASSERT_NE(tshark.Run({}), ""); // writes the file
    CVexProcess bad("/usr/bin/env",
                    {"tshark", "-X", "lua_script:" + dir.Path() + "/bad.lua", "-r", tshark.File(), "-T", "json"},
                    dir.Path());
    EXPECT_EQ(bad.WaitExit(), 0);
    EXPECT_THAT(CTshark::Complaint(bad.Output(), bad.Errors()), testing::HasSubstr("Lua Error"));
}

TEST(WiresharkCheck, LoadsFromThePluginsFolderOfAUser)
{
    CTempDir home;
    std::ostringstream code;
    code << std::ifstream(VEX_DISSECTOR).rdbuf();
    home.Write(".local/lib/wireshark/plugins/vex.lua", code.str());
    CTshark tshark;
    tshark.Add(FromUe(3, CHANNEL_AT), Text("OK"));
    ASSERT_NE(tshark.Run({}), ""); // writes the file
    CVexProcess plain("/usr/bin/env",
                      {"HOME=" + home.Path(), "tshark", "-r", tshark.File(), "-T", "fields", "-e", "vex.at"},
                      home.Path());
    EXPECT_EQ(plain.WaitExit(), 0);
    EXPECT_EQ(plain.Output(), "OK\n");
    EXPECT_EQ(CTshark::Complaint(plain.Output(), plain.Errors()), "");
}
