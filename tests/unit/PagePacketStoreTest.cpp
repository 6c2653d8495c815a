#include "page/PacketStore.h"

#include "common/Record.h"
#include "support/TestBytes.h"
#include "tap/TapEvents.h"

#include <gtest/gtest.h>

namespace
{
constexpr size_t MIB = 1024 * 1024;

TAP_RECORD Data(uint64_t ullTime)
{
    return {TAP_KIND::UE_TO_AGENT, 0, 1, 0, 1, 0, 0, ullTime};
}

std::vector<uint64_t> Numbers(const CPacketSnapshot& snapshot)
{
    std::vector<uint64_t> numbers;
    snapshot.ForEach([&](const KEPT_PACKET& stPacket) {
        numbers.push_back(stPacket.ullNumber);
        return true;
    });
    return numbers;
}

size_t PictureSize(const CPacketSnapshot& snapshot)
{
    size_t szCount = 0;
    snapshot.Picture().ForEach([&](const TAP_RECORD&, ByteView) { ++szCount; });
    return szCount;
}
} // namespace

TEST(PagePacketStore, GivesBackWhatItGotInBothOrders)
{
    CPacketStore store(MIB);
    EXPECT_EQ(store.Put(Data(10), Hex("010203"), 0), 1U);
    EXPECT_EQ(store.Put(Data(20), Bytes{}, 7), 2U);
    const CPacketSnapshot snapshot = store.Snapshot();
    EXPECT_EQ(store.Put(Data(30), Hex("04"), 0), 3U); // behind the snapshot
    EXPECT_EQ(Numbers(snapshot), (std::vector<uint64_t>{1, 2}));
    std::vector<uint64_t> numbers;
    store.Snapshot().ForEachBefore(3, [&](const KEPT_PACKET& stPacket) {
        numbers.push_back(stPacket.ullNumber);
        if (stPacket.ullNumber == 1) {
            EXPECT_EQ(Bytes(stPacket.bytes), Hex("010203"));
        } else {
            EXPECT_EQ(stPacket.ullLost, 7U);
            EXPECT_EQ(stPacket.stRecord.ullTime, 20U);
        }
        return true;
    });
    EXPECT_EQ(numbers, (std::vector<uint64_t>{2, 1}));
}

TEST(PagePacketStore, StaysWithinItsBytes)
{
    CPacketStore store(MIB);
    for (size_t i = 0; i < 20'000; ++i)
        (void)store.Put(Data(i), Fill(200), 0);
    EXPECT_LE(store.Bytes(), MIB);
    EXPECT_EQ(store.Newest(), 20'000U);
    EXPECT_GT(store.Oldest(), 15'000U);
    const auto numbers = Numbers(store.Snapshot());
    EXPECT_EQ(numbers.front(), store.Oldest());
    EXPECT_EQ(numbers.back(), 20'000U);
    EXPECT_EQ(numbers.size(), 20'000 - store.Oldest() + 1);
}

TEST(PagePacketStore, ARecordLargerThanTheStoreIsKeptAlone)
{
    CPacketStore store(MIB);
    (void)store.Put(Data(1), Fill(10), 0);
    (void)store.Put(Data(2), Fill(2 * MIB), 0);
    EXPECT_EQ(Numbers(store.Snapshot()), std::vector<uint64_t>{2});
    (void)store.Put(Data(3), Fill(10), 0);
    EXPECT_EQ(Numbers(store.Snapshot()), std::vector<uint64_t>{3});
    EXPECT_LE(store.Bytes(), MIB);
}

TEST(PagePacketStore, WhatIsForgottenStillTellsWhatWasThere)
{
    CPacketStore store(MIB);
    TAP_HELLO stHello;
    stHello.strHost = "lab7";
    store.BeginRun(stHello, 1);
    TAP_RECORD stEvent{TAP_KIND::PORT_EVENT, 3, 0, 0, 100, 0, 5, 2};
    (void)store.Put(stEvent, EncodeRecord(TAP_CHANNEL_EVENT()), 0);
    EXPECT_EQ(PictureSize(store.Snapshot()), 0U); // still among the records
    const CPacketSnapshot before = store.Snapshot();
    for (size_t i = 0; i < 6000; ++i)
        (void)store.Put(Data(10 + i), Fill(200), 0);
    EXPECT_EQ(PictureSize(store.Snapshot()), 1U);
    EXPECT_EQ(store.Snapshot().Run().strBench, "lab7");
    EXPECT_EQ(Numbers(before), (std::vector<uint64_t>{1, 2})); // a snapshot keeps what it has
    store.BeginRun(stHello, 1);
    for (size_t i = 0; i < 6000; ++i)
        (void)store.Put(Data(10'000 + i), Fill(200), 0);
    EXPECT_EQ(PictureSize(store.Snapshot()), 0U); // of the run before
}
