#include "data/gu/GUDataProcess.h"

#include "data/gu/base/GuPacket.h"

#include <algorithm>

// A frame from OM_FRAME_START on: the mark, the length field (payload + 4), the segment bytes, the payload padded to
// a multiple of 4, the end mark. The length field counts from the segment bytes' end less 4, so with its value padded
// the end mark stands at that value plus 4 and the frame has that value plus 8 bytes.

namespace
{
constexpr size_t MARK_LEN = 4;
constexpr unsigned char DATA_TYPE_OM = 1; // byte ahead of a frame towards the UE

// Offsets from OM_FRAME_START.
constexpr size_t FRAME_LENGTH = 4; // u16
constexpr size_t FRAME_INDEX = 7;  // u8, number of the segment from 1
constexpr size_t FRAME_PAYLOAD = 8;
constexpr size_t LENGTH_EXTRA = 4;   // what the length field counts beside the payload
constexpr size_t FRAME_OVERHEAD = 8; // bytes of a frame beside its padded length field
constexpr size_t MAX_FRAME = OM_MAX_LENGTH + FRAME_OVERHEAD;
constexpr size_t ENCAP_OVERHEAD = 13; // bytes of a frame towards the UE beside its padded payload

constexpr size_t GAP_TIME_SSID = FRAME_LEAD_TIME_SSID - 1; // head between two frames
constexpr size_t GAP_RTC_CPUID = FRAME_LEAD_RTC_CPUID - 1;
constexpr size_t SSID_AHEAD_TIME_SSID = 14; // where the head holds the SSID, ahead of OM_FRAME_START
constexpr size_t SSID_AHEAD_RTC_CPUID = 8;
constexpr unsigned char SSID_MAX = 11; // a greater one is none

constexpr size_t Padded(size_t szLen)
{
    return (szLen + 3) & ~size_t{3};
}

bool StartsFrame(ByteView data)
{
    return LoadLe<uint32_t>(data, 0) == OM_FRAME_START;
}

/// Offset of the first OM_FRAME_START, or the size of the data when there is none.
size_t FindFrame(ByteView data)
{
    static constexpr unsigned char MARK[MARK_LEN] = {0x55, 0x55, 0xAA, 0xAA};
    return static_cast<size_t>(std::search(data.begin(), data.end(), std::begin(MARK), std::end(MARK)) - data.begin());
}

/// The SSID byte szAhead bytes in front of the frame at szFrame; -1 when that lies outside the data.
int HeadSsid(ByteView data, size_t szFrame, size_t szAhead)
{
    return szFrame >= szAhead ? data[szFrame - szAhead] : -1;
}

int GetTimeSsid(ByteView data, size_t szFrame)
{
    return HeadSsid(data, szFrame, SSID_AHEAD_TIME_SSID);
}
int GetRtcCpuid(ByteView data, size_t szFrame)
{
    return HeadSsid(data, szFrame, SSID_AHEAD_RTC_CPUID);
}

int SsidOfMode(ByteView data, size_t szFrame, unsigned int ulMode)
{
    if (ulMode == FRAME_MODE_TIME_SSID)
        return GetTimeSsid(data, szFrame);
    return ulMode == FRAME_MODE_RTC_CPUID ? GetRtcCpuid(data, szFrame) : -1;
}

/// Bytes between two frames.
size_t GapOfMode(unsigned int ulMode)
{
    if (ulMode == FRAME_MODE_TIME_SSID)
        return GAP_TIME_SSID;
    return ulMode == FRAME_MODE_RTC_CPUID ? GAP_RTC_CPUID : 0;
}

/// Writes the head's SSID over byte 1 of the payload of a packet's first segment, so that all that follow read it
/// from the packet. 2 means 0; without a valid SSID the packet keeps its own.
void RepairSsid(ByteSpan frame, unsigned short usLength, int iSsid)
{
    if (iSsid < 0 || iSsid > SSID_MAX || LoadLe<uint8_t>(frame, FRAME_INDEX) != 1)
        return;
    const size_t szPayload = std::max<size_t>(usLength, LENGTH_EXTRA) - LENGTH_EXTRA;
    const ByteSpan payload = Slice(frame, FRAME_PAYLOAD, szPayload);
    StoreLe<uint8_t>(payload, GU_SSID, static_cast<uint8_t>(iSsid == 2 ? 0 : iSsid));
}
} // namespace

CGUDataProcess::CGUDataProcess()
{
    OM_InitDecap();
}

void CGUDataProcess::OM_InitDecap()
{
    m_pucRemain.reserve(MAX_FRAME);
    ClearRemain();
}

CPacket CGUDataProcess::OM_UsbFrameEncap(ByteView data, unsigned char ucTotal, unsigned char ucIndex)
{
    if (data.empty() || data.size() > UINT16_MAX - LENGTH_EXTRA)
        return {};
    CPacket frame = CPacket::Allocate(Padded(data.size()) + ENCAP_OVERHEAD);
    CByteWriter writer(frame.Bytes());
    writer.Field(DATA_TYPE_OM);
    writer.Field(OM_FRAME_START);
    writer.Field(static_cast<uint16_t>(data.size() + LENGTH_EXTRA));
    writer.Field(ucTotal);
    writer.Field(ucIndex);
    writer.Bytes(data);
    writer.Gap(Padded(data.size()) - data.size());
    writer.Field(OM_FRAME_END);
    return frame;
}

bool CGUDataProcess::OM_UsbFrameDecap(ByteSpan data, size_t szStart, unsigned int ulMode)
{
    szStart = std::min(szStart, data.size());
    if ((data.size() - szStart) % 4 != 0) {
        ClearRemain();
        return false;
    }
    if (m_usRemainLen > 0) {
        size_t szConsumed = 0;
        if (OM_HandleRemain(data.subspan(szStart), szConsumed, ulMode))
            return false;
        szStart += szConsumed;
        if (szStart == data.size())
            return true;
    }
    const size_t szSkip = FindFrame(data.subspan(szStart));
    if (szStart + szSkip == data.size())
        return false;
    return OM_UsbDecapStep2(data, szStart + szSkip, ulMode);
}

/// Completes the held frame with the start of a block. True when it is still incomplete; the block is in it then.
bool CGUDataProcess::OM_HandleRemain(ByteView block, size_t& szConsumed, unsigned int ulMode)
{
    szConsumed = 0;
    if (m_usRemainFrameLen == 0 && !TakeLengthField(block)) {
        ClearRemain();
        return false;
    }
    const size_t szPadded = Padded(m_usRemainFrameLen);
    if (szPadded + FRAME_OVERHEAD > m_usRemainLen + block.size()) {
        m_pucRemain.insert(m_pucRemain.end(), block.begin(), block.end());
        m_usRemainLen = static_cast<unsigned short>(m_pucRemain.size());
        return true;
    }
    // An end mark of which a part is held already counts as missing: it isn't in the block.
    const size_t szEnd = szPadded + MARK_LEN;
    if (szEnd >= m_usRemainLen && LoadLe<uint32_t>(block, szEnd - m_usRemainLen) == OM_FRAME_END) {
        szConsumed = szEnd - m_usRemainLen + MARK_LEN;
        CompleteRemain(Slice(block, 0, szEnd - m_usRemainLen), ulMode);
    }
    ClearRemain();
    return false;
}

/// The length field of a frame of which only the mark is held, from the start of the next block.
bool CGUDataProcess::TakeLengthField(ByteView block)
{
    const unsigned short usLength = LoadLe<uint16_t>(block, 0);
    if (m_usRemainLen != MARK_LEN || usLength > OM_MAX_LENGTH)
        return false;
    m_usRemainFrameLen = usLength;
    return true;
}

void CGUDataProcess::CompleteRemain(ByteView missing, unsigned int ulMode)
{
    m_pucRemain.insert(m_pucRemain.end(), missing.begin(), missing.end());
    if (ulMode == FRAME_MODE_TIME_SSID || ulMode == FRAME_MODE_RTC_CPUID)
        RepairSsid(m_pucRemain, m_usRemainFrameLen, m_iRemainSsid);
    Deliver(m_pucRemain, m_usRemainFrameLen);
}

/// Takes the frames that follow each other from szPos on.
bool CGUDataProcess::OM_UsbDecapStep2(ByteSpan data, size_t szPos, unsigned int ulMode)
{
    while (szPos < data.size()) {
        const ByteSpan frame = data.subspan(szPos);
        if (!StartsFrame(frame))
            return false;
        const unsigned short usLength = LoadLe<uint16_t>(frame, FRAME_LENGTH);
        if (usLength > OM_MAX_LENGTH)
            return false;
        const size_t szFrame = Padded(usLength) + FRAME_OVERHEAD;
        const int iSsid = SsidOfMode(data, szPos, ulMode);
        if (szFrame > frame.size()) {
            HoldFrame(frame, usLength, iSsid);
            return true;
        }
        RepairSsid(frame, usLength, iSsid);
        if (LoadLe<uint32_t>(frame, szFrame - MARK_LEN) != OM_FRAME_END)
            return false;
        Deliver(frame, usLength);
        szPos += szFrame;
        if (data.size() - szPos > GapOfMode(ulMode))
            szPos += GapOfMode(ulMode);
    }
    return true;
}

/// Keeps the start of a frame, and the SSID of its head, which the next block doesn't have.
void CGUDataProcess::HoldFrame(ByteView part, unsigned short usLength, int iSsid)
{
    m_pucRemain.assign(part.begin(), part.end());
    m_usRemainLen = static_cast<unsigned short>(part.size());
    m_usRemainFrameLen = usLength;
    m_iRemainSsid = iSsid;
}

void CGUDataProcess::ClearRemain()
{
    m_pucRemain.clear();
    m_usRemainLen = 0;
    m_usRemainFrameLen = 0;
    m_iRemainSsid = -1;
}

void CGUDataProcess::Deliver(ByteView frame, unsigned short usLength)
{
    const size_t szPayload = std::max<size_t>(usLength, LENGTH_EXTRA) - LENGTH_EXTRA;
    if (m_fnTakePacket)
        m_fnTakePacket(Slice(frame, FRAME_PAYLOAD, szPayload));
}
