#include "data/gu/base/GuRequest.h"

std::vector<unsigned char> ReqParams(const DIAG_PACKET_REQ_VIEW& stReq)
{
    std::vector<unsigned char> params(stReq.stHead.usLen);
    CopyPadded(params, stReq.data);
    return params;
}
