# SPDX-License-Identifier: MIT
"""A network manager whose replies have no "state"."""
import pytest

pytestmark = pytest.mark.scenario("stock-manager")


# holds: live-status-without-state
def test_up_pending_and_available_tell_what_a_state_would(seen):
    """The checks of the scenario say so."""


# holds: live-status-without-state
def test_the_missing_state_is_told_each_time(seen):
    assert seen.find("ubus_call_network_interface_cb", 'Error parsing data:"speed"')
    assert seen.find("get_network_status", "Get network status return: connected")
