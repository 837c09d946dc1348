# SPDX-License-Identifier: MIT
"""The router package's service has as few rights as it can: what it has suffices, and nothing of it is too much."""
import json
from pathlib import Path

import pytest

from rights import ROOT, bounded, play

FILES = ROOT / "packaging" / "openwrt" / "files"
SHIPPED = json.loads((FILES / "wan_detect.capabilities.json").read_text(encoding="ascii"))


def test_the_sets_of_the_capabilities_file_are_one():
    assert {name: sorted(found) for name, found in SHIPPED.items()} == {
        name: [] if name == "ambient" else sorted(SHIPPED["bounding"])
        for name in ("bounding", "effective", "permitted", "inheritable", "ambient")}


def test_a_start_a_swap_a_commit_and_an_end_work_with_the_shipped_rights(request):
    played = play(Path(request.config.getoption("--build")), bounded(SHIPPED["bounding"]))
    assert played, "\n".join(played.failed) + played.output


@pytest.mark.parametrize("missing", SHIPPED["bounding"])
def test_each_of_the_shipped_rights_is_needed(request, missing):
    rest = [name for name in SHIPPED["bounding"] if name != missing]
    played = play(Path(request.config.getoption("--build")), bounded(rest))
    assert played.failed and played.failed != ["there is no report"], played.output
