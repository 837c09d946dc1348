# SPDX-License-Identifier: MIT
"""What `wan_detect --status` shows of the main job."""
import json
import sys
from pathlib import Path

import pytest

sys.path.insert(0, str(Path(__file__).resolve().parent.parent))
import status_pictures    # noqa: E402  pylint: disable=wrong-import-position

pytestmark = pytest.mark.scenario("front-panel")


def below(text):
    """The lines between the panel and the first paragraph, each as the words that stand there."""
    lines = text.split("┘\n")[-1].split("\n\n")[0].splitlines()
    return [line.split("  ") for line in lines]


# holds: status-picture
def test_the_pictures_of_the_papers_are_what_is_shown(seen):
    document = status_pictures.DOCUMENT.read_text(encoding="utf-8")
    assert not status_pictures.flaws(document, seen.facts["shown"])


def test_a_wrong_picture_would_be_noticed():
    assert not status_pictures.self_test(status_pictures.DOCUMENT.read_text(encoding="utf-8"))


# holds: status-exit
def test_without_a_daemon_it_says_so(seen):
    """The checks of the scenario say so."""


# holds: status-picture
def test_each_port_says_why_it_is_not_the_wan_port(seen):
    words = [word.strip() for line in below(seen.facts["shown"]["verdict"]["text"]) for word in line if word.strip(" │")]
    assert words == ["no connection", "1 LAN host(s)", "won", "ban for 9 h", "DHCP server"]


# holds: status-json
def test_the_answer_itself_names_the_same_wan_port(seen):
    answer = json.loads(seen.facts["shown"]["json"]["text"])
    assert answer["wan"] == "eth2"
    assert [port["name"] for port in answer["ports"]] == [f"eth{number}" for number in range(5)]
