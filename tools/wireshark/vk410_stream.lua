-- SPDX-License-Identifier: MIT
-- Finds the datagrams in the bytes of a TCP connection. The length in each header says where the next one
-- begins; where that cannot be, the next datagram is found by its magic. Works on strings.

local stream = {}

local MAGIC_SIZE = 4
local MAX_UNCONFIRMED = 128 * 1024 -- bytes behind a bad magic that wait for another datagram

-- `format` holds `magics`, `headerSize`, `totalLengthAt` and `maxSize` of a datagram.
function stream.new(format)
    return setmetatable({format = format}, {__index = stream})
end

-- Whether a datagram, as far as its magic is there, or nothing at all lies at `offset`.
function stream:mayBegin(bytes, offset)
    local magic = bytes:sub(offset + 1, offset + MAGIC_SIZE)
    return magic == self.format.magics[1]:sub(1, #magic) or magic == self.format.magics[2]:sub(1, #magic)
end

function stream:claimedSize(bytes, offset)
    return (Struct.unpack(">I4", bytes, offset + self.format.totalLengthAt + 1))
end

function stream:isPossible(size)
    return size >= self.format.headerSize and size <= self.format.maxSize
end

-- Whether the magic at `offset` is believed: its datagram's length is possible and another datagram, or
-- nothing, follows. What is not there yet speaks for it.
function stream:isConfirmed(bytes, offset)
    if not self:mayBegin(bytes, offset) then
        return false
    end
    if #bytes - offset < self.format.headerSize then
        return true
    end
    local size = self:claimedSize(bytes, offset)
    return self:isPossible(size) and self:mayBegin(bytes, offset + size)
end

-- Result: where the next datagram begins, at `from` or behind; the end of the bytes if nowhere.
function stream:find(bytes, from)
    local at = from
    while at < #bytes do
        at = bytes:find("[\0\x10]", at + 1) -- what a magic begins with
        if not at then
            break
        end
        if self:isConfirmed(bytes, at - 1) then
            return at - 1
        end
    end
    return #bytes
end

-- What lies at `offset`.
-- Result: "datagram" and its size, "wait" and the number of missing bytes (nil: unknown), or what is wrong
-- and the words for it.
function stream:frame(bytes, offset)
    local here = #bytes - offset
    if here < self.format.headerSize then
        return "wait", nil
    end
    local size = self:claimedSize(bytes, offset)
    if self:mayBegin(bytes, offset) then
        if not self:isPossible(size) then
            local words = "a length of %d bytes; %d to %d are possible"
            return "badLength", words:format(size, self.format.headerSize, self.format.maxSize)
        end
        if size > here then
            return "wait", size - here
        end
        return "datagram", size
    end
    local neither = "neither a magic nor a length that leads to another datagram"
    if not self:isPossible(size) then
        return "noDatagram", neither
    end
    -- The length behind a bad magic is believed as soon as another datagram, or nothing, follows it.
    if size <= here and self:mayBegin(bytes, offset + size) then
        return "datagram", size
    end
    if size <= here or here > MAX_UNCONFIRMED or self:find(bytes, offset + 1) < #bytes then
        return "noDatagram", neither
    end
    return "wait", nil
end

return stream
