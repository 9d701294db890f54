#!/usr/bin/env python3
"""The Wireshark dissector (packaging/wireshark/zol.lua) against zolclient --trace.

Starts zolhost on a copy of the examples, receives its page stream as a TCP client for a
few seconds and damages one packet of it. The same bytes then go two ways: into capture
files written here (TCP on port 51000, TCP on another port that only the heuristic finds,
split into segments that cut packets apart; UDP datagrams on port 7125 and on another
port), which tshark reads with the dissector; and into a recording that zolclient plays
with --trace. Every packet tshark shows must be the packet zolclient traced, field for
field, the damaged one a bad checksum in both, and the path and file that tshark reads
from a page's first packet must be where zolclient put the page it completed.
"""
import argparse
import os
import shutil
import signal
import socket
import struct
import subprocess
import sys
import tempfile
import time
import xml.etree.ElementTree as ElementTree
import zlib

sys.path.insert(0, os.path.dirname(os.path.abspath(__file__)))
sys.path.insert(0, os.path.join(os.path.dirname(os.path.abspath(__file__)), ".."))
import pcap_writer  # noqa: E402
from example_processes import ExampleSetupFailed, copy_examples, free_port  # noqa: E402

PACKET_SIZE = 128
RECEIVE_SECONDS = 5
ENOUGH_PACKETS = 300
START_MARK = 0x8E


class Failed(ExampleSetupFailed):
    pass


def receive_stream(args, work):
    """zolhost's page stream as a TCP client receives it."""
    appdir = os.path.join(work, "app")
    page_port = free_port()
    copy_examples(args.examples, appdir, page_port)
    log_path = os.path.join(work, "zolhost.log")
    with open(log_path, "w") as log:
        host = subprocess.Popen([os.path.join(args.bin, "zolhost"), "--appdir", appdir, "--race",
                                 os.path.join(args.examples, "race.json"), "--race-speed", "4", "--race-loop"],
                                stdout=subprocess.DEVNULL, stderr=log)
    try:
        deadline = time.monotonic() + 30
        connection = None
        while connection is None:
            try:
                connection = socket.create_connection(("127.0.0.1", page_port), timeout=1)
            except OSError:
                if time.monotonic() > deadline or host.poll() is not None:
                    raise Failed("zolhost did not listen on its page port:\n" + open(log_path).read())
                time.sleep(0.2)
        received = bytearray()
        with connection:
            connection.settimeout(0.5)
            start = time.monotonic()
            # At least RECEIVE_SECONDS, and on until enough packets came (30 s at most).
            while time.monotonic() < start + RECEIVE_SECONDS or (
                    len(received) < ENOUGH_PACKETS * PACKET_SIZE and time.monotonic() < start + 30):
                try:
                    chunk = connection.recv(65536)
                except socket.timeout:
                    continue
                if not chunk:
                    break
                received += chunk
    finally:
        host.send_signal(signal.SIGTERM)
        try:
            host.wait(timeout=20)
        except subprocess.TimeoutExpired:
            host.kill()
            host.wait(timeout=10)
    return bytes(received)


def damage_one_packet(stream, index):
    """Changes one chunk byte of packet `index`, so that its checksum no longer fits."""
    damaged = bytearray(stream)
    for offset in range(index * PACKET_SIZE + 20, index * PACKET_SIZE + 120):
        if not 0x8C <= damaged[offset] <= 0x8F:
            damaged[offset] ^= 0x01
            return bytes(damaged)
    raise Failed("no byte to damage in packet %d" % index)


def write_recording(path, reads):
    """A recording of a byte stream as zolclient --record writes it (docs/recording-format.md)."""
    with open(path, "wb") as out:
        out.write(b"ZOLREC\r\n" + struct.pack("<HBBQ", 1, 0, 0, 0))
        for n, data in enumerate(reads):
            head = struct.pack("<QIB", n, len(data), 0)
            out.write(head + data + struct.pack("<I", zlib.crc32(head + data) & 0xFFFFFFFF))


def traced(args, recording):
    """zolclient --trace on the recording: the packet lines and the completed pages."""
    result = subprocess.run([os.path.join(args.bin, "zolclient"), "replay:" + recording, "--speed", "0", "--trace"],
                            capture_output=True, text=True, timeout=120)
    if result.returncode != 0:
        raise Failed("zolclient ended with %d:\n%s" % (result.returncode, result.stderr))
    packets = []
    pages = {}
    for line in result.stdout.splitlines():
        words = line.split()
        if line.startswith("packet bad checksum "):
            packets.append(("bad", int(words[3], 16)))
        elif line.startswith("packet bad "):
            packets.append(("bad", None))
        elif line.startswith("packet site "):
            # packet site S page P level L number N of T version H.L checksum CCCC good bytes B
            packets.append(("good", int(words[2]), int(words[4]), int(words[6]), int(words[8]), words[12],
                            int(words[14], 16)))
        elif line.startswith("page site "):
            # page site S page P level L version H.L complete packets T bytes D LOCATION
            pages[(int(words[2]), int(words[4]), words[8])] = line.split(" ", 14)[14]
    return packets, pages


def tshark(args, capture, *options):
    result = subprocess.run([args.tshark, "-n", "-r", capture, "-X", "lua_script:" + args.dissector, *options],
                            capture_output=True, text=True, timeout=300)
    problems = [line for line in result.stderr.splitlines() if "Running as user" not in line and line.strip()]
    if result.returncode != 0 or problems or "Lua Error" in result.stdout:
        raise Failed("tshark on %s: status %d\n%s\n%s" % (capture, result.returncode, "\n".join(problems),
                                                         result.stdout[-2000:]))
    return result.stdout


def fields_of(element):
    found = {}
    for field in element.iter("field"):
        found.setdefault(field.get("name"), field.get("show"))
    return found


def dissected(args, capture):
    """The packets tshark shows, in order, as tuples like the trace's; and the page
    records read from first packets; and how many bad-checksum warnings it gave."""
    root = ElementTree.fromstring(tshark(args, capture, "-T", "pdml"))
    packets = []
    records = {}
    warnings = 0
    for frame in root.iter("packet"):
        for proto in frame.findall("proto"):
            if proto.get("name") != "zol":
                continue
            fields = fields_of(proto)
            warnings += sum(1 for field in proto.iter("field") if field.get("name") == "zol.checksum.bad")
            status = fields.get("zol.checksum.status")
            if status is None:
                continue
            checksum = int(fields["zol.checksum"], 0)
            if status == "0":
                packets.append(("bad", checksum))
                continue
            key = (int(fields["zol.site"]), int(fields["zol.page"]), fields["zol.version"])
            packets.append(("good", key[0], key[1], int(fields["zol.level"]), int(fields["zol.packet"]), key[2],
                            checksum))
            if "zol.path" in fields and "zol.file" in fields:
                records.setdefault(key, fields["zol.path"] + fields["zol.file"])
    return packets, records, warnings


def fields_listing(args, capture):
    """Site, page and packet number of every good packet, from tshark -T fields."""
    listing = tshark(args, capture, "-T", "fields", "-E", "occurrence=a", "-E", "aggregator=;", "-e", "zol.site",
                     "-e", "zol.page", "-e", "zol.packet")
    packets = []
    for line in listing.splitlines():
        columns = line.split("\t")
        if len(columns) != 3 or not columns[0]:
            continue
        lists = [column.split(";") for column in columns]
        if len({len(values) for values in lists}) != 1:
            raise Failed("tshark -T fields gave lists of different lengths: " + line)
        packets.extend(zip(*[[int(v) for v in values] for values in lists]))
    return packets


def check_capture(args, name, capture, expected, pages, expect_warning):
    packets, records, warnings = dissected(args, capture)
    if packets != expected:
        for n, (seen, wanted) in enumerate(zip(packets, expected)):
            if seen != wanted:
                raise Failed("%s: packet %d is %s in tshark, %s in the trace" % (name, n, seen, wanted))
        raise Failed("%s: tshark shows %d packets, the trace %d" % (name, len(packets), len(expected)))
    if warnings != (1 if expect_warning else 0):
        raise Failed("%s: %d bad-checksum warnings" % (name, warnings))
    matched = 0
    for key, location in records.items():
        if key[1] == 0 or key not in pages:
            continue
        if pages[key] != location:
            raise Failed("%s: tshark reads %s from the first packet of %s, zolclient wrote %s" %
                         (name, location, key, pages[key]))
        matched += 1
    if matched < 3:
        raise Failed("%s: only %d pages with a path and file in both" % (name, matched))
    print("%s: %d packets alike, %d page records alike" % (name, len(packets), matched))


def run(args, work):
    stream = receive_stream(args, work)
    stream = stream[:len(stream) // PACKET_SIZE * PACKET_SIZE]
    if len(stream) < ENOUGH_PACKETS * PACKET_SIZE or stream[0] != START_MARK:
        raise Failed("received %d bytes, starting with %r" % (len(stream), stream[:4]))
    stream = damage_one_packet(stream, 7)

    reads = [stream[at:at + 1460] for at in range(0, len(stream), 1460)]
    recording = os.path.join(work, "stream.rec")
    write_recording(recording, reads)
    trace, pages = traced(args, recording)
    bad = [packet for packet in trace if packet[0] == "bad"]
    if len(bad) != 1 or len(trace) != len(stream) // PACKET_SIZE:
        raise Failed("the trace shows %d packets, %d bad, for %d packets sent" %
                     (len(trace), len(bad), len(stream) // PACKET_SIZE))
    good = [packet for packet in trace if packet[0] == "good"]

    # Segments that cut packets apart everywhere, and whole ones.
    tcp_known = os.path.join(work, "tcp-51000.pcap")
    pcap_writer.write_tcp_capture(tcp_known, stream, [1000, 333, 1448, 77, 3 * PACKET_SIZE], 51000)
    check_capture(args, "TCP port 51000", tcp_known, trace, pages, True)
    listing = fields_listing(args, tcp_known)
    if listing != [(p[1], p[2], p[4]) for p in good]:
        raise Failed("tshark -T fields lists %d good packets unlike the trace's %d" % (len(listing), len(good)))

    tcp_other = os.path.join(work, "tcp-heuristic.pcap")
    pcap_writer.write_tcp_capture(tcp_other, stream, [1460], 47123)
    check_capture(args, "TCP port 47123 (heuristic)", tcp_other, trace, pages, True)

    datagrams = [stream[at:at + PACKET_SIZE] for at in range(0, len(stream), PACKET_SIZE)]
    udp_known = os.path.join(work, "udp-7125.pcap")
    pcap_writer.write_udp_capture(udp_known, datagrams, "239.254.1.2", 7125)
    check_capture(args, "UDP port 7125", udp_known, trace, pages, True)
    # The heuristic takes only datagrams with a right checksum: the damaged one is not ours.
    udp_other = os.path.join(work, "udp-heuristic.pcap")
    pcap_writer.write_udp_capture(udp_other, datagrams, "239.254.1.3", 47124)
    check_capture(args, "UDP port 47124 (heuristic)", udp_other, good, pages, False)


def main():
    parser = argparse.ArgumentParser(description=__doc__.splitlines()[0])
    parser.add_argument("--bin", required=True, help="folder of zolhost and zolclient")
    parser.add_argument("--examples", required=True, help="the examples folder")
    parser.add_argument("--dissector", required=True, help="zol.lua")
    parser.add_argument("--tshark", default="/usr/bin/tshark")
    parser.add_argument("--keep", action="store_true", help="keep the captures (their folder is printed)")
    args = parser.parse_args()
    work = tempfile.mkdtemp(prefix="zol-dissector-")
    try:
        run(args, work)
    except ExampleSetupFailed as failure:
        print("FAILED: %s" % failure, file=sys.stderr)
        print("files in %s" % work, file=sys.stderr)
        return 1
    if args.keep:
        print("files in %s" % work)
    else:
        shutil.rmtree(work, ignore_errors=True)
    print("dissector test passed")
    return 0


if __name__ == "__main__":
    sys.exit(main())
