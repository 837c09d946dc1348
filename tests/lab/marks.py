# SPDX-License-Identifier: MIT
"""What the tests of the lab share."""
import os

import pytest

from lab.namespaces import users_here

LATE_S = 8    # of the daemon's seconds that a busy machine may add to a wait

# The scenario that a test looks at, with further options of the lab. `long=True`: play it first. `may_fail=True`: the test
# looks itself at what the scenario checks; else every test of it fails when one of its checks does.
scenario = pytest.mark.scenario

# Tests that rebuild the host's own folders without a lab, or have files of several users there.
real_root = pytest.mark.skipif(os.geteuid() != 0 or users_here() < 2, reason="needs real root")
