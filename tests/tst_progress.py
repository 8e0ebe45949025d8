#!/usr/bin/env python3
# SPDX-License-Identifier: MIT
"""scripts/progress: no status, output or signal may get lost, and its line must suit a terminal and a log."""

import os
import pathlib
import pty
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
        run = self.run_it("work", "sh", "-c", "echo '[1/3] one'; echo '[2/3] two'; sleep 11")
        self.assertEqual(run.stderr, "work ...\nwork, 10 s: [2/3] two\n")

    def test_packages(self):
        lines = ["Get:1 lists", "1 upgraded, 2 newly installed, 0 to remove", "Get:1 a", "Get:2 b", "Unpacking a ...",
                 "Setting up a ...", "Setting up b ..."]
        for count, step in (2, ""), (4, ": [2/3] fetching"), (5, ": [1/3] unpacking"), (7, ": [2/3] setting up"):
            seen = self.on_terminal("printf '%s\\n' \"$@\"; sleep 1.2", *lines[:count])
            self.assertIn(f"\r\x1b[Kwork, 1 s{step}\r", seen)

    def on_terminal(self, script, *arguments):
        pid, terminal = pty.fork()
        if pid == 0:
            os.execve(PROGRAM, [PROGRAM, "work", "sh", "-c", script, "sh", *arguments], self.environment)
        seen = b""
        try:
            while chunk := os.read(terminal, 4096):
                seen += chunk
        except OSError:  # the other end is closed
            pass
        os.waitpid(pid, 0)
        os.close(terminal)
        return seen.decode()

    def test_terminal(self):
        seen = self.on_terminal("echo '[1/2] one'; sleep 1.2")
        self.assertIn("\r\x1b[Kwork, 1 s: [1/2] one\r\x1b[Kwork, 1 s\r\n", seen)
        self.assertEqual(seen.count("\n"), 1, "rewritten in place")

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
