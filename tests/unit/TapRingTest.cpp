#include "support/TestBytes.h"
#include "tap/TapReader.h"
#include "tap/TapWriter.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <numeric>
#include <random>
#include <thread>

using RESULT = CTapReader::RESULT;

namespace
{
constexpr size_t SMALL = 128; // words of a ring: the longest record has 16 of bytes

/// A ring in memory of this process.
class TapRing : public testing::Test
{
protected:
    explicit TapRing(size_t szRingWords = SMALL) : m_vecWords(TAP_HEAD_WORDS + szRingWords) {}

    std::span<TAP_WORD> Words() { return m_vecWords; }
    uint64_t RingWord(size_t szIndex) const { return m_vecWords[TAP_HEAD_WORDS + szIndex]; }
    uint64_t HeadWord(size_t szIndex) const { return m_vecWords[szIndex]; }
    CTapReader Reader() { return {Words(), 0, 0}; }

    std::vector<TAP_WORD> m_vecWords;
    CTapWriter m_writer{m_vecWords};
};

TAP_RECORD Record(uint32_t ulPort)
{
    TAP_RECORD stRecord;
    stRecord.ulPort = ulPort;
    return stRecord;
}

/// What the next record carries; fails without one.
Bytes NextBytes(CTapReader& reader)
{
    TAP_READ stRead;
    EXPECT_EQ(reader.Next(stRead), RESULT::RECORD);
    return Bytes(stRead.bytes);
}
} // namespace

TEST_F(TapRing, ARecordIsFourWordsAndItsBytes)
{
    TAP_RECORD stRecord;
    stRecord.enKind = TAP_KIND::CLIENT_TO_AGENT;
    stRecord.ucUe = 2;
    stRecord.ucChannel = CHANNEL_AT;
    stRecord.ucFlags = TAP_TEXT;
    stRecord.ulPort = 201;
    stRecord.ulClient = 7;
    m_writer.Write({}, {});
    m_writer.Write(stRecord, Hex("01 02 03 04 05 06 07 08"), Hex("09"));
    EXPECT_EQ(HeadWord(TAP_END), 4u + 6u);
    EXPECT_EQ(HeadWord(TAP_BEGIN), 0u);
    EXPECT_EQ(RingWord(0), 0x00FF'FF06'0000'0000u); // a port event of no UE and no channel
    EXPECT_EQ(RingWord(4), 0x0404'0203'0000'0009u);
    EXPECT_EQ(RingWord(5), 1u);
    EXPECT_GT(RingWord(6), 1'700'000'000'000'000'000u); // ns since 1970, after 2023
    EXPECT_EQ(RingWord(7), 0x0000'0007'0000'00C9u);
    EXPECT_EQ(RingWord(8), 0x0807'0605'0403'0201u);
    EXPECT_EQ(RingWord(9), 9u);
}

TEST_F(TapRing, AReaderGetsWhatWasWritten)
{
    CTapReader reader = Reader();
    TAP_READ stRead;
    EXPECT_EQ(reader.Next(stRead), RESULT::NOTHING);
    TAP_RECORD stRecord;
    stRecord.enKind = TAP_KIND::AGENT_TO_UE;
    stRecord.ucUe = 15;
    stRecord.ucChannel = CHANNEL_GU_CMD;
    stRecord.ucFlags = TAP_REPLAYED;
    stRecord.ulPort = 0xFFFFFFFF;
    stRecord.ulClient = 0xFFFFFFFE;
    m_writer.Write(stRecord, Hex("AA BB"));
    ASSERT_EQ(reader.Next(stRead), RESULT::RECORD);
    EXPECT_EQ(stRead.stRecord.enKind, TAP_KIND::AGENT_TO_UE);
    EXPECT_EQ(stRead.stRecord.ucUe, 15);
    EXPECT_EQ(stRead.stRecord.ucChannel, CHANNEL_GU_CMD);
    EXPECT_EQ(stRead.stRecord.ucFlags, TAP_REPLAYED);
    EXPECT_EQ(stRead.stRecord.ulPort, 0xFFFFFFFF);
    EXPECT_EQ(stRead.stRecord.ulClient, 0xFFFFFFFE);
    EXPECT_EQ(stRead.stRecord.ullNumber, 0u);
    EXPECT_EQ(stRead.stRecord.ullTime, RingWord(2));
    EXPECT_EQ(Bytes(stRead.bytes), Hex("AA BB"));
    EXPECT_EQ(stRead.ullLost, 0u);
    EXPECT_EQ(reader.Next(stRead), RESULT::NOTHING);
}

TEST_F(TapRing, TwoPartsOfAnyLengthComeAsOne)
{
    CTapReader reader = Reader();
    Bytes all(40);
    std::iota(all.begin(), all.end(), static_cast<unsigned char>(1));
    for (size_t szFirst = 0; szFirst <= 20; ++szFirst)
        for (size_t szSecond = 0; szSecond <= 20; ++szSecond) {
            const ByteView both = ByteView(all).first(szFirst + szSecond);
            m_writer.Write({}, both.first(szFirst), both.subspan(szFirst));
            ASSERT_EQ(NextBytes(reader), Bytes(both)) << szFirst << " and " << szSecond;
        }
}

TEST_F(TapRing, WhatCameTogetherHasOneTimeAndNumbersInARow)
{
    m_writer.Write({}, {});
    m_writer.WriteRun(Record(7), std::vector{Hex("AA BB"), Hex("CC")},
                      [](const Bytes& bytes) { return ByteView(bytes); });
    CTapReader reader = Reader();
    EXPECT_EQ(NextBytes(reader), Bytes());
    TAP_READ stFirst;
    ASSERT_EQ(reader.Next(stFirst), RESULT::RECORD);
    EXPECT_EQ(Bytes(stFirst.bytes), Hex("AA BB"));
    EXPECT_EQ(stFirst.stRecord.ullNumber, 1u);
    EXPECT_EQ(stFirst.stRecord.ulPort, 7u);
    TAP_READ stSecond;
    ASSERT_EQ(reader.Next(stSecond), RESULT::RECORD);
    EXPECT_EQ(Bytes(stSecond.bytes), Hex("CC"));
    EXPECT_EQ(stSecond.stRecord.ullNumber, 2u);
    EXPECT_EQ(stSecond.stRecord.ulPort, 7u);
    EXPECT_EQ(stSecond.stRecord.ullTime, stFirst.stRecord.ullTime);
}

TEST_F(TapRing, ARunThatIsLongerThanTheRingLeavesItsNewestRecords)
{
    CTapReader reader = Reader();
    std::vector<Bytes> run;
    for (unsigned char i = 0; i < 100; ++i) // 6 words each
        run.push_back(Fill(16, i));
    m_writer.WriteRun({}, run, [](const Bytes& bytes) { return ByteView(bytes); });
    EXPECT_EQ(HeadWord(TAP_END), 600u);
    TAP_READ stRead;
    ASSERT_EQ(reader.Next(stRead), RESULT::RECORD);
    EXPECT_GE(stRead.stRecord.ullNumber, 100 - SMALL / 6);
    EXPECT_LE(stRead.stRecord.ullNumber, 100 - SMALL / 4 / 6);
    EXPECT_EQ(stRead.ullLost, stRead.stRecord.ullNumber);
    for (size_t i = stRead.stRecord.ullNumber + 1; i < 100; ++i)
        EXPECT_EQ(NextBytes(reader), run[i]);
    EXPECT_EQ(reader.Next(stRead), RESULT::NOTHING);
}

TEST_F(TapRing, AReaderThatKeepsUpLosesNothingWhereverTheRingEnds)
{
    CTapReader reader = Reader();
    for (size_t i = 0; i < 1000; ++i) {
        const Bytes bytes = Fill(i % 100, static_cast<unsigned char>(i));
        m_writer.Write({}, bytes);
        ASSERT_EQ(NextBytes(reader), bytes) << i;
    }
    EXPECT_EQ(reader.LostRecords(), 0u);
    EXPECT_EQ(reader.Behind(), 0);
}

TEST_F(TapRing, AReaderThatIsOverrunKnowsItsLossAndGoesOnAtTheRestart)
{
    // 8 words each: 16 fill the ring, the 17th takes the place of the first, and 2 words more are given up.
    CTapReader reader = Reader();
    for (uint32_t i = 0; i < 16; ++i)
        m_writer.Write(Record(i), Fill(32));
    EXPECT_EQ(HeadWord(TAP_BEGIN), 0u);
    EXPECT_EQ(reader.Behind(), 1);
    // Noted are the ends of every fourth: 32, 64 and 96 words, so that a restart has a quarter behind it.
    EXPECT_EQ(HeadWord(TAP_RESTART), 64u);
    m_writer.Write(Record(16), Fill(32));
    EXPECT_EQ(HeadWord(TAP_BEGIN), 10u);
    TAP_READ stRead;
    ASSERT_EQ(reader.Next(stRead), RESULT::RECORD);
    EXPECT_EQ(stRead.stRecord.ulPort, HeadWord(TAP_RESTART) / 8);
    EXPECT_EQ(stRead.stRecord.ullNumber, HeadWord(TAP_RESTART) / 8);
    EXPECT_EQ(stRead.ullLost, HeadWord(TAP_RESTART) / 8);
    ASSERT_EQ(reader.Next(stRead), RESULT::RECORD);
    EXPECT_EQ(stRead.ullLost, 0u);
    EXPECT_EQ(reader.LostRecords(), HeadWord(TAP_RESTART) / 8);
}

TEST_F(TapRing, AReaderThatBeginsLaterKnowsWhatItMissedSince)
{
    for (uint32_t i = 0; i < 3; ++i)
        m_writer.Write(Record(i), Fill(32));
    const CTapWriter::PLACE stPlace = m_writer.Write(Record(3), Fill(32));
    EXPECT_EQ(stPlace.ullPosition, 24u);
    EXPECT_EQ(stPlace.ullNumber, 3u);
    CTapReader reader(Words(), stPlace.ullPosition, stPlace.ullNumber);
    for (uint32_t i = 4; i < 43; ++i)
        m_writer.Write(Record(i), Fill(32));
    TAP_READ stRead;
    ASSERT_EQ(reader.Next(stRead), RESULT::RECORD);
    EXPECT_EQ(stRead.ullLost, stRead.stRecord.ulPort - 3u);
}

TEST_F(TapRing, ARestartIsAlwaysARecordThatIsThere)
{
    std::mt19937 random(20261122);
    std::vector<uint64_t> vecStart;
    for (int i = 0; i < 5000; ++i) {
        vecStart.push_back(HeadWord(TAP_END));
        m_writer.Write({}, Fill(random() % 200));
        const uint64_t ullRestart = HeadWord(TAP_RESTART);
        ASSERT_TRUE(std::ranges::binary_search(vecStart, ullRestart)) << i;
        ASSERT_GE(ullRestart, HeadWord(TAP_BEGIN)) << i;
        ASSERT_LE(HeadWord(TAP_END) - HeadWord(TAP_BEGIN), SMALL) << i;
        ASSERT_LE(HeadWord(TAP_END) - ullRestart, SMALL * 3 / 4 + 2 * TAP_RECORD_WORDS) << i;
        if (HeadWord(TAP_END) > SMALL) {
            ASSERT_GE(HeadWord(TAP_END) - ullRestart, SMALL / 4) << i;
        }
    }
}

TEST_F(TapRing, WhatIsTooLongIsCutAndSaysSo)
{
    CTapReader reader = Reader();
    m_writer.Write({}, Fill(100, 1), Fill(28, 2));
    m_writer.Write({}, Fill(100, 1), Fill(29, 2));
    m_writer.Write({}, Fill(200, 3), Fill(1, 2));
    TAP_READ stRead;
    ASSERT_EQ(reader.Next(stRead), RESULT::RECORD);
    EXPECT_EQ(stRead.stRecord.ucFlags, 0);
    for (const Bytes& expected : {Join(Fill(100, 1), Fill(28, 2)), Fill(128, 3)}) {
        ASSERT_EQ(reader.Next(stRead), RESULT::RECORD);
        EXPECT_EQ(stRead.stRecord.ucFlags, TAP_CUT);
        EXPECT_EQ(Bytes(stRead.bytes), expected);
    }
}

TEST_F(TapRing, MarksThatNoAgentSetsEndTheReading)
{
    const auto Read = [&](uint64_t ullEnd, uint64_t ullBegin, uint64_t ullRestart, uint64_t ullFirst) {
        m_vecWords[TAP_END] = ullEnd;
        m_vecWords[TAP_BEGIN] = ullBegin;
        m_vecWords[TAP_RESTART] = ullRestart;
        m_vecWords[TAP_HEAD_WORDS + 10] = ullFirst;
        CTapReader reader(Words(), 10, 5);
        TAP_READ stRead;
        return reader.Next(stRead);
    };
    m_vecWords[TAP_HEAD_WORDS + 11] = 5; // its number
    EXPECT_EQ(Read(14, 0, 0, 0), RESULT::RECORD);
    EXPECT_EQ(Read(9, 0, 0, 0), RESULT::BROKEN) << "the end goes back";
    EXPECT_EQ(Read(10 + SMALL + 1, 0, 0, 0), RESULT::BROKEN) << "more than the ring holds";
    EXPECT_EQ(Read(14, 0, 0, 1), RESULT::BROKEN) << "longer than what is there";
    EXPECT_EQ(Read(UINT64_MAX, 0, 0, UINT32_MAX), RESULT::BROKEN);
    EXPECT_EQ(Read(14, 11, 10, 0), RESULT::BROKEN) << "overrun, but no place to go on";
    m_vecWords[TAP_HEAD_WORDS + 11] = 4;
    EXPECT_EQ(Read(14, 0, 0, 0), RESULT::BROKEN) << "the number goes back";
}

namespace
{
class TapThreads : public TapRing
{
protected:
    static constexpr size_t RING = 16384; // words, so that readers are overrun now and then
    static constexpr uint32_t WRITERS = 2;
    static constexpr uint32_t EACH = 30'000; // records of a writer

    TapThreads() : TapRing(RING) {}

    /// Its port and the first bytes say who wrote it, the length and all other bytes follow from that.
    static Bytes Contents(uint32_t ulWriter, uint32_t ulCount)
    {
        return Join(Le(ulWriter), Le(ulCount), Fill(ulCount % 300, static_cast<unsigned char>(ulCount)));
    }
    void Write(uint32_t ulWriter)
    {
        for (uint32_t i = 0; i < EACH; ++i) {
            const Bytes bytes = Contents(ulWriter, i);
            m_writer.Write(Record(ulWriter), ByteView(bytes).first(4), ByteView(bytes).subspan(4));
            if (i % 64 == 0)
                std::this_thread::yield();
        }
    }
    /// Every record is whole, and with those that were lost none is missing. ulPause makes a reader slow.
    void Read(uint32_t ulPause)
    {
        CTapReader reader = Reader();
        uint64_t ullSeen = 0;
        std::array<uint32_t, WRITERS> aulNext{};
        TAP_READ stRead;
        while (ullSeen + reader.LostRecords() < WRITERS * EACH) {
            const RESULT enResult = reader.Next(stRead);
            ASSERT_NE(enResult, RESULT::BROKEN);
            if (enResult == RESULT::NOTHING) {
                std::this_thread::yield();
                continue;
            }
            const uint32_t ulWriter = stRead.stRecord.ulPort;
            const auto ulCount = LoadLe<uint32_t>(stRead.bytes, 4);
            ASSERT_LT(ulWriter, WRITERS);
            ASSERT_GE(ulCount, aulNext[ulWriter]) << "in the order of each writer";
            aulNext[ulWriter] = ulCount + 1;
            ASSERT_EQ(Bytes(stRead.bytes), Contents(ulWriter, ulCount));
            ASSERT_EQ(stRead.stRecord.ullNumber, ullSeen + reader.LostRecords());
            ++ullSeen;
            if (ulPause > 0 && ullSeen % 100 == 0)
                std::this_thread::sleep_for(std::chrono::microseconds(ulPause));
        }
        EXPECT_EQ(ullSeen + reader.LostRecords(), WRITERS * EACH);
        if (ulPause > 1000) {
            EXPECT_GT(reader.LostRecords(), 0u) << "too slow not to be overrun";
        }
    }
};
} // namespace

TEST_F(TapThreads, ReadersSeeWholeRecordsAndKnowWhatTheyLost)
{
    std::vector<std::thread> threads;
    for (const uint32_t ulPause : {0u, 50u, 5000u})
        threads.emplace_back([this, ulPause] { Read(ulPause); });
    for (uint32_t i = 0; i < WRITERS; ++i)
        threads.emplace_back([this, i] { Write(i); });
    for (std::thread& thread : threads)
        thread.join();
}

TEST(TapReader, WhateverTheMemoryHoldsNothingElseIsRead)
{
    std::mt19937_64 random(20261122);
    for (int i = 0; i < 20'000; ++i) {
        std::vector<TAP_WORD> vecWords(TAP_HEAD_WORDS + 1 + random() % 40);
        // Small numbers are nearer to what is valid.
        for (TAP_WORD& word : vecWords)
            word = random() % 3 == 0 ? random() : random() % 30;
        CTapReader reader(vecWords, random() % 20, random() % 20);
        TAP_READ stRead;
        for (int n = 0; n < 20 && reader.Next(stRead) == RESULT::RECORD; ++n)
            ASSERT_LE(stRead.bytes.size(), vecWords.size() * TAP_WORD_SIZE);
    }
}
