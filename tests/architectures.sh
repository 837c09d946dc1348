#!/usr/bin/env bash
# SPDX-License-Identifier: MIT
# The daemon on processors and on a C library that are not this machine's. Debian's cross compilers make it for MIPS (32 bit, big
# endian), ARM (32 and 64 bit) and s390x (64 bit, big endian), and qemu's user mode emulation runs it; musl is built for this
# machine's processor. Cases that cannot hold under the emulation stand in tests/architectures/exceptions.txt; anything else that
# fails, fails this. Needs Debian and root; installs what is missing. Everything it writes is in build/architectures.
#
#   tests/architectures.sh          all of the following but the first two
#   tests/architectures.sh get      what the stage needs of others: compilers and the emulator, json-c, GoogleTest, headers read once
#   tests/architectures.sh stage    builds for each processor; the unit tests of frames, model, configuration and engine on MIPS
#   tests/architectures.sh unit     all unit tests on each processor
#   tests/architectures.sh cycle    the virtual router on MIPS: daemon, bus and configuration tools, in real time
#   tests/architectures.sh musl     the same on musl
#   tests/architectures.sh sizes    the stripped program for each
#   tests/architectures.sh PART PROCESSOR...    on these only: mips, arm, aarch64, s390x
set -euo pipefail
root=$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)
cd "$root"
base=$root/build/architectures
logs=$base/logs
. .ci/quietly.sh
processors=(mips s390x arm aarch64)
tested=mips # 32 bits, big endian: as different from this machine as can be
jobs=$(nproc)
what=${1:-all}
[ $# -lt 2 ] || processors=("${@:2}")
packages=(g++-mips-linux-gnu g++-arm-linux-gnueabihf g++-aarch64-linux-gnu g++-s390x-linux-gnu qemu-user clang-14 cmake ninja-build
    uthash-dev googletest musl-tools xz-utils)
programs=(wan_detect ubusd ubus uci lab_network_interface)
lab_packages=(python3 iproute2 dnsmasq-base pppoe udhcpc iputils-arping iputils-ping)

# What the stage runs on that one, of tests/architectures/CMakeLists.txt. It has a minute.
stage_tests=(frames_and_model_tests engine_tests)
# But not those that try some ten thousand frames each, or wait for a second.
long_tests='level/*:dns_query.*_every_id:dns_query.a_udp_checksum_of_zero_*:dhcp_options.of_any_bytes_*:dumps.*'

# Debian has json-c for some of these processors only, so all get it from Debian's sources, whose lists are this script's own.
fetch_json_c() {
    local file lists=$base/apt options
    rm -rf "$lists" "$base/json-c"
    mkdir -p "$lists/parts" "$lists/lists/partial" "$lists/cache/archives/partial" "$base/json-c"
    for file in /etc/apt/sources.list /etc/apt/sources.list.d/*; do
        case $file in
        *.sources) sed 's/^Types:.*/Types: deb-src/' "$file" >"$lists/parts/${file##*/}" ;;
        *.list) sed -n 's/^deb /deb-src /p' "$file" >"$lists/parts/${file##*/}" ;;
        esac
    done
    options=(-q -o Dir::Etc::SourceList=/dev/null -o "Dir::Etc::SourceParts=$lists/parts" -o "Dir::State::Lists=$lists/lists"
        -o "Dir::Cache=$lists/cache" -o APT::Sandbox::User=root)
    apt-get "${options[@]}" update || true # some places have no sources
    (cd "$lists" && apt-get "${options[@]}" source --download-only json-c) &&
        tar -xf "$lists"/json-c_*.orig.tar.* -C "$base/json-c" --strip-components=1
}

# add_libraries NAME: what the daemon takes from the system, below build/architectures/NAME/prefix.
add_libraries() {
    local build=$base/$1/json-c prefix=$base/$1/prefix options
    [ ! -e "$prefix/complete" ] || return 0
    options=(-DCMAKE_TOOLCHAIN_FILE="$root/cmake/toolchains/$1.cmake" -DCMAKE_BUILD_TYPE=None
        -DCMAKE_INSTALL_PREFIX="$prefix" -DBUILD_STATIC_LIBS=OFF -DBUILD_TESTING=OFF -DBUILD_APPS=OFF)
    [ "$1" = musl ] || options+=(-C "$root/tests/architectures/glibc.cmake")
    cmake -S "$base/json-c" -B "$build" -G Ninja "${options[@]}" && cmake --build "$build" -j "$jobs" &&
        cmake --install "$build" && cp /usr/include/uthash.h "$prefix/include" && : >"$prefix/complete"
}

configure() { # configure NAME FOLDER OPTIONS...: the daemon on the stand-ins, warnings being errors
    cmake --preset release -B "$base/$2" -DCMAKE_TOOLCHAIN_FILE="$root/cmake/toolchains/$1.cmake" \
        -DCMAKE_FIND_ROOT_PATH="$base/$1/prefix" -DWAN_DETECT_LIBS=bundled "${@:3}"
}

target_of() {
    sed -n 's/^set(CMAKE_CXX_COMPILER_TARGET \(.*\))$/\1/p' "cmake/toolchains/$1.cmake"
}

# emulate NAME FOLDER: makes the programs of a build start as this machine's own do, each by a script in its place. The kernel
# takes a process's name from the file it starts, so that is the emulator under the program's name.
emulate() {
    local program bin=$base/$2/bin qemu=$base/$2/qemu
    mkdir -p "$qemu"
    for program in "${programs[@]}"; do
        ln -sf "$(command -v "qemu-$1")" "$qemu/$program"
        [ "$(head -c 4 "$bin/$program")" != $'\177ELF' ] || mv "$bin/$program" "$qemu/$program.$1"
        printf '#!/bin/sh\nexec "%s" -0 "${0##*/}" -L "/usr/%s" "%s" "$@"\n' \
            "$qemu/$program" "$(target_of "$1")" "$qemu/$program.$1" >"$bin/$program"
        chmod +x "$bin/$program"
    done
}

exceptions() { # exceptions NAME: case, tab, reason
    sed -nE "s/^(all|$1) //p" tests/architectures/exceptions.txt
}

# build_stage NAME UNITED TARGET...: compiled for a short wait.
build_stage() {
    local tests=OFF
    [ "$1" != "$tested" ] || tests=ON
    configure "$1" "$1/stage" -DCMAKE_BUILD_TYPE=Debug -DCMAKE_CXX_FLAGS_DEBUG="-O0 -fno-exceptions -fno-rtti" -DWAN_DETECT_TESTS=$tests \
        -DWAN_DETECT_SHARED_HEADERS=ON -DWAN_DETECT_TEST_COMPILER=clang++-14 -DCMAKE_UNITY_BUILD="$2" -DCMAKE_UNITY_BUILD_BATCH_SIZE=0 &&
        cmake --build "$base/$1/stage" -j "$jobs" --target "${@:3}"
}

run_get() {
    local name
    for name in "${processors[@]}"; do
        quietly "libraries-$name" add_libraries "$name"
    done
    [[ " ${processors[*]} " != *" $tested "* ]] || quietly googletest build_stage "$tested" ON gtest test_headers
}

# stage_on NAME: the sources of a library compile as one in a quarter of the time. Where two of them call something the same they
# do not, and wan_detect_apart() is to make a second one of them; until then each is compiled for itself.
stage_on() {
    local qemu=("qemu-$1" -L "/usr/$(target_of "$1")") bin=$base/$1/stage/bin wanted=(wan_detect) filter
    [ "$1" != "$tested" ] || wanted+=("${stage_tests[@]}")
    add_libraries "$1" && { build_stage "$1" ON "${wanted[@]}" || build_stage "$1" OFF "${wanted[@]}"; } || return 1
    "${qemu[@]}" "$bin/wan_detect" --version || return 1
    [ "$1" = "$tested" ] || return 0
    filter="$long_tests:$(exceptions "$1" | cut -f 1 | paste -sd:)"
    printf '%s\n' "${stage_tests[@]}" | GTEST_FILTER=-$filter xargs -P "$jobs" -I PROGRAM \
        timeout 300 "${qemu[@]}" "$bin/PROGRAM" --gtest_brief=1
}

# unit_on NAME: all but the exceptions, each program one process or some. Many hold a bound on time, which an emulated program may miss.
unit_on() {
    local log=$logs/unit-$1.log status=0
    quietly "libraries-$1" add_libraries "$1"
    quietly "build-$1" build_release "$1" all
    GTEST_FILTER=-$(exceptions "$1" | cut -f 1 | paste -sd:) \
        ctest --test-dir "$base/$1/release" -j "$jobs" --repeat until-pass:3 -V -Q -O "$log" || status=1
    printf '%s: %d cases passed, %d excepted\n' "$1" "$(sed -n 's/.*\[       OK \] \([^ ]*\).*/\1/p' "$log" | sort -u | wc -l)" \
        "$(exceptions "$1" | wc -l)"
    [ $status -eq 0 ] || sed -n '/tests passed/,$p' "$log"
    return $status
}

build_release() { # build_release NAME TARGET...: what runs on a machine of that kind
    configure "$1" "$1/release" -DWAN_DETECT_TESTS=ON -DWAN_DETECT_LAB=ON -DWAN_DETECT_SHARED_HEADERS=ON \
        -DWAN_DETECT_TEST_COMPILER=clang++-14 &&
        cmake --build "$base/$1/release" -j "$jobs" --target "${@:2}" && emulate "$1" "$1/release"
}

stage_in_order() { # stage_in_order NAME...
    local name failed=0
    for name in "$@"; do
        stage_on "$name" >"$logs/stage-$name.log" 2>&1 || { failed=1; tail -n 40 "$logs/stage-$name.log"; echo "failed: $name"; }
    done
    return $failed
}

# The others come one after the other, and leave the processors to the one that has tests, and so takes as long as all of them.
run_stage() {
    local name others=() failed=0
    for name in "${processors[@]}"; do
        [ "$name" = "$tested" ] || others+=("$name")
    done
    { renice -n 10 "$BASHPID" >/dev/null; stage_in_order "${others[@]}"; } &
    [[ " ${processors[*]} " != *" $tested "* ]] || stage_in_order "$tested" || failed=1
    wait $! || failed=1
    return $failed
}

play() { # play NAME: all programs of the virtual router are of that kind
    ./run.sh dhcp --speed 1 --build "$base/$1/release"
}

run_cycle() {
    quietly "libraries-$tested" add_libraries "$tested"
    quietly "build-$tested" build_release "$tested" "${programs[@]}"
    play "$tested"
}

build_on_musl() {
    local include=$base/musl/prefix/include machine
    machine=$(uname -m)-linux
    add_libraries musl && ln -sfn /usr/include/linux "$include/linux" && ln -sfn /usr/include/asm-generic "$include/asm-generic" &&
        ln -sfn "/usr/include/$machine-gnu/asm" "$include/asm" &&
        configure musl musl/release -DWAN_DETECT_LAB=ON -DWAN_DETECT_SHARED_HEADERS=ON &&
        cmake --build "$base/musl/release" -j "$jobs" --target "${programs[@]}"
}

run_musl() {
    quietly build-musl build_on_musl
    readelf -l "$base/musl/release/bin/wan_detect" | grep -q 'interpreter: .*ld-musl' || fail "the daemon is not on musl"
    play musl
}

# size_of NAME TOOLS [OPTION...]: what goes into a firmware, with the stand-ins inside; TOOLS are the beginning of strip's and
# size's names.
size_of() {
    local build=$base/$1/size program=$base/$1/size/bin/wan_detect
    quietly "size-$1" cmake --preset router -B "$build" -DWAN_DETECT_LIBS=bundled -DWAN_DETECT_SHARED_HEADERS=ON "${@:3}"
    quietly "size-$1" cmake --build "$build" -j "$jobs" --target wan_detect
    "$2strip" -o "$program.stripped" "$program"
    "$2size" "$program.stripped" | awk -v name="$1" -v bytes="$(stat -c %s "$program.stripped")" \
        -v packed="$(xz -9 -c "$program.stripped" | wc -c)" \
        'NR == 2 { printf "| %s | %d | %d | %d / %d / %d |\n", name, bytes, packed, $1, $2, $3 }'
}

run_sizes() {
    local name
    printf '| processor | stripped | packed with xz | text / data / bss |\n|---|---|---|---|\n'
    for name in "${processors[@]}"; do
        quietly "libraries-$name" add_libraries "$name"
        size_of "$name" "$(target_of "$name")-" -DCMAKE_TOOLCHAIN_FILE="$root/cmake/toolchains/$name.cmake" \
            -DCMAKE_FIND_ROOT_PATH="$base/$name/prefix"
    done
    size_of "$(uname -m)" ""
}

run_unit() {
    local name failed=0
    for name in "${processors[@]}"; do
        unit_on "$name" || failed=1
    done
    return $failed
}

run_all() {
    local failed=0
    run_unit || failed=1
    run_cycle || failed=1
    run_musl || failed=1
    run_sizes
    return $failed
}

prepare() {
    . .ci/packages.sh
    case $what in
    all | cycle | musl) packages+=("${lab_packages[@]}") ;;
    esac
    quietly packages install_packages "${packages[@]}"
    [ -e "$base/json-c/CMakeLists.txt" ] || quietly json-c fetch_json_c
}

case $what in
all | get | stage | unit | cycle | musl | sizes) ;;
*) echo "architectures.sh: not '$what'; get, stage, unit, cycle, musl or sizes" >&2; exit 2 ;;
esac
[ "$(id -u)" -eq 0 ] || fail "needs root (network namespaces, raw sockets)"
mkdir -p "$logs"
prepare
"run_$what"
