#!/usr/bin/env python3
# SPDX-License-Identifier: MIT
"""Draws the events of a log as SVG: a row for each event, a column for phone, radio, kado-bt, player and audio.
Usage: timeline.py LINES SVG
LINES is the output of scripts/demo, or a log of kado-bt with times: journalctl -t kado-bt -o short-iso-precise"""
import math
import os
import re
import stat
import sys
import textwrap
import unicodedata
from collections import deque
from datetime import datetime, timezone
from html import escape
from urllib.parse import unquote

MAX_EVENTS = 300  # a reader will not scroll further; keep the latest, because they explain the present state
MAX_LINE = 8192  # bytes; the daemon's lines have a few hundred, journald splits lines at 48 KiB
MAX_TITLE = 500  # characters of the original line that the tooltip shows
COLUMNS = 62  # characters in a line of text, with the widest of the usual fonts; an event has two lines at most

LANES = {"phone": "#2b6cb0", "radio": "#6b46c1", "kado-bt": "#1f2933", "player": "#b7641d", "audio": "#2f7f79"}
BARS = {"connected": "phone", "streaming": "radio", "heard": "audio"}
SERVICES = {"0000110d": "audio", "0000110e": "remote control"}

TEXT = r'"((?:[^"\\]|\\.)*)"'  # quoted by Qt's debug stream
STORY = re.compile(r" *(\d{1,9}\.\d{3}) (.{1,20}?) *\| (.*)")
JOURNAL = re.compile(r"(\d{4}-\d\d-\d\d)T(\d\d:\d\d:\d\d)([.,]\d{1,6})?(Z|[+-]\d\d:?\d\d) \S+ kado-bt(?:\[\d+\])?: "
                     r"(.*)")
STATE = re.compile(r".*/BTPropertyChange\?type=\w+\?adapter=(\w+)&connected=(\w+)&name=(.*)&streaming=(\w+)")
PLAY = re.compile(r".*/Play\?url=Capture:bluez:bluetooth:([\w/]+)&name=(.*)")


def plain(text):
    """Removes the backslashes of a quoted text."""
    return re.sub(r"\\(.)", r"\1", text)


def address(path):
    return path.rpartition("/dev_")[2].replace("_", ":")


def request(url):
    """Describes a request to the player."""
    if state := STATE.fullmatch(url):
        adapter, connected, name, streaming = state.groups()
        if connected != "true":
            return "no phone" if adapter == "true" else "no adapter"
        return f'"{unquote(name)}" connected, {"streaming" if streaming == "true" else "not streaming"}'
    if play := PLAY.fullmatch(url):
        return f'play {play[1]} of "{unquote(play[2])}"'
    return url


# Lines of kado-bt: pattern, lane, actor, text with the pattern's groups, bars that begin, bars that end. A "!" before the
# text marks trouble. A line without a text only ends bars.
ALL = set(BARS)
SOUND = {"streaming", "heard"}
RULES = [
    (r"start kado-bt (\S+)", "kado-bt", "kado-bt", "starts, version {}", "", ALL),
    (r'Set default adapter: *"/org/bluez/(.*)"', "radio", "BlueZ", "has the adapter {}", "", ()),
    (r'InterfacesRemoved +"/org/bluez/(hci\d+)"', "radio", "BlueZ", "!has no adapter {} any more", "", ALL),
    (rf"Device Connect: {TEXT}", "radio", "BlueZ", lambda path: f"reports {address(path)} connected", "connected", ()),
    (rf"Device Disconnect: {TEXT}", "radio", "BlueZ", lambda path: f"reports {address(path)} disconnected", "", ALL),
    (rf'Active Device: "([^"]+)" {TEXT}', "phone", "phone", '"{1}" is the one that may play', "connected", ()),
    (rf"Agent1::AuthorizeService {TEXT} {TEXT}", "phone", "phone",
     lambda path, uuid: f"{address(path)} asks for {SERVICES.get(uuid[:8].lower(), uuid)}", "", ()),
    (rf"Agent1::RequestAuthorization {TEXT}", "phone", "phone",
     lambda path: f"{address(path)} had forgotten the speaker, pairs again", "", ()),
    (r"Rejected", "kado-bt", "kado-bt", "!rejects it: another phone is the one that may play", "", ()),
    (rf"SetConfiguration: {TEXT} Codec: {TEXT}", "radio", "BlueZ", "configures a stream: {1}, {0}", "", ()),
    (r"Sample Rate: (\d+) Bit Depth: (\d+) Channels: (\d+)", "kado-bt", "kado-bt",
     "expects {} Hz, {} bits, {} channels", "", ()),
    (r"MediaEndpoint1::ClearConfiguration .*", "radio", "BlueZ", "clears the configuration", "", SOUND),
    (r'Transport State = "active"', "radio", "BlueZ", "says the stream is active", "streaming", ()),
    (r'Transport State = "(pending)"', "radio", "BlueZ", "says the stream is {}", "", ()),
    (rf"Transport State = {TEXT}", "radio", "BlueZ", "says the stream is {}", "", SOUND),
    (r"~Transport", "radio", "BlueZ", "", "", SOUND),
    (r"DBusCommandListener::(SelectBluetooth|ResetAlias)\(\)", "kado-bt", "kado-bt", "is called: {}", "", ()),
    (rf"SelectBluetooth\(\): {TEXT}", "kado-bt", "kado-bt", lambda url: f"tells the player: {request(url)}", "", ()),
    (r"SelectBluetooth\(\): (.*)", "kado-bt", "kado-bt", "!is to play, but: {}", "", ()),
    (rf'AdapterManager::finished {TEXT} OK', "player", "player", lambda url: f"took: {request(url)}", "", ()),
    (rf"AdapterManager::finished {TEXT} {TEXT}", "player", "player",
     lambda url, error: f"!failed ({error.replace(url, '…')}): {request(url)}", "", ()),
    (r"New audio out socket connection accepted", "audio", "audio", "reaches the player", "heard", ()),
    (r"Transport::DeleteSocket\(\)", "audio", "audio", "", "", {"heard"}),
    (r"Audio client does not read, dropping packets", "audio", "player", "!does not read the audio", "", ()),
    (r"Audio client was too slow, packets dropped: (\d+)", "audio", "player", "!was too slow, {} packets lost", "", ()),
    (r"(SBC decoding error|AAC packet)\b.*", "audio", "audio", "!packet is damaged: {}", "", ()),
    # A board with a module.
    (r"Connected", "radio", "module", "reports a phone", "connected", ()),
    (r"Disconnected", "radio", "module", "reports that the phone is gone", "", {"connected", "streaming"}),
    (r"Streaming", "radio", "module", "reports a stream", "streaming", ()),
    (r"Stream (Paused|Stopped)", "radio", "module", "reports the stream as {}", "", {"streaming"}),
    (r"BT (.*) mismatch - fixing", "kado-bt", "kado-bt", "corrects the module's {}", "", ()),
    (r"New Blank audio out socket connection accepted", "audio", "audio",
     "is silence, and reaches the player", "heard", ()),
    (r"csr8675Manager::DeleteBlankWriteSocket\(\)", "audio", "audio", "to the player ends", "", {"heard"}),
    (r"(CSR8675 .*|BT settings are not kept.*)", "radio", "module", "!{}", "", ()),
    # All other trouble.
    (r"Call to BlueZ failed: .*AlreadyExists.*", "radio", "BlueZ", "", "", ()),
    (rf"Call to BlueZ failed: {TEXT} {TEXT} {TEXT} {TEXT}", "radio", "BlueZ",
     lambda method, path, error, text: f"!did not do {method}: {error}, {text}", "", ()),
    (r"(org\.bluez\.MediaTransport1\.Acquire: .*|Get\w+: unexpected types .*)", "radio", "BlueZ", "!{}", "", ()),
    (r"((?:Fatal|Critical): .*)", "kado-bt", "kado-bt", "!{}", "", ALL),
    (r"(Warning: .*|Could not open .*)", "kado-bt", "kado-bt", "!{}", "", ()),
]
RULES = [(re.compile(pattern), *rest) for pattern, *rest in RULES]


class Event:
    def __init__(self, at, clock, lane, who, text, line, bars):
        self.at = self.until = at  # seconds
        self.day, self.clock = clock
        self.lane, self.who, self.text, self.line = lane, who, text.lstrip("!"), line
        self.trouble = text.startswith("!")
        self.bars = bars  # those drawn from this event to the next
        self.times = 1


class Timeline:
    """Reads lines one after another and keeps the latest MAX_EVENTS events."""

    def __init__(self):
        self.events = deque(maxlen=MAX_EVENTS)
        self.total = 0
        self.bars = frozenset()
        self.phone = ""
        self.module = False

    def read(self, line):
        if match := STORY.fullmatch(line):
            seconds, who, text = match.groups()
            self.tell(float(seconds), ("", seconds), who, text)
        elif match := JOURNAL.fullmatch(line):
            day, clock, fraction, zone, text = match.groups()
            fraction = (fraction or ".").replace(",", ".")[1:].ljust(6, "0")
            try:
                at = datetime.strptime(f"{day}T{clock}.{fraction}{zone}", "%Y-%m-%dT%H:%M:%S.%f%z")
            except ValueError:
                return  # an impossible date in a damaged line, such as 31 February
            since = at - datetime(1970, 1, 1, tzinfo=timezone.utc)
            self.tell(since.total_seconds(), (day, f"{clock}.{fraction[:3]}"), "kado-bt", text)
        elif line.startswith("FAILED: ") and self.events:
            last = self.events[-1]
            self.add(last.until, (last.day, last.clock), "kado-bt", "board", f"!{line}", line)

    def tell(self, at, clock, who, text):
        if who == "kado-bt":
            self.log(at, clock, text.rstrip())
        elif who in ("phone", "board", "player", "switch"):
            sound = who == "switch" or who == "player" and not text.startswith("is told ")
            lane = "audio" if sound else "kado-bt" if who == "board" else who
            told = text.startswith("is told ")
            self.add(at, clock, lane, who, f"is told: {request(text[8:])}" if told else text, text)

    def log(self, at, clock, line):
        for pattern, lane, who, text, begins, ends in RULES:
            if match := pattern.fullmatch(line):
                break
        else:
            return
        found = [plain(group) for group in match.groups()]
        if who == "module":
            self.module = True
        if line.startswith("Device Disconnect: ") and found[0] != self.phone:
            ends = ()  # a phone that was refused because another phone was connected
        elif begins == "connected" and "connected" not in self.bars:
            self.phone = found[0] if found else ""
        self.bars = self.bars - set(ends) | ({begins} if begins else set())
        if text:
            self.add(at, clock, lane, who, text(*found) if callable(text) else text.format(*found), line)

    def add(self, at, clock, lane, who, text, line):
        new = Event(at, clock, lane, who, text, line, self.bars)
        last = self.events[-1] if self.events else None
        if last and (last.who, last.text, last.bars) == (new.who, new.text, new.bars):
            last.times += 1
            last.until = at
            return
        self.events.append(new)
        self.total += 1


def safe(text):
    """Escapes a text for XML. Characters that XML forbids, or that change the writing direction, become a dot."""
    return escape(re.sub("[^\t -~\xa0-\u2029\u202f-\u2065\u206a-\ud7ff\ue000-\ufffd\U00010000-\U0010ffff]", "·", text),
                  quote=False)


def wrap(text):
    wide = any(unicodedata.east_asian_width(character) in "WF" for character in text)
    return textwrap.wrap(text, COLUMNS // 2 if wide else COLUMNS, max_lines=2, placeholder=" …")


def duration(seconds):
    for unit, size in (("days", 86400), ("h", 3600), ("min", 60)):
        if seconds >= 2 * size:
            return f"{seconds / size:.0f} {unit}"
    return f"{seconds:.1f} s"


WIDTH, ROW, LINE, HEAD, MARGIN = 920, 19, 15, 70, 20
CLOCK, FIRST_LANE, LANE, LABEL = 104, 146, 72, 468
GREY = "#616e7c"


def column(lane):
    return FIRST_LANE + list(LANES).index(lane) * LANE


def gap(before, event):
    """Returns the note between two events, and its height. Empty and 0 unless time has passed or the clock was set."""
    seconds = event.at - before.until
    texts = [event.day] if event.day != before.day else []
    if seconds < 0:
        texts.append(f"clock set back by {duration(-seconds)}")
    elif seconds >= 1:
        texts.append(f"{duration(seconds)} later")
    return ", ".join(texts), (ROW + min(3 * ROW, round(ROW * math.log10(max(1, seconds)))) if texts else 0)


def draw(timeline, title):
    events = list(timeline.events)
    texts = [wrap(f"{event.who} {event.text}" + (f" × {event.times}" if event.times > 1 else "")) for event in events]
    gaps = [("", 0), *(gap(*pair) for pair in zip(events, events[1:]))]
    rows, y = [], HEAD
    for i, (_, room) in enumerate(gaps):
        y += ROW + room + (LINE * (len(texts[i - 1]) - 1) if i else 0)
        rows.append(y)
    bottom = y + ROW + LINE * (len(texts[-1]) - 1)
    height = bottom + MARGIN

    yield (f'<svg xmlns="http://www.w3.org/2000/svg" viewBox="0 0 {WIDTH} {height}" width="{WIDTH}" height="{height}" '
           'font-family="system-ui, sans-serif" font-size="13" fill="#1f2933">')
    yield f'<rect width="{WIDTH}" height="{height}" rx="8" fill="#ffffff"/>'
    left_out = timeline.total - len(events)
    title = ", ".join(filter(None, [events[0].day and title, left_out and f"{left_out} earlier events left out"]))
    yield f'<text x="{LABEL}" y="44" font-weight="600">{safe(title)}</text>'
    yield f'<text x="{CLOCK}" y="44" text-anchor="end" font-size="12" fill="{GREY}">{events[0].day or "seconds"}</text>'
    names = {"radio": "module" if timeline.module else "BlueZ"}
    bars = {lane: bar for bar, lane in BARS.items()}
    for lane, colour in LANES.items():
        x = column(lane)
        yield (f'<text x="{x}" y="44" text-anchor="middle" font-weight="600" fill="{colour}">{names.get(lane, lane)}'
               '</text>')
        if lane in bars:
            yield (f'<text x="{x}" y="60" text-anchor="middle" font-size="11" fill="{colour}">{bars[lane]}</text>'
                   f'<rect x="{x - 7}" y="66" width="14" height="4" rx="2" fill="{colour}" fill-opacity="0.35"/>')
        yield f'<path d="M{x} {HEAD + 8}V{bottom}" stroke="#cbd2d9"/>'

    for bar, lane in BARS.items():
        begin = None
        for i, on in enumerate([*(bar in event.bars for event in events), None]):
            if on and begin is None:
                begin = i
            elif not on and begin is not None:
                end, until = (bottom, "the end") if on is None else (rows[i], events[i].clock)
                yield (f'<rect x="{column(lane) - 7}" y="{rows[begin]}" width="14" height="{end - rows[begin]}" rx="3" '
                       f'fill="{LANES[lane]}" fill-opacity="0.35"><title>{bar} from {events[begin].clock} to {until}'
                       '</title></rect>')
                begin = None

    clock = ""
    for event, lines, y, (between, room) in zip(events, texts, rows, gaps):
        x, colour = column(event.lane), "#c81e1e" if event.trouble else LANES[event.lane]
        if between:
            middle = y - (ROW + room) // 2
            yield f'<path d="M{MARGIN} {middle}H{LABEL - 8}" stroke="{GREY}" stroke-dasharray="1 5"/>'
            yield f'<text x="{LABEL}" y="{middle + 4}" font-style="italic" fill="{GREY}">{between}</text>'
        yield f'<g><title>{event.clock} {event.who}: {safe(event.line[:MAX_TITLE])}</title>'
        if event.clock != clock or between:
            clock = event.clock
            yield f'<text x="{CLOCK}" y="{y + 4}" text-anchor="end" font-size="12" fill="{GREY}">{clock}</text>'
        yield f'<path d="M{x} {y}H{LABEL - 8}" stroke="{colour}" stroke-opacity="0.3"/>'
        yield (f'<path d="M{x - 7} {y}l7 -7 7 7 -7 7z" fill="{colour}"/>' if event.trouble else
               f'<circle cx="{x}" cy="{y}" r="5" fill="{colour}" stroke="#ffffff"/>')
        lines = [safe(line) for line in lines]
        lines[0] = f'<tspan font-weight="600">{event.who}</tspan>' + lines[0][len(event.who):]
        for i, line in enumerate(lines):
            yield f'<text x="{LABEL + 12 * i}" y="{y + 4 + LINE * i}" fill="{colour}">{line}</text>'
        yield "</g>"
    yield "</svg>"


def main():
    if len(sys.argv) != 3:
        sys.exit(__doc__)
    source, target = sys.argv[1:]
    timeline = Timeline()
    try:
        if not stat.S_ISREG(os.stat(source).st_mode):
            sys.exit(f"timeline: {source}: not a regular file")
        with open(source, "rb") as file:
            while line := file.readline(MAX_LINE):
                timeline.read(line.decode("utf-8", "replace").rstrip("\r\n"))
        if not timeline.events:
            sys.exit(f"timeline: {source}: no event of kado-bt with a time. Expected lines of\n"
                     "    journalctl -t kado-bt -o short-iso-precise\nor of scripts/demo, unchanged")
        with open(target, "w", encoding="utf-8") as file:
            file.writelines(f"{line}\n" for line in draw(timeline, os.path.basename(source)))
    except OSError as error:
        sys.exit(f"timeline: {error.filename}: {error.strerror}")
    left_out = timeline.total - len(timeline.events)
    print(f"    to look at {target}" + (f" ({left_out} earlier events left out)" if left_out else ""))


if __name__ == "__main__":
    main()
