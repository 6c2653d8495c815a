#include "capture/CapturePicture.h"

#include "common/Record.h"
#include "support/TestBytes.h"

#include <gtest/gtest.h>

// What every file of a capture begins with.

namespace
{
TAP_RECORD Event(uint8_t ucUe, uint8_t ucChannel, uint64_t ullNumber, uint32_t ulClient = 0)
{
    return {TAP_KIND::PORT_EVENT, ucUe, ucChannel, 0, 100, ulClient, ullNumber, 1000 + ullNumber};
}
Bytes ChannelEvent(uint8_t ucAttached)
{
    TAP_CHANNEL_EVENT stEvent;
    stEvent.ucAttached = ucAttached;
    return Bytes(EncodeRecord(stEvent));
}
Bytes ClientEvent(uint8_t ucConnected)
{
    TAP_CLIENT_EVENT stEvent;
    stEvent.ucConnected = ucConnected;
    return Bytes(EncodeRecord(stEvent));
}
const Bytes UE_EVENT = Bytes(EncodeRecord(TAP_UE_EVENT()));

/// Numbers of its records, in order; all are marked as replayed.
std::vector<uint64_t> Numbers(const CCapturePicture& picture)
{
    std::vector<uint64_t> numbers;
    picture.ForEach([&](const TAP_RECORD& stRecord, ByteView) {
        EXPECT_EQ(stRecord.ucFlags, TAP_REPLAYED);
        EXPECT_EQ(stRecord.ullTime, 1000 + stRecord.ullNumber); // of its day
        numbers.push_back(stRecord.ullNumber);
    });
    return numbers;
}
} // namespace

TEST(CapturePicture, KeepsTheLastOfEachInTheOrderOfTheirNumbers)
{
    CCapturePicture picture;
    picture.Take(Event(1, CHANNEL_LTE_DIAG, 1), ChannelEvent(1));
    picture.Take({.enKind = TAP_KIND::CONFIGURATION, .ullNumber = 2, .ullTime = 1002}, AsBytes("a"));
    picture.Take(Event(1, CHANNEL_LTE_DIAG, 3), UE_EVENT); // of the same channel, but another event
    picture.Take({.enKind = TAP_KIND::UE_TO_AGENT, .ucUe = 1, .ullNumber = 4}, AsBytes("packet"));
    picture.Take(Event(1, CHANNEL_AT, 5), ChannelEvent(1));
    picture.Take(Event(1, CHANNEL_LTE_DIAG, 6), ChannelEvent(0));
    EXPECT_EQ(Numbers(picture), (std::vector<uint64_t>{2, 3, 5, 6})); // the configuration first
    picture.Take({.enKind = TAP_KIND::CONFIGURATION, .ullNumber = 7, .ullTime = 1007}, AsBytes("b"));
    EXPECT_EQ(Numbers(picture), (std::vector<uint64_t>{7, 3, 5, 6}));
    picture.Clear();
    EXPECT_EQ(Numbers(picture), std::vector<uint64_t>());
}

TEST(CapturePicture, ForgetsSinceWhenAChannelWasAsItIsWithItsNextEvent)
{
    const Bytes since = Bytes(EncodeRecord(TAP_SINCE_EVENT()));
    CCapturePicture picture;
    picture.Take(Event(1, CHANNEL_AT, 1), ChannelEvent(1));
    picture.Take(Event(1, CHANNEL_AT, 2, 8), since);
    picture.Take(Event(2, CHANNEL_AT, 3), ChannelEvent(1));
    picture.Take(Event(2, CHANNEL_AT, 4), since);
    EXPECT_EQ(Numbers(picture), (std::vector<uint64_t>{1, 2, 3, 4}));
    picture.Take(Event(1, CHANNEL_AT, 5), ChannelEvent(1));
    EXPECT_EQ(Numbers(picture), (std::vector<uint64_t>{3, 4, 5}));
}

TEST(CapturePicture, KeepsClientsUntilTheyGo)
{
    CCapturePicture picture;
    picture.Take(Event(TAP_NO_UE, CHANNEL_AT, 1, 8), ClientEvent(1));
    picture.Take(Event(TAP_NO_UE, CHANNEL_AT, 2, 9), ClientEvent(1));
    EXPECT_EQ(Numbers(picture), (std::vector<uint64_t>{1, 2}));
    picture.Take(Event(3, CHANNEL_AT, 3, 8), ClientEvent(0)); // bound since
    EXPECT_EQ(Numbers(picture), (std::vector<uint64_t>{2}));
}

TEST(CapturePicture, GivesTheBytesBack)
{
    CCapturePicture picture;
    picture.Take({.enKind = TAP_KIND::CONFIGURATION, .ullTime = 1000}, AsBytes("text"));
    picture.ForEach([](const TAP_RECORD& stRecord, ByteView bytes) {
        EXPECT_EQ(stRecord.enKind, TAP_KIND::CONFIGURATION);
        EXPECT_EQ(Bytes(bytes), Bytes(AsBytes("text")));
    });
}

TEST(CapturePicture, TellsThePicturesForOtherObserversFromOurs)
{
    CCapturePicture picture;
    const TAP_RECORD config{.enKind = TAP_KIND::CONFIGURATION, .ucFlags = TAP_REPLAYED};
    const TAP_RECORD replayed{.enKind = TAP_KIND::PORT_EVENT, .ucFlags = TAP_REPLAYED};
    const TAP_RECORD event{.enKind = TAP_KIND::PORT_EVENT};
    const TAP_RECORD traffic{.enKind = TAP_KIND::UE_TO_AGENT};
    // Traffic may come between the records of a picture.
    for (const TAP_RECORD& stRecord : {config, replayed, traffic, replayed, event, traffic})
        EXPECT_FALSE(picture.IsForOthers(stRecord));
    EXPECT_TRUE(picture.IsForOthers(config));
    EXPECT_FALSE(picture.IsForOthers(traffic));
    EXPECT_TRUE(picture.IsForOthers(replayed));
    EXPECT_FALSE(picture.IsForOthers(event));
    picture.Clear();
    EXPECT_FALSE(picture.IsForOthers(config));
}
