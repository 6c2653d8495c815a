#include "ue/RecordConnections.h"

#include "support/LogCapture.h"
#include "support/Sockets.h"

#include <gtest/gtest.h>
#include <sys/socket.h>
#include <unistd.h>

namespace
{
using std::chrono::milliseconds;
using std::chrono::seconds;

constexpr CRecordConnections::TIME START{seconds(1000)};

class RecordConnections : public testing::Test
{
protected:
    /// A new connection; gives the peer's end.
    CUniqueFd Connect(CRecordConnections::TIME now = START)
    {
        int anPair[2] = {-1, -1};
        EXPECT_EQ(socketpair(AF_UNIX, SOCK_STREAM | SOCK_NONBLOCK, 0, anPair), 0);
        m_connections.Add(CUniqueFd(anPair[1]), now);
        return CUniqueFd(anPair[0]);
    }
    bool Serve(CRecordConnections::TIME now = START)
    {
        return m_connections.Serve(now, [this](ByteView record) { m_records.emplace_back(Bytes(record)); });
    }
    /// First bytes of the records so far, which must be whole and all alike.
    Bytes Records() const
    {
        Bytes firsts;
        for (const Bytes& record : m_records) {
            EXPECT_EQ(record, Fill(520, record.front()));
            firsts.push_back(record.front());
        }
        return firsts;
    }

    CRecordConnections m_connections;
    std::vector<Bytes> m_records;
};
} // namespace

TEST_F(RecordConnections, ActInTheOrderInWhichTheyAreWhole)
{
    const CUniqueFd slow = Connect();
    const CUniqueFd quick = Connect();
    const CUniqueFd silent = Connect();
    ASSERT_TRUE(SendAll(slow, Fill(519, 1)));
    ASSERT_TRUE(SendAll(quick, Fill(520, 2)));
    EXPECT_TRUE(Serve());
    EXPECT_EQ(Records(), (Bytes{2}));
    EXPECT_FALSE(Serve());
    ASSERT_TRUE(SendAll(slow, Fill(1, 1)));
    EXPECT_TRUE(Serve());
    EXPECT_EQ(Records(), (Bytes{2, 1}));
}

TEST_F(RecordConnections, WholeAtOnceTheyActInTheOrderInWhichTheyCame)
{
    const CUniqueFd first = Connect();
    const CUniqueFd second = Connect();
    ASSERT_TRUE(SendAll(second, Fill(520, 2)));
    ASSERT_TRUE(SendAll(first, Fill(520, 1)));
    EXPECT_TRUE(Serve());
    EXPECT_EQ(Records(), (Bytes{1, 2}));
}

TEST_F(RecordConnections, AreClosedBehindTheirRecordAndReadNoFurther)
{
    const CUniqueFd peer = Connect();
    ASSERT_TRUE(SendAll(peer, Fill(1040, 1)));
    EXPECT_TRUE(Serve());
    EXPECT_EQ(Records(), (Bytes{1}));
    EXPECT_TRUE(SawClose(peer));
    EXPECT_FALSE(Serve());
}

TEST_F(RecordConnections, HaveTenSecondsForTheWholeRecord)
{
    const CLogCapture log;
    const CUniqueFd early = Connect();
    const CUniqueFd late = Connect(START + seconds(3));
    EXPECT_EQ(m_connections.NextTime(), START + seconds(10));
    ASSERT_TRUE(SendAll(early, Fill(519, 1)));
    EXPECT_FALSE(Serve(START + seconds(9)));
    EXPECT_FALSE(Serve(START + milliseconds(9999))) << "a byte starts no time anew";
    EXPECT_TRUE(Serve(START + seconds(10)));
    EXPECT_TRUE(SawClose(early));
    EXPECT_EQ(log.Count("[ERR] : Device Monitor Thread Read Data Error 11"), 1);
    EXPECT_EQ(m_connections.NextTime(), START + seconds(13));
    ASSERT_TRUE(SendAll(late, Fill(520, 2)));
    EXPECT_TRUE(Serve(START + seconds(20))) << "what has come counts, however late it is looked at";
    EXPECT_EQ(Records(), (Bytes{2}));
    EXPECT_EQ(m_connections.NextTime(), CRecordConnections::TIME::max());
}

TEST_F(RecordConnections, ThatCloseEarlyAreAnError)
{
    const CLogCapture log;
    CUniqueFd peer = Connect();
    ASSERT_TRUE(SendAll(peer, Fill(519, 1)));
    peer.Reset();
    EXPECT_TRUE(Serve());
    EXPECT_EQ(log.Count("[ERR] : Device Monitor Thread Read Data Error 0"), 1);
    EXPECT_EQ(Records(), Bytes{});
}

TEST_F(RecordConnections, AreEightyAtMost)
{
    std::vector<CUniqueFd> peers;
    for (int i = 0; i < 80; ++i) {
        EXPECT_FALSE(m_connections.IsFull());
        peers.push_back(Connect());
    }
    EXPECT_TRUE(m_connections.IsFull());
    std::vector<pollfd> fds;
    m_connections.AppendTo(fds);
    EXPECT_EQ(fds.size(), 80u);
    EXPECT_TRUE(SawClose(Connect())) << "no room";
    peers[40].Reset();
    EXPECT_TRUE(Serve());
    EXPECT_FALSE(m_connections.IsFull());
}
