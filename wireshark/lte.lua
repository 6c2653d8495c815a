-- LTE packets of the UEs, by the layout of the capture.

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
