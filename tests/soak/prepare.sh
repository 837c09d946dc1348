# SPDX-License-Identifier: MIT
# shellcheck shell=bash
# What run.sh and shutdown.sh share: installs what is missing, and builds unless a build is named.
root=$(cd "$(dirname "${BASH_SOURCE[0]}")/../.." && pwd)
. "$root/.ci/packages.sh"

[ "$(id -u)" -eq 0 ] || { echo "${0##*/}: namespaces and raw sockets need root" >&2; exit 1; }
install_packages python3 iproute2 dnsmasq-base pppoe udhcpc faketime iputils-arping iputils-ping

named=no
for argument in "$@"; do
    case $argument in --build | --build=* | -h | --help) named=yes ;; esac
done
if [ $named = no ]; then
    build=$root/build/soak
    install_packages cmake ninja-build g++ libjson-c-dev uthash-dev
    cmake -S "$root" --preset release -B "$build" -DWAN_DETECT_TESTS=OFF -DWAN_DETECT_LIBS=bundled >/dev/null
    cmake --build "$build" >/dev/null
    set -- --build "$build" "$@"
fi
export PYTHONDONTWRITEBYTECODE=1
