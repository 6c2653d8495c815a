#include "client/Connection.h"
#include "client/Decode.h"
#include "client/MonitorModel.h"
#include "client/Names.h"
#include "client/Parse.h"
#include "client/Printer.h"
#include "client/Reports.h"
#include "support/TestBytes.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <nlohmann/json.hpp>
#include <set>

using nlohmann::ordered_json;

namespace
{
// An ack of id 0x50000020, ulRc 2, stamp 0x10, type 0x01F0, payload AA BB CC.
const Bytes ACK = Hex("9F9F 20000050 02000000 1000000000000000 F001 0300 AABBCC");
// One without payload.
const Bytes EMPTY = Hex("9F9F 50000050 00000000 0000000000000000 F000 0000");

std::vector<PACKET> TakeAll(CFrameReader& reader)
{
    std::vector<PACKET> packets;
    for (PACKET stPacket; reader.Next(stPacket);)
        packets.push_back(stPacket);
    return packets;
}

std::vector<uint32_t> Ids(const std::vector<PACKET>& packets)
{
    std::vector<uint32_t> ids;
    for (const PACKET& stPacket : packets)
        ids.push_back(stPacket.stHead.ulCmdId);
    return ids;
}

std::vector<REPORT_ROW> AllRows()
{
    std::vector<REPORT_ROW> rows(GuReports().begin(), GuReports().end());
    rows.insert(rows.end(), StatReports().begin(), StatReports().end());
    return rows;
}

size_t FieldEnd(const FIELD_ROW& stField)
{
    const size_t szSize = stField.enType == U64                                                     ? 8
                          : stField.enType == U32 || stField.enType == I32 || stField.enType == F32 ? 4
                          : stField.enType == U16 || stField.enType == I16                          ? 2
                                                                                                    : 1;
    return stField.usOffset + szSize * stField.usCount;
}

void ExpectFieldsInside(const RECORD_LAYOUT& stLayout, const std::string& strOwner)
{
    for (const FIELD_ROW& stField : stLayout.fields)
        EXPECT_LE(FieldEnd(stField), stLayout.usSize) << strOwner << '.' << stField.pszName;
    for (const GROUP_ROW& stGroup : stLayout.groups) {
        if (stGroup.usFixedCount == 0) {
            EXPECT_LT(stGroup.usCountOffset, stLayout.usSize) << strOwner << '.' << stGroup.pszName;
        }
        ExpectFieldsInside(*stGroup.pstItem, strOwner + '.' + stGroup.pszName);
    }
}

bool IsTruncated(const RECORD_LAYOUT& stLayout, size_t szLen)
{
    return Decode(stLayout, Fill(szLen)).contains("truncated");
}
} // namespace

TEST(ClientFrames, PacketsAreTheSameHoweverTheStreamIsCut)
{
    const Bytes stream = Join(ACK, EMPTY, ACK);
    for (size_t szCut = 0; szCut <= stream.size(); ++szCut) {
        CFrameReader reader;
        reader.Feed(Slice(ByteView(stream), 0, szCut));
        auto packets = TakeAll(reader);
        reader.Feed(Slice(ByteView(stream), szCut));
        for (const PACKET& stPacket : TakeAll(reader))
            packets.push_back(stPacket);
        EXPECT_EQ(Ids(packets), (std::vector<uint32_t>{0x50000020, 0x50000050, 0x50000020})) << "cut at " << szCut;
        EXPECT_EQ(reader.Skipped(), 0U);
    }
}

TEST(ClientFrames, HeadAndPayloadAreRead)
{
    CFrameReader reader;
    reader.Feed(ACK);
    PACKET stPacket;
    ASSERT_TRUE(reader.Next(stPacket));
    EXPECT_EQ(stPacket.stHead.ulRc, 2U);
    EXPECT_EQ(stPacket.stHead.ullTimeStamp, 16U);
    EXPECT_EQ(stPacket.stHead.usPktType, 0x01F0);
    EXPECT_EQ(Bytes(ByteView(stPacket.payload)), Hex("AABBCC"));
}

TEST(ClientFrames, BytesBetweenPacketsAreSkippedAndCounted)
{
    CFrameReader reader;
    reader.Feed(Join(Hex("01 9F 02"), EMPTY, Hex("7E 9F"))); // a single 9F at the end may be half a pair
    EXPECT_EQ(TakeAll(reader).size(), 1U);
    EXPECT_EQ(reader.Skipped(), 4U);
    reader.Feed(Slice(ByteView(EMPTY), 1));
    EXPECT_EQ(TakeAll(reader).size(), 1U);
    EXPECT_EQ(reader.Skipped(), 4U);
}

TEST(ClientFrames, APacketWhoseRestWasLostCostsOnlyItsNeighbour)
{
    CFrameReader reader;
    const Bytes cut(Slice(ByteView(ACK), 0, ACK.size() - 2)); // two payload bytes never came
    reader.Feed(Join(cut, EMPTY, ACK));
    // The cut packet takes the lead bytes of the next one as its payload.
    EXPECT_EQ(Ids(TakeAll(reader)), (std::vector<uint32_t>{0x50000020, 0x50000020}));
    EXPECT_EQ(reader.Skipped(), EMPTY.size() - 2);
}

TEST(ClientFrames, ARequestIsLeadHeadAndParameters)
{
    EXPECT_EQ(Bytes(ByteView(EncodeRequest(0x10015503, 16, Hex("0A0B")))), Hex("9F9F 03550110 1000 0200 0A0B"));
    EXPECT_EQ(Bytes(ByteView(EncodeRequest(0x50000060, 240, {}))), Hex("9F9F 60000050 F000 0000"));
}

TEST(ClientParse, NumbersAreDecimalOrHexadecimalAndWhole)
{
    const struct
    {
        const char* pszText;
        bool bGood;
        uint32_t ulNumber;
    } cases[] = {{"0", true, 0},           {"4294967295", true, 0xFFFFFFFF},
                 {"0x1F", true, 31},       {"0Xff", true, 255},
                 {"4294967296", false, 0}, {"0x", false, 0},
                 {"", false, 0},           {"12a", false, 0},
                 {"-1", false, 0},         {"0x100000000", false, 0}};
    for (const auto& stCase : cases) {
        uint32_t ulNumber = 0;
        EXPECT_EQ(ParseNumber(stCase.pszText, ulNumber), stCase.bGood) << stCase.pszText;
        if (stCase.bGood) {
            EXPECT_EQ(ulNumber, stCase.ulNumber) << stCase.pszText;
        }
    }
}

TEST(ClientParse, HexDigitsComeInPairs)
{
    std::vector<unsigned char> bytes;
    EXPECT_TRUE(ParseHex(std::vector<std::string>{"01", "02ff"}, bytes));
    EXPECT_EQ(Bytes(ByteView(bytes)), Hex("0102FF"));
    EXPECT_FALSE(ParseHex(std::vector<std::string>{"012"}, bytes));
    EXPECT_FALSE(ParseHex(std::vector<std::string>{"0g"}, bytes));
    EXPECT_EQ(HexDigits(Hex("00 9F A1")), "009FA1");
}

TEST(ClientNames, IdsResultsAndTypes)
{
    EXPECT_EQ(IdName(0x50000060), "channel query");
    EXPECT_EQ(IdName(0x12345678), "");
    EXPECT_EQ(ResultText(41), "DIAG_RC_NOT_BOUND (41)");
    EXPECT_EQ(ResultText(999), "999");
    EXPECT_EQ(IndicationKindName(0x0206), "ims");
    EXPECT_EQ(SystemModeName(0x0300), "TDS");
    uint16_t usType = 0;
    EXPECT_TRUE(ParsePacketType("msg", usType));
    EXPECT_EQ(usType, 5);
    EXPECT_TRUE(ParsePacketType("0xAB10", usType));
    EXPECT_EQ(usType, 0xAB10);
    EXPECT_FALSE(ParsePacketType("65536", usType));
    EXPECT_FALSE(ParsePacketType("nonsense", usType));
}

TEST(ClientDecode, EveryTypeIsReadAtItsOffset)
{
    static constexpr FIELD_ROW FIELDS[] = {
        {"u8", 0, U8},    {"u16", 1, U16},  {"i16", 3, I16},       {"u32", 5, U32},      {"i32", 9, I32},
        {"u64", 13, U64}, {"f32", 21, F32}, {"text", 25, TEXT, 4}, {"list", 29, U16, 2}, {"bytes", 33, BYTES, 2}};
    static constexpr RECORD_LAYOUT LAYOUT{"all", 35, FIELDS};
    const Bytes bytes = Hex("FF 0201 FEFF 04030201 FDFFFFFF 0807060504030201 0000C03F 41420043 0100 0200 9FA0");
    EXPECT_EQ(Decode(LAYOUT, bytes).dump(),
              R"({"u8":255,"u16":258,"i16":-2,"u32":16909060,"i32":-3,"u64":72623859790382856,"f32":1.5,"text":"AB",)"
              R"("list":[1,2],"bytes":"9FA0"})");
}

TEST(ClientDecode, MissingBytesReadAsZeroAndAreTold)
{
    const RECORD_LAYOUT& stVersion = *AnswerLayout(0x50000020);
    const ordered_json decoded = Decode(stVersion, Hex("6400 0100 02"));
    EXPECT_EQ(decoded["v"], 100);
    EXPECT_EQ(decoded["r"], 1);
    EXPECT_EQ(decoded["c"], 2);
    EXPECT_EQ(decoded["b"], 0);
    EXPECT_EQ(decoded["truncated"], true);
    EXPECT_FALSE(IsTruncated(stVersion, 28));
    EXPECT_TRUE(IsTruncated(stVersion, 27));
}

TEST(ClientDecode, ACountFromTheWireIsNotTrusted)
{
    const RECORD_LAYOUT& stCqi = *FindReport(StatReports(), "cqi")->pstLayout;
    const ordered_json decoded =
        Decode(stCqi, Hex("FFFFFFFF 0A000000 0A000000 05000000 06000000")); // says four thousand million records
    ASSERT_EQ(decoded["carriers"].size(), 1U);
    EXPECT_EQ(decoded["carriers"][0]["mean_second_cqi"], 6);
    EXPECT_EQ(decoded["truncated"], true);
}

TEST(ClientDecode, BlocksOfRecordsFollowEachOther)
{
    const RECORD_LAYOUT& stTbs = *FindReport(StatReports(), "tbs")->pstLayout;
    Bytes first = Fill(124);
    first[0] = 0x89; // 137 bits
    Bytes second = Fill(124);
    second[120] = 7; // the sixth phase
    const Bytes record = Join(Le(2U), Le(1U), first, Le(2U), first, second);
    const ordered_json decoded = Decode(stTbs, record);
    ASSERT_EQ(decoded["blocks"].size(), 2U);
    EXPECT_EQ(decoded["blocks"][0]["records"][0]["tbs"], 137);
    ASSERT_EQ(decoded["blocks"][1]["records"].size(), 2U);
    EXPECT_EQ(decoded["blocks"][1]["records"][1]["phase"][5], 7);
    EXPECT_FALSE(decoded.contains("truncated"));
}

TEST(ClientDecode, TheThreePartsOfTheWCellReport)
{
    const RECORD_LAYOUT& stCells = *FindReport(GuReports(), "w-cell")->pstLayout;
    const Bytes part1 = Join(Hex("010203040506 0200"), Fill(24, 0x11), Fill(24, 0x22));
    const Bytes part3 = Join(Hex("000000000000 01 01 AABBCCDD"), Fill(24, 0x33), Fill(24, 0x44));
    const ordered_json decoded = Decode(stCells, Join(part1, Fill(8), part3));
    EXPECT_EQ(decoded["part_1"][0]["cells"][1]["bytes"], std::string(48, '2'));
    EXPECT_EQ(decoded["part_2"][0]["count"], 0);
    EXPECT_EQ(decoded["part_3"][0]["cells_1"][0]["bytes"], std::string(48, '3'));
    EXPECT_EQ(decoded["part_3"][0]["cells_2"][0]["bytes"], std::string(48, '4'));
    EXPECT_FALSE(decoded.contains("truncated"));
    EXPECT_FALSE(IsTruncated(stCells, 28)); // nothing stored for parts 2 and 3, no cells
}

TEST(ClientReports, EveryFieldLiesInItsRecord)
{
    for (const REPORT_ROW& stRow : AllRows())
        if (stRow.pstLayout != nullptr)
            ExpectFieldsInside(*stRow.pstLayout, stRow.pszName);
    for (const uint32_t ulId : {0x50000010U, 0x50000020U, 0x50000060U, 0x01F00010U})
        ExpectFieldsInside(*AnswerLayout(ulId), HexId(ulId));
    for (const size_t szLen : {1096U, 516U, 1060U, 808U, 388U, 1264U})
        ExpectFieldsInside(*IndicationLayout(2, szLen), std::to_string(szLen));
}

TEST(ClientReports, NamesAndIdsAreUnique)
{
    std::set<std::string> names;
    std::set<unsigned int> requests;
    for (const REPORT_ROW& stRow : AllRows()) {
        EXPECT_TRUE(names.insert(stRow.pszName).second) << stRow.pszName;
        EXPECT_TRUE(requests.insert(stRow.usReq).second) << stRow.pszName;
        if (stRow.usModemStep != 0) {
            EXPECT_TRUE(requests.insert(stRow.usReq + stRow.usModemStep).second) << stRow.pszName;
        }
    }
    EXPECT_EQ(StatReports().size(), 13U);
}

TEST(ClientReports, RecordsHaveTheLengthsOnTheWire)
{
    const struct
    {
        const char* pszName;
        size_t szLen; // of the payload whose counts are zero
    } cases[] = {
        {"radio", 32},        {"cells", 24},       {"3g-neighbour", 16}, {"gprs-meas", 4},   {"ccch", 8},
        {"rach", 12},         {"reselection", 20}, {"gprs-gas", 8},      {"cell-param", 36}, {"channel", 20},
        {"hopping", 136},     {"snr", 4},          {"snr-min", 4},       {"ba-list", 256},   {"adjacent", 16},
        {"amr-setting", 4},   {"amr-usage", 4},    {"amr-stat-1", 96},   {"amr-stat-2", 96}, {"cs-tx", 8},
        {"cs-fer", 8},        {"dsc", 4},          {"gprs-status", 4},   {"gprs-data", 8},   {"gprs-words", 16},
        {"gprs-data-2", 8},   {"pdp", 4},          {"pdp-qos", 8},       {"grm", 12},        {"timeslots", 12},
        {"schemes", 8},       {"shares", 4},       {"cipher", 4},        {"llc-ul", 8},      {"gsm-neighbour", 4},
        {"lte-neighbour", 4}, {"nas", 288},        {"rlc-ul", 12},       {"rb-dl", 4},       {"mac-d", 4},
        {"reordering", 4},
    };
    for (const auto& stCase : cases) {
        const RECORD_LAYOUT& stLayout = *FindReport(GuReports(), stCase.pszName)->pstLayout;
        size_t szLen = stLayout.usSize;
        for (const GROUP_ROW& stGroup : stLayout.groups)
            szLen += size_t{stGroup.usFixedCount} * stGroup.pstItem->usSize;
        EXPECT_EQ(szLen, stCase.szLen) << stCase.pszName;
    }
}

TEST(ClientReports, ARequestIdFindsItsRowAndModem)
{
    const REPORT_ID stSecond = FindReportByReq(GuReports(), 0xE619);
    ASSERT_NE(stSecond.pstRow, nullptr);
    EXPECT_STREQ(stSecond.pstRow->pszName, "hopping");
    EXPECT_EQ(stSecond.ulModem, 1U);
    EXPECT_EQ(stSecond.Cnf(), 0xE61B); // one id is left out behind the request's
    EXPECT_EQ(stSecond.Ind(), 0xE61C);
    EXPECT_EQ(FindReportByReq(GuReports(), 0xE501).pstRow, nullptr);
    const REPORT_ID stOta = FindReportByAnswer(0xA055);
    ASSERT_NE(stOta.pstRow, nullptr);
    EXPECT_EQ(stOta.Req(), 0xA035);
    EXPECT_STREQ(FindReportByAnswer(62728).pstRow->pszName, "sir");
}

TEST(ClientReports, ParametersByForm)
{
    const struct
    {
        PARAM_FORM enForm;
        Bytes start;
        Bytes stop;
    } cases[] = {
        {PARAM_PERIOD, Hex("0100 F401"), Hex("0000 F401")}, {PARAM_CELL, Hex("0102 F401"), Hex("0002 F401")},
        {PARAM_BLER, Hex("0300 F401"), Hex("0000 F401")},   {PARAM_SWITCH, Hex("01000000"), Hex("00000000")},
        {PARAM_WORD, Hex("01000000"), Hex("00000000")},     {PARAM_ONCE, Hex("00000000"), Hex("00000000")},
    };
    for (const auto& stCase : cases) {
        EXPECT_EQ(Bytes(ByteView(ReportParams(stCase.enForm, true, 500))), stCase.start) << int{stCase.enForm};
        EXPECT_EQ(Bytes(ByteView(ReportParams(stCase.enForm, false, 500))), stCase.stop) << int{stCase.enForm};
    }
}

TEST(ClientReports, MeasurementRecordsAreToldByKindAndLength)
{
    EXPECT_STREQ(IndicationLayout(0x0202, 1096)->pszName, "LTE cell measurement");
    EXPECT_EQ(IndicationLayout(0x0202, 1095), nullptr);
    EXPECT_EQ(IndicationLayout(0x0200, 1096), nullptr); // a DSP message of that length
    for (const size_t szLen : {1096U, 516U, 1060U, 808U, 388U, 1264U})
        EXPECT_FALSE(IsTruncated(*IndicationLayout(2, szLen), szLen)) << szLen;
    const Bytes cmac = Join(Hex("01 02 0000  3412 0500 28 000000  7856 0600 29 000000"), Fill(496));
    const ordered_json decoded = Decode(*IndicationLayout(2, cmac.size()), cmac);
    EXPECT_EQ(decoded["entries"][1]["channel"], 0x5678);
    EXPECT_EQ(decoded["entries"][1]["level"], 0x29);
    EXPECT_EQ(decoded["entries"].size(), 2U);
}

TEST(ClientReports, AnLteMeasurementHasTheServingCellFirst)
{
    // Idle record of type 0x33: count 2 at 8, the serving cell at 12, its neighbours from 20 to 276.
    const Bytes record = Join(Hex("3300 00 00 0000 0000 0200 0000 0100020003000400 0500060007000800"), Fill(1068));
    const ordered_json decoded = Decode(*IndicationLayout(2, record.size()), record);
    EXPECT_EQ(decoded["record_type"], 0x33);
    EXPECT_EQ(decoded["connected"], 0);
    EXPECT_EQ(decoded["count"], 2);
    ASSERT_EQ(decoded["cells"].size(), 33U);
    EXPECT_EQ(decoded["cells"][0]["words"], (ordered_json{1, 2, 3, 4}));
    EXPECT_EQ(decoded["cells"][1]["words"], (ordered_json{5, 6, 7, 8}));
}

TEST(ClientPrinter, ListsAreCutInTextOnly)
{
    const ordered_json decoded = {{"count", 3}, {"cells", {{{"a", 1}}, {{"a", 2}}, {{"a", 3}}}}};
    EXPECT_EQ(DecodedText(decoded, "  ", 2), "  count=3\n    cells[0]  a=1\n    cells[1]  a=2\n    cells: 3 in all\n");
    EXPECT_EQ(DecodedText({{"cells", {{{"a", 1}}}}}, "", 2), "  cells[0]  a=1\n");
}

TEST(ClientPrinter, LongRecordsAreWrapped)
{
    ordered_json record;
    for (const char* pszName : {"first_field_name", "second_field_name", "third_field_name", "fourth_field_name"})
        record[pszName] = std::string(20, 'x');
    const std::string strValue = '"' + std::string(20, 'x') + '"';
    EXPECT_EQ(DecodedText(record, "", 2), "first_field_name=" + strValue + "  second_field_name=" + strValue + '\n' +
                                              "  third_field_name=" + strValue + "  fourth_field_name=" + strValue +
                                              '\n');
}

TEST(ClientPrinter, TheDumpShowsHexAndText)
{
    EXPECT_EQ(HexDump(Hex("41 42 7F 00 41 41 41 41 41 41 41 41 41 41 41 41 5A"), "> "),
              "> 0000  41 42 7F 00 41 41 41 41 41 41 41 41 41 41 41 41  |AB..AAAAAAAAAAAA|\n"
              "> 0010  5A                                               |Z|\n");
}

TEST(ClientMonitor, DatagramsBuildTheTable)
{
    CMonitorModel model;
    const Clock::time_point start = Clock::now();
    const auto text = [](const char* pszText, size_t szSize) {
        Bytes field = Fill(szSize);
        StoreText(field, pszText);
        return field;
    };
    const Bytes attached = Join(Hex("00 000000 6C000000"), text("grp", 100), Hex("03000000 01000000"));
    EXPECT_EQ(model.Apply(attached, start)["event"], "port_attached");
    const Bytes ue = Join(Hex("02 000000 2D010000 01"), text("grp", 100), text("861", 100), text("V100R001", 100));
    EXPECT_EQ(model.Apply(ue, start)["imei"], "861");
    const Bytes client = Join(Hex("03 000000 6C000000 03000000 01000000"), text("10.0.0.7", 100));
    EXPECT_EQ(model.Apply(client, start)["channel_name"], "Lte Data");
    EXPECT_EQ(model.Apply(Hex("07 000000 0C000000 01000000 02000000 03000000"), start)["version"], "1.2.3");
    const auto transfer = [](unsigned int ulRead) {
        return Join(Hex("06 000000 18000000 00000000 03000000"), Le(uint64_t{ulRead}), Le(uint64_t{0}), Fill(184));
    };
    EXPECT_EQ(model.Apply(transfer(1000), start)["read_per_s"], 0.0); // the first report has no interval
    EXPECT_EQ(model.Apply(transfer(5000), start + std::chrono::seconds(2))["read_per_s"], 2000.0);
    const std::string strTable = model.Table();
    for (const char* pszPart : {"1.2.3", "grp", "861", "V100R001", "10.0.0.7", "5000", "2.0"})
        EXPECT_THAT(strTable, testing::HasSubstr(pszPart));

    EXPECT_EQ(model.Apply(Hex("04 000000 08000000 03000000 01000000"), start)["event"], "client_unbound");
    EXPECT_THAT(model.Table(), testing::Not(testing::HasSubstr("10.0.0.7")));
    EXPECT_EQ(model.Apply(Hex("01 000000 04000000 03000000"), start)["port"], 3);
    EXPECT_THAT(model.Table(), testing::HasSubstr("no confirmed UE"));
}

TEST(ClientMonitor, BrokenDatagramsChangeNothing)
{
    CMonitorModel model;
    const std::string strBefore = model.Table();
    for (const Bytes& datagram : {Bytes{}, Hex("00"), Hex("00 000000 6C000000 41"), Hex("05 000000 00000000"),
                                  Hex("07 000000 08000000 01000000 02000000 03000000")})
        EXPECT_TRUE(model.Apply(datagram, Clock::now()).is_null());
    EXPECT_EQ(model.Table(), strBefore);
}
