#!/usr/bin/python3
# SPDX-License-Identifier: MIT
"""Runs a program with the system call filter that systemd builds from a unit's SystemCallFilter,
RestrictAddressFamilies, MemoryDenyWriteExecute, RestrictNamespaces and NoNewPrivileges. It is stricter in one point: a
refused call or address family ends the program with SIGSYS, so that no test can overlook it.
Usage: confine.py CALLS FAMILIES PROGRAM [ARGUMENT...]
CALLS is a file with the names of the permitted calls, one per line. FAMILIES is for example "AF_UNIX AF_INET"."""

import errno
import mmap
import os
import socket
import sys

from seccomp import ALLOW, EQ, ERRNO, KILL_PROCESS, MASKED_EQ, Arch, Arg, SyscallFilter, resolve_syscall

calls, families, *program = sys.argv[1:]
allowed = set(open(calls).read().split())
if not allowed:
    sys.exit(f"confine.py: no calls in {calls}")

confined = SyscallFilter(KILL_PROCESS)  # libseccomp sets NoNewPrivileges as well
for name in allowed - {"socket", "mmap", "mprotect", "clone", "clone3", "setns", "unshare"}:
    if resolve_syscall(Arch.NATIVE, name) >= 0:  # skip calls of other architectures
        confined.add_rule(ALLOW, name)

for family in families.split():
    confined.add_rule(ALLOW, "socket", Arg(0, EQ, getattr(socket, family)))

writable_code = mmap.PROT_WRITE | mmap.PROT_EXEC
confined.add_rule(ALLOW, "mmap", Arg(2, MASKED_EQ, mmap.PROT_EXEC, 0))
confined.add_rule(ALLOW, "mmap", Arg(2, MASKED_EQ, mmap.PROT_WRITE, 0))
confined.add_rule(ERRNO(errno.EPERM), "mmap", Arg(2, MASKED_EQ, writable_code, writable_code))
confined.add_rule(ALLOW, "mprotect", Arg(2, MASKED_EQ, mmap.PROT_EXEC, 0))
confined.add_rule(ERRNO(errno.EPERM), "mprotect", Arg(2, MASKED_EQ, mmap.PROT_EXEC, mmap.PROT_EXEC))

# CLONE_NEWNS, NEWCGROUP, NEWUTS, NEWIPC, NEWUSER, NEWPID and NEWNET of <sched.h>
namespaces = 0x00020000 | 0x02000000 | 0x04000000 | 0x08000000 | 0x10000000 | 0x20000000 | 0x40000000
confined.add_rule(ALLOW, "clone", Arg(0, MASKED_EQ, namespaces, 0))
confined.add_rule(ALLOW, "unshare", Arg(0, MASKED_EQ, namespaces, 0))
confined.add_rule(ERRNO(errno.ENOSYS), "clone3")  # because a filter cannot read its flags

confined.load()
os.execv(program[0], program)
