# SPDX-License-Identifier: MIT
"""What a run could not test here: for a conftest.py, which has this hook by importing it."""


def pytest_terminal_summary(terminalreporter):
    """Tells them by the names under which ./test.sh counts them."""
    for report in terminalreporter.stats.get("skipped", []):
        terminalreporter.write_line(f"skipped: {report.nodeid}")
