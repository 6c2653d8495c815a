-- GU packets of the UEs: OM frames and the messages in them.

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
