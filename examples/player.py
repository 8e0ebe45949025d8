#!/usr/bin/env python3
# SPDX-License-Identifier: MIT
"""An example player for kado-bt: receives its notifications and plays the audio of the phone.

Usage: player.py [COMMAND]    COMMAND plays the PCM from its standard input; default: aplay
"""
import re
import shlex
import socket
import subprocess
import sys
from http.server import BaseHTTPRequestHandler, ThreadingHTTPServer
from threading import Thread
from urllib.parse import unquote

OUTPUT = sys.argv[1] if len(sys.argv) > 1 else "aplay -q -t raw -f S{bits} -r {rate} -c {channels}"
STATE = re.compile(r"/BTPropertyChange\?type=\w+\?adapter=\w+&connected=(\w+)&name=(.*?)(?:&streaming=(\w+))?")
PLAY = re.compile(r"/Play\?url=Capture:bluez:bluetooth:pcm/(\d+)/(\d+)/(\d+)&name=.*")
SELECT = "dbus-send --system --type=method_call --dest=org.kadobt /kadobt org.kadobt.commands.SelectBluetooth"


def listen(rate, bits, channels):
    with socket.socket(socket.AF_UNIX) as audio:
        audio.connect("/tmp/bluetooth")
        print(f"plays {rate} Hz, {bits} bits, {channels} channels", file=sys.stderr)
        subprocess.run(shlex.split(OUTPUT.format(rate=rate, bits=bits, channels=channels)), stdin=audio)


class Player(BaseHTTPRequestHandler):
    protocol_version = "HTTP/1.1"  # keeps the connection open, because closing it with the answer may cause a retry

    def do_GET(self):
        self.send_response(200)
        self.send_header("Content-Length", "0")
        self.end_headers()
        if state := STATE.fullmatch(self.path):
            connected, name, streaming = state.groups()
            print(f"connected: {connected}, name: {unquote(name)}, streaming: {streaming}", file=sys.stderr)
            if streaming == "true":
                subprocess.run(shlex.split(SELECT))  # kado-bt then sends the /Play request below
        elif play := PLAY.fullmatch(self.path):
            Thread(target=listen, args=play.groups(), daemon=True).start()
        else:
            print(f"plays PCM only (see --disable-aac of kado-bt), not {self.path}", file=sys.stderr)


server = ThreadingHTTPServer(("127.0.0.1", 11000), Player)
subprocess.run(shlex.split(SELECT))  # because a phone may already be playing
server.serve_forever()
