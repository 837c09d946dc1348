# SPDX-License-Identifier: MIT
"""Programs built with a sanitizer: lets them live with the preloaded clock, and collects what they report."""
import subprocess

from lab.mounts import STATE

REPORT = STATE / "sanitizer"
LONGEST_TEXT = 4000
QUARANTINE_MB = 16    # for what was released; the default of 256 would hide for hours whether memory grows


def built_in(program):
    """Whether the program was built with a sanitizer."""
    return any(links(program, name) for name in ("libasan", "libubsan", "libtsan"))


def links(program, library):
    return library in subprocess.run(["ldd", program], capture_output=True, text=True, check=False).stdout


def environment(program, base):
    """The environment `base` with what a program built with a sanitizer needs; the same for any other."""
    if not built_in(program):
        return base
    common = f"log_path={REPORT}:log_exe_name=1"
    # The address sanitizer's runtime puts up with the clock's library before it, its leak check does not: leaks are
    # looked for in real time only.
    leaks = 0 if "LD_PRELOAD" in base else 1
    address = f"verify_asan_link_order=0:detect_leaks={leaks}:quarantine_size_mb={QUARANTINE_MB}"
    return base | {"ASAN_OPTIONS": f"{address}:{common}",
                   "TSAN_OPTIONS": f"second_deadlock_stack=1:{common}",
                   "UBSAN_OPTIONS": f"print_stacktrace=1:{common}"}


def reports(name):
    """What the processes of that name reported."""
    return [path.read_text(errors="replace")[:LONGEST_TEXT] for path in sorted(STATE.glob(f"{REPORT.name}.{name}.*"))]
