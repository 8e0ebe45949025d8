#!/usr/bin/env python3
# SPDX-License-Identifier: MIT
"""The air between the machines: an emulated Bluetooth controller (btvirt's) for each NAME, behind the socket DIR/NAME.

btvirt answers the commands. Data (ACL packets) goes from side to side here, because btvirt passes it on with the sender's
connection handle, which is another one as soon as a controller has two links. The controllers have the addresses
00:AA:01:00:00:42, 00:AA:01:01:00:42 and so on. All speak H4 (Bluetooth Core 5.3, vol. 4, parts A and E). A file
DIR/share/drop cuts the links of the first NAME, as if the others were carried away; it is removed.

usage: radio.py DIR BTVIRT_SOCKET NAME...
"""
import asyncio
import os
import struct
import sys
import time

# An emulated machine is ten to twenty times slower than a real one, but the air would take no time at all: bluetoothd 5.66
# then gets the next request before it has answered the last, and answers that with the wrong label.
AIR_SECONDS = 0.06
LOOK_SECONDS = 0.1

COMMAND, DATA, EVENT = 1, 2, 4
HEADERS = {1: "<xxB", 2: "<xxH", 3: "<xxB", 4: "<xB", 5: "<xxH"}  # behind the type: what tells the length
CONNECTED, DISCONNECTED, COMPLETE, STATUS, PACKETS_SENT = 0x03, 0x05, 0x0E, 0x0F, 0x13
DISCONNECT, READ_BUFFER_SIZE, READ_ADDRESS = 0x0406, 0x1005, 0x1009
TIMED_OUT, BY_LOCAL_HOST = 0x08, 0x16
BUFFERS = struct.pack("<HBHH", 1021, 64, 8, 8)  # a usual controller's; btvirt has 192 bytes, once


def say(who, text):
    print("%.3f %-8s | %s" % (time.time(), who, text), flush=True)


async def read_packet(reader):
    kind = await reader.readexactly(1)
    header = await reader.readexactly(struct.calcsize(HEADERS[kind[0]]))
    (length,) = struct.unpack(HEADERS[kind[0]], header)
    return kind + header + await reader.readexactly(length)


class Controller:
    of_address = {}

    def __init__(self, name, reader, writer):
        self.name, self.reader, self.emulator = name, reader, writer
        self.host = None
        self.address = None
        self.peers = {}  # of each link, by its handle: the other side's address
        self.reasons = {}  # of links that end from this side, by handle; btvirt has another
        self.unasked = 0  # commands that the host did not send

    def to_host(self, packet):
        if self.host:
            self.host.write(packet)

    async def serve_emulator(self):
        while True:
            packet = await read_packet(self.reader)
            if packet[0] == EVENT:
                packet = self.event(packet[1], packet[3:], packet)
            if packet:
                self.to_host(packet)

    def event(self, code, body, packet):
        """The packet as the host is to see it, or None."""
        if code == COMPLETE and body[3:4] == b"\0":
            (command,) = struct.unpack_from("<H", body, 1)
            if command == READ_ADDRESS:
                self.address = body[4:10]
                Controller.of_address[self.address] = self
            elif command == READ_BUFFER_SIZE:
                packet = packet[:7] + BUFFERS
        elif code == CONNECTED and body[0] == 0:
            (handle,) = struct.unpack_from("<H", body, 1)
            self.peers[handle] = body[3:9]
            self.reasons.pop(handle, None)  # was for an earlier link, which had gone by itself
            say(self.name, "linked to %s" % body[8:2:-1].hex(":"))
        elif code == DISCONNECTED and body[0] == 0:
            (handle,) = struct.unpack_from("<H", body, 1)
            self.peers.pop(handle, None)
            packet = packet[:-1] + bytes([self.reasons.pop(handle, packet[-1])])
            say(self.name, "link gone, reason 0x%02x" % packet[-1])
        elif code == STATUS and struct.unpack_from("<H", body, 2)[0] == DISCONNECT and self.unasked:
            self.unasked -= 1
            return None
        return packet

    async def serve_host(self, reader, writer):
        self.host = writer
        try:
            while True:
                packet = await read_packet(reader)
                if packet[0] == DATA:
                    self.send_data(packet)
                    continue
                if packet[0] == COMMAND and struct.unpack_from("<H", packet, 1)[0] == DISCONNECT:
                    self.reasons[struct.unpack_from("<H", packet, 4)[0]] = BY_LOCAL_HOST
                self.emulator.write(packet)
        except (asyncio.IncompleteReadError, ConnectionError):
            self.host = None

    def send_data(self, packet):
        (field,) = struct.unpack_from("<H", packet, 1)
        handle, flags = field & 0xFFF, field >> 12
        self.to_host(struct.pack("<BBBBHH", EVENT, PACKETS_SENT, 5, 1, handle, 1))
        peer = Controller.of_address.get(self.peers.get(handle))
        asyncio.get_running_loop().call_later(AIR_SECONDS, self.arrive, peer, flags or 2, packet[3:])

    def arrive(self, peer, flags, rest):
        for handle, address in peer.peers.items() if peer else ():
            if address == self.address:
                peer.to_host(struct.pack("<BH", DATA, handle | flags << 12) + rest)

    def drop(self):
        for handle in self.peers:
            self.unasked += 1
            self.reasons[handle] = TIMED_OUT
            self.emulator.write(struct.pack("<BHBHB", COMMAND, DISCONNECT, 3, handle, TIMED_OUT))


async def main(folder, emulator, *names):
    controllers = []
    for name in names:
        controller = Controller(name, *await asyncio.open_unix_connection(emulator))
        controllers.append(controller)
        asyncio.create_task(controller.serve_emulator())
        await asyncio.start_unix_server(controller.serve_host, os.path.join(folder, name))
    drop = os.path.join(folder, "share", "drop")
    while True:
        await asyncio.sleep(LOOK_SECONDS)
        if os.path.exists(drop):
            os.unlink(drop)
            say("radio", "cuts the links")
            controllers[0].drop()


asyncio.run(main(*sys.argv[1:]))
