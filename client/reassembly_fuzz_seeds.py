#!/usr/bin/env python3
"""Writes a few seed inputs for reassembly_fuzz: whole pages cut into packets by the wire
rules, as a byte stream and as datagrams, so that the fuzzer starts from valid pages."""
import os
import struct
import sys
import zlib


def checksum(block):
    table = []
    for i in range(256):
        value = i << 8
        for _ in range(8):
            out = value & 0x8000
            value = (value << 1) & 0xFFFF
            if out:
                value ^= 0x1021
        table.append(value)
    reg = 0xFFFF
    for b in block:
        reg = table[reg >> 8] ^ ((reg << 8) & 0xFFFF) ^ b
    return reg


def escape(data):
    out = bytearray()
    for b in data:
        if b in (0x8D, 0x8E, 0x8F):
            out += bytes((0x8D, b + 0x20))
        else:
            out.append(b)
    return bytes(out)


def packets(site, page, high, low, path, name, data, size=128):
    record = bytes((1, 0)) + struct.pack('<H', len(path)) + path + struct.pack('<H', len(name)) + name
    record += struct.pack('<II', 0, len(data)) + data
    compressor = zlib.compressobj(-1, zlib.DEFLATED, 31, 8, 0)
    packed = compressor.compress(record) + compressor.flush()
    stream = escape(struct.pack('<II', len(record), len(packed)) + packed)
    key = (page & 0x1FF) << 21 | (site & 7) << 18
    out, offset, number = [], 0, 0
    while offset < len(stream):
        pid = escape(struct.pack('<I', key | (number & 0xFFF) << 6 | low))
        capacity = size - (len(pid) + 7)
        chunk = stream[offset:offset + capacity]
        last = offset + len(chunk) == len(stream)
        block = bytearray(size)
        block[0], block[1], block[2] = 0x8E, high, (len(pid) << 1) | (1 if last else 0)
        block[6:6 + len(pid)] = pid
        block[6 + len(pid):6 + len(pid) + len(chunk)] = chunk
        if size > 127:
            block[127] = 0x8F
        crc = checksum(block)
        block[3], block[4], block[5] = crc & 0x3F, (crc >> 6) & 0x3F, (crc >> 12) & 0x0F
        out.append(bytes(block))
        offset += len(chunk)
        number += 1
    return out


def main():
    folder = sys.argv[1] if len(sys.argv) > 1 else 'fuzz-seeds'
    os.makedirs(folder, exist_ok=True)
    pages = [
        packets(1, 2, 0, 1, b'', b'a.html', b'<p>hello</p>'),
        packets(1, 3, 0, 2, b'dir/', b'b.bin', bytes(range(256)) * 3),
        packets(2, 4, 5, 63, b'x/y', b'c.txt', b'\x8d\x8e\x8f' * 50),
    ]
    stream = b''.join(b''.join(p) for p in pages)
    seeds = {
        'stream': b'\x00' + stream,
        'datagrams': b'\x01' + stream,
        'small': b'\x04' + b''.join(packets(1, 5, 0, 1, b'', b's', b'small packets', 17)),
        'sealed': b'\x02' + stream,
    }
    for name, content in seeds.items():
        with open(os.path.join(folder, name), 'wb') as f:
            f.write(content)


if __name__ == '__main__':
    main()
