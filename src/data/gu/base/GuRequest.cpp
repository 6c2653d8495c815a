#include "data/gu/base/GuRequest.h"

#include "data/gu/base/GuPacket.h"

namespace
{
constexpr size_t ENCAP_PARAM_LEN_EXTRA = 4; // what the parameter length field counts beside the parameters
} // namespace

std::vector<unsigned char> BuildGuRequest(unsigned char ucCategory, unsigned short usId, ByteView params,
                                          unsigned int ulPid)
{
    std::vector<unsigned char> packet(GU_REQ_PARAMS + params.size());
    const ByteSpan bytes(packet);
    StoreLe<uint8_t>(bytes, GU_CATEGORY, ucCategory);
    StoreLe<uint16_t>(bytes, GU_PACKET_LEN, static_cast<uint16_t>(packet.size() - GU_LEN_OFFSET_BASE));
    StoreLe<uint32_t>(bytes, GU_REQ_SENDER_PID, GU_PID_AGENT);
    StoreLe<uint32_t>(bytes, GU_REQ_RECEIVER_PID, ulPid);
    StoreLe<uint32_t>(bytes, GU_REQ_PARAM_LEN, static_cast<uint32_t>(params.size() + ENCAP_PARAM_LEN_EXTRA));
    StoreLe<uint32_t>(bytes, GU_REQ_MSG_ID, usId);
    CopyPadded(bytes.subspan(GU_REQ_PARAMS), params);
    return packet;
}

std::vector<unsigned char> ReqParams(const DIAG_PACKET_REQ_VIEW& stReq)
{
    std::vector<unsigned char> params(stReq.stHead.usLen);
    CopyPadded(params, stReq.data);
    return params;
}
