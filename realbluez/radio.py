#!/usr/bin/env python3
# SPDX-License-Identifier: MIT
"""The radio between the virtual machines: emulates a Bluetooth controller for each NAME, behind the socket DIR/NAME.

btvirt answers the commands. This program forwards data (ACL packets) itself, because btvirt keeps the sender's
connection handle, and the receiver's handle differs when a controller has two links. The controllers have the addresses
00:AA:01:00:00:42, 00:AA:01:01:00:42 and so on. All sockets use H4 (Bluetooth Core 5.3, vol. 4, parts A and E). When a
file DIR/share/drop appears, this program removes it and lets the links of the first NAME time out, as if the other
devices were out of range.

usage: radio.py DIR BTVIRT_SOCKET NAME...
"""
import asyncio
import os
import struct
import sys
import time

# Delay of data. Without it packets arrive at once, while an emulated machine is ten to twenty times slower than a real
# one: bluetoothd 5.66 then receives a request before it has answered the last one, and answers with a wrong label.
DELAY_SECONDS = 0.06
POLL_SECONDS = 0.1

COMMAND, DATA, EVENT = 1, 2, 4
# Headers after the type octet, by type. Each ends with the length.
HEADERS = {1: "<xxB", 2: "<xxH", 3: "<xxB", 4: "<xB", 5: "<xxH"}
CONNECTED, DISCONNECTED, COMPLETE, STATUS, PACKETS_SENT = 0x03, 0x05, 0x0E, 0x0F, 0x13
DISCONNECT, READ_BUFFER_SIZE, READ_ADDRESS = 0x0406, 0x1005, 0x1009
TIMED_OUT, BY_LOCAL_HOST = 0x08, 0x16
BUFFERS = struct.pack("<HBHH", 1021, 64, 8, 8)  # like a usual controller; btvirt reports one buffer of 192 bytes


def say(who, text):
    print("%.3f %-8s | %s" % (time.time(), who, text), flush=True)


async def read_packet(reader):
    kind = await reader.readexactly(1)
    header = await reader.readexactly(struct.calcsize(HEADERS[kind[0]]))
    (length,) = struct.unpack(HEADERS[kind[0]], header)
    return kind + header + await reader.readexactly(length)


class Controller:
    by_address = {}

    def __init__(self, name, reader, writer):
        self.name, self.reader, self.emulator = name, reader, writer
        self.host = None
        self.address = None
        self.peers = {}  # peer address of each link, by handle
        self.reasons = {}  # disconnect reason of links that end from this side, by handle; replaces btvirt's reason
        self.own_disconnects = 0  # pending Disconnect commands of drop(), whose status the host must not see

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
        """Returns the event packet for the host, or None to suppress it."""
        if code == COMPLETE and body[3:4] == b"\0":
            (command,) = struct.unpack_from("<H", body, 1)
            if command == READ_ADDRESS:
                self.address = body[4:10]
                Controller.by_address[self.address] = self
            elif command == READ_BUFFER_SIZE:
                packet = packet[:7] + BUFFERS
        elif code == CONNECTED and body[0] == 0:
            (handle,) = struct.unpack_from("<H", body, 1)
            self.peers[handle] = body[3:9]
            self.reasons.pop(handle, None)  # left from an earlier link with this handle
            say(self.name, "linked to %s" % body[8:2:-1].hex(":"))
        elif code == DISCONNECTED and body[0] == 0:
            (handle,) = struct.unpack_from("<H", body, 1)
            self.peers.pop(handle, None)
            packet = packet[:-1] + bytes([self.reasons.pop(handle, packet[-1])])
            say(self.name, "link gone, reason 0x%02x" % packet[-1])
        elif code == STATUS and struct.unpack_from("<H", body, 2)[0] == DISCONNECT and self.own_disconnects:
            self.own_disconnects -= 1
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
        peer = Controller.by_address.get(self.peers.get(handle))
        asyncio.get_running_loop().call_later(DELAY_SECONDS, self.deliver, peer, flags or 2, packet[3:])

    def deliver(self, peer, flags, rest):
        for handle, address in peer.peers.items() if peer else ():
            if address == self.address:
                peer.to_host(struct.pack("<BH", DATA, handle | flags << 12) + rest)

    def drop(self):
        for handle in self.peers:
            self.own_disconnects += 1
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
        await asyncio.sleep(POLL_SECONDS)
        if os.path.exists(drop):
            os.unlink(drop)
            say("radio", "cuts the links")
            controllers[0].drop()


asyncio.run(main(*sys.argv[1:]))
