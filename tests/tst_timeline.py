#!/usr/bin/env python3
# SPDX-License-Identifier: MIT
"""Tests of timeline.py: events and bars of a field log, odd lines, limits, bad input."""
import pathlib
import subprocess
import tempfile
import unittest
from xml.etree import ElementTree

PROGRAM = pathlib.Path(__file__).parent.parent / "sim" / "timeline.py"
ANNA, BOB = "/org/bluez/hci0/dev_00_AA_01_01_00_42", "/org/bluez/hci0/dev_00_AA_01_01_00_43"
SVG = "{http://www.w3.org/2000/svg}"


def log(*texts, day="2026-11-22", hour=5, program="kado-bt[412]"):
    return [f"{day}T{hour:02}:00:{i % 60:02}.123456+0000 speaker {program}: {text}" for i, text in enumerate(texts)]


def run(*paths):
    return subprocess.run([PROGRAM, *paths], capture_output=True, text=True, timeout=30)


class Timeline(unittest.TestCase):
    def setUp(self):
        self.addCleanup((folder := tempfile.TemporaryDirectory()).cleanup)
        self.folder = pathlib.Path(folder.name)
        self.svg = self.folder / "timeline.svg"

    def draw(self, *lines):
        """Draws lines. Returns the texts of the rows, the titles of the bars, and all other texts."""
        (source := self.folder / "log").write_bytes("\n".join(lines).encode(errors="surrogateescape"))
        self.assertEqual(run(source, self.svg).returncode, 0)
        root = ElementTree.parse(self.svg).getroot()
        rows = [" ".join("".join(text.itertext()) for text in row.iter(f"{SVG}text") if text.get("x") >= "468")
                for row in root.iter(f"{SVG}g")]
        bars = [title.text for rect in root.iter(f"{SVG}rect") for title in rect]
        return rows, bars, [text.text for text in root.findall(f"{SVG}text")]

    def test_session(self):
        url = "http://127.0.0.1:11000/BTPropertyChange?type=USB?adapter=true&connected=true&name=A%20&%20B&streaming="
        rows, bars, _ = self.draw(
            *log("start kado-bt 0.14", f'Device Connect: "{ANNA}" ', f'Active Device: "{ANNA}" "A & B" ',
                 'AdapterManager::PropertiesChanged "org.bluez.Device1" QMap() QList() ', f'Device Connect: "{BOB}" ',
                 f'Agent1::AuthorizeService "{BOB}" "0000110d-0000-1000-8000-00805f9b34fb" ', "Rejected",
                 f'Device Disconnect: "{BOB}" ', 'Transport State = "active" ',
                 f'AdapterManager::finished "{url}true" OK ',
                 f'AdapterManager::finished "{url}true" "Connection refused" ',
                 "New audio out socket connection accepted", 'Transport State = "idle" ',
                 'Call to BlueZ failed: "RegisterAgent" "/" "org.bluez.Error.AlreadyExists" "Already Exists" ',
                 f'Device Disconnect: "{ANNA}" ', 'Active Device: "" "" '))
        self.assertEqual(rows, [
            "kado-bt starts, version 0.14", "BlueZ reports 00:AA:01:01:00:42 connected",
            'phone "A & B" is the one that may play', "BlueZ reports 00:AA:01:01:00:43 connected",
            "phone 00:AA:01:01:00:43 asks for audio", "kado-bt rejects it: another phone is the one that may play",
            "BlueZ reports 00:AA:01:01:00:43 disconnected", "BlueZ says the stream is active",
            'player took: "A & B" connected, streaming',
            'player failed (Connection refused): "A & B" connected, streaming', "audio reaches the player",
            "BlueZ says the stream is idle", "BlueZ reports 00:AA:01:01:00:42 disconnected"])
        self.assertEqual(bars, [f"{bar} from 05:00:{begin}.123 to 05:00:{end}.123" for bar, begin, end in
                                [("connected", "01", 14), ("streaming", "08", 12), ("heard", 11, 12)]])

    def test_odd_lines(self):
        rows, bars, others = self.draw(
            *log("Connected", program="sshd[1]"), *log("Disconnected", day="2026-02-31"), "\udcff\x00", "x" * 1000000,
            *log('Active Device: "/d" "<b>\\"]]>\u202e\x1b"'), *log("Connected", hour=4)[0:1], log("Rejected")[0][:-3],
            *log('Device Disconnect: "/d"', hour=4), "2026-11-23T04:00:00.123Z speaker kado-bt: Warning: No socket {0}")
        self.assertEqual(rows, ['phone "<b>"]]>··" is the one that may play', "module reports a phone",
                                "BlueZ reports /d disconnected", "kado-bt Warning: No socket {0}"])
        self.assertEqual(bars, ["connected from 05:00:00.123 to 04:00:00.123"])
        self.assertLessEqual({"clock set back by 60 min", "2026-11-23, 24 h later"}, set(others))

    def test_bounded(self):
        states = (f'Transport State = "{state}"' for state in ["active", "idle"] * 2000)
        rows, _, others = self.draw(*log(*states, *["Rejected"] * 5000))
        self.assertEqual((len(rows), rows[-1][-6:]), (300, "× 5000"))
        self.assertIn("log, 3701 earlier events left out", others)

    def test_bad_input(self):
        contents = {"empty": b"", "binary": bytes(range(256)) * 4000, "without times": b"Connected\n",
                    "other": log("Connected", program="sshd")[0].encode()}
        for name, content in {**contents, "good": log("Connected")[0].encode()}.items():
            (self.folder / name).write_bytes(content)
        runs = [(self.folder / name, self.svg) for name in [*contents, "missing", ".", "/dev/zero"]]
        for source, target in [*runs, (self.folder / "good", self.folder / "no" / "where")]:
            with self.subTest(source=source):
                result = run(source, target)
                self.assertEqual((result.returncode, result.stdout, self.svg.exists()), (1, "", False))
                self.assertRegex(result.stderr, r"^timeline: \S")


unittest.main()
