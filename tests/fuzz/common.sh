# SPDX-License-Identifier: MIT
# What run.sh and replay.sh share. Paths are relative to the work folder: some targets cover /tmp and /etc with a file
# system of their own, and only relative paths still lead out of it.
fuzz=$(cd "$(dirname "${BASH_SOURCE[0]}")" && pwd)
root=$(cd "$fuzz/../.." && pwd)
build=${FUZZ_BUILD:-$root/build/fuzz}
work=$build/fuzz-work

[ "$(id -u)" -eq 0 ] || { echo "${0##*/}: needs root (some targets make a mount namespace)" >&2; exit 1; }

build_targets() {
    local package missing=()
    for package in clang-14 libclang-rt-14-dev; do
        dpkg-query -W -f '${Status}' "$package" 2>/dev/null | grep -q 'install ok installed' || missing+=("$package")
    done
    if [ ${#missing[@]} -gt 0 ]; then
        apt-get update &&
            DEBIAN_FRONTEND=noninteractive apt-get install -y --no-install-recommends "${missing[@]}" || return 1
    fi
    cmake -S "$root" -B "$build" -G Ninja -DCMAKE_C_COMPILER=clang-14 -DCMAKE_CXX_COMPILER=clang++-14 \
        -DCMAKE_BUILD_TYPE=Debug -DCMAKE_CXX_FLAGS_DEBUG="-O1 -g1" -DWAN_DETECT_FUZZ=ON -DWAN_DETECT_TESTS=OFF -DWAN_DETECT_LIBS=bundled &&
        cmake --build "$build" --target fuzz_targets
}

# Builds, quietly unless it fails, and enters the work folder.
prepare_targets() {
    mkdir -p "$work/corpus" "$work/crashes" "$work/logs" || exit 1
    cd "$work" || exit 1
    build_targets >logs/build.log 2>&1 || { tail -n 60 logs/build.log; echo "${0##*/}: the build failed" >&2; exit 1; }
    here=$(realpath --relative-to=. "$fuzz")
    mapfile -t targets <"$build/fuzz_names"
}

dictionary_of() {
    case $1 in
    config_*) echo config ;;
    *_state | json_to_blob | bus_methods | bus_replies) echo messages ;;
    esac
}

# fuzz_target NAME ARGUMENTS...: runs it with its dictionary; crashing inputs go to crashes/, what it says to
# logs/NAME.log.
fuzz_target() {
    local name=$1 dictionary
    shift
    dictionary=$(dictionary_of "$name")
    "$build/bin/${name}_fuzz" -timeout=10 -print_final_stats=1 -artifact_prefix="crashes/$name-" \
        ${dictionary:+"-dict=$here/dictionaries/$dictionary.dict"} "$@" >"logs/$name.log" 2>&1
}

# What must hold for each input that is kept: seeds, and regressions where there are some.
kept_inputs() {
    find "$here/corpus/$1" "$here/regressions/$1" -type f 2>/dev/null
}

show_crash() {
    grep -aE 'does not hold|ERROR:|SUMMARY:|runtime error' "logs/$1.log" | head -n 5 | sed 's/^/   | /'
    echo "   | more in $work/logs/$1.log, the input in $work/crashes/"
}
