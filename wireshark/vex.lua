-- Dissects the records of Vex captures: exported PDUs named "vex", each a head and the bytes of one tap record.
--
-- T, in front of this in the file that the build makes, holds the programs' tables: names, places of head fields
-- ({offset, bytes}) and the layouts of records. A field of a layout is {name, abbreviation, offset, type, count, names
-- of values}; a group is records that follow. Reads are checked against the bytes that are there: any bytes dissect.

local vex = Proto("vex", "Vex")

-------------------------------------------------------------------------------------------------------- fields

local HEX, DEC = base.HEX, base.DEC

-- What every packet has, and the heads of packets. Filters use the abbreviations.
local F = {
    version = ProtoField.uint8("vex.version", "Version of the record's head", DEC),
    direction = ProtoField.uint8("vex.direction", "Direction", DEC, T.directions),
    ue = ProtoField.uint8("vex.ue", "UE", DEC),
    channel = ProtoField.uint8("vex.channel", "Channel", DEC, T.channels),
    flags = ProtoField.uint8("vex.flags", "Flags", HEX),
    replayed = ProtoField.bool("vex.replayed", "Replayed: from before the capture began", 8, nil, T.flags.replayed),
    cut = ProtoField.bool("vex.cut", "Cut: the record was too long for the tap", 8, nil, T.flags.cut),
    text = ProtoField.bool("vex.text", "Bare text", 8, nil, T.flags.text),
    port = ProtoField.uint32("vex.port", "Port of the modem", DEC),
    client = ProtoField.uint32("vex.client", "Client", DEC),
    number = ProtoField.uint64("vex.number", "Number in the run", DEC),

    id = ProtoField.uint32("vex.id", "Id", HEX),
    name = ProtoField.string("vex.name", "Name"),
    gu_id = ProtoField.uint16("vex.gu_id", "GU message id", HEX),
    rc = ProtoField.uint32("vex.rc", "Result", DEC),
    rc_name = ProtoField.string("vex.rc_name", "Name of the result"),
    ack_field = ProtoField.uint32("vex.ack_field", "Ack field of the UE", DEC),
    indication = ProtoField.uint32("vex.indication", "Number of the indication", DEC),
    timestamp = ProtoField.uint64("vex.timestamp", "UE clock, 1/32768 s", DEC),
    type = ProtoField.uint16("vex.type", "Packet type", DEC, T.types, 0x00FF),
    kind = ProtoField.uint16("vex.kind", "Kind of indication", DEC, T.kinds, 0x00FF),
    mode = ProtoField.uint16("vex.mode", "System mode", DEC, T.modes, 0x0F00),
    reserved = ProtoField.uint16("vex.reserved", "Reserved", DEC, nil, 0xF000),
    length = ProtoField.uint16("vex.length", "Payload length", DEC),
    payload = ProtoField.bytes("vex.payload", "Payload"),

    packet_head = ProtoField.bytes("vex.packet.head", "Head of the packet"),
    packet_tag = ProtoField.uint8("vex.packet.tag", "Tag", DEC),
    packet_mode = ProtoField.uint8("vex.packet.mode", "System mode", DEC),
    packet_class = ProtoField.uint8("vex.packet.class", "Class of the id, in the upper four bits", HEX),
    packet_type = ProtoField.uint32("vex.packet.type", "Type of the command", DEC),
    packet_length = ProtoField.uint32("vex.packet.length", "Length in the head", DEC),
    packet_result = ProtoField.uint32("vex.packet.result", "Result of the UE", DEC),

    om_lead = ProtoField.bytes("vex.om.lead", "Bytes ahead of the frame"),
    om_start = ProtoField.uint32("vex.om.start", "Start mark", HEX),
    om_length = ProtoField.uint16("vex.om.length", "Length: payload and 4", DEC),
    om_segments = ProtoField.uint8("vex.om.segments", "Segments", DEC),
    om_segment = ProtoField.uint8("vex.om.segment", "Number of the segment", DEC),
    om_end = ProtoField.uint32("vex.om.end", "End mark", HEX),

    gu_category = ProtoField.uint8("vex.gu.category", "Category", DEC, T.categories),
    gu_ssid = ProtoField.uint8("vex.gu.ssid", "SSID", DEC),
    gu_length = ProtoField.uint16("vex.gu.length", "Length of the packet less 4", DEC),
    gu_sn = ProtoField.uint32("vex.gu.sn", "SN", DEC),
    gu_timestamp = ProtoField.uint32("vex.gu.timestamp", "UE clock, 1/32768 s", DEC),
    gu_value = ProtoField.uint32("vex.gu.value", "Value", DEC),
    gu_sender_pid = ProtoField.uint32("vex.gu.sender_pid", "Sender", DEC),
    gu_receiver_pid = ProtoField.uint32("vex.gu.receiver_pid", "Receiver", DEC),
    gu_param_length = ProtoField.uint32("vex.gu.param_length", "Length of the parameters and 4", DEC),

    at = ProtoField.string("vex.at", "AT text"),
    switch_message = ProtoField.uint32("vex.switch.message", "Message", HEX),
    switch_kind = ProtoField.uint32("vex.switch.kind", "Kind", DEC,
                                    {[1] = "air", [2] = "user plane", [3] = "event", [4] = "user plane, second"}),
    switch_value = ProtoField.uint32("vex.switch.value", "Value", DEC),
    status_kind = ProtoField.uint8("vex.status.kind", "Kind of datagram", DEC, T.status_kinds),
    status_length = ProtoField.uint32("vex.status.length", "Length of the record", DEC),
    event = ProtoField.uint32("vex.event", "Event", DEC, T.events),
    config_line = ProtoField.string("vex.config.line", "Line"),

    request_in = ProtoField.framenum("vex.request_in", "Request in", base.NONE, frametype.REQUEST),
    answer_in = ProtoField.framenum("vex.answer_in", "Answer in", base.NONE, frametype.RESPONSE),
    answer_time = ProtoField.relative_time("vex.answer_time", "Time from the request"),
    lost = ProtoField.uint64("vex.lost", "Records lost before this one", DEC),
}

local X = {
    result = ProtoExpert.new("vex.expert.result", "Result isn't OK", expert.group.RESPONSE_CODE, expert.severity.WARN),
    lost = ProtoExpert.new("vex.expert.lost", "Records were lost", expert.group.SEQUENCE, expert.severity.WARN),
    cut = ProtoExpert.new("vex.expert.cut", "Record was cut", expert.group.UNDECODED, expert.severity.NOTE),
    short = ProtoExpert.new("vex.expert.short", "Record ends early", expert.group.UNDECODED, expert.severity.WARN),
    malformed = ProtoExpert.new("vex.expert.malformed", "Malformed packet", expert.group.MALFORMED,
                                expert.severity.ERROR),
}

-- By type of a field: bytes, what makes its ProtoField, the method that reads it.
local TYPES = {
    u8 = {1, ProtoField.uint8, "le_uint"},
    u16 = {2, ProtoField.uint16, "le_uint"},
    i16 = {2, ProtoField.int16, "le_int"},
    u32 = {4, ProtoField.uint32, "le_uint"},
    i32 = {4, ProtoField.int32, "le_int"},
    u64 = {8, ProtoField.uint64, "le_uint64"},
    f32 = {4, ProtoField.float, "le_float"},
    text = {1, ProtoField.string},
    bytes = {1, ProtoField.bytes},
}
local VALUES = {channels = T.channels, results = T.results, events = T.events}

-- Replaces a layout's rows by tables that are quick to walk, and gives each field its ProtoField.
local all_fields = {}
local function Prepare(layout)
    for i, row in ipairs(layout.fields) do
        local kind = TYPES[row[4]]
        local title = row[1]:gsub("_", " ")
        local field = row[6] and kind[2](row[2], title, DEC, VALUES[row[6]]) or kind[2](row[2], title)
        all_fields[#all_fields + 1] = field
        layout.fields[i] = {name = row[1], field = field, offset = row[3], type = row[4], bytes = kind[1],
                            read = kind[3], count = row[5], values = VALUES[row[6]]}
    end
    for _, group in ipairs(layout.groups) do
        Prepare(group.item)
    end
end
for _, layout in pairs(T.layouts) do
    Prepare(layout)
end
for _, field in pairs(F) do
    all_fields[#all_fields + 1] = field
end
vex.fields = all_fields
vex.experts = {X.result, X.lost, X.cut, X.short, X.malformed}

local drop_count = Field.new("frame.drop_count")

----------------------------------------------------------------------------------------------- reading, checked

-- The bytes at an offset; nil unless all of them are there.
local function Range(tvb, offset, bytes)
    if bytes > 0 and offset >= 0 and offset + bytes <= tvb:len() then
        return tvb(offset, bytes)
    end
end

-- The value at a place {offset, bytes} of up to four bytes; nil when it isn't there.
local function Number(tvb, place, at)
    local range = Range(tvb, (at or 0) + place[1], place[2])
    return range and range:le_uint()
end

-- Fields are added only when somebody looks at them (referenced): lists of packets come out several times as fast.

-- Adds the field at a place; its item, or nil when it isn't there or nobody asks for it.
local function Add(tree, field, tvb, place, at)
    local range = tree:referenced(field) and Range(tvb, (at or 0) + place[1], place[2])
    return range and tree:add_le(field, range) or nil
end

-- Adds a field that doesn't stand in the bytes.
local function AddGenerated(tree, field, value)
    if tree:referenced(field) then
        tree:add(field, value):set_generated()
    end
end

-- An expert info of an item, or of the packet when the item wasn't added.
local function Expert(packet, item, expert, text)
    local at = item or packet.tree
    at:add_proto_expert_info(expert, text)
end

local function Append(item, text)
    if item then
        item:append_text(text)
    end
end

-- The rest of the bytes from an offset on as a tvb of its own, at most so many; nil for none.
local function Rest(tvb, offset, most)
    local bytes = tvb:len() - offset
    if most and most < bytes then
        bytes = most
    end
    return bytes > 0 and tvb(offset, bytes):tvb() or nil
end

-- The text up to the first NUL.
local function Text(range)
    local stop = range:raw():find("\0", 1, true)
    if not stop then
        return range:string(ENC_UTF_8)
    end
    return stop > 1 and range(0, stop - 1):string(ENC_UTF_8) or ""
end

-- Text for a column: control characters as \xx.
local function Printable(text)
    return (text:gsub("%c", function(c)
        return c == "\r" and "\\r" or c == "\n" and "\\n" or string.format("\\x%02x", c:byte())
    end))
end

local function Hex(id)
    return string.format("0x%08x", id)
end

local function Malformed(packet, text)
    if packet.cut then
        return -- it is known to end early
    end
    packet.tree:add_proto_expert_info(X.malformed, text)
    packet.info = packet.info .. " [malformed: " .. text .. "]"
end

--------------------------------------------------------------------------------------------- records by layout

local SUMMARY_FIELDS = 4

local function IsRoom(summary)
    return summary and #summary < SUMMARY_FIELDS
end

local function Summarize(summary, field, value)
    if value ~= "" then
        summary[#summary + 1] = field.name .. "=" .. tostring(value)
    end
end

local function AddText(tree, tvb, at, field, summary)
    local range = Range(tvb, at, math.min(field.count, tvb:len() - at))
    local wanted, room = tree:referenced(field.field), IsRoom(summary)
    if not range or not wanted and not room then
        return
    end
    if field.type == "bytes" then
        tree:add(field.field, range)
        return
    end
    local text = Text(range)
    if wanted then
        tree:add(field.field, range, text)
    end
    if room then
        Summarize(summary, field, Printable(text))
    end
end

local function AddNumbers(tree, tvb, at, field, summary)
    local wanted, room = tree:referenced(field.field), field.count == 1 and IsRoom(summary)
    for i = 0, wanted and field.count - 1 or room and 0 or -1 do
        local range = Range(tvb, at + i * field.bytes, field.bytes)
        if not range then
            return
        end
        if wanted then
            tree:add_le(field.field, range)
        end
        if room then
            local value = range[field.read](range)
            local name = field.values and field.values[value]
            Summarize(summary, field, name or field.type == "f32" and string.format("%g", value) or value)
        end
    end
end

-- Adds a record and the records of its groups. Gives the offset behind them, and whether all of it was there.
local function AddRecord(tree, tvb, at, layout, summary)
    local stop = tvb:len()
    local whole = at + layout.size <= stop
    for _, field in ipairs(layout.fields) do
        local add = field.read and AddNumbers or AddText
        add(tree, tvb, at + field.offset, field, summary)
    end
    local next_at = math.min(at + layout.size, stop)
    for _, group in ipairs(layout.groups) do
        local count = group.fixed > 0 and group.fixed or Number(tvb, {group.at, group.bytes}, at) or 0
        for i = 0, count - 1 do
            if next_at >= stop then
                whole = false
                break
            end
            local from, fits = next_at, nil
            local item = tree.visible and tree:add(tvb(from, 1), group.name .. "[" .. i .. "]")
            next_at, fits = AddRecord(item or tree, tvb, from, group.item, summary)
            if item then
                item:set_len(math.max(next_at - from, 1))
            end
            whole = whole and fits
        end
    end
    return next_at, whole
end

-- A record by the name of its layout in a tree of its own; its most telling fields go to the Info column.
local function ShowRecord(packet, tvb, name)
    local layout = T.layouts[name]
    local summary = {}
    local item = packet.tree.visible and packet.tree:add(tvb(), layout.title)
    local stop, whole = AddRecord(item or packet.tree, tvb, 0, layout, summary)
    if item then
        item:set_len(math.max(stop, 1))
    end
    if not whole and not packet.cut then
        Expert(packet, item, X.short, layout.title .. " ends early")
    end
    if #summary > 0 then
        packet.info = packet.info .. "  " .. table.concat(summary, " ")
    end
end

-------------------------------------------------------------------------------------------- layout of UE packets

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

---------------------------------------------------------------------- what is kept from packet to packet of a file

local layouts  -- {frame, layout} in the order of the file: each holds from its frame on
local waiting  -- requests without an answer yet, by key: {frame, time}, the oldest first
local answered -- the last answered request by key, for ids whose request has several answers
local links    -- by frame of an answer: {frame of its request, seconds}
local answers  -- by frame of a request: frame of its first answer

local function Forget()
    layouts, waiting, answered, links, answers = {}, {}, {}, {}, {}
end
Forget()
vex.init = Forget

-- The layout that holds at a frame.
local function LayoutAt(frame)
    for i = #layouts, 1, -1 do
        if layouts[i][1] <= frame then
            return layouts[i][2]
        end
    end
    return DEFAULT_LAYOUT
end

local STALE_SECONDS = 30 -- a request that waits longer isn't answered any more

local function NoteRequest(packet, key)
    if packet.pinfo.visited or packet.replayed then
        return
    end
    local list = waiting[key]
    if not list then
        list = {first = 1, last = 0}
        waiting[key] = list
    end
    list.last = list.last + 1
    list[list.last] = {packet.pinfo.number, packet.pinfo.rel_ts}
end

-- Takes the oldest request that isn't stale.
local function TakeRequest(key, now)
    local list = waiting[key]
    while list and list.first <= list.last do
        local request = list[list.first]
        list[list.first] = nil
        list.first = list.first + 1
        if now - request[2] <= STALE_SECONDS then
            return request
        end
    end
end

local function NoteAnswer(packet, key, several)
    if packet.pinfo.visited then
        return
    end
    local frame, now = packet.pinfo.number, packet.pinfo.rel_ts
    local request = TakeRequest(key, now)
    if request then
        answers[request[1]] = frame
        answered[key] = request
    elseif several then
        request = answered[key]
    end
    if request then
        links[frame] = {request[1], now - request[2]}
    end
end

local function ShowLinks(packet)
    local frame = packet.pinfo.number
    if answers[frame] then
        AddGenerated(packet.tree, F.answer_in, answers[frame])
    end
    local link = links[frame]
    if link then
        AddGenerated(packet.tree, F.request_in, link[1])
        local seconds = math.floor(link[2])
        local time = NSTime.new(seconds, math.floor((link[2] - seconds) * 1e9 + 0.5))
        AddGenerated(packet.tree, F.answer_time, time)
    end
end

-------------------------------------------------------------------------------------------------- common pieces

local function IsGu(packet)
    return T.channels[packet.channel] == "gu-cmd" or T.channels[packet.channel] == "gu-data"
end

-- What an id is called; nil for none. GU ids are those of reports, with their part in them.
local function NameOf(packet, id)
    local report = IsGu(packet) and T.reports[id % 65536]
    if T.ids[id] then
        return T.ids[id]
    end
    return report and report.name .. " " .. report.role or nil
end

local function ShowId(packet, tvb, place)
    local id = Number(tvb, place)
    local item = Add(packet.tree, F.id, tvb, place)
    local name = NameOf(packet, id)
    if name then
        Append(item, " (" .. name .. ")")
        AddGenerated(packet.tree, F.name, name)
    end
    if IsGu(packet) then
        Add(packet.tree, F.gu_id, tvb, {place[1], 2})
    end
    packet.info = packet.info .. " " .. (name or Hex(id))
    return id
end

local function ShowStamp(tree, field, range)
    if not tree:referenced(field) then
        return
    end
    local ticks = range:len() > 4 and range:le_uint64():tonumber() or range:le_uint()
    tree:add_le(field, range):append_text(string.format(" (%.3f s)", ticks / 32768))
end

local function ShowResult(packet, tvb, place)
    local rc = Number(tvb, place)
    local item = Add(packet.tree, F.rc, tvb, place)
    local name = T.results[rc]
    if name then
        Append(item, " (" .. name .. ")")
        AddGenerated(packet.tree, F.rc_name, name)
    end
    if rc ~= 0 then
        local text = name and name .. " (" .. rc .. ")" or "result " .. rc
        Expert(packet, item, X.result, "Result " .. (name and text or rc))
        packet.info = packet.info .. "  " .. text
    end
end

local function ShowPayload(packet, payload)
    if payload and packet.tree:referenced(F.payload) then
        packet.tree:add(F.payload, payload())
    end
end

local function ShowAtText(packet, payload)
    if payload then
        local text = payload():string(ENC_UTF_8)
        if packet.tree:referenced(F.at) then
            packet.tree:add(F.at, payload(), text)
        end
        packet.info = packet.info .. " " .. Printable((text:gsub("^[\r\n]+", ""):gsub("[\r\n]+$", "")))
    end
end

-- The payload behind a head of a client's packet, as long as the head says; an expert info when it is shorter.
local function Payload(packet, tvb, head)
    local length = Number(tvb, head.length)
    local left = tvb:len() - head.size
    if left < length then
        Malformed(packet, "payload of " .. length .. " bytes has " .. left)
    end
    return Rest(tvb, head.size, length)
end

local function ShowTypeBits(packet, tvb, place, field)
    for _, part in ipairs({field, F.mode, F.reserved}) do
        Add(packet.tree, part, tvb, place)
    end
    return Number(tvb, place) % 256
end

---------------------------------------------------------------------------------------------- packets of clients

local SWITCH_ENTRY = 12

local function ShowSwitch(packet, payload)
    local entries = math.floor(payload:len() / SWITCH_ENTRY)
    for i = 0, entries - 1 do
        local at, tree = i * SWITCH_ENTRY, packet.tree
        local entry = tree.visible and tree:add(payload(at, SWITCH_ENTRY), "entry[" .. i .. "]") or tree
        Add(entry, F.switch_message, payload, {0, 4}, at)
        Add(entry, F.switch_kind, payload, {4, 4}, at)
        Add(entry, F.switch_value, payload, {8, 4}, at)
    end
    packet.info = packet.info .. "  " .. entries .. (entries == 1 and " entry" or " entries")
end

local function ShowParams(packet, id, payload)
    if not payload then
        return
    end
    local report = IsGu(packet) and T.reports[id % 65536]
    local layout = T.params[id] or report and report.role == "request" and report.layout
    if T.at_ids[id] and T.channels[packet.channel] == "at" then
        ShowAtText(packet, payload)
    elseif layout then
        ShowRecord(packet, payload, layout)
    elseif id == T.switch_id then
        ShowSwitch(packet, payload)
    end
    ShowPayload(packet, payload)
end

-- Requests and answers of one client share the id that the answer has.
local function ClientKey(packet, id)
    return "client" .. packet.client .. ":" .. packet.channel .. ":" .. id
end

local function FromClient(packet, tvb)
    if packet.text then
        packet.info = "text"
        ShowAtText(packet, tvb)
        return
    end
    packet.info = "request"
    local head = T.request
    if tvb:len() < head.size then
        Malformed(packet, "request of " .. tvb:len() .. " bytes")
        ShowPayload(packet, tvb)
        return
    end
    local id = ShowId(packet, tvb, head.id)
    local type = ShowTypeBits(packet, tvb, head.type, F.type)
    Add(packet.tree, F.length, tvb, head.length)
    ShowParams(packet, id, Payload(packet, tvb, head))
    local report = IsGu(packet) and type ~= T.agent_type and T.reports[id % 65536]
    NoteRequest(packet, ClientKey(packet, IsGu(packet) and (report and report.answer or id % 65536) or id))
end

-- Whether a packet to a client is an indication and not an answer.
local function IsIndication(packet, type)
    local name = T.channels[packet.channel]
    return (name == "lte-data" or name == "gu-data") and type ~= T.agent_type
end

local function ShowAnswer(packet, id, payload)
    local report = IsGu(packet) and not T.answers[id] and T.reports[id % 65536]
    local layout = T.answers[id] or report and report.role ~= "request" and report.layout
    if payload and T.at_ids[id] and T.channels[packet.channel] == "at" then
        ShowAtText(packet, payload)
    elseif payload and layout then
        ShowRecord(packet, payload, layout)
    end
    ShowPayload(packet, payload)
end

local MESSAGE_KINDS = {air = true, ims = true}

local function ShowLteIndication(packet, kind, payload)
    local name = T.kinds[kind]
    local layout = name == "layer" and payload and T.measurements[payload:len()]
    if MESSAGE_KINDS[name] and payload and payload:len() >= T.layouts[T.message].size then
        layout = T.message
    end
    if layout then
        ShowRecord(packet, payload, layout)
    else
        packet.info = packet.info .. "  " .. (payload and payload:len() or 0) .. " bytes"
    end
    ShowPayload(packet, payload)
end

local function ToClient(packet, tvb)
    local head = T.ack
    if tvb:len() < head.size then
        packet.info = "packet"
        Malformed(packet, "packet of " .. tvb:len() .. " bytes")
        ShowPayload(packet, tvb)
        return
    end
    local type = Number(tvb, head.type) % 256
    local indication = IsIndication(packet, type)
    local lte = indication and not IsGu(packet)
    packet.info = lte and (T.kinds[type] or "kind " .. type) .. " indication" or indication and "indication" or "ack"
    local id = ShowId(packet, tvb, head.id)
    if indication then
        Add(packet.tree, lte and F.ack_field or F.indication, tvb, head.rc)
    else
        ShowResult(packet, tvb, head.rc)
    end
    ShowStamp(packet.tree, F.timestamp, tvb(head.timestamp[1], head.timestamp[2]))
    ShowTypeBits(packet, tvb, head.type, lte and F.kind or F.type)
    Add(packet.tree, F.length, tvb, head.length)
    local payload = Payload(packet, tvb, head)
    if lte then
        ShowLteIndication(packet, type, payload)
        return
    end
    ShowAnswer(packet, id, payload)
    if not indication then
        NoteAnswer(packet, ClientKey(packet, IsGu(packet) and id % 65536 or id), id == T.switch_id)
    end
end

----------------------------------------------------------------------------------------------- LTE packets of UEs

-- The bytes of a value of the packet's head by its pair; nil for none.
local function PairRange(tvb, pairs_of, which, name)
    local pair = pairs_of[which[name]]
    return pair and pair[2] <= VALUE_BYTES[name] and Range(tvb, pair[1], pair[2])
end

local HEAD_FIELDS = {mode = F.packet_mode, class = F.packet_class, length = F.packet_length, type = F.packet_type,
                     ack_field = F.ack_field}
local HEAD_ORDER = {"mode", "class", "type", "length", "ack_field"}

-- The fields of a head by a list of pairs. Gives id and type; nil, with an expert info, without an id.
local function ShowPacketHead(packet, tvb, pairs_of, which, bytes)
    Add(packet.tree, F.packet_head, tvb, {0, bytes})
    if not PairRange(tvb, pairs_of, which, "id") then
        Malformed(packet, "no id in " .. tvb:len() .. " bytes")
        return
    end
    local id = ShowId(packet, tvb, pairs_of[which.id])
    for _, name in ipairs(HEAD_ORDER) do
        local wanted = which[name] and packet.tree:referenced(HEAD_FIELDS[name])
        local value = wanted and PairRange(tvb, pairs_of, which, name)
        if value then
            packet.tree:add_le(HEAD_FIELDS[name], value)
        end
    end
    local stamp = which.timestamp and PairRange(tvb, pairs_of, which, "timestamp")
    if stamp then
        ShowStamp(packet.tree, F.timestamp, stamp)
    end
    local type = PairRange(tvb, pairs_of, which, "type")
    if tvb:len() < bytes then
        Malformed(packet, "head of " .. bytes .. " bytes has " .. tvb:len())
    end
    return id, type and type:le_uint()
end

local DPI_TYPE = 5
local COMMAND_CLASS = 1
local PARTIAL = 5 -- counts as done

-- The word that opens the payload of an answer to a command.
local function ShowUeResult(packet, payload)
    local item = Add(packet.tree, F.packet_result, payload, {0, 4})
    local result = Number(payload, {0, 4})
    if result ~= 0 and result ~= PARTIAL then
        Expert(packet, item, X.result, "Result " .. result .. " of the UE")
        packet.info = packet.info .. "  result " .. result
    end
end

-- Whether an id is that of a command for which the UE has a result; the third byte tells those of the handshake.
local function IsCommand(id)
    return math.floor(id / 0x10000000) == COMMAND_CLASS and math.floor(id / 0x10000) % 256 ~= T.manager_module
end

local function ShowPacketPayload(packet, payload, id, type, is_ack)
    if not payload then
        return
    end
    if type == DPI_TYPE and not T.nv_ids[id] and payload:len() >= T.layouts.dpi.size then
        ShowRecord(packet, payload, "dpi")
    elseif is_ack and type ~= DPI_TYPE and IsCommand(id) and payload:len() >= 4 then
        ShowUeResult(packet, payload)
    end
    ShowPayload(packet, payload)
end

local function UeKey(packet, id)
    return "ue" .. packet.ue .. ":" .. packet.channel .. ":" .. id
end

local function LteToUe(packet, tvb)
    packet.info = "command"
    local layout = LayoutAt(packet.pinfo.number)
    local id, type = ShowPacketHead(packet, tvb, layout.req, REQ, layout.req_bytes)
    local payload = Rest(tvb, layout.req_bytes)
    if not id then
        ShowPayload(packet, tvb)
        return
    end
    ShowPacketPayload(packet, payload, id, type, false)
    NoteRequest(packet, UeKey(packet, id == T.connect.request and T.connect.confirm or id))
end

-- Whether a packet of the UE is an indication: all of the data channel are, on the other one the tag tells.
local function IsData(packet, tvb, layout)
    local pair = layout.uid[TAG]
    local tag = pair and pair[2] <= 4 and Range(tvb, pair[1], pair[2])
    if tag then
        Add(packet.tree, F.packet_tag, tvb, {pair[1], 1})
    end
    return T.channels[packet.channel] == "lte-data" or (tag and T.data_tags[tag(0, 1):uint()] or false)
end

local function LteFromUe(packet, tvb)
    local layout = LayoutAt(packet.pinfo.number)
    local data = IsData(packet, tvb, layout)
    packet.info = data and "indication" or "answer"
    local bytes = data and layout.data_bytes or layout.ack_bytes
    local id, type = ShowPacketHead(packet, tvb, data and layout.data or layout.ack, data and DATA or ACK, bytes)
    if not id then
        ShowPayload(packet, tvb)
        return
    end
    local payload = Rest(tvb, bytes)
    ShowPacketPayload(packet, payload, id, type, not data)
    if data then
        packet.info = packet.info .. "  " .. (payload and payload:len() or 0) .. " bytes"
        return
    end
    NoteAnswer(packet, UeKey(packet, id == T.connect.request and T.connect.confirm or id))
end

------------------------------------------------------------------------------------------------ GU packets of UEs

local GU_FIELDS = {"category", "ssid", "length", "sn", "value", "sender_pid", "receiver_pid", "param_length"}

-- Which head a GU packet has: queries and the agent's short requests have their id in the place of the SN.
local function GuHead(packet, tvb)
    local category = tvb(0, 1):uint() % T.gu.modem_1
    if packet.to_ue then
        return tvb:len() >= T.gu_to_ue.size and T.gu_to_ue or T.gu_query
    end
    return category == T.gu.query and T.gu_query or T.gu_from_ue
end

-- The UE's answer to the lists of registers; its other confirms that reach clients have the ids of the reports, and
-- what is left is one higher than its request.
local REGISTER_ANSWERS = {[0xF502] = 0xF504, [0xF503] = 0xF505}

local function GuAnswerId(id)
    local report = T.reports[id]
    return REGISTER_ANSWERS[id] or report and report.answer or (id + 1) % 65536
end

local function ShowGuMessage(packet, tvb)
    local head = GuHead(packet, tvb)
    for _, name in ipairs(GU_FIELDS) do
        if head[name] then
            Add(packet.tree, F["gu_" .. name], tvb, head[name])
        end
    end
    local stamp = head.timestamp and Range(tvb, head.timestamp[1], head.timestamp[2])
    if stamp then
        ShowStamp(packet.tree, F.gu_timestamp, stamp)
    end
    local id = Number(tvb, head.id)
    if not id then
        Malformed(packet, "GU packet of " .. tvb:len() .. " bytes")
        return
    end
    id = id % 65536
    Add(packet.tree, F.id, tvb, head.id)
    Add(packet.tree, F.gu_id, tvb, {head.id[1], 2})
    packet.info = packet.info .. string.format(" 0x%04x", id)
    ShowPayload(packet, Rest(tvb, head.size))
    if packet.to_ue then
        NoteRequest(packet, UeKey(packet, GuAnswerId(id)))
    else
        NoteAnswer(packet, UeKey(packet, id))
    end
end

-- The messages of a frame's payload: one, or of some ids several in a row.
local function ShowGuMessages(packet, tvb, segments)
    local at = 0
    repeat
        local left = tvb:len() - at
        local length = Number(tvb, T.gu_from_ue.length, at)
        if not length then
            return Malformed(packet, "GU packet of " .. left .. " bytes")
        end
        local bytes = length + T.gu.length_base
        if bytes > left and segments <= 1 then
            Malformed(packet, "GU packet of " .. bytes .. " bytes has " .. left)
        end
        ShowGuMessage(packet, Rest(tvb, at, math.max(bytes, T.gu_query.id[1] + 2)))
        at = at + bytes
    until packet.to_ue or tvb:len() - at < T.gu.min_packet
end

local OM_MARK = "\x55\x55\xAA\xAA"
local OM_HEAD = 8 -- mark, length, segments, segment
local OM_EXTRA = 4 -- what the length counts beside the payload

-- A frame from its mark on. Gives its bytes, nil when the block ends within it.
local function ShowOmFrame(packet, tvb, at)
    local tree = packet.tree
    local length = Number(tvb, {4, 2}, at)
    Add(tree, F.om_start, tvb, {0, 4}, at)
    Add(tree, F.om_length, tvb, {4, 2}, at)
    Add(tree, F.om_segments, tvb, {6, 1}, at)
    Add(tree, F.om_segment, tvb, {7, 1}, at)
    local bytes = length and math.ceil(length / 4) * 4 + OM_HEAD
    if not bytes or at + bytes > tvb:len() then
        packet.info = packet.info .. " frame begins"
        ShowPayload(packet, Rest(tvb, at + OM_HEAD))
        return
    end
    local payload = Rest(tvb, at + OM_HEAD, math.max(length - OM_EXTRA, 0))
    local segments, segment = tvb(at + 6, 1):uint(), tvb(at + 7, 1):uint()
    if segment > 1 then
        packet.info = packet.info .. " segment " .. segment .. " of " .. segments
        ShowPayload(packet, payload)
    elseif payload and payload:len() > 0 and length > OM_EXTRA then
        ShowGuMessages(packet, payload, segments)
    end
    Add(tree, F.om_end, tvb, {bytes - 4, 4}, at)
    if Number(tvb, {bytes - 4, 4}, at) ~= T.gu.om_end then
        Malformed(packet, "no end mark")
    end
    return bytes
end

local function GuPacket(packet, tvb)
    packet.info = "GU"
    local raw = tvb:raw(0, tvb:len())
    local at = 0
    repeat
        local mark = raw:find(OM_MARK, at + 1, true)
        if not mark then
            break
        end
        Add(packet.tree, F.om_lead, tvb, {at, mark - 1 - at})
        local bytes = ShowOmFrame(packet, tvb, mark - 1)
        if not bytes then
            return
        end
        at = mark - 1 + bytes
    until at >= tvb:len()
    if at == 0 then
        packet.info = packet.to_ue and "GU link request" or "GU bytes without a frame's start"
    end
    ShowPayload(packet, Rest(tvb, at))
end

------------------------------------------------------------------------------------------- all other records

local function AtFromOrToUe(packet, tvb)
    packet.info = "AT"
    ShowAtText(packet, tvb)
end

local function Status(packet, tvb)
    packet.info = "status"
    local head = T.status
    local kind = Number(tvb, head.kind)
    Add(packet.tree, F.status_kind, tvb, head.kind)
    Add(packet.tree, F.status_length, tvb, head.length)
    if tvb:len() < head.size then
        Malformed(packet, "datagram of " .. tvb:len() .. " bytes")
        return
    end
    packet.info = T.status_kinds[kind] or "status of kind " .. kind
    local length = Number(tvb, head.length)
    if head.size + length > tvb:len() then
        Malformed(packet, "record of " .. length .. " bytes has " .. (tvb:len() - head.size))
    end
    local record = Rest(tvb, head.size, length)
    if record and T.status_layouts[kind] then
        ShowRecord(packet, record, T.status_layouts[kind])
    else
        ShowPayload(packet, record)
    end
end

-- An event in words, from its flags and texts: "channel at attached, not confirmed  /dev/ttyUSB3 1-4".
local function EventInfo(packet, tvb, layout)
    local states, texts = {}, {}
    for _, field in ipairs(layout.fields) do
        local range = Range(tvb, field.offset, field.type == "text" and field.count or field.bytes)
        if range and field.type == "text" then
            texts[#texts + 1] = Printable(Text(range))
        elseif range and field.type == "u8" then
            states[#states + 1] = (range:uint() == 0 and "not " or "") .. field.name
        end
    end
    local name = packet.channel ~= T.none and #states > 0 and T.channels[packet.channel] or ""
    local words = table.concat({layout.title, name, table.concat(states, ", ")}, " ")
    return words:gsub(" +$", "") .. "  " .. table.concat(texts, " ")
end

local function Event(packet, tvb)
    packet.info = "event"
    local event = Number(tvb, {0, 4})
    if not event then
        Malformed(packet, "event of " .. tvb:len() .. " bytes")
        ShowPayload(packet, tvb)
        return
    end
    Add(packet.tree, F.event, tvb, {0, 4})
    local layout = T.events[event] and "event_" .. T.events[event]
    if not layout then
        packet.info = "event of kind " .. event
        ShowPayload(packet, tvb)
        return
    end
    ShowRecord(packet, tvb, layout)
    packet.info = EventInfo(packet, tvb, T.layouts[layout])
end

local MOST_LINES = 10000

local function Configuration(packet, tvb)
    packet.info = "configuration"
    local text = tvb:raw(0, tvb:len())
    if not packet.pinfo.visited then
        layouts[#layouts + 1] = {packet.pinfo.number, ParseLayout(text)}
    end
    local at, lines = 1, 0
    while at <= #text and lines < MOST_LINES do
        local stop = text:find("\n", at, true) or #text + 1
        if text:find("^[ \t]*[^#%s]", at) and stop > at then
            local range = tvb(at - 1, stop - at)
            packet.tree:add(F.config_line, range, range:string(ENC_UTF_8))
            lines = lines + 1
        end
        at = stop + 1
    end
    packet.info = "configuration, " .. lines .. " lines"
end

local function Empty(packet)
    packet.info = "nothing"
    Malformed(packet, "no bytes")
end

-- What dissects the bytes of a UE's packet, by channel.
local UE_PACKETS = {
    ["gu-cmd"] = {GuPacket, GuPacket},
    ["gu-data"] = {GuPacket, GuPacket},
    ["at"] = {AtFromOrToUe, AtFromOrToUe},
}
local LTE_PACKETS = {LteFromUe, LteToUe}

local function UePacket(packet, tvb)
    local rows = UE_PACKETS[T.channels[packet.channel]] or LTE_PACKETS
    rows[packet.to_ue and 2 or 1](packet, tvb)
end

local RECORDS = {
    ["from-ue"] = UePacket,
    ["to-ue"] = UePacket,
    ["from-client"] = FromClient,
    ["to-client"] = ToClient,
    ["status"] = Status,
    ["event"] = Event,
    ["config"] = Configuration,
}

------------------------------------------------------------------------------------------------ head and columns

local PROTOCOLS = {["lte-diag"] = "Vex LTE", ["lte-data"] = "Vex LTE", ["gu-cmd"] = "Vex GU", ["gu-data"] = "Vex GU",
                   ["at"] = "Vex AT"}
local TRAFFIC = {["from-ue"] = true, ["to-ue"] = true, ["from-client"] = true, ["to-client"] = true}

local function ShowColumns(packet, kind)
    local cols = packet.pinfo.cols
    local ue = packet.ue == T.none and "UE" or "UE " .. packet.ue
    local client = "client " .. packet.client
    local ends = {
        ["from-ue"] = {ue, "agent"},
        ["to-ue"] = {"agent", ue},
        ["from-client"] = {client, "agent"},
        ["to-client"] = {"agent", client},
        ["status"] = {"agent", "monitor"},
        ["event"] = {packet.event_of_client and client or ue, "agent"},
    }
    local pair = ends[kind] or {"agent", ""}
    cols.src, cols.dst = pair[1], pair[2]
    cols.protocol = kind == "status" and "Vex status" or TRAFFIC[kind] and PROTOCOLS[T.channels[packet.channel]] or "Vex"
    cols.info = (packet.replayed and "(before) " or "") .. packet.info
end

local function ShowHead(packet, tvb)
    local head, tree = T.head, packet.tree
    Add(tree, F.version, tvb, head.version)
    Add(tree, F.direction, tvb, head.direction)
    local ue = Add(tree, F.ue, tvb, head.ue)
    if packet.ue == T.none then
        Append(ue, " (none)")
    end
    Add(tree, F.channel, tvb, head.channel)
    local flags = Add(tree, F.flags, tvb, head.flags) or tree
    Add(flags, F.replayed, tvb, head.flags)
    Add(flags, F.cut, tvb, head.flags)
    Add(flags, F.text, tvb, head.flags)
    Add(tree, F.port, tvb, head.port)
    Add(tree, F.client, tvb, head.client)
    Add(tree, F.number, tvb, head.number)
end

local function HasFlag(flags, flag)
    return math.floor(flags / flag) % 2 == 1
end

-- Losses stand in the drop count of the frame.
local function ShowLosses(packet)
    local info = drop_count()
    local lost = info and info.value
    if lost and lost > UInt64.new(0) then
        local item = packet.tree:add(F.lost, lost)
        item:set_generated()
        item:add_proto_expert_info(X.lost, tostring(lost) .. " records lost before this one")
    end
end

function vex.dissector(tvb, pinfo, tree)
    local head = T.head
    if tvb:len() < head.size then
        pinfo.cols.protocol = "Vex"
        pinfo.cols.info = "record of " .. tvb:len() .. " bytes [malformed]"
        tree:add(vex, tvb()):add_proto_expert_info(X.malformed, "record of " .. tvb:len() .. " bytes")
        return tvb:len()
    end
    local flags = Number(tvb, head.flags)
    local kind = T.directions[Number(tvb, head.direction)]
    local packet = {
        pinfo = pinfo,
        tree = tree:add(vex, tvb()),
        ue = Number(tvb, head.ue),
        channel = Number(tvb, head.channel),
        client = Number(tvb, head.client),
        replayed = HasFlag(flags, T.flags.replayed),
        cut = HasFlag(flags, T.flags.cut),
        text = HasFlag(flags, T.flags.text),
        to_ue = kind == "to-ue",
        info = "record of an unknown kind",
    }
    ShowHead(packet, tvb)
    ShowLosses(packet)
    if packet.cut then
        packet.tree:add_proto_expert_info(X.cut, "Record was cut")
    end
    local bytes = Rest(tvb, head.size)
    packet.event_of_client = kind == "event" and bytes and T.events[Number(bytes, {0, 4}) or 0] == "client"
    local dissect = not bytes and Empty or RECORDS[kind] or ShowPayload
    dissect(packet, bytes)
    ShowLinks(packet)
    Append(packet.tree, ", " .. packet.info)
    ShowColumns(packet, kind)
    return tvb:len()
end
