#include "ue/LineWriter.h"

#include "support/LogCapture.h"
#include "support/TestBytes.h"
#include "ue/ChildChannel.h"
#include "ue/Line.h"

#include <gtest/gtest.h>

namespace
{
using namespace std::chrono_literals;

/// A line that takes as many bytes as the test says. It carries text, so packets go out as they are.
class CTestLine : public ILine
{
public:
    CTestLine() { m_channel.SetRows(ChannelsOf(SERIAL_TYPE_AT)); }

    UE_INDEX GetUEIdx() const override { return 3; }
    CChildChannel& Channel() override { return m_channel; }
    void LogFault(LINE_FAULT) const override {}
    int ReadHandle() const override { return -1; }
    bool ReadBytes(int) override { return true; }
    LINE_STATE PrepareWrite() override { return enState; }
    uint64_t Opening() const override { return ullOpening; }
    ssize_t WriteBytes(ByteView data) override
    {
        ++nCalls;
        if (bFault)
            return -1;
        const size_t szTaken = std::min(data.size(), szTakes);
        szTakes -= szTaken;
        written.insert(written.end(), data.begin(), data.begin() + static_cast<ptrdiff_t>(szTaken));
        return static_cast<ssize_t>(szTaken);
    }
    int WriteHandle() const override { return 77; }
    std::chrono::seconds WriteLimit(size_t szRemaining) const override
    {
        return std::chrono::seconds(szRemaining >= 100 ? 9 : 2);
    }
    void OnNoHeadway(bool bTimeout) override { ++(bTimeout ? nTimeouts : nErrors); }

    LINE_STATE enState = LINE_STATE::OPEN;
    uint64_t ullOpening = 1;
    size_t szTakes = SIZE_MAX;
    bool bFault = false;
    Bytes written;
    int nCalls = 0;
    int nTimeouts = 0;
    int nErrors = 0;

private:
    CChildChannel m_channel{*this};
};

class LineWriterTest : public testing::Test
{
protected:
    void Put(ByteView packet, std::chrono::milliseconds pause = 0ms)
    {
        MSG_UE stMsg;
        stMsg.packet = CPacket::Copy(packet);
        stMsg.pause = pause;
        stMsg.charge = CLineCharge(load, packet.size(), pause.count() > 0);
        writer.Put(std::move(stMsg));
    }
    void Pump() { writer.Pump(pLine, now); }
    /// Packets that aren't dealt with yet.
    bool IsCharged() const { return load.Cost() != 0; }

    std::shared_ptr<CTestLine> pLine = std::make_shared<CTestLine>();
    CTestLine& line = *pLine;
    CLineLoad load;
    CLineWriter writer;
    CLineWriter::TIME now = CLineWriter::TIME() + 1000h;
};
} // namespace

TEST_F(LineWriterTest, ANewWriterIsIdle)
{
    EXPECT_TRUE(writer.IsIdle());
    EXPECT_EQ(writer.WaitHandle(), -1);
    EXPECT_EQ(writer.Due(), CLineWriter::TIME::max());
    Pump();
    EXPECT_EQ(line.nCalls, 0);
}

TEST_F(LineWriterTest, PacketsGoOutInOrder)
{
    Put(AsBytes("one "));
    Put(AsBytes("two"));
    EXPECT_FALSE(writer.IsIdle());
    Pump();
    EXPECT_EQ(line.written, Bytes(AsBytes("one two")));
    EXPECT_TRUE(writer.IsIdle());
}

namespace
{
/// Puts down what it sees.
class CWatcher : public IToUeObserver
{
public:
    CWatcher() { CMsgBuf::Instance()->SetToUeObserver(this); }
    ~CWatcher() override { CMsgBuf::Instance()->SetToUeObserver(nullptr); }

    void OnPacketToUe(UE_INDEX ulUeIdx, enChannelType enChannel, ByteView packet) override
    {
        strSeen += std::to_string(ulUeIdx) + "/" + std::to_string(enChannel) + ":" +
                   std::string(packet.begin(), packet.end()) + " ";
    }

    std::string strSeen;
};
} // namespace

TEST_F(LineWriterTest, AnObserverSeesEachPacketOnceWhenItBeginsToBeWritten)
{
    CWatcher watcher;
    line.szTakes = 2;
    Put(AsBytes("one"));
    Put(AsBytes("two"));
    EXPECT_EQ(watcher.strSeen, "");
    Pump();
    EXPECT_EQ(watcher.strSeen, "0/0:one ");
    line.szTakes = SIZE_MAX;
    Pump();
    EXPECT_EQ(watcher.strSeen, "0/0:one 0/0:two ");
    line.enState = LINE_STATE::CLOSED;
    Put(AsBytes("lost"));
    Pump();
    EXPECT_EQ(watcher.strSeen, "0/0:one 0/0:two ");
}

TEST_F(LineWriterTest, AnObserverSeesPacketsWithoutTheirFraming)
{
    CWatcher watcher;
    line.Channel().SetRows(ChannelsOf(SERIAL_TYPE_DIAG));
    Put(AsBytes("~}"));
    Pump();
    EXPECT_EQ(watcher.strSeen, "0/0:~} ");
    EXPECT_EQ(Bytes(ByteView(line.written).first(5)), Hex("7E 7D 5E 7D 5D")) << "flag, both bytes stuffed";
}

TEST_F(LineWriterTest, ThePauseBehindAPacketHoldsTheNextAndItsCharge)
{
    Put(AsBytes("A"), 100ms);
    Put(AsBytes("B"), 100ms);
    Put(AsBytes("C"));
    Pump();
    EXPECT_EQ(line.written, Bytes(AsBytes("A")));
    EXPECT_EQ(writer.Due(), now + 100ms);
    EXPECT_EQ(writer.WaitHandle(), -1) << "whether the line takes more doesn't matter now";
    EXPECT_EQ(load.PacedPosted(), 2u);
    EXPECT_EQ(load.PacedDone(), 0u);
    now += 99ms;
    Pump();
    EXPECT_EQ(line.written, Bytes(AsBytes("A")));
    now += 1ms;
    Pump();
    EXPECT_EQ(line.written, Bytes(AsBytes("AB")));
    EXPECT_EQ(load.PacedDone(), 1u);
    now += 100ms;
    Pump();
    EXPECT_EQ(line.written, Bytes(AsBytes("ABC")));
    EXPECT_EQ(load.PacedDone(), 2u);
    EXPECT_TRUE(writer.IsIdle());
}

TEST_F(LineWriterTest, ThePauseBehindTheLastPacketIsWaitedForToo)
{
    Put(AsBytes("A"), 100ms);
    Pump();
    EXPECT_FALSE(writer.IsIdle());
    now += 100ms;
    Pump();
    EXPECT_TRUE(writer.IsIdle());
    EXPECT_EQ(load.PacedDone(), 1u);
}

TEST_F(LineWriterTest, WhatTheLineDoesntTakeWaitsAndEachPieceStartsTheTimeAnew)
{
    const Bytes packet = Join(Fill(100, 'x'), Fill(50, 'y'));
    line.szTakes = 60;
    Put(packet);
    Pump();
    EXPECT_EQ(line.written.size(), 60u);
    EXPECT_EQ(writer.WaitHandle(), 77);
    EXPECT_EQ(writer.Due(), now + 2s) << "90 bytes are left";
    now += 1900ms;
    line.szTakes = 20;
    Pump();
    EXPECT_EQ(line.written.size(), 80u);
    EXPECT_EQ(writer.Due(), now + 2s);
    line.szTakes = SIZE_MAX;
    Pump();
    EXPECT_EQ(line.written, packet);
    EXPECT_TRUE(writer.IsIdle());
    EXPECT_EQ(line.nTimeouts, 0);
}

TEST_F(LineWriterTest, ALineThatTakesNothingLosesWhatWaitsAndIsNotWaitedForAgain)
{
    const CLogCapture log;
    line.szTakes = 1;
    Put(AsBytes("first"));
    Put(AsBytes("second"));
    Pump();
    now += 1999ms;
    Pump();
    EXPECT_EQ(line.nTimeouts, 0);
    now += 1ms;
    Pump();
    EXPECT_EQ(line.nTimeouts, 1);
    EXPECT_TRUE(writer.IsIdle());
    EXPECT_FALSE(IsCharged());

    Put(AsBytes("third"));
    Put(AsBytes("fourth"));
    line.nCalls = 0;
    Pump();
    EXPECT_EQ(line.nCalls, 2) << "each is tried once";
    EXPECT_TRUE(writer.IsIdle());
    EXPECT_EQ(line.nTimeouts, 1);
    EXPECT_EQ(line.written, Bytes(AsBytes("f")));

    line.szTakes = 3;
    Put(AsBytes("fifth"));
    Pump();
    EXPECT_EQ(log.Count("[WAN] : UE 3 takes data again, 4 packets were lost"), 1);
    EXPECT_FALSE(writer.IsIdle()) << "it is waited for again";
    EXPECT_EQ(writer.Due(), now + 2s);
    line.szTakes = SIZE_MAX;
    Pump();
    EXPECT_EQ(line.written, Bytes(AsBytes("ffifth")));
}

TEST_F(LineWriterTest, AFaultLosesThePacketAtHand)
{
    line.bFault = true;
    Put(AsBytes("A"));
    Pump();
    EXPECT_TRUE(writer.IsIdle());
    line.bFault = false;
    Put(AsBytes("B"), 100ms);
    Pump();
    EXPECT_EQ(line.written, Bytes(AsBytes("B")));
}

TEST_F(LineWriterTest, AFailedWaitLosesThePacketAtHand)
{
    line.szTakes = 0;
    Put(AsBytes("A"));
    Put(AsBytes("B"));
    Pump();
    writer.OnWaitFault();
    EXPECT_EQ(line.nErrors, 1);
    line.szTakes = SIZE_MAX;
    Pump();
    EXPECT_EQ(line.written, Bytes(AsBytes("B")));
    writer.OnWaitFault();
    EXPECT_EQ(line.nErrors, 1) << "nothing was waited for";
}

TEST_F(LineWriterTest, TheRestOfAPacketDoesntGoToAnotherOpening)
{
    line.szTakes = 2;
    Put(AsBytes("abcd"));
    Put(AsBytes("next"));
    Pump();
    line.ullOpening = 2;
    line.szTakes = SIZE_MAX;
    Pump();
    EXPECT_EQ(line.written, Bytes(AsBytes("abnext")));

    line.szTakes = 1;
    Put(AsBytes("efgh"));
    Pump();
    const auto pOther = std::make_shared<CTestLine>();
    pOther->ullOpening = 2;
    writer.Pump(pOther, now);
    EXPECT_TRUE(pOther->written.empty());
    EXPECT_TRUE(writer.IsIdle());
}

TEST_F(LineWriterTest, WithoutALineEverythingIsLost)
{
    line.szTakes = 1;
    Put(AsBytes("AA"));
    Put(AsBytes("B"));
    Pump();
    writer.Pump(nullptr, now);
    EXPECT_TRUE(writer.IsIdle());
    EXPECT_FALSE(IsCharged());

    line.szTakes = SIZE_MAX;
    Put(AsBytes("C"), 100ms);
    Pump();
    writer.Pump(nullptr, now);
    EXPECT_TRUE(writer.IsIdle()) << "its pause too";
    EXPECT_EQ(load.PacedDone(), 1u);
}

TEST_F(LineWriterTest, PacketsWaitForALineThatOpens)
{
    line.enState = LINE_STATE::OPENING;
    Put(AsBytes("A"));
    Pump();
    EXPECT_FALSE(writer.IsIdle());
    EXPECT_EQ(writer.WaitHandle(), -1);
    EXPECT_EQ(writer.Due(), CLineWriter::TIME::max()) << "the end of the opening wakes the thread";
    line.enState = LINE_STATE::OPEN;
    Pump();
    EXPECT_EQ(line.written, Bytes(AsBytes("A")));
}

TEST_F(LineWriterTest, AClosedLineLosesAllThatWaits)
{
    line.enState = LINE_STATE::CLOSED;
    Put(AsBytes("A"));
    Put(AsBytes("B"));
    Pump();
    EXPECT_TRUE(writer.IsIdle());
    line.enState = LINE_STATE::OPEN;
    Pump();
    EXPECT_TRUE(line.written.empty());
}
