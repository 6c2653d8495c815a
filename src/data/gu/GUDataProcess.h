#pragma once

#include "common/Packet.h"

#include <functional>
#include <utility>
#include <vector>

constexpr unsigned int OM_FRAME_START = 0xAAAA5555;
constexpr unsigned int OM_FRAME_END = 0x5555AAAA;
constexpr size_t OM_MAX_SEGMENT = 2048;        // payload bytes of a frame towards the UE
constexpr unsigned short OM_MAX_LENGTH = 4100; // largest length field of a frame from the UE

/// Form of the head ahead of the UE's frames, m_ulFrameMode of COperationGUData.
constexpr unsigned int FRAME_MODE_TIME_SSID = 1; // 17 bytes ahead of a block's first frame, 16 between frames
constexpr unsigned int FRAME_MODE_RTC_CPUID = 2; // 9 and 8
constexpr unsigned int FRAME_MODE_UNKNOWN = 3;

/// Bytes ahead of the first frame of a block.
constexpr size_t FRAME_LEAD_TIME_SSID = 17;
constexpr size_t FRAME_LEAD_RTC_CPUID = 9;

/// OM USB frames of the GU channel. Encapsulation touches no state. Decapsulation keeps a frame that straddles two
/// blocks and belongs to the UE's thread. Segments aren't joined.
class CGUDataProcess
{
public:
    /// Takes the payload of a complete frame, a GU packet; the bytes are valid during the call.
    using TakePacket = std::function<void(ByteView)>;

    CGUDataProcess();

    /// The receiver of decoded packets; without one they are dropped.
    void SetguDataProcess(TakePacket fnTakePacket) { m_fnTakePacket = std::move(fnTakePacket); }
    /// Forgets a held frame and makes room for the largest one.
    void OM_InitDecap();

    /// One frame. False for no data, for more than the u16 length field can tell, and when memory is short.
    static CPacket OM_UsbFrameEncap(ByteView data, unsigned char ucTotal, unsigned char ucIndex);

    /// Takes one block: the bytes of data from szStart on. Those ahead of it are the head of its first frame, of
    /// which only the SSID is read. Rewrites SSIDs in place. True when the block was taken in whole; on a fault the
    /// frame held and the rest of the block are lost.
    bool OM_UsbFrameDecap(ByteSpan data, size_t szStart, unsigned int ulMode);

private:
    bool OM_HandleRemain(ByteView block, size_t& szConsumed, unsigned int ulMode);
    bool OM_UsbDecapStep2(ByteSpan data, size_t szPos, unsigned int ulMode);
    bool TakeLengthField(ByteView block);
    void CompleteRemain(ByteView missing, unsigned int ulMode);
    void HoldFrame(ByteView part, unsigned short usLength, int iSsid);
    void ClearRemain();
    void Deliver(ByteView frame, unsigned short usLength);

    TakePacket m_fnTakePacket;
    unsigned short m_usRemainFrameLen = 0; // length field of the frame held, 0 when only its start is held
    unsigned short m_usRemainLen = 0;      // bytes held
    std::vector<unsigned char> m_pucRemain;
    int m_iRemainSsid = -1; // SSID of the held frame's head, -1 without one: the head isn't kept
};
