"""Who hears a frame: hosts in namespaces of their own, host K on its device hostK.

    wire.py "PID PID ..." FROM...      PIDs of processes in the namespaces of hosts 1, 2, ...

FROM is a host, or HOST.VID to send with a tag. For each a line of those that heard it, HOST or HOST.VID.
"""
import ctypes
import select
import socket
import struct
import sys
import time

SOL_PACKET, PACKET_AUXDATA, PACKET_IGNORE_OUTGOING, TAG_IN_AUXDATA = 263, 8, 23, 0x10
TYPE, EXPERIMENTAL, TAG = 3, 0x88B5, 0x8100


def open_host(number, pid):
    with open(f"/proc/{pid}/ns/net") as namespace:
        assert ctypes.CDLL(None).setns(namespace.fileno(), 0) == 0
    host = socket.socket(socket.AF_PACKET, socket.SOCK_RAW, socket.htons(TYPE))
    host.setsockopt(SOL_PACKET, PACKET_AUXDATA, 1)
    host.setsockopt(SOL_PACKET, PACKET_IGNORE_OUTGOING, 1)
    host.bind((f"host{number}", TYPE))
    return host


def heard(host, number, mark):
    """The host's name when what it has received is the frame."""
    data, extra, _, _ = host.recvmsg(2048, 256)
    vid = 0
    for _, _, value in extra:
        status, tci = struct.unpack_from("I12xH", value)
        vid = tci & 0xFFF if status & TAG_IN_AUXDATA else 0
    if mark not in data:
        return None
    return f"{number}.{vid}" if vid else str(number)


def ask(hosts, sender, turn):
    number, _, vid = sender.partition(".")
    mark = struct.pack("!HI", EXPERIMENTAL, 0x7A000000 + turn)
    tag = struct.pack("!HH", TAG, int(vid)) if vid else b""
    source = bytes([2, 0, 0, 0, 9, int(number)])
    hosts[int(number) - 1].send(b"\xff" * 6 + source + tag + mark + bytes(46))
    who, end = [], time.monotonic() + 0.5
    while (left := end - time.monotonic()) > 0:
        for ready in select.select(hosts, [], [], left)[0]:
            name = heard(ready, hosts.index(ready) + 1, mark)
            who += [name] if name else []
    print(" ".join(sorted(who, key=float)))


all_hosts = [open_host(k + 1, pid) for k, pid in enumerate(sys.argv[1].split())]
for at, one in enumerate(sys.argv[2:]):
    ask(all_hosts, one, at)
