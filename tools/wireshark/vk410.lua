-- SPDX-License-Identifier: MIT
-- Wireshark dissector for VK410 mass data: datagrams in UDP packets and in TCP streams. docs/wireshark.md
-- shows its use. It shows what the library's reader reads and stops where that stops.

local folder = debug.getinfo(1, "S").source:match("^@(.*[/\\])") or "./"
package.path = folder .. "?.lua;" .. package.path
local reader = require("vk410_reader")
local stream = require("vk410_stream").new(reader)

local vk410 = Proto("vk410", "VK410 mass data")

-- What one datagram may cost; a receiver stays far below.
local MAX_ATTRIBUTES = 20000
local MAX_ITEM_LINES = 100000
local MAX_TURNED_BYTES = 1000000 -- of attributes that lie over each other
local FIRST = 8                  -- items in the line of an array, attributes in the line of a packet

-- ---------------------------------------------------------------------------------------------------------
-- Fields: named like the keys of `vk410 inspect --json` and the numbers of `vk410 inspect --explain`

local TAG_NAMES = {[401] = "bytes", [501] = "IF panorama", [1301] = "32-bit items", [1801] = "zero span",
                   [5301] = "DF panorama scan"}

local f = {
    magic = ProtoField.uint32("vk410.magic", "Magic", base.HEX),
    sequence = ProtoField.uint16("vk410.sequence", "Sequence number"),
    totalLength = ProtoField.uint32("vk410.totalLength", "Total length"),
    uninterpreted = ProtoField.bytes("vk410.uninterpreted", "Not interpreted"),
    attribute = ProtoField.uint32("vk410.attribute", "Attribute"),
    offset = ProtoField.uint32("vk410.offset", "Offset in the datagram"),
    known = ProtoField.bool("vk410.known", "Known tag"),
    tag = ProtoField.uint16("vk410.tag", "Tag", base.DEC, TAG_NAMES),
    length = ProtoField.uint32("vk410.length", "Length"),
    count = ProtoField.uint32("vk410.count", "Count"),
    items = ProtoField.uint32("vk410.items", "Items of each field"),
    channel = ProtoField.uint32("vk410.channel", "Channel"),
    optHeaderLength = ProtoField.uint32("vk410.optHeaderLength", "Optional header length"),
    selectors = ProtoField.uint32("vk410.selectors", "Selectors", base.HEX),
    word40 = ProtoField.uint32("vk410.word40", "Word at 40", base.HEX),
    optHeader = ProtoField.bytes("vk410.optHeader", "Optional header"),
    centreFrequency = ProtoField.int64("vk410.ifpan.centreFrequency", "centreFrequency"),
    array = ProtoField.uint8("vk410.array", "Array of selector bit"),
    word = ProtoField.int32("vk410.selBit0.word", "Item"),
    bytes = ProtoField.bytes("vk410.selBit0.bytes", "selBit0"),
    dataEnd = ProtoField.uint32("vk410.dataEnd", "End of the fields"),
    rest = ProtoField.bytes("vk410.rest", "Behind the fields"),
    unread = ProtoField.bytes("vk410.unread", "Not read"),
    skipped = ProtoField.bytes("vk410.skipped", "In no whole datagram"),
    dfMethod = ProtoField.uint32("vk410.dfscan.dfFlags.method", "method", base.DEC,
                                 {[1] = "Watson-Watt"}, 0x7000),
}

local DF_FLAGS = {{"valid", 0x1}, {"overflow", 0x2}, {"blanking", 0x4}, {"endOfSweep", 0x10},
                  {"polarFrequencySource", 0x2000000}}
for _, flag in ipairs(DF_FLAGS) do
    f[flag[1]] = ProtoField.bool("vk410.dfscan.dfFlags." .. flag[1], flag[1], 32, nil, flag[2])
end

local MAKE = {i1 = ProtoField.int8, i2 = ProtoField.int16, i4 = ProtoField.int32, i8 = ProtoField.int64,
              time = ProtoField.int64, float = ProtoField.float, bytes = ProtoField.bytes}
for _, layout in pairs(reader.optHeaders) do
    for _, number in ipairs(layout) do
        local name = layout.name .. "." .. number.name
        number.field = MAKE[number[2]]("vk410." .. name, number.name)
        f[name] = number.field
    end
end

-- A selector bit, and the items of the field that it names.
local bitFields, itemFields = {}, {}
local function makeSelectorFields(bit)
    local size = reader.itemSize[bit] or 0
    local name = size > 0 and "selBit" .. bit or "bit" .. bit
    local label = name .. (bit < reader.walkedBits and size == 0 and " (unknown)" or "") ..
                      (bit == reader.hostOrderBit and " (little-endian data)" or "")
    bitFields[bit] = ProtoField.bool("vk410.selectors." .. name, label, 32, nil, 2 ^ bit)
    f["selector" .. bit] = bitFields[bit]
    if size > 0 then
        local make = size == 2 and ProtoField.int16 or ProtoField.int32
        itemFields[bit] = (bit == reader.widenedBit and ProtoField.uint32 or make)("vk410." .. name, "Item")
        f["item" .. bit] = itemFields[bit]
    end
end
for bit = 0, 31 do
    makeSelectorFields(bit)
end
vk410.fields = f

local MALFORMED, UNDECODED, PROTOCOL = expert.group.MALFORMED, expert.group.UNDECODED, expert.group.PROTOCOL
local ERROR, WARN, NOTE = expert.severity.ERROR, expert.severity.WARN, expert.severity.NOTE
local notes = {
    badMagic = ProtoExpert.new("vk410.badMagic", "Bad magic", MALFORMED, ERROR),
    unknownTag = ProtoExpert.new("vk410.unknownTag", "Unknown tag", UNDECODED, NOTE),
    unknownSelector = ProtoExpert.new("vk410.unknownSelector", "Unknown Selector Flag", MALFORMED, ERROR),
    tooMany = ProtoExpert.new("vk410.tooManySelectors", "Too Many Selector Flags", MALFORMED, ERROR),
    truncated = ProtoExpert.new("vk410.truncated", "Truncated", MALFORMED, ERROR),
    notWalked = ProtoExpert.new("vk410.notWalked", "Not Walked", MALFORMED, WARN),
    overrun = ProtoExpert.new("vk410.overrun", "Fields leave their attribute", PROTOCOL, NOTE),
    turned = ProtoExpert.new("vk410.turned", "Turned by an earlier attribute", PROTOCOL, NOTE),
    limit = ProtoExpert.new("vk410.limit", "Too much for one datagram", UNDECODED, WARN),
    notCaptured = ProtoExpert.new("vk410.notCaptured", "Not all of it is there", UNDECODED, WARN),
    badLength = ProtoExpert.new("vk410.badLength", "Impossible length", MALFORMED, ERROR),
    noDatagram = ProtoExpert.new("vk410.noDatagram", "No datagram", MALFORMED, ERROR),
}
vk410.experts = notes

vk410.prefs.udp_ports = Pref.range("UDP ports", "", "Ports whose packets are all datagrams", 65535)
vk410.prefs.tcp_ports = Pref.range("TCP ports", "", "Ports whose streams consist of datagrams", 65535)
vk410.prefs.max_items = Pref.uint("Items shown of each field", 32,
                                  "So many items of an array have a line of their own; filters find these")

-- ---------------------------------------------------------------------------------------------------------
-- One attribute. `view` is its datagram: bytes `tvb`, `walk` and `tree`, and what was shown so far.

local function showSelectors(item, range, selectors)
    for bit = 0, 31 do
        if reader.hasBit(selectors, bit) then
            item:add(bitFields[bit], range, selectors)
            item:append_text(" " .. (itemFields[bit] and "selBit" or "bit") .. bit)
        end
    end
end

local function showHeader(view, tree, header)
    for _, number in ipairs(header.layout) do
        local name, range = number[1], view.tvb(header.offset + number[2], number[3])
        local item = tree:add(f[name], range, header[name])
        if name == "length" then
            item:append_text((": the attribute takes %d bytes"):format(header.claimed))
        elseif name == "selectors" then
            showSelectors(item, range, header.selectors)
        end
    end
    tree:add(f.offset, header.offset):set_generated()
    tree:add(f.known, reader.knownTags[header.tag] or false):set_generated()
    tree:add(f.items, header.items):set_generated()
    if header.isTurned then
        tree:add_proto_expert_info(notes.turned, "an earlier attribute has turned bytes of this header")
    end
end

-- Nanoseconds since 1970, as people write them.
local function timeText(ns)
    local seconds, rest = tostring(ns):match("^(%d+)(%d%d%d%d%d%d%d%d%d)$")
    if not seconds then
        return ""
    end
    return (" (%s.%sZ)"):format(os.date("!%Y-%m-%dT%H:%M:%S", tonumber(seconds)), rest)
end

local function showDfFlags(tree, range, flags)
    for _, flag in ipairs(DF_FLAGS) do
        tree:add(f[flag[1]], range, flags % 2 ^ 32)
    end
    tree:add(f.dfMethod, range, flags % 2 ^ 32)
end

local function showOptNumber(tree, range, number, raw, isLittle)
    if not number.format then
        tree:add(number.field, range, raw)
        return nil
    end
    local value = Struct.unpack((isLittle and "<" or ">") .. number.format, raw)
    local item = tree:add(number.field, range, value)
    if number[2] == "time" then
        item:append_text(timeText(value))
    elseif number.name == "dfFlags" then
        showDfFlags(item, range, value)
    end
    return value
end

-- Whole numbers only; processors read those that are cut or missing as 0.
local function showOptNumbers(view, tree, header, raw)
    local begin, shown, values = header.optHeaderOffset, 0, {}
    for _, number in ipairs(reader.optHeaders[header.tag] or {}) do
        local last = number.at + number.size
        if last > #raw then
            break
        end
        values[number.name] = showOptNumber(tree, view.tvb(begin + number.at, number.size), number,
                                            raw:sub(number.at + 1, last), header.isLittle)
        shown = last
    end
    if shown < #raw then
        tree:add(f.uninterpreted, view.tvb(begin + shown, #raw - shown))
    end
    if values.centreFrequencyHigh then
        local centre = Int64.new(values.centreFrequencyLow % 2 ^ 32, values.centreFrequencyHigh % 2 ^ 32)
        tree:add(f.centreFrequency, view.tvb(begin, 20), centre):set_generated()
    end
end

-- The header's own value is its bytes as the reader leaves them; the numbers below it are what they mean.
local function showOptHeader(view, tree, header)
    local begin, size = header.optHeaderOffset, header.optHeaderLength
    if size == 0 or not view.walk.buffer:inside(begin, size) then
        return
    end
    local raw = view.walk.buffer:raw(begin, size)
    local item = tree:add(f.optHeader, view.tvb(begin, size), reader.optHeaderLeft(header, raw))
    showOptNumbers(view, item, header, raw)
end

local function showArray(view, tree, header, field)
    local count, size = header.items, header.items * field.width
    local raw = view.walk.buffer:raw(field.at, size)
    local format = (header.isLittle and "<" or ">") .. field.format
    local item = header.tag == reader.wordsTag and f.word or itemFields[field.bit]
    local lines = math.min(count, vk410.prefs.max_items, view.linesLeft)
    view.linesLeft = view.linesLeft - lines
    local branch = tree:add(f.array, view.tvb(field.at, size), field.bit)
    local first = {}
    for i = 0, math.max(lines, math.min(count, FIRST)) - 1 do
        local at = i * field.width
        local value = Struct.unpack(format, raw, at + 1)
        if i < FIRST then
            first[i + 1] = value
        end
        if i < lines then
            branch:add(item, view.tvb(field.at + at, field.width), value)
        end
    end
    branch:set_text(("selBit%d: %d items of %d bits: %s%s"):format(field.bit, count, field.width * 8,
        table.concat(first, ", "), count > FIRST and ", .." or ""))
end

local function showData(view, tree, header, fields, dataEnd)
    local attributeEnd = header.offset + header.size
    for _, field in ipairs(fields) do
        showArray(view, tree, header, field)
    end
    if header.tag == reader.rawBytesTag then
        local size = math.max(0, attributeEnd - dataEnd)
        tree:add(f.bytes, view.tvb(dataEnd, size), view.walk.buffer:raw(dataEnd, size))
        return
    end
    if header.tag ~= reader.wordsTag then
        tree:add(f.dataEnd, dataEnd):set_generated()
    end
    if dataEnd < attributeEnd then
        tree:add(f.rest, view.tvb(dataEnd, attributeEnd - dataEnd))
    elseif dataEnd > attributeEnd then
        local words = "the fields end %d bytes behind the attribute's own length"
        tree:add_proto_expert_info(notes.overrun, words:format(dataEnd - attributeEnd))
    end
end

-- Result: whether the walk goes on behind it.
local function dissectAttribute(view, header)
    local tree = view.tree:add(f.attribute, view.tvb(header.offset, header.size), view.attributes)
    tree:append_text((": tag %d, channel %d, %d items"):format(header.tag, header.channel, header.items))
    showHeader(view, tree, header)
    if not reader.knownTags[header.tag] then
        showOptHeader(view, tree, header)
        tree:add_proto_expert_info(notes.unknownTag, ("tag %d is unknown, stepped over"):format(header.tag))
        return true
    end
    local fields, dataEnd, fault, words = reader.content(view.walk, header)
    showOptHeader(view, tree, header)
    if fault then
        local dropped = view.tvb(math.min(header.dataOffset, view.tvb:len()))
        tree:add(f.unread, dropped):add_proto_expert_info(notes[fault], words)
        return false
    end
    showData(view, tree, header, fields, dataEnd)
    reader.turnContent(view.walk, header, fields)
    return true
end

-- ---------------------------------------------------------------------------------------------------------
-- One datagram

local function tellNotWalked(view, from, upTo, why)
    local words = ("Not Walked: %d bytes at byte %d: %s"):format(upTo - from, from, why)
    view.tree:add(f.unread, view.tvb(from, upTo - from)):add_proto_expert_info(notes.notWalked, words)
end

-- Result: tag, channel and items of each attribute, for the list of packets.
local function dissectAttributes(view)
    local walk, texts, last, walkedTo = view.walk, {}, nil, reader.headerSize
    for header in reader.nextHeader, walk do
        if header.offset > walkedTo then
            tellNotWalked(view, walkedTo, header.offset, reader.farStep(last))
        end
        last, walkedTo = header, header.offset + header.size
        texts[#texts + 1] = ("%d/%d x%d"):format(header.tag, header.channel, header.items)
        if not dissectAttribute(view, header) then
            return texts
        end
        view.attributes = view.attributes + 1
        if view.attributes == MAX_ATTRIBUTES or walk.buffer.work > MAX_TURNED_BYTES then
            view.tree:add_proto_expert_info(notes.limit, "what follows in this datagram is not shown")
            return texts
        end
    end
    if walkedTo < view.tvb:len() then
        tellNotWalked(view, walkedTo, view.tvb:len(), reader.whyNotWalked(walk, last))
    end
    return texts
end

local function isMagic(tvb)
    return tvb:len() >= 4 and stream:mayBegin(tvb:raw(0, 4), 0)
end

local function showDatagramHeader(tree, tvb)
    local numbers = {{f.magic, 0, 4}, {f.uninterpreted, 4, 4}, {f.sequence, 8, 2}, {f.uninterpreted, 10, 2},
                     {f.totalLength, reader.totalLengthAt, 4}}
    for _, number in ipairs(numbers) do
        if number[2] + number[3] <= tvb:len() then
            tree:add(number[1], tvb(number[2], number[3]))
        end
    end
end

-- Result: one line for the list of packets.
local function dissectDatagram(tvb, tree)
    local root = tree:add(vk410, tvb())
    showDatagramHeader(root, tvb)
    if not isMagic(tvb) then
        root:add_proto_expert_info(notes.badMagic, "bad magic: 00 0C 5A 10 or 10 5A 0C 00 expected")
        return "bad magic"
    end
    local view = {tvb = tvb, tree = root, walk = reader.walk(tvb), attributes = 0, linesLeft = MAX_ITEM_LINES}
    local texts = dissectAttributes(view)
    local line = ("seq %s %s%s"):format(tvb:len() >= 10 and tvb(8, 2):uint() or "cut",
        table.concat(texts, " ", 1, math.min(#texts, FIRST)), #texts > FIRST and " .." or "")
    root:append_text(", " .. line)
    return line
end

-- Several datagrams may share a packet.
local function tellColumns(pinfo, line)
    if tostring(pinfo.cols.protocol) == "VK410" then
        pinfo.cols.info:append("; " .. line)
    else
        pinfo.cols.protocol:set("VK410")
        pinfo.cols.info:set(line)
    end
end

-- ---------------------------------------------------------------------------------------------------------
-- UDP and TCP

-- A packet is a datagram, whatever its total length says.
local function dissectPacket(tvb, pinfo, tree)
    if tvb:reported_len() > tvb:len() then
        local words = "%d of %d bytes were captured; capture whole packets"
        tree:add(vk410, tvb()):add_proto_expert_info(notes.notCaptured,
                                                     words:format(tvb:len(), tvb:reported_len()))
        tellColumns(pinfo, "captured in part")
    else
        tellColumns(pinfo, dissectDatagram(tvb, tree))
    end
    return tvb:len()
end

-- Result: where the stream goes on.
local function skip(tvb, bytes, offset, pinfo, tree, note, words)
    local size = stream:find(bytes, offset + 1, 1) - offset
    local root = tree:add(vk410, tvb(offset, size))
    root:add(f.skipped, tvb(offset, size)):add_proto_expert_info(note, words)
    tellColumns(pinfo, ("%d bytes in no datagram"):format(size))
    return offset + size
end

-- Result: false when the rest has to wait for more segments, but none will come.
local function waitFor(missing, offset, pinfo)
    if pinfo.can_desegment == 0 then
        return false
    end
    pinfo.desegment_offset = offset
    pinfo.desegment_len = missing or DESEGMENT_ONE_MORE_SEGMENT
    return true
end

local function dissectStream(tvb, pinfo, tree)
    local bytes, offset = tvb:raw(), 0
    while offset < #bytes do
        local found, detail = stream:frame(bytes, offset)
        if found == "datagram" then
            tellColumns(pinfo, dissectDatagram(tvb(offset, detail):tvb(), tree))
            offset = offset + detail
        elseif found ~= "wait" then
            offset = skip(tvb, bytes, offset, pinfo, tree, notes[found], detail)
        elseif waitFor(detail, offset, pinfo) then
            break
        else
            local words = "the rest of this datagram is not there"
            offset = skip(tvb, bytes, offset, pinfo, tree, notes.notCaptured, words)
        end
    end
    return #bytes
end

-- ---------------------------------------------------------------------------------------------------------
-- Registration

local TCP = 2 -- Wireshark's number for it in pinfo.port_type

function vk410.dissector(tvb, pinfo, tree)
    return (pinfo.port_type == TCP and dissectStream or dissectPacket)(tvb, pinfo, tree)
end

-- Behind a first good datagram all that follows between the two is taken, spoilt datagrams too.
vk410:register_heuristic("udp", function(tvb, pinfo, tree)
    if not isMagic(tvb) then
        return false
    end
    pinfo.conversation = vk410
    dissectPacket(tvb, pinfo, tree)
    return true
end)

-- A capture may begin anywhere in a stream; a magic inside a segment is believed with its whole header only.
vk410:register_heuristic("tcp", function(tvb, pinfo, tree)
    local bytes = tvb:raw()
    local isThere = isMagic(tvb) and stream:isConfirmed(bytes, 0) or
                        stream:find(bytes, 0, reader.headerSize) < #bytes
    if not isThere then
        return false
    end
    pinfo.conversation = vk410
    dissectStream(tvb, pinfo, tree)
    return true
end)

local registered = {udp = "", tcp = ""}
local function registerPorts(transport, ports)
    local dissectors = DissectorTable.get(transport .. ".port")
    if ports == registered[transport] then
        return
    end
    if registered[transport] ~= "" then
        dissectors:remove(registered[transport], vk410)
    end
    if ports ~= "" then
        dissectors:add(ports, vk410)
    end
    registered[transport] = ports
end

function vk410.prefs_changed()
    registerPorts("udp", vk410.prefs.udp_ports)
    registerPorts("tcp", vk410.prefs.tcp_ports)
end

DissectorTable.get("udp.port"):add_for_decode_as(vk410)
DissectorTable.get("tcp.port"):add_for_decode_as(vk410)
