#include "LteInput.h"

#include "data/DpLteData.h"
#include "data/LteLayout.h"

// Packets on the LTE data channel under any configuration: header, time stamp, filter and measurements. What goes to
// the client lies inside the packet or is a record of the output area.

namespace
{

/// A clock that moves on with each look at it.
timeval NextTime()
{
    static timeval s_stNow{};
    s_stNow.tv_usec += 70000;
    if (s_stNow.tv_usec >= 1000000)
        s_stNow = {s_stNow.tv_sec + 1, s_stNow.tv_usec - 1000000};
    return s_stNow;
}

bool IsRecordSize(size_t szLen)
{
    for (const size_t szRecord :
         {size_t{0}, LTE_MEAS_RECORD_SIZE, size_t{388}, size_t{516}, size_t{808}, size_t{1060}, MEAS_RECORD_MAX})
        if (szLen == szRecord)
            return true;
    return false;
}

void CheckFilter(ByteSpan packet, IND_OUTPUT& stOut, IDLE_MEAS_STORE& stStore)
{
    ADE_DATA_PACKET_STRU stPacket;
    if (DecodeDataPacket(*CConfig::Instance()->GetFilterCfg(), packet, stPacket) != DIAG_RC_OK)
        return;
    unsigned int ulCount = 0;
    const CMeasClock clock({}, &NextTime);
    if (VEX_ClientIndFilter(stPacket, ulCount, {stOut, stStore, clock, 0}) == DIAG_RC_FILTERED)
        return;
    Require(ulCount <= IND_OUTPUT::PACKETS_MAX);
    Require(stPacket.pData.size() == stPacket.usLen && LiesIn(stPacket.pData, packet));
    for (unsigned int i = 0; i < ulCount; ++i) {
        const ADE_DATA_PACKET_STRU& stPart = stOut.astPacket[i];
        Require(stPart.pData.size() == stPart.usLen && LiesIn(stPart.pData, stOut.aucRecord));
        Require(IsRecordSize(stPart.usLen));
    }
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const unsigned char* pucData, size_t szLen)
{
    CByteReader reader({pucData, szLen});
    ConfigureFrom(reader);
    CDataProcessorLteData processor(nullptr, nullptr);
    IND_OUTPUT stOut;
    IDLE_MEAS_STORE stStore;
    stStore.ulTimeoutMs = 200;
    while (reader.Left() > 0) {
        CPacket packet = TakePacket(reader);
        CPacket copy = CPacket::Copy(packet.Bytes()); // both rewrite their packet
        CheckFilter(packet.Bytes(), stOut, stStore);
        processor.ProcessSerialData(copy.Bytes());
    }
    return 0;
}
