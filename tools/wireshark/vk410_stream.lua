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

-- Where the next datagram begins, at `from` or behind; at least `needed` of its bytes are there.
-- Result: the end of the bytes if nowhere.
function stream:find(bytes, from, needed)
    local at = from
    while at + needed <= #bytes do
        at = bytes:find("[\0\x10]", at + 1) -- what a magic begins with
        if not at or at - 1 + needed > #bytes then
            break
        end
        if self:isConfirmed(bytes, at - 1) then
            return at - 1
        end
    end
    return #bytes
end

-- Follows the lengths from `offset` on, whatever the magics there.
-- Result: whether they lead to a datagram or to the end of the bytes; nil where that cannot be told yet.
function stream:leadsOn(bytes, offset)
    while #bytes - offset >= self.format.headerSize do
        local size = self:claimedSize(bytes, offset)
        if not self:isPossible(size) then
            return false
        end
        offset = offset + size
        if offset <= #bytes and self:mayBegin(bytes, offset) then
            return true
        end
    end
    return nil
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
    if not self:mayBegin(bytes, offset) then
        return self:frameWithoutMagic(bytes, offset, size)
    end
    if not self:isPossible(size) then
        local words = "a length of %d bytes; %d to %d are possible"
        return "badLength", words:format(size, self.format.headerSize, self.format.maxSize)
    end
    if size > here then
        return "wait", size - here
    end
    return "datagram", size
end

-- A bad magic, or none at all: the length is believed as soon as it leads to another datagram.
function stream:frameWithoutMagic(bytes, offset, size)
    local leadsOn = self:leadsOn(bytes, offset)
    if leadsOn then
        return "datagram", size
    end
    local isLost = leadsOn == false or #bytes - offset > MAX_UNCONFIRMED or
                       self:find(bytes, offset + 1, self.format.headerSize) < #bytes
    if isLost then
        return "noDatagram", "neither a magic nor a length that leads to another datagram"
    end
    return "wait", nil
end

return stream
