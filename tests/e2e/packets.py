"""Packets as bytes, and files of captured packets."""

import ipaddress
import struct

ETHERNET, RAW, COOKED = 1, 101, 113


def mac(text):
    return bytes.fromhex(text.replace(":", ""))


def ethernet(kind, payload, source="02:00:5e:00:00:01", destination="02:00:5e:00:00:02", vlans=()):
    tags = b"".join(struct.pack("!HH", 0x8100, vlan) for vlan in vlans)
    return mac(destination) + mac(source) + tags + struct.pack("!H", kind) + payload


def address(text):
    return ipaddress.ip_address(text).packed


def ipv4(protocol, payload, source="192.0.2.11", destination="198.51.100.7", offset=0, more=False, ttl=64, options=b""):
    header = struct.pack("!BBHHHBBH", 0x45 + len(options) // 4, 0, 20 + len(options) + len(payload), 1,
                         more << 13 | offset // 8, ttl, protocol, 0)
    return header + address(source) + address(destination) + options + payload


def ipv6(protocol, payload, source="2001:db8::b", destination="2001:db8:1::7"):
    return struct.pack("!IHBB", 6 << 28, len(payload), protocol, 64) + address(source) + address(destination) + payload


def tcp(source, destination, flags=0x10, payload=b""):
    return struct.pack("!HHIIBBHHH", source, destination, 0, 0, 0x50, flags, 0xffff, 0, 0) + payload


def udp(source, destination, payload=b""):
    return struct.pack("!HHHH", source, destination, 8 + len(payload), 0) + payload


def icmp(kind, code=0, identifier=7, payload=b""):
    return struct.pack("!BBHHH", kind, code, 0, identifier, 1) + payload


def arp(operation=1, sender="192.0.2.11", target="192.0.2.1"):
    return struct.pack("!HHBBH", 1, 0x800, 6, 4, operation) + mac("02:00:5e:00:00:01") + address(sender) + bytes(6) + \
        address(target)


def pcap(frames, link=ETHERNET, snap=262144, gap=0.0):
    """The file of these frames, `gap` seconds from one to the next, cut to `snap` bytes."""
    data = struct.pack("<IHHiIII", 0xa1b2c3d4, 2, 4, 0, 0, snap, link)
    for number, frame in enumerate(frames):
        time = 1_700_000_000 + number * gap
        data += struct.pack("<IIII", int(time), int(time % 1 * 1e6), min(snap, len(frame)), len(frame)) + frame[:snap]
    return data
