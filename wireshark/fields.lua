-- Dissects the records of Vex captures: exported PDUs named "vex", each a head and the bytes of one tap record.
--
-- The build puts the programs' tables, T, and these files into one: fields, reading, layout, links, common, clients, lte,
-- gu, vex. T has names, places of head fields ({offset, bytes}) and the layouts of records. A field of a layout is {name,
-- abbreviation, offset, type, count, names of values}; a group is records that follow. Reads are checked against the
-- bytes that are there: any bytes dissect. A packet is a table of what its parts need: pinfo, its tree, the head's
-- values, and info, the text for the Info column.

local vex = Proto("vex", "Vex")

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
