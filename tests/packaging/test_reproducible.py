# SPDX-License-Identifier: MIT
"""The same commit gives the same bytes, whoever builds it and where: archive, programs, package."""
import hashlib
import os
import subprocess
from pathlib import Path

import pytest

ROOT = Path(__file__).resolve().parent.parent.parent
# What may differ between two builders, and may not show.
BUILDERS = [
    {"folder": "one", "umask": 0o022, "TZ": "UTC", "LC_ALL": "C", "HOME": "/root", "USER": "root"},
    {"folder": "another/much/deeper one", "umask": 0o077, "TZ": "Asia/Tokyo", "LC_ALL": "C.UTF-8", "HOME": "/", "USER": "somebody"},
]
NOT_OF_THIS_BUILD = ("CMAKE_CXX_COMPILER_LAUNCHER", "CMAKE_C_COMPILER_LAUNCHER", "SOURCE_DATE_EPOCH")


class Build:
    """One builder's way from a clone to a package."""

    def __init__(self, place, builder):
        self.folder = place / builder["folder"]
        self.umask = builder["umask"]
        self.environment = {name: value for name, value in os.environ.items() if name not in NOT_OF_THIS_BUILD}
        self.environment |= {name: value for name, value in builder.items() if name.isupper() or name == "LC_ALL"}

    def run(self, *command, folder=None):
        subprocess.run(command, cwd=folder or self.folder, env=self.environment, umask=self.umask, check=True,
                       stdin=subprocess.DEVNULL)

    def archive(self):
        self.folder.mkdir(parents=True)
        self.run("git", "clone", "--quiet", str(ROOT), "clone")
        self.run("clone/packaging/release.sh", ".")
        return next(self.folder.glob("*.tar.xz"))

    def package(self, archive):
        self.run("tar", "-xf", str(archive))
        source = archive.with_name(archive.name.removesuffix(".tar.xz"))
        self.run("cmake", "--workflow", "--preset", "debian", folder=source)
        return source / "build" / "debian"


def digest(path):
    return hashlib.sha256(path.read_bytes()).hexdigest()


@pytest.fixture(scope="module", name="archives")
def two_archives(tmp_path_factory):
    place = tmp_path_factory.mktemp("builders")
    return [(build, build.archive()) for build in (Build(place, builder) for builder in BUILDERS)]


@pytest.fixture(scope="module", name="packages")
def two_packages(archives):
    return [build.package(archive) for build, archive in archives]


def test_two_archives_of_a_commit_are_the_same(archives):
    first, second = (digest(archive) for _, archive in archives)
    assert first == second


@pytest.mark.parametrize("program", ["wan_detect", "ubusd", "ubus", "uci"])
def test_two_builds_of_a_program_are_the_same(packages, program):
    first, second = (digest(build / "bin" / program) for build in packages)
    assert first == second


def test_two_packages_are_the_same(packages):
    first, second = (digest(next(build.glob("*.deb"))) for build in packages)
    assert first == second


def test_no_program_tells_where_it_was_built(packages):
    for build in packages:
        assert str(build.parent.parent).encode() not in (build / "bin" / "wan_detect").read_bytes()
