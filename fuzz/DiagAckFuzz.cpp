#include "LteInput.h"

#include "data/DpLteDiag.h"

// Packets on the LTE diag channel under any layout: they are sorted, read and filtered, and an NV write that waits
// for its item is applied to what the UE sends. What the client gets lies inside the packet.

namespace
{

void CheckFilter(CDataProcessorLteDiag& processor, ByteView packet)
{
    ADE_ACK_PACKET_STRU stAck;
    if (!CDataProcessorLteDiag::GetAdeAck(packet, stAck))
        return;
    Require(stAck.pData.size() == stAck.usLen && LiesIn(stAck.pData, packet));
    for (const uint16_t usType : std::initializer_list<uint16_t>{0x0210, 0x0205}) {
        DIAG_PACKET_ACK_VIEW stIn{{stAck.ulCmdId, 0, stAck.ullTimeStamp, usType, stAck.usLen}, stAck.pData};
        CDataProcessorLteDiag::CAcks out;
        unsigned int ulCount = 0;
        if (processor.AckFilter(stIn, out, ulCount) != DIAG_RC_OK)
            continue;
        Require(ulCount <= out.size());
        Require(stIn.data.size() == stIn.stHead.usLen && LiesIn(stIn.data, packet));
        for (unsigned int i = 0; i < ulCount; ++i)
            Require(out[i].data.size() == out[i].stHead.usLen && LiesIn(out[i].data, packet));
    }
}

void CheckRequest(ByteView packet)
{
    const DIAG_PACKET_REQ_VIEW stReq = ViewReq(packet);
    if (const CPacket packetOut = CDataProcessorLteDiag::BuildUeBuf(stReq, 5))
        Require(packetOut.size() == size_t{CConfig::Instance()->GetFilterCfg()->usReqHeaderLen} + stReq.stHead.usLen);
    else
        Require(stReq.stHead.usLen > 4076);
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const unsigned char* pucData, size_t szLen)
{
    CByteReader reader({pucData, szLen});
    ConfigureFrom(reader);
    CDataProcessorLteDiag processor(nullptr, nullptr);
    while (reader.Left() > 0) {
        CPacket packet = TakePacket(reader);
        CheckFilter(processor, packet.Bytes());
        CheckRequest(packet.Bytes());
        processor.ProcessClientData(packet.Bytes());
        processor.ProcessSerialData(packet.Bytes());
    }
    return 0;
}
