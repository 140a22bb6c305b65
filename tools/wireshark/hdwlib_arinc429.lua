-- Wireshark dissector for the ARINC 429 records hdwtool monitor --pcap writes
-- (link type 147, LINKTYPE_USER0). Load it with
--   tshark -X lua_script:hdwlib_arinc429.lua -r capture.pcapng
-- or copy it into Wireshark's personal plugins folder.
--
-- Record (8 bytes):
--   0     version (1)
--   1     flags: 0x01 transmitted (else received), 0x02 the word's low byte
--         holds the label in wire order (else bit-reversed: it reads as the
--         label's number), 0x04 the receiver's parity check failed,
--         0x08 even parity expected (else odd)
--   2     channel (the port's absolute number)
--   3     reserved (0)
--   4..7  the raw 32-bit word, network byte order

local proto = Proto("hdwlib_a429", "HdwLib ARINC 429 word")

local order_record, order_reversed, order_wire = 0, 1, 2
proto.prefs.label_order = Pref.enum("Label bit order", order_record,
    "How the raw word's low byte holds the label: record (as each record says), "
    .. "reversed (the byte reads as the label's number) or wire (bit 0 first on the bus)",
    { { 1, "record", order_record }, { 2, "reversed", order_reversed },
      { 3, "wire", order_wire } }, false)

local f = proto.fields
f.version = ProtoField.uint8("hdwlib_a429.version", "Version", base.DEC)
f.direction = ProtoField.string("hdwlib_a429.direction", "Direction")
f.channel = ProtoField.uint8("hdwlib_a429.channel", "Channel", base.DEC)
f.word = ProtoField.uint32("hdwlib_a429.word", "Word", base.HEX)
f.label = ProtoField.string("hdwlib_a429.label", "Label (octal)")
f.label_order = ProtoField.string("hdwlib_a429.label_order", "Label order")
f.sdi = ProtoField.uint8("hdwlib_a429.sdi", "SDI", base.DEC)
f.data = ProtoField.uint32("hdwlib_a429.data", "Data", base.HEX)
f.ssm = ProtoField.uint8("hdwlib_a429.ssm", "SSM", base.DEC)
f.parity = ProtoField.uint8("hdwlib_a429.parity", "Parity bit", base.DEC)
f.parity_good = ProtoField.bool("hdwlib_a429.parity_good", "Parity good")
f.parity_expected = ProtoField.string("hdwlib_a429.parity_expected", "Parity expected")
f.receiver_parity_error = ProtoField.bool("hdwlib_a429.receiver_parity_error", "Receiver reported a parity error")

local function reverse8(b)
    local r = 0
    for i = 0, 7 do
        if bit.band(b, bit.lshift(1, i)) ~= 0 then
            r = bit.bor(r, bit.rshift(0x80, i))
        end
    end
    return r
end

local function ones(v)
    local n = 0
    while v ~= 0 do
        n = n + bit.band(v, 1)
        v = bit.rshift(v, 1)
    end
    return n
end

function proto.dissector(tvb, pinfo, tree)
    if tvb:len() < 8 then
        return 0
    end
    pinfo.cols.protocol = "ARINC429"
    local flags = tvb(1, 1):uint()
    local word = tvb(4, 4):uint()
    local wire = bit.band(flags, 0x02) ~= 0
    if proto.prefs.label_order == order_reversed then
        wire = false
    elseif proto.prefs.label_order == order_wire then
        wire = true
    end
    local raw = bit.band(word, 0xFF)
    local label = wire and reverse8(raw) or raw
    local sdi = bit.band(bit.rshift(word, 8), 3)
    local data = bit.band(bit.rshift(word, 10), 0x7FFFF)
    local ssm = bit.band(bit.rshift(word, 29), 3)
    local parity = bit.band(bit.rshift(word, 31), 1)
    local even = bit.band(flags, 0x08) ~= 0
    local good = (ones(bit.tobit(word)) % 2 == 1) ~= even
    local direction = bit.band(flags, 0x01) ~= 0 and "tx" or "rx"
    local labelText = string.format("%03o", label)

    local t = tree:add(proto, tvb(0, 8))
    t:add(f.version, tvb(0, 1))
    t:add(f.direction, tvb(1, 1), direction)
    t:add(f.channel, tvb(2, 1))
    t:add(f.word, tvb(4, 4))
    t:add(f.label, tvb(7, 1), labelText)
    t:add(f.label_order, tvb(1, 1), wire and "wire" or "reversed")
    t:add(f.sdi, tvb(6, 1), sdi)
    t:add(f.data, tvb(4, 3), data)
    t:add(f.ssm, tvb(4, 1), ssm)
    t:add(f.parity, tvb(4, 1), parity)
    t:add(f.parity_good, tvb(4, 4), good)
    t:add(f.parity_expected, tvb(1, 1), even and "even" or "odd")
    t:add(f.receiver_parity_error, tvb(1, 1), bit.band(flags, 0x04) ~= 0)
    pinfo.cols.info = string.format("%s ch %d label %s sdi %d data %05X ssm %d parity %d%s", direction,
        tvb(2, 1):uint(), labelText, sdi, data, ssm, parity, good and "" or " (bad)")
    return 8
end

DissectorTable.get("wtap_encap"):add(wtap.USER0, proto)
