#include "support/GuReports.h"

#include <atomic>
#include <map>
#include <random>
#include <thread>

namespace
{
/// Lengths that a report may have: a base, or with so many entries more.
struct LENGTHS
{
    unsigned short usReport; // of modem 0
    size_t szBase;
    size_t szEntry;
    size_t szMax;
};
constexpr LENGTHS LENGTHS_OF[] = {
    {0xE54B, 12, 0, 0},  {0xE57B, 12, 0, 0}, {0xE588, 8, 0, 0},  {0xE52E, 4, 8, 64}, {0xE508, 4, 0, 0},
    {0xE52B, 256, 0, 0}, {0xE532, 16, 0, 0}, {0xE58B, 4, 16, 4}, {0xE58E, 4, 12, 4}, {0xE595, 96, 0, 0},
    {0xE592, 96, 0, 0},  {0xE505, 8, 0, 0},  {0xE50B, 8, 0, 0},  {0xE50E, 4, 0, 0},  {0xE502, 32, 0, 0},
    {0xE538, 24, 16, 6}, {0xE528, 16, 0, 0}, {0xE535, 4, 0, 0},  {0xE51F, 8, 0, 0},  {0xE522, 12, 0, 0},
    {0xE525, 20, 0, 0},  {0xE545, 8, 0, 0},  {0xE512, 36, 0, 0}, {0xE515, 20, 0, 0}, {0xE51C, 136, 0, 0},
    {0xE57E, 304, 0, 0}, {0xE518, 4, 0, 0},  {0xE55E, 8, 0, 0},  {0xE55B, 8, 0, 0},  {0xE558, 8, 0, 0},
    {0xE555, 8, 0, 0},   {0xE565, 8, 0, 0},  {0xE562, 8, 0, 0},
};
bool IsLength(const LENGTHS& stLengths, size_t szLen)
{
    for (size_t i = 0; i <= stLengths.szMax; ++i)
        if (szLen == stLengths.szBase + i * stLengths.szEntry)
            return true;
    return false;
}
bool IsTrace(unsigned short usReport)
{
    return usReport == 0xE518 || (usReport >= 0xE555 && usReport <= 0xE565) || usReport == 0xE57E;
}
constexpr unsigned short TRANS_IDS[] = {0xD006, 0xD006, 0xE602, 0xE605, 0xE608, 0xE60B, 0xE60E, 0xE611,
                                        0xE614, 0xE617, 0xA02E, 0xA02E, 0xA02E, 0xE601, 0xD005, 0xA02D};
constexpr unsigned short TRACE_IDS[] = {0x7502, 0x7502, 0x1017, 0x1013, 0x1016, 0x1012, 0x1015, 0x1113,
                                        0x1111, 0x1112, 0x1110, 0x1030, 0x1122, 0x1120, 0x1121};

class GuReportsProperty : public GuReports
{
protected:
    void StartAll()
    {
        for (const LENGTHS& stLengths : LENGTHS_OF)
            for (unsigned int ulModem = 0; ulModem < 2; ++ulModem) {
                const auto usReq =
                    static_cast<unsigned short>(stLengths.usReport == 0xE51C ? 0xE519 : stLengths.usReport - 2);
                const unsigned short usPeriod = stLengths.usReport == 0xE518 ? 60000 : 1000;
                Start(static_cast<unsigned short>(usReq + ulModem * 0x100), usPeriod,
                      IsTrace(stLengths.usReport) ? 81 : 84);
            }
    }
    /// In a block of just its size, so that the address sanitizer sees a read beyond it.
    std::vector<unsigned char> RandomPacket(unsigned short usId, bool bTrace)
    {
        static constexpr size_t LENS[] = {0, 1, 3, 12, 17, 20, 26, 60, 130, 300, 700, 1300, 1900};
        std::vector<unsigned char> packet(LENS[Draw(std::size(LENS))] + Draw(20));
        for (auto& ucByte : packet)
            ucByte = static_cast<unsigned char>(Draw(3) == 0 ? 0 : Draw(256));
        for (const size_t szCount : {16U, 18U, 24U, 38U, 60U}) // where counts and kinds stand
            if (Draw(2) == 0)
                StoreLe<uint16_t>(packet, szCount, static_cast<uint16_t>(Draw(70)));
        if (Draw(2) == 0)
            StoreLe<uint16_t>(packet, 18, static_cast<uint16_t>(Draw(4)));
        StoreLe<uint16_t>(packet, GU_PACKET_LEN, static_cast<uint16_t>(packet.size() - 4));
        StoreLe<uint32_t>(packet, GU_TIME_STAMP, NextStamp());
        StoreLe<uint16_t>(packet, GU_MSG_ID, usId);
        if (bTrace)
            StoreLe<uint16_t>(packet, GU_TRACE_MSG_NAME, usId);
        packet.shrink_to_fit();
        return packet;
    }
    size_t Draw(size_t szBelow) { return m_random() % szBelow; }

private:
    std::mt19937 m_random{20240607};
};
} // namespace

TEST_F(GuReportsProperty, RandomIndicationsGiveReportsOfTheirLength)
{
    std::map<unsigned short, const LENGTHS*> lengths;
    for (const LENGTHS& stLengths : LENGTHS_OF)
        lengths[stLengths.usReport] = &stLengths;
    StartAll();
    std::map<unsigned short, size_t> seen;
    for (int i = 0; i < 6000; ++i) {
        const bool bTrace = Draw(2) == 0;
        const unsigned short usId =
            bTrace ? TRACE_IDS[Draw(std::size(TRACE_IDS))] : TRANS_IDS[Draw(std::size(TRANS_IDS))];
        const unsigned int ulModem = static_cast<unsigned int>(Draw(2));
        CMsgDisp& disp = bTrace ? *gu.Operation().GetTraceMsgDisp() : *gu.Operation().GetTransMsgDisp();
        const auto packet = RandomPacket(usId, bTrace);
        (void)disp.Process(packet, ulModem << 16 | usId);
        for (const ClientPacket& report : gu.Indications()) {
            const auto usReport = static_cast<unsigned short>(report.stHead.ulCmdId - ulModem * 0x100);
            ASSERT_TRUE(lengths.contains(usReport)) << std::hex << report.stHead.ulCmdId;
            EXPECT_TRUE(IsLength(*lengths[usReport], report.payload.size()))
                << std::hex << usReport << std::dec << " of " << report.payload.size();
            ++seen[usReport];
        }
    }
    EXPECT_EQ(seen.size(), std::size(LENGTHS_OF)) << "every report has come";
}

TEST_F(GuReportsProperty, RequestsAndIndicationsInTwoThreads)
{
    StartAll();
    std::atomic<bool> bEnd = false;
    std::thread ue([&] {
        while (!bEnd)
            for (const bool bTrace : {false, true}) {
                const unsigned short usId =
                    bTrace ? TRACE_IDS[Draw(std::size(TRACE_IDS))] : TRANS_IDS[Draw(std::size(TRANS_IDS))];
                CMsgDisp& disp = bTrace ? *gu.Operation().GetTraceMsgDisp() : *gu.Operation().GetTransMsgDisp();
                const auto packet = RandomPacket(usId, bTrace);
                (void)disp.Process(packet, usId);
                (void)gu.Data().Pending();
            }
    });
    for (int i = 0; i < 40; ++i)
        for (const unsigned short usReq :
             Words{0xE57C, 0xE560, 0xE516, 0xE549, 0xE586, 0xE52C, 0xE506, 0xE500, 0xE519}) {
            const unsigned char ucType = IsTrace(static_cast<unsigned short>(usReq + 2)) ? 81 : 84;
            gu.Request(usReq, ucType, i % 2 == 0 ? Fill(4) : Join(Hex("01 00"), W(usReq == 0xE516 ? 60000 : 1000)));
            (void)gu.ToUe();
            (void)gu.Cmd().Pending();
        }
    bEnd = true;
    ue.join();
    (void)gu.Data().Pending();
    Ind(0xE617, Hex("07 00 00 00"));
    EXPECT_EQ(Report(0xE50E), Le(7U)) << "what nobody touched still runs";
}
