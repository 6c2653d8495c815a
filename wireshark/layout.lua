-- The layout of the UEs' LTE packets, as the configuration in the capture describes it.

-- Which pair of a line holds what, as the agent reads them.
local REQ = {mode = 2, class = 3, type = 6, id = 8, length = 9}
local ACK = {id = 1, length = 2, ack_field = 3, type = 4, timestamp = 5}
local DATA = {id = 1, ack_field = 2, type = 3, timestamp = 4}
local TAG = 2
local VALUE_BYTES = {id = 4, type = 4, ack_field = 4, mode = 1, class = 1, length = 4, timestamp = 8}

-- "{8,4};{12,2}" as pairs; the list ends at the first that can't be read.
local function ParsePairs(text)
    local list = {}
    local at = 1
    while true do
        local offset, bytes, stop = text:match("^{([+-]?%d+),([+-]?%d+)()", at)
        if not offset then
            return list
        end
        list[#list + 1] = {tonumber(offset) % 65536, tonumber(bytes) % 65536}
        at = text:match("^};()", stop)
        if not at then
            return list
        end
    end
end

local function ParseNumber(text)
    return (tonumber(text:match("^[+-]?%d+")) or 0) % 65536
end

local LAYOUT_KEYS = {
    REQ_CHL_PACKET_HEADER_LEN = {"req_bytes", ParseNumber},
    REQ_CHL_PACKET_HEADER = {"req", ParsePairs},
    ACK_CHL_PACKET_PAYLOAD_OFFSET = {"ack_bytes", ParseNumber},
    ACK_CHL_PACKET_HEADER = {"ack", ParsePairs},
    DATA_CHL_PACKET_PAYLOAD_OFFSET = {"data_bytes", ParseNumber},
    DATA_CHL_PACKET_HEADER = {"data", ParsePairs},
    DATA_ACK_CHL_PACKET_UID = {"uid", ParsePairs},
}

-- The layout that a configuration describes; what it doesn't tell is absent, as for the agent.
local function ParseLayout(text)
    local layout = {req_bytes = 0, req = {}, ack_bytes = 0, ack = {}, data_bytes = 0, data = {}, uid = {}}
    for line in text:gmatch("[^\n]+") do
        local key, value = line:gsub("[ \t\r]", ""):match("^([^#=][^=]*)=(.+)$")
        local row = key and LAYOUT_KEYS[key]
        if row then
            layout[row[1]] = row[2](value)
        end
    end
    return layout
end

local DEFAULT_LAYOUT = ParseLayout(T.default_layout)
