#include "support/SimFixture.h"
#include "support/TestBytes.h"
#include "uesim/GuLinkBehaviour.h"
#include "uesim/GuReportBehaviour.h"
#include "uesim/RegisterBehaviour.h"

#include <gtest/gtest.h>
#include <map>
#include <set>

namespace
{
UESIM_OPTIONS Options(unsigned int ulMode)
{
    UESIM_OPTIONS stOptions;
    stOptions.ulGuMode = ulMode;
    stOptions.strGuVersion = ulMode == 2 ? "MAPLE-20B100" : "HAZEL-07B100";
    stOptions.bDualCard = true;
    return stOptions;
}

/// One OM frame from the agent.
Bytes OmFrame(const Bytes& payload, unsigned char ucTotal = 1, unsigned char ucIndex = 1)
{
    return Join(Hex("01 55 55 AA AA"), Le(static_cast<uint16_t>(payload.size() + 4)), Bytes{ucTotal, ucIndex}, payload,
                Fill((4 - payload.size() % 4) % 4), Hex("AA AA 55 55"));
}

Bytes Trans(uint16_t usId, uint32_t ulPid, const Bytes& params)
{
    return Join(Bytes{4, 0}, Le(static_cast<uint16_t>(params.size() + 24)), Le(0U), Le(105U), Le(0U), Le(ulPid),
                Le(static_cast<uint32_t>(params.size() + 4)), Le(uint32_t{usId}), params);
}

Bytes Query(unsigned char ucCategory, uint16_t usId)
{
    return Join(Bytes{ucCategory, 0, 8, 0}, Le(usId), Fill(6));
}

/// The whole GU side of one modem.
class CGuFixture : public CSimFixture
{
public:
    explicit CGuFixture(unsigned int ulMode = 2) : CGuFixture(Options(ulMode)) {}
    explicit CGuFixture(const UESIM_OPTIONS& stOptions)
        : CSimFixture("", stOptions),
          m_szHead(stOptions.ulGuMode == 1 ? 16 : 8),
          m_link(Ue()),
          m_reports(Ue(), m_link.Line()),
          m_registers(Ue(), m_link.Line())
    {
        m_link.AddService(&m_reports);
        m_link.AddService(&m_registers);
    }

    /// Sends a GU packet to the modem; gives the packets that come back.
    std::vector<Bytes> Ask(const Bytes& packet)
    {
        EXPECT_TRUE(m_link.OnPacket(SERIAL_TYPE_GU, OmFrame(packet)));
        return Packets();
    }
    /// All reports, traces and registers that are due by then.
    std::vector<Bytes> Tick(SimTime now)
    {
        (void)m_reports.OnTick(now);
        (void)m_registers.OnTick(now);
        return Packets();
    }
    CGuLinkBehaviour& Link() { return m_link; }

    /// Takes the OM frames out of the blocks that the modem has sent.
    std::vector<Bytes> Packets()
    {
        std::vector<Bytes> packets;
        for (const Bytes& block : Sent(SERIAL_TYPE_GU))
            for (size_t i = 1; i < block.size();)
                i += TakeFrame(Slice(ByteView(block), i), packets);
        return packets;
    }

private:
    size_t TakeFrame(ByteView bytes, std::vector<Bytes>& packets) const
    {
        const ByteView frame = Slice(bytes, m_szHead);
        const size_t szLen = LoadLe<uint16_t>(frame, 4) - size_t{4};
        const size_t szPadded = (szLen + 3) / 4 * 4;
        EXPECT_EQ(LoadLe<uint32_t>(frame, 0), 0xAAAA5555U);
        EXPECT_EQ(LoadLe<uint32_t>(frame, 8 + szPadded), 0x5555AAAAU);
        packets.push_back(Bytes(Slice(frame, 8, szLen)));
        return m_szHead + 12 + szPadded;
    }

    size_t m_szHead;
    CGuLinkBehaviour m_link;
    CGuReportBehaviour m_reports;
    CRegisterBehaviour m_registers;
};

uint16_t IdOf(const Bytes& packet)
{
    return LoadLe<uint16_t>(packet, 12);
}
Bytes PayloadOf(const Bytes& packet)
{
    return Bytes(Slice(ByteView(packet), 16));
}
} // namespace

TEST(UesimGuFrame, AgentFramesAreReadAndBadOnesRefused)
{
    const Bytes frame = Hex("01 55 55 AA AA 09 00 02 01 11 22 33 44 55 00 00 00 AA AA 55 55");
    const auto stFrame = ReadOmFrame(frame);
    ASSERT_TRUE(stFrame.has_value());
    EXPECT_EQ(stFrame->ulTotal, 2U);
    EXPECT_EQ(stFrame->ulIndex, 1U);
    EXPECT_EQ(Bytes(stFrame->payload), Hex("11 22 33 44 55"));
    for (const size_t szByte : {0, 1, 5, 17}) {
        Bytes bad = frame;
        bad[szByte] ^= 0x40;
        EXPECT_FALSE(ReadOmFrame(bad).has_value()) << "byte " << szByte;
    }
    EXPECT_FALSE(ReadOmFrame(Slice(ByteView(frame), 0, 20)).has_value());
    EXPECT_FALSE(ReadOmFrame({}).has_value());
}

TEST(UesimGuFrame, BlocksHaveTheHeadOfTheFrameMode)
{
    const struct
    {
        unsigned int ulMode;
        size_t szStart; // of the first frame
    } astCases[] = {{1, 17}, {2, 9}};
    for (const auto& stCase : astCases) {
        CGuFixture fixture(stCase.ulMode);
        EXPECT_TRUE(fixture.Link().OnPacket(SERIAL_TYPE_GU, Hex("10000101 0A000800 B1800000 01000000")));
        const auto blocks = fixture.Sent(SERIAL_TYPE_GU);
        ASSERT_EQ(blocks.size(), 1U);
        const Bytes& block = blocks.front();
        EXPECT_EQ(Bytes(Slice(ByteView(block), stCase.szStart)),
                  Hex("5555AAAA 1000 01 01 0A 00 0800 B280 0000 01000000 AAAA5555"))
            << "mode " << stCase.ulMode;
        EXPECT_EQ((block.size() - stCase.szStart) % 4, 0U);
    }
}

TEST(UesimGuLink, QueriesAreAnswered)
{
    CGuFixture fixture;
    EXPECT_EQ(fixture.Ask(Query(10, 0x8211)), (std::vector<Bytes>{Hex("0A00 0800 1282 0000 02000000")})); // dual card
    EXPECT_EQ(fixture.Ask(Query(10, 0x80A5)), (std::vector<Bytes>{Hex("0A00 0800 A680 0000 01000000")}));
    EXPECT_EQ(fixture.Ask(Query(74, 0x80A5)), (std::vector<Bytes>{Hex("4A01 0800 A680 0000 01000000")}));
    const auto version = fixture.Ask(Query(10, 0x8081));
    ASSERT_EQ(version.size(), 1U);
    EXPECT_EQ(version[0].size(), 520U); // above 515: silicon
    EXPECT_EQ(LoadLe<uint16_t>(version[0], 4), 0x8082);
    EXPECT_EQ(LoadLe<uint32_t>(version[0], 8), 1U);
    EXPECT_EQ(FixedText(Slice(ByteView(version[0]), 109)), "MAPLE-20B100");
}

TEST(UesimGuLink, SegmentsAreJoined)
{
    CGuFixture fixture;
    const Bytes packet = Trans(0xF502, 110, Join(Le(0U), Le(2U), Le(0x20909154U), Le(0x20909070U)));
    EXPECT_TRUE(fixture.Link().OnPacket(SERIAL_TYPE_GU, OmFrame(Bytes(Slice(ByteView(packet), 0, 20)), 2, 1)));
    EXPECT_TRUE(fixture.Packets().empty());
    EXPECT_TRUE(fixture.Link().OnPacket(SERIAL_TYPE_GU, OmFrame(Bytes(Slice(ByteView(packet), 20)), 2, 2)));
    const auto answers = fixture.Packets();
    ASSERT_EQ(answers.size(), 1U);
    EXPECT_EQ(IdOf(answers[0]), 0xF504);
}

TEST(UesimGuLink, StampsAreInvertedForAnUnknownVersion)
{
    for (const unsigned int ulMode : {1U, 2U}) {
        CGuFixture fixture(ulMode);
        const auto packets = fixture.Ask(Trans(0xFE01, 201, Le(0U)));
        ASSERT_EQ(packets.size(), 1U);
        const uint32_t ulStamp = LoadLe<uint32_t>(packets[0], 8);
        const uint32_t ulClock = ulMode == 1 ? ~ulStamp : ulStamp;
        EXPECT_GE(ulClock, 60U * 32768) << "mode " << ulMode; // the modem has been up for a minute
        EXPECT_LT(ulClock, 120U * 32768) << "mode " << ulMode;
    }
}

TEST(UesimGuReports, EveryRequestIsConfirmedAndItsReportRunsUntilTheStop)
{
    for (const unsigned int ulModem : {0U, 1U}) {
        for (const GU_REPORT_ROW& stRow : GuReports()) {
            CGuFixture fixture;
            const Bytes start = Join(Hex("01 00 02 00 F4 01"), Le(static_cast<uint16_t>(stRow.nGroup)));
            const Bytes stop = Join(Hex("00 00 02 00 F4 01"), Le(static_cast<uint16_t>(stRow.nGroup)));
            const uint32_t ulPid = ulModem == 0 ? 205 : 44;
            std::multiset<uint16_t> ids;
            for (const Bytes& packet : fixture.Ask(Trans(stRow.usRequest, ulPid, start)))
                ids.insert(IdOf(packet));
            EXPECT_TRUE(stRow.usConfirm == 0 || ids.contains(stRow.usConfirm)) << std::hex << stRow.usRequest;
            const auto take = [&](const std::vector<Bytes>& reports) {
                for (const Bytes& packet : reports) {
                    ids.insert(IdOf(packet));
                    EXPECT_EQ(packet[0], ulModem == 0 ? 4 : 68);
                }
                return reports.size();
            };
            (void)take(fixture.Tick(fixture.Now()));
            EXPECT_EQ(take(fixture.Tick(fixture.Now())), 0U) << "before the interval is over";
            EXPECT_EQ(take(fixture.Tick(fixture.Now() + std::chrono::seconds(1))) == 0, stRow.bOnce);
            EXPECT_TRUE(ids.contains(stRow.usIndication)) << std::hex << stRow.usRequest;
            if (stRow.bOnce)
                continue;
            (void)fixture.Ask(Trans(stRow.usRequest, ulPid, stop));
            EXPECT_TRUE(fixture.Tick(fixture.Now() + std::chrono::seconds(2)).empty()) << std::hex << stRow.usRequest;
        }
    }
}

TEST(UesimGuReports, BlerStartsWithAChainOfConfirmAndIndication)
{
    CGuFixture fixture;
    const auto packets = fixture.Ask(Trans(0xF020, 203, Hex("0300 3200")));
    ASSERT_EQ(packets.size(), 1U);
    EXPECT_EQ(LoadLe<uint16_t>(packets[0], 2), 16U); // the first message: 20 bytes
    EXPECT_EQ(IdOf(packets[0]), 0xF021);
    EXPECT_EQ(LoadLe<uint16_t>(packets[0], 20 + 12), 0xF022U);
    EXPECT_EQ(packets[0].size(), 20U + 16U + 24U);
}

TEST(UesimGuReports, TraceSwitchNamesAllTracedTasks)
{
    const auto names = [](const std::vector<Bytes>& packets) {
        std::set<std::pair<uint32_t, uint16_t>> found;
        for (const Bytes& packet : packets)
            found.insert({LoadLe<uint32_t>(packet, 20), LoadLe<uint16_t>(packet, 36)});
        return found;
    };
    CGuFixture fixture;
    const auto trace = [](const Bytes& pids) {
        return Join(Bytes{1, 0}, Le(static_cast<uint16_t>(12 + pids.size())), Hex("0181 0000 0100 0100"),
                    Le(static_cast<uint32_t>(pids.size() / 4)), pids);
    };
    EXPECT_TRUE(fixture.Ask(trace(Join(Le(27U), Le(133U)))).empty());
    const auto traces = fixture.Tick(fixture.Now());
    EXPECT_EQ(names(traces), (std::set<std::pair<uint32_t, uint16_t>>{
                                 {27, 0x1110}, {27, 0x1111}, {27, 0x1112}, {27, 0x1113}, {133, 0}, {133, 8}}));
    for (const Bytes& packet : traces) {
        EXPECT_EQ(packet[0], 1);
        EXPECT_EQ(IdOf(packet), 0x8003);
        EXPECT_GE(LoadLe<uint16_t>(packet, 2), 38);
    }
    (void)fixture.Ask(trace({}));
    EXPECT_TRUE(fixture.Tick(fixture.Now() + std::chrono::seconds(2)).empty());
}

TEST(UesimGuReports, OverTheAirSwitchesAreConfirmed)
{
    for (const GU_OTA_ROW& stRow : GuOtas()) {
        CGuFixture fixture;
        const Bytes request =
            Join(Bytes{2, 0, 28, 0}, Le(0U), Le(105U), Le(0U), Le(128U), Le(8U), Le(uint32_t{stRow.usRequest}), Le(1U));
        auto packets = fixture.Ask(request);
        ASSERT_EQ(packets.size(), 1U) << std::hex << stRow.usRequest;
        EXPECT_EQ(packets[0][0], stRow.ulModem == 0 ? 2 : 66);
        EXPECT_EQ(IdOf(packets[0]), stRow.usConfirm);
        packets = fixture.Tick(fixture.Now());
        ASSERT_EQ(packets.size(), 1U);
        EXPECT_EQ(IdOf(packets[0]), stRow.usIndication);
        EXPECT_EQ(LoadLe<uint32_t>(packets[0], 20) + 8, packets[0].size() - 16); // the length it tells
    }
}

TEST(UesimGuReports, CountsStayInTheirBoundsAndPayloadsFitOneFrame)
{
    const auto payload = [](uint16_t usIndication, unsigned int ulRound) {
        const auto pRow = std::ranges::find(GuReports(), usIndication, &GU_REPORT_ROW::usIndication);
        return pRow->pfnBuild(ulRound, {});
    };
    for (unsigned int n = 0; n < 200; ++n) {
        EXPECT_LT(LoadLe<uint16_t>(payload(0xE602, n), 0), 65);
        EXPECT_LT(LoadLe<uint16_t>(payload(0xE605, n), 8), 33);
        EXPECT_LT(LoadLe<uint16_t>(payload(0xE608, n), 0), 5);
        EXPECT_LT(LoadLe<uint16_t>(payload(0xA02E, n), 4 + 40), 7);
        EXPECT_LE(LoadLe<uint32_t>(payload(0xC006, n), 0), 11U);
        EXPECT_EQ(payload(0xB012, n).size(), 8U + 24U * LoadLe<uint16_t>(payload(0xB012, n), 6));
        EXPECT_EQ(payload(0xB018, n).size(), 4U + 20U * LoadLe<uint16_t>(payload(0xB018, n), 2));
        EXPECT_EQ(payload(0xB062, n).size(), 4U + 12U * LoadLe<uint16_t>(payload(0xB062, n), 2));
        for (const GU_REPORT_ROW& stRow : GuReports())
            EXPECT_LE(stRow.pfnBuild(n, {}).size(), CGuLine::MAX_PAYLOAD);
        for (const GU_TRACE_ROW& stRow : GuTraces())
            EXPECT_LE(stRow.pfnBuild(n, {}).size(), CGuLine::MAX_PAYLOAD);
    }
}

// -------------------------------------------------------------------------------------------------- registers

TEST(UesimRegisters, ListIsConfirmedInAscendingOrderAndStreamed)
{
    CGuFixture fixture;
    const auto ask = [&](uint16_t usId, const Bytes& params) { return fixture.Ask(Trans(usId, 110, params)); };
    auto packets = ask(0xF502, Join(Le(0U), Le(3U), Le(0x20B00008U), Le(0x20909070U), Le(0x20B00004U)));
    ASSERT_EQ(packets.size(), 1U);
    EXPECT_EQ(IdOf(packets[0]), 0xF504);
    EXPECT_EQ(PayloadOf(packets[0]), Join(Le(0U), Le(0U), Le(3U), Le(0x20909070U), Le(0x20B00004U), Le(0x20B00008U)));

    packets = fixture.Tick(fixture.Now());
    ASSERT_FALSE(packets.empty());
    EXPECT_EQ(IdOf(packets[0]), 0xF501);
    EXPECT_NE(LoadLe<uint32_t>(packets[0], 20), 122U); // list 0
    EXPECT_EQ(LoadLe<uint16_t>(packets[0], 50), 3U);
    // active, query word 0, HSUPA base
    EXPECT_EQ(Bytes(Slice(ByteView(packets[0]), 52)), Join(Le(1U), Le(0U), Le(0x20A00000U)));

    packets = ask(0xF503, Join(Le(0U), Le(1U), Le(0x20B00004U)));
    ASSERT_EQ(packets.size(), 1U);
    EXPECT_EQ(IdOf(packets[0]), 0xF505);
    EXPECT_EQ(PayloadOf(packets[0]), Join(Le(0U), Le(0U), Le(2U), Le(0x20909070U), Le(0x20B00008U)));
    packets = ask(0xF503, Join(Le(1U), Le(0U), Le(0U))); // a report of the other list
    EXPECT_EQ(PayloadOf(packets[0]), Join(Le(1U), Le(0U), Le(0U)));

    (void)fixture.Ask(Trans(0x3010, 110, Le(0U)));
    EXPECT_TRUE(fixture.Tick(fixture.Now() + std::chrono::seconds(1)).empty()) << "after a stop";
    packets = ask(0xF502, Join(Le(2U), Le(0U)));
    EXPECT_EQ(PayloadOf(packets[0]), Join(Le(2U), Le(2U), Le(0U))) << "no such list";
}

TEST(UesimRegisters, AListThatDoesNotFitIsRefused)
{
    CGuFixture fixture;
    Bytes addresses;
    for (uint32_t i = 0; i <= CRegisterBehaviour::MAX_LIST; ++i)
        addresses = Join(addresses, Le(0x20900000U + 4 * i));
    const Bytes request = Trans(0xF502, 110, Join(Le(0U), Le(static_cast<uint32_t>(addresses.size() / 4)), addresses));
    const auto packets = fixture.Ask(request);
    ASSERT_EQ(packets.size(), 1U);
    EXPECT_EQ(PayloadOf(packets[0]), Join(Le(0U), Le(1U), Le(0U)));
}

TEST(UesimRegisters, AddressesOfBothCarriersAndAllTtisAreKnown)
{
    const struct
    {
        uint32_t ulAddress;
        uint8_t ucCarrier;
        uint8_t ucIndex;
    } astCases[] = {
        {0x20909700, 0, 0},
        {0x209097CC, 0, 4},
        {0xFD929760, 1, 2},
        {0x50909708 + 0x30, 0, 1},
        {0x20906018 + 14 * 0x24, 0, 14},
        {0x2098601C, 1, 0},
        {0x20A0007C, 0, 0},
        {0x20A00254, 0, 0},
        {0x20A007F4, 0, 3},
        {0x20A00038 + 4 * 0x1E0, 0, 4},
    };
    for (const auto& stCase : astCases) {
        const auto stPlace = CRegisterModel::Find(stCase.ulAddress);
        EXPECT_NE(stPlace.ucRow, 0xFF) << std::hex << stCase.ulAddress;
        EXPECT_EQ(stPlace.ucCarrier, stCase.ucCarrier) << std::hex << stCase.ulAddress;
        EXPECT_EQ(stPlace.ucIndex, stCase.ucIndex) << std::hex << stCase.ulAddress;
    }
    EXPECT_EQ(CRegisterModel::Find(0x20909704 + 0xF0).ucRow, 0xFF); // a sixth subframe
    EXPECT_EQ(CRegisterModel().Value({}), 0U);
}

/// A block whose CRC failed comes again on its process with the same size and without the new data flag.
TEST(UesimRegisters, FailedBlocksAreSentAgain)
{
    CRegisterModel model;
    struct LAST
    {
        bool bSeen = false;
        bool bGood = false;
        uint32_t ulTbs = 0;
    };
    std::map<uint32_t, LAST> processes;
    int nRepeated = 0;
    for (int n = 0; n < 400; ++n) {
        model.Advance();
        for (uint32_t k = 0; k < 5; ++k) {
            const auto word = [&](uint32_t ulFirst) {
                return model.Value(CRegisterModel::Find(0x20900000 + ulFirst + 0x30 * k));
            };
            const uint32_t ulType = word(0x9700) >> 4 & 15;
            if (ulType != 6 && ulType != 7)
                continue;
            LAST& stLast = processes[word(0x9708) & 15];
            const bool bNew = (word(0x9708) >> 28 & 1) != 0;
            const uint32_t ulTbs = word(0x9704) & 0xFFFF;
            if (stLast.bSeen) {
                EXPECT_EQ(bNew, stLast.bGood);
                EXPECT_TRUE(bNew || ulTbs == stLast.ulTbs);
                nRepeated += bNew ? 0 : 1;
            }
            stLast = {true, (word(0x9700) >> 25 & 1) != 0, ulTbs};
        }
    }
    EXPECT_GT(nRepeated, 50);
}
