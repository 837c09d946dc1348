# SPDX-License-Identifier: MIT
"""Configuration files that are cut, garbage, gone, or no files, at run time and at the start."""
import pytest

bad_config = pytest.mark.scenario("bad-config", "--speed", "20", long=True)
at_the_start = pytest.mark.scenario("bad-config-start", "--speed", "30")
CUTS = ["cut after a tenth", "cut after a third", "cut in the middle", "cut shortly before the end"]


@bad_config
def test_whatever_the_files_hold_the_daemon_goes_on(seen):
    """The checks of the scenario say so."""


@bad_config
@pytest.mark.parametrize("how", CUTS + ["empty", "garbage", "folders", "missing", "symbolic links in a circle"])
def test_calls_are_answered_with_spoilt_files(seen, how):
    passed = {check["what"] for check in seen.report["checks"] if check["passed"]}
    assert {f"all files: {how}: {method} is answered" for method in ("proto_detect", "wan_detect")} <= passed


# holds: locked-read
@bad_config
def test_files_that_somebody_keeps_locked_do_not_stop_the_loop(seen):
    passed = {check["what"] for check in seen.report["checks"] if check["passed"]}
    assert {f"locked files: {what}" for what in ("proto_detect is answered", "wan_detect is answered",
                                                 "the event loop goes on")} <= passed


@bad_config
def test_a_connection_type_that_cannot_be_read_is_told_and_the_old_one_stays(seen):
    assert seen.find("update_wan_ipv4_protocol", "get_ipv4_conntype failed!")


@at_the_start
def test_a_daemon_with_spoilt_files_runs_or_says_why_not(seen):
    """The checks of the scenario say so."""


@at_the_start
@pytest.mark.parametrize("how", CUTS + ["empty", "garbage", "folders", "missing"])
def test_without_ports_or_protocols_it_ends_with_one_reason(seen, how):
    assert seen.facts[f"fatal: {how}"] in (["init_all_protocols failed!"], ["init_all_eth_device failed!"])


@at_the_start
@pytest.mark.parametrize("package", ["network", "switch", "sysmode"])
def test_with_half_of_a_package_it_starts(seen, package):
    assert seen.facts[f"fatal: {package} cut"] == []
