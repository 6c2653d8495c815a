#include "data/gu/GUDataProcess.h"

#include "support/GuFixture.h"

#include <gtest/gtest.h>

namespace
{
constexpr unsigned int BOTH_MODES[] = {FRAME_MODE_TIME_SSID, FRAME_MODE_RTC_CPUID};

size_t Lead(unsigned int ulMode)
{
    return ulMode == FRAME_MODE_TIME_SSID ? 17 : 9;
}
size_t Gap(unsigned int ulMode)
{
    return Lead(ulMode) - 1;
}

/// A decoder that keeps what it delivers.
struct Decoder
{
    Decoder()
    {
        process.SetguDataProcess([this](ByteView packet) { taken.emplace_back(packet); });
    }
    bool Take(Bytes block, unsigned int ulMode)
    {
        const bool bWhole = process.OM_UsbFrameDecap(block, Lead(ulMode), ulMode);
        after = block;
        return bWhole;
    }
    CGUDataProcess process;
    std::vector<Bytes> taken;
    Bytes after; // the last block as it was rewritten
};

const Bytes PACKET_A = Hex("04 A1 A2 A3 A4 A5 A6 A7 A8 A9"); // padded by two bytes
const Bytes PACKET_B = Hex("04 B1 B2 B3 B4 B5 B6 B7 B8 B9 BA BB");
/// The packet with the SSID of a head in its byte 1.
Bytes WithSsid(Bytes packet, unsigned char ucSsid)
{
    packet[1] = ucSsid;
    return packet;
}
/// The lead of a block, its head with an SSID.
Bytes LeadBytes(unsigned int ulMode, unsigned char ucSsid)
{
    return Join(Bytes{0xDD}, OmHead(ulMode, ucSsid));
}
} // namespace

TEST(GUDataProcess, EncapBytes)
{
    const CPacket padded = CGUDataProcess::OM_UsbFrameEncap(Hex("11 22 33 44 55"), 2, 1);
    EXPECT_EQ(Bytes(padded.Bytes()), Hex("01 55 55 AA AA 09 00 02 01 11 22 33 44 55 00 00 00 AA AA 55 55"));
    const CPacket even = CGUDataProcess::OM_UsbFrameEncap(Hex("11 22 33 44"), 1, 1);
    EXPECT_EQ(Bytes(even.Bytes()), Hex("01 55 55 AA AA 08 00 01 01 11 22 33 44 AA AA 55 55"));
}

TEST(GUDataProcess, EncapLimits)
{
    EXPECT_FALSE(CGUDataProcess::OM_UsbFrameEncap({}, 1, 1));
    const CPacket longest = CGUDataProcess::OM_UsbFrameEncap(Fill(65531), 1, 1);
    ASSERT_EQ(longest.size(), 65532U + 13U);
    EXPECT_EQ(LoadLe<uint16_t>(longest.Bytes(), 5), 65535);
    EXPECT_FALSE(CGUDataProcess::OM_UsbFrameEncap(Fill(65532), 1, 1));
}

TEST(GUDataProcess, TwoFramesOfABlock)
{
    for (const unsigned int ulMode : BOTH_MODES) {
        Decoder decoder;
        EXPECT_TRUE(decoder.Take(OmBlock(ulMode, {PACKET_A, PACKET_B}, 5), ulMode));
        EXPECT_EQ(decoder.taken, (std::vector<Bytes>{WithSsid(PACKET_A, 5), WithSsid(PACKET_B, 5)}));
    }
}

TEST(GUDataProcess, BlockBytesInView)
{
    // Mode 1: 17 bytes, the SSID 14 bytes ahead of the mark. Mode 2: 9 bytes, the SSID 8 bytes ahead.
    Decoder decoder;
    EXPECT_TRUE(decoder.Take(Hex("DD E0 E1 03 E3 E4 E5 E6 E7 E8 E9 EA EB EC ED EE EF"
                                 "55 55 AA AA 08 00 01 01 0A 0B 0C 0D AA AA 55 55"),
                             FRAME_MODE_TIME_SSID));
    EXPECT_TRUE(decoder.Take(Hex("DD 04 E1 E2 E3 E4 E5 E6 E7"
                                 "55 55 AA AA 08 00 01 01 1A 1B 1C 1D AA AA 55 55"),
                             FRAME_MODE_RTC_CPUID));
    EXPECT_EQ(decoder.taken, (std::vector<Bytes>{Hex("0A 03 0C 0D"), Hex("1A 04 1C 1D")}));
    EXPECT_EQ(decoder.after, Hex("DD 04 E1 E2 E3 E4 E5 E6 E7 55 55 AA AA 08 00 01 01 1A 04 1C 1D AA AA 55 55"))
        << "repaired in place";
}

// A block of two frames, its heads with the SSIDs 5 and 7, cut in two at every position at which both blocks have
// lengths that are accepted. The second block comes with a lead of its own, with SSID 9.
TEST(GUDataProcess, EverySplit)
{
    for (const unsigned int ulMode : BOTH_MODES) {
        const Bytes first = OmFrame(PACKET_A);
        const Bytes second = OmFrame(PACKET_B);
        const Bytes whole = Join(first, OmHead(ulMode, 7), second);
        for (size_t szCut = 4; szCut < whole.size(); szCut += 4) {
            SCOPED_TRACE("mode " + std::to_string(ulMode) + ", cut at " + std::to_string(szCut));
            Decoder decoder;
            const size_t szInHead = szCut > first.size() ? szCut - first.size() : 0;
            const bool bEndsInHead = szInHead > 0 && szInHead <= Gap(ulMode);
            EXPECT_EQ(decoder.Take(Join(LeadBytes(ulMode, 5), Slice(ByteView(whole), 0, szCut)), ulMode), !bEndsInHead);
            EXPECT_TRUE(decoder.Take(Join(LeadBytes(ulMode, 9), Slice(ByteView(whole), szCut)), ulMode));
            // A frame whose head was cut off takes the byte at the SSID's distance: the second lead's SSID when
            // the head is missing as a whole, a filler that is no SSID when a part of the head is there.
            unsigned char ucSecondSsid = 7;
            if (bEndsInHead)
                ucSecondSsid = szInHead == Gap(ulMode) ? 9 : PACKET_B[1];
            EXPECT_EQ(decoder.taken, (std::vector<Bytes>{WithSsid(PACKET_A, 5), WithSsid(PACKET_B, ucSecondSsid)}));
        }
    }
}

TEST(GUDataProcess, LengthNotDivisibleByFour)
{
    for (const unsigned int ulMode : BOTH_MODES) {
        Decoder decoder;
        EXPECT_FALSE(decoder.Take(Join(OmBlock(ulMode, {PACKET_A}), Bytes{0}), ulMode));
        EXPECT_TRUE(decoder.taken.empty());
        EXPECT_TRUE(decoder.Take(OmBlock(ulMode, {PACKET_B}, 5), ulMode)) << "the next block";
        EXPECT_EQ(decoder.taken, std::vector<Bytes>{WithSsid(PACKET_B, 5)});
    }
}

TEST(GUDataProcess, RefusedBlockClearsTheHeldFrame)
{
    for (const unsigned int ulMode : BOTH_MODES)
        for (const size_t szHeld : {size_t{4}, size_t{8}}) { // the mark alone, and with the length field
            SCOPED_TRACE("mode " + std::to_string(ulMode) + ", held " + std::to_string(szHeld));
            Decoder decoder;
            const Bytes frame = OmFrame(PACKET_A);
            EXPECT_TRUE(decoder.Take(Join(LeadBytes(ulMode, 3), Slice(ByteView(frame), 0, szHeld)), ulMode));
            EXPECT_FALSE(decoder.Take(Join(LeadBytes(ulMode, 3), Slice(ByteView(frame), szHeld), Bytes{0}), ulMode));
            EXPECT_FALSE(decoder.Take(Join(LeadBytes(ulMode, 3), Slice(ByteView(frame), szHeld)), ulMode))
                << "the rest of a frame that is held no more";
            EXPECT_TRUE(decoder.taken.empty());
            EXPECT_TRUE(decoder.Take(OmBlock(ulMode, {PACKET_B}, 5), ulMode));
            EXPECT_EQ(decoder.taken, std::vector<Bytes>{WithSsid(PACKET_B, 5)});
        }
}

TEST(GUDataProcess, FrameOverThreeBlocks)
{
    for (const unsigned int ulMode : BOTH_MODES) {
        Decoder decoder;
        const Bytes frame = OmFrame(PACKET_B);
        EXPECT_TRUE(decoder.Take(Join(LeadBytes(ulMode, 6), Slice(ByteView(frame), 0, 4)), ulMode));
        EXPECT_FALSE(decoder.Take(Join(LeadBytes(ulMode, 9), Slice(ByteView(frame), 4, 8)), ulMode)) << "incomplete";
        EXPECT_FALSE(decoder.Take(LeadBytes(ulMode, 9), ulMode)) << "an empty block changes nothing";
        EXPECT_TRUE(decoder.Take(Join(LeadBytes(ulMode, 9), Slice(ByteView(frame), 12)), ulMode));
        EXPECT_EQ(decoder.taken, std::vector<Bytes>{WithSsid(PACKET_B, 6)});
    }
}

TEST(GUDataProcess, LengthField)
{
    Decoder decoder;
    EXPECT_TRUE(decoder.Take(OmBlock(1, {Fill(4096, 0x11)}, 0xFF), 1)) << "length field 4100";
    ASSERT_EQ(decoder.taken.size(), 1U);
    EXPECT_EQ(decoder.taken[0], Fill(4096, 0x11));
    EXPECT_FALSE(decoder.Take(OmBlock(1, {Fill(4097, 0x11), PACKET_A}), 1)) << "4101; the rest is lost";
    EXPECT_FALSE(decoder.Take(OmBlock(1, {Fill(65531, 0x11)}), 1));
    EXPECT_EQ(decoder.taken.size(), 1U);
}

TEST(GUDataProcess, LargestFrameHeld)
{
    Decoder decoder;
    const Bytes frame = OmFrame(Fill(4096, 0x22));
    for (const size_t szCut : {size_t{4}, size_t{4100}, size_t{4104}}) {
        EXPECT_TRUE(decoder.Take(Join(LeadBytes(1, 0xFF), Slice(ByteView(frame), 0, szCut)), 1));
        EXPECT_TRUE(decoder.Take(Join(LeadBytes(1, 0xFF), Slice(ByteView(frame), szCut)), 1));
    }
    EXPECT_EQ(decoder.taken, std::vector<Bytes>(3, Fill(4096, 0x22)));
}

TEST(GUDataProcess, BadEndMark)
{
    for (const unsigned int ulMode : BOTH_MODES) {
        Decoder decoder;
        Bytes block = OmBlock(ulMode, {PACKET_A, PACKET_B});
        block[Lead(ulMode) + OmFrame(PACKET_A).size() - 1] ^= 1;
        EXPECT_FALSE(decoder.Take(block, ulMode));
        EXPECT_TRUE(decoder.taken.empty()) << "the frame behind the fault is lost too";
        block = OmBlock(ulMode, {PACKET_A, PACKET_B});
        block.back() ^= 1;
        EXPECT_FALSE(decoder.Take(block, ulMode));
        EXPECT_EQ(decoder.taken, std::vector<Bytes>{WithSsid(PACKET_A, 0)}) << "those ahead of it are not";
    }
}

TEST(GUDataProcess, BadEndMarkOfAHeldFrame)
{
    for (const unsigned int ulMode : BOTH_MODES) {
        Decoder decoder;
        Bytes frame = OmFrame(PACKET_A);
        frame.back() ^= 1;
        EXPECT_TRUE(decoder.Take(Join(LeadBytes(ulMode, 3), Slice(ByteView(frame), 0, 8)), ulMode));
        EXPECT_TRUE(decoder.Take(
            Join(LeadBytes(ulMode, 3), Slice(ByteView(frame), 8), OmHead(ulMode, 4), OmFrame(PACKET_B)), ulMode));
        EXPECT_EQ(decoder.taken, std::vector<Bytes>{WithSsid(PACKET_B, 4)}) << "the search starts afresh in the block";
    }
}

TEST(GUDataProcess, HeldMarkWithBadLength)
{
    for (const unsigned int ulMode : BOTH_MODES) {
        Decoder decoder;
        EXPECT_TRUE(decoder.Take(Join(LeadBytes(ulMode, 3), Hex("55 55 AA AA")), ulMode));
        EXPECT_TRUE(decoder.Take(Join(LeadBytes(ulMode, 3), Hex("05 10 01 01"), OmFrame(PACKET_A)), ulMode)) << "4101";
        EXPECT_EQ(decoder.taken, std::vector<Bytes>{PACKET_A}) << "with the filler in the place of an SSID";
        EXPECT_TRUE(decoder.Take(Join(LeadBytes(ulMode, 3), Hex("55 55 AA AA")), ulMode));
        EXPECT_FALSE(decoder.Take(Join(LeadBytes(ulMode, 3), Hex("04 10 01 01")), ulMode)) << "4100 is waited for";
    }
}

TEST(GUDataProcess, HeldFrameWithoutLengthNeedsTheMarkAlone)
{
    // Five bytes are held here, the length field's low byte among them, which is 0: as good as no length field.
    Decoder decoder;
    EXPECT_TRUE(decoder.Take(Join(LeadBytes(1, 3), Hex("00 00 00 55 55 AA AA 00")), 1));
    EXPECT_TRUE(decoder.Take(OmBlock(1, {PACKET_A}, 3), 1));
    EXPECT_EQ(decoder.taken, std::vector<Bytes>{WithSsid(PACKET_A, 3)});
}

TEST(GUDataProcess, EndMarkPartlyHeldIsMissed)
{
    // The mark at an odd place: one byte of the end mark is in the block held, so the next one doesn't hold it.
    Decoder decoder;
    const Bytes frame = OmFrame(PACKET_B);
    ASSERT_EQ(frame.size(), 24U);
    EXPECT_TRUE(decoder.Take(Join(LeadBytes(1, 3), Hex("00 00 00"), Slice(ByteView(frame), 0, 21)), 1));
    EXPECT_FALSE(decoder.Take(Join(LeadBytes(1, 3), Hex("AA 55 55 00")), 1));
    EXPECT_TRUE(decoder.taken.empty());
    EXPECT_TRUE(decoder.Take(OmBlock(1, {PACKET_A}, 3), 1));
    EXPECT_EQ(decoder.taken.size(), 1U);
}

TEST(GUDataProcess, SearchesTheMark)
{
    Decoder decoder;
    EXPECT_TRUE(decoder.Take(Join(LeadBytes(2, 0), Hex("55 55 AA 00"), OmHead(2, 8), OmFrame(PACKET_A)), 2));
    EXPECT_EQ(decoder.taken, std::vector<Bytes>{WithSsid(PACKET_A, 8)});
    EXPECT_FALSE(decoder.Take(Join(LeadBytes(2, 0), Fill(64, 0x55)), 2)) << "no mark";
    EXPECT_FALSE(decoder.Take(LeadBytes(2, 0), 2)) << "nothing behind the lead";
    EXPECT_FALSE(decoder.Take(Hex("DD"), 2)) << "not even a lead";
}

TEST(GUDataProcess, NoFrameBehindTheGap)
{
    for (const unsigned int ulMode : BOTH_MODES) {
        Decoder decoder;
        EXPECT_FALSE(decoder.Take(Join(OmBlock(ulMode, {PACKET_A}), OmHead(ulMode, 0), Hex("00 00 00 00")), ulMode));
        EXPECT_EQ(decoder.taken.size(), 1U);
    }
}

TEST(GUDataProcess, SsidRules)
{
    struct
    {
        unsigned char ucHead;
        unsigned char ucIndex;
        unsigned char ucWanted;
    } const aRow[] = {
        {0, 1, 0},     {1, 1, 1},      {2, 1, 0},    {3, 1, 3},    {11, 1, 11},
        {12, 1, 0xA1}, {255, 1, 0xA1}, {3, 2, 0xA1}, {3, 0, 0xA1},
    };
    for (const auto& stRow : aRow)
        for (const unsigned int ulMode : BOTH_MODES) {
            Decoder decoder;
            EXPECT_TRUE(
                decoder.Take(Join(LeadBytes(ulMode, stRow.ucHead), OmFrame(PACKET_A, 3, stRow.ucIndex)), ulMode));
            EXPECT_EQ(decoder.taken, std::vector<Bytes>{WithSsid(PACKET_A, stRow.ucWanted)})
                << int{stRow.ucHead} << " of segment " << int{stRow.ucIndex};
        }
}

TEST(GUDataProcess, PayloadWithoutRoomForAnSsid)
{
    Decoder decoder;
    EXPECT_TRUE(decoder.Take(Join(LeadBytes(1, 3), Hex("55 55 AA AA 04 00 01 01 AA AA 55 55")), 1));
    EXPECT_TRUE(decoder.Take(Join(LeadBytes(1, 3), Hex("55 55 AA AA 05 00 01 01 77 00 00 00 AA AA 55 55")), 1));
    EXPECT_TRUE(decoder.Take(Join(LeadBytes(1, 3), Hex("55 55 AA AA 03 00 01 01 AA AA 55 55")), 1));
    EXPECT_EQ(decoder.taken, (std::vector<Bytes>{Bytes(), Hex("77"), Bytes()}));
}

TEST(GUDataProcess, InitForgetsTheHeldFrame)
{
    Decoder decoder;
    const Bytes frame = OmFrame(PACKET_B);
    EXPECT_TRUE(decoder.Take(Join(LeadBytes(1, 3), Slice(ByteView(frame), 0, 8)), 1));
    decoder.process.OM_InitDecap();
    EXPECT_FALSE(decoder.Take(Join(LeadBytes(1, 3), Slice(ByteView(frame), 8)), 1));
    EXPECT_TRUE(decoder.taken.empty());
}
