#include "common/Config.h"
#include "data/gu/OperationGUData.h"

// GU packets from a UE whose version has come and of which every report runs. The input is a byte that chooses the
// version class, then for each packet a u16 length and its bytes.

namespace
{
/// The UE tells its version, and that it has two cards.
void SendVersion(COperationGUData& operation, bool bKnown)
{
    std::vector<unsigned char> packet(200);
    packet[GU_CATEGORY] = GU_CATEGORY_QUERY;
    StoreLe<uint16_t>(packet, GU_PACKET_LEN, 196);
    StoreLe<uint16_t>(packet, GU_QUERY_MSG_ID, 0x8082);
    StoreText(Slice(ByteSpan(packet), 109), bKnown ? "CEDAR-03" : "TEAK-11");
    (void)operation.TranslateUEPacket(packet);
    static constexpr unsigned char DUAL_CARD[12] = {GU_CATEGORY_QUERY, 0, 8, 0, 0x12, 0x82, 0, 0, 2};
    (void)operation.TranslateUEPacket(DUAL_CARD);
}

/// A request of a client for a packet, its period in range for the reports that have one.
void Request(COperationGUData& operation, unsigned short usId, unsigned char ucType, unsigned short usPeriod)
{
    unsigned char aucReq[12] = {};
    StoreLe<uint32_t>(aucReq, 0, usId);
    StoreLe<uint16_t>(aucReq, 4, ucType);
    StoreLe<uint16_t>(aucReq, 6, 4);
    aucReq[8] = 1;
    aucReq[9] = 2;
    StoreLe<uint16_t>(aucReq, 10, usPeriod);
    (void)operation.TranslateProbePacket(aucReq, nullptr, nullptr);
}

/// The packets that have a processor.
std::vector<unsigned short> ProcessorPackets()
{
    const COperationGUData operation;
    std::vector<unsigned short> ids;
    for (unsigned short usId = 0xE500; usId < 0xE700; ++usId)
        if (operation.GetTransMsgDisp()->GetProcessorByPacketId(usId) ||
            operation.GetTraceMsgDisp()->GetProcessorByPacketId(usId))
            ids.push_back(usId);
    return ids;
}

void StartReports(COperationGUData& operation)
{
    static constexpr unsigned short OWN[] = {0xB010, 0xB016, 0xB060, 0xF539, 0xF53C, 0xF53F, 0xF542, 0xF518, 0xF51B};
    static const std::vector<unsigned short> s_packets = ProcessorPackets();
    for (const unsigned short usId : OWN)
        Request(operation, usId, 84, 1000);
    for (const unsigned short usId : s_packets) {
        Request(operation, usId, 84, 1000);
        Request(operation, usId, 81, 60000); // a multiple of every minimum
    }
    static constexpr unsigned char aucBler[12] = {0x20, 0xF0, 0, 0, 84, 0, 4, 0, 3, 0, 0xF4, 1};
    (void)operation.TranslateProbePacket(aucBler, nullptr, nullptr);
}
} // namespace

extern "C" int LLVMFuzzerTestOneInput(const unsigned char* pucData, size_t szSize)
{
    static const bool s_bSilent = [] {
        std::string strLine = "debuglevel=0"; // nobody reads the log's queue here
        return CConfig::Instance()->ParseLine(strLine);
    }();
    (void)s_bSilent;
    CByteReader input(ByteView(pucData, szSize));
    unsigned char ucKnown = 0;
    input.Field(ucKnown);
    COperationGUData operation;
    SendVersion(operation, ucKnown % 2 == 0);
    StartReports(operation);
    while (input.Left() > 0) {
        unsigned short usLen = 0;
        input.Field(usLen);
        const ByteView taken = input.Take(usLen % 5000);
        const std::vector<unsigned char> packet(taken.begin(), taken.end());
        (void)operation.TranslateUEPacket(packet); // the result is for logs
        operation.TimerProc();
    }
    return 0;
}
