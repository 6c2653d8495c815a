#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

// A client request that goes to a bench's agent through its forwarder, and what becomes of it; both travel as JSON.

struct FLEET_REQUEST
{
    unsigned int ulPort = 0; // the UE's port to bind to
    uint32_t ulCmdId = 0;
    std::vector<unsigned char> vecParams; // 65535 bytes at most
    double dTimeout = 5;                  // seconds to wait for the agent, 0.1 to 60
};

struct FLEET_ANSWER
{
    std::string strError; // empty: the agent has answered
    uint32_t ulCmdId = 0;
    uint32_t ulRc = 0; // DIAG_RC_...
    uint64_t ullTimeStamp = 0;
    std::vector<unsigned char> vecPayload;
};

/// {"port":20,"id":268517379,"params":"0102","timeout":5}
std::string RequestToJson(const FLEET_REQUEST& stRequest);
/// None, with the reason, for what is no request.
std::optional<FLEET_REQUEST> RequestFromJson(const std::string& strJson, std::string& strError);

/// {"id":268517379,"rc":0,"timestamp":0,"payload":"0102"}, or {"error":"..."}.
std::string AnswerToJson(const FLEET_ANSWER& stAnswer);
std::optional<FLEET_ANSWER> AnswerFromJson(const std::string& strJson);
