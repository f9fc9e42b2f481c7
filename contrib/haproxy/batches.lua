-- Reads batches on their way to the daemon: when one is whole, what it asks for, and who holds the bus
-- after it.

local MAX_REQUESTS, NUM_SLOTS, MAX_TX, MAX_RX = 100, 32, 4094, 4096
local CLAIM, RELEASE = 1, 2

-- The daemon reads id and count, the headers, then the data of one request after another, and
-- refuses the batch where a word is out of its range. A batch is whole when the daemon can read it to
-- its end, or up to what it refuses, without waiting for another byte. Returns nil before that; the
-- batch has no requests if it will be refused.
local function parse (bytes)
    if #bytes < 8 then return nil end
    local id, count = string.unpack (">i4i4", bytes)
    local refused = {id = id, count = count}
    if count < 1 or count > MAX_REQUESTS then return refused end
    local length = 8 + 16 * count
    if #bytes < length then return nil end
    local requests, sum = {}, 0
    for header = 9, length, 16 do
        local slot, command, rxlen, txlen = string.unpack (">I4I4I4I4", bytes, header)
        sum = sum + txlen
        if slot >= NUM_SLOTS or rxlen > MAX_RX or txlen > MAX_TX or sum > MAX_TX then
            return refused
        end
        if #bytes < length + sum then return nil end
        requests[#requests + 1] = {slot = slot, command = command}
    end
    return {id = id, count = count, requests = requests}
end

local function is_transfer (request)
    return request.command ~= CLAIM and request.command ~= RELEASE
end

-- The slots in ascending order, for example 3-7,21.
local function slots_of (batch)
    local asked, parts = {}, {}
    for _, request in ipairs (batch.requests or {}) do
        asked[request.slot] = asked[request.slot] or is_transfer (request)
    end
    local slot = 0
    while slot < NUM_SLOTS do
        local first = slot
        while asked[slot] do slot = slot + 1 end
        if slot - first == 1 then
            parts[#parts + 1] = tostring (first)
        elseif slot > first then
            parts[#parts + 1] = first .. "-" .. slot - 1
        end
        slot = slot + 1
    end
    return table.concat (parts, ",")
end

-- What the last claim or release of the batch leaves; nil without one.
local function change_of (batch)
    local change
    for _, request in ipairs (batch.requests or {}) do
        if not is_transfer (request) then change = request.command end
    end
    return change
end

-- Who holds the bus, as far as batches through this front show: an id, 0 for nobody, nil for unknown.
local holder, since, from

local function holder_word ()
    return holder == nil and "unknown" or holder == 0 and "nobody" or tostring (holder)
end

core.register_fetches ("batch_is_whole", function (txn)
    local batch = parse (txn.f:req_payload (0, 0) or "")
    if batch == nil then return false end
    txn:set_var ("txn.id", batch.id)
    txn:set_var ("txn.count", batch.count)
    txn:set_var ("txn.slots", slots_of (batch))
    txn:set_var ("txn.change", change_of (batch) or 0)
    txn:set_var ("txn.holder", holder_word ())
    return true
end)

-- A batch is answered only if the bus was free or its id's own, and its claims and releases succeed.
core.register_action ("answered", {"tcp-res"}, function (txn)
    local id, change = txn:get_var ("txn.id"), txn:get_var ("txn.change")
    local now = holder
    if change == CLAIM then
        now = id
    elseif change == RELEASE or holder ~= id and holder ~= nil then
        now = 0
    end
    if now ~= holder then
        holder, since, from = now, os.date ("!%Y-%m-%dT%H:%M:%SZ"), txn.f:src ()
    end
    txn:set_var ("txn.holder", holder_word ())
end)

-- "Who has the bus?", in a line.
core.register_service ("holder", "http", function (applet)
    local text = "unknown: no claim or release has passed since the front started\n"
    if holder == 0 then
        text = "nobody holds the bus, since " .. since .. "\n"
    elseif holder then
        text = ("id %d holds the bus, since %s, claimed from %s\n"):format (holder, since, from)
    end
    applet:set_status (200)
    applet:add_header ("content-type", "text/plain")
    applet:add_header ("content-length", #text)
    applet:start_response ()
    applet:send (text)
end)
