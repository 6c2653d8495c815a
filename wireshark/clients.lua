-- Packets of clients: requests, answers, indications.

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
    if layout then
        packet.info = packet.info .. " " .. T.layouts[layout].title
    end
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
