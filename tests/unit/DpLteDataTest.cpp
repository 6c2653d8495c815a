#include "data/DpLteData.h"

#include "agent/Client.h"
#include "support/AgentFixture.h"
#include "support/LogCapture.h"
#include "support/WaitFor.h"

#include <gtest/gtest.h>
#include <random>
#include <thread>
#include <unistd.h>

namespace
{

/// An indication by TEST_LAYOUT: tag 3, ack field 0x33.
Bytes Ind(unsigned int ulId, const Bytes& payload, unsigned long long ullStamp = 0x0102)
{
    return Join(Hex("00 00 00 00 03 07 00 00"), Le(ulId), Le(0x33u), Le(ullStamp), Fill(4), payload);
}

/// What the client sees of one.
Bytes Packet(const std::string& strId, const std::string& strType, const Bytes& payload,
             unsigned long long ullStamp = 0x0102)
{
    return Join(Hex("9F 9F"), Hex(strId), Hex("33 00 00 00"), Le(ullStamp), Hex(strType),
                Le(static_cast<unsigned short>(payload.size())), payload);
}

Bytes AirHead(unsigned int ulModule, unsigned int ulFlags, unsigned int ulId)
{
    return Join(Le(ulModule), Le(ulFlags), Fill(4, 0xEE), Le(ulId));
}

/// UE 0 with a data client; what the UE sends and what the client sees of it.
class DpLteData : public testing::Test
{
protected:
    DpLteData()
        : m_fixture(std::string(TEST_LAYOUT) + "DPI_L1_FILTER_IND_RANGE_CFG=+{0x30000001,0x70000001}\n"
                                               "DPI_L23_FILTER_IND_RANGE_CFG=-{0x500}\n"
                                               "TDS_MSG_MODULE_ID_RANGE={0x77}\n"
                                               "TDS_COMB_IND_MSG_FILTER=0xA0;0xA1;0xA2;0xA3;0xA4\n"
                                               "DPH_FILTER_ENABLE=1\n"
                                               "DPH_FILTER_RANGE={0x80000000,0x8FFFFFFF}\n"
                                               "SPC_DPI_CELL_MEAS=0x800;0x801\n")
    {
        m_fixture.AttachUe(0, 51);
        m_fixture.Confirm(0);
        m_client.emplace(m_fixture.AddClient(CHANNEL_LTE_DATA));
        (void)m_client->Pending();
    }

    Bytes Seen(const Bytes& packet)
    {
        m_fixture.FromUe(0, CHANNEL_LTE_DATA, packet);
        return m_client->Pending();
    }

    CAgentFixture m_fixture;
    std::optional<CTestClient> m_client;
};

/// Opens the repair of time stamps for tests.
struct CCalibrated : CDataProcessorLteData
{
    CCalibrated() : CDataProcessorLteData(nullptr, nullptr) {}
    using CDataProcessorLteData::CALIB_OFF;
    using CDataProcessorLteData::m_pMeasStore;
    using CDataProcessorLteData::m_ulCalibWindow;

    unsigned long long operator()(unsigned long long ullStamp)
    {
        ADE_DATA_PACKET_STRU stPacket;
        stPacket.ullTimeStamp = ullStamp;
        PacketSequenceCalib(stPacket);
        return stPacket.ullTimeStamp;
    }
};

} // namespace

TEST_F(DpLteData, TheClientSeesEveryKind)
{
    const Bytes dpi = Join(Fill(20), Hex("11 00 00 00"), Fill(16));
    const struct
    {
        const char* pszName;
        Bytes in, out;
    } c_astCase[] = {
        {"DSP", Ind(0x30000001, Hex("AA BB")), Packet("01 00 00 30", "00 02", Hex("AA BB"))},
        {"DSP of TDS", Ind(0x70000001, Hex("AA")), Packet("01 00 00 70", "00 03", Hex("AA"))},
        {"DSP that isn't listed", Ind(0x30000002, Hex("AA")), {}},
        {"air", Ind(0x20010000, Join(AirHead(1, 0x9D, 0x1234), Hex("D1"))),
         Packet("34 12 00 00", "01 02", Hex("9D 00 01 00 D1"))},
        {"air of TDS", Ind(0x20010000, AirHead(0x77, 1, 0x1234)), Packet("34 12 77 00", "01 03", Hex("01 00 00 00"))},
        {"IMS", Ind(0x20060000, AirHead(1, 2, 0x1234)), Packet("34 12 00 00", "06 02", Hex("02 00 00 00"))},
        {"layer", Ind(0x20020000, Join(AirHead(1, 2, 0x1234), Hex("D1"))), Packet("34 12 00 00", "02 02", Hex("D1"))},
        {"layer, excluded", Ind(0x20020000, Join(AirHead(1, 2, 0x500), Hex("D1"))), {}},
        {"event", Ind(0x20040000, Hex("00 00 00 00 34 12 00 00 AA")), Packet("34 12 00 00", "03 02", {})},
        {"user plane", Ind(0x20050000, Hex("00 00 00 00 34 12 00 00 AA")), Packet("34 12 00 00", "04 02", Hex("AA"))},
        {"DPI", Ind(0x80000001, Join(dpi, Hex("AA"))), Packet("11 00 00 00", "05 02", Hex("AA"))},
        {"other", Ind(0x10061234, Hex("AA")), Packet("34 12 00 00", "00 02", Hex("AA"))},
        {"dropped", Ind(0x20030000, Hex("AA")), {}},
        {"short air", Ind(0x20010000, Fill(15, 0x5A)), Packet("00 00 01 20", "00 02", Fill(15, 0x5A))},
        {"connected measurement", Ind(0x20020000, Join(AirHead(1, 2, 0x800), Fill(26), Hex("05 00"))),
         Packet("00 08 00 00", "02 02", Join(Hex("05 00 01 00"), Fill(1092)))},
        {"TDS measurement", Ind(0x20020000, AirHead(1, 2, 0xA3)),
         Packet("A3 00 00 00", "02 02", Join(Hex("00 00 01"), Fill(1057)))},
        {"no payload", Ind(0x10061234, {}), Packet("34 12 00 00", "00 02", {})},
        {"the largest payload", Ind(0x10061234, Fill(8192, 0x5A)), Packet("34 12 00 00", "00 02", Fill(8192, 0x5A))},
    };
    for (const auto& st : c_astCase)
        EXPECT_EQ(Seen(st.in), st.out) << st.pszName;
}

TEST_F(DpLteData, HeadersThatCannotBeReadDropThePacket)
{
    const CLogCapture log;
    EXPECT_EQ(Seen(Fill(27, 3)), Bytes{}) << "shorter than its header";
    EXPECT_EQ(Seen(Ind(0x10061234, Fill(8193))), Bytes{});
    EXPECT_EQ(log.Count("[ERR] : build data packet fail"), 2);
    EXPECT_EQ(Seen(Ind(0xFFFFFFFF, {})), Bytes{});
    EXPECT_EQ(log.Count("[WAN] : lte data serial ulCmdID is invalid (0xffffffff)"), 1);
    EXPECT_EQ(log.Count("[ERR] : build data packet fail"), 3);
}

TEST_F(DpLteData, AnId0GoesOutWithWarnings)
{
    const CLogCapture log;
    EXPECT_EQ(Seen(Ind(0, Hex("AA"))), Packet("00 00 00 00", "00 02", Hex("AA")));
    EXPECT_EQ(log.Count("[WAN] : lte data serial ulCmdID is ZERO"), 1);
    EXPECT_EQ(log.Count("[WAN] : before send data to client ulCmdId is ZERO"), 1);
}

TEST_F(DpLteData, TheClientsRequests)
{
    const CLogCapture log;
    m_client->Request(0x10020304, PKT_TYPE_CMD);
    EXPECT_EQ(log.Count("[WAN] : Invalid Command send to Lte Data channel"), 1);
    EXPECT_TRUE(m_client->Pending().empty());
    m_client->Request(AGENT_CMD_UNBIND, 0x05F0);
    EXPECT_EQ(m_client->Pending(), Hex("9F 9F  50 00 00 50  00 00 00 00  00 00 00 00 00 00 00 00  F0 05  00 00"));
    EXPECT_EQ(Seen(Ind(0x10061234, {})), Bytes{}) << "unbound";
    m_client->Request(AGENT_CMD_BIND, 0x05F0, Le(51u));
    EXPECT_EQ(m_client->Pending(), Hex("9F 9F  40 00 00 50  00 00 00 00  00 00 00 00 00 00 00 00  F0 05  00 00"));
    CDataProcessorLteData processor(nullptr, nullptr);
    EXPECT_EQ(processor.ProcessClientData({}), 0);
    EXPECT_EQ(log.Count("[ERR] : Lte Data Reques is NULL"), 1);
}

TEST_F(DpLteData, APacketWaitsForARequestOfItsClientAndForThatAlone)
{
    m_fixture.AttachUe(1, 61);
    m_fixture.Confirm(1);
    CTestClient other = m_fixture.AddClient(CHANNEL_LTE_DATA);
    ASSERT_TRUE(m_fixture.Bind(other, 61));
    CUeEvents& events = m_fixture.Agent().Events();
    const auto data = [](UE_INDEX ulUeIdx) {
        return MSG_AGENT{AGENT_MSG_DATA, ulUeIdx, CHANNEL_LTE_DATA, CPacket::Copy(Ind(0x10061234, {}))};
    };
    const Bytes seen = Packet("34 12 00 00", "00 02", {});

    const auto pClient = m_client->Get()->Hold();
    xtl::MutexGuard request(pClient->ProcessorMutex());
    std::atomic<int> nReaderId = 0;
    std::thread reader([&] {
        nReaderId = gettid();
        MSG_AGENT stMsg = data(0);
        EXPECT_TRUE(events.TryTake({&stMsg, 1}));
    });
    EXPECT_TRUE(WaitFor([&] { return nReaderId != 0 && IsAsleep(nReaderId); }));
    MSG_AGENT stSame = data(0);
    EXPECT_FALSE(events.TryTake({&stSame, 1})) << "one thread at a time for each UE";
    EXPECT_TRUE(stSame.packet) << "as it was";
    MSG_AGENT stOther = data(1);
    EXPECT_TRUE(events.TryTake({&stOther, 1}));
    EXPECT_EQ(other.Pending(), seen);
    EXPECT_TRUE(m_client->Pending().empty());

    {
        const xtl::MutexGuard guard(m_fixture.Agent().Bindings().Mutex());
        EXPECT_TRUE(m_fixture.Agent().Bindings().UnBindUE(pClient.get())); // what the request was for
    }
    request.Unlock();
    reader.join();
    EXPECT_TRUE(m_client->Pending().empty()) << "nothing comes behind the answer to an unbind";
}

TEST_F(DpLteData, AJitterOfTheStampIsFlattened)
{
    (void)Seen(Ind(0x10061234, {}, 1000));
    EXPECT_EQ(Seen(Ind(0x10061234, {}, 991)), Packet("34 12 00 00", "00 02", {}, 1000));
    EXPECT_EQ(Seen(Ind(0x10061234, {}, 990)), Packet("34 12 00 00", "00 02", {}, 990));
}

TEST(SequenceCalib, StepsBackBelowTheWindowBecomeTheHighestStamp)
{
    CCalibrated calib;
    EXPECT_EQ(calib(1000), 1000u);
    EXPECT_EQ(calib(1000), 1000u) << "equal is no step back";
    EXPECT_EQ(calib(991), 1000u) << "9 below";
    EXPECT_EQ(calib(990), 990u) << "10 below passes";
    EXPECT_EQ(calib(995), 1000u) << "the highest stamp stays";
    EXPECT_EQ(calib(5), 5u) << "a restart passes";
    EXPECT_EQ(calib(6), 6u) << "and goes on unrepaired until it passes the old value";
    EXPECT_EQ(calib(5), 5u);
    EXPECT_EQ(calib(1001), 1001u);
    EXPECT_EQ(calib(999), 1001u);
}

TEST(SequenceCalib, NothingIsRewrittenWithoutAStampSeen)
{
    CCalibrated calib;
    EXPECT_EQ(calib(0), 0u);
    EXPECT_EQ(calib(0), 0u);
    EXPECT_EQ(calib(5), 5u);
    EXPECT_EQ(calib(0), 5u) << "0 itself is repaired";
}

// The low words alone are compared: required.
TEST(SequenceCalib, TheLowWordsAreCompared)
{
    CCalibrated calib;
    EXPECT_EQ(calib(0x500000005), 0x500000005u);
    EXPECT_EQ(calib(0x100000003), 0x500000005u) << "far below, but only 2 in the low word";
    EXPECT_EQ(calib(0x4FFFFFFFE), 0x500000005u) << "7 below across the word";
    EXPECT_EQ(calib(0x4FFFFFFFB), 0x4FFFFFFFBu) << "10 below";
}

TEST(SequenceCalib, TheRepairCanBeSwitchedOff)
{
    CCalibrated calib;
    calib.m_ulCalibWindow = CCalibrated::CALIB_OFF;
    EXPECT_EQ(calib(1000), 1000u);
    EXPECT_EQ(calib(995), 995u);
}

TEST(LteDataProcessor, TheMeasurementStoreStartsEmptyWithTheConfiguredTimeout)
{
    CAgentFixture fixture("CELL_MEAS_TIMEOUT=350\n");
    CCalibrated processor;
    EXPECT_EQ(processor.m_pMeasStore->ulTimeoutMs, 350u);
    EXPECT_EQ(processor.m_pMeasStore->stHead.ullTimeStamp, 0u);
    EXPECT_EQ(Bytes(ByteView(processor.m_pMeasStore->aucPayload)), Fill(8192));
}

// Whatever the UE sends, nothing outside of the packet is touched (the sanitizers watch) and the client gets at most
// one whole packet for it.
TEST_F(DpLteData, RandomPacketsNeverReadOutside)
{
    std::mt19937 random(20261122);
    const unsigned int aulIds[] = {0x20010000, 0x20020000, 0x20040000, 0x20050000,
                                   0x20060000, 0x30000001, 0x80000001, 0x10061234};
    const unsigned int aulInner[] = {0x800, 0x801, 0xA0, 0xA1, 0xA2, 0xA3, 0xA4, 0x500, 0x1234};
    for (int i = 0; i < 3000; ++i) {
        Bytes packet(random() % (i % 2 != 0 ? 120 : 1400), 0);
        for (unsigned char& ucByte : packet)
            ucByte = static_cast<unsigned char>(random());
        if (i % 5 != 0) {
            StoreLe<uint32_t>(packet, 8, aulIds[random() % std::size(aulIds)]);
            StoreLe<uint32_t>(packet, 28 + 12, aulInner[random() % std::size(aulInner)]);
            StoreLe<uint16_t>(packet, 28 + 16 + 26, static_cast<uint16_t>(30 + random() % 5));
        }
        const Bytes seen = Seen(packet);
        if (seen.empty())
            continue;
        ASSERT_EQ(LoadLe<uint16_t>(seen, 0), 0x9F9F);
        ASSERT_EQ(seen.size(), 22u + LoadLe<uint16_t>(seen, 20));
        ASSERT_LE(seen.size(), std::max<size_t>(packet.size(), 22 + 1264));
    }
}
