#!/bin/bash
# SPDX-License-Identifier: MIT
# The Debian package: licences, what an installation, a boot, the main job and a purge do, each right of the unit, and two builds compared.
# Needs root; installs what is missing.
#   tests/packaging/debian.sh [PYTEST-ARGUMENTS...]    e.g. -k purge
set -uo pipefail
cd "$(dirname "$0")/../.." || exit 1
. .ci/packages.sh
install_packages g++ cmake ninja-build libjson-c-dev uthash-dev git xz-utils dpkg-dev debootstrap lintian systemd reuse python3 python3-pytest ||
    exit 1
reuse lint || exit 1
exec /usr/bin/python3 -m pytest -q -p no:cacheprovider tests/packaging/test_debian.py tests/packaging/test_debian_rights.py \
    tests/packaging/test_reproducible.py "$@"
