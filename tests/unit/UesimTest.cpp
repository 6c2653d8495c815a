#include "support/SimFixture.h"
#include "support/TestBytes.h"
#include "uesim/AtBehaviour.h"
#include "uesim/DeviceRecords.h"
#include "uesim/LteDiagBehaviour.h"
#include "uesim/LteLayout.h"
#include "uesim/LteMessages.h"
#include "uesim/LteStreamBehaviour.h"

#include <gtest/gtest.h>
#include <random>

namespace
{
const std::string LAYOUT =
    "REQ_CHL_PACKET_HEADER_LEN=24\n"
    "REQ_CHL_PACKET_HEADER={0,1};{1,1};{2,1};{3,1};{4,1};{5,1};{6,2};{8,4};{12,4};{16,4};{20,4}\n"
    "ACK_CHL_PACKET_PAYLOAD_OFFSET=28\n"
    "ACK_CHL_PACKET_HEADER={8,4};{24,4};{12,4};{5,1};{16,8};{0,0}\n"
    "DATA_CHL_PACKET_PAYLOAD_OFFSET=28\n"
    "DATA_CHL_PACKET_HEADER={8,4};{12,4};{5,1};{16,8};{24,4}\n"
    "DATA_ACK_CHL_PACKET_OFFSET=8\n"
    "DATA_ACK_CHL_PACKET_UID={8,4};{4,1};{5,1}\n";
const std::string FILTERS = "DPI_L1_FILTER_IND_RANGE_CFG=+[0x30100001,0x30100002];+{0x70000001}\n"
                            "DPI_L23_FILTER_IND_RANGE_CFG=-{0x00450002}\n"
                            "DPH_FILTER_IND_LAYER_MSG_CFG={0x00430001}:{16,0};*:{4,0}\n"
                            "SPC_DPI_CELL_MEAS=0x00500001;0x00500002\n"
                            "TDS_COMB_IND_MSG_FILTER=0x600001;0x600002;0x600003;0x600004;0x600005;0x600006;0x600007;"
                            "0x600008;0x600009;0x60000A;0x60000B\n"
                            "DPH_FILTER_ENABLE=1\nDPH_FILTER_RANGE={0x20080000,0x2008FFFF}\n";

Bytes FrameOf(const Bytes& packet)
{
    CByteQueue line;
    AppendFrame(packet, line);
    return Bytes(line.Front());
}

/// FCS-16 bit by bit, from the polynomial.
uint16_t SlowFcs(const Bytes& bytes)
{
    unsigned int ulFcs = 0xFFFF;
    for (const unsigned char ucByte : bytes) {
        ulFcs ^= ucByte;
        for (int nBit = 0; nBit < 8; ++nBit)
            ulFcs = (ulFcs >> 1) ^ ((ulFcs & 1) != 0 ? 0x8408 : 0);
    }
    return static_cast<uint16_t>(ulFcs ^ 0xFFFF);
}

Bytes RandomBytes(std::mt19937& random, size_t szLen)
{
    static constexpr unsigned char COMMON[] = {0x7E, 0x7D, 0x5E, 0x00};
    Bytes bytes(szLen, 0);
    for (unsigned char& ucByte : bytes)
        ucByte = random() % 4 == 0 ? COMMON[random() % 4] : static_cast<unsigned char>(random());
    return bytes;
}

/// A request as the agent encodes it with the layout above.
Bytes Request(uint32_t ulId, unsigned char ucType, const Bytes& params)
{
    return Join(Bytes{0, 2, 0x20, 1, 1, ucType, 0, 0}, Le(ulId), Le(static_cast<uint32_t>(params.size() + 8)), Fill(8),
                params);
}

constexpr size_t ACK_PAYLOAD = 28;

class CDiagFixture : public CSimFixture
{
public:
    explicit CDiagFixture(UESIM_OPTIONS stOptions = {})
        : CSimFixture(LAYOUT, std::move(stOptions)), m_diag(Ue(), [this] { ++m_nDone; })
    {
    }

    /// The ack to a request, head included; empty when none comes.
    Bytes Ask(uint32_t ulId, unsigned char ucType, const Bytes& params)
    {
        EXPECT_TRUE(m_diag.OnPacket(SERIAL_TYPE_DIAG, Request(ulId, ucType, params)));
        const auto acks = Sent(SERIAL_TYPE_DIAG);
        EXPECT_LE(acks.size(), 1U);
        return acks.empty() ? Bytes() : acks.front();
    }
    Bytes AskPayload(uint32_t ulId, unsigned char ucType, const Bytes& params)
    {
        return Bytes(Slice(ByteView(Ask(ulId, ucType, params)), ACK_PAYLOAD));
    }
    int SwitchesDone() const { return m_nDone; }

private:
    int m_nDone = 0;
    CLteDiagBehaviour m_diag;
};
} // namespace

// ---------------------------------------------------------------------------------------------------- frames

TEST(UesimLine, FramesMatchTheWorkedExamples)
{
    EXPECT_EQ(FrameOf(Hex("01 02 7E 7D")), Hex("7E 01 02 7D 5E 7D 5D 6B 97 7E"));
    EXPECT_EQ(FrameOf(Hex("31 32 33 34 35 36 37 38 39")), Hex("7E 31 32 33 34 35 36 37 38 39 6E 90 7E"));
    EXPECT_EQ(FrameOf(Hex("60")), Hex("7E 60 7D 5E 93 7E")); // an FCS byte is stuffed too
}

TEST(UesimLine, FcsIsThatOfThePolynomialAtEveryLength)
{
    std::mt19937 random(1);
    for (size_t szLen = 0; szLen < 70; ++szLen) {
        const Bytes bytes = RandomBytes(random, szLen);
        EXPECT_EQ(FcsOf(bytes), SlowFcs(bytes)) << szLen << " bytes";
    }
}

TEST(UesimLine, RandomPacketsComeBackHoweverTheStreamIsCut)
{
    std::mt19937 random(2);
    for (int n = 0; n < 200; ++n) {
        const Bytes packet = RandomBytes(random, 1 + random() % 80);
        const Bytes stream = Join(FrameOf(packet), FrameOf(packet));
        const size_t szCut = random() % (stream.size() + 1);
        CFrameCollector collector;
        std::vector<Bytes> packets;
        const auto sink = [&](ByteView bytes) { packets.push_back(Bytes(bytes)); };
        collector.Feed(Slice(ByteView(stream), 0, szCut), sink);
        collector.Feed(Slice(ByteView(stream), szCut), sink);
        EXPECT_EQ(packets, (std::vector<Bytes>{packet, packet})) << "cut at " << szCut;
        EXPECT_EQ(collector.BadFrames(), 0U);
    }
}

TEST(UesimLine, BadFramesAreCountedAndTheNextOneIsTaken)
{
    const struct
    {
        const char* pszName;
        Bytes stream;
    } astCases[] = {
        {"wrong FCS", Hex("7E 01 02 03 04 7E")},
        {"escape before a byte that needs none", Hex("7E 01 7D 41 04 7E")},
        {"shorter than an FCS", Hex("7E 01 7E")},
        {"escape at the end", Hex("7E 01 02 7D 7E")},
    };
    for (const auto& stCase : astCases) {
        CFrameCollector collector;
        int nGood = 0;
        collector.Feed(Join(stCase.stream, FrameOf(Hex("AA"))), [&](ByteView) { ++nGood; });
        EXPECT_EQ(collector.BadFrames(), 1U) << stCase.pszName;
        EXPECT_EQ(nGood, 1) << stCase.pszName;
    }
}

// ------------------------------------------------------------------------------------------------- LTE layout

TEST(UesimLayout, RequestIsReadByTheConfiguredPairs)
{
    CSimFixture fixture(LAYOUT);
    const CLteLayout layout(*fixture.Config().GetFilterCfg());
    const Bytes packet = Hex("00 02 20 01 01 05 00 00  03 55 01 10  0C 00 00 00  00 00 00 00 00 00 00 00  11 22 33 44");
    const auto stReq = layout.ReadRequest(packet);
    ASSERT_TRUE(stReq.has_value());
    EXPECT_EQ(stReq->ulCmdId, 0x10015503U);
    EXPECT_EQ(stReq->ulCmdType, 5U);
    EXPECT_TRUE(stReq->bLengthFits);
    EXPECT_EQ(Bytes(stReq->data), Hex("11 22 33 44"));
    EXPECT_FALSE(layout.ReadRequest(Slice(ByteView(packet), 0, 23)).has_value());
    EXPECT_FALSE(layout.ReadRequest(Slice(ByteView(packet), 0, 27))->bLengthFits);
}

TEST(UesimLayout, AckAndIndicationAreWrittenByTheConfiguredPairs)
{
    CSimFixture fixture(LAYOUT);
    const CLteLayout layout(*fixture.Config().GetFilterCfg());
    EXPECT_EQ(Bytes(ByteView(layout.BuildAck({0x10065000, 5, 7, 0x0102030405060708}, Hex("AA BB")))),
              Hex("00 00 00 00 02 05 00 00  00 50 06 10  07 00 00 00  08 07 06 05 04 03 02 01  02 00 00 00  AA BB"));
    Bytes packet = Join(Fill(28), Hex("CC"));
    layout.WriteIndHead({0x20010000, 0, 9, 0x10}, packet);
    EXPECT_EQ(packet,
              Hex("00 00 00 00 03 00 00 00  00 00 01 20  09 00 00 00  10 00 00 00 00 00 00 00  01 00 00 00  CC"));
}

// --------------------------------------------------------------------------------------------------- LTE diag

TEST(UesimDiag, HostConnectCarriesIdentityInAPayloadOfTheWantedLength)
{
    for (const unsigned int ulLen : {320U, 319U, 400U}) {
        UESIM_OPTIONS stOptions;
        stOptions.ulConnectPayload = ulLen;
        stOptions.ulConnectId = 0x10066000;
        CDiagFixture fixture(stOptions);
        const Bytes ack = fixture.Ask(0x10065000, 0, {});
        EXPECT_EQ(Bytes(Slice(ByteView(ack), 8, 4)), Hex("00 60 06 10"));
        ASSERT_EQ(ack.size(), ACK_PAYLOAD + ulLen);
        EXPECT_EQ(FixedText(Slice(ByteView(ack), ACK_PAYLOAD + 4, 16)), "860000000110000");
        EXPECT_EQ(Bytes(Slice(ByteView(ack), ACK_PAYLOAD + 32, 10)), Hex("64 00 01 00 0A 00 C8 00 00 00"));
    }
}

TEST(UesimDiag, NvItemIsReadWrittenAndReadBack)
{
    CDiagFixture fixture;
    EXPECT_EQ(fixture.AskPayload(0x10015503, 5, Le(0x20U)),
              Hex("00000000 20000000 10000000 202122232425262728292A2B2C2D2E2F"));
    EXPECT_EQ(fixture.AskPayload(0x10015501, 5, Hex("20000000 03000000 AABBCC")), Hex("00000000 20000000"));
    EXPECT_EQ(fixture.AskPayload(0x10015503, 5, Le(0x20U)), Hex("00000000 20000000 03000000 AABBCC"));
    EXPECT_EQ(fixture.AskPayload(0x10015503, 5, Le(0x10000U)), Hex("07000000 00000100 00000000"));
}

TEST(UesimDiag, DpiMessageIsAnsweredBehindAHeadOf44Bytes)
{
    UESIM_OPTIONS stOptions;
    stOptions.fail[0x10020001] = 6;
    CDiagFixture fixture(stOptions);
    const Bytes params =
        Join(Le(0U), Le(120U), Le(0U), Le(130U), Le(22U), Le(0x00410001U), Fill(12), Le(1U), Hex("AA BB"));
    EXPECT_EQ(fixture.AskPayload(0x10020001, 5, params), Join(Le(0U), Le(130U), Le(0U), Le(120U), Le(26U),
                                                              Le(0x00410001U), Fill(12), Le(1U), Le(6U), Hex("AA BB")));
}

TEST(UesimDiag, CommandsAndSwitchesOpenWithAResult)
{
    UESIM_OPTIONS stOptions;
    stOptions.fail[0x10015315] = 9;
    stOptions.silent.insert(0x10020008);
    CDiagFixture fixture(stOptions);
    EXPECT_EQ(fixture.AskPayload(0x10020007, 0, Hex("AA")), Hex("00000000 AA"));
    EXPECT_EQ(fixture.AskPayload(0x20020007, 0, Hex("AA")), Hex("AA")); // not a plain command
    EXPECT_EQ(fixture.AskPayload(0x10015312, 0, Fill(8)), Hex("00000000"));
    EXPECT_EQ(fixture.AskPayload(0x10015315, 0, Fill(4)), Hex("09000000"));
    EXPECT_EQ(fixture.Ask(0x10020008, 0, {}), Bytes());
}

TEST(UesimDiag, TheLastReportSwitchIsTold)
{
    CDiagFixture fixture;
    for (uint32_t ulId = 0x30900001; ulId <= 0x30900017; ++ulId) {
        (void)fixture.Ask(ulId, 0, Fill(14));
        (void)fixture.Ask(ulId, 0, Fill(14)); // one that comes twice counts once
    }
    EXPECT_EQ(fixture.SwitchesDone(), 0);
    EXPECT_EQ(fixture.AskPayload(0x30900099, 0, Le(1U)), Hex("00000000"));
    EXPECT_EQ(fixture.SwitchesDone(), 1);
}

// --------------------------------------------------------------------------------------------------------- AT

namespace
{
class UesimAt : public testing::Test
{
protected:
    /// What the modem answers.
    std::string Answer(const std::string& strText)
    {
        EXPECT_TRUE(m_at.OnPacket(SERIAL_TYPE_AT, AsBytes(strText)));
        (void)m_fixture.Port(SERIAL_TYPE_AT).Write();
        char acBuf[512];
        const ssize_t nRead = read(m_fixture.Port(SERIAL_TYPE_AT).AgentFd(), acBuf, sizeof(acBuf));
        return nRead > 0 ? std::string(acBuf, static_cast<size_t>(nRead)) : std::string();
    }

    CSimFixture m_fixture;
    CAtBehaviour m_at{m_fixture.Ue()};
};
} // namespace

TEST_F(UesimAt, CommandsMayComeInPieces)
{
    EXPECT_EQ(Answer("A"), "");
    EXPECT_EQ(Answer("T\r"), "\r\nOK\r\n");
    EXPECT_EQ(Answer("at+cgsn\r\n"), "\r\n860000000110000\r\n\r\nOK\r\n");
    EXPECT_EQ(Answer("AT+CGMR\rAT+NO\r"), "\r\nV100R001C10B200SP00\r\n\r\nOK\r\n\r\nERROR\r\n");
    EXPECT_EQ(Answer("AT+CSQ\r"), "\r\n+CSQ: 15,99\r\n\r\nOK\r\n");
}

TEST_F(UesimAt, AnswersWhatToolsAskFor)
{
    for (const char* pszCommand : {"ATZ", "AT&F", "AT+CSCS=\"IRA\""})
        EXPECT_EQ(Answer(std::string(pszCommand) + "\r"), "\r\nOK\r\n") << pszCommand;
    const std::pair<const char*, const char*> texts[] = {
        {"ATI", "Simulated modem ue0"},
        {"AT+CGMI", "Vex"},
        {"AT+CGMM", "Simulated modem"},
        {"AT+COPS?", R"(+COPS: 0,0,"Simulated",7)"},
        {"AT+CREG?", R"(+CREG: 1,1,"0001","00000001",7)"},
        {"AT+CSCS?", R"(+CSCS: "IRA")"},
        {"AT+CSCS=?", R"(+CSCS: ("GSM","IRA"))"},
        {"AT+CMEE=?", "+CMEE: (0-2)"},
    };
    for (const auto& [pszCommand, pszText] : texts)
        EXPECT_EQ(Answer(std::string(pszCommand) + "\r"), std::string("\r\n") + pszText + "\r\n\r\nOK\r\n");
}

TEST_F(UesimAt, ErrorsHaveTheFormThatWasAskedFor)
{
    EXPECT_EQ(Answer("AT+CMEE=1\rAT+NO\r"), "\r\nOK\r\n\r\n+CME ERROR: 4\r\n");
    EXPECT_EQ(Answer("AT+CMEE?\r"), "\r\n+CMEE: 1\r\n\r\nOK\r\n");
    EXPECT_EQ(Answer("AT+CMEE=2\rAT+NO\r"), "\r\nOK\r\n\r\n+CME ERROR: operation not supported\r\n");
    EXPECT_EQ(Answer("AT+CMEE=3\r"), "\r\n+CME ERROR: operation not supported\r\n");
    EXPECT_EQ(Answer("AT+CMEE=0\rAT+NO\r"), "\r\nOK\r\n\r\nERROR\r\n");
}

TEST_F(UesimAt, EchoGoesOnAndOff)
{
    EXPECT_EQ(Answer("ate1\r"), "\r\nOK\r\n");
    EXPECT_EQ(Answer("at\r"), "at\r\r\nOK\r\n");
    EXPECT_EQ(Answer("ATE0\r"), "ATE0\r\r\nOK\r\n");
    EXPECT_EQ(Answer("AT\r"), "\r\nOK\r\n");
    EXPECT_EQ(Answer("ATE1\r"), "\r\nOK\r\n");
    m_at.OnPortClosed(SERIAL_TYPE_AT); // whoever comes next finds it as it was
    EXPECT_EQ(Answer("AT\r"), "\r\nOK\r\n");
}

// ------------------------------------------------------------------------------------------------ LTE streams

TEST(UesimStream, MixNamesClassesAndWeights)
{
    LTE_MIX mix{};
    EXPECT_TRUE(ParseMix("air=2,event=1", mix));
    EXPECT_EQ(mix, (LTE_MIX{0, 2, 0, 0, 1}));
    for (const char* pszBad : {"", "air", "air=", "air=x", "sky=1", "air=0", "air=1,,event=1", "air=1001"})
        EXPECT_FALSE(ParseMix(pszBad, mix)) << pszBad;
}

TEST(UesimStream, MixIsSpreadEvenlyOverTheAvailableClasses)
{
    std::array<bool, LTE_CLASS_COUNT> bAvailable{};
    bAvailable[LTE_CLASS_AIR] = bAvailable[LTE_CLASS_EVENT] = true;
    EXPECT_EQ(SpreadMix({9, 2, 0, 0, 1}, bAvailable), (std::vector{LTE_CLASS_AIR, LTE_CLASS_EVENT, LTE_CLASS_AIR}));
}

TEST(UesimStream, MessagesFollowTheFilters)
{
    CSimFixture fixture(LAYOUT + FILTERS);
    const LTE_MESSAGES messages = MakeLteMessages(fixture.Config(), {});
    for (size_t i = 0; i < LTE_CLASS_COUNT; ++i)
        EXPECT_FALSE(messages[i].empty()) << LTE_CLASS_NAMES[i];
    EXPECT_TRUE(messages[LTE_CLASS_AIR][0].bPasses);
    EXPECT_FALSE(messages[LTE_CLASS_AIR][1].bPasses);        // 0x00450002 is held back
    EXPECT_EQ(messages[LTE_CLASS_LAYER][0].szNumberAt, 32U); // 16 of the head, 16 stripped
    EXPECT_EQ(messages[LTE_CLASS_LAYER][1].szNumberAt, 20U); // 4 by the default row
    EXPECT_EQ(messages[LTE_CLASS_MEAS][0].payload.size(), 16U + 1120U);
    EXPECT_EQ(messages[LTE_CLASS_TDS].size(), 11U);
    for (const LTE_MESSAGE& stMessage : messages[LTE_CLASS_DROPPED])
        EXPECT_FALSE(stMessage.bPasses) << stMessage.ulCmdId;

    CSimFixture bare(LAYOUT);
    const LTE_MESSAGES few = MakeLteMessages(bare.Config(), {});
    EXPECT_TRUE(few[LTE_CLASS_MEAS].empty());
    EXPECT_TRUE(few[LTE_CLASS_TDS].empty());
    EXPECT_TRUE(few[LTE_CLASS_DPI].empty());
    EXPECT_FALSE(few[LTE_CLASS_DSP][0].bPasses); // without a list no DSP message passes
}

TEST(UesimStream, NumbersRunOnWhenTheLineStalls)
{
    UESIM_OPTIONS stOptions;
    stOptions.bLteStream = true;
    stOptions.ulLteSize = 1000;
    stOptions.lteMix = {};
    stOptions.lteMix[LTE_CLASS_AIR] = 1;
    stOptions.lteMix[LTE_CLASS_DROPPED] = 1;
    stOptions.ullLteCount = 1000;
    CSimFixture fixture(LAYOUT, stOptions);
    CLteStreamBehaviour stream(fixture.Ue(), fixture.Config());
    EXPECT_NE(stream.OnTick(fixture.Now() - std::chrono::milliseconds(1)), NEVER); // the port isn't settled
    EXPECT_EQ(fixture.Sent(SERIAL_TYPE_DATA).size(), 0U);

    uint32_t ulLast = 0;
    size_t szPackets = 0;
    for (int n = 0; n < 100 && szPackets < 1000; ++n) {
        (void)stream.OnTick(fixture.Now()); // stops at the limit of the queue
        EXPECT_FALSE(szPackets < 800 && fixture.Port(SERIAL_TYPE_DATA).HasRoom());
        for (const Bytes& packet : fixture.Sent(SERIAL_TYPE_DATA)) {
            ++szPackets;
            const uint32_t ulNumber = LoadLe<uint32_t>(packet, 12);
            if (LoadLe<uint32_t>(packet, 8) != 0x20010000) {
                EXPECT_EQ(ulNumber, 0U);
                continue;
            }
            EXPECT_EQ(ulNumber, ++ulLast);
            EXPECT_EQ(LoadLe<uint32_t>(packet, 28 + 16), ulNumber);
        }
    }
    EXPECT_EQ(szPackets, 1000U);
    EXPECT_EQ(ulLast, 500U);
    EXPECT_EQ(stream.OnTick(fixture.Now()), NEVER);
}

TEST(UesimStream, RateSetsThePace)
{
    UESIM_OPTIONS stOptions;
    stOptions.dLteRate = 100;
    stOptions.bLteStartOnSwitch = true;
    CSimFixture fixture(LAYOUT, stOptions);
    CLteStreamBehaviour stream(fixture.Ue(), fixture.Config());
    const SimTime start = fixture.Now();
    stream.OnPortOpened(SERIAL_TYPE_DATA, start - CSimUe::SETTLE_TIME);
    EXPECT_EQ(stream.OnTick(start), NEVER); // the switches haven't come
    stream.OnSwitchesDone();
    EXPECT_EQ(stream.OnTick(start), start + std::chrono::milliseconds(10));
    EXPECT_EQ(fixture.Sent(SERIAL_TYPE_DATA).size(), 1U);
    (void)stream.OnTick(start + std::chrono::milliseconds(500));
    EXPECT_EQ(fixture.Sent(SERIAL_TYPE_DATA).size(), 50U);
}

// ---------------------------------------------------------------------------------------------- ports, records

TEST(UesimPort, PtyKnowsWhetherTheOtherEndIsThere)
{
    const auto pPort = MakePtyPort(SERIAL_TYPE_DATA, 7);
    ASSERT_TRUE(pPort);
    EXPECT_EQ(pPort->Probe(), CSimPort::Change::None);
    EXPECT_EQ(pPort->WaitFd(), -1);
    pPort->Send(Hex("01 02"));
    EXPECT_EQ(pPort->Totals().ullBytesLost, 2U);

    CUniqueFd agent(open(pPort->Name().c_str(), O_RDWR | O_NOCTTY));
    ASSERT_TRUE(agent.IsOpen());
    EXPECT_EQ(pPort->Probe(), CSimPort::Change::Opened);
    pPort->Send(Hex("31 32 33 34 35 36 37 38 39"));
    EXPECT_TRUE(pPort->Write());
    unsigned char aucBuf[64];
    ASSERT_EQ(read(agent.Get(), aucBuf, sizeof(aucBuf)), 13);
    EXPECT_EQ(Bytes(Slice(ByteView(aucBuf), 0, 13)), Hex("7E 31 32 33 34 35 36 37 38 39 6E 90 7E"));
    EXPECT_EQ(pPort->Totals().ullBytesOut, 13U);

    agent.Reset();
    EXPECT_EQ(pPort->Probe(), CSimPort::Change::Closed);
}

TEST(UesimRecord, HasTheDeviceMonitorsLayout)
{
    const auto aucRecord = DEVICE_RECORD{0x01020304, SERIAL_TYPE_GU, true, "/dev/pts/3", "sim0"}.Encode();
    EXPECT_EQ(Bytes(ByteView(aucRecord)), Join(Hex("01 02 03 04 02 01"), Hex("2F 64 65 76 2F 70 74 73 2F 33"),
                                               Fill(246), Hex("73 69 6D 30"), Fill(254)));
}
