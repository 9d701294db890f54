"""Writes capture files (classic pcap, Ethernet) of a TCP byte stream or of UDP datagrams
from bytes a test received itself, so that a capture tool can read them without anyone
capturing: the Ethernet, IPv4, TCP and UDP headers are built here, their checksums and
TCP sequence numbers right."""
import struct

LINKTYPE_ETHERNET = 1
SERVER_MAC = bytes.fromhex("020000000001")
CLIENT_MAC = bytes.fromhex("020000000002")
MULTICAST_MAC_PREFIX = bytes.fromhex("01005e")

SYN, ACK, PSH, FIN = 0x02, 0x10, 0x08, 0x01


def internet_checksum(data):
    if len(data) % 2:
        data += b"\0"
    total = sum(struct.unpack("!%dH" % (len(data) // 2), data))
    while total >> 16:
        total = (total & 0xFFFF) + (total >> 16)
    return ~total & 0xFFFF


def ipv4_address(text):
    return bytes(int(part) for part in text.split("."))


def ipv4_header(source, destination, protocol, payload_length, identification):
    header = struct.pack("!BBHHHBBH4s4s", 0x45, 0, 20 + payload_length, identification & 0xFFFF, 0x4000, 64,
                         protocol, 0, source, destination)
    return header[:10] + struct.pack("!H", internet_checksum(header)) + header[12:]


class PcapFile:
    """A pcap file of Ethernet frames, one microsecond apart from a fixed start."""

    def __init__(self, path):
        self.out = open(path, "wb")
        self.out.write(struct.pack("<IHHiIII", 0xA1B2C3D4, 2, 4, 0, 0, 65535, LINKTYPE_ETHERNET))
        self.time_us = 1_700_000_000 * 1_000_000
        self.identification = 1

    def frame(self, destination_mac, source_mac, ip_packet):
        frame = destination_mac + source_mac + b"\x08\x00" + ip_packet
        self.time_us += 1000
        self.out.write(struct.pack("<IIII", self.time_us // 1_000_000, self.time_us % 1_000_000, len(frame),
                                   len(frame)))
        self.out.write(frame)
        self.identification += 1

    def close(self):
        self.out.close()


class TcpConversation:
    """One TCP connection from a client to a server: handshake, the server's data in
    segments of the sizes given (each acknowledged), and the close."""

    def __init__(self, pcap, server, server_port, client, client_port):
        self.pcap = pcap
        self.server = ipv4_address(server)
        self.client = ipv4_address(client)
        self.server_port = server_port
        self.client_port = client_port
        self.server_seq = 1_000_000
        self.client_seq = 5_000

    def _segment(self, from_server, flags, payload=b""):
        if from_server:
            source, destination, sport, dport = self.server, self.client, self.server_port, self.client_port
            seq, ack = self.server_seq, self.client_seq
            source_mac, destination_mac = SERVER_MAC, CLIENT_MAC
        else:
            source, destination, sport, dport = self.client, self.server, self.client_port, self.server_port
            seq, ack = self.client_seq, self.server_seq
            source_mac, destination_mac = CLIENT_MAC, SERVER_MAC
        header = struct.pack("!HHIIBBHHH", sport, dport, seq & 0xFFFFFFFF, ack & 0xFFFFFFFF if flags & ACK else 0,
                             5 << 4, flags, 65535, 0, 0)
        pseudo = source + destination + struct.pack("!BBH", 0, 6, len(header) + len(payload))
        checksum = internet_checksum(pseudo + header + payload)
        header = header[:16] + struct.pack("!H", checksum) + header[18:]
        ip = ipv4_header(source, destination, 6, len(header) + len(payload), self.pcap.identification)
        self.pcap.frame(destination_mac, source_mac, ip + header + payload)
        advance = len(payload) + (1 if flags & (SYN | FIN) else 0)
        if from_server:
            self.server_seq += advance
        else:
            self.client_seq += advance

    def open(self):
        self._segment(False, SYN)
        self._segment(True, SYN | ACK)
        self._segment(False, ACK)

    def send(self, data, segment_sizes):
        """The server sends `data`, cut into segments whose sizes go round `segment_sizes`."""
        offset = 0
        turn = 0
        while offset < len(data):
            size = segment_sizes[turn % len(segment_sizes)]
            turn += 1
            self._segment(True, PSH | ACK, data[offset:offset + size])
            offset += size
            self._segment(False, ACK)

    def close(self):
        self._segment(True, FIN | ACK)
        self._segment(False, FIN | ACK)
        self._segment(True, ACK)


def write_tcp_capture(path, data, segment_sizes, server_port, client_port=40000):
    pcap = PcapFile(path)
    conversation = TcpConversation(pcap, "127.0.0.1", server_port, "127.0.0.2", client_port)
    conversation.open()
    conversation.send(data, segment_sizes)
    conversation.close()
    pcap.close()


def write_udp_capture(path, datagrams, group, port, source="192.0.2.10", source_port=50000):
    pcap = PcapFile(path)
    source_address = ipv4_address(source)
    group_address = ipv4_address(group)
    group_mac = MULTICAST_MAC_PREFIX + bytes([group_address[1] & 0x7F, group_address[2], group_address[3]])
    for datagram in datagrams:
        header = struct.pack("!HHHH", source_port, port, 8 + len(datagram), 0)
        pseudo = source_address + group_address + struct.pack("!BBH", 0, 17, 8 + len(datagram))
        checksum = internet_checksum(pseudo + header + datagram) or 0xFFFF
        header = header[:6] + struct.pack("!H", checksum)
        ip = ipv4_header(source_address, group_address, 17, len(header) + len(datagram), pcap.identification)
        pcap.frame(group_mac, SERVER_MAC, ip + header + datagram)
    pcap.close()
