#!/usr/bin/env python3
# SPDX-License-Identifier: MIT
"""Plays scenarios of the lab in the simulation as well: verdicts, swaps and the order of a cycle's steps must be the same.

both.py --build FOLDER --simulate PROGRAM [NAME...]   both halves of each life in both/, against each other
both.py --simulate PROGRAM --kept                     the simulation's half, against what the lab's half was (both/NAME.steps)
both.py --build FOLDER --simulate PROGRAM --keep      both halves, and keeps the lab's where they are the same
"""
import argparse
import difflib
import re
import subprocess
import sys
from pathlib import Path

HERE = Path(__file__).resolve().parent
LIVES = HERE / "both"
LAB_LINE = re.compile(r" *\d+\.\d s  \| \w+ +(\w+): (.*)")
SIMULATED_LINE = re.compile(r" *\d+\.\d+ s  \| \[wan_detect\]\[\w+\]\[-?\d+\]\[(\w+):\d+\]: (.*)")
# Who speaks of steps on the loop's thread, and who on others: in which order the two come is nobody's to say.
STEPS = re.compile(r"uloop_\w+|generate_possible_wan_dev_list|look_again_later|remove_\w*dev_from_list|start_wan_detect_all|"
                   r"switch_wan_to_dev|add_unique_banned_device_to_list|update_banned_device_list|find_target_ip_and_device_with_arp|"
                   r"dns_lookup_via_multi_eth|send_\w+_discovery_packet|set_dev_using_specific_proto|start_proto_detect|ubus_protocol_detect|"
                   r"check_ip_using_arp_blocked|send_special_arp|wait_dns_response|dnslookup_init_fd")
LINKS = re.compile(r"wan_detect_process_link_change|delay_trigger_thread|toggle_combo_state")
# What differs between any two runs.
AWAY = (("address", re.compile(r"\d+\.\d+\.\d+\.\d+")), ("MAC", re.compile(r"(?:[0-9A-Fa-f]{2}-){5}[0-9A-Fa-f]{2}")),
        ("time", re.compile(r"\d+\.\d s\b")), ("index", re.compile(r"\bindex=\d+")))
# Lines that are left out, and why.
LEFT_OUT = (
    (re.compile(r"not fully received|Waiting\.\.\.|uloop_proto_detect_end: Entering|using_proto_detect: Entering"),
     "how often an answer is waited for depends on how long it takes"),
)
BLOCK, PASS = "Entering function: uloop_", "uloop_start_wan_detect: Entering"


def lines_of(text, form):
    """(function, body) of each line of the daemon's log, those away that are left out."""
    found = (match.groups() for match in map(form.match, text.splitlines()) if match)
    for function, body in found:
        for word, pattern in AWAY:
            body = pattern.sub(word, body)
        if not any(pattern.search(f"{function}: {body}") for pattern, _ in LEFT_OUT):
            yield function, body


def without_repeats(lines):
    """The lines of the steps; of equal passes in a row, as there is one a second while nobody is left to ask, the first."""
    blocks = []
    for function, body in lines:
        if BLOCK in body or not blocks:
            blocks.append([])
        blocks[-1].append(f"{function}: {body}")
    return [line for former, block in zip([[], *blocks], blocks) for line in block if block != former or PASS not in block[0]]


def course_of(text, form):
    """What a run comes to: verdicts, swaps, steps on the loop, and changes of links."""
    lines = list(lines_of(text, form))
    return {
        "verdicts": [body for function, body in lines if body.startswith("Verdict: ")],
        "swaps": [body for function, body in lines if "Switching wan dev to" in body],
        "steps": without_repeats(line for line in lines if STEPS.fullmatch(line[0])),
        "links": [f"{function}: {body}" for function, body in lines if LINKS.fullmatch(function)],
    }


def run(command, **options):
    done = subprocess.run(command, capture_output=True, text=True, check=False, **options)
    if done.returncode:
        sys.exit(f"{' '.join(map(str, command))}: status {done.returncode}\n{done.stdout[-2000:]}{done.stderr[-2000:]}")
    return done.stdout


def lab_half(name, build):
    return course_of(run(["./run.sh", name, "--build", build, "--log"], cwd=HERE.parent.parent), LAB_LINE)


def simulated_half(name, program):
    life = LIVES / f"{name}.life"
    return course_of(run([program, "--life", life, "--log", "7", "--timeline"]), SIMULATED_LINE)


def text_of(course):
    return "".join(f"{kind}: {line}\n" for kind, lines in course.items() for line in lines)


def course_from(text):
    course = {"verdicts": [], "swaps": [], "steps": [], "links": []}
    for line in text.splitlines():
        kind, _, rest = line.partition(": ")
        course[kind].append(rest)
    return course


def differences(lab, simulated):
    """The lab's half ends where its scenario does, the simulation's may go on."""
    for kind, wanted in lab.items():
        found = simulated[kind][:len(wanted)]
        yield from (f"{kind} {line}" for line in difflib.unified_diff(wanted, found, "lab", "simulation", lineterm="", n=2))


def main():
    parser = argparse.ArgumentParser(description=__doc__, formatter_class=argparse.RawDescriptionHelpFormatter)
    parser.add_argument("--build", type=Path, help="where the lab's programs are built")
    parser.add_argument("--simulate", type=Path, required=True)
    parser.add_argument("--kept", action="store_true")
    parser.add_argument("--keep", action="store_true")
    parser.add_argument("names", nargs="*")
    wanted = parser.parse_args()
    failed = 0
    for name in wanted.names or sorted(path.stem for path in LIVES.glob("*.life")):
        kept = LIVES / f"{name}.steps"
        lab = course_from(kept.read_text()) if wanted.kept else lab_half(name, wanted.build.resolve())
        if not lab["steps"]:
            sys.exit(f"{name}: the lab's half has no steps")
        told = list(differences(lab, simulated_half(name, wanted.simulate.resolve())))
        failed += bool(told)
        print(f"{name}: {len(lab['verdicts'])} verdicts, {len(lab['swaps'])} swaps, {len(lab['steps'])} lines of steps, "
              f"{len(lab['links'])} of links: {'DIFFERENT' if told else 'the same'}")
        print("".join(f"    {line}\n" for line in told), end="")
        if wanted.keep and not told:
            kept.write_text(text_of(lab))
    return failed > 0


if __name__ == "__main__":
    sys.exit(main())
