-- SPDX-License-Identifier: MIT
-- Reads the attributes of a VK410 datagram as the protocol library reads them, in place and with all that
-- follows from it, and says in the words of `vk410 inspect` where it stops. It knows nothing of Wireshark's
-- tree: anything with len() and raw(offset, size) is a datagram to it.

local reader = {}

-- ---------------------------------------------------------------------------------------------------------
-- The format; docs/wire-format.md shows it in pictures

reader.magics = {"\x00\x0C\x5A\x10", "\x10\x5A\x0C\x00"} -- senders store it in either byte order
reader.headerSize = 16
reader.totalLengthAt = 12
reader.maxSize = 64 * 1024 * 1024 -- a longer datagram is none, but a stream gone wrong

-- Headers of attributes: name, offset and bytes of each number; the attribute takes `excludes` bytes more
-- than its length says.
local NORMAL = {
    size = 12, excludes = 4, selectorsAt = 8,
    {"tag", 0, 2}, {"length", 2, 2}, {"count", 4, 2}, {"channel", 6, 1}, {"optHeaderLength", 7, 1},
    {"selectors", 8, 4},
}
local EXTENDED = {
    size = 60, excludes = 24, selectorsAt = 36, lengthAt = 4,
    {"tag", 0, 2}, {"length", 4, 4}, {"count", 24, 4}, {"channel", 28, 4}, {"optHeaderLength", 32, 4},
    {"selectors", 36, 4}, {"word40", 40, 4},
}
-- The reader moves behind an extended attribute by 34 times its size. It looks like a slip and is meant: such
-- an attribute is in effect the last one of its datagram.
local STEP_FACTOR = 34

reader.rawBytesTag = 401 -- its data are bytes up to the attribute's end
reader.wordsTag = 1301   -- its data are 32-bit items, whatever the selectors say
reader.turnedTag = 301   -- the reader turns its optional header to host order
local EXTENDED_TAGS = {[5001] = true, [5101] = true, [5301] = true}
reader.knownTags = {}
for _, tag in ipairs {101, 201, 301, 401, 501, 601, 701, 801, 901, 1001, 1101, 1201, 1301, 1401, 1601, 1801,
                      1901, 2401, 2501, 5001, 5101, 5201, 5301} do
    reader.knownTags[tag] = true
end

-- Bytes per item, by selector bit; 0: no such field. Bits from 28 on never name a field.
reader.itemSize = {[0] = 2, 4, 2, 2, 2, 2, 4, 4, 4, 2, 4, 2, 2, 2, 2, 2, 2, 4, 2, 2, 2, 4, 0, 2, 0, 0, 0, 0}
reader.walkedBits = 28
reader.widenedBit = 17            -- its items are unsigned
reader.hostOrderBit = 29          -- the items are little-endian
local TOO_MANY_ABOVE = 0xE03FFFFF -- a larger selector word is refused at its first field

-- Optional headers: name and kind of each number; they follow each other without gaps.
reader.optHeaders = {
    [301] = {name = "opt301", {"word0", "i4"}, {"word4", "i4"}, {"word8", "i4"}, {"word12", "i4"},
             {"half16", "i2"}, {"half18", "i2"}, {"half20", "i2"}, {"word22", "i4"}, {"word26", "i4"},
             {"word30", "i4"}},
    [501] = {name = "ifpan", {"centreFrequencyLow", "i4"}, {"span", "i4"}, {"half8", "i2"}, {"half10", "i2"},
             {"word12", "i4"}, {"centreFrequencyHigh", "i4"}, {"word20", "i4"}, {"word24", "i4"},
             {"word28", "i4"}, {"timeStamp", "time"}, {"stepNumerator", "i4"}, {"stepDenominator", "i4"},
             {"half48", "i2"}},
    [1801] = {name = "zerospan", {"word0", "i4"}, {"word4", "i4"}, {"word8", "i4"}, {"word12", "i4"},
              {"word16", "i4"}, {"word20", "i4"}, {"xSpan", "i8"}, {"xStart", "i8"}, {"long40", "i8"},
              {"timeStamp", "time"}, {"half56", "i2"}, {"half58", "i2"}, {"bytes60", "bytes"},
              {"half68", "i2"}, {"half70", "i2"}, {"word72", "i4"}, {"word76", "i4"}, {"long80", "i8"},
              {"word88", "i4"}, {"word92", "i4"}},
    [5301] = {name = "dfscan", {"bytes0", "bytes"}, {"startFrequency", "i8"}, {"firstChannel", "i4"},
              {"stepNumerator", "i4"}, {"stepDenominator", "i4"}, {"span", "i4"}, {"float32", "float"},
              {"averagingTimeOffset", "i4"}, {"bytes40", "bytes"}, {"dfFlags", "i4"}, {"sweepTime", "i8"},
              {"timestamp", "time"}, {"jobId", "i2"}, {"superResolutionFields", "i2"},
              {"superResolutionCount", "i1"}, {"eigenValueCount", "i1"}},
}
-- Bytes of each kind of number, and its Struct format; bytes are not interpreted.
reader.kinds = {i1 = {1, "i1"}, i2 = {2, "i2"}, i4 = {4, "i4"}, i8 = {8, "e"}, time = {8, "e"},
                float = {4, "f"}, bytes = {8}}
for _, layout in pairs(reader.optHeaders) do
    layout.size = 0
    for _, number in ipairs(layout) do
        local kind = reader.kinds[number[2]]
        number.name, number.at, number.size, number.format = number[1], layout.size, kind[1], kind[2]
        layout.size = layout.size + number.size
    end
end

function reader.hasBit(word, bit)
    return math.floor(word / 2 ^ bit) % 2 == 1
end
local hasBit = reader.hasBit

-- ---------------------------------------------------------------------------------------------------------
-- The reader's buffer: the received bytes, and those that its conversion in place has turned. Only what a
-- later attribute will read is kept, so nothing is unless attributes lie over each other.

local Buffer = {}
Buffer.__index = Buffer

local function newBuffer(datagram)
    local buffer = {received = datagram, size = datagram:len(), turned = {}, turnedEnd = 0, work = 0}
    return setmetatable(buffer, Buffer)
end

function Buffer:inside(offset, size)
    return offset <= self.size and size <= self.size - offset
end

function Buffer:raw(offset, size)
    if size == 0 then
        return ""
    end
    local received = self.received:raw(offset, size)
    local overlap = math.min(self.turnedEnd - offset, size)
    if overlap <= 0 then
        return received
    end
    self.work = self.work + overlap
    local bytes = {}
    for i = 1, overlap do
        bytes[i] = self.turned[offset + i - 1] or received:sub(i, i)
    end
    return table.concat(bytes) .. received:sub(overlap + 1)
end

function Buffer:uint(offset, size)
    return (Struct.unpack(">I" .. size, self:raw(offset, size)))
end

-- Puts `bytes` over those at `offset`; `from` is where the next attribute begins.
function Buffer:put(offset, bytes, from)
    local first = math.max(0, from - offset)
    for i = first, #bytes - 1 do
        self.turned[offset + i] = bytes:sub(i + 1, i + 1)
    end
    self.turnedEnd = math.max(self.turnedEnd, offset + #bytes)
    self.work = self.work + #bytes - first
end

-- Turns `count` numbers of `width` bytes.
function Buffer:turn(offset, width, count, from)
    local first = math.max(0, math.floor((from - offset) / width))
    if first >= count then
        return
    end
    local begin = offset + first * width
    local raw, numbers = self:raw(begin, (count - first) * width), {}
    for at = 1, #raw, width do
        numbers[#numbers + 1] = raw:sub(at, at + width - 1):reverse()
    end
    self:put(begin, table.concat(numbers), from)
end

-- ---------------------------------------------------------------------------------------------------------
-- The walk over the attributes

local function layoutOf(tag)
    return EXTENDED_TAGS[tag] and EXTENDED or NORMAL
end

local function readHeader(buffer, offset, layout)
    local header = {offset = offset, layout = layout}
    for _, number in ipairs(layout) do
        header[number[1]] = buffer:uint(offset + number[2], number[3])
    end
    header.claimed = header.length + layout.excludes
    header.items = header.count % 0x10000 -- the extended form has 32 bits, of which the low ones count
    header.isLittle = hasBit(header.selectors, reader.hostOrderBit)
    header.optHeaderOffset = offset + layout.size
    header.dataOffset = header.optHeaderOffset + header.optHeaderLength
    header.isTurned = offset < buffer.turnedEnd
    return header
end

-- A normal attribute's own length is no bound: it only says where the next one begins.
local function stepNormal(walk, header)
    walk.next = walk.next + header.claimed
    header.size = math.min(header.claimed, walk.buffer.size - header.offset)
    return true
end

-- The size wraps at 32 bits, the step does not. A size that the reader takes for negative fits nowhere.
local function stepExtended(walk, header)
    local size = header.claimed % 2 ^ 32
    if size == 0 or not walk.buffer:inside(header.offset, size) then
        return false
    end
    walk.next = walk.next + STEP_FACTOR * size
    header.size = size
    return true
end

-- A walk over the attributes of `datagram`.
function reader.walk(datagram)
    return {buffer = newBuffer(datagram), next = reader.headerSize}
end

-- Result: the header of the next attribute, or nil where the reader ends.
function reader.nextHeader(walk)
    local buffer, offset = walk.buffer, walk.next
    if not buffer:inside(offset, 2) then
        return nil
    end
    local layout = layoutOf(buffer:uint(offset, 2))
    if not buffer:inside(offset, layout.size) then
        return nil
    end
    local header = readHeader(buffer, offset, layout)
    local step = layout == EXTENDED and stepExtended or stepNormal
    if not step(walk, header) then
        return nil
    end
    header.next = walk.next
    for _, number in ipairs(layout) do
        buffer:turn(offset + number[2], number[3], 1, header.next)
    end
    return header
end

-- ---------------------------------------------------------------------------------------------------------
-- What an attribute carries, and what is wrong with it

local function needs(what, bytes, offset, remain)
    return ("%s needs %d bytes at byte %d, %d remain"):format(what, bytes, offset, remain)
end

-- Result: nil, or what the ascending walk over the selector bits meets first: the fault, its words, its bit.
local function selectorFault(header)
    local word, at = header.selectors, header.offset + header.layout.selectorsAt
    if word % 2 ^ reader.walkedBits == 0 then
        return nil
    end
    if word > TOO_MANY_ABOVE then
        return "tooMany", ("Too Many Selector Flags: selector word 0x%08X at byte %d"):format(word, at)
    end
    for bit = 0, reader.walkedBits - 1 do
        if reader.itemSize[bit] == 0 and hasBit(word, bit) then
            local words = "Unknown Selector Flag: selector bit %d at byte %d"
            return "unknownSelector", words:format(bit, at), bit
        end
    end
    return nil
end

-- Result: the fields below bit `upTo`, and where they end.
local function selectedFields(header, upTo)
    local at, fields = header.dataOffset, {}
    if header.tag == reader.rawBytesTag then
        return fields, at
    end
    if header.tag == reader.wordsTag then
        return {{bit = 0, at = at, width = 4, format = "i4"}}, at + header.items * 4
    end
    for bit = 0, upTo - 1 do
        if hasBit(header.selectors, bit) then
            local width = reader.itemSize[bit]
            local format = (bit == reader.widenedBit and "I" or "i") .. width
            fields[#fields + 1] = {bit = bit, at = at, width = width, format = format}
            at = at + header.items * width
        end
    end
    return fields, at
end

local function whyTruncated(buffer, header, fields)
    local at = header.optHeaderOffset
    if header.optHeaderLength > buffer.size - at then
        return needs("optional header", header.optHeaderLength, at, buffer.size - at)
    end
    for _, field in ipairs(fields) do
        local bytes = header.items * field.width
        if bytes > buffer.size - field.at then
            return needs("field selBit" .. field.bit, bytes, field.at, buffer.size - field.at)
        end
    end
end

-- Result: the fields of a known attribute, where they end, and nil; or the fault and its words, when the
-- reader drops the attribute and all behind it.
function reader.content(walk, header)
    local fault, words, unknownBit
    if header.tag ~= reader.rawBytesTag and header.tag ~= reader.wordsTag then
        fault, words, unknownBit = selectorFault(header)
    end
    local fields, dataEnd = selectedFields(header, unknownBit or reader.walkedBits)
    -- "Too many" is found before any bound is checked, an unknown bit behind the fields of the bits below it.
    if fault ~= "tooMany" and not walk.buffer:inside(header.dataOffset, dataEnd - header.dataOffset) then
        fault, words = "truncated", "Truncated: " .. whyTruncated(walk.buffer, header, fields)
    end
    return fields, dataEnd, fault, words
end

-- The optional header's bytes as the reader leaves them. That of tag 301 is turned on a copy padded with
-- zeros, so that a number that is cut turns like a whole one.
function reader.optHeaderLeft(header, raw)
    if header.tag ~= reader.turnedTag or header.isLittle then
        return raw
    end
    local layout = reader.optHeaders[reader.turnedTag]
    local padded = raw:sub(1, layout.size) .. ("\0"):rep(layout.size - #raw)
    local numbers = {}
    for i, number in ipairs(layout) do
        numbers[i] = padded:sub(number.at + 1, number.at + number.size):reverse()
    end
    return table.concat(numbers):sub(1, #raw) .. raw:sub(layout.size + 1)
end

-- Turns what the reader turns in place when it sets up an attribute: the next one may lie in it.
function reader.turnContent(walk, header, fields)
    if header.isLittle then
        return
    end
    for _, field in ipairs(fields) do
        walk.buffer:turn(field.at, field.width, header.items, header.next)
    end
    if header.tag == reader.turnedTag and header.dataOffset > header.next then
        local raw = walk.buffer:raw(header.optHeaderOffset, header.optHeaderLength)
        walk.buffer:put(header.optHeaderOffset, reader.optHeaderLeft(header, raw), header.next)
    end
end

-- ---------------------------------------------------------------------------------------------------------
-- Words for bytes that the reader does not get to

function reader.farStep(header)
    return ("the reader steps %d times the %d bytes of the extended attribute at byte %d"):format(
               STEP_FACTOR, header.size, header.offset)
end

-- `last` is the last attribute that the walk met, nil if none.
function reader.whyNotWalked(walk, last)
    local buffer, at = walk.buffer, reader.headerSize
    if last then
        at = last.offset + (last.layout == EXTENDED and STEP_FACTOR or 1) * last.size
        if at >= buffer.size then
            return reader.farStep(last)
        end
    end
    local rest = buffer.size - at
    local tag = rest >= 2 and buffer:uint(at, 2) or 0
    local layout = layoutOf(tag)
    if rest < layout.size then
        return needs("attribute header", layout.size, at, rest)
    end
    local size = (buffer:uint(at + EXTENDED.lengthAt, 4) + EXTENDED.excludes) % 2 ^ 32
    size = size >= 2 ^ 31 and size - 2 ^ 32 or size
    return ("attribute of tag %d at byte %d claims %d bytes, %d remain"):format(tag, at, size, rest)
end

return reader
