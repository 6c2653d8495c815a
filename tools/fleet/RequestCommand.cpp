#include "client/Names.h"
#include "client/Parse.h"
#include "client/Printer.h"
#include "fleet/Fleet.h"
#include "fleet/FleetFormat.h"
#include "fleet/FleetRequest.h"

namespace
{
EXIT_CODE Ask(const FLEET_CONTEXT& stContext, const std::string& strBench, const FLEET_REQUEST& stRequest,
              FLEET_ANSWER& stAnswer)
{
    constexpr int64_t WAY_MS = 2000; // to the bench and back, on top of what it waits for its agent
    CFleetLink link;
    if (const EXIT_CODE enCode = link.Open(stContext); enCode != CODE_DONE)
        return enCode;
    natsMsg* pNew = nullptr;
    const natsStatus enStatus =
        natsConnection_RequestString(&pNew, link.Connection(), RequestSubject(strBench).c_str(),
                                     RequestToJson(stRequest).c_str(), stContext.TimeoutMs() + WAY_MS);
    const NatsMsg pReply(pNew);
    if (enStatus == NATS_NO_RESPONDERS)
        return stContext.Fail(CODE_NO_CONNECTION, "bench " + strBench +
                                                      " takes no requests: it is away, or vex-forward runs without "
                                                      "--allow-requests");
    if (enStatus != NATS_OK)
        return stContext.Fail(link.CodeOf(enStatus), "no answer from bench " + strBench + ": " + NatsText(enStatus));
    const auto answer = AnswerFromJson({natsMsg_GetData(pNew), static_cast<size_t>(natsMsg_GetDataLength(pNew))});
    if (!answer)
        return stContext.Fail(CODE_REFUSED, "the answer of bench " + strBench + " can't be read");
    stAnswer = *answer;
    return CODE_DONE;
}
} // namespace

EXIT_CODE RunFleetRequest(const FLEET_CONTEXT& stContext, const FLEET_REQUEST_ARGS& stArgs)
{
    constexpr size_t MOST = 65535; // usLen has 16 bits
    FLEET_REQUEST stRequest;
    stRequest.ulPort = stArgs.ulPort;
    stRequest.dTimeout = stContext.dTimeout;
    if (!ParseNumber(stArgs.strId, stRequest.ulCmdId))
        return stContext.Fail(CODE_USAGE, "no id: " + stArgs.strId);
    if (!ParseHex(stArgs.hex, stRequest.vecParams) || stRequest.vecParams.size() > MOST)
        return stContext.Fail(CODE_USAGE, "parameters are pairs of hexadecimal digits, 65535 bytes at most");
    FLEET_ANSWER stAnswer;
    if (const EXIT_CODE enCode = Ask(stContext, stArgs.strBench, stRequest, stAnswer); enCode != CODE_DONE)
        return enCode;
    if (!stAnswer.strError.empty())
        return stContext.Fail(CODE_REFUSED, stArgs.strBench + ": " + stAnswer.strError);
    PACKET stPacket;
    stPacket.stHead.ulCmdId = stAnswer.ulCmdId;
    stPacket.stHead.ulRc = stAnswer.ulRc;
    stPacket.stHead.ullTimeStamp = stAnswer.ullTimeStamp;
    stPacket.stHead.usPktType = 0;
    stPacket.stHead.usLen = static_cast<uint16_t>(stAnswer.vecPayload.size());
    stPacket.payload = stAnswer.vecPayload;
    CPrinter printer(stContext.bJson, stContext.out);
    printer.Packet(stPacket, {.pszEvent = "ack", .strName = IdName(stAnswer.ulCmdId)});
    if (stAnswer.ulRc == DIAG_RC_OK)
        return CODE_DONE;
    return stContext.Fail(CODE_REFUSED, "refused: " + ResultText(stAnswer.ulRc));
}
