-- Wireshark dissector for the page carousel of ZOL Server: the packets that zolhost sends
-- over TCP (a byte stream of packets) and UDP multicast (one packet per datagram).
-- docs/protocol.md describes the wire; this file follows it field by field.
--
-- Installed into Wireshark's global Lua plugin folder by the package; by hand, copy it
-- to ~/.local/lib/wireshark/plugins/ or load it for one run:
--   tshark -r capture.pcap -X lua_script:zol.lua -Y zol -T fields -e zol.site -e zol.page
--
-- Found on TCP port 51000 and UDP port 7125 (preferences), and on any other port by a
-- heuristic: a start mark that begins a packet whose checksum is right.

local zol = Proto("zol", "ZOL page carousel")

local START_MARK = 0x8E
local END_MARK = 0x8F
local ESCAPE = 0x8D
local END_MARK_INDEX = 127
local CHECKSUM_OFFSET = 3
local HEADER_BYTES = 6

-- ---- integer helpers that work on Lua 5.2 (bit32) and later (native operators) -------

local bxor
if bit32 ~= nil then
  bxor = bit32.bxor
else
  bxor = load("return function(a, b) return a ~ b end")()
end

local function low_bits(value, count) return value % (2 ^ count) end
local function shift_right(value, count) return math.floor(value / (2 ^ count)) end

-- ---- preferences ------------------------------------------------------------------------

zol.prefs.tcp_port = Pref.uint("TCP port", 51000, "TCP port of the server's page stream")
zol.prefs.udp_port = Pref.uint("UDP port", 7125, "UDP port of the server's multicast group")
zol.prefs.packet_size = Pref.uint("Packet size", 128, "The server's packetsize setting, 16 to 128")
zol.prefs.decode_record = Pref.bool("Decode the page record", true,
                                    "Inflate what a page's first packet holds of its compressed page record")

-- ---- fields -------------------------------------------------------------------------------

local status_names = { [0] = "Bad", [1] = "Good" }

local f = {
  start_mark = ProtoField.uint8("zol.start_mark", "Start mark", base.HEX),
  sequence_high = ProtoField.uint8("zol.sequence_high", "SequenceHigh", base.DEC),
  flags = ProtoField.uint8("zol.flags", "Flags", base.HEX),
  id_length = ProtoField.uint8("zol.id_length", "Identifier length on the wire", base.DEC, nil, 0x1E),
  last = ProtoField.bool("zol.last", "Last packet of the page", 8, nil, 0x01),
  checksum = ProtoField.uint16("zol.checksum", "Checksum", base.HEX),
  checksum_computed = ProtoField.uint16("zol.checksum.computed", "Computed checksum", base.HEX),
  checksum_status = ProtoField.uint8("zol.checksum.status", "Checksum status", base.DEC, status_names),
  packet_id = ProtoField.uint32("zol.packet_id", "Packet identifier", base.HEX),
  page_key = ProtoField.uint32("zol.page_key", "Page key", base.HEX),
  level = ProtoField.uint8("zol.level", "Level", base.DEC),
  page = ProtoField.uint16("zol.page", "Page", base.DEC),
  site = ProtoField.uint8("zol.site", "Site", base.DEC),
  packet = ProtoField.uint16("zol.packet", "Packet number", base.DEC),
  sequence_low = ProtoField.uint8("zol.sequence_low", "SequenceLow", base.DEC),
  version = ProtoField.string("zol.version", "Version (SequenceHigh.SequenceLow)"),
  chunk = ProtoField.bytes("zol.chunk", "Chunk of the escaped page stream"),
  end_mark = ProtoField.uint8("zol.end_mark", "End mark", base.HEX),
  plain_size = ProtoField.uint32("zol.plain_size", "PlainSize", base.DEC),
  compressed_size = ProtoField.uint32("zol.compressed_size", "CompressedSize", base.DEC),
  record_type = ProtoField.uint8("zol.record.type", "Record type", base.DEC),
  record_version = ProtoField.uint8("zol.record.version", "Record version", base.DEC),
  path = ProtoField.string("zol.path", "Path"),
  file = ProtoField.string("zol.file", "File"),
  is_template = ProtoField.uint32("zol.is_template", "IsTemplate", base.DEC),
  data_length = ProtoField.uint32("zol.data_length", "Data length", base.DEC),
  record_note = ProtoField.string("zol.record.note", "Page record"),
  skipped = ProtoField.bytes("zol.skipped", "Bytes outside any packet"),
}
local field_list = {}
for _, field in pairs(f) do field_list[#field_list + 1] = field end
zol.fields = field_list

local expert_bad_checksum = ProtoExpert.new("zol.checksum.bad", "Bad checksum", expert.group.CHECKSUM,
                                            expert.severity.WARN)
local expert_bad_block = ProtoExpert.new("zol.bad_block", "Not a well-formed packet", expert.group.MALFORMED,
                                         expert.severity.WARN)
local expert_skipped = ProtoExpert.new("zol.skipped.expert", "Bytes outside any packet", expert.group.SEQUENCE,
                                       expert.severity.NOTE)
zol.experts = { expert_bad_checksum, expert_bad_block, expert_skipped }

-- ---- the checksum: a 16-bit CRC, polynomial 0x1021, register start 0xFFFF, the byte
-- entering behind the table step, no final XOR -----------------------------------------

local checksum_table = {}
for i = 0, 255 do
  local value = i * 256
  for _ = 1, 8 do
    local out = value >= 0x8000
    value = (value * 2) % 0x10000
    if out then value = bxor(value, 0x1021) end
  end
  checksum_table[i] = value
end

-- The checksum of `size` bytes of `tvb` from `offset`, the bytes at 3 to 5 counted as 0.
local function block_checksum(tvb, offset, size)
  local register = 0xFFFF
  for i = 0, size - 1 do
    local b = 0
    if i < CHECKSUM_OFFSET or i >= CHECKSUM_OFFSET + 3 then b = tvb(offset + i, 1):uint() end
    register = bxor(bxor(checksum_table[shift_right(register, 8)], (register * 256) % 0x10000), b)
  end
  return register
end

local function carried_checksum(tvb, offset)
  local b3 = tvb(offset + 3, 1):uint()
  local b4 = tvb(offset + 4, 1):uint()
  local b5 = tvb(offset + 5, 1):uint()
  return low_bits(b3, 6) + low_bits(b4, 6) * 64 + low_bits(b5, 4) * 4096
end

-- Removes the escapes from a list of byte values; stops at an escape it cannot read.
local function remove_escapes(bytes)
  local out = {}
  local i = 1
  while i <= #bytes do
    local b = bytes[i]
    if b == ESCAPE then
      local nextb = bytes[i + 1]
      if nextb == nil or nextb < 0xAD or nextb > 0xAF then return out, false end
      out[#out + 1] = nextb - 0x20
      i = i + 2
    else
      out[#out + 1] = b
      i = i + 1
    end
  end
  return out, true
end

local function byte_list(tvb, offset, length)
  local bytes = {}
  for i = 0, length - 1 do bytes[i + 1] = tvb(offset + i, 1):uint() end
  return bytes
end

-- ---- inflate, as far as the bytes at hand reach ----------------------------------------

local TRUNCATED = {}

local length_base = { 3, 4, 5, 6, 7, 8, 9, 10, 11, 13, 15, 17, 19, 23, 27, 31, 35, 43, 51, 59, 67, 83, 99, 115,
                      131, 163, 195, 227, 258 }
local length_extra = { 0, 0, 0, 0, 0, 0, 0, 0, 1, 1, 1, 1, 2, 2, 2, 2, 3, 3, 3, 3, 4, 4, 4, 4, 5, 5, 5, 5, 0 }
local distance_base = { 1, 2, 3, 4, 5, 7, 9, 13, 17, 25, 33, 49, 65, 97, 129, 193, 257, 385, 513, 769, 1025, 1537,
                        2049, 3073, 4097, 6145, 8193, 12289, 16385, 24577 }
local distance_extra = { 0, 0, 0, 0, 1, 1, 2, 2, 3, 3, 4, 4, 5, 5, 6, 6, 7, 7, 8, 8, 9, 9, 10, 10, 11, 11, 12, 12,
                         13, 13 }
local code_length_order = { 16, 17, 18, 0, 8, 7, 9, 6, 10, 5, 11, 4, 12, 3, 13, 2, 14, 1, 15 }

-- Canonical Huffman code from code lengths (index 0 .. n-1): counts per length and the
-- symbols in code order.
local function huffman(lengths, n)
  local count = {}
  for len = 0, 15 do count[len] = 0 end
  for s = 0, n - 1 do count[lengths[s]] = count[lengths[s]] + 1 end
  local offsets = { [1] = 0 }
  for len = 1, 14 do offsets[len + 1] = offsets[len] + count[len] end
  local symbol = {}
  for s = 0, n - 1 do
    local len = lengths[s]
    if len ~= 0 then
      symbol[offsets[len]] = s
      offsets[len] = offsets[len] + 1
    end
  end
  return { count = count, symbol = symbol }
end

-- Inflates a raw deflate stream from bytes[start] on; returns the bytes produced before
-- the input ran out (or the stream ended, or `most` bytes were made).
local function inflate_prefix(bytes, start, most)
  local out = {}
  local position = start
  local bit_buffer, bit_count = 0, 0

  local function bits(n)
    while bit_count < n do
      local b = bytes[position]
      if b == nil then error(TRUNCATED) end
      position = position + 1
      bit_buffer = bit_buffer + b * 2 ^ bit_count
      bit_count = bit_count + 8
    end
    local value = bit_buffer % 2 ^ n
    bit_buffer = (bit_buffer - value) / 2 ^ n
    bit_count = bit_count - n
    return value
  end

  local function decode(h)
    local code, first, index = 0, 0, 0
    for len = 1, 15 do
      code = code + bits(1)
      local c = h.count[len]
      if code - c < first then return h.symbol[index + code - first] end
      index = index + c
      first = (first + c) * 2
      code = code * 2
    end
    error("bad code")
  end

  local function codes(lengths_code, distance_code)
    while #out < most do
      local symbol = decode(lengths_code)
      if symbol < 256 then
        out[#out + 1] = symbol
      elseif symbol == 256 then
        return
      else
        symbol = symbol - 257
        if symbol >= 29 then error("bad length") end
        local len = length_base[symbol + 1] + bits(length_extra[symbol + 1])
        local d = decode(distance_code)
        if d >= 30 then error("bad distance") end
        local distance = distance_base[d + 1] + bits(distance_extra[d + 1])
        if distance > #out then error("distance too far") end
        for _ = 1, len do out[#out + 1] = out[#out + 1 - distance] end
      end
    end
  end

  local fixed_lengths, fixed_distances
  local function fixed()
    if fixed_lengths == nil then
      local lengths = {}
      for s = 0, 143 do lengths[s] = 8 end
      for s = 144, 255 do lengths[s] = 9 end
      for s = 256, 279 do lengths[s] = 7 end
      for s = 280, 287 do lengths[s] = 8 end
      fixed_lengths = huffman(lengths, 288)
      local distances = {}
      for s = 0, 29 do distances[s] = 5 end
      fixed_distances = huffman(distances, 30)
    end
    codes(fixed_lengths, fixed_distances)
  end

  local function dynamic()
    local nlen = bits(5) + 257
    local ndist = bits(5) + 1
    local ncode = bits(4) + 4
    local lengths = {}
    for i = 0, 18 do lengths[i] = 0 end
    for i = 1, ncode do lengths[code_length_order[i]] = bits(3) end
    local length_code = huffman(lengths, 19)
    local all = {}
    local index = 0
    while index < nlen + ndist do
      local symbol = decode(length_code)
      if symbol < 16 then
        all[index] = symbol
        index = index + 1
      else
        local value, repeats = 0, 0
        if symbol == 16 then
          if index == 0 then error("repeat without a length") end
          value = all[index - 1]
          repeats = 3 + bits(2)
        elseif symbol == 17 then
          repeats = 3 + bits(3)
        else
          repeats = 11 + bits(7)
        end
        for _ = 1, repeats do
          all[index] = value
          index = index + 1
        end
      end
    end
    local literal_lengths, distance_lengths = {}, {}
    for i = 0, nlen - 1 do literal_lengths[i] = all[i] end
    for i = 0, ndist - 1 do distance_lengths[i] = all[nlen + i] end
    codes(huffman(literal_lengths, nlen), huffman(distance_lengths, ndist))
  end

  local function stored()
    bit_buffer, bit_count = 0, 0
    local b0, b1 = bytes[position], bytes[position + 1]
    if b0 == nil or b1 == nil then error(TRUNCATED) end
    local len = b0 + b1 * 256
    position = position + 4
    for _ = 1, len do
      if #out >= most then return end
      local b = bytes[position]
      if b == nil then error(TRUNCATED) end
      out[#out + 1] = b
      position = position + 1
    end
  end

  local ok, failure = pcall(function()
    local last = 0
    repeat
      last = bits(1)
      local kind = bits(2)
      if kind == 0 then
        stored()
      elseif kind == 1 then
        fixed()
      elseif kind == 2 then
        dynamic()
      else
        error("bad block type")
      end
    until last == 1 or #out >= most
  end)
  if not ok and failure ~= TRUNCATED then return out, false end
  return out, true
end

-- ---- the page record in a page's first packet ------------------------------------------

local function little_endian(bytes, at, count)
  local value = 0
  for i = count - 1, 0, -1 do
    local b = bytes[at + i]
    if b == nil then return nil end
    value = value * 256 + b
  end
  return value
end

local function text_of(bytes, at, count)
  local chars = {}
  for i = 0, count - 1 do
    local b = bytes[at + i]
    if b == nil then return nil end
    chars[#chars + 1] = string.char(b)
  end
  return table.concat(chars)
end

-- The chunk of packet 0 begins the page stream: PlainSize, CompressedSize, then a gzip
-- member whose deflate data hold the page record. Shows what of it this packet reaches.
local function add_page_record(chunk_tvb, chunk_range, tree, info)
  local stream = remove_escapes(byte_list(chunk_tvb, 0, chunk_tvb:len()))
  if #stream < 18 or stream[9] ~= 0x1F or stream[10] ~= 0x8B or stream[11] ~= 8 then return end
  tree:add_le(f.plain_size, chunk_range, little_endian(stream, 1, 4))
  tree:add_le(f.compressed_size, chunk_range, little_endian(stream, 5, 4))
  if not zol.prefs.decode_record then return end
  -- The gzip header is ten bytes when its flags are 0, as the server writes it.
  if stream[12] ~= 0 then
    tree:add(f.record_note, chunk_range, "gzip header with optional fields: not decoded")
    return
  end
  local record, readable = inflate_prefix(stream, 19, 4096)
  if not readable then
    tree:add(f.record_note, chunk_range, "the compressed record does not inflate")
    return
  end
  if #record == 0 then
    tree:add(f.record_note, chunk_range, "no byte of the record is in this packet")
    return
  end
  local array = ByteArray.new()
  array:set_size(#record)
  for i = 1, #record do array:set_index(i - 1, record[i]) end
  local record_tvb = array:tvb("Page record (inflated)")
  local subtree = tree:add(zol, record_tvb(), "Page record, as far as this packet holds it")
  local at = 1
  local function field(proto_field, count, value)
    subtree:add_le(proto_field, record_tvb(at - 1, count), value)
    at = at + count
  end
  if #record < 2 then return end
  field(f.record_type, 1, record[1])
  field(f.record_version, 1, record[2])
  local path_length = little_endian(record, at, 2)
  local path = path_length and text_of(record, at + 2, path_length)
  if path == nil then
    subtree:add(f.record_note, record_tvb(), "the path continues in the next packet")
    return
  end
  at = at + 2
  field(f.path, path_length, path)
  local name_length = little_endian(record, at, 2)
  local name = name_length and text_of(record, at + 2, name_length)
  if name == nil then
    subtree:add(f.record_note, record_tvb(), "the file name continues in the next packet")
    return
  end
  at = at + 2
  field(f.file, name_length, name)
  info.location = path .. name
  local is_template = little_endian(record, at, 4)
  if is_template == nil then return end
  field(f.is_template, 4, is_template)
  local data_length = little_endian(record, at, 4)
  if data_length == nil then return end
  field(f.data_length, 4, data_length)
end

-- ---- one packet ---------------------------------------------------------------------------

local function packet_size()
  local size = zol.prefs.packet_size
  if size < 16 or size > 128 then size = 128 end
  return size
end

-- Reads the header of the block at `offset` as the client's scanner does. Returns a table
-- with `state` ("good", "bad checksum", "bad end mark", "bad header") and the fields.
local function check_block(tvb, offset, size)
  local block = { state = "good" }
  if tvb(offset, 1):uint() ~= START_MARK then
    block.state = "bad header"
    return block
  end
  if size > END_MARK_INDEX and tvb(offset + END_MARK_INDEX, 1):uint() ~= END_MARK then
    block.state = "bad end mark"
    return block
  end
  block.carried = carried_checksum(tvb, offset)
  block.computed = block_checksum(tvb, offset, size)
  if tvb(offset + 3, 1):uint() > 0x3F or tvb(offset + 4, 1):uint() > 0x3F or tvb(offset + 5, 1):uint() > 0x0F or
      block.carried ~= block.computed then
    block.state = "bad checksum"
    return block
  end
  local sequence_high = tvb(offset + 1, 1):uint()
  local flags = tvb(offset + 2, 1):uint()
  local id_length = low_bits(shift_right(flags, 1), 4)
  if sequence_high >= 0x80 or flags >= 0x20 or id_length < 4 or id_length > 8 then
    block.state = "bad header"
    return block
  end
  local id, readable = remove_escapes(byte_list(tvb, offset + HEADER_BYTES, id_length))
  if not readable or #id ~= 4 then
    block.state = "bad header"
    return block
  end
  block.sequence_high = sequence_high
  block.flags = flags
  block.id_length = id_length
  block.packet_id = id[1] + id[2] * 256 + id[3] * 65536 + id[4] * 16777216
  return block
end

-- Adds the packet at `offset` to the tree; returns the checked block.
local function dissect_block(tvb, offset, size, pinfo, tree, summary)
  local block = check_block(tvb, offset, size)
  local item = tree:add(zol, tvb(offset, size))
  item:add(f.start_mark, tvb(offset, 1))
  if block.state ~= "good" then
    item:append_text(": " .. block.state)
    if block.carried ~= nil then
      local sum = item:add(f.checksum, tvb(offset + 3, 3), block.carried)
      item:add(f.checksum_computed, tvb(offset + 3, 3), block.computed)
      item:add(f.checksum_status, tvb(offset + 3, 3), 0)
      sum:add_proto_expert_info(expert_bad_checksum, string.format("Bad checksum: carries %04x, computed %04x",
                                                                     block.carried, block.computed))
    else
      item:add_proto_expert_info(expert_bad_block, "Not a well-formed packet: " .. block.state)
    end
    summary[#summary + 1] = block.state
    return block
  end
  local id = block.packet_id
  local level = shift_right(id, 30)
  local page = low_bits(shift_right(id, 21), 9)
  local site = low_bits(shift_right(id, 18), 3)
  local number = low_bits(shift_right(id, 6), 12)
  local sequence_low = low_bits(id, 6)
  local version = string.format("%d.%d", block.sequence_high, sequence_low)
  local is_last = low_bits(block.flags, 1) == 1
  item:append_text(string.format(", Site %d, Page %d, Level %d, Packet %d%s, Version %s", site, page, level, number,
                                 is_last and " (last)" or "", version))
  item:add(f.sequence_high, tvb(offset + 1, 1))
  local flags_item = item:add(f.flags, tvb(offset + 2, 1))
  flags_item:add(f.id_length, tvb(offset + 2, 1))
  flags_item:add(f.last, tvb(offset + 2, 1))
  item:add(f.checksum, tvb(offset + 3, 3), block.carried)
  item:add(f.checksum_computed, tvb(offset + 3, 3), block.computed)
  item:add(f.checksum_status, tvb(offset + 3, 3), 1)
  local id_range = tvb(offset + HEADER_BYTES, block.id_length)
  local id_item = item:add(f.packet_id, id_range, id)
  id_item:add(f.page_key, id_range, id - low_bits(id, 18))
  id_item:add(f.level, id_range, level)
  id_item:add(f.page, id_range, page)
  id_item:add(f.site, id_range, site)
  id_item:add(f.packet, id_range, number)
  id_item:add(f.sequence_low, id_range, sequence_low)
  item:add(f.version, tvb(offset + 1, HEADER_BYTES - 1 + block.id_length), version)
  local chunk_offset = offset + HEADER_BYTES + block.id_length
  local capacity = size - (block.id_length + 7)
  local chunk_range = tvb(chunk_offset, capacity)
  item:add(f.chunk, chunk_range)
  local info = {}
  if number == 0 then add_page_record(chunk_range:tvb(), chunk_range, item, info) end
  if size > END_MARK_INDEX then item:add(f.end_mark, tvb(offset + END_MARK_INDEX, 1)) end
  local text = string.format("S%d P%d #%d v%s", site, page, number, version)
  if is_last then text = text .. " last" end
  if info.location ~= nil then text = text .. " " .. info.location end
  summary[#summary + 1] = text
  return block
end

-- A frame may be dissected in several calls (the end of a packet reassembled from earlier
-- segments, then the packets of its own): the later ones add to the column.
local function set_columns(pinfo, summary)
  pinfo.cols.protocol = "ZOL"
  local text = table.concat(summary, ", ")
  if pinfo.private.zol_info ~= nil then
    pinfo.cols.info:append(", " .. text)
  else
    pinfo.cols.info = text
  end
  pinfo.private.zol_info = "1"
end

-- ---- a byte stream of packets (TCP) ------------------------------------------------------

local function next_start_mark(tvb, from, limit)
  for at = from, limit - 1 do
    if tvb(at, 1):uint() == START_MARK then return at end
  end
  return limit
end

local function dissect_stream(tvb, pinfo, tree)
  local size = packet_size()
  local length = tvb:len()
  local offset = 0
  local summary = {}
  while offset < length do
    if tvb(offset, 1):uint() ~= START_MARK then
      -- Out of step: everything up to the next start mark belongs to no packet.
      local found = next_start_mark(tvb, offset, length)
      local skipped = tree:add(zol, tvb(offset, found - offset), "Bytes outside any packet")
      skipped:add(f.skipped, tvb(offset, found - offset))
      skipped:add_proto_expert_info(expert_skipped)
      offset = found
    elseif length - offset < size then
      pinfo.desegment_offset = offset
      pinfo.desegment_len = size - (length - offset)
      break
    else
      local block = dissect_block(tvb, offset, size, pinfo, tree, summary)
      if block.state == "good" then
        offset = offset + size
      else
        -- A start mark never stands inside a good packet: the next one may begin right
        -- behind this one's first byte.
        offset = next_start_mark(tvb, offset + 1, offset + size)
      end
    end
  end
  if #summary > 0 then set_columns(pinfo, summary) end
  return length
end

-- ---- datagrams (UDP) -----------------------------------------------------------------------

local function dissect_datagram(tvb, pinfo, tree)
  local size = packet_size()
  local summary = {}
  if tvb:len() ~= size then
    local item = tree:add(zol, tvb())
    item:add_proto_expert_info(expert_bad_block,
                               string.format("A datagram of %d bytes is not one packet of %d", tvb:len(), size))
    summary[1] = "bad size"
  else
    dissect_block(tvb, 0, size, pinfo, tree, summary)
  end
  set_columns(pinfo, summary)
  return tvb:len()
end

local PORT_TYPE_UDP = 3

function zol.dissector(tvb, pinfo, tree)
  if pinfo.port_type == PORT_TYPE_UDP then return dissect_datagram(tvb, pinfo, tree) end
  return dissect_stream(tvb, pinfo, tree)
end

-- ---- heuristics ---------------------------------------------------------------------------

-- A packet with a right checksum at `offset`.
local function good_block_at(tvb, offset, size)
  if tvb:len() - offset < size then return false end
  return check_block(tvb, offset, size).state == "good"
end

local function heuristic_tcp(tvb, pinfo, tree)
  local size = packet_size()
  -- A capture may begin inside a packet: look for a good one within the first packet's length.
  local offset = next_start_mark(tvb, 0, math.min(tvb:len(), size))
  if offset >= tvb:len() or not good_block_at(tvb, offset, size) then return false end
  pinfo.conversation = zol
  dissect_stream(tvb, pinfo, tree)
  return true
end

local function heuristic_udp(tvb, pinfo, tree)
  local size = packet_size()
  if tvb:len() ~= size or not good_block_at(tvb, 0, size) then return false end
  dissect_datagram(tvb, pinfo, tree)
  return true
end

-- ---- registration ---------------------------------------------------------------------------

local registered_tcp_port, registered_udp_port

local function register_ports()
  local tcp_table = DissectorTable.get("tcp.port")
  local udp_table = DissectorTable.get("udp.port")
  if registered_tcp_port ~= nil then tcp_table:remove(registered_tcp_port, zol) end
  if registered_udp_port ~= nil then udp_table:remove(registered_udp_port, zol) end
  registered_tcp_port = zol.prefs.tcp_port
  registered_udp_port = zol.prefs.udp_port
  if registered_tcp_port ~= 0 then tcp_table:add(registered_tcp_port, zol) end
  if registered_udp_port ~= 0 then udp_table:add(registered_udp_port, zol) end
end

function zol.prefs_changed() register_ports() end

register_ports()
zol:register_heuristic("tcp", heuristic_tcp)
zol:register_heuristic("udp", heuristic_udp)
