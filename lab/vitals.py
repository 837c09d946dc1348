# SPDX-License-Identifier: MIT
"""Signs of the daemon's life: processor time, turns of its event loop, memory."""
import os
from pathlib import Path

TICKS_PER_S = os.sysconf("SC_CLK_TCK")
USER_TICKS, SYSTEM_TICKS = 11, 12    # fields of stat behind the name


def cpu_seconds(pid):
    """Real seconds of processor time, its scripts not counted."""
    fields = Path(f"/proc/{pid}/stat").read_text().rpartition(")")[2].split()
    return (int(fields[USER_TICKS]) + int(fields[SYSTEM_TICKS])) / TICKS_PER_S


def loop_turns(pid):
    """How often the loop thread went to sleep so far: its heartbeat alone does so ten times a second."""
    status = Path(f"/proc/{pid}/task/{pid}/status").read_text()
    return int(status.split("\nvoluntary_ctxt_switches:")[1].split()[0])
