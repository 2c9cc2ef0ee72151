-- Kestrav logs (.klog) in Wireshark and tshark: a reader that makes each record of a log, plain or
-- scrambled, a packet, and a dissector that takes the packet apart.
--
--   tshark -X lua_script:klog.lua -r drive.klog -Y 'klog.client == "GPS"'
--
-- A packet is the record as it is in a plain log: 20 bytes of header, then the payload. Damaged
-- records are left out, and the way back after damage is that of the recorder's own reader.

local STREAM_HEADER, RECORD_HEADER, SCAN_BLOCK = 128, 20, 50
local MARKER, NO_ID = 0x4C, 0xFFFF
local INFO_CLIENT, DICTIONARY, EXTENDED_SELECTION = 12, 1200, 134
local ENCAPSULATION = wtap_encaps.USER15
local LONGEST_PACKET = 262144  -- a longer one is shown up to here
local PIECE = 65536  -- read at once of a payload, which may claim to be longer than the log

-- Bytes ---------------------------------------------------------------------------------------

local xor8 = bit.bxor  -- Wireshark brings it, with every version of Lua

local function le16(data, at) return data:byte(at) + 256 * data:byte(at + 1) end
local function le32(data, at) return le16(data, at) + 65536 * le16(data, at + 2) end

local function checksum(data)
  local sum = 0
  for at = 1, #data, 512 do  -- as many values as a call may give back
    local bytes = { data:byte(at, math.min(at + 511, #data)) }
    for i = 1, #bytes do sum = xor8(sum, bytes[i]) end
  end
  return sum
end

local tables = {}  -- from a key to a table from a byte to what it is without the key

local function unscramble(data, key)
  if key == 0 then return data end
  local plain = tables[key]
  if not plain then
    plain = {}
    for byte = 0, 255 do plain[string.char(byte)] = string.char(xor8(byte, key)) end
    tables[key] = plain
  end
  return (data:gsub(".", plain))
end

local function record_key(stream_key, index)
  if stream_key == 0 then return 0 end
  local key = (stream_key + index) % 256
  return key == 0 and 1 or key
end

-- Reading -------------------------------------------------------------------------------------

-- Up to `size` bytes at a place of the file.
local function read_at(file, at, size)
  if not file:seek("set", at) then return "" end
  return file:read(size) or ""
end

local function parse_header(data)
  if data:byte(1) ~= MARKER or data:byte(2) ~= checksum(data:sub(3, RECORD_HEADER)) then
    return nil
  end
  return {
    bytes = data, sum = data:byte(3), index = le32(data, 5), client_id = le16(data, 9),
    data_id = le16(data, 11), time_ms = le32(data, 13), size = le32(data, 17),
  }
end

-- The payload behind a header, as much of it as a packet shows. "end": the log ends within it.
-- "bad": it is damaged.
local function read_payload(log, file, header, at)
  if header.size == 0 then return "bad" end
  local key = record_key(log.data_key, header.index)
  local sum = header.size % 2 == 1 and key or 0
  local pieces, kept, left = {}, 0, header.size
  if not file:seek("set", at) then return "end" end
  while left > 0 do
    local piece = file:read(math.min(PIECE, left)) or ""
    if #piece == 0 then return "end" end
    sum = xor8(sum, checksum(piece))
    if kept < LONGEST_PACKET then pieces[#pieces + 1] = piece end
    kept, left = kept + #piece, left - #piece
  end
  if sum ~= header.sum then return "bad" end
  local payload = table.concat(pieces):sub(1, LONGEST_PACKET - RECORD_HEADER)
  return "good", unscramble(payload, key)
end

-- The header at the log's position, behind which it then stands. "end": too few bytes are left.
local function read_header(log, file)
  local data = read_at(file, log.position, RECORD_HEADER)
  if #data < RECORD_HEADER then return "end" end
  log.position = log.position + RECORD_HEADER
  local header = parse_header(unscramble(data, record_key(log.header_key, log.expected)))
  return header and "good" or "bad", header
end

-- Whether a sound record stands at `candidate`; the log then stands there too, and otherwise where
-- the search goes on.
local function is_record(log, file, candidate)
  log.position = candidate
  local found, header = read_header(log, file)
  if found ~= "good" then
    log.position = candidate + 1
    return false
  end
  local payload = read_payload(log, file, header, log.position)
  if payload == "bad" then log.position = log.position + header.size end
  if payload == "good" then log.position = candidate end
  return payload == "good"
end

-- Stands before the next sound record. false: there is none.
local function search(log, file)
  while true do
    local block = read_at(file, log.position, SCAN_BLOCK)
    if #block < RECORD_HEADER then return false end
    if #block < SCAN_BLOCK then block = block:sub(1, RECORD_HEADER) end
    local front = unscramble(block:sub(1, RECORD_HEADER), record_key(log.header_key, log.expected))
    local marker = (front .. block:sub(RECORD_HEADER + 1)):find("L", 1, true)
    local start = log.position
    log.position = start + #block
    if marker and is_record(log, file, start + marker - 1) then return true end
  end
end

-- The header and the payload at the log's position. "bad": a search has found the next record.
local function read_record(log, file)
  local found, header = read_header(log, file)
  if found == "bad" and search(log, file) then found, header = read_header(log, file) end
  if found ~= "good" then return "end" end
  log.expected = header.index + 1
  local start = log.position
  local state, payload = read_payload(log, file, header, start)
  if state == "end" then return "end" end
  log.position = start + header.size
  if state == "bad" then return search(log, file) and "bad" or "end" end
  return "good", header, payload, start - RECORD_HEADER
end

-- The next whole record: its header, its payload and where it stands. nil: the log, or what is
-- sound of it, ends.
local function next_record(log, file)
  local state, header, payload, start = read_record(log, file)
  if state == "bad" then state, header, payload, start = read_record(log, file) end
  if state ~= "good" or header.client_id == NO_ID or header.data_id == NO_ID then return nil end
  return header, payload, start
end

local function start_walk(log) log.position, log.expected = STREAM_HEADER, 0 end

-- The number that the bytes spell, of which a client id is the low 16 bits.
local function number(text)
  local sign, digits = text:match("^[ \t]*([+-]?)(%d+)[ \t]*$")
  local value = tonumber(digits or "")
  if not value or value > 0xFFFFFFFF then return nil end
  return (sign == "-" and -value or value) % 65536
end

-- From a dictionary's payload: its names in their order, and from client id to name.
local function parse_dictionary(payload)
  local entries, ids, names = {}, {}, {}
  for name, digits in payload:sub(5):gmatch("(%Z*)%z(%Z*)%z") do
    local id = number(digits)
    if name == "" or not id then return {}, {} end
    if not ids[name] then entries[#entries + 1] = name end
    ids[name] = ids[name] or id
  end
  table.sort(entries)
  for _, name in ipairs(entries) do names[ids[name]] = names[ids[name]] or name end
  return entries, names
end

-- From client id to name, out of the first dictionary of the log that was opened last. The packets
-- themselves do not say it.
local names = {}

local function find_names(log, file)
  start_walk(log)
  names = {}
  repeat
    local header, payload = next_record(log, file)
    if header and header.client_id == INFO_CLIENT and header.data_id == DICTIONARY then
      names = select(2, parse_dictionary(payload))
    end
  until not header or next(names)
end

local function fill(log, frame, header, payload)
  local since_start = (header.time_ms - log.start_clock) % 4294967296
  frame.time = NSTime(log.start_time + math.floor(since_start / 1000), since_start % 1000 * 1000000)
  frame.data = header.bytes .. payload
  frame.captured_length = RECORD_HEADER + #payload
  frame.original_length = RECORD_HEADER + header.size
  frame.encap = ENCAPSULATION
  frame.rec_type = wtap_rec_types.PACKET
  frame.flags = wtap_presence_flags.TS + wtap_presence_flags.CAP_LEN
end

local reader = FileHandler.new("Kestrav log", "klog", "The log of a Kestrav recorder", "rm")
reader.extensions = "klog"

function reader.read_open(file, capture)
  local data = read_at(file, 0, STREAM_HEADER)
  if #data < STREAM_HEADER or data:sub(1, 4) ~= "LOG:" then return false end
  local log = {
    start_time = le32(data, 5), header_key = data:byte(11), data_key = data:byte(12),
    start_clock = le32(data, 25),
  }
  find_names(log, file)
  start_walk(log)
  capture.private_table = log
  capture.encap = ENCAPSULATION
  capture.time_precision = wtap_filetypes.TSPREC_MSEC
  capture.snapshot_length = 0
  return true
end

function reader.read(file, capture, frame)
  local log = capture.private_table
  local header, payload, start = next_record(log, file)
  if not header then return false end
  fill(log, frame, header, payload)
  return start
end

-- The marker in front of a record betrays its key.
function reader.seek_read(file, capture, frame, offset)
  local log = capture.private_table
  local data = read_at(file, offset, RECORD_HEADER)
  if #data < RECORD_HEADER then return false end
  local header = parse_header(unscramble(data, xor8(data:byte(1), MARKER)))
  if not header then return false end
  local state, payload = read_payload(log, file, header, offset + RECORD_HEADER)
  if state ~= "good" then return false end
  fill(log, frame, header, payload)
  return true
end

function reader.read_close() return true end
function reader.seq_read_close() return true end

register_filehandler(reader)

-- Dissecting ----------------------------------------------------------------------------------

local klog = Proto("klog", "Kestrav log record")
local fields = {
  client = ProtoField.string("klog.client", "Client"),
  marker = ProtoField.uint8("klog.marker", "Marker", base.HEX),
  header_sum = ProtoField.uint8("klog.header_checksum", "Header checksum", base.HEX),
  payload_sum = ProtoField.uint8("klog.payload_checksum", "Payload checksum", base.HEX),
  reserved = ProtoField.uint8("klog.reserved", "Reserved", base.HEX),
  index = ProtoField.uint32("klog.index", "Record index"),
  client_id = ProtoField.uint16("klog.client_id", "Client id"),
  data_id = ProtoField.uint16("klog.data_id", "Data id"),
  time_ms = ProtoField.uint32("klog.time_ms", "Time stamp (ms)"),
  size = ProtoField.uint32("klog.size", "Payload size"),
  payload = ProtoField.bytes("klog.payload", "Payload"),
  text = ProtoField.string("klog.text", "Text"),
  dictionary = ProtoField.string("klog.dictionary", "Dictionary entry"),
  selection = ProtoField.uint64("klog.extended_selection", "Selected from id 16 on", base.HEX),
}
klog.fields = fields

local HEADER_LAYOUT = {
  { fields.marker, 0, 1 }, { fields.header_sum, 1, 1 }, { fields.payload_sum, 2, 1 },
  { fields.reserved, 3, 1 }, { fields.index, 4, 4 }, { fields.client_id, 8, 2 },
  { fields.data_id, 10, 2 }, { fields.time_ms, 12, 4 }, { fields.size, 16, 4 },
}

local function is_own(client_id, data_id, wanted)
  return client_id == INFO_CLIENT and data_id == wanted
end

-- Adds what is known of the payload, and tells it in a few words.
local function dissect_payload(tree, range, client_id, data_id)
  local payload = range:raw()
  tree:add(fields.payload, range)
  if is_own(client_id, data_id, DICTIONARY) then
    local entries, by_id = parse_dictionary(payload)
    for id, name in pairs(by_id) do tree:add(fields.dictionary, range, name .. " = " .. id) end
    return "dictionary of " .. #entries .. " clients"
  end
  if is_own(client_id, data_id, EXTENDED_SELECTION) and range:len() == 8 then
    tree:add_le(fields.selection, range)
    return "extended selection"
  end
  if payload:find("^[\32-\126\t\r\n]+$") then
    tree:add(fields.text, range, payload)
    return (payload:gsub("%c", " "))
  end
  return range:len() .. " bytes"
end

function klog.dissector(buffer, pinfo, root)
  if buffer:len() < RECORD_HEADER then return 0 end
  local tree = root:add(klog, buffer())
  local client_id, data_id = buffer(8, 2):le_uint(), buffer(10, 2):le_uint()
  local name = names[client_id]
  if name then tree:add(fields.client, buffer(8, 2), name):set_generated() end
  for _, field in ipairs(HEADER_LAYOUT) do tree:add_le(field[1], buffer(field[2], field[3])) end
  local said = ""
  if buffer:len() > RECORD_HEADER then
    said = dissect_payload(tree, buffer(RECORD_HEADER), client_id, data_id)
  end
  local shown = name or ("client " .. client_id)
  pinfo.cols.protocol = "KLOG"
  pinfo.cols.src = shown
  pinfo.cols.info = shown .. " " .. data_id .. ": " .. said
  tree:append_text(", " .. shown .. " " .. data_id)
  return buffer:len()
end

DissectorTable.get("wtap_encap"):add(ENCAPSULATION, klog)
