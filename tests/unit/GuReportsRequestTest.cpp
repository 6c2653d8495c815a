#include "support/GuReports.h"

#include "data/gu/report/MsgDispTable.h"
#include "support/GuEvents.h"

#include <set>

// Every client packet of the processors, of both modems: request, what the UE is told, confirm, indication, report.

namespace
{
struct PACKET
{
    unsigned short usReq;
    unsigned short usCnf;
    unsigned short usRep;
    unsigned short usUeReq; // 0: trace
    unsigned short usUeInd;
    unsigned int aulPid[2];
    unsigned short usPeriod;
    unsigned short usBadPeriod;
    const char* pszStart; // parameters towards the UE
    const char* pszStop;
    size_t szPayload; // of the indication
    size_t szReport;
};
constexpr const char* START_GPHY = "01 00 00 00";
constexpr const char* START_GROUP_0 = "01 00 02 00 F4 01 00 00";
constexpr const char* STOP_GROUP_0 = "00 00 02 00 F4 01 00 00";
constexpr const char* START_GROUP_1 = "01 00 02 00 F4 01 01 00";
constexpr const char* STOP_GROUP_1 = "00 00 02 00 F4 01 01 00";
constexpr const char* START_GROUP_2 = "01 00 02 00 F4 01 02 00";
constexpr const char* STOP_GROUP_2 = "00 00 02 00 F4 01 02 00";
constexpr const char* ZERO = "00 00 00 00";

// clang-format off
constexpr PACKET PACKETS[] = {
    {0xE549, 0xE54A, 0xE54B, 0xD004, 0xD006, {130, 24}, 2000, 3000, "01 00 01 00", ZERO, 30, 12},
    {0xE579, 0xE57A, 0xE57B, 0xD004, 0xD006, {130, 24}, 5000, 1500, "01 00 01 00", ZERO, 30, 12},
    {0xE586, 0xE587, 0xE588, 0xD004, 0xD006, {130, 24}, 1000, 6000, "01 00 01 00", ZERO, 30, 8},
    {0xE52C, 0xE52D, 0xE52E, 0xE600, 0xE602, {517, 44}, 500,  750,  START_GPHY, ZERO, 4, 4},
    {0xE506, 0xE507, 0xE508, 0xE600, 0xE602, {517, 44}, 1000, 2500, START_GPHY, ZERO, 4, 4},
    {0xE529, 0xE52A, 0xE52B, 0xE603, 0xE605, {517, 44}, 1500, 0,    START_GPHY, ZERO, 12, 256},
    {0xE530, 0xE531, 0xE532, 0xE603, 0xE605, {517, 44}, 2000, 499,  START_GPHY, ZERO, 12, 16},
    {0xE589, 0xE58A, 0xE58B, 0xE606, 0xE608, {517, 44}, 500,  750,  START_GPHY, ZERO, 24, 4},
    {0xE58C, 0xE58D, 0xE58E, 0xE609, 0xE60B, {517, 44}, 500,  750,  START_GPHY, ZERO, 44, 4},
    {0xE593, 0xE594, 0xE595, 0xE60C, 0xE60E, {517, 44}, 500,  750,  START_GPHY, ZERO, 128, 96},
    {0xE590, 0xE591, 0xE592, 0xE60C, 0xE60E, {517, 44}, 500,  750,  START_GPHY, ZERO, 128, 96},
    {0xE503, 0xE504, 0xE505, 0xE60F, 0xE611, {517, 44}, 500,  750,  START_GPHY, ZERO, 16, 8},
    {0xE509, 0xE50A, 0xE50B, 0xE612, 0xE614, {517, 44}, 500,  750,  START_GPHY, ZERO, 16, 8},
    {0xE50C, 0xE50D, 0xE50E, 0xE615, 0xE617, {517, 44}, 500,  750,  START_GPHY, ZERO, 4, 4},
    {0xE500, 0xE501, 0xE502, 0xA02C, 0xA02E, {128, 28}, 500,  750,  START_GROUP_0, STOP_GROUP_0, 24, 32},
    {0xE536, 0xE537, 0xE538, 0xA02C, 0xA02E, {128, 28}, 1000, 2500, START_GROUP_0, STOP_GROUP_0, 24, 24},
    {0xE526, 0xE527, 0xE528, 0xA02C, 0xA02E, {128, 28}, 1500, 0,    START_GROUP_0, STOP_GROUP_0, 24, 16},
    {0xE533, 0xE534, 0xE535, 0xA02C, 0xA02E, {128, 28}, 2000, 499,  START_GROUP_0, STOP_GROUP_0, 24, 4},
    {0xE51D, 0xE51E, 0xE51F, 0xA02C, 0xA02E, {128, 28}, 500,  750,  START_GROUP_1, STOP_GROUP_1, 24, 8},
    {0xE520, 0xE521, 0xE522, 0xA02C, 0xA02E, {128, 28}, 500,  750,  START_GROUP_1, STOP_GROUP_1, 24, 12},
    {0xE523, 0xE524, 0xE525, 0xA02C, 0xA02E, {128, 28}, 500,  750,  START_GROUP_1, STOP_GROUP_1, 24, 20},
    {0xE543, 0xE544, 0xE545, 0xA02C, 0xA02E, {128, 28}, 500,  750,  START_GROUP_1, STOP_GROUP_1, 24, 8},
    {0xE510, 0xE511, 0xE512, 0xA02C, 0xA02E, {128, 28}, 500,  750,  START_GROUP_1, STOP_GROUP_1, 24, 36},
    {0xE513, 0xE514, 0xE515, 0xA02C, 0xA02E, {128, 28}, 500,  750,  START_GROUP_2, STOP_GROUP_2, 24, 20},
    {0xE519, 0xE51B, 0xE51C, 0xA02C, 0xA02E, {128, 28}, 500,  750,  START_GROUP_2, STOP_GROUP_2, 24, 136},
    {0xE57C, 0xE57D, 0xE57E, 0,      0x7502, {130, 24}, 500,  750,  "", "", 30, 304},
    {0xE516, 0xE517, 0xE518, 0,      0x1017, {131, 26}, 60000, 30000, "", "", 30, 4},
    {0xE55C, 0xE55D, 0xE55E, 0,      0x1013, {131, 26}, 500,  750,  "", "", 30, 8},
    {0xE55C, 0xE55D, 0xE55E, 0,      0x1016, {131, 26}, 500,  750,  "", "", 30, 8},
    {0xE559, 0xE55A, 0xE55B, 0,      0x1012, {131, 26}, 2500, 0,    "", "", 30, 8},
    {0xE559, 0xE55A, 0xE55B, 0,      0x1015, {131, 26}, 500,  750,  "", "", 30, 8},
    {0xE556, 0xE557, 0xE558, 0,      0x1113, {132, 27}, 500,  750,  "", "", 30, 8},
    {0xE556, 0xE557, 0xE558, 0,      0x1111, {132, 27}, 500,  750,  "", "", 30, 8},
    {0xE553, 0xE554, 0xE555, 0,      0x1112, {132, 27}, 500,  750,  "", "", 30, 8},
    {0xE553, 0xE554, 0xE555, 0,      0x1110, {132, 27}, 500,  750,  "", "", 30, 8},
    {0xE563, 0xE564, 0xE565, 0,      0x1030, {130, 24}, 500,  750,  "", "", 30, 8},
    {0xE563, 0xE564, 0xE565, 0,      0x1122, {130, 24}, 500,  750,  "", "", 30, 8},
    {0xE560, 0xE561, 0xE562, 0,      0x1120, {130, 24}, 500,  750,  "", "", 30, 8},
    {0xE560, 0xE561, 0xE562, 0,      0x1121, {130, 24}, 500,  750,  "", "", 30, 8},
};
// clang-format on

using Sent = std::vector<Bytes>;

bool IsTrace(const PACKET& stPacket)
{
    return stPacket.usUeReq == 0;
}
bool IsGas(const PACKET& stPacket)
{
    return stPacket.usUeReq == 0xA02C;
}
unsigned char TypeOf(const PACKET& stPacket)
{
    return IsTrace(stPacket) ? 81 : 84;
}
unsigned short Id(unsigned short usId, unsigned int ulModem)
{
    return static_cast<unsigned short>(usId + ulModem * 0x100);
}

class GuRequests : public GuReports
{
protected:
    void ExpectConfirm(const PACKET& stPacket, unsigned int ulModem, unsigned int ulRc, unsigned long long ullStamp)
    {
        const auto packets = gu.Confirms();
        ASSERT_EQ(packets.size(), 1U);
        const auto usType = static_cast<unsigned short>(0x0100 | TypeOf(stPacket));
        ExpectPacket(packets[0],
                     {unsigned{usType} << 16 | Id(stPacket.usCnf, ulModem), ulRc, ullStamp, usType, Le(ulRc)});
    }
    /// The confirm of what was done. The road test answers like for an error, with the result 0.
    void ExpectDone(const PACKET& stPacket, unsigned int ulModem)
    {
        ExpectConfirm(stPacket, ulModem, 0, IsGas(stPacket) ? 0 : 0xFFFFFFFF);
    }
    Sent Request(const PACKET& stPacket, unsigned int ulModem, const Bytes& params)
    {
        gu.Request(Id(stPacket.usReq, ulModem), TypeOf(stPacket), params);
        return gu.ToUe();
    }
    static Sent ToldUe(const PACKET& stPacket, unsigned int ulModem, bool bStart)
    {
        const unsigned int ulPid = stPacket.aulPid[ulModem];
        if (!IsTrace(stPacket))
            return {TransReq(stPacket.usUeReq, ulPid, Hex(bStart ? stPacket.pszStart : stPacket.pszStop))};
        Sent sent{bStart ? TraceSwitch({ulPid}) : TraceSwitch({})};
        if (stPacket.usReq == 0xE57C) // keeps the maintenance information running
            sent.insert(sent.begin(), TransReq(0xD004, ulPid, Hex(bStart ? "01 00 01 00" : ZERO)));
        return sent;
    }
    void FromUe(const PACKET& stPacket, unsigned int ulModem)
    {
        ulNowMs += 60000;
        Bytes payload = Fill(stPacket.szPayload);
        if (IsGas(stPacket))
            payload[2] = static_cast<unsigned char>(Hex(stPacket.pszStart)[6]);
        if (IsTrace(stPacket))
            Trace(stPacket.usUeInd, payload, ulModem);
        else
            Ind(stPacket.usUeInd, payload, ulModem);
    }
};
} // namespace

TEST_F(GuRequests, EveryPacketOfBothModems)
{
    for (const PACKET& stPacket : PACKETS)
        for (unsigned int ulModem = 0; ulModem < 2; ++ulModem) {
            SCOPED_TRACE(testing::Message() << std::hex << stPacket.usReq << " modem " << ulModem);
            FromUe(stPacket, ulModem);
            EXPECT_TRUE(NoReport()) << "nobody asked";
            EXPECT_EQ(Request(stPacket, ulModem, Join(Hex("01 00"), W(stPacket.usPeriod))),
                      ToldUe(stPacket, ulModem, true));
            ExpectDone(stPacket, ulModem);
            FromUe(stPacket, 1 - ulModem);
            EXPECT_TRUE(NoReport()) << "the other modem's";
            FromUe(stPacket, ulModem);
            EXPECT_EQ(Report(Id(stPacket.usRep, ulModem), TypeOf(stPacket)).size(), stPacket.szReport);
            EXPECT_EQ(Request(stPacket, ulModem, Fill(4)), ToldUe(stPacket, ulModem, false));
            ExpectDone(stPacket, ulModem);
            FromUe(stPacket, ulModem);
            EXPECT_TRUE(NoReport()) << "stopped";
        }
}

// The road test answers the client and then asks the UE, all others the other way round.
TEST_F(GuRequests, OrderOfConfirmAndUeRequest)
{
    CGuEvents events(gu);
    for (const PACKET& stPacket : PACKETS)
        for (unsigned int ulModem = 0; ulModem < 2; ++ulModem)
            for (const bool bStart : {true, false}) {
                SCOPED_TRACE(testing::Message() << std::hex << stPacket.usReq << " modem " << ulModem << " " << bStart);
                const GuEvent confirm{GuEvent::CLIENT,
                                      0x01000000U | unsigned{TypeOf(stPacket)} << 16 | Id(stPacket.usCnf, ulModem)};
                const GuEvent request{GuEvent::UE, IsTrace(stPacket) ? 0x8101U : stPacket.usUeReq};
                auto expected = IsGas(stPacket) ? std::vector{confirm, request} : std::vector{request, confirm};
                if (stPacket.usReq == 0xE57C) // keeps the maintenance information running
                    expected.insert(expected.begin(), {GuEvent::UE, 0xD004});
                gu.Request(Id(stPacket.usReq, ulModem), TypeOf(stPacket),
                           bStart ? Join(Hex("01 00"), W(stPacket.usPeriod)) : Fill(4));
                EXPECT_EQ(events.Take(), expected);
            }
}

TEST_F(GuRequests, BadPeriodsAndSwitches)
{
    for (const PACKET& stPacket : PACKETS)
        for (unsigned int ulModem = 0; ulModem < 2; ++ulModem)
            for (const bool bBadSwitch : {false, true}) {
                SCOPED_TRACE(testing::Message() << std::hex << stPacket.usReq << " modem " << ulModem);
                const Bytes params =
                    bBadSwitch ? Join(Hex("02 00"), W(stPacket.usPeriod)) : Join(Hex("01 00"), W(stPacket.usBadPeriod));
                const Sent sent = Request(stPacket, ulModem, params);
                if (stPacket.usReq != 0xE57C) {
                    EXPECT_TRUE(sent.empty());
                }
                ExpectConfirm(stPacket, ulModem, IsGas(stPacket) ? 1 : 2, 0);
                FromUe(stPacket, ulModem);
                EXPECT_TRUE(NoReport());
            }
}

TEST_F(GuRequests, ABadStartLeavesTheRunningReport)
{
    for (const PACKET& stPacket : PACKETS) {
        SCOPED_TRACE(stPacket.usReq);
        (void)Request(stPacket, 0, Join(Hex("01 00"), W(stPacket.usPeriod)));
        (void)Request(stPacket, 0, Join(Hex("01 00"), W(stPacket.usBadPeriod)));
        FromUe(stPacket, 0);
        EXPECT_EQ(gu.Indications().size(), 1U);
        (void)Request(stPacket, 0, Fill(4));
    }
}

TEST_F(GuRequests, ARunningPacketIsStartedAgain)
{
    for (const PACKET& stPacket : PACKETS) {
        SCOPED_TRACE(testing::Message() << std::hex << stPacket.usReq);
        const Bytes start = Join(Hex("01 00"), W(stPacket.usPeriod));
        (void)Request(stPacket, 0, start);
        const Sent again = Request(stPacket, 0, start);
        EXPECT_EQ(again, ToldUe(stPacket, 0, true)) << "the UE is told again";
        EXPECT_EQ(gu.Confirms().size(), 2U);
        const Sent stopped = Request(stPacket, 0, Fill(4));
        if (IsTrace(stPacket)) // each start counts
            EXPECT_EQ(stopped.back(), TraceSwitch({stPacket.aulPid[0]}));
        else if (IsGas(stPacket)) // here too
            EXPECT_EQ(stopped, Sent{});
        else
            EXPECT_EQ(stopped, ToldUe(stPacket, 0, false));
        if (IsTrace(stPacket) || IsGas(stPacket))
            (void)Request(stPacket, 0, Fill(4));
        (void)gu.Confirms();
    }
}

TEST_F(GuRequests, TwoPacketsOfAPhysicalLayerProcessor)
{
    const struct
    {
        unsigned short usFirst;
        unsigned short usSecond;
        unsigned short usUeReq;
    } astCase[] = {{0xE52C, 0xE506, 0xE600}, {0xE529, 0xE530, 0xE603}, {0xE593, 0xE590, 0xE60C}};
    for (const auto& stCase : astCase)
        for (unsigned int ulModem = 0; ulModem < 2; ++ulModem) {
            SCOPED_TRACE(stCase.usFirst);
            const unsigned int ulPid = ulModem == 0 ? 517 : 44;
            const auto Send = [&](unsigned short usReq, const char* pszParams) {
                gu.Request(Id(usReq, ulModem), 84, Hex(pszParams));
                return gu.ToUe();
            };
            EXPECT_EQ(Send(stCase.usFirst, "01 77 E8 03 99"), Sent{TransReq(stCase.usUeReq, ulPid, Hex(START_GPHY))})
                << "four bytes, whatever the client gave";
            EXPECT_EQ(Send(stCase.usSecond, "01 00 D0 07"), Sent{TransReq(stCase.usUeReq, ulPid, Hex(START_GPHY))});
            EXPECT_EQ(Send(stCase.usFirst, "00 77 E8 03 99"), Sent{}) << "the second still runs";
            EXPECT_EQ(Send(stCase.usSecond, "00 77 D0 07"), Sent{TransReq(stCase.usUeReq, ulPid, Hex(ZERO))});
            EXPECT_EQ(Send(stCase.usSecond, "00"), Sent{TransReq(stCase.usUeReq, ulPid, Hex(ZERO))})
                << "a stop of what is stopped is sent";
            EXPECT_EQ(gu.Confirms().size(), 5U);
        }
}

TEST_F(GuRequests, TheTableHoldsEveryPacket)
{
    std::set<unsigned short> expected{0xE546, 0xE550, 0xE569, 0xE583, 0xE570, 0xE573}; // those of the NAS
    for (const PACKET& stPacket : PACKETS)
        expected.insert(stPacket.usReq);
    std::set<unsigned short> found;
    for (const unsigned int ulKind : {MSG_DISP_TRANS, MSG_DISP_TRACE})
        for (const MSG_PROCESS_ROW& stRow : MsgProcessTable(ulKind))
            for (const MSG_PACKET_ROW& stPacket : stRow.astPacket)
                if (stPacket.usReq != NO_ID) {
                    EXPECT_TRUE(found.insert(stPacket.usReq).second) << stPacket.usReq;
                }
    EXPECT_EQ(found, expected);
}

TEST(GuRequestsSingleCard, TheSecondModemIsRefused)
{
    CGuFixture gu("CEDAR-03");
    for (const PACKET& stPacket : PACKETS) {
        SCOPED_TRACE(stPacket.usReq);
        gu.Request(Id(stPacket.usReq, 1), TypeOf(stPacket), Join(Hex("01 00"), W(stPacket.usPeriod)));
        EXPECT_TRUE(gu.ToUe().empty());
        const auto packets = gu.Confirms();
        ASSERT_EQ(packets.size(), 1U);
        const auto usType = static_cast<unsigned short>(0x0100 | TypeOf(stPacket));
        ExpectPacket(packets[0], {unsigned{usType} << 16 | Id(stPacket.usCnf, 1), 47, 0, usType, Le(47U)});
    }
}
