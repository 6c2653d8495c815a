#include "fleet/FleetState.h"

#include "common/Types.h"

#include <algorithm>
#include <nlohmann/json.hpp>

namespace
{
using JSON = nlohmann::json;

// Names of the fields, each in one place for both directions: io(name, member).
template <class Io, class Channel> void ChannelFields(Io& io, Channel& st)
{
    io("channel", st.strChannel);
    io("present", st.bPresent);
    io("records", st.ullRecords);
    io("recordRate", st.dRecordRate);
    io("byteRate", st.dByteRate);
}
template <class Io, class Modem> void ModemFields(Io& io, Modem& st)
{
    io("ue", st.ulUe);
    io("name", st.strName);
}
template <class Io, class State> void StateFields(Io& io, State& st)
{
    io("bench", st.strBench);
    io("epoch", st.strEpoch);
    io("version", st.strVersion);
    io("time", st.ullTime);
    io("started", st.ullStarted);
    io("recordRate", st.dRecordRate);
    io("byteRate", st.dByteRate);
    io("lostRecords", st.ullLostRecords);
    io("lostSegments", st.ullLostSegments);
    io("backlogBytes", st.ullBacklogBytes);
    io("backlogMs", st.ullBacklogMs);
    io("sentBytes", st.ullSentBytes);
    io("sentMessages", st.ullSentMessages);
    io("spoolBytes", st.ullSpoolBytes);
    io("diskFree", st.ullDiskFree);
    io("diskSize", st.ullDiskSize);
    io("requests", st.bRequests);
}

struct TO_JSON
{
    JSON json = JSON::object();
    template <class T> void operator()(const char* pszName, const T& value) { json[pszName] = value; }
};

/// A field of another type than it should have keeps its value.
struct FROM_JSON
{
    const JSON& json;
    void operator()(const char* pszName, std::string& strValue)
    {
        if (const JSON* pField = Find(pszName); pField != nullptr && pField->is_string())
            strValue = pField->get<std::string>().substr(0, STATE_TEXT_MOST);
    }
    void operator()(const char* pszName, bool& bValue)
    {
        if (const JSON* pField = Find(pszName); pField != nullptr && pField->is_boolean())
            bValue = pField->get<bool>();
    }
    void operator()(const char* pszName, double& dValue)
    {
        if (const JSON* pField = Find(pszName); pField != nullptr && pField->is_number())
            dValue = std::clamp(pField->get<double>(), 0.0, STATE_RATE_MOST);
    }
    template <std::unsigned_integral T> void operator()(const char* pszName, T& value)
    {
        if (const JSON* pField = Find(pszName); pField != nullptr && pField->is_number_unsigned())
            value = pField->get<T>();
    }

private:
    const JSON* Find(const char* pszName) const
    {
        const auto field = json.find(pszName);
        return field == json.end() ? nullptr : &*field;
    }
};

/// Calls for each object in the list of this name, for so many at most.
template <class Call> void ForEachObject(const JSON& json, const char* pszName, size_t szMost, Call call)
{
    const auto list = json.find(pszName);
    if (list == json.end() || !list->is_array())
        return;
    for (const JSON& entry : *list)
        if (entry.is_object() && szMost > 0) {
            call(entry);
            --szMost;
        }
}
} // namespace

size_t PresentChannels(const FLEET_MODEM_STATE& stModem)
{
    return static_cast<size_t>(std::ranges::count_if(stModem.vecChannels, &FLEET_CHANNEL_STATE::bPresent));
}

size_t PresentModems(const FLEET_BENCH_STATE& stState)
{
    return static_cast<size_t>(std::ranges::count_if(
        stState.vecModems, [](const FLEET_MODEM_STATE& stModem) { return PresentChannels(stModem) > 0; }));
}

BENCH_PRESENCE PresenceOf(uint64_t ullSeen, uint64_t ullNow)
{
    const uint64_t ullAge = ullNow > ullSeen ? ullNow - ullSeen : 0;
    if (ullAge < BENCH_LIVE_MS)
        return BENCH_PRESENCE::LIVE;
    return ullAge < BENCH_LATE_MS ? BENCH_PRESENCE::LATE : BENCH_PRESENCE::AWAY;
}

std::string StateToJson(const FLEET_BENCH_STATE& stState)
{
    TO_JSON out;
    StateFields(out, stState);
    out.json["modems"] = JSON::array();
    for (const FLEET_MODEM_STATE& stModem : stState.vecModems) {
        TO_JSON modem;
        ModemFields(modem, stModem);
        modem.json["channels"] = JSON::array();
        for (const FLEET_CHANNEL_STATE& stChannel : stModem.vecChannels) {
            TO_JSON channel;
            ChannelFields(channel, stChannel);
            modem.json["channels"].push_back(std::move(channel.json));
        }
        out.json["modems"].push_back(std::move(modem.json));
    }
    return out.json.dump(-1, ' ', false, JSON::error_handler_t::replace);
}

std::optional<FLEET_BENCH_STATE> StateFromJson(const std::string& strJson)
{
    const JSON json = JSON::parse(strJson, nullptr, false);
    if (!json.is_object() || !json.contains("bench"))
        return std::nullopt;
    FLEET_BENCH_STATE stState;
    FROM_JSON in{json};
    StateFields(in, stState);
    ForEachObject(json, "modems", MAXUENUM, [&stState](const JSON& modem) {
        FLEET_MODEM_STATE& stModem = stState.vecModems.emplace_back();
        FROM_JSON modemIn{modem};
        ModemFields(modemIn, stModem);
        ForEachObject(modem, "channels", CHANNELNUM, [&stModem](const JSON& channel) {
            FROM_JSON channelIn{channel};
            ChannelFields(channelIn, stModem.vecChannels.emplace_back());
        });
    });
    return stState;
}
