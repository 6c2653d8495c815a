#include "data/DiagPacket.h"
#include "data/LteLayout.h"
#include "support/TestBytes.h"

#include <gtest/gtest.h>

namespace
{
Bytes Built(const DIAG_PACKET_ACK_STRU& stAck, ByteView payload)
{
    const CPacket packet = BuildClientPacket(stAck, payload);
    return Bytes(packet.Bytes());
}
} // namespace

TEST(DiagPacket, AClientPacketIsLeadBytesHeadAndPayload)
{
    const DIAG_PACKET_ACK_STRU stAck{0x50000040, 43, 0x1122334455667788, 0x02F0, 999};
    EXPECT_EQ(Built(stAck, Hex("AA BB CC")), Hex("9F 9F"
                                                 "40 00 00 50"             // ulCmdId
                                                 "2B 00 00 00"             // ulRc
                                                 "88 77 66 55 44 33 22 11" // ullTimeStamp
                                                 "F0 02"                   // usPktType
                                                 "03 00"                   // usLen, that of the payload
                                                 "AA BB CC"));
    EXPECT_EQ(Built(stAck, {}).size(), 22u);
}

TEST(DiagPacket, APayloadThatTheLengthCannotTellIsCut)
{
    const Bytes packet = Built({}, Fill(65536, 7));
    EXPECT_EQ(packet.size(), 22u + 65535u);
    EXPECT_EQ(LoadLe<uint16_t>(packet, 20), 65535);
}

TEST(DiagPacket, ARequestIsReadWithItsParameters)
{
    const Bytes packet = Hex("17 53 01 10  10 A5  02 00  01 02 03");
    const DIAG_PACKET_REQ_VIEW stReq = ViewReq(packet);
    EXPECT_EQ(stReq.stHead.ulCmdId, 0x10015317u);
    EXPECT_EQ(stReq.stHead.usPktType, 0xA510);
    EXPECT_EQ(stReq.stHead.usLen, 2);
    EXPECT_EQ(Bytes(stReq.data), Hex("01 02"));
}

TEST(DiagPacket, AShortRequestReadsAsZeros)
{
    const DIAG_PACKET_REQ_VIEW stReq = ViewReq(Bytes{0x21});
    EXPECT_EQ(stReq.stHead.ulCmdId, 0x21u);
    EXPECT_EQ(stReq.stHead.usPktType, 0);
    EXPECT_EQ(stReq.stHead.usLen, 0);
    EXPECT_TRUE(stReq.data.empty());
}

TEST(DiagPacket, AnAckIsReadWithItsPayload)
{
    const Bytes packet = Hex("70 00 00 50  02 00 00 00  08 07 06 05 04 03 02 01  10 02  02 00  AA BB CC");
    const DIAG_PACKET_ACK_VIEW stAck = ViewAck(packet);
    EXPECT_EQ(stAck.stHead.ulCmdId, 0x50000070u);
    EXPECT_EQ(stAck.stHead.ulRc, 2u);
    EXPECT_EQ(stAck.stHead.ullTimeStamp, 0x0102030405060708u);
    EXPECT_EQ(stAck.stHead.usPktType, 0x0210);
    EXPECT_EQ(stAck.stHead.usLen, 2);
    EXPECT_EQ(Bytes(stAck.data), Hex("AA BB"));
}

TEST(DiagPacket, TheOsaHeaderHasFortyBytes)
{
    Bytes header = Fill(DIAG_OSA_HEADER::SIZE, 0xEE);
    CByteWriter writer(header);
    const DIAG_OSA_HEADER stOsa{0x0A0B, 0x0C0D, 0x1E, 0x12345678, 0x5503};
    OsaHead(writer, stOsa);
    EXPECT_EQ(header, Hex("00 00 00 00  0B 0A 00 00  00 00 00 00  0D 0C 00 00  1E 00 00 00  78 56 34 12"
                          "00 00 00 00  00 00 00 00  00 00 00 00  03 55 00 00"));
    EXPECT_TRUE(writer.Ok());
    EXPECT_EQ(writer.Left(), 0u);
}

TEST(DiagPacket, ManagerAcksAreToldByClassAndModule)
{
    const struct
    {
        unsigned int ulId;
        bool bMgr;
    } c_astId[] = {
        {0x10065000, true},  {0x10066000, true}, {0x10067000, true},  {0x10015503, false},
        {0x10165000, false}, {0x50000000, true}, {0x5FFFFFFF, true},  {0x20060000, false},
        {0x00060000, false}, {0x1F060000, true}, {0x10050000, false}, {0x10070000, false},
    };
    for (const auto& st : c_astId)
        EXPECT_EQ(IsMgrAckId(st.ulId), st.bMgr) << std::hex << st.ulId;
}
