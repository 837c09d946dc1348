# SPDX-License-Identifier: MIT
import sys
from pathlib import Path

ROOT = Path(__file__).resolve().parent.parent.parent
sys.path[:0] = [str(ROOT), str(ROOT / "tests")]

from skipped import pytest_terminal_summary    # noqa: E402,F401  pylint: disable=wrong-import-position,unused-import


def pytest_addoption(parser):
    parser.addoption("--build", default=str(ROOT / "build" / "release"), help="build folder with the programs")
