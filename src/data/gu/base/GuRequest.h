#pragma once

#include "common/Bytes.h"
#include "data/DiagPacket.h"

#include <vector>

/// A GU_PACKET_HEAD towards the UE with its parameters.
std::vector<unsigned char> BuildGuRequest(unsigned char ucCategory, unsigned short usId, ByteView params,
                                          unsigned int ulPid);

// Parameters of most requests: {u8 switch, u8 spare, u16 period, ...}.
constexpr unsigned char SWITCH_OFF = 0;
constexpr unsigned char SWITCH_ON = 1;
inline unsigned char ReqSwitch(ByteView params)
{
    return LoadLe<uint8_t>(params, 0);
}
constexpr size_t REQ_PERIOD = 2;
inline unsigned short ReqPeriod(ByteView params)
{
    return LoadLe<uint16_t>(params, REQ_PERIOD);
}

/// The packet id that a client asks for on the GU command channel.
inline unsigned short ReqPacketId(const DIAG_PACKET_REQ_VIEW& stReq)
{
    return static_cast<unsigned short>(stReq.stHead.ulCmdId);
}
/// A copy of a request's parameters, usLen bytes.
std::vector<unsigned char> ReqParams(const DIAG_PACKET_REQ_VIEW& stReq);
