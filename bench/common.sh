# SPDX-License-Identifier: MIT
# What the scripts of this folder share: installing what is missing, and one release build with the benchmarks in it. To be
# sourced; `name` is the script's.
root=$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)
build=$root/build/bench
log=$build/$name.log
needs=(python3 iproute2 dnsmasq-base pppoe udhcpc faketime cmake ninja-build g++ binutils libjson-c-dev uthash-dev
    libbenchmark-dev)

. "$root/.ci/packages.sh"

say() { echo "$*" >&2; }

fail() {
    tail -n 40 "$log" >&2
    say "bench/$name.sh: $*"
    exit 1
}

prepare() {
    [ "$(id -u)" = 0 ] || { say "bench/$name.sh: namespaces and packet sockets need root"; exit 2; }
    mkdir -p "$build"
    export PATH=$PATH:/usr/sbin:/sbin PYTHONPATH=$root PYTHONDONTWRITEBYTECODE=1
    install_packages "${needs[@]}" >"$log" || fail "cannot install what it needs"
    say "Building ..."
    cmake -S "$root" --preset release -B "$build" -DWAN_DETECT_BENCH=ON -DWAN_DETECT_TESTS=OFF \
        -DWAN_DETECT_LIBS=bundled >"$log" 2>&1 ||
        fail "cannot configure the build"
    cmake --build "$build" >"$log" 2>&1 || fail "the build failed"
}
