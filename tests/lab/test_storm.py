# SPDX-License-Identifier: MIT
"""Minutes of everything at once, as it is, with whatever sanitizer the programs have, and under valgrind."""
import pytest

storm = pytest.mark.scenario("storm", long=True)
# Valgrind sees leaks in fast time too, but not as fast as the daemon can be without it.
under_valgrind = pytest.mark.scenario("storm", "--valgrind", "--minutes", "1", "--speed", "5")


@storm
def test_the_daemon_comes_out_of_a_storm_as_it_went_in(seen):
    """The checks of the scenario say so."""


@storm
def test_cycles_and_swaps_happen_in_the_storm(seen):
    assert len(seen.find("uloop_wan_detect_end", "Wan Detection over!")) >= 5
    assert seen.find("switch_wan_to_dev", "success switching wan dev to")


@storm
@pytest.mark.parametrize("method", ["log", "proto_detect", "set", "hotplug", "wan_detect"])
def test_every_call_in_the_storm_gets_the_reply_that_it_must_get(seen, method):
    assert seen.facts["calls"][method] >= 5
    assert [call for call in seen.facts["wrong_replies"] if call[0] == method] == []


@storm
def test_descriptors_and_threads_after_the_storm_are_those_before_it(seen):
    for what in ("descriptors", "threads"):
        assert seen.facts["after"][what] == seen.facts["before"][what]


@storm
def test_the_sanitizers_are_silent_about_the_storm(seen):
    if "sanitizer_reports" not in seen.facts:
        pytest.skip("the programs are built without a sanitizer")
    assert seen.facts["sanitizer_reports"] == []


@under_valgrind
def test_valgrind_finds_no_error_no_byte_and_no_descriptor_left_behind(seen):
    assert seen.facts["valgrind"] == []
