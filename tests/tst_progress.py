#!/usr/bin/env python3
# SPDX-License-Identifier: MIT
"""scripts/progress: no status, output or signal may get lost, and its line must suit a terminal and a log."""

import os
import pathlib
import pty
import re
import signal
import subprocess
import tempfile
import time
import unittest

PROGRAM = pathlib.Path(__file__).parent.parent / "scripts" / "progress"


class Progress(unittest.TestCase):
    def setUp(self):
        folder = tempfile.TemporaryDirectory()
        self.addCleanup(folder.cleanup)
        self.folder = pathlib.Path(folder.name)
        self.environment = dict(os.environ, TMPDIR=folder.name, TERM="xterm")

    def tearDown(self):
        self.assertEqual(list(self.folder.glob("tmp.*")), [], "a log is left")

    def run_it(self, *arguments):
        return subprocess.run([PROGRAM, *arguments], env=self.environment, capture_output=True, text=True, timeout=60)

    def test_failure(self):
        run = self.run_it("work", "sh", "-c", "echo one; echo two >&2; printf three; exit 7")
        self.assertEqual((run.returncode, run.stdout, run.stderr), (7, "", "work ...\none\ntwo\nthree"))
        self.assertEqual(self.run_it("work", self.folder / "missing").returncode, 127)
        self.assertEqual(self.run_it("work", "sh", "-c", "kill -KILL $$").returncode, 128 + signal.SIGKILL)

    def test_success(self):
        run = self.run_it("work", "echo", "one")
        self.assertEqual((run.returncode, run.stdout, run.stderr), (0, "", "work ...\n"))
        log = self.folder / "log"
        run = self.run_it("--show", "--log", log, "work", "sh", "-c", "echo one; printf two")
        self.assertEqual((run.returncode, run.stdout, log.read_text()), (0, "one\ntwo\n", "one\ntwo"))

    def test_a_line_every_ten_seconds(self):
        output, line = os.pipe()
        seen = self.watch(r"two\n", output, subprocess.Popen(self.command("[1/3] one", "[2/3] two"), stderr=line), line)
        self.assertRegex(seen, r"^work \.\.\.\nwork, 1\d s: \[2/3\] two\n$")

    def test_packages(self):
        lines = ["Get:1 lists", "1 upgraded, 2 newly installed, 0 to remove", "Get:1 a", "Get:2 b", "Unpacking a ...",
                 "Setting up a ...", "Setting up b ..."]
        for count, step in (2, ""), (4, ": [2/3] fetching"), (5, ": [1/3] unpacking"), (7, ": [2/3] setting up"):
            self.on_terminal(rf"\r\x1b\[Kwork, [1-9]\d* s{re.escape(step)}(\r|$)", *lines[:count])

    def test_terminal(self):
        seen = self.on_terminal(r"\r\x1b\[Kwork, [1-9]\d* s: \[1/2\] one", "[1/2] one")
        self.assertRegex(seen, r"\r\x1b\[Kwork, \d+ s: \[1/2\] one\r\x1b\[Kwork, \d+ s\r\n$")
        self.assertEqual(seen.count("\n"), 1, "rewritten in place")

    def command(self, *lines):
        """A run of scripts/progress that prints the lines and ends once the file "end" exists, or after 30 s."""
        self.end = self.folder / "end"
        self.end.unlink(missing_ok=True)
        script = 'printf "%s\\n" "$@"; n=0; until [ -e "$0" ] || [ $((n += 1)) -gt 300 ]; do sleep 0.1; done'
        return [PROGRAM, "work", "sh", "-c", script, self.end, *lines]

    def on_terminal(self, expected, *lines):
        """Returns all that a terminal has shown of such a run, which ends once `expected` was seen."""
        terminal, other_end = pty.openpty()
        run = subprocess.Popen(self.command(*lines), stdin=other_end, stdout=other_end, stderr=other_end,
                               env=self.environment)
        return self.watch(expected, terminal, run, other_end)

    def watch(self, expected, output, run, other_end):
        os.close(other_end)
        seen = ""
        try:
            while chunk := os.read(output, 4096):
                seen += chunk.decode()
                if re.search(expected, seen):
                    self.end.touch()
        except OSError:  # the other end of a terminal is closed
            pass
        os.close(output)
        self.assertEqual(run.wait(timeout=60), 0)
        self.assertRegex(seen, expected)
        return seen

    def test_signals(self):
        for number in signal.SIGINT, signal.SIGTERM:
            child = self.folder / "child"
            # A script that a signal of its command ends, as Ctrl-C does; the command's own child ignores SIGINT.
            script = f"set -e; '{PROGRAM}' work bash -c 'sleep 61 & echo $! >{child}; sleep 62'; echo went on"
            run = subprocess.Popen(["bash", "-c", script], env=self.environment, start_new_session=True,
                                   stdout=subprocess.PIPE, stderr=subprocess.STDOUT, text=True)
            while not child.exists() or not child.read_text():
                time.sleep(0.01)
            os.killpg(run.pid, number)
            self.assertEqual(run.communicate(timeout=30)[0], "work ...\n")
            self.assertEqual(run.returncode, -number)
            status = pathlib.Path(f"/proc/{child.read_text().strip()}/status")
            for _ in range(500):
                if not status.exists() or "State:\tZ" in status.read_text():
                    break
                time.sleep(0.01)
            else:
                self.fail("a process is left")
            child.unlink()


if __name__ == "__main__":
    unittest.main()
