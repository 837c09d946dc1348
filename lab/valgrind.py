# SPDX-License-Identifier: MIT
"""The daemon under valgrind: how it is started there, and what is wrong with what valgrind says at its end."""
import re

from lab.mounts import STATE

REPORT = STATE / "valgrind"
PROCESS_NAME = "memcheck-amd64-"    # as the kernel cuts it
COMMAND = ["valgrind", "--leak-check=full", "--show-leak-kinds=all", "--track-fds=yes", "--error-exitcode=99",
           f"--log-file={REPORT}.%p"]
NO_ERRORS = "ERROR SUMMARY: 0 errors"
NOTHING_LEFT = "in use at exit: 0 bytes in 0 blocks"
DESCRIPTOR = re.compile(r"Open (.*)\n==\d+==    (.*)")
# What a daemon has not opened itself: its parent's descriptors, and the preloaded clock's.
FOREIGN = re.compile(r"<inherited from parent>|faketime_shm")
LONGEST_TEXT = 6000


def complaints(pid):
    """What valgrind has against the daemon; empty when it left neither a byte nor a descriptor behind."""
    text = REPORT.with_suffix(f".{pid}").read_text(errors="replace")
    found = [what for what, told in (("an error", NO_ERRORS), ("memory left", NOTHING_LEFT)) if told not in text]
    found += [f"left open: {what}" for what, where in DESCRIPTOR.findall(text) if not FOREIGN.search(what + where)]
    return [*found, text[:LONGEST_TEXT]] if found else []
