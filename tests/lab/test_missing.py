# SPDX-License-Identifier: MIT
"""What the daemon says, and how it ends, when one thing that it needs is missing as it starts."""
import pytest

from lab.scenarios.missing import CASES, IN_LOOP, WITHOUT_TMP

pytestmark = pytest.mark.scenario("missing", "--speed", "20", long=True)
ALL = CASES | {"a /tmp that can be written to": WITHOUT_TMP}
FATAL = [title for title, case in CASES.items() if case.fatal]


@pytest.mark.parametrize("title", ALL)
def test_what_is_missing_is_told_in_the_known_words(seen, title):
    said = seen.facts["lives"][title]["lines"]
    for level, function, text in ALL[title].says:
        assert any(line[:2] == [level, function] and line[2].startswith(text) for line in said), (function, text)


@pytest.mark.parametrize("title", ALL)
def test_the_daemon_ends_with_status_0_and_leaves_no_process_whatever_is_missing(seen, title):
    life = seen.facts["lives"][title]
    assert (life["first_status"], life["status"], life["left"]) == (0, 0, [])


@pytest.mark.parametrize("title", FATAL)
def test_what_it_cannot_do_without_ends_it_before_the_loop(seen, title):
    assert list(IN_LOOP) not in seen.facts["lives"][title]["lines"]


@pytest.mark.parametrize("title", [title for title, case in CASES.items() if case.never])
def test_nothing_is_made_of_what_is_missing(seen, title):
    bodies = [body for _, _, body in seen.facts["lives"][title]["lines"]]
    assert [body for body in bodies for text in CASES[title].never if text in body] == []


def test_a_shell_that_cannot_be_run_is_told_whatever_the_level(seen):
    assert CASES["the shell"].prints in seen.facts["lives"]["the shell"]["text"]


def test_no_result_file_stands_where_none_can_be_written(seen):
    assert seen.facts["lives"]["a /tmp that can be written to"]["result"] is False


def test_everything_that_was_taken_away_was_looked_at(seen):
    assert list(seen.facts["lives"]) == list(ALL)
