#include "ue/HDLCParse.h"
#include "ue/FcsFold.h"

#include "support/HdlcReference.h"
#include "support/TestBytes.h"

#include <gtest/gtest.h>
#include <random>

#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
// The tests of a failed allocation ask for more than any allocator gives.
extern "C" const char* __asan_default_options();
extern "C" const char* __asan_default_options()
{
    return "allocator_may_return_null=1";
}
extern "C" const char* __tsan_default_options();
extern "C" const char* __tsan_default_options()
{
    return "allocator_may_return_null=1";
}
#endif

namespace
{
struct Result
{
    unsigned int uiCode;
    Bytes data;
    bool operator==(const Result&) const = default;
};
void PrintTo(const Result& result, std::ostream* pOut)
{
    *pOut << result.uiCode << " with ";
    PrintTo(result.data, pOut);
}

Result Encode(ByteView payload)
{
    const HDLC_RESULT stResult = CHDLCParse().HdlcEncode(payload);
    return {stResult.uiResult, Bytes(stResult.packet.Bytes())};
}

Result Decode(ByteView raw)
{
    const HDLC_RESULT stResult = CHDLCParse().HdlcDecode(raw);
    return {stResult.uiResult, Bytes(stResult.packet.Bytes())};
}

constexpr size_t BEYOND_MEMORY = size_t(1) << 61;

const Bytes PAYLOAD_18 = Hex("01 02 03 04 05 06 07 08 09 0A 0B 0C 0D 0E 0F 10 11 12");
const Bytes FRAME_18 = Hex("7E 01 02 03 04 05 06 07 08 09 0A 0B 0C 0D 0E 0F 10 11 12 AA 85 7E");
} // namespace

TEST(HDLCParse, Encodes)
{
    const struct
    {
        const char* pszName;
        Bytes payload;
        Bytes frame;
    } c_aCase[] = {
        {"flag and escape are stuffed", Hex("01 02 7E 7D"), Hex("7E 01 02 7D 5E 7D 5D 6B 97 7E")},
        {"the nine digits", Hex("31 32 33 34 35 36 37 38 39"), Hex("7E 31 32 33 34 35 36 37 38 39 6E 90 7E")},
        {"nothing but stuffed bytes", Hex("7E 7D"), Hex("7E 7D 5E 7D 5D F1 CD 7E")},
        {"one byte is enough; a low FCS byte of 7E is stuffed", Hex("60"), Hex("7E 60 7D 5E 93 7E")},
        {"a high FCS byte of 7E is stuffed", Hex("2A"), Hex("7E 2A 20 7D 5E 7E")},
        {"a high FCS byte of 7D is stuffed", Hex("19"), Hex("7E 19 38 7D 5D 7E")},
        {"the smallest payload that comes back", PAYLOAD_18, FRAME_18},
    };
    for (const auto& stCase : c_aCase)
        EXPECT_EQ(Encode(stCase.payload), (Result{0, stCase.frame})) << stCase.pszName;
}

TEST(HDLCParse, NoOtherByteIsEscaped)
{
    Bytes payload;
    for (int i = 0; i < 256; ++i)
        if (i != 0x7D && i != 0x7E)
            payload.push_back(static_cast<unsigned char>(i));
    const Bytes frame = Encode(payload).data;
    ASSERT_GE(frame.size(), 1 + payload.size());
    EXPECT_EQ(Bytes(ByteView(frame).subspan(1, payload.size())), payload);
}

TEST(HDLCParse, NothingToEncodeIsAParameterError)
{
    const unsigned char ucByte = 0;
    EXPECT_EQ(Encode(ByteView()).uiCode, 2u);
    EXPECT_EQ(Encode(ByteView(&ucByte, 0)).uiCode, 2u);
}

TEST(HDLCParse, AFailedAllocationIsReportedAndGivesNothing)
{
    const ByteView huge(FRAME_18.data(), BEYOND_MEMORY); // never read: the allocation comes first
    const HDLC_RESULT stFrame = CHDLCParse().HdlcEncode(huge);
    EXPECT_EQ(stFrame.uiResult, 201u);
    EXPECT_FALSE(stFrame.packet);
    const HDLC_RESULT stPacket = CHDLCParse().HdlcDecode(huge);
    EXPECT_EQ(stPacket.uiResult, 201u);
    EXPECT_FALSE(stPacket.packet);
}

TEST(HDLCParse, Decodes)
{
    const struct
    {
        const char* pszName;
        Bytes raw;
        unsigned int uiCode;
        Bytes payload;
    } c_aCase[] = {
        {"18 bytes of payload, 22 raw", FRAME_18, 0, PAYLOAD_18},
        {"21 raw bytes, though the FCS is good",
         Hex("7E 01 02 03 04 05 06 07 08 09 0A 0B 0C 0D 0E 0F 10 11 04 65 7E"),
         2,
         {}},
        {"17 bytes of payload in 22 raw, though the FCS is good",
         Hex("7E 01 02 03 04 05 06 07 08 09 0A 0B 0C 0D 0E 0F 10 7D 5E F5 FE 7E"),
         9065,
         {}},
        {"17 bytes of payload in 23 raw",
         Hex("7E 01 02 03 04 05 06 07 08 09 0A 0B 0C 0D 0E 0F 7D 5E 7D 5E B0 01 7E"),
         9065,
         {}},
        {"one bit is wrong", Hex("7E 01 02 03 04 05 06 07 08 09 0A 0B 0C 0D 0E 0F 10 11 13 AA 85 7E"), 9064, {}},
        {"the FCS is swapped", Hex("7E 01 02 03 04 05 06 07 08 09 0A 0B 0C 0D 0E 0F 10 11 12 85 AA 7E"), 9064, {}},
        {"an escape that would be one elsewhere",
         Hex("7E 01 02 03 04 05 06 07 08 09 0A 0B 0C 0D 0E 7D 41 10 11 12 AA 85 7E"),
         9060,
         {}},
        {"two escapes in a row", Hex("7E 01 02 03 04 05 06 07 08 09 0A 0B 0C 0D 0E 7D 7D 5E 11 12 AA 85 7E"), 9060, {}},
        {"the last byte is 7D and counts as data, not as an escape: the FCS fails",
         Hex("7E 01 02 03 04 05 06 07 08 09 0A 0B 0C 0D 0E 0F 10 11 12 AA 7D 7E"),
         9064,
         {}},
        {"the last byte is 7D and counts as data: it is the FCS's high byte",
         Hex("7E 01 02 03 04 05 06 07 08 09 0A 0B 0C 0D 0E 0F 10 62 01 1C 7D 7E"), 0,
         Hex("01 02 03 04 05 06 07 08 09 0A 0B 0C 0D 0E 0F 10 62 01")},
        {"the same FCS stuffed: its pair takes the last byte",
         Hex("7E 01 02 03 04 05 06 07 08 09 0A 0B 0C 0D 0E 0F 10 62 01 1C 7D 5D 7E"), 0,
         Hex("01 02 03 04 05 06 07 08 09 0A 0B 0C 0D 0E 0F 10 62 01")},
        {"what stands in place of the flags isn't looked at",
         Hex("00 01 02 03 04 05 06 07 08 09 0A 0B 0C 0D 0E 0F 10 11 12 AA 85 55"), 0, PAYLOAD_18},
    };
    for (const auto& stCase : c_aCase)
        EXPECT_EQ(Decode(stCase.raw), (Result{stCase.uiCode, stCase.payload})) << stCase.pszName;
}

TEST(HDLCParse, AShortOrNullFrameIsAParameterError)
{
    EXPECT_EQ(CHDLCParse().HdlcDecode(ByteView()).uiResult, 2u);
    EXPECT_EQ(CHDLCParse().HdlcDecode(ByteView(FRAME_18).first(21)).uiResult, 2u);
}

TEST(HDLCParse, ABadFrameGivesNoPacket)
{
    Bytes raw = FRAME_18;
    raw[5] ^= 1;
    const HDLC_RESULT stResult = CHDLCParse().HdlcDecode(raw);
    EXPECT_EQ(stResult.uiResult, HDLC_ERR_FCS);
    EXPECT_FALSE(stResult.packet);
}

TEST(HDLCParse, AZeroByteStandsBehindTheDecodedPacket)
{
    const HDLC_RESULT stResult = CHDLCParse().HdlcDecode(FRAME_18);
    ASSERT_EQ(stResult.uiResult, 0u);
    EXPECT_EQ(stResult.packet.size(), 18u);
    EXPECT_EQ(stResult.packet.Bytes().data()[18], 0);
}

TEST(HDLCParse, FcsOfKnownBytes)
{
    const CHDLCParse hdlc;
    const Bytes digits = Hex("31 32 33 34 35 36 37 38 39");
    EXPECT_EQ(hdlc.CalFcs(0xFFFF, digits), 0xFFFF ^ 0x906E);
    EXPECT_EQ(hdlc.CalFcs(hdlc.CalFcs(0xFFFF, ByteView(digits).first(4)), ByteView(digits).subspan(4)),
              0xFFFF ^ 0x906E);
    EXPECT_EQ(hdlc.CalFcs(0xFFFF, Join(digits, Hex("6E 90"))), 0xF0B8);
    EXPECT_EQ(hdlc.CalFcs(0x1234, ByteView(digits).first(0)), 0x1234);
}

TEST(HDLCParse, FcsOfNothingIsAnErrorCodeInTheGuiseOfAnFcs)
{
    EXPECT_EQ(CHDLCParse().CalFcs(0xFFFF, ByteView()), 9064);
}

TEST(HDLCParse, AppendsAndChecksTheFcs)
{
    const CHDLCParse hdlc;
    Bytes packet = Hex("01 02 7E 7D 00 00");
    hdlc.EncodeAddFcs(packet);
    EXPECT_EQ(packet, Hex("01 02 7E 7D 6B 97"));
    EXPECT_EQ(hdlc.DecodeCheckFcs(packet), 0u);
    packet[2] = 0x7F;
    EXPECT_EQ(hdlc.DecodeCheckFcs(packet), 9064u);

    Bytes tooShort = Hex("55");
    hdlc.EncodeAddFcs(tooShort);
    EXPECT_EQ(tooShort, Hex("55"));
    hdlc.EncodeAddFcs(ByteSpan());
}

namespace
{
/// Random bytes of which about one in szOneIn is a flag, an escape or the second byte of a pair.
Bytes RandomBytes(std::mt19937& random, size_t szLen, unsigned int uiOneIn)
{
    static const Bytes SPECIAL = Hex("7D 7E 5D 5E 7D 5D");
    Bytes bytes;
    for (size_t i = 0; i < szLen; ++i)
        bytes.push_back(random() % uiOneIn == 0 ? SPECIAL[random() % SPECIAL.size()]
                                                : static_cast<unsigned char>(random()));
    return bytes;
}
} // namespace

TEST(HDLCParse, EqualsAPlainWalkByteByByte)
{
    std::mt19937 random(20260);
    for (size_t szLen = 1; szLen <= 400; ++szLen) {
        for (const unsigned int uiOneIn : {2u, 10u, 100u}) {
            const Bytes payload = RandomBytes(random, szLen, uiOneIn);
            const auto usStart = static_cast<unsigned short>(random());
            ASSERT_EQ(CHDLCParse().CalFcs(usStart, payload), ReferenceFcs(usStart, payload)) << szLen;
            const Bytes frame = FrameOf(payload);
            ASSERT_EQ(Encode(payload), (Result{0, frame}));

            Bytes expected;
            unsigned int uiCode = ReferenceDecode(frame, expected);
            ASSERT_EQ(Decode(frame), (Result{uiCode, uiCode == 0 ? expected : Bytes()}));
            // A damaged frame, and bytes that never were one.
            Bytes damaged = frame;
            damaged[random() % damaged.size()] = static_cast<unsigned char>(random() % 2 ? random() : 0x7D);
            for (const Bytes& raw : {damaged, payload}) {
                uiCode = ReferenceDecode(raw, expected);
                ASSERT_EQ(Decode(raw), (Result{uiCode, uiCode == 0 ? expected : Bytes()}));
            }
        }
    }
}

TEST(HDLCParse, FoldedBytesKeepTheirFcs)
{
    if (!CanFoldFcs())
        GTEST_SKIP() << "this processor can't fold";
    std::mt19937 random(20261122);
    for (size_t szLen = FCS_BLOCK; szLen <= 300; ++szLen) {
        const Bytes bytes = RandomBytes(random, szLen, 50);
        const auto usStart = static_cast<unsigned short>(random());
        const FCS_BLOCK_BYTES aucBlock = FoldFcs(usStart, bytes);
        ASSERT_EQ(ReferenceFcs(0, Bytes(aucBlock.begin(), aucBlock.end())), ReferenceFcs(usStart, bytes)) << szLen;
    }
}

TEST(HDLCParse, BigPacketsComeBack)
{
    std::mt19937 random(20261);
    for (const size_t szLen : {65535u, 65536u, 131071u, 1000000u}) {
        const Bytes payload = RandomBytes(random, szLen, 20);
        const Result frame = Encode(payload);
        ASSERT_EQ(frame.data, FrameOf(payload));
        ASSERT_EQ(Decode(frame.data), (Result{0, payload}));
    }
}
