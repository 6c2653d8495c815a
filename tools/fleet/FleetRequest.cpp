#include "fleet/FleetRequest.h"

#include "client/Parse.h"

#include <array>
#include <nlohmann/json.hpp>

namespace
{
using JSON = nlohmann::json;
constexpr size_t PARAMS_MOST = UINT16_MAX;
constexpr double TIMEOUT_LEAST = 0.1;
constexpr double TIMEOUT_MOST = 60;

/// The number of this name, or what it is when there is none of that name; false when it is something else.
template <class T> bool TakeNumber(const JSON& json, const char* pszName, T& value)
{
    const auto field = json.find(pszName);
    if (field == json.end())
        return true;
    if (!field->is_number_unsigned() || field->get<uint64_t>() > std::numeric_limits<T>::max())
        return false;
    value = static_cast<T>(field->get<uint64_t>());
    return true;
}

bool TakeHex(const JSON& json, const char* pszName, std::vector<unsigned char>& bytes)
{
    const auto field = json.find(pszName);
    if (field == json.end())
        return true;
    const std::array<std::string, 1> astrText{field->is_string() ? field->get<std::string>() : "?"};
    return astrText[0].empty() || ParseHex(astrText, bytes);
}
} // namespace

std::string RequestToJson(const FLEET_REQUEST& stRequest)
{
    return JSON{{"port", stRequest.ulPort},
                {"id", stRequest.ulCmdId},
                {"params", HexDigits(stRequest.vecParams)},
                {"timeout", stRequest.dTimeout}}
        .dump();
}

std::optional<FLEET_REQUEST> RequestFromJson(const std::string& strJson, std::string& strError)
{
    const JSON json = JSON::parse(strJson, nullptr, false);
    FLEET_REQUEST stRequest;
    const auto refuse = [&strError](const char* pszWhy) {
        strError = pszWhy;
        return std::nullopt;
    };
    if (!json.is_object())
        return refuse("the request is no JSON object");
    if (!json.contains("port") || !TakeNumber(json, "port", stRequest.ulPort))
        return refuse("\"port\" must be a UE's port number");
    if (!json.contains("id") || !TakeNumber(json, "id", stRequest.ulCmdId))
        return refuse("\"id\" must be a command id");
    if (!TakeHex(json, "params", stRequest.vecParams) || stRequest.vecParams.size() > PARAMS_MOST)
        return refuse("\"params\" must be pairs of hexadecimal digits, 65535 at most");
    const JSON timeout = json.value("timeout", JSON(stRequest.dTimeout));
    if (!timeout.is_number() || timeout.get<double>() < TIMEOUT_LEAST || timeout.get<double>() > TIMEOUT_MOST)
        return refuse("\"timeout\" must be 0.1 to 60 seconds");
    stRequest.dTimeout = timeout.get<double>();
    return stRequest;
}

std::string AnswerToJson(const FLEET_ANSWER& stAnswer)
{
    if (!stAnswer.strError.empty())
        return JSON{{"error", stAnswer.strError}}.dump(-1, ' ', false, JSON::error_handler_t::replace);
    return JSON{{"id", stAnswer.ulCmdId},
                {"rc", stAnswer.ulRc},
                {"timestamp", stAnswer.ullTimeStamp},
                {"payload", HexDigits(stAnswer.vecPayload)}}
        .dump();
}

std::optional<FLEET_ANSWER> AnswerFromJson(const std::string& strJson)
{
    const JSON json = JSON::parse(strJson, nullptr, false);
    FLEET_ANSWER stAnswer;
    if (!json.is_object())
        return std::nullopt;
    if (const auto error = json.find("error"); error != json.end() && error->is_string()) {
        stAnswer.strError = error->get<std::string>();
        return stAnswer;
    }
    if (!json.contains("id") || !TakeNumber(json, "id", stAnswer.ulCmdId) || !TakeNumber(json, "rc", stAnswer.ulRc) ||
        !TakeNumber(json, "timestamp", stAnswer.ullTimeStamp) || !TakeHex(json, "payload", stAnswer.vecPayload))
        return std::nullopt;
    return stAnswer;
}
