-- Wireshark dissector for TCP port 1971: batches of requests to q5_scand, and their replies
-- (docs/protocol.md). Its display and its filters: README.md. For Wireshark 4.0 or later.

local q5_scan = Proto ("q5_scan", "Q5 Scan")

local port = 1971
local word_size, head_size, header_size = 4, 8, 16
local most_requests, most_slot, most_rx, most_tx = 100, 31, 4096, 4094
local claim, release, typed_message = 1, 2, 51

local command_names = {
    [claim] = "claim",
    [release] = "release",
    [typed_message] = "typed message",
    [83] = "raw block",
    [147] = "short message",
}

-- Results, worded as q5_scan words them.
local results = {
    [-1] = {
        state = "line error",
        meaning = "the answer was damaged: a break, a framing error, an overrun, noise, or no " ..
            "address character before it",
        look_at = "the bus cabling, and the bit rate of the card (slots 23 and 24 run at a " ..
            "fifth of the rate of the others)",
    },
    [-2] = {
        state = "no such slot, or line low",
        meaning = "the slot does not exist, or its receive line is held low",
        look_at = "the slot number (21, 22, 25, 26 and 31 do not exist), then a card in it that " ..
            "holds the line low",
    },
    [-3] = {
        state = "no card, or silent",
        meaning = "the request went out, and no complete answer came within 110 ms",
        look_at = "whether a card is plugged in, has power and knows this command",
    },
    [-4] = {
        state = "wrong address",
        meaning = "the answer came to the second address (0xA5), or a length was beyond its limit",
        look_at = "the address that the card answers to: it must be 0x5A",
    },
    [-10] = {
        state = "not sent",
        meaning = "the request was not completely sent within 110 ms",
        look_at = "a card that holds up the transmitter, the clock of the bus, and in slots 23 " ..
            "and 24 the length: about 1600 bytes go out in that time",
    },
}
local unknown_result = {
    state = "unknown result",
    meaning = "a result that this program does not know",
    look_at = "whether the daemon is a q5_scand of another version",
}
local refused = {
    state = "refused",
    meaning = "another id holds the bus",
    look_at = "which program holds the bus: it must release it first",
}

local f = {
    id = ProtoField.int32 ("q5_scan.id", "Client id"),
    num_requests = ProtoField.int32 ("q5_scan.num_requests", "Number of requests"),
    holder = ProtoField.int32 ("q5_scan.holder", "Bus held by id"),
    claimed_in = ProtoField.framenum ("q5_scan.claimed_in", "Claim granted in"),
    closed_in = ProtoField.framenum ("q5_scan.closed_in", "Connection closed in"),

    request = ProtoField.none ("q5_scan.request", "Request"),
    slot = ProtoField.int32 ("q5_scan.request.slot", "Slot"),
    command = ProtoField.int32 ("q5_scan.request.command", "Command"),
    rxlen = ProtoField.int32 ("q5_scan.request.rxlen", "Bytes wanted"),
    txlen = ProtoField.int32 ("q5_scan.request.txlen", "Bytes to transmit"),
    tx = ProtoField.bytes ("q5_scan.request.data", "Data"),
    line = ProtoField.string ("q5_scan.request.line", "Line for q5_scan batch"),
    response_in = ProtoField.framenum ("q5_scan.response_in", "Reply in", base.NONE,
        frametype.RESPONSE),

    reply = ProtoField.none ("q5_scan.reply", "Reply"),
    reply_slot = ProtoField.int32 ("q5_scan.reply.slot", "Slot"),
    reply_command = ProtoField.int32 ("q5_scan.reply.command", "Command"),
    result = ProtoField.int32 ("q5_scan.reply.result", "Result"),
    meaning = ProtoField.string ("q5_scan.reply.meaning", "Meaning"),
    rx = ProtoField.bytes ("q5_scan.reply.data", "Data"),
    request_in = ProtoField.framenum ("q5_scan.request_in", "Request in", base.NONE,
        frametype.REQUEST),
    time = ProtoField.relative_time ("q5_scan.time", "Time since the batch"),

    message = ProtoField.none ("q5_scan.message", "Typed message"),
    num_letters = ProtoField.int8 ("q5_scan.message.num_letters", "Number of letters"),
    letters = ProtoField.string ("q5_scan.message.letters", "Letters"),
    byte = ProtoField.uint8 ("q5_scan.message.byte", "Byte"),
    sbyte = ProtoField.int8 ("q5_scan.message.sbyte", "Signed byte"),
    short = ProtoField.uint16 ("q5_scan.message.short", "Short"),
    sshort = ProtoField.int16 ("q5_scan.message.sshort", "Signed short"),
    int = ProtoField.int32 ("q5_scan.message.int", "Int"),
    uint = ProtoField.uint32 ("q5_scan.message.uint", "Unsigned int"),
    value = ProtoField.double ("q5_scan.message.value", "Value"),
    string = ProtoField.stringz ("q5_scan.message.string", "String"),
    bytes = ProtoField.bytes ("q5_scan.message.bytes", "Bytes"),
    left = ProtoField.bytes ("q5_scan.message.left", "Bytes left"),

    outside = ProtoField.bytes ("q5_scan.outside", "Bytes outside batch and replies"),
}
q5_scan.fields = f

local function info (name, text, group, severity)
    return ProtoExpert.new ("q5_scan." .. name, text, group, severity)
end

local group, severity = expert.group, expert.severity
local x = {
    malformed = info ("malformed", "Malformed batch", group.MALFORMED, severity.ERROR),
    short = info ("short", "Incomplete batch", group.MALFORMED, severity.ERROR),
    stray = info ("stray", "Stray bytes", group.PROTOCOL, severity.WARN),
    dropped = info ("dropped", "Dropped batch", group.SEQUENCE, severity.WARN),
    unanswered = info ("unanswered", "Unanswered batch", group.SEQUENCE, severity.WARN),
    failed = info ("failed", "Failed request", group.RESPONSE_CODE, severity.NOTE),
    damaged = info ("message.damaged", "Damaged message", group.MALFORMED, severity.WARN),
    undecoded = info ("undecoded", "Not decoded", group.UNDECODED, severity.NOTE),
}
q5_scan.experts = x

local tcp_stream = Field.new ("tcp.stream")
local tcp_seq, tcp_len = Field.new ("tcp.seq_raw"), Field.new ("tcp.len")
local tcp_fin, tcp_reset = Field.new ("tcp.flags.fin"), Field.new ("tcp.flags.reset")
local tcp_lost = Field.new ("tcp.analysis.lost_segment")

-- State from the first pass over a capture; later passes visit packets in any order.
--   conversations  by TCP stream: server, batch, number of the next reply, how it ended
--   pieces         by frame and offset: what the bytes of one dissector call contain
--   holders        by server: id that holds the bus, frame that granted the claim
--   closings       by frame: what the end of a connection means, or false
local conversations, pieces, holders, closings

function q5_scan.init ()
    conversations, pieces, holders, closings = {}, {}, {}, {}
end

---- Type letters

local usual_types = "b=byte,h=short,i=int,s=string,x=rest"
local kinds = {
    byte = {field = f.byte, size = 1},
    sbyte = {field = f.sbyte, size = 1, is_signed = true},
    short = {field = f.short, size = 2},
    sshort = {field = f.sshort, size = 2, is_signed = true},
    int = {field = f.int, size = 4, is_signed = true},
    uint = {field = f.uint, size = 4},
    string = {field = f.string, encoding = ENC_UTF_8, is_string = true},
    rest = {field = f.bytes},
    bytes = {field = f.bytes},
}
local types -- by letter: an array of types, for its first field in a message, its second, ...

q5_scan.prefs.types = Pref.string ("Type letters", usual_types,
    "Types of the letters of a typed message, as in q5_scan --types: " ..
    "LETTER[N]=TYPE[*SCALE][:NAME],... where the type is byte, sbyte, short, sshort, int, uint, " ..
    "string, bytes:COUNT or rest")

local function read_type (text)
    local size, name = (text .. ":"):match ("^bytes:(%d+):(.-):?$")
    if size then
        return {kind = kinds.bytes, size = tonumber (size), name = name}
    end
    local word, factor, name = (text .. ":"):match ("^(%l+)([^:]*):(.-):?$")
    local kind, scale = kinds[word], factor and tonumber (factor:match ("^%*(.+)$"))
    if not kind or word == "bytes" or factor ~= "" and not (scale and kind.size) then
        return nil
    end
    return {kind = kind, size = kind.size, scale = scale, name = name}
end

-- False if the entry is malformed, or if that field of the letter already has a type.
local function add_type (entry)
    local letter, number, text = entry:match ("^%s*(.)(%d*)=(.-)%s*$")
    local type, at = text and read_type (text), tonumber (number) or 1
    local fields = types[letter] or {}
    if not type or at <= #fields or at > 127 then
        return false
    end
    while #fields < at - 1 do
        fields[#fields + 1] = fields[#fields] or type
    end
    fields[at] = type
    types[letter] = fields
    return true
end

local function read_types ()
    types = {}
    for entry in q5_scan.prefs.types:gmatch ("[^,]+") do
        if not add_type (entry) then
            report_failure ("q5_scan: type letters: '" .. entry .. "' is not LETTER=TYPE, or " ..
                "repeats a letter. Example: A=int,B=sshort*0.1:celsius,C=bytes:4")
        end
    end
end
read_types ()
q5_scan.prefs_changed = read_types

---- The packet list

local function summarize (pinfo, text)
    if tostring (pinfo.cols.protocol) == "Q5SCAN" then -- the frame has a summary already
        pinfo.cols.info:append ("; " .. text)
    else
        pinfo.cols.protocol = "Q5SCAN"
        pinfo.cols.info = text
    end
    pinfo.cols.info:fence ()
end

---- Batches

local function is_within (value, least, most)
    return value >= least and value <= most
end

local function fault_of_request (request, tx_count)
    local out_of_range = "%s %d is not 0 to %d"
    if not is_within (request.slot, 0, most_slot) then
        return out_of_range:format ("slot", request.slot, most_slot)
    elseif not is_within (request.txlen, 0, most_tx) then
        return out_of_range:format ("txlen", request.txlen, most_tx)
    elseif not is_within (request.rxlen, 0, most_rx) then
        return out_of_range:format ("rxlen", request.rxlen, most_rx)
    elseif tx_count + request.txlen > most_tx then
        return ("up to here %d bytes to transmit, more than %d"):format (
            tx_count + request.txlen, most_tx)
    end
end

local function read_request (tvb, number)
    local at = head_size + header_size * (number - 1)
    local function word (index)
        return tvb (at + word_size * index, word_size):int ()
    end
    return {
        number = number, at = at,
        slot = word (0), command = word (1), rxlen = word (2), txlen = word (3),
    }
end

-- Returns nil and the number of missing bytes, if known, unless the batch is complete. `length` counts
-- the bytes that the daemon reads: of a malformed batch, at most its headers.
local function read_batch (tvb)
    if tvb:len () < head_size then
        return nil
    end
    local batch = {requests = {}, length = head_size}
    batch.id, batch.num_requests = tvb (0, 4):int (), tvb (4, 4):int ()
    if not is_within (batch.num_requests, 1, most_requests) then
        batch.fault = ("%d requests, not 1 to %d"):format (batch.num_requests, most_requests)
        return batch
    end
    local headers = head_size + header_size * batch.num_requests
    if tvb:len () < headers then
        return nil
    end
    local tx_count = 0
    for number = 1, batch.num_requests do
        local request = read_request (tvb, number)
        request.tx_at = headers + tx_count
        request.fault = fault_of_request (request, tx_count)
        if request.fault then
            batch.fault = batch.fault or ("request %d: %s"):format (number, request.fault)
        else
            tx_count = tx_count + request.txlen
        end
        batch.requests[number] = request
    end
    batch.length = headers + (batch.fault and 0 or tx_count)
    if tvb:len () < batch.length then
        return nil, batch.length - tvb:len ()
    end
    return batch
end

local function plural (count, noun)
    return count .. " " .. (count == 1 and noun or noun:gsub ("y$", "ie") .. "s")
end

local function is_for_daemon (request)
    return request.command == claim or request.command == release
end

local function name_of (request)
    local name = command_names[request.command]
    if is_for_daemon (request) then
        return name
    end
    local text = ("slot %d command %d"):format (request.slot, request.command)
    return name and ("%s (%s)"):format (text, name) or text
end

-- The request as a line for q5_scan batch; by number if a claim or release has other words set.
local function line_of (tvb, request)
    local is_bare = request.slot == 0 and request.rxlen == 0 and request.txlen == 0
    if is_bare and is_for_daemon (request) then
        return command_names[request.command]
    end
    local tx = ""
    if request.txlen > 0 then
        tx = " --tx " .. tvb:bytes (request.tx_at, request.txlen):tohex (true)
    end
    return ("%d %d%s --rx %d"):format (request.slot, request.command, tx, request.rxlen)
end

local function show_request (tree, tvb, batch, request)
    local at = request.at
    local item = tree:add (f.request, tvb (at, header_size))
    item:set_text (("Request %d: %s"):format (request.number, name_of (request)))
    item:add (f.slot, tvb (at, 4))
    item:add (f.command, tvb (at + 4, 4))
    item:add (f.rxlen, tvb (at + 8, 4))
    item:add (f.txlen, tvb (at + 12, 4))
    if request.fault then
        item:add_proto_expert_info (x.malformed, "Malformed batch: " .. request.fault)
    end
    if batch.fault then
        return
    end
    if request.txlen > 0 then
        item:add (f.tx, tvb (request.tx_at, request.txlen))
    end
    item:add (f.line, line_of (tvb, request)):set_generated ()
    if request.response_in then
        item:add (f.response_in, request.response_in):set_generated ()
    end
end

local function show_holder (tree, holder)
    if holder then
        tree:add (f.holder, holder.id):set_generated ()
        tree:add (f.claimed_in, holder.frame):set_generated ()
    end
end

-- How the batch ended; incomplete during the first pass.
local function show_fate (tree, conversation, batch)
    local ending, holder = conversation.ending, batch.holder
    if ending then
        tree:add_proto_expert_info (ending.expert, ending.text)
        tree:add (f.closed_in, ending.frame):set_generated ()
    elseif conversation.next_reply == 1 and holder and holder.id ~= batch.id then
        tree:add_proto_expert_info (x.dropped,
            ("Id %d holds the bus: dropped unless it is released first"):format (holder.id))
    end
end

local function show_batch (tree, tvb, pinfo, conversation, batch)
    local text = ("Batch of id %d, %s"):format (batch.id, plural (batch.num_requests, "request"))
    summarize (pinfo, text .. (batch.fault and ", malformed" or ""))
    tree:append_text (", " .. text)
    tree:add (f.id, tvb (0, 4))
    local count = tree:add (f.num_requests, tvb (4, 4))
    if batch.fault and #batch.requests == 0 then
        count:add_proto_expert_info (x.malformed, "Malformed batch: " .. batch.fault)
    end
    show_holder (tree, batch.holder)
    show_fate (tree, conversation, batch)
    for _, request in ipairs (batch.requests) do
        show_request (tree, tvb, batch, request)
    end
end

---- Typed messages

local function shown_letter (letter)
    return letter:match ("^[!-~]$") or ("\\x%02x"):format (letter:byte ())
end

-- Returns the size of the field in bytes; or nil, and why.
local function size_of_field (letter, type, left)
    local shown = "letter " .. shown_letter (letter)
    if not type then
        return nil, shown .. " has no type"
    elseif type.kind.is_string then
        local at = left:find ("\0", 1, true)
        return at, not at and "the string of " .. shown .. " has no terminating NUL" or nil
    end
    local size = type.size or #left
    if size > #left then
        return nil, shown .. " runs past the end of the payload"
    end
    return size
end

-- Wireshark rejects an empty range at the end of another one.
local function part_of (range, at, size)
    return range (size == 0 and 0 or at, size)
end

local function show_field (tree, range, letter, type)
    local encoding = type.kind.encoding or ENC_BIG_ENDIAN
    local item = tree:add_packet_field (type.kind.field, range, encoding)
    local name = type.name ~= "" and ", " .. type.name or ""
    item:append_text ((" (letter %s%s)"):format (shown_letter (letter), name))
    if type.scale then
        local number = type.kind.is_signed and range:int () or range:uint ()
        item:add (f.value, range, number * type.scale):set_generated ()
    end
end

-- Returns where the fields end, and what kept it from decoding all of them.
local function show_fields (tree, range, letters, at)
    local raw, counts = range:raw (), {}
    for letter in letters:gmatch (".") do
        local known = types[letter] or {}
        counts[letter] = math.min ((counts[letter] or 0) + 1, #known)
        local type = known[counts[letter]]
        local size, problem = size_of_field (letter, type, raw:sub (at + 1))
        if not size then
            return at, problem
        end
        show_field (tree, part_of (range, at, size), letter, type)
        at = at + size
    end
    return at
end

local function show_message (parent, range, is_whole)
    local tree = parent:add (f.message, range)
    tree:add (f.num_letters, range (0, 1))
    local num_letters, at, problem = range (0, 1):int (), 1, nil
    if num_letters < 0 or num_letters >= range:len () then
        problem = ("it announces %d letters, bytes after that: %d"):format (
            range (0, 1):uint (), range:len () - 1)
    else
        local letters = range:raw ():sub (2, 1 + num_letters)
        tree:add (f.letters, part_of (range, 1, num_letters))
        at, problem = show_fields (tree, range, letters, 1 + num_letters)
    end
    if at < range:len () then
        tree:add (f.left, range (at))
    end
    if problem then
        tree:add_proto_expert_info (is_whole and x.damaged or x.undecoded,
            (is_whole and "Damaged message: " or "Not all of it was fetched: ") .. problem)
    end
end

---- Replies

-- `data` counts the bytes after the result; the result is nil if incomplete.
local function read_reply (tvb, at, request)
    local reply = {request = request, at = at, data = 0, length = word_size}
    if tvb:len () - at >= word_size then
        reply.result = tvb (at, word_size):int ()
        reply.data = math.max (0, math.min (reply.result, request.rxlen))
        reply.length = word_size + reply.data
    end
    return reply
end

-- Returns the complete replies from that number on, where they end, whether an incomplete one follows,
-- and how many bytes that one lacks, if known.
local function read_replies (tvb, requests, number)
    local replies, at = {}, 0
    while at < tvb:len () and requests[number] do
        local reply = read_reply (tvb, at, requests[number])
        if at + reply.length > tvb:len () then
            return replies, at, true, reply.result and at + reply.length - tvb:len ()
        end
        replies[#replies + 1] = reply
        at = at + reply.length
        number = number + 1
    end
    return replies, at, false
end

-- Updates who holds the bus after this reply. An id that is served shows that no other holds it.
local function follow_claim (conversation, reply, frame)
    local command, id, server = reply.request.command, conversation.batch.id, conversation.server
    if is_for_daemon (reply.request) and reply.result ~= 1 then
        return
    end
    if holders[server] and holders[server].id ~= id or command == release then
        holders[server] = nil
    end
    if command == claim and id ~= 0 and not holders[server] then
        holders[server] = {id = id, frame = frame}
    end
end

local function meaning_of (reply, id)
    local is_daemons = is_for_daemon (reply.request)
    if reply.result < (is_daemons and 1 or 0) then
        return is_daemons and refused or results[reply.result] or unknown_result
    elseif not is_daemons then
        return {meaning = plural (reply.result, "byte") .. " received"}
    elseif reply.request.command == release then
        return {meaning = "the bus is free"}
    end
    return {meaning = id == 0 and "granted, but id 0 holds nothing" or "granted"}
end

local function show_result (item, tvb, reply, id)
    local words = meaning_of (reply, id)
    item:append_text (": " .. (words.state or words.meaning))
    local range = tvb (reply.at, word_size)
    item:add (f.result, range):append_text (" (" .. (words.state or words.meaning) .. ")")
    item:add (f.meaning, range, words.meaning):set_generated ()
    if words.look_at then
        item:add_proto_expert_info (x.failed, ("Failed (%d), %s. Look at: %s"):format (
            reply.result, words.meaning, words.look_at))
    end
end

local function show_data (item, tvb, reply)
    if reply.data == 0 then
        return
    end
    local range = tvb (reply.at + word_size, reply.data)
    local data = item:add (f.rx, range)
    if is_for_daemon (reply.request) then
        data:append_text (" (without meaning)")
    elseif reply.data < reply.result then
        data:append_text ((" (%d of %d bytes fetched)"):format (reply.data, reply.result))
    end
    if reply.request.command == typed_message then
        show_message (item, range, reply.data == reply.result)
    end
end

local function time_from (seconds) -- to the microsecond: further digits are rounding errors
    local whole = math.floor (seconds)
    return NSTime (whole, math.floor ((seconds - whole) * 1e6 + 0.5) * 1000)
end

local function show_reply (tree, tvb, pinfo, batch, reply)
    local request = reply.request
    local item = tree:add (f.reply, tvb (reply.at, reply.length))
    item:set_text (("Reply %d: %s"):format (request.number, name_of (request)))
    item:add (f.reply_slot, request.slot):set_generated ()
    item:add (f.reply_command, request.command):set_generated ()
    show_result (item, tvb, reply, batch.id)
    show_data (item, tvb, reply)
    item:add (f.request_in, batch.frame):set_generated ()
    item:add (f.time, time_from (pinfo.rel_ts - batch.time)):set_generated ()
end

local function show_replies (tree, tvb, pinfo, batch, replies)
    local first, last = replies[1].request.number, replies[#replies].request.number
    local text = first == last and "Reply " .. first or ("Replies %d to %d"):format (first, last)
    text = ("%s of %d to id %d"):format (text, batch.num_requests, batch.id)
    summarize (pinfo, text)
    tree:append_text (", " .. text)
    for _, reply in ipairs (replies) do
        show_reply (tree, tvb, pinfo, batch, reply)
    end
end

---- The two directions of a connection

local lost_text = "Preceding bytes are missing from the capture"
local cut_text = "The rest is not available: packets were truncated, or reassembly of TCP streams " ..
    "is disabled"
local unread_text = "Bytes after the batch: not read"

local function show_outside (tree, range, kind, text)
    local item = tree:add (f.outside, range)
    if kind then
        item:add_proto_expert_info (kind, text)
    end
end

-- Asks for that many more bytes, or for the next segment. If reassembly is impossible, the rest of this
-- direction is not decoded.
local function wait_for (missing, at, tvb, pinfo, branch, way)
    if pinfo.can_desegment > 0 and tvb:len () == tvb:reported_len () then
        pinfo.desegment_offset = at
        pinfo.desegment_len = missing or DESEGMENT_ONE_MORE_SEGMENT
    else
        way.is_lost = true
        show_outside (branch (), tvb (at), x.undecoded, cut_text)
    end
end

-- Classifies the bytes of a client, on the first pass.
local function read_client_piece (tvb, pinfo, conversation)
    local way = conversation.client
    way.is_begun = true
    way.first_seq = way.first_seq or tcp_seq () and tcp_seq ().value
    way.is_lost = way.is_lost or tcp_lost () ~= nil
    if way.is_lost or conversation.batch then
        return {kind = way.is_lost and x.undecoded or x.stray}
    end
    local batch, missing = read_batch (tvb)
    if not batch then
        conversation.id = tvb:len () >= word_size and tvb (0, word_size):int () or nil
        return {is_part = true, missing = missing}
    end
    batch.frame, batch.time = pinfo.number, pinfo.rel_ts
    batch.holder = holders[conversation.server]
    conversation.batch, conversation.id = batch, batch.id
    return {batch = batch}
end

local function show_client_piece (piece, tvb, pinfo, conversation, branch)
    local batch = piece.batch
    if piece.is_part then
        wait_for (piece.missing, 0, tvb, pinfo, branch, conversation.client)
    elseif not batch then
        local text = piece.kind == x.stray and unread_text or lost_text
        show_outside (branch (), tvb (), piece.kind, text)
    else
        local tree = branch ()
        show_batch (tree, tvb, pinfo, conversation, batch)
        if tvb:len () > batch.length then
            show_outside (tree, tvb (batch.length), not batch.fault and x.stray, unread_text)
        end
    end
end

local function read_server_piece (tvb, pinfo, conversation)
    local way = conversation.daemon
    way.is_lost = way.is_lost or tcp_lost () ~= nil
    local first, batch = conversation.next_reply, conversation.batch
    if way.is_lost or not batch then
        way.is_lost = true
        return {text = batch and lost_text or "The capture lacks all or part of the batch"}
    end
    for _, reply in ipairs (read_replies (tvb, batch.requests, first)) do
        reply.request.response_in = pinfo.number
        follow_claim (conversation, reply, pinfo.number)
        conversation.next_reply = reply.request.number + 1
    end
    return {first = first}
end

local function show_server_piece (piece, tvb, pinfo, conversation, branch)
    if piece.text then
        return show_outside (branch (), tvb (), x.undecoded, piece.text)
    end
    local batch = conversation.batch
    local replies, at, is_part, missing = read_replies (tvb, batch.requests, piece.first)
    if #replies > 0 then
        show_replies (branch (), tvb, pinfo, batch, replies)
    end
    if is_part then
        wait_for (missing, at, tvb, pinfo, branch, conversation.daemon)
    elseif at < tvb:len () then
        show_outside (branch (), tvb (at), x.stray, "Bytes after the last reply")
    end
end

-- By TCP stream index; by address and port in the first of two passes without a filter, which has no
-- index.
local function conversation_of (pinfo)
    local source = ("%s port %d"):format (tostring (pinfo.src), pinfo.src_port)
    local destination = ("%s port %d"):format (tostring (pinfo.dst), pinfo.dst_port)
    local stream = tcp_stream ()
    local ends = source < destination and source .. destination or destination .. source
    local key = stream and stream.value or ends
    return conversations[key] or conversations[ends], key, source, destination
end

local function begin_conversation (pinfo, is_client)
    local conversation, key, source, destination = conversation_of (pinfo)
    if not conversation then
        conversation = {
            server = is_client and destination or source,
            port = is_client and pinfo.dst_port or pinfo.src_port,
            next_reply = 1, client = {}, daemon = {},
        }
        conversations[key] = conversation
    end
    return conversation
end

local function read_piece (tvb, pinfo)
    local is_client = pinfo.dst_port == pinfo.match_uint
    local conversation = begin_conversation (pinfo, is_client)
    local read = is_client and read_client_piece or read_server_piece
    local piece = read (tvb, pinfo, conversation)
    piece.show = is_client and show_client_piece or show_server_piece
    piece.conversation = conversation
    return piece
end

function q5_scan.dissector (tvb, pinfo, tree)
    local key = pinfo.number .. " " .. tvb:offset () -- what is reassembled begins at 0
    if not pinfo.visited then
        pieces[key] = read_piece (tvb, pinfo)
    end
    local piece = pieces[key]
    if piece then
        local item
        local function branch ()
            item = item or tree:add (q5_scan, tvb ())
            return item
        end
        piece.show (piece, tvb, pinfo, piece.conversation, branch)
    end
    return tvb:len ()
end

DissectorTable.get ("tcp.port"):add (port, q5_scan)

---- The end of a connection: FIN and RST carry no bytes, so only a postdissector sees them

-- The client ends in the middle of its batch.
local function end_of_client (conversation)
    local way = conversation.client
    if way.is_lost or not way.is_begun then
        return nil
    end
    local text = "Incomplete batch"
    if way.first_seq then
        local sent = (tcp_seq ().value + tcp_len ().value - way.first_seq) % 2^32
        text = text .. ": ends after " .. plural (sent, "byte")
    end
    return {expert = x.short, text = text}
end

local function reason_of_silence (pinfo, conversation)
    local holder, batch = holders[conversation.server], conversation.batch
    if pinfo.visited then -- by now, later claims and releases have changed it
        holder = batch and batch.holder
    end
    if holder and conversation.id and holder.id ~= conversation.id then
        return x.dropped, ("Dropped: id %d holds the bus"):format (holder.id)
    elseif not batch then
        return x.unanswered, "Not answered: the batch is not complete"
    elseif batch.fault then
        return x.unanswered, "Not answered: the batch is malformed, " .. batch.fault
    end
    return x.unanswered, "Not answered: another id claimed the bus before the capture, or " ..
        "the daemon exited"
end

-- The connection ends before the last reply.
local function end_of_replies (pinfo, conversation, is_client)
    local batch, answered = conversation.batch, conversation.next_reply - 1
    local is_lost = conversation.daemon.is_lost or conversation.client.is_lost
    if is_lost or answered > 0 and answered == batch.num_requests then
        return nil
    elseif is_client or answered > 0 then
        return {expert = x.unanswered, text = ("Closed by the %s after %d of %s"):format (
            is_client and "client" or "daemon", answered, plural (batch.num_requests, "reply"))}
    end
    local kind, text = reason_of_silence (pinfo, conversation)
    return {expert = kind, text = text}
end

local function read_closing (pinfo, conversation)
    local is_client = pinfo.dst_port == conversation.port
    if conversation.ending or is_client and conversation.batch and not tcp_reset ().value then
        return nil -- a client may half-close
    elseif is_client and not conversation.batch then
        return end_of_client (conversation)
    end
    conversation.ending = end_of_replies (pinfo, conversation, is_client)
    if conversation.ending then
        conversation.ending.frame = pinfo.number
    end
    return conversation.ending
end

local closing = Proto ("q5_scan_closing", "Q5 Scan, end of a connection")

local function show_closing (tree, tvb, pinfo, ending)
    summarize (pinfo, ending.text)
    local item = tree:add (q5_scan, tvb (0, 0))
    item:append_text (", " .. ending.text):set_generated ()
    item:add_proto_expert_info (ending.expert, ending.text)
end

function closing.dissector (tvb, pinfo, tree)
    local fin, reset, conversation = tcp_fin (), tcp_reset (), nil
    if fin and (fin.value or reset.value) then
        conversation = conversation_of (pinfo)
    end
    if conversation and closings[pinfo.number] == nil then
        closings[pinfo.number] = read_closing (pinfo, conversation) or false
    end
    if closings[pinfo.number] then
        show_closing (tree, tvb, pinfo, closings[pinfo.number])
    end
    return 0
end

register_postdissector (closing)
