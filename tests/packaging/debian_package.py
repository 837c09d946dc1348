# SPDX-License-Identifier: MIT
"""The Debian package and root folders with it and without, for tests."""
import os
import subprocess
from pathlib import Path

import pytest

import machine as machines


def made_package():
    """The package that WAN_DETECT_PACKAGE names, else that of the tree, built anew where something changed."""
    if "WAN_DETECT_PACKAGE" in os.environ:
        return Path(os.environ["WAN_DETECT_PACKAGE"])
    subprocess.run(["cmake", "--workflow", "--preset", "debian"], cwd=machines.ROOT, check=True, stdout=subprocess.DEVNULL)
    newest, = (machines.ROOT / "build" / "debian").glob(f"{machines.PACKAGE}_*.deb")
    return newest


@pytest.fixture(scope="session", name="package")
def built_package():
    return made_package()


@pytest.fixture(scope="session", name="base")
def base_folder():
    return machines.make_base()


@pytest.fixture(name="folder")
def fresh_folder(base, request):
    """A root folder in which nothing was installed yet."""
    with machines.layer(base, request.node.name) as folder:
        yield folder


@pytest.fixture(scope="session", name="installed")
def installed_folder(base, package):
    with machines.layer(base, "installed") as folder:
        machines.install(folder, package)
        yield folder
