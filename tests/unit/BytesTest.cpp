#include "common/Bytes.h"

#include "support/TestBytes.h"

#include <cstdint>
#include <gtest/gtest.h>
#include <limits>

TEST(Bytes, SliceNeverLeavesTheBytes)
{
    const Bytes data = {1, 2, 3, 4};
    const ByteView view(data);
    EXPECT_EQ(Bytes(Slice(view, 1, 2)), (Bytes{2, 3}));
    EXPECT_EQ(Bytes(Slice(view, 1)), (Bytes{2, 3, 4}));
    EXPECT_EQ(Bytes(Slice(view, 3, 5)), (Bytes{4}));
    EXPECT_TRUE(Slice(view, 4, 1).empty());
    EXPECT_TRUE(Slice(view, SIZE_MAX, SIZE_MAX).empty());
    EXPECT_TRUE(Slice(ByteView(), 0, 1).empty());
}

TEST(Bytes, LoadReadsTheLowByteFirst)
{
    const Bytes data = Hex("01 02 03 04 05 06 07 88");
    EXPECT_EQ(LoadLe<uint8_t>(data, 7), 0x88);
    EXPECT_EQ(LoadLe<uint16_t>(data, 0), 0x0201);
    EXPECT_EQ(LoadLe<uint16_t>(data, 6), 0x8807);
    EXPECT_EQ(LoadLe<uint32_t>(data, 1), 0x05040302u);
    EXPECT_EQ(LoadLe<uint64_t>(data, 0), 0x8807060504030201u);
}

TEST(Bytes, LoadBeyondTheEndReadsZeros)
{
    const Bytes data = {0xAA, 0xBB, 0xCC};
    EXPECT_EQ(LoadLe<uint32_t>(data, 0), 0x00CCBBAAu);
    EXPECT_EQ(LoadLe<uint16_t>(data, 2), 0x00CC);
    EXPECT_EQ(LoadLe<uint16_t>(data, 3), 0);
    EXPECT_EQ(LoadLe<uint64_t>(data, SIZE_MAX), 0u);
    EXPECT_EQ(LoadLe<uint8_t>({}, 0), 0);
}

TEST(Bytes, StoreWritesTheLowByteFirst)
{
    Bytes data(8, 0xEE);
    StoreLe<uint32_t>(data, 1, 0x05040302);
    EXPECT_EQ(data, Hex("EE 02 03 04 05 EE EE EE"));
    StoreLe<uint64_t>(data, 0, 0x8807060504030201);
    EXPECT_EQ(data, Hex("01 02 03 04 05 06 07 88"));
}

TEST(Bytes, StoreBeyondTheEndWritesOnlyWhatLiesInside)
{
    Bytes data(4, 0xEE);
    StoreLe<uint32_t>(ByteSpan(data).first(3), 1, 0x44332211);
    EXPECT_EQ(data, Hex("EE 11 22 EE"));
    StoreLe<uint32_t>(data, 4, 0xFFFFFFFF);
    StoreLe<uint32_t>(data, SIZE_MAX, 0xFFFFFFFF);
    EXPECT_EQ(data, Hex("EE 11 22 EE"));
}

TEST(Bytes, CopyPaddedFillsTheWholeTarget)
{
    const Bytes source = {1, 2, 3};
    Bytes target(5, 0xEE);
    CopyPadded(target, source);
    EXPECT_EQ(target, Hex("01 02 03 00 00"));
    CopyPadded(target, source, 2);
    EXPECT_EQ(target, Hex("03 00 00 00 00"));
    CopyPadded(target, source, 9);
    EXPECT_EQ(target, Fill(5));
    CopyPadded(ByteSpan(target).first(2), source);
    EXPECT_EQ(target, Hex("01 02 00 00 00"));
}

TEST(Bytes, FixedTextEndsAtItsNulOrItsField)
{
    EXPECT_EQ(FixedText(AsBytes(std::string("ab\0cd", 5))), "ab");
    EXPECT_EQ(FixedText(AsBytes("abcd")), "abcd");
    EXPECT_EQ(FixedText({}), "");
}

TEST(Bytes, StoreTextLeavesRoomForItsNul)
{
    Bytes field(4, 0xEE);
    StoreText(field, "ab");
    EXPECT_EQ(field, Hex("61 62 00 00"));
    StoreText(field, "abc");
    EXPECT_EQ(field, Hex("61 62 63 00"));
    StoreText(field, "abcdef");
    EXPECT_EQ(field, Hex("61 62 63 00"));
    StoreText({}, "abc");
}

TEST(ByteReader, ReadsFieldsInOrder)
{
    const Bytes data = Hex("01 0302 07060504 FEFFFFFF 0000C03F 6100 EE EE 09");
    uint8_t ucFirst = 0;
    uint16_t usSecond = 0;
    uint32_t ulThird = 0;
    int32_t lFourth = 0;
    float fFifth = 0;
    std::string strSixth;
    uint8_t ucLast = 0;
    CByteReader reader(data);
    reader.Field(ucFirst);
    reader.Field(usSecond);
    reader.Field(ulThird);
    reader.Field(lFourth);
    reader.Field(fFifth);
    reader.Text(strSixth, 2);
    reader.Gap(2);
    EXPECT_EQ(reader.Left(), 1u);
    reader.Field(ucLast);
    EXPECT_TRUE(reader.Ok());
    EXPECT_EQ(reader.Left(), 0u);
    EXPECT_EQ(ucFirst, 1);
    EXPECT_EQ(usSecond, 0x0203);
    EXPECT_EQ(ulThird, 0x04050607u);
    EXPECT_EQ(lFourth, -2);
    EXPECT_EQ(fFifth, 1.5F);
    EXPECT_EQ(strSixth, "a");
    EXPECT_EQ(ucLast, 9);
}

TEST(ByteReader, PastTheEndReadsZeroAndStaysFailed)
{
    const Bytes data = Hex("AA BB CC");
    uint32_t ulCut = 0xFFFFFFFF;
    uint16_t usBeyond = 0xFFFF;
    CByteReader reader(data);
    reader.Field(ulCut);
    EXPECT_EQ(ulCut, 0x00CCBBAAu);
    EXPECT_FALSE(reader.Ok());
    reader.Field(usBeyond);
    EXPECT_EQ(usBeyond, 0);
    EXPECT_TRUE(reader.Take(0).empty());
    EXPECT_FALSE(reader.Ok());
}

TEST(ByteReader, TakeGivesWhatIsLeft)
{
    const Bytes data = {1, 2, 3};
    CByteReader reader(data);
    EXPECT_EQ(Bytes(reader.Take(2)), (Bytes{1, 2}));
    EXPECT_TRUE(reader.Ok());
    EXPECT_EQ(Bytes(reader.Take(2)), (Bytes{3}));
    EXPECT_FALSE(reader.Ok());
}

TEST(ByteWriter, WritesFieldsInOrder)
{
    Bytes data(19, 0xEE);
    CByteWriter writer(data);
    writer.Field(uint8_t{1});
    writer.Field(uint16_t{0x0203});
    writer.Field(uint32_t{0x04050607});
    writer.Field(int32_t{-2});
    writer.Field(1.5F);
    writer.Text("abc", 2);
    EXPECT_EQ(writer.Left(), 2u);
    writer.Gap(1);
    writer.Bytes(Bytes{0x09});
    EXPECT_TRUE(writer.Ok());
    EXPECT_EQ(writer.Left(), 0u);
    EXPECT_EQ(data, Hex("01 0302 07060504 FEFFFFFF 0000C03F 6100 00 09"));
}

TEST(ByteWriter, WhatDoesNotFitIsLeftOut)
{
    Bytes data(6, 0xEE);
    CByteWriter writer(ByteSpan(data).first(5));
    writer.Field(uint32_t{0x04030201});
    writer.Field(uint16_t{0xBBAA});
    EXPECT_FALSE(writer.Ok());
    writer.Bytes(Bytes{0x77});
    EXPECT_FALSE(writer.Ok());
    EXPECT_EQ(data, Hex("01 02 03 04 AA EE"));
}
