#include "data/LteLayout.h"

#include "data/DataProcessor.h"
#include "data/DpLteDiag.h"
#include "support/AgentFixture.h"
#include "support/Configure.h"
#include "support/LogCapture.h"

#include <gtest/gtest.h>

namespace
{

/// The layout of a configuration text.
const FILTER_CFG_STRU& Layout(const std::string& strText)
{
    ConfigureFresh(strText);
    return *CConfig::Instance()->GetFilterCfg();
}

/// GetMemValue into a value whose bytes are all EE before, as its bytes.
template <class T = uint32_t> std::pair<bool, Bytes> Get(VALUE_STRU stField, const Bytes& src, size_t szLimit)
{
    Bytes dst = Fill(sizeof(T), 0xEE);
    T value = LoadLe<T>(dst, 0);
    const bool bOk = GetMemValue(value, stField, src, szLimit);
    StoreLe<T>(dst, 0, value);
    return {bOk, dst};
}

std::pair<bool, Bytes> Set(VALUE_STRU stField, const Bytes& src, size_t szDst)
{
    Bytes dst = Fill(szDst, 0xEE);
    const bool bOk = SetMemValue(dst, stField, src);
    return {bOk, dst};
}

using Result = std::pair<bool, Bytes>;

Bytes Encoded(const FILTER_CFG_STRU& stLayout, unsigned int ulId, unsigned char ucType, const Bytes& params)
{
    ADE_REQ_PACKET_STRU stReq;
    stReq.ulCmdId = ulId;
    stReq.ucCmdType = ucType;
    stReq.usLen = static_cast<uint16_t>(params.size());
    stReq.pData = params;
    const CPacket packet = EncodeReqPacket(stLayout, stReq);
    return Bytes(packet.Bytes());
}

} // namespace

TEST(MemValue, GetCopiesTheFieldIntoTheLowBytes)
{
    const Bytes src = Hex("01 02 03 04 05 06 07 08 09");
    EXPECT_EQ(Get({1, 2}, src, 9), (Result{true, Hex("02 03 EE EE")}));
    EXPECT_EQ(Get({5, 3}, src, 9), (Result{true, Hex("06 07 08 EE")}));
    EXPECT_EQ(Get<uint64_t>({0, 8}, src, 9), (Result{true, Hex("01 02 03 04 05 06 07 08")}));
    EXPECT_EQ(Get<uint64_t>({2, 5}, src, 9), (Result{true, Hex("03 04 05 06 07 EE EE EE")}));
    EXPECT_EQ(Get<uint8_t>({2, 1}, src, 9), (Result{true, Hex("03")}));
}

TEST(MemValue, GetRefusesWhatIsNoField)
{
    const Bytes src = Fill(16, 1);
    const Bytes kept4 = Fill(4, 0xEE);
    EXPECT_EQ(Get({0, 0}, src, 16), (Result{false, kept4})) << "size 0";
    EXPECT_EQ(Get<uint64_t>({0, 9}, src, 16), (Result{false, Fill(8, 0xEE)})) << "size 9";
    EXPECT_EQ(Get({0, 5}, src, 16), (Result{false, kept4})) << "wider than the value";
    EXPECT_EQ(Get({9, 1}, src, 8), (Result{false, kept4})) << "offset above the limit";
}

TEST(MemValue, AnOffsetEqualToTheLengthPassesAndReadsZeros)
{
    const Bytes src = Hex("01 02 03 04");
    EXPECT_EQ(Get({4, 2}, src, 4), (Result{true, Hex("00 00 EE EE")}));
    EXPECT_EQ(Get({3, 4}, src, 4), (Result{true, Hex("04 00 00 00")})) << "offset plus size isn't checked";
    EXPECT_EQ(Get({100, 4}, src, 8192), (Result{true, Hex("00 00 00 00")})) << "a limit beyond the packet";
}

TEST(MemValue, SetWritesTheLowBytesInside)
{
    const Bytes value = Hex("11 22 33 44");
    EXPECT_EQ(Set({1, 2}, value, 4), (Result{true, Hex("EE 11 22 EE")})) << "two low bytes of four";
    EXPECT_EQ(Set({3, 4}, value, 4), (Result{true, Hex("EE EE EE 11")})) << "what lies beyond is left out";
    EXPECT_EQ(Set({4, 1}, value, 4), (Result{true, Hex("EE EE EE EE")})) << "offset equal to the length";
    EXPECT_EQ(Set({5, 1}, value, 4), (Result{false, Fill(4, 0xEE)}));
    EXPECT_EQ(Set({0, 0}, value, 4), (Result{false, Fill(4, 0xEE)}));
    EXPECT_EQ(Set({0, 9}, Fill(16, 1), 16), (Result{false, Fill(16, 0xEE)}));
    EXPECT_EQ(Set({0, 4}, Hex("11"), 4), (Result{false, Fill(4, 0xEE)})) << "wider than the value";
}

TEST(LteRequest, EveryFieldHasItsValue)
{
    // Offsets in another order than the pairs, a gap at 31, and every pair at its full width.
    const auto& stLayout = Layout("REQ_CHL_PACKET_HEADER_LEN=36\n"
                                  "REQ_CHL_PACKET_HEADER={30,1};{29,1};{28,1};{27,1};{26,1};{22,4};{14,8};{0,4};{4,4};"
                                  "{8,4};{32,4}\n");
    EXPECT_EQ(Encoded(stLayout, 0x30900099, 5, Hex("AA BB")), Hex("99 00 90 30"             // pair 7, id
                                                                  "0A 00 00 00"             // pair 8, 2 + 8
                                                                  "00 00 00 00"             // pair 9
                                                                  "00 00"                   // gap
                                                                  "00 00 00 00 00 00 00 00" // pair 6
                                                                  "05 00 00 00"             // pair 5, type
                                                                  "01 01 30 02 00 00"       // pairs 4, 3, 2, 1, 0, gap
                                                                  "00 00 00 00"             // pair 10
                                                                  "AA BB"));
}

TEST(LteRequest, TheClassOfTheIdHasItsCode)
{
    const auto& stLayout =
        Layout("REQ_CHL_PACKET_HEADER_LEN=1\n"
               "REQ_CHL_PACKET_HEADER={0,0};{0,0};{0,1};{0,0};{0,0};{0,0};{0,0};{0,0};{0,0};{0,0};{0,0}\n");
    const unsigned char aucCode[16] = {2, 2, 2, 3, 4, 2, 8, 7, 2, 2, 2, 2, 2, 2, 2, 2};
    for (unsigned int ulClass = 0; ulClass < 16; ++ulClass)
        EXPECT_EQ(Encoded(stLayout, ulClass << 28 | 0x123, 0, {}),
                  Bytes{static_cast<unsigned char>(aucCode[ulClass] << 4)})
            << "class " << ulClass;
}

TEST(LteRequest, APairWiderThanItsValueLeavesZeros)
{
    const auto& stLayout =
        Layout("REQ_CHL_PACKET_HEADER_LEN=8\n"
               "REQ_CHL_PACKET_HEADER={0,0};{0,4};{0,0};{0,0};{0,0};{0,0};{0,0};{4,2};{0,0};{0,0};{0,0}\n");
    EXPECT_EQ(Encoded(stLayout, 0x12345678, 0, {}), Hex("00 00 00 00  78 56 00 00"));
}

TEST(LteRequest, FieldsBehindTheHeaderAreNotSentAndThePayloadLiesOverThem)
{
    const auto& stLayout =
        Layout("REQ_CHL_PACKET_HEADER_LEN=2\n"
               "REQ_CHL_PACKET_HEADER={0,0};{2,1};{0,0};{0,0};{0,0};{0,0};{0,0};{1,4};{0,0};{0,0};{0,0}\n");
    EXPECT_EQ(Encoded(stLayout, 0x44332211, 0, Hex("AA")), Hex("00 11 AA"));
    EXPECT_EQ(Encoded(stLayout, 0x44332211, 0, {}), Hex("00 11"));
}

TEST(LteRequest, ALargeHeaderHasRoom)
{
    const auto& stLayout =
        Layout("REQ_CHL_PACKET_HEADER_LEN=5000\n"
               "REQ_CHL_PACKET_HEADER={0,0};{0,0};{0,0};{0,0};{0,0};{0,0};{0,0};{4990,4};{0,0};{0,0};{0,0}\n");
    const Bytes packet = Encoded(stLayout, 0x44332211, 0, Fill(4076, 0x5A));
    ASSERT_EQ(packet.size(), 9076u);
    EXPECT_EQ(LoadLe<uint32_t>(packet, 4990), 0x44332211u);
    EXPECT_EQ(Bytes(Slice(ByteView(packet), 5000)), Fill(4076, 0x5A));
}

TEST(LteRequest, APayloadOfABlockOrMoreIsNotCopied)
{
    const auto& stLayout = Layout("REQ_CHL_PACKET_HEADER_LEN=2\n");
    EXPECT_EQ(Encoded(stLayout, 1, 0, Fill(4095, 7)), Join(Fill(2), Fill(4095, 7)));
    EXPECT_EQ(Encoded(stLayout, 1, 0, Fill(4096, 7)), Fill(4098));
}

TEST(LteRequest, WithoutConfigurationOnlyThePayloadGoesOut)
{
    EXPECT_EQ(Encoded(Layout(""), 0x12345678, 5, Hex("01 02")), Hex("01 02"));
}

namespace
{
// Acks: payload at 26; id 0, -, field 8, type 12, stamp 16.
constexpr const char* ACK_LAYOUT = "ACK_CHL_PACKET_PAYLOAD_OFFSET=26\n"
                                   "ACK_CHL_PACKET_HEADER={0,4};{4,4};{8,4};{12,4};{16,8};{24,2}\n";

Bytes AckPacket(const std::string& strPayload = "")
{
    return Join(Hex("03 55 01 10  11 22 33 44  78 56 BB AA  05 FF FF FF  01 02 03 04 05 06 07 08  EE EE"),
                Hex(strPayload));
}
} // namespace

TEST(LteAck, TheHeaderIsReadByTheConfiguration)
{
    const auto& stLayout = Layout(ACK_LAYOUT);
    const Bytes packet = AckPacket("AA BB CC");
    ADE_ACK_PACKET_STRU stAck;
    ASSERT_TRUE(DecodeAckPacket(stLayout, packet, stAck));
    EXPECT_EQ(stAck.ulCmdId, 0x10015503u);
    EXPECT_EQ(stAck.usAckField, 0x5678) << "low 16 bits";
    EXPECT_EQ(stAck.ucCmdType, 5) << "low 8 bits";
    EXPECT_EQ(stAck.ullTimeStamp, 0x0807060504030201u);
    EXPECT_EQ(stAck.ucReserved, 0);
    EXPECT_EQ(stAck.ucSysMode, 2);
    EXPECT_EQ(stAck.ucSpare, 0);
    EXPECT_EQ(stAck.usLen, 3);
    EXPECT_EQ(Bytes(stAck.pData), Hex("AA BB CC"));
    EXPECT_EQ(stAck.pData.data(), packet.data() + 26) << "borrowed from the packet";
}

TEST(LteAck, LengthLimits)
{
    ADE_ACK_PACKET_STRU stAck;
    const auto Read = [&](unsigned int ulPayloadOffset, size_t szLen) {
        const auto& stLayout = Layout("ACK_CHL_PACKET_HEADER={0,4};{0,0};{0,0};{0,0};{0,0};{0,0}\n"
                                      "ACK_CHL_PACKET_PAYLOAD_OFFSET=" +
                                      std::to_string(ulPayloadOffset) + "\n");
        return DecodeAckPacket(stLayout, Fill(szLen, 1), stAck);
    };
    EXPECT_FALSE(Read(0, 23));
    EXPECT_TRUE(Read(0, 24));
    EXPECT_TRUE(Read(24, 24)) << "an empty payload at the end";
    EXPECT_EQ(stAck.usLen, 0);
    EXPECT_FALSE(Read(25, 24)) << "a payload beyond the packet";
    EXPECT_TRUE(Read(30, 30 + 8191));
    EXPECT_EQ(stAck.usLen, 8191);
    EXPECT_FALSE(Read(30, 30 + 8192));
}

TEST(LteAck, AnIdThatIsInvalidOrUnreadableRefuses)
{
    ADE_ACK_PACKET_STRU stAck;
    Bytes packet = AckPacket();
    StoreLe<uint32_t>(packet, 0, 0xFFFFFFFF);
    EXPECT_FALSE(DecodeAckPacket(Layout(ACK_LAYOUT), packet, stAck));
    const auto& stNoId = Layout("ACK_CHL_PACKET_HEADER={0,0};{4,4};{8,4};{12,4};{16,8};{24,2}\n");
    EXPECT_FALSE(DecodeAckPacket(stNoId, AckPacket(), stAck)) << "size 0";
    const auto& stWideId = Layout("ACK_CHL_PACKET_HEADER={0,8};{4,4};{8,4};{12,4};{16,8};{24,2}\n");
    EXPECT_FALSE(DecodeAckPacket(stWideId, AckPacket(), stAck)) << "wider than an id";
}

TEST(LteAck, AShortIdHasZerosAboveIt)
{
    const auto& stLayout = Layout("ACK_CHL_PACKET_HEADER={0,2};{4,4};{8,4};{12,4};{16,8};{24,2}\n");
    ADE_ACK_PACKET_STRU stAck;
    ASSERT_TRUE(DecodeAckPacket(stLayout, AckPacket(), stAck));
    EXPECT_EQ(stAck.ulCmdId, 0x5503u);
}

// The four fields share one value that is cleared once: required.
TEST(LteAck, AShortFieldKeepsTheHighBytesOfTheOneBefore)
{
    ADE_ACK_PACKET_STRU stAck;
    const auto& stUnused = Layout("ACK_CHL_PACKET_HEADER={0,4};{4,4};{8,1};{12,4};{16,8};{24,2}\n");
    ASSERT_TRUE(DecodeAckPacket(stUnused, AckPacket(), stAck));
    EXPECT_EQ(stAck.usAckField, 0x2278) << "second byte from the pair that is read without use";
    const auto& stId = Layout("ACK_CHL_PACKET_HEADER={0,4};{4,1};{8,1};{12,4};{16,8};{24,2}\n");
    ASSERT_TRUE(DecodeAckPacket(stId, AckPacket(), stAck));
    EXPECT_EQ(stAck.usAckField, 0x5578) << "second byte from the id";
}

TEST(LteAck, FieldsThatCannotBeReadAreZero)
{
    const auto& stLayout = Layout("ACK_CHL_PACKET_HEADER={0,4};{4,4};{0,0};{0,9};{0,0};{0,0}\n");
    ADE_ACK_PACKET_STRU stAck;
    ASSERT_TRUE(DecodeAckPacket(stLayout, AckPacket(), stAck));
    EXPECT_EQ(stAck.usAckField, 0);
    EXPECT_EQ(stAck.ucCmdType, 0);
    EXPECT_EQ(stAck.ullTimeStamp, 0u);
}

namespace
{
constexpr const char* DATA_LAYOUT = "DATA_CHL_PACKET_PAYLOAD_OFFSET=20\n"
                                    "DATA_CHL_PACKET_HEADER={0,4};{4,4};{8,4};{12,8};{0,0}\n";

Bytes DataPacket(const std::string& strPayload = "")
{
    return Join(Hex("78 56 34 12  44 33 22 11  07 FF FF FF  01 02 03 04 05 06 07 08"), Hex(strPayload));
}
} // namespace

TEST(LteData, TheHeaderIsReadByTheConfiguration)
{
    const auto& stLayout = Layout(DATA_LAYOUT);
    Bytes packet = DataPacket("AA BB");
    ADE_DATA_PACKET_STRU stData;
    ASSERT_EQ(DecodeDataPacket(stLayout, packet, stData), DIAG_RC_OK);
    EXPECT_EQ(stData.ulCmdId, 0x12345678u);
    EXPECT_EQ(stData.ulAckField, 0x11223344u);
    EXPECT_EQ(stData.ucCmdType, 7);
    EXPECT_EQ(stData.ullTimeStamp, 0x0807060504030201u);
    EXPECT_EQ(stData.ucReserved, 0);
    EXPECT_EQ(stData.ucSysMode, 2);
    EXPECT_EQ(stData.ucIndType, 0);
    EXPECT_EQ(stData.usLen, 2);
    EXPECT_EQ(Bytes(stData.pData), Hex("AA BB"));
    EXPECT_EQ(stData.pData.data(), packet.data() + 20);
}

TEST(LteData, LengthLimits)
{
    ADE_DATA_PACKET_STRU stData;
    const auto& stLayout = Layout(DATA_LAYOUT);
    Bytes packet = Fill(20 + 8192, 1);
    EXPECT_EQ(DecodeDataPacket(stLayout, packet, stData), DIAG_RC_OK);
    EXPECT_EQ(stData.usLen, 8192);
    packet.push_back(1);
    EXPECT_EQ(DecodeDataPacket(stLayout, packet, stData), DIAG_RC_BAD_HEADER);
    Bytes empty = Fill(20, 1);
    EXPECT_EQ(DecodeDataPacket(stLayout, empty, stData), DIAG_RC_OK);
    EXPECT_EQ(stData.usLen, 0);
    Bytes shorter = Fill(19, 1);
    EXPECT_EQ(DecodeDataPacket(stLayout, shorter, stData), DIAG_RC_BAD_HEADER);
}

TEST(LteData, ShortFieldsHaveZerosAboveThem)
{
    const auto& stLayout = Layout("DATA_CHL_PACKET_HEADER={0,4};{4,1};{8,1};{12,2};{0,0}\n");
    Bytes packet = DataPacket();
    ADE_DATA_PACKET_STRU stData;
    ASSERT_EQ(DecodeDataPacket(stLayout, packet, stData), DIAG_RC_OK);
    EXPECT_EQ(stData.ulAckField, 0x44u) << "nothing stays of the field before";
    EXPECT_EQ(stData.ullTimeStamp, 0x0201u);
}

TEST(LteData, IdAndAckFieldThatCannotBeReadAreInvalid)
{
    ADE_DATA_PACKET_STRU stData;
    Bytes packet = DataPacket();
    const auto& stNoField = Layout("DATA_CHL_PACKET_HEADER={0,4};{0,0};{0,0};{0,0};{0,0}\n");
    ASSERT_EQ(DecodeDataPacket(stNoField, packet, stData), DIAG_RC_OK);
    EXPECT_EQ(stData.ulAckField, 0xFFFFFFFFu);
    EXPECT_EQ(stData.ucCmdType, 0);
    EXPECT_EQ(stData.ullTimeStamp, 0u);

    const auto& stNoId = Layout("DATA_CHL_PACKET_HEADER={0,0};{4,4};{8,4};{12,8};{0,0}\n");
    const CLogCapture log;
    EXPECT_EQ(DecodeDataPacket(stNoId, packet, stData), DIAG_RC_FAIL);
    EXPECT_EQ(log.Count("[WAN] : lte data serial ulCmdID is invalid (0xffffffff)"), 1);
}

TEST(LteData, TheInvalidIdFailsAndZeroPassesWithAWarning)
{
    const auto& stLayout = Layout(DATA_LAYOUT);
    const CLogCapture log;
    ADE_DATA_PACKET_STRU stData;
    Bytes packet = DataPacket();
    StoreLe<uint32_t>(packet, 0, 0xFFFFFFFF);
    EXPECT_EQ(DecodeDataPacket(stLayout, packet, stData), DIAG_RC_FAIL);
    StoreLe<uint32_t>(packet, 0, 0);
    EXPECT_EQ(DecodeDataPacket(stLayout, packet, stData), DIAG_RC_OK);
    EXPECT_EQ(stData.ulCmdId, 0u);
    EXPECT_EQ(log.Count("[WAN] : lte data serial ulCmdID is ZERO"), 1);
}

namespace
{
struct Classified
{
    unsigned int ulRc;
    int iCategory;
    bool operator==(const Classified&) const = default;
};
void PrintTo(const Classified& st, std::ostream* pOut)
{
    *pOut << "rc " << st.ulRc << " category " << st.iCategory;
}

Classified Classify(const Bytes& packet)
{
    PACKET_CATEGORY_ENUM enCategory = PACKET_CATEGORY_DATA;
    const unsigned int ulRc = CDataProcessorLteDiag::GetPacketType(packet, enCategory);
    return {ulRc, enCategory};
}

/// Tag at 4, id at 8, bound 8.
Bytes Tagged(unsigned char ucTag, unsigned int ulId)
{
    return Join(Fill(4), Bytes{ucTag}, Fill(3), Le(ulId));
}
} // namespace

TEST(PacketType, TheTagTellsDataWhateverTheId)
{
    ConfigureFresh(TEST_LAYOUT);
    for (const unsigned int ulId : {0x10065000u, 0x10015503u, 0xFFFFFFFFu}) {
        EXPECT_EQ(Classify(Tagged(3, ulId)), (Classified{DIAG_RC_OK, PACKET_CATEGORY_DATA}));
        EXPECT_EQ(Classify(Tagged(0xFF, ulId)), (Classified{DIAG_RC_OK, PACKET_CATEGORY_DATA}));
    }
    EXPECT_EQ(Classify(Tagged(4, 0x10015503)), (Classified{DIAG_RC_OK, PACKET_CATEGORY_ACK}));
}

TEST(PacketType, AcksAreSortedByTheirId)
{
    ConfigureFresh(TEST_LAYOUT);
    EXPECT_EQ(Classify(Tagged(0, 0x10065000)), (Classified{DIAG_RC_OK, PACKET_CATEGORY_MGR_ACK}));
    EXPECT_EQ(Classify(Tagged(0, 0x50000001)), (Classified{DIAG_RC_OK, PACKET_CATEGORY_MGR_ACK}));
    EXPECT_EQ(Classify(Tagged(0, 0x10015503)), (Classified{DIAG_RC_OK, PACKET_CATEGORY_ACK}));
    EXPECT_EQ(Classify(Tagged(0, 0xFFFFFFFF)), (Classified{DIAG_RC_BAD_HEADER, PACKET_CATEGORY_INVALID}));
}

TEST(PacketType, TheLengthTestsAreStrict)
{
    ConfigureFresh(TEST_LAYOUT); // bound 8; the tag ends at 5
    EXPECT_EQ(Classify(Fill(8)), (Classified{DIAG_RC_BAD_LENGTH, PACKET_CATEGORY_INVALID})) << "as long as the bound";
    EXPECT_EQ(Classify(Fill(9)), (Classified{DIAG_RC_OK, PACKET_CATEGORY_ACK}));
    EXPECT_EQ(Classify({}), (Classified{DIAG_RC_BAD_LENGTH, PACKET_CATEGORY_INVALID}));
    ConfigureFresh("DATA_ACK_CHL_PACKET_OFFSET=8\nDATA_ACK_CHL_PACKET_UID={0,0};{8,4};{0,0}\n");
    EXPECT_EQ(Classify(Fill(12)), (Classified{DIAG_RC_BAD_LENGTH, PACKET_CATEGORY_INVALID})) << "the tag ends there";
    EXPECT_EQ(Classify(Fill(13)), (Classified{DIAG_RC_OK, PACKET_CATEGORY_ACK}));
}

TEST(PacketType, ATagBeyondTheBoundCannotBeRead)
{
    ConfigureFresh("DATA_ACK_CHL_PACKET_OFFSET=8\nDATA_ACK_CHL_PACKET_UID={0,0};{9,1};{0,0}\n");
    EXPECT_EQ(Classify(Fill(20, 3)), (Classified{DIAG_RC_BAD_FIELD, PACKET_CATEGORY_INVALID}));
    ConfigureFresh("DATA_ACK_CHL_PACKET_OFFSET=8\nDATA_ACK_CHL_PACKET_UID={0,0};{8,1};{0,0}\n");
    EXPECT_EQ(Classify(Fill(20, 3)), (Classified{DIAG_RC_OK, PACKET_CATEGORY_DATA})) << "at the bound it can";
    ConfigureFresh("DATA_ACK_CHL_PACKET_OFFSET=8\nDATA_ACK_CHL_PACKET_UID={0,0};{4,0};{0,0}\n");
    EXPECT_EQ(Classify(Fill(20, 3)), (Classified{DIAG_RC_BAD_FIELD, PACKET_CATEGORY_INVALID})) << "size 0";
}

TEST(PacketType, OnlyTheLowByteOfTheTagCounts)
{
    ConfigureFresh("DATA_ACK_CHL_PACKET_OFFSET=8\nDATA_ACK_CHL_PACKET_UID={0,0};{4,2};{0,0}\n");
    EXPECT_EQ(Classify(Join(Fill(4), Hex("03 77"), Fill(10))), (Classified{DIAG_RC_OK, PACKET_CATEGORY_DATA}));
    EXPECT_EQ(Classify(Join(Fill(4), Hex("77 03"), Fill(10))), (Classified{DIAG_RC_OK, PACKET_CATEGORY_ACK}));
}

TEST(PacketType, TheIdReadsAsZerosBeyondTheEnd)
{
    ConfigureFresh("DATA_ACK_CHL_PACKET_OFFSET=1\nDATA_ACK_CHL_PACKET_UID={0,0};{0,1};{0,0}\n"
                   "ACK_CHL_PACKET_HEADER={8,4};{0,0};{0,0};{0,0};{0,0};{0,0}\n");
    EXPECT_EQ(Classify(Fill(3)), (Classified{DIAG_RC_OK, PACKET_CATEGORY_ACK})) << "id 0";
    EXPECT_EQ(Classify(Join(Fill(8), Hex("FF FF FF"))), (Classified{DIAG_RC_OK, PACKET_CATEGORY_ACK}))
        << "id 0x00FFFFFF";
    EXPECT_EQ(Classify(Join(Fill(8), Hex("FF FF FF FF"))), (Classified{DIAG_RC_BAD_HEADER, PACKET_CATEGORY_INVALID}));
}

TEST(PacketType, WithoutConfigurationNothingCanBeSorted)
{
    ConfigureFresh("");
    EXPECT_EQ(Classify(Fill(100)), (Classified{DIAG_RC_BAD_FIELD, PACKET_CATEGORY_INVALID}));
}
