-- The reader that follows the tables above. Two lengths go with every datagram: what travelled, by which its own
-- lengths are judged, and what was captured, beyond which nothing is read.

local proto = Proto("vexamsg", "VexaMsg message bus and vision link")

local types = {
    u8 = { size = 1, make = ProtoField.uint8 },
    u16 = { size = 2, make = ProtoField.uint16 },
    u32 = { size = 4, make = ProtoField.uint32 },
    u64 = { size = 8, make = ProtoField.uint64 },
    i16 = { size = 2, make = ProtoField.int16, signed = true },
    i32 = { size = 4, make = ProtoField.int32, signed = true },
    f32 = { size = 4, make = ProtoField.float, float = true },
    text = { size = 1, run = true },
    bytes = { size = 1, run = true },
}

local experts = {
    malformed = ProtoExpert.new("vexamsg.malformed", "Malformed message", expert.group.MALFORMED,
                                expert.severity.ERROR),
    cut = ProtoExpert.new("vexamsg.cut", "Message cut short", expert.group.MALFORMED, expert.severity.WARN),
    note = ProtoExpert.new("vexamsg.note", "Remarkable message", expert.group.PROTOCOL, expert.severity.NOTE),
}
for _, wire in pairs(envelopes) do
    wire.head, wire.tail = blocks[wire.head], wire.tail and blocks[wire.tail]
end

local message_field = ProtoField.string("vexamsg.message", "message", "Which message it is")

-- Makes what Wireshark knows a field by.
local function make_proto_field(key, f)
    if f.type == "text" then
        return ProtoField.string(key, f.name, f.about)
    elseif f.type == "bytes" then
        return ProtoField.bytes(key, f.name, base.NONE, f.about)
    elseif f.type == "f32" then
        return ProtoField.float(key, f.name, f.about)
    end
    local values = f.names and not names[f.names].bit_set and names[f.names].rows or nil
    return types[f.type].make(key, f.name, f.hex and base.HEX or base.DEC, values, nil, f.about)
end

local proto_fields = { message_field }
for _, block in pairs(blocks) do
    for _, f in ipairs(block.fields) do
        local key = block.key .. "." .. f.name
        f.field = make_proto_field(key, f)
        table.insert(proto_fields, f.field)
        for _, bits in ipairs(f.bits or {}) do
            local name, first, width = table.unpack(bits)
            bits.field = types[f.type].make(key .. "." .. name, name, base.DEC, nil, (2 ^ width - 1) * 2 ^ first)
            table.insert(proto_fields, bits.field)
        end
    end
end
proto.fields = proto_fields
proto.experts = { experts.malformed, experts.cut, experts.note }

local function find_field(block, name)
    for _, f in ipairs(block.fields) do
        if f.name == name then
            return f
        end
    end
end

local function is_in(range_begin, range_size, size)
    return range_begin + range_size <= size
end

local function read_number(tvb, at, kind)
    local range = tvb(at, kind.size)
    return kind.signed and range:le_int() or range:le_uint()
end

-- The header's field, when it has one of that name and it was captured.
local function head_number(tvb, wire, name)
    local f = find_field(wire.head, name)
    if f and is_in(f.offset, types[f.type].size, tvb:len()) then
        return read_number(tvb, f.offset, types[f.type])
    end
end

local function magic_is_right(tvb, wire)
    local magic = wire.head.fields[1]
    return head_number(tvb, wire, magic.name) == magic.must
end

-- Where the payload lies: its begin, its end as it travelled, what the header counts, what it should count.
local function payload_of(tvb, wire)
    local around = wire.head.size + (wire.tail and wire.tail.size or 0)
    local room = math.max(tvb:reported_len() - around, 0)
    local stated = head_number(tvb, wire, wire.length_field) or room + wire.length_bias
    local inside = math.max(stated - wire.length_bias, 0)
    return {
        first = wire.head.size,
        last = wire.head.size + math.min(inside, room),
        stated = stated,
        arrived = room + wire.length_bias,
    }
end

local function sum_of(tvb, size)
    local sum = 0
    for i = 0, size - 1 do
        sum = sum + tvb(i, 1):uint()
    end
    return sum % 256
end

local function frame_crc(tvb, last, msgid)
    local crc = 0xFFFF
    local function fold(byte)
        local t = bit32.bxor(byte, bit32.band(crc, 0xFF))
        t = bit32.band(bit32.bxor(t, bit32.lshift(t, 4)), 0xFF)
        crc = bit32.bxor(bit32.rshift(crc, 8), bit32.lshift(t, 8), bit32.lshift(t, 3), bit32.rshift(t, 4))
        crc = bit32.band(crc, 0xFFFF)
    end
    for i = 1, last - 1 do
        fold(tvb(i, 1):uint())
    end
    fold(crc_extra[msgid + 1])
    return crc
end

local function is_whole_frame(tvb)
    local wire = envelopes.frame
    if tvb:len() < wire.head.size + wire.tail.size or not magic_is_right(tvb, wire) then
        return false
    end
    local payload = payload_of(tvb, wire)
    return payload.stated == payload.arrived and
               head_number(tvb, wire, "checksum") == sum_of(tvb, wire.head.size - 1)
end

local function is_whole_link_datagram(tvb)
    local wire = envelopes.link
    return magic_is_right(tvb, wire) and head_number(tvb, wire, "version") == find_field(wire.head, "version").must and
               head_number(tvb, wire, wire.length_field) == tvb:reported_len()
end

-- Which format a datagram has, by its first bytes and its port; nil when none.
local function recognise(tvb, port)
    if magic_is_right(tvb, envelopes.route) then
        return envelopes.route
    elseif port == flight_port or port == camera_port then
        return magic_is_right(tvb, envelopes.frame) and envelopes.frame or envelopes.link
    elseif is_whole_link_datagram(tvb) then
        return envelopes.link
    elseif is_whole_frame(tvb) then
        return envelopes.frame
    end
    return port >= node_port_base and port < node_port_base + node_count and envelopes.route or nil
end

local function find_form(tvb, wire, payload)
    local selector = head_number(tvb, wire, wire.selector_field)
    local size = payload.last - payload.first
    local command = size >= 2 and is_in(payload.first, 2, tvb:len()) and tvb(payload.first, 2):le_uint() or 0
    for _, form in ipairs(wire.forms) do
        if form.selector == selector and (not form.if_payload or form.if_payload == size) and
            (not form.if_command or form.if_command == command) then
            return form
        end
    end
end

local function number_text(f, value)
    return f.hex and string.format("0x%0" .. 2 * types[f.type].size .. "x", value) or string.format("%d", value)
end

-- The names of the single bits of a value, those without a name as a number.
local function bit_names(rows, value)
    if rows[value] then
        return rows[value]
    end
    local text, rest = "", value
    for bit = 0, 15 do
        local one = 2 ^ bit
        if rows[one] and bit32.btest(value, one) then
            text = text .. (text == "" and "" or "|") .. rows[one]
            rest = rest - one
        end
    end
    return (rest == 0 or text == "") and text or text .. string.format("|0x%x", rest)
end

-- Text up to its NUL, with everything unprintable escaped, and whether there was a NUL.
local function text_of(range)
    local raw = range:raw()
    local last = raw:find("\0", 1, true)
    local text = raw:sub(1, last and last - 1 or -1):gsub("[^ -~]", function(c)
        return string.format("\\x%02x", c:byte())
    end):gsub("\\([^x])", "\\x5c%1")
    return text, last ~= nil
end

-- State of one datagram: tvb, tree, wire, payload, counts by name.
local reader = {}
reader.__index = reader

function reader:say(item, code, ...)
    local words, given, i = findings[code], { ... }, 0
    local text = words.text:gsub("{}", function()
        i = i + 1
        return tostring(given[i])
    end)
    item:add_proto_expert_info(experts[words.how], text)
end

function reader:expect(item, f, value, must)
    if value ~= must then
        self:say(item, "wrong_value", f.name, number_text(f, value), number_text(f, must))
    end
end

-- What is wrong with a field's value.
function reader:judge(item, block, f, at, value, ended)
    local table_of_names = f.names and names[f.names]
    if f.must then
        self:expect(item, f, value, f.must)
    elseif f.from == "head_sum" then
        self:expect(item, f, value, sum_of(self.tvb, at))
    elseif f.from == "frame_crc" then
        self:expect(item, f, value, frame_crc(self.tvb, at, head_number(self.tvb, self.wire, self.wire.selector_field)))
    elseif table_of_names and table_of_names.complete and not table_of_names.rows[value] then
        self:say(item, "unknown_value", f.name, number_text(f, value))
    elseif f.type == "text" and not ended then
        self:say(item, "unended_text", f.name)
    elseif block == self.wire.head and f.name == self.wire.length_field then
        local p = self.payload
        if p.stated ~= p.arrived then
            self:say(item, p.stated > p.arrived and "length_cut" or "length_long", f.name, p.stated, p.arrived)
        end
    end
end

function reader:read_field(tree, block, f, at, size)
    local range, kind = self.tvb(at, size), types[f.type]
    if f.type == "text" then
        local text, ended = text_of(range)
        self:judge(tree:add(f.field, range, text), block, f, at, nil, ended)
    elseif kind.run then
        tree:add(f.field, range)
    elseif f.count > 1 then
        for i = 0, f.count - 1 do
            tree:add_le(f.field, self.tvb(at + i * kind.size, kind.size))
        end
    else
        local item = tree:add_le(f.field, range)
        local value = not kind.float and kind.size <= 4 and read_number(self.tvb, at, kind) or nil
        if f.names and names[f.names].bit_set then
            item:append_text(" (" .. bit_names(names[f.names].rows, value) .. ")")
        end
        for _, bits in ipairs(f.bits or {}) do
            item:add_le(bits.field, range)
        end
        self.values[f.name] = { value = value, item = item, field = f }
        self:judge(item, block, f, at, value)
    end
end

-- Reads the fields that lie whole before `last`.
function reader:read_block(tree, block, at, last)
    for i, f in ipairs(block.fields) do
        local offset = at + f.offset
        local size = f.count == 0 and last - offset or f.count * types[f.type].size
        if size <= 0 or offset + size > last or not is_in(offset, size, self.tvb:len()) then
            return
        end
        self:read_field(tree, block, f, offset, size)
        if i == 1 and block == self.wire.head and not magic_is_right(self.tvb, self.wire) then
            return -- what follows means something else
        end
    end
end

-- How often a counted block stands here: as announced, as far as there is room.
function reader:counted(count_field, block, room)
    local count = self.values[count_field]
    if not count then
        return 0 -- and it was said why
    end
    if count.value < 0 or count.value > room then
        self:say(count.item, "wrong_count", count.field.name, count.value, room, block.size)
        self.wrong_count = true
    end
    return math.min(math.max(count.value, 0), room)
end

-- Reads one part; gives where the next one begins.
function reader:read_part(form, part, at)
    local how, block, last = part[1], blocks[part[2]], self.payload.last
    local left = last - at
    if how == "once" or how == "if_room" then
        if left >= block.size or how == "once" then
            self:read_block(self.tree, block, at, last)
        end
        if left < block.size and how == "once" and not form.payload_size then
            self:say(self.tree, "short_part", left, block.name, block.size)
        end
        return left >= block.size and at + block.size or how == "once" and last or at
    end
    local room = math.floor(left / block.size)
    local count = how == "fill" and room or self:counted(part[3], block, room)
    for i = 0, count - 1 do
        local offset = at + i * block.size
        local size = math.min(block.size, self.tvb:len() - offset)
        if size <= 0 then
            break
        end
        local group = self.tree:add(self.tvb(offset, size), block.name .. " " .. i)
        self:read_block(group, block, offset, offset + size)
    end
    return at + count * block.size
end

function reader:judge_form(form)
    local port = self.port
    if form.port and (port == flight_port or port == camera_port) and port ~= form.port then
        self:say(self.tree, "wrong_end", form.name, form.receiver)
    end
    local dst = form.dst_field and self.values[form.dst_field]
    if dst then
        self:expect(dst.item, dst.field, dst.value, form.dst_must)
    end
    local size = self.payload.last - self.payload.first
    if form.payload_size and size ~= form.payload_size then
        self:say(self.tree, "payload_size", size, form.name, form.payload_size)
    end
end

function reader:read_rest(form, last_part, at)
    local p = self.payload
    local left = p.last - at
    if left > 0 then
        self:read_block(self.tree, blocks[form.rest], at, math.min(p.last, math.max(at, self.tvb:len())))
    end
    if form.rest_size and left ~= form.rest_size and not self.wrong_count and last_part and p.stated == p.arrived then
        self:say(self.tree, "surplus", left, blocks[last_part[2]].name, form.rest_size)
    end
end

function reader:read_payload(form)
    self:judge_form(form)
    local at, last_part = self.payload.first, nil
    for _, part in ipairs(form.parts) do
        at = self:read_part(form, part, at)
        last_part = part
    end
    if form.rest then
        self:read_rest(form, last_part, at)
    end
    if form.remark then
        self:say(self.tree, "remark", form.remark)
    end
end

-- What receivers will think of it.
function reader:judge_journey()
    local wire, size = self.wire, self.tvb:reported_len()
    if wire.most_read > 0 and size > wire.most_read then
        self:say(self.tree, "over_read", wire.most_read, size)
    end
    local src, dst = head_number(self.tvb, wire, "src"), head_number(self.tvb, wire, "dst")
    if wire.by_node_id and src and dst and self.port ~= node_port_base + proxy_id and dst ~= broadcast_id and
        (src >= node_count or dst >= node_count) then
        self:say(self.values.src.item, "ids_refused", src, dst)
    end
end

function reader:run(pinfo)
    local wire, tvb = self.wire, self.tvb
    pinfo.cols.protocol = wire.column
    pinfo.cols.info = "unknown"
    if tvb:reported_len() < wire.head.size then
        self:say(self.tree, "short_head", tvb:reported_len(), wire.head.size)
        return
    end
    if tvb:len() < tvb:reported_len() then
        self:say(self.tree, "capture_cut", tvb:len(), tvb:reported_len())
    end
    self.payload = payload_of(tvb, wire)
    self:read_block(self.tree, wire.head, 0, tvb:len())
    if not magic_is_right(tvb, wire) then
        return
    end
    self:judge_journey()
    local form = find_form(tvb, wire, self.payload)
    if form then
        local src, dst = head_number(tvb, wire, "src"), head_number(tvb, wire, "dst")
        pinfo.cols.info = form.name .. (src and dst and string.format(" %d > %d", src, dst) or "")
        self.tree:add(message_field, form.name):set_generated()
        self:read_payload(form)
    end
    if wire.tail then
        self:read_block(self.tree, wire.tail, self.payload.last, tvb:len())
    end
end

local function dissect(tvb, pinfo, tree)
    local wire = recognise(tvb, pinfo.dst_port)
    if not wire then
        return 0
    end
    local item = tree:add(proto, tvb(), "VexaMsg " .. wire.name)
    local one = { tvb = tvb, tree = item, wire = wire, port = pinfo.dst_port, values = {} }
    setmetatable(one, reader):run(pinfo)
    return tvb:len()
end

function proto.dissector(tvb, pinfo, tree)
    return dissect(tvb, pinfo, tree)
end

local ports = DissectorTable.get("udp.port")
ports:add(flight_port, proto)
ports:add(camera_port, proto)
ports:add(string.format("%d-%d", node_port_base, node_port_base + node_count - 1), proto)
proto:register_heuristic("udp", function(tvb, pinfo, tree)
    return dissect(tvb, pinfo, tree) > 0
end)
