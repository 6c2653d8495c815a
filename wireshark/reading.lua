-- Reading that is checked, and records by their layout.

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

-- Fields are added only when somebody looks at them (referenced): lists of packets come out about twice as fast.

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
