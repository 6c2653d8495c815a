#include "agent/AgentTap.h"

#include "agent/Client.h"
#include "support/AgentFixture.h"
#include "tap/Tap.h"
#include "tap/TapReader.h"

#include <gtest/gtest.h>

// What the agent writes for each thing that happens, into a ring of the test's own.

namespace
{
constexpr size_t RING_WORDS = TAP_LEAST_BYTES / TAP_WORD_SIZE;

class AgentTapTest : public testing::Test
{
protected:
    AgentTapTest()
    {
        m_writer.SetObserved(true);
        SetTap(&m_writer);
    }
    ~AgentTapTest() override { SetTap(nullptr); }

    struct RECORD
    {
        TAP_RECORD stHead;
        Bytes bytes;
    };
    /// All records of a kind since the last call for any kind.
    std::vector<RECORD> Records(TAP_KIND enKind)
    {
        std::vector<RECORD> records;
        TAP_READ stRead;
        while (m_reader.Next(stRead) == CTapReader::RESULT::RECORD)
            if (stRead.stRecord.enKind == enKind)
                records.push_back({stRead.stRecord, Bytes(stRead.bytes)});
        return records;
    }

    std::vector<TAP_WORD> m_vecWords = std::vector<TAP_WORD>(TAP_HEAD_WORDS + RING_WORDS);
    CTapWriter m_writer{m_vecWords};
    CTapReader m_reader{m_vecWords, 0, 0};
    CAgentFixture m_fix;
};

Bytes Text(const std::string& strText, size_t szSize)
{
    Bytes field = Fill(szSize);
    std::ranges::copy(strText, field.begin());
    return field;
}
} // namespace

TEST_F(AgentTapTest, AChannelIsShownWithEachOfItsStates)
{
    m_fix.Attach(3, CHANNEL_AT, 304, "/dev/ttyUSB7", "modem");
    m_fix.Confirm(3);
    CTestClient client = m_fix.AddClient(CHANNEL_AT);
    ASSERT_TRUE(m_fix.Bind(client, 304));
    const uint32_t ulNumber = client.Get()->Number();
    m_fix.Detach(3, CHANNEL_AT);

    const auto Row = [](unsigned char ucAttached, unsigned char ucConfirmed, const std::string& strName,
                        const std::string& strGroup) {
        const Bytes flags = {ucAttached, ucConfirmed};
        return Join(Le(uint32_t{1}), Join(flags, Hex("00 00")), Join(Text(strName, 128), Text(strGroup, 128)));
    };
    std::vector<RECORD> rows;
    for (RECORD& stRecord : Records(TAP_KIND::PORT_EVENT))
        if (stRecord.stHead.ucChannel == CHANNEL_AT && LoadLe<uint32_t>(stRecord.bytes, 0) == 1)
            rows.push_back(std::move(stRecord));
    // The client is bound by itself, freed and bound again by its request.
    ASSERT_GE(rows.size(), 5u);
    EXPECT_EQ(rows[0].bytes, Row(1, 0, "/dev/ttyUSB7", "modem"));
    EXPECT_EQ(rows[0].stHead.ucUe, 3);
    EXPECT_EQ(rows[0].stHead.ulPort, 304u);
    EXPECT_EQ(rows[0].stHead.ulClient, 0u);
    EXPECT_EQ(rows[1].bytes, Row(1, 1, "/dev/ttyUSB7", "modem"));
    EXPECT_EQ(rows[2].stHead.ulClient, ulNumber);
    EXPECT_EQ(rows[rows.size() - 2].stHead.ulClient, 0u);
    EXPECT_EQ(rows.back().bytes, Row(0, 0, "", ""));
    EXPECT_EQ(rows.back().stHead.ulPort, 0u);
}

TEST_F(AgentTapTest, ClientsAreShownWhenTheyComeAndGo)
{
    uint32_t ulNumber = 0;
    {
        CTestClient client = m_fix.AddClient(CHANNEL_GU_DATA);
        ulNumber = client.Get()->Number();
        auto events = Records(TAP_KIND::PORT_EVENT);
        ASSERT_EQ(events.size(), 1u);
        EXPECT_EQ(events[0].bytes, Join(Le(uint32_t{3}), Hex("01 000000"), Text("192.0.2.1", 16)));
        EXPECT_EQ(events[0].stHead.ucChannel, CHANNEL_GU_DATA);
        EXPECT_EQ(events[0].stHead.ucUe, TAP_NO_UE);
        EXPECT_EQ(events[0].stHead.ulClient, ulNumber);
        const xtl::MutexGuard guard(m_fix.Agent().Bindings().Mutex());
        m_fix.Agent().Clients().RemoveLostClient(client.Get());
    }
    const auto events = Records(TAP_KIND::PORT_EVENT);
    ASSERT_EQ(events.size(), 1u);
    EXPECT_EQ(events[0].bytes, Join(Le(uint32_t{3}), Hex("00 000000"), Text("192.0.2.1", 16)));
    EXPECT_EQ(events[0].stHead.ulClient, ulNumber);
}

TEST_F(AgentTapTest, PacketsAreShownAsTheyAreInsideTheFraming)
{
    m_fix.AttachUe(0, 101);
    m_fix.Confirm(0);
    CTestClient client = m_fix.AddClient(CHANNEL_LTE_DIAG);
    (void)client.Pending();
    const uint32_t ulNumber = client.Get()->Number();
    (void)Records(TAP_KIND::STATUS);

    client.Send(Hex("9F 9F 60 00 00 50 F0 00 00 00")); // the channel table
    const Bytes answer = client.Pending();
    const Bytes ack = LteAck(0x12345678, Hex("AA BB CC"));
    m_fix.FromUe(0, CHANNEL_LTE_DIAG, ack);
    const Bytes forwarded = client.Pending();

    std::vector<RECORD> all;
    TAP_READ stRead;
    while (m_reader.Next(stRead) == CTapReader::RESULT::RECORD)
        all.push_back({stRead.stRecord, Bytes(stRead.bytes)});
    ASSERT_EQ(all.size(), 4u);
    EXPECT_EQ(all[0].stHead.enKind, TAP_KIND::CLIENT_TO_AGENT);
    EXPECT_EQ(all[0].bytes, Hex("60 00 00 50 F0 00 00 00"));
    EXPECT_EQ(all[0].stHead.ucFlags, 0);
    EXPECT_EQ(all[0].stHead.ulClient, ulNumber);
    EXPECT_EQ(all[0].stHead.ucUe, 0);
    EXPECT_EQ(all[0].stHead.ulPort, 101u);
    EXPECT_EQ(all[1].stHead.enKind, TAP_KIND::AGENT_TO_CLIENT);
    EXPECT_EQ(Join(Hex("9F 9F"), all[1].bytes), answer);
    EXPECT_EQ(all[2].stHead.enKind, TAP_KIND::UE_TO_AGENT);
    EXPECT_EQ(all[2].bytes, ack);
    EXPECT_EQ(all[2].stHead.ulPort, 101u);
    EXPECT_EQ(all[3].stHead.enKind, TAP_KIND::AGENT_TO_CLIENT);
    EXPECT_EQ(Join(Hex("9F 9F"), all[3].bytes), forwarded);
}

TEST_F(AgentTapTest, APacketOfAPortWithTwoChannelsIsShownOnce)
{
    m_fix.AttachUe(0, 101);
    (void)Records(TAP_KIND::STATUS);
    const Bytes packet = Fill(30, 7);
    m_fix.FromUe(0, CHANNEL_GU_CMD, packet);
    m_fix.FromUe(0, CHANNEL_GU_DATA, packet);
    const auto records = Records(TAP_KIND::UE_TO_AGENT);
    ASSERT_EQ(records.size(), 1u);
    EXPECT_EQ(records[0].stHead.ucChannel, CHANNEL_GU_CMD);
    EXPECT_EQ(records[0].bytes, packet);
}

TEST_F(AgentTapTest, BareTextIsMarkedAsSuch)
{
    m_fix.AttachUe(0, 101);
    m_fix.Confirm(0);
    CTestClient client = m_fix.AddClient(CHANNEL_AT);
    client.Send(AsBytes("AT+CSQ\r"));
    const auto records = Records(TAP_KIND::CLIENT_TO_AGENT);
    ASSERT_EQ(records.size(), 1u);
    EXPECT_EQ(records[0].bytes, Bytes(AsBytes("AT+CSQ\r")));
    EXPECT_EQ(records[0].stHead.ucFlags, TAP_TEXT);
}

TEST_F(AgentTapTest, WithoutAnObserverNothingIsWritten)
{
    m_writer.SetObserved(false);
    m_fix.AttachUe(0, 101);
    m_fix.Confirm(0);
    CTestClient client = m_fix.AddClient(CHANNEL_AT);
    client.Send(AsBytes("AT+CSQ\r"));
    m_fix.FromUe(0, CHANNEL_LTE_DIAG, LteAck(0x12345678, Hex("AA")));
    EXPECT_EQ(m_vecWords[TAP_END], 0u);
    SetTap(nullptr);
    m_fix.FromUe(0, CHANNEL_LTE_DIAG, LteAck(0x12345678, Hex("AA")));
    EXPECT_EQ(m_vecWords[TAP_END], 0u);
}
