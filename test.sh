#!/usr/bin/env bash
# SPDX-License-Identifier: MIT
# All tests: unit tests in a release build and under the sanitizers, a moment of fuzzing, the virtual router's scenarios,
# and checks of the program that ships. Needs Debian and root; installs what is missing.
#
#   ./test.sh            everything
#   ./test.sh unit       unit tests only
#   ./test.sh lab        scenarios only
set -uo pipefail
cd "$(dirname "$0")" || exit 1
jobs=$(nproc)
what=${1:-all}
failures=()
logs=$PWD/build/logs

say() { printf '\n== %s\n' "$*"; }

# step NAME COMMAND...: runs it quietly; its output is shown only when it fails.
step() {
    local name=$1 started=$SECONDS
    shift
    if "$@" >"$logs/${name// /-}.log" 2>&1; then
        printf '   %-44s ok   %4d s\n' "$name" $((SECONDS - started))
    else
        printf '   %-44s FAILED\n' "$name"
        tail -n 60 "$logs/${name// /-}.log" | sed 's/^/   | /'
        failures+=("$name")
        return 1
    fi
}

. .ci/packages.sh
packages=(g++ cmake ninja-build libjson-c-dev uthash-dev libgtest-dev iproute2 dnsmasq-base pppoe udhcpc faketime
    iputils-arping iputils-ping python3 python3-pytest universal-ctags
    clang-14 libclang-rt-14-dev clang-format-14 clang-tidy-14 cppcheck valgrind)

build() { # build PRESET; bundled, for the virtual router runs the bus daemon and the tools that come with those
    cmake --preset "$1" -DWAN_DETECT_LIBS=bundled && cmake --build --preset "$1" -j "$jobs"
}

unit() { # unit PRESET: what failed runs a second time, alone and talkative, but has failed all the same
    ctest --preset "$1" -j $((2 * jobs)) --timeout 300 -Q -O "$logs/ctest-$1.log" && return 0
    sed -n '/tests passed/,$p' "$logs/ctest-$1.log"
    echo "---- what failed, once more"
    ctest --preset "$1" --rerun-failed --output-on-failure | tail -n 100
    return 1
}

formatting() {
    git ls-files '*.cpp' '*.h' | xargs clang-format-14 --dry-run --Werror
}

log_lines() {
    tests/check_log_lines.py --self-test && tests/check_log_lines.py
}

# Clang reads the same sources as a second opinion; .clang-tidy says which checks are left out, and why.
tidy() {
    cmake -S . -B build/tidy -G Ninja -DCMAKE_BUILD_TYPE=Debug -DCMAKE_C_COMPILER=clang-14 -DCMAKE_CXX_COMPILER=clang++-14 \
        -DWAN_DETECT_TESTS=OFF || return 1
    git ls-files 'core/*.cpp' 'model/*.cpp' 'platform/*.cpp' 'probes/*.cpp' 'compat/*.cpp' 'lab/*.cpp' |
        xargs -P "$jobs" -n 6 clang-tidy-14 -p build/tidy --quiet 2>build/tidy/stderr.log
}

# missingInclude: the system's own headers are not read.
cppcheck_all() {
    cppcheck --enable=warning,performance,portability --error-exitcode=1 --inline-suppr --std=c++20 --language=c++ -q \
        -j "$jobs" --suppress=missingInclude -D_GNU_SOURCE -I. -Icompat/libubox/include -Icompat/libubus/include \
        -Icompat/libuci/include core model platform probes compat/libubox compat/libubus compat/libuci
}

# The program that ships asks for the C library and the router's libraries only, and is hardened.
program_checks() {
    local program=build/release/bin/wan_detect dynamic symbols segments kind
    dynamic=$(readelf -d "$program") && symbols=$(readelf -sW "$program") && segments=$(readelf -lW "$program") &&
        kind=$(readelf -h "$program") || return 1
    sed -n 's/.*(NEEDED).*\[\(.*\)\]/needs \1/p' <<<"$dynamic"
    ! grep -E 'NEEDED.*(stdc\+\+|gcc_s)' <<<"$dynamic" && grep BIND_NOW <<<"$dynamic" && grep GNU_RELRO <<<"$segments" &&
        grep 'Type:.*DYN' <<<"$kind" && grep __stack_chk_fail <<<"$symbols" && grep __printf_chk <<<"$symbols" &&
        grep __glibcxx_assert_fail <<<"$symbols" &&
        # a library that is linked to another one waits for locked configuration files for ever
        readelf --dyn-syms -W "$program" | grep -E 'FUNC +GLOBAL +DEFAULT +[0-9]+ flock$'
}

case $what in
all | unit | lab) ;;
*) echo "test.sh: not '$what'; all, unit or lab" >&2; exit 2 ;;
esac
[ "$(id -u)" -eq 0 ] || { echo "test.sh: needs root (network namespaces, raw sockets)" >&2; exit 1; }
rm -rf "$logs"
mkdir -p "$logs"

say "Packages"
step "install packages" install_packages "${packages[@]}" || exit 1

if [ "$what" != lab ]; then
    say "Release build"
    step "build release" build release && {
        step "program checks" program_checks
        step "unit tests" unit release
        step "behaviour document" tests/behaviour.py --self-test --check --build build/release
        step "report on the libraries" tests/real_libraries_report.py --self-test
    }
    say "Static checks"
    step "formatting" formatting
    step "circles" tests/figures.py --circles
    step "picture of a cycle" tests/cycle_picture.py --self-test --check
    step "log lines" log_lines
    step "clang-tidy" tidy
    step "cppcheck" cppcheck_all
    say "Sanitizers"
    for sanitizer in asan tsan; do
        step "build $sanitizer" build $sanitizer && {
            step "unit tests $sanitizer" unit $sanitizer
            step "a moved cable $sanitizer" ./run.sh cable-move --build build/$sanitizer
        }
    done
fi

if [ "$what" = all ]; then
    say "Fuzzing"
    step "fuzz targets" tests/fuzz/replay.sh
fi

if [ "$what" != unit ]; then
    say "Virtual router"
    step "build release" build release &&
        step "lab scenarios" /usr/bin/python3 -m pytest -q -p no:cacheprovider tests/lab --build build/release &&
        tail -n 1 "$logs/lab-scenarios.log" | sed 's/^/   /'
fi

total_passed=$(cat "$logs"/ctest-*.log 2>/dev/null | grep -c ' Passed ')
lab_passed=$(sed -n 's/^.*\b\([0-9][0-9]*\) passed.*/\1/p' "$logs/lab-scenarios.log" 2>/dev/null | tail -n 1)
say "Result"
if [ ${#failures[@]} -gt 0 ]; then
    printf 'failed: %s\n' "$(IFS=,; echo "${failures[*]}")"
fi
printf '%d passed, %d failed\n' $((total_passed + ${lab_passed:-0})) ${#failures[@]}
[ ${#failures[@]} -eq 0 ]
