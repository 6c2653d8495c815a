-- The other kinds of records, and the way from the head of a record to what dissects its bytes.

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
    local text = tvb and tvb:raw(0, tvb:len()) or ""
    if not packet.pinfo.visited and not packet.cut then -- a part may lack the layout, which stands at the end
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

local function UnknownVersion(packet, tvb)
    Malformed(packet, "version of the record isn't known")
    ShowPayload(packet, tvb)
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

local PROTOCOLS = {["lte-diag"] = "Vex LTE", ["lte-data"] = "Vex LTE", ["gu-cmd"] = "Vex GU", ["gu-data"] = "Vex GU",
                   ["at"] = "Vex AT"}
local TRAFFIC = {["from-ue"] = true, ["to-ue"] = true, ["from-client"] = true, ["to-client"] = true}

local function UeEnd(packet)
    return packet.ue == T.none and "UE" or "UE " .. packet.ue
end

local function ClientEnd(packet)
    return "client " .. packet.client
end

-- Who stands at the other end than the agent, and whether it is the source.
local OTHER_END = {
    ["from-ue"] = {UeEnd, true},
    ["to-ue"] = {UeEnd, false},
    ["from-client"] = {ClientEnd, true},
    ["to-client"] = {ClientEnd, false},
    ["status"] = {function() return "monitor" end, false},
    ["event"] = {function(packet) return packet.event_of_client and ClientEnd(packet) or UeEnd(packet) end, true},
    ["config"] = {function() return "" end, false},
}

local function ShowColumns(packet, kind)
    local cols = packet.pinfo.cols
    local row = OTHER_END[kind] or OTHER_END["config"]
    local other = row[1](packet)
    cols.src, cols.dst = row[2] and other or "agent", row[2] and "agent" or other
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
        cut = HasFlag(flags, T.flags.cut) or tvb:reported_len() > tvb:len(), -- by the tap, or in the file
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
    local dissect = RECORDS[kind] or ShowPayload
    if Number(tvb, head.version) ~= T.version then
        dissect = UnknownVersion
    elseif not bytes and kind ~= "config" then
        dissect = Empty
    end
    dissect(packet, bytes)
    ShowLinks(packet)
    Append(packet.tree, ", " .. packet.info)
    ShowColumns(packet, kind)
    return tvb:len()
end
