# SPDX-License-Identifier: MIT
from pathlib import Path

ROOT = Path(__file__).resolve().parent.parent.parent


def pytest_addoption(parser):
    parser.addoption("--build", default=str(ROOT / "build" / "release"), help="build folder with the programs")
