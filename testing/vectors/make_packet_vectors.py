#!/usr/bin/env python3
"""Writes packet_vectors.txt: known answers for the packet checksum, the escapes, the
packet identifier and one whole page cut into packets.

Everything here is worked out from the wire rules alone, step by step, with nothing
taken from the server or the client: the checksum table is built bit by bit, the escapes
and the packet cutting are written out again. Only the gzip stream comes from zlib, with
the settings the server uses. Run it from anywhere; it writes beside itself.
"""
import os
import zlib

PACKET_SIZE = 128
RESERVED = (0x8D, 0x8E, 0x8F)


def checksum_table():
    table = []
    for i in range(256):
        value = i << 8
        for _ in range(8):
            out = value & 0x8000
            value = (value << 1) & 0xFFFF
            if out:
                value ^= 0x1021
        table.append(value)
    return table


TABLE = checksum_table()


def checksum(data):
    register = 0xFFFF
    for b in data:
        register = TABLE[register >> 8] ^ ((register << 8) & 0xFFFF) ^ b
    return register


def escape(data):
    out = bytearray()
    for b in data:
        if b in RESERVED:
            out += bytes([0x8D, b + 0x20])
        else:
            out.append(b)
    return bytes(out)


def page_key(site, page, level):
    return (level << 30) | ((page & 0x1FF) << 21) | ((site & 0x7) << 18)


def packet_id(key, number, sequence_low):
    return key | ((number & 0xFFF) << 6) | (sequence_low & 0x3F)


def le16(value):
    return value.to_bytes(2, "little")


def le32(value):
    return value.to_bytes(4, "little")


def page_record(path, name, is_template, data):
    return (bytes([1, 0]) + le16(len(path)) + path + le16(len(name)) + name + le32(is_template) +
            le32(len(data)) + data)


def gzip(plain):
    compressor = zlib.compressobj(-1, zlib.DEFLATED, 31, 8, zlib.Z_DEFAULT_STRATEGY)
    return compressor.compress(plain) + compressor.flush(zlib.Z_FINISH)


def cut(key, sequence_high, sequence_low, escaped):
    packets = []
    offset = 0
    number = 0
    while offset < len(escaped):
        identifier = escape(le32(packet_id(key, number, sequence_low)))
        capacity = PACKET_SIZE - (len(identifier) + 7)
        chunk = escaped[offset:offset + capacity]
        last = offset + len(chunk) == len(escaped)
        block = bytearray(PACKET_SIZE)
        block[0] = 0x8E
        block[1] = sequence_high
        block[2] = (len(identifier) << 1) | (1 if last else 0)
        block[6:6 + len(identifier)] = identifier
        block[6 + len(identifier):6 + len(identifier) + len(chunk)] = chunk
        block[127] = 0x8F
        crc = checksum(block)  # checksum bytes still 0
        block[3] = crc & 0x3F
        block[4] = (crc >> 6) & 0x3F
        block[5] = (crc >> 12) & 0x0F
        packets.append(bytes(block))
        offset += len(chunk)
        number += 1
    return packets


def hex_lines(field, data, per_line=32):
    if not data:
        return [field + ":"]
    return [field + ": " + " ".join("%02x" % b for b in data[i:i + per_line])
            for i in range(0, len(data), per_line)]


def main():
    lines = []
    emit = lines.append
    emit("# Known answers for the packet stream of the result distribution server.")
    emit("# Made by make_packet_vectors.py; see README.md for the format.")
    emit("")

    digits = b"123456789"
    emit("[checksum-digits]")
    emit("# The nine ASCII digits 1 to 9.")
    lines.extend(hex_lines("data", digits))
    emit("checksum: %04x" % checksum(digits))
    emit("")

    zeros = bytes(128)
    emit("[checksum-zeros]")
    emit("# 128 bytes of 0.")
    lines.extend(hex_lines("data", zeros))
    emit("checksum: %04x" % checksum(zeros))
    emit("")

    plain = bytes([0x00, 0x8C, 0x8D, 0x8E, 0x8F, 0x90, 0xAD, 0xAE, 0xAF, 0x8D, 0x8D])
    emit("[escape-reserved-bytes]")
    emit("# Each of 0x8D, 0x8E, 0x8F becomes 0x8D and the byte plus 0x20; 0xAD to 0xAF")
    emit("# standing alone are not escaped (only an 0x8D in front makes them an escape).")
    lines.extend(hex_lines("plain", plain))
    lines.extend(hex_lines("escaped", escape(plain)))
    emit("")

    def identifier_vector(name, comment, site, page, level, number, sequence_low):
        key = page_key(site, page, level)
        pid = packet_id(key, number, sequence_low)
        emit("[%s]" % name)
        for text in comment:
            emit("# " + text)
        emit("site: %d" % site)
        emit("page: %d" % page)
        emit("level: %d" % level)
        emit("packet-number: %d" % number)
        emit("sequence-low: %d" % sequence_low)
        emit("page-key: %08x" % key)
        emit("packet-id: %08x" % pid)
        lines.extend(hex_lines("plain", le32(pid)))
        lines.extend(hex_lines("escaped", escape(le32(pid))))
        emit("")

    identifier_vector("escape-page-key",
                      ["Level 2, page 113, site 3: the key's top byte is 0x8E, so the identifier",
                       "takes five bytes on the wire and the packet's chunk one byte less."],
                      3, 113, 2, 0, 13)
    identifier_vector("escape-packet-number",
                      ["Packet number 4664 keeps only its low twelve bits (568), which put 0x8E",
                       "into the identifier's second byte; the page key itself needs no escape."],
                      1, 5, 0, 4664, 1)

    # A whole page. Its bytes are a permutation of 0 to 255, so no three bytes repeat and
    # every byte value, the reserved ones too, stands in the page.
    site, page, level = 3, 113, 2
    sequence_high, sequence_low = 5, 13
    path, name, is_template = b"results/", b"heat1.html", 0
    data = bytes((i * 167 + 13) & 0xFF for i in range(256))
    record = page_record(path, name, is_template, data)
    compressed = gzip(record)
    stream = le32(len(record)) + le32(len(compressed)) + compressed
    escaped = escape(stream)
    key = page_key(site, page, level)
    packets = cut(key, sequence_high, sequence_low, escaped)
    emit("[page]")
    emit("# A page of site 3, page 113, level 2, version (5, 13), cut into packets of 128 bytes.")
    emit("# gzip holds one valid compressed form of the record (zlib, default level, gzip")
    emit("# wrapper); another compressor may give other bytes for the same record.")
    emit("site: %d" % site)
    emit("page: %d" % page)
    emit("level: %d" % level)
    emit("sequence-high: %d" % sequence_high)
    emit("sequence-low: %d" % sequence_low)
    emit("packet-size: %d" % PACKET_SIZE)
    emit("path: " + path.decode("ascii"))
    emit("name: " + name.decode("ascii"))
    emit("is-template: %d" % is_template)
    lines.extend(hex_lines("data", data))
    emit("# The page record: type 1, version 0, path, name, IsTemplate, data length, data.")
    lines.extend(hex_lines("record", record))
    lines.extend(hex_lines("gzip", compressed))
    emit("# PlainSize and CompressedSize, then the gzip stream: the page stream before escaping.")
    lines.extend(hex_lines("stream", stream))
    lines.extend(hex_lines("escaped-stream", escaped))
    emit("packets: %d" % len(packets))
    for n, block in enumerate(packets):
        emit("# packet %d: checksum %04x" % (n, checksum(block[:3] + bytes(3) + block[6:])))
        lines.extend(hex_lines("packet-%d" % n, block))
    emit("")

    folder = os.path.dirname(os.path.abspath(__file__))
    with open(os.path.join(folder, "packet_vectors.txt"), "w", encoding="ascii") as out:
        out.write("\n".join(lines))


if __name__ == "__main__":
    main()
