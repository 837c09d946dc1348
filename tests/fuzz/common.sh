# SPDX-License-Identifier: MIT
# shellcheck shell=bash
# What run.sh and replay.sh share. Some targets cover /tmp and /etc with a file system of their own; what lies in the work
# folder, which they start in, stays within reach by relative paths.
fuzz=$(cd "$(dirname "${BASH_SOURCE[0]}")" && pwd)
root=$(cd "$fuzz/../.." && pwd)
build=${FUZZ_BUILD:-$root/build/fuzz}
work=$build/fuzz-work
jobs=${FUZZ_JOBS:-$(nproc)}
slowest=60 # seconds on the clock for one input, which takes milliseconds: a busy machine may stand still for a while
packages=(clang-14 libclang-rt-14-dev cmake ninja-build libjson-c-dev uthash-dev)

. "$root/.ci/packages.sh"
logs=logs # in the work folder
. "$root/.ci/quietly.sh"
[ "$(id -u)" -eq 0 ] || { echo "${0##*/}: needs root (some targets make a mount namespace)" >&2; exit 1; }

# build_targets FOLDER [FLAGS]: -O1, because most of the time goes into building, and branches stay what the source says. A
# folder that is set up stays as it is, for it may build more than the targets.
build_targets() {
    [ -e "$1/build.ninja" ] ||
        cmake -S "$root" -B "$1" -G Ninja -DCMAKE_C_COMPILER=clang-14 -DCMAKE_CXX_COMPILER=clang++-14 \
            -DCMAKE_BUILD_TYPE=Debug -DCMAKE_CXX_FLAGS_DEBUG="-O1 -g1 ${2:-}" -DWAN_DETECT_FUZZ=ON -DWAN_DETECT_TESTS=OFF \
            -DWAN_DETECT_LAB=OFF -DWAN_DETECT_LIBS=bundled || return 1
    cmake --build "$1" -j "$jobs" --target fuzz_targets
}

# Installs what is missing, builds, and enters the work folder.
prepare_targets() {
    mkdir -p "$work"/{corpus,crashes,logs} && cd "$work" || exit 1
    quietly packages install_packages "${packages[@]}"
    quietly build build_targets "$build"
    rm -rf kept && mkdir kept || exit 1
    local folder
    for folder in corpus grown regressions dictionaries; do
        [ ! -d "$fuzz/$folder" ] || cp -r "$fuzz/$folder" kept/ || exit 1
    done
    mapfile -t targets <"$build/fuzz_names"
    # Reports name functions where the tool for that is there.
    [ ! -x /usr/bin/llvm-symbolizer-14 ] || export ASAN_SYMBOLIZER_PATH=/usr/bin/llvm-symbolizer-14
}

dictionary_of() {
    case $1 in
    config_*) echo config ;;
    *_state | json_to_blob | bus_* | network_status | engine_events) echo messages ;;
    esac
}

# fuzz_target NAME ARGUMENTS...: runs it with its dictionary; crashing inputs go to crashes/, what it says to
# logs/NAME.log.
fuzz_target() {
    local name=$1 dictionary
    shift
    dictionary=$(dictionary_of "$name")
    "${programs:-$build}/bin/${name}_fuzz" -timeout="$slowest" -print_final_stats=1 -artifact_prefix="crashes/$name-" \
        ${dictionary:+"-dict=kept/dictionaries/$dictionary.dict"} "$@" >"logs/$name.log" 2>&1
}

# kept_folders NAME: what must hold for each input in them: seeds, what fuzzing grew, and regressions.
kept_folders() {
    local folder
    for folder in corpus grown regressions; do
        [ ! -d "kept/$folder/$1" ] || echo "kept/$folder/$1"
    done
}

# show_crash NAME: which input it was, where it is, and what was wrong.
show_crash() {
    local input
    input=$(sed -n 's/^.*Test unit written to //p' "logs/$1.log" | tail -n 1)
    # While kept inputs are replayed, nothing is written: the last one that began is the one.
    input=${input:-$(sed -n 's/^Running: //p' "logs/$1.log" | tail -n 1)}
    [[ $input != kept/* ]] || input=$fuzz/${input#kept/}
    echo "$1: FAILED with the input $(realpath -m "${input:-none}")"
    grep -aE 'does not hold|ERROR:|SUMMARY:|runtime error' "logs/$1.log" | head -n 5 | sed 's/^/   | /'
    echo "   | more in $work/logs/$1.log"
}

# on_all FUNCTION NAME...: calls it with each name, as many at a time as there are processors. False when one failed.
on_all() {
    local function=$1 name running=0 result=0
    shift
    for name in "$@"; do
        if [ "$running" -ge "$jobs" ]; then
            wait -n || result=1
            running=$((running - 1))
        fi
        "$function" "$name" &
        running=$((running + 1))
    done
    for (( ; running > 0; running--)); do
        wait -n || result=1
    done
    return $result
}
