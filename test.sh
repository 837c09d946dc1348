#!/usr/bin/env bash
# SPDX-License-Identifier: MIT
# All tests: unit tests in a release build and under the sanitizers, a moment of fuzzing, the virtual router's scenarios,
# and checks of the program that ships. Needs Debian. Root installs what is missing; for a plain user, what needs real root is
# skipped.
#
#   ./test.sh            everything
#   ./test.sh quick      what one runs before a commit: unit tests of the release build, and the checks that take seconds
#   ./test.sh unit       unit tests and static checks
#   ./test.sh lab        scenarios only
set -uo pipefail
cd "$(dirname "$0")" || exit 1
jobs=$(nproc)
what=${1:-all}
logs=$PWD/build/logs
failures=$logs/failures # a file, for steps run side by side

say() { printf '\n== %s\n' "$*"; }

# step NAME COMMAND...: runs it quietly; its output is shown only when it fails.
step() {
    local name=$1 started=$SECONDS log
    shift
    log=$logs/${name// /-}.log
    if "$@" >"$log" 2>&1; then
        printf '   %-44s ok   %4d s\n' "$name" $((SECONDS - started))
        : >"$log.passed"
    else
        printf '   %-44s FAILED %2d s\n%s\n' "$name" $((SECONDS - started)) "$(tail -n 60 "$log" | sed 's/^/   | /')"
        fail "$name"
        : >"$log.failed"
        return 1
    fi
}

fail() { # fail NAME: a full disk does not swallow it
    echo "$1" >>"$failures" || : >"$failures.unwritten"
}

# after NAME: waits for the end of that step of the computing lane. False when it failed.
after() {
    local log=$logs/${1// /-}.log
    while [ ! -e "$log.passed" ] && [ ! -e "$log.failed" ]; do
        [ ! -e "$logs/computed" ] || { # the lane ended without it
            fail "$1 (never ran)"
            return 1
        }
        sleep 0.2
    done
    [ -e "$log.passed" ]
}

. .ci/packages.sh
packages=(g++ cmake ninja-build libjson-c-dev uthash-dev libgtest-dev iproute2 dnsmasq-base pppoe udhcpc faketime
    iputils-arping iputils-ping python3 python3-pytest python3-pytest-xdist universal-ctags git
    clang-14 libclang-rt-14-dev lld clang-format-14 clang-tidy-14 cppcheck valgrind mandoc shellcheck busybox reuse)

clang=(-DCMAKE_C_COMPILER=clang-14 -DCMAKE_CXX_COMPILER=clang++-14)
clang_tests=(-DWAN_DETECT_TEST_COMPILER=clang++-14 -DWAN_DETECT_TEST_LINKER=lld) # what ships is made by g++ all the same
quickly=(-DWAN_DETECT_SHARED_HEADERS=ON -DCMAKE_EXE_LINKER_FLAGS=-fuse-ld=lld)

# build PRESET FOLDER [OPTIONS]; bundled, for the virtual router runs the bus daemon and the tools that come with those
build() {
    cmake --preset "$1" -B "build/$2" -DWAN_DETECT_LIBS=bundled "${@:3}" && cmake --build "build/$2" -j "$jobs"
}

unit() { # unit FOLDER: what failed runs a second time, alone and talkative, but has failed all the same
    # Most of them wait for something most of the time.
    ctest --test-dir "build/$1" -j $((3 * jobs)) --timeout 300 -V -Q -O "$logs/ctest-$1.log" && return 0
    sed -n '/tests passed/,$p' "$logs/ctest-$1.log"
    echo "---- what failed, once more"
    ctest --test-dir "build/$1" --rerun-failed --output-on-failure | tail -n 100
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
    cmake -S . -B build/tidy -G Ninja -DCMAKE_BUILD_TYPE=Debug "${clang[@]}" -DWAN_DETECT_TESTS=OFF || return 1
    git ls-files '*.cpp' ':!tests' ':!bench' ':!cmake' | xargs .ci/tidy.py build/tidy
}

# missingInclude: the system's own headers are not read.
cppcheck_all() {
    local rooms
    mapfile -t rooms < <(git ls-files '*/*.cpp' ':!tests' ':!bench' ':!cmake' ':!lab' ':!compat' | cut -d / -f 1 | sort -u)
    [ build/cppcheck -nt test.sh ] || rm -rf build/cppcheck
    mkdir -p build/cppcheck # what it found there holds for sources and options that are as they were
    cppcheck --enable=warning,performance,portability --error-exitcode=1 --inline-suppr --std=c++20 --language=c++ -q \
        -j "$jobs" --cppcheck-build-dir=build/cppcheck --suppress=missingInclude -D_GNU_SOURCE -I. -Icompat/libubox/include \
        -Icompat/libubus/include -Icompat/libuci/include "${rooms[@]}" compat/libubox compat/libubus compat/libuci
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

lab_tests() { # lab_tests PYTEST-ARGUMENTS...: one that hangs is told to end as from a keyboard, which takes its labs along
    timeout --foreground -s INT -k 60 2400 /usr/bin/python3 -m pytest -q -p no:cacheprovider "$@" --build build/release
    local status=$?
    [ $status -ne 124 ] || echo "over its limit of 2400 s"
    return $status
}

lab() { # lab PYTEST-ARGUMENTS...
    # Four labs for each processor: one of them computes a sixth of the time.
    PYTHONPATH=. /usr/bin/python3 -m compileall -q lab && lab_tests "$@" --labs $((4 * jobs))
}

packages_and_users() { # the router package's tests, and how somebody plays who is not root
    local labs=tests/packaging/test_openwrt_lab.py # which plays side by side by itself
    lab_tests tests/packaging --ignore "$labs" --ignore-glob '*test_debian*' --ignore-glob '*test_reproducible*' -n "$jobs" &&
        lab_tests "$labs" && lab_tests tests/unprivileged -n "$jobs"
}

papers() {
    tests/papers.py --self-test && tests/papers.py
}

release_checks() {
    step "program checks" program_checks
    step "behaviour document" tests/behaviour.py --self-test --check --build build/release
    step "report on the libraries" tests/real_libraries_report.py --self-test
}

quick_checks() {
    step "formatting" formatting
    step "circles" tests/figures.py --circles
    step "figures" tests/figures.py --check
    step "picture of a cycle" tests/cycle_picture.py --self-test --check
    step "log lines" log_lines
    step "papers" papers
    step "undone mends" tests/simulation/sharp.sh --apply-only
    step "licences" reuse lint
}

# What only computes: at a priority at which it takes the processor from nothing else. Tests of the address sanitizer and fuzz
# targets are one tree, for both instrument the same code.
computing_lane() {
    trap ': >"$logs/computed"' EXIT
    chrt --idle --pid 0 $BASHPID
    step "build asan" build asan fuzz "${clang[@]}" "${quickly[@]}" \
        -DWAN_DETECT_FUZZ=ON -DWAN_DETECT_TESTS=ON -DWAN_DETECT_LAB=ON
    step "build tsan" build tsan tsan "${clang_tests[@]}" "${quickly[@]}"
    [ "$what" = unit ] || ! after "build asan" || step "fuzz targets" tests/fuzz/replay.sh
    step "simulated lives" tests/simulate.sh --short
    quick_checks
    step "cppcheck" cppcheck_all
    step "clang-tidy" tidy
    if [ -z "${plain_user:-}" ]; then
        step "other processors" tests/architectures.sh stage
    else
        echo "skipped: other processors" >"$logs/lab-other-processors.log" # their compilers are not there
    fi
    return 0
}

scenarios_lane() {
    [ "$what" = unit ] || [ $built -ne 0 ] || step "lab scenarios" lab tests/lab --ignore tests/lab/test_hostile.py
    return 0
}

units_lane() {
    if [ $built -eq 0 ]; then
        release_checks
        [ "$what" = unit ] || step "lab packages and users" packages_and_users
        step "unit tests" unit release
    fi
    after "build asan" && step "unit tests asan" unit fuzz
    if after "build tsan"; then
        step "unit tests tsan" unit tsan
        step "a moved cable tsan" ./run.sh cable-move --build build/tsan
    fi
    return 0
}

# In real time, for Clang's address sanitizer cannot live with the library that makes the lab's clock faster.
cable_lane() {
    after "build asan" && step "a moved cable asan" ./run.sh cable-move --build build/fuzz --speed 1
    return 0
}

# side_by_side LANE...: until all are over. Each is a process group, to end with this script however that ends.
side_by_side() {
    local lane lanes=() started=("$@")
    set -m
    for lane in "$@"; do
        "$lane" &
        lanes+=(-$!)
    done
    set +m
    trap 'kill -- "${lanes[@]}" 2>/dev/null' EXIT
    for lane in "${!lanes[@]}"; do
        wait "${lanes[lane]#-}" || fail "${started[lane]} (ended early)"
    done
    trap - EXIT
}

case $what in
all | quick | unit | lab) ;;
*) echo "test.sh: not '$what'; all, quick, unit or lab" >&2; exit 2 ;;
esac
{ rm -rf "$logs" && mkdir -p "$logs" && [ -z "$(find build -maxdepth 1 ! -writable)" ]; } 2>/dev/null || {
    echo "test.sh: cannot write to $PWD/build: copy the tree to a folder of your own" >&2
    exit 1
}
if [ "$(id -u)" -ne 0 ]; then # a plain user is root of a namespace of his own, where nothing can be installed
    install_packages "${packages[@]}" && PYTHONPATH=. /usr/bin/python3 -B -m lab --check || exit
    LOGNAME=$(id -un) plain_user=yes exec unshare --user --map-root-user ./test.sh "$@"
fi
: >"$failures"
trap 'exit 130' INT
trap 'exit 143' TERM

say "Packages"
step "install packages" install_packages "${packages[@]}" || exit 1
if [ -z "${plain_user:-}" ] && { [ "$what" = all ] || [ "$what" = unit ]; }; then # real root installs them
    step "get compilers for other processors" tests/architectures.sh get
fi

say "Release build"
step "build release" build release release "${clang_tests[@]}"
built=$?

case $what in
quick)
    say "Quick checks"
    quick_checks
    if [ $built -eq 0 ]; then
        release_checks
        step "unit tests" unit release
    fi
    ;;
unit | all)
    say "Tests, and beside them what only computes"
    side_by_side computing_lane scenarios_lane units_lane cable_lane
    ;;
lab)
    say "Virtual router"
    [ $built -ne 0 ] || step "lab scenarios" lab tests/lab --ignore tests/lab/test_hostile.py
    ;;
esac
if { [ "$what" = all ] || [ "$what" = lab ]; } && [ $built -eq 0 ]; then
    say "Floods, which have the machine to themselves"
    step "lab floods" lab tests/lab/test_hostile.py
fi

unit_passed=$(cat "$logs"/ctest-*.log 2>/dev/null | grep -c '\[       OK \]')
lab_passed=$(cat "$logs"/lab-*.log 2>/dev/null | sed -n 's/^.*\b\([0-9][0-9]*\) passed.*/\1/p' | paste -sd+)
failed=$(wc -l <"$failures")
[ ! -e "$failures.unwritten" ] || failed=$((failed + 1))
say "Result in $SECONDS s"
[ "$failed" -eq 0 ] || printf 'failed: %s\n' "$(paste -sd, "$failures")"
mapfile -t skipped < <(cat "$logs"/ctest-*.log "$logs"/lab-*.log 2>/dev/null |
    sed -n 's/^skipped: //p; s/^[0-9]*: \[  SKIPPED \] \(.*\) ([0-9]* ms)$/\1/p')
[ ${#skipped[@]} -eq 0 ] || printf 'skipped: %s\n' "${skipped[@]}"
cat "$logs"/lab-*.log 2>/dev/null | grep '^played twice: '
printf '%d passed, %d failed%s\n' $((unit_passed + ${lab_passed:-0})) "$failed" \
    "$([ ${#skipped[@]} -eq 0 ] || printf ', %d skipped' ${#skipped[@]})"
[ "$failed" -eq 0 ]
