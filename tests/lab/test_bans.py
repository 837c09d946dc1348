# SPDX-License-Identifier: MIT
"""Ports banned over the bus."""
from marks import scenario


# holds: ban-end-in-time
@scenario("ban")
def test_a_port_banned_for_a_time_wins_after_it(seen):
    banned = seen.one("add_unique_banned_device_to_list", "dev:eth2 is banned to act as wan now for 45s!")
    allowed = seen.one("update_banned_device_list",
                       "banned dev:eth2 out of time, remove it from banned list, now allow it to be wan!")
    assert allowed["at"] - banned["at"] >= 45 - 0.5


@scenario("ban-forever")
def test_a_ban_without_an_end_is_lifted_by_the_return_of_the_link(seen):
    assert seen.one("add_unique_banned_device_to_list", "dev:eth2 is banned to act as wan now for -1s!")
    assert seen.one("remove_banned_device_from_list", "Success remove dev:eth2 from banned list!")
    assert seen.find("update_banned_device_list", "out of time") == []


# holds: winner-banned
@scenario("ban-late")
def test_a_winner_banned_before_the_swap_sends_the_cycle_back_after_1_s(seen):
    refused = seen.one("uloop_wan_detect_end", "About to change eth2 as wan, however it's banned after detection")
    assert refused["level"] == "Notice"
    again = next(line for line in seen.find("uloop_start_wan_detect", "Entering function") if line["at"] > refused["at"])
    assert 0.5 <= again["at"] - refused["at"] <= 1 + 8
    assert seen.find("remove_impossble_wan_dev_from_list", "Remove eth2 out of pssible wan list")
