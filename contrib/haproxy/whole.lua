-- Knows when a batch is whole: when the daemon can read it to its end, or up to what it refuses,
-- without waiting for another byte. Only then does the front pass it on.

local MAX_REQUESTS, NUM_SLOTS, MAX_TX, MAX_RX = 100, 32, 4094, 4096

-- The daemon reads id and count, the headers, then the data of one request after another, and
-- refuses the batch where a word is out of its range.
local function is_whole (bytes)
    if #bytes < 8 then return false end
    local count = string.unpack (">i4", bytes, 5)
    if count < 1 or count > MAX_REQUESTS then return true end
    local length = 8 + 16 * count
    if #bytes < length then return false end
    local sum = 0
    for header = 9, length, 16 do
        local slot, _, rxlen, txlen = string.unpack (">I4I4I4I4", bytes, header)
        sum = sum + txlen
        if slot >= NUM_SLOTS or rxlen > MAX_RX or txlen > MAX_TX or sum > MAX_TX then return true end
        if #bytes < length + sum then return false end
    end
    return true
end

core.register_fetches ("batch_is_whole", function (txn)
    return is_whole (txn.f:req_payload (0, 0) or "")
end)
