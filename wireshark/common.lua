-- Pieces that packets of several kinds have.

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
    Add(packet.tree, field, tvb, place)
    Add(packet.tree, F.mode, tvb, place)
    Add(packet.tree, F.reserved, tvb, place)
    return Number(tvb, place) % 256
end
