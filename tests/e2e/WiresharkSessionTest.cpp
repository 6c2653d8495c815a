#include "capture/PcapngReader.h"
#include "data/DiagPacket.h"
#include "e2e/AgentBench.h"
#include "e2e/Tshark.h"
#include "support/WaitFor.h"

#include <csignal>
#include <gtest/gtest.h>
#include <set>

// A session of the real programs, recorded and dissected.

namespace
{
struct RECORDED
{
    TAP_RECORD stRecord;
    Bytes bytes;
};

/// Two simulated modems and a client for each kind of traffic, with all that passes the agent in a file.
class WiresharkSession : public testing::Test
{
protected:
    WiresharkSession() { m_bench.AddConfig("TIME_SPACE = 5\nReportInterval = 1\nTapSocket = " + Tap()); }

    std::string Tap() const { return m_bench.Dir().Path() + "/tap"; }
    std::string File() const { return m_bench.Dir().Path() + "/session.pcapng"; }

    void Record()
    {
        m_bench.StartAgent();
        ASSERT_TRUE(WaitFor([&] { return access(Tap().c_str(), F_OK) == 0; }));
        CVexProcess capture(std::string(VEX_BIN_DIR) + "/vex-capture", {"--tap", Tap(), "-w", File()},
                            m_bench.Dir().Path());
        ASSERT_TRUE(WaitFor([&] { return capture.Errors().find("capturing") != std::string::npos; }))
            << capture.Errors();
        m_bench.StartModem({"--ues", "2", "--lte-rate", "40", "--at-interval", "200", "--gu-interval", "100", "--fail",
                            "0x10014004=7"});
        ASSERT_TRUE(m_bench.WaitConfirmed(1) && m_bench.WaitConfirmed(101));
        ASSERT_TRUE(m_bench.Logged("single and double card model="));
        RunClients();
        capture.Signal(SIGTERM);
        ASSERT_EQ(capture.WaitExit(), 0) << capture.Errors();
    }
    std::vector<RECORDED> Recorded() const
    {
        std::string strError;
        CPcapngReader reader(OpenCaptureSource(File(), strError));
        std::vector<RECORDED> records;
        CAPTURED_RECORD stRecord;
        while (reader.Next(stRecord) == CPcapngReader::RESULT::RECORD)
            records.push_back({stRecord.stRecord, Bytes(stRecord.bytes)});
        return records;
    }

private:
    void RunClients()
    {
        const std::vector<std::string> commands[] = {
            {"--bind", "1", "version"},
            {"--bind", "1", "request", "0x10014003"},
            {"--bind", "1", "request", "0x10014004"},
            {"--bind", "101", "at", "AT+CGSN"},
            {"--bind", "1", "switch", "air", "0x430001", "1", "event", "0x430002", "1"},
            {"--bind", "1", "watch", "--count", "30", "--quiet"},
            {"--bind", "1", "gu", "radio", "cells", "w-cell", "--count", "8"},
            {"--bind", "1", "stat", "sir", "decoding", "--period", "100", "--count", "8"},
        };
        for (const std::vector<std::string>& command : commands) {
            CVexProcess& client = m_bench.StartClient(command);
            EXPECT_EQ(client.WaitExit(std::chrono::seconds(20)), 0) << command[2] << client.Errors();
        }
    }

    CAgentBench m_bench;
};

std::string Decimal(uint64_t ullValue)
{
    return std::to_string(ullValue);
}

/// The head of a client's packet as the agent's own reader has it.
void ExpectClientHead(const RECORDED& stRecorded, const DISSECTED& packet)
{
    const bool bRequest = stRecorded.stRecord.enKind == TAP_KIND::CLIENT_TO_AGENT;
    const DIAG_PACKET_REQ_STRU stReq = ViewReq(stRecorded.bytes).stHead;
    const DIAG_PACKET_ACK_STRU stAck = ViewAck(stRecorded.bytes).stHead;
    const uint32_t ulId = bRequest ? stReq.ulCmdId : stAck.ulCmdId;
    EXPECT_EQ(std::stoul(Values(packet, "vex.id"), nullptr, 16), ulId);
    EXPECT_EQ(Values(packet, "vex.length"), Decimal(bRequest ? stReq.usLen : stAck.usLen));
    EXPECT_EQ(Values(packet, "vex.mode"), Decimal((bRequest ? stReq.usPktType : stAck.usPktType) >> 8 & 0xF));
    if (bRequest)
        return;
    EXPECT_EQ(Values(packet, "vex.timestamp"), Decimal(stAck.ullTimeStamp));
}

void ExpectHead(const TAP_RECORD& stRecord, const DISSECTED& packet)
{
    EXPECT_EQ(Values(packet, "vex.ue"), Decimal(stRecord.ucUe));
    EXPECT_EQ(Values(packet, "vex.channel"), Decimal(stRecord.ucChannel));
    EXPECT_EQ(Values(packet, "vex.direction"), Decimal(static_cast<uint8_t>(stRecord.enKind)));
    EXPECT_EQ(Values(packet, "vex.port"), Decimal(stRecord.ulPort));
    EXPECT_EQ(Values(packet, "vex.client"), Decimal(stRecord.ulClient));
    EXPECT_EQ(Values(packet, "vex.number"), Decimal(stRecord.ullNumber));
}

bool IsClientFrame(const TAP_RECORD& stRecord)
{
    return (stRecord.ucFlags & TAP_TEXT) == 0 &&
           (stRecord.enKind == TAP_KIND::CLIENT_TO_AGENT || stRecord.enKind == TAP_KIND::AGENT_TO_CLIENT);
}
} // namespace

TEST_F(WiresharkSession, DissectsEveryPacketOfARecordedSession)
{
    ASSERT_NO_FATAL_FAILURE(Record());
    const std::vector<RECORDED> recorded = Recorded();
    CTshark tshark;
    tshark.UseFile(File());
    const std::vector<DISSECTED> packets = tshark.Packets();
    ASSERT_EQ(packets.size(), recorded.size());
    std::set<std::string> kinds;
    std::set<std::string> names;
    size_t szLinked = 0;
    for (size_t i = 0; i < packets.size() && !HasFailure(); ++i) {
        SCOPED_TRACE("frame " + std::to_string(i + 1));
        ExpectHead(recorded[i].stRecord, packets[i]);
        if (IsClientFrame(recorded[i].stRecord))
            ExpectClientHead(recorded[i], packets[i]);
        for (const char* const pszBad : {"vex.expert.malformed", "vex.expert.short", "_ws.malformed"})
            EXPECT_EQ(Values(packets[i], pszBad), "-");
        kinds.insert(Values(packets[i], "vex.direction") + "/" + Values(packets[i], "vex.channel"));
        names.insert(Values(packets[i], "vex.name"));
        szLinked += packets[i].contains("vex.request_in") ? 1 : 0;
    }
    for (const char* const pszKind : {"1/0", "1/1", "1/2", "1/4", "2/0", "2/2", "2/4", "3/0", "3/1", "3/2", "3/3",
                                      "3/4", "4/0", "4/1", "4/2", "4/3", "4/4", "5/255", "7/255"})
        EXPECT_TRUE(kinds.contains(pszKind)) << pszKind;
    for (const char* const pszName : {"bind", "UE version", "host connect", "radio report", "cells report",
                                      "w-cell report", "sir report", "decoding report", "AT indication"})
        EXPECT_TRUE(names.contains(pszName)) << pszName;
    EXPECT_GT(szLinked, 20u);
}
