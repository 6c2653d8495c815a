#include "fleet/LabFile.h"

#include "capture/CaptureLimits.h"
#include "fleet/FleetFormat.h"

#include <algorithm>
#include <nlohmann/json.hpp>
#include <set>

using nlohmann::json;

namespace
{
/// Names are parts of subjects, of certificates and of the servers' configuration.
bool TakeNames(const json& value, std::vector<std::string>& names)
{
    if (!value.is_array())
        return false;
    for (const json& name : value) {
        if (!name.is_string() || !IsBenchName(name.get_ref<const std::string&>()))
            return false;
        names.push_back(name);
    }
    return true;
}

bool TakeReplicas(const json& value, LAB_FILE& stLab)
{
    if (!value.is_number_integer() || (value != 1 && value != 3 && value != 5))
        return false;
    stLab.nReplicas = value;
    return true;
}

bool TakeLimit(const json& value, bool bTime, uint64_t& ullLimit)
{
    ROTATION stLimit; // sizes and times as vex-capture has them
    if (!value.is_string() || !ParseRotation(value.get_ref<const std::string&>(), stLimit) ||
        (stLimit.time.count() > 0) != bTime)
        return false;
    ullLimit = bTime ? static_cast<uint64_t>(stLimit.time.count()) : stLimit.ullBytes;
    return true;
}

struct KEY_ROW
{
    const char* pszKey;
    bool (*pTake)(const json& value, LAB_FILE& stLab);
    const char* pszWanted;
};
constexpr KEY_ROW c_astKey[] = {
    {"benches", [](const json& value, LAB_FILE& stLab) { return TakeNames(value, stLab.benches); },
     "a list of names of letters, digits, - and _"},
    {"lab", [](const json& value, LAB_FILE& stLab) { return TakeNames(value, stLab.lab); },
     "a list of names of letters, digits, - and _"},
    {"replicas", TakeReplicas, "1, 3 or 5"},
    {"max_bytes", [](const json& value, LAB_FILE& stLab) { return TakeLimit(value, false, stLab.ullMaxBytes); },
     "a size such as \"500G\""},
    {"max_age", [](const json& value, LAB_FILE& stLab) { return TakeLimit(value, true, stLab.ullMaxAge); },
     "a time such as \"30d\""},
};

bool TakeKey(const std::string& strKey, const json& value, LAB_FILE& stLab, std::string& strError)
{
    const auto row = std::ranges::find(c_astKey, strKey, &KEY_ROW::pszKey);
    if (row == std::end(c_astKey))
        strError = "no such key: " + strKey;
    else if (!row->pTake(value, stLab))
        strError = strKey + " must be " + row->pszWanted;
    return strError.empty();
}

std::string Quoted(const std::vector<std::string>& subjects)
{
    std::string strList;
    for (const std::string& strSubject : subjects)
        strList += (strList.empty() ? "\"" : ", \"") + strSubject + '"';
    return "[" + strList + "]";
}

std::string BenchUser(const std::string& strBench)
{
    const std::string strTraffic = FLEET_SUBJECT{strBench, ">", {}}.Text();
    const std::string strOwn = strTraffic.substr(0, strTraffic.find('>') + 1);
    return "    { user: \"CN=" + strBench + "\", permissions: {\n        publish: { allow: " +
           Quoted({strOwn, StateSubject(strBench), LastMessageSubject(strOwn)}) +
           " }\n        subscribe: { allow: " + Quoted({InboxPrefix(strBench) + ".>", RequestSubject(strBench)}) +
           " }\n        allow_responses: { max: 1, expires: \"2m\" } } }\n";
}
} // namespace

bool ParseLabFile(const std::string& strText, LAB_FILE& stLab, std::string& strError)
{
    const json file = json::parse(strText, nullptr, false, true); // comments are welcome
    if (!file.is_object()) {
        strError = "not a JSON object";
        return false;
    }
    for (const auto& [strKey, value] : file.items())
        if (!TakeKey(strKey, value, stLab, strError))
            return false;
    std::set<std::string> names(stLab.benches.begin(), stLab.benches.end());
    names.insert(stLab.lab.begin(), stLab.lab.end());
    if (stLab.lab.empty())
        strError = "lab must name a certificate that may read";
    else if (names.size() < stLab.benches.size() + stLab.lab.size())
        strError = "a name stands twice";
    return strError.empty();
}

std::string PermissionsText(const LAB_FILE& stLab)
{
    std::string strText = "# Made by vex-fleet init. Include it in the configuration of every server.\n"
                          "authorization {\n  timeout: 5\n  users: [\n";
    for (const std::string& strName : stLab.lab)
        strText += "    { user: \"CN=" + strName + "\" }\n";
    for (const std::string& strBench : stLab.benches)
        strText += BenchUser(strBench);
    return strText + "  ]\n}\n";
}
