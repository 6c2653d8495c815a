#include "capture/PcapngReader.h"
#include "capture/PcapngWriter.h"
#include "support/TestBytes.h"

#include <gtest/gtest.h>
#include <zstd.h>

// Capture files: the bytes of each block, reading them back, and files that are cut, damaged or strange.

namespace
{
using RESULT = CPcapngReader::RESULT;

const CAPTURE_RUN RUN{"lab7", 0x0123456789ABCDEF, 0xFEDCBA9876543210, 1'700'000'000'000'000'000};
const TAP_RECORD DATA_RECORD{TAP_KIND::UE_TO_AGENT, 3, CHANNEL_LTE_DATA, 0, 302, 0, 7, 0x1122334455667788};
const Bytes DATA = Hex("AA BB CC");

Bytes AsText(const std::string& strText)
{
    return Bytes(AsBytes(strText));
}

// The blocks of a file with one record, as they stand in pcapng's own terms.
const Bytes SECTION = Join(Hex("0A 0D 0D 0A  A4 00 00 00  4D 3C 2B 1A  01 00 00 00  FF FF FF FF FF FF FF FF"
                               "01 00 52 00"),
                           AsText("run 0123456789abcdeffedcba9876543210, agent since 2023-11-14T22:13:20Z, bench lab7"),
                           Hex("00 00  02 00 0A 00"), AsText("bench lab7"), Hex("00 00  03 00 05 00"), AsText("Linux"),
                           Hex("00 00 00  04 00 0B 00"), AsText("vex-capture"), Hex("00  00 00 00 00  A4 00 00 00"));
const Bytes AGENT_INTERFACE =
    Join(Hex("01 00 00 00  3C 00 00 00  FC 00 00 00  00 00 00 00  02 00 05 00"), AsText("agent"), Hex("00 00 00"),
         Hex("03 00 09 00"), AsText("Vex agent"), Hex("00 00 00  09 00 01 00 09 00 00 00  00 00 00 00  3C 00 00 00"));
const Bytes DATA_INTERFACE =
    Join(Hex("01 00 00 00  44 00 00 00  FC 00 00 00  00 00 00 00  02 00 0C 00"), AsText("ue3-lte-data"),
         Hex("03 00 10 00"), AsText("Vex ue3-lte-data"), Hex("09 00 01 00 09 00 00 00  00 00 00 00  44 00 00 00"));
const Bytes PACKET = Hex("06 00 00 00  5C 00 00 00  01 00 00 00  44 33 22 11  88 77 66 55  2F 00 00 00  2F 00 00 00"
                         "00 0C 00 04 76 65 78 00  00 23 00 04 00 00 00 01  00 00 00 00" // tags: "vex", received
                         "01 01 03 01  00 00 00 00  2E 01 00 00  00 00 00 00  07 00 00 00 00 00 00 00" // head
                         "AA BB CC  00"
                         "02 00 04 00 01 00 00 00  00 00 00 00  5C 00 00 00"); // inbound
const Bytes STATISTICS = Hex("05 00 00 00  34 00 00 00  00 00 00 00  00 00 00 00  09 00 00 00"
                             "04 00 08 00 00 00 00 00 00 00 00 00  05 00 08 00 00 00 00 00 00 00 00 00  00 00 00 00"
                             "34 00 00 00"
                             "05 00 00 00  34 00 00 00  01 00 00 00  00 00 00 00  09 00 00 00"
                             "04 00 08 00 01 00 00 00 00 00 00 00  05 00 08 00 00 00 00 00 00 00 00 00  00 00 00 00"
                             "34 00 00 00");

/// A file with the record of the bytes above.
Bytes OneRecord()
{
    Bytes out;
    CPcapngWriter writer(out);
    writer.Begin(RUN, "vex-capture");
    writer.Record(DATA_RECORD, DATA);
    return out;
}

struct READ
{
    std::vector<TAP_RECORD> records;
    RESULT enEnd = RESULT::RECORD;
    std::string strError;
};
READ ReadAll(std::unique_ptr<ICaptureSource> pSource)
{
    READ stRead;
    CPcapngReader reader(std::move(pSource));
    CAPTURED_RECORD stRecord;
    while ((stRead.enEnd = reader.Next(stRecord)) == RESULT::RECORD)
        stRead.records.push_back(stRecord.stRecord);
    EXPECT_EQ(reader.Next(stRecord), stRead.enEnd); // for good
    stRead.strError = reader.Error();
    return stRead;
}
READ ReadAll(const Bytes& file)
{
    return ReadAll(MemoryCaptureSource(file));
}
} // namespace

TEST(PcapngWriter, WritesTheBlocksByteForByte)
{
    Bytes out;
    CPcapngWriter writer(out);
    writer.Begin(RUN, "vex-capture");
    EXPECT_EQ(out, Join(SECTION, AGENT_INTERFACE));
    out.clear();
    writer.Record(DATA_RECORD, DATA);
    EXPECT_EQ(out, Join(DATA_INTERFACE, PACKET));
    out.clear();
    writer.Record(DATA_RECORD, DATA); // its interface is known
    EXPECT_EQ(out, PACKET);
    out.clear();
    writer.Begin(RUN, "vex-capture"); // forgets
    writer.Record(DATA_RECORD, DATA);
    out.clear();
    writer.End(9);
    EXPECT_EQ(out, STATISTICS);
}

TEST(PcapngWriter, ALossStandsInTheDropCountACommentAndTheStatistics)
{
    Bytes out;
    CPcapngWriter writer(out);
    writer.Begin(RUN, "vex-capture");
    writer.Record(DATA_RECORD, DATA);
    out.clear();
    writer.Record({.enKind = TAP_KIND::AGENT_TO_UE, .ucUe = 3, .ucChannel = CHANNEL_LTE_DATA}, {}, 5, "first");
    EXPECT_EQ(Bytes(Slice(ByteView(out), 72)),
              Join(Hex("02 00 04 00 02 00 00 00"             // outbound
                       "04 00 08 00 05 00 00 00 00 00 00 00" // drops
                       "01 00 1E 00"),                       // comment of 30 bytes
                   AsText("5 records lost before this one"), Hex("00 00  01 00 05 00"), AsText("first"),
                   Hex("00 00 00  00 00 00 00"), Le(uint32_t{148})));
    out.clear();
    writer.End(9);
    EXPECT_EQ(LoadLe<uint64_t>(out, 36), 5u); // all losses stand on interface 0
}

TEST(PcapngWriter, NamesTheInterfaces)
{
    const struct
    {
        TAP_RECORD stRecord;
        std::string strName;
    } cases[] = {
        {{.enKind = TAP_KIND::STATUS}, "Vex status"},
        {{.enKind = TAP_KIND::PORT_EVENT, .ucUe = 15}, "Vex ue15"},
        {{.enKind = TAP_KIND::PORT_EVENT, .ucChannel = CHANNEL_AT}, "Vex at"},
        {{.enKind = TAP_KIND::AGENT_TO_CLIENT, .ucUe = 0, .ucChannel = CHANNEL_GU_CMD}, "Vex ue0-gu-cmd"},
    };
    for (const auto& [stRecord, strName] : cases) {
        Bytes out;
        CPcapngWriter writer(out);
        writer.Begin(RUN, "vex-capture");
        out.clear();
        writer.Record(stRecord, {});
        EXPECT_NE(std::string(out.begin(), out.end()).find(strName), std::string::npos) << strName;
    }
}

TEST(PcapngReader, GivesBackWhatWasWritten)
{
    Bytes file;
    CPcapngWriter writer(file);
    writer.Begin(RUN, "vex-capture");
    const TAP_RECORD second{TAP_KIND::AGENT_TO_CLIENT, 15, CHANNEL_AT, TAP_TEXT | TAP_CUT, 7, 9, UINT64_MAX, 1};
    writer.Record(DATA_RECORD, DATA);
    writer.Record(second, {}, 3, "after a pause");
    writer.End(2);
    CPcapngReader reader(MemoryCaptureSource(file));
    CAPTURED_RECORD stRead;
    ASSERT_EQ(reader.Next(stRead), RESULT::RECORD);
    EXPECT_EQ(reader.SectionComment(), RUN.Text());
    EXPECT_EQ(Bytes(stRead.bytes), DATA);
    EXPECT_EQ(stRead.stRecord.enKind, TAP_KIND::UE_TO_AGENT);
    EXPECT_EQ(stRead.stRecord.ucUe, 3);
    EXPECT_EQ(stRead.stRecord.ucChannel, CHANNEL_LTE_DATA);
    EXPECT_EQ(stRead.stRecord.ulPort, 302u);
    EXPECT_EQ(stRead.stRecord.ullNumber, 7u);
    EXPECT_EQ(stRead.stRecord.ullTime, 0x1122334455667788u);
    EXPECT_EQ(stRead.ullLost, 0u);
    EXPECT_EQ(stRead.strComment, "");
    ASSERT_EQ(reader.Next(stRead), RESULT::RECORD);
    EXPECT_EQ(stRead.bytes.size(), 0u);
    EXPECT_EQ(stRead.stRecord.enKind, second.enKind);
    EXPECT_EQ(stRead.stRecord.ucFlags, second.ucFlags);
    EXPECT_EQ(stRead.stRecord.ulClient, 9u);
    EXPECT_EQ(stRead.stRecord.ullNumber, UINT64_MAX);
    EXPECT_EQ(stRead.ullLost, 3u);
    EXPECT_EQ(stRead.strComment, "after a pause");
    EXPECT_EQ(reader.Next(stRead), RESULT::END);
}

TEST(PcapngReader, ACutFileGivesAllBeforeTheCut)
{
    const Bytes one = OneRecord();
    const Bytes file = Join(one, PACKET);
    for (size_t szCut = 1; szCut < file.size(); ++szCut) {
        const READ stRead = ReadAll(Bytes(Slice(ByteView(file), 0, szCut)));
        const bool bBetween = szCut == SECTION.size() || szCut == SECTION.size() + AGENT_INTERFACE.size() ||
                              szCut == one.size() - PACKET.size() || szCut == one.size();
        EXPECT_EQ(stRead.enEnd, bBetween ? RESULT::END : RESULT::CUT) << szCut;
        EXPECT_EQ(stRead.records.size(), szCut < one.size() ? 0u : 1u) << szCut;
        EXPECT_EQ(stRead.strError, bBetween ? "" : "the file ends within a block") << szCut;
    }
}

TEST(PcapngReader, SaysWhatIsWrongWithAFile)
{
    Bytes lengths = OneRecord();
    lengths.back() = 1;
    Bytes big = OneRecord();
    std::reverse(big.begin() + 8, big.begin() + 12);
    Bytes version = OneRecord();
    version[12] = 2;
    const struct
    {
        Bytes file;
        const char* pszError;
    } cases[] = {
        {{}, "not a pcapng file"},
        {PACKET, "not a pcapng file"},
        {Hex("0A 0D 0D 0A  08 00 00 00"), "a block has a wrong length, or the file is big-endian"},
        {Join(SECTION, Hex("01 00 00 00  11 00 00 00")), "a block has a wrong length, or the file is big-endian"},
        {lengths, "the two lengths of a block differ"},
        {big, "the file is big-endian"},
        {version, "the file is of another version of pcapng"},
    };
    for (const auto& [file, pszError] : cases) {
        const READ stRead = ReadAll(file);
        EXPECT_EQ(stRead.enEnd, RESULT::BAD) << pszError;
        EXPECT_EQ(stRead.strError, pszError);
    }
    std::string strError;
    EXPECT_EQ(OpenCaptureSource("/does/not/exist.pcapng", strError), nullptr);
    EXPECT_EQ(strError, "/does/not/exist.pcapng: No such file or directory");
}

TEST(PcapngReader, PassesOverWhatIsNotTheAgents)
{
    Bytes otherTag = PACKET;
    otherTag[32] = 'w';
    Bytes otherVersion = PACKET;
    otherVersion[48] = 2;
    Bytes noInterface = PACKET;
    noInterface[8] = 9;
    Bytes longer = PACKET;
    longer[20] = 0xFF;
    const Bytes ethernet = Join(Hex("01 00 00 00  14 00 00 00  01 00 00 00  00 00 00 00  14 00 00 00"));
    Bytes onEthernet = PACKET;
    onEthernet[8] = 2;
    const Bytes unknown = Hex("AD 0B 00 00  10 00 00 00  01 02 03 04  10 00 00 00");
    const READ stRead =
        ReadAll(Join(OneRecord(), otherTag, otherVersion, noInterface, longer, ethernet, onEthernet, unknown, PACKET));
    EXPECT_EQ(stRead.enEnd, RESULT::END) << stRead.strError;
    EXPECT_EQ(stRead.records.size(), 2u);
}

TEST(PcapngReader, TakesTheUnitOfTimeFromTheInterface)
{
    Bytes micro = Join(SECTION, AGENT_INTERFACE, DATA_INTERFACE);
    micro[micro.size() - 12] = 6; // value of the resolution
    Bytes packet = PACKET;
    StoreLe<uint32_t>(packet, 12, 0);
    StoreLe<uint32_t>(packet, 16, 5);
    EXPECT_EQ(ReadAll(Join(micro, packet)).records.at(0).ullTime, 5000u);
}

TEST(PcapngReader, ReadsCompressedFilesWholeAndCut)
{
    Bytes file = OneRecord();
    for (int i = 0; i < 100'000; ++i)
        file.insert(file.end(), PACKET.begin(), PACKET.end());
    Bytes packed(ZSTD_compressBound(file.size()), 0);
    packed.resize(ZSTD_compress(packed.data(), packed.size(), file.data(), file.size(), 1));
    const std::string strPath = testing::TempDir() + "vex_packed_" + std::to_string(getpid());
    const auto store = [&](ByteView bytes) {
        FILE* pFile = fopen(strPath.c_str(), "wb");
        (void)fwrite(bytes.data(), 1, bytes.size(), pFile);
        (void)fclose(pFile);
        std::string strError;
        return ReadAll(OpenCaptureSource(strPath, strError));
    };
    READ stRead = store(packed);
    EXPECT_EQ(stRead.enEnd, RESULT::END) << stRead.strError;
    EXPECT_EQ(stRead.records.size(), 100'001u);
    stRead = store(Slice(ByteView(packed), 0, packed.size() / 2));
    EXPECT_EQ(stRead.enEnd, RESULT::CUT);
    EXPECT_EQ(stRead.strError, "the compressed file ends early");
    packed[packed.size() / 2] ^= 0xFF;
    EXPECT_NE(store(packed).enEnd, RESULT::END);
    (void)unlink(strPath.c_str());
}
