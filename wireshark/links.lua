-- What is kept from packet to packet of a file. It is noted in the first pass and only shown in others.

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
