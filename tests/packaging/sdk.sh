#!/usr/bin/env bash
# SPDX-License-Identifier: MIT
# The router package as a firmware maker takes it: from packaging/openwrt and an archive of the tree, with a made-up SDK
# for 32-bit ARM (tests/packaging/sdk, a cross compiler of Debian's), to an installed root folder, which is then looked at.
# The libraries of a router are those below PREFIX (include/ and lib/, built for ARM). Without it the stand-ins of compat/
# are installed in their place: whether the real ones offer all that the program asks for shows with PREFIX only.
#
#   tests/packaging/sdk.sh [PREFIX]
#
# Needs Debian and root; installs what is missing. Everything it writes is in build/sdk.
set -euo pipefail
root=$(cd "$(dirname "${BASH_SOURCE[0]}")/../.." && pwd)
cd "$root"
# shellcheck source=.ci/packages.sh
. .ci/packages.sh
. .ci/quietly.sh
prefix=${1:+$(realpath "$1")}
sdk=$root/build/sdk
logs=$sdk/logs
machine=arm-linux-gnueabihf
version=$(sed -n 's/^PKG_VERSION:=//p' packaging/openwrt/Makefile)
staging=$sdk/staging_dir/usr
target=$sdk/root

make_sdk() {
    rm -rf "$sdk"
    mkdir -p "$sdk"/{dl,package,logs,bin} "$staging"/{include,lib}
    cp -r tests/packaging/sdk/. "$sdk"
    cp -r packaging/openwrt "$sdk/package/wan_detect"
}

# The working tree, or what a release holds of it.
make_archive() {
    { git ls-files -z --cached --others --exclude-standard 2>/dev/null || find . -path ./build -prune -o -type f -print0; } |
        tar --null -T - --ignore-failed-read --transform "flags=r;s,^,wan_detect-$version/," \
            -cJf "$sdk/dl/wan_detect-$version.tar.xz"
}

# Debian has json-c for this processor. The lists of its packages are this script's own.
add_json_c() {
    local apt=$sdk/apt options package
    mkdir -p "$apt"/{lists/partial,cache/archives/partial,found}
    options=(-q -o APT::Architecture=armhf -o APT::Architectures=armhf -o APT::Sandbox::User=root
        -o "Dir::State::Lists=$apt/lists" -o "Dir::Cache=$apt/cache" -o Dir::State::status=/dev/null)
    apt-get "${options[@]}" update || true # some places have nothing for it
    (cd "$apt/found" && apt-get "${options[@]}" download libjson-c5 libjson-c-dev) || return 1
    for package in "$apt"/found/*.deb; do
        dpkg-deb -x "$package" "$apt/json-c" || return 1
    done
    cp -r "$apt/json-c/usr/include/json-c" "$staging/include" &&
        cp -a "$apt/json-c/usr/lib/$machine"/libjson-c.so* "$staging/lib"
}

# The stand-ins under the names of what they stand for.
add_standins() {
    local build=$sdk/standins name
    cmake --preset release -B "$build" -DWAN_DETECT_LIBS=bundled -DWAN_DETECT_TESTS=OFF -DWAN_DETECT_LAB=OFF \
        -DCMAKE_SYSTEM_NAME=Linux -DCMAKE_SYSTEM_PROCESSOR=arm -DCMAKE_C_COMPILER="$machine-gcc" \
        -DCMAKE_CXX_COMPILER="$machine-g++" -DCMAKE_FIND_ROOT_PATH="$staging" -DCMAKE_FIND_ROOT_PATH_MODE_LIBRARY=ONLY \
        -DCMAKE_FIND_ROOT_PATH_MODE_INCLUDE=ONLY &&
        cmake --build "$build" --target compat_ubox compat_blobmsg_json compat_ubus compat_uci || return 1
    for name in ubox blobmsg_json ubus uci; do
        cp "$(find "$build" -name "libcompat_$name.a")" "$staging/lib/lib$name.a" || return 1
    done
    cp -r compat/lib*/include/. "$staging/include"
}

add_libraries() {
    cp /usr/include/uthash.h "$staging/include"
    [ -z "$prefix" ] || cp -a "$prefix/include" "$prefix/lib" "$staging"
    [ -e "$staging/include/json-c" ] || quietly json-c add_json_c
    [ -n "$prefix" ] || quietly standins add_standins
}

# install_package NAME: what a package manager does for a root folder.
install_package() {
    local package=$sdk/bin/$1 file differing priority link path
    while read -r file; do
        [ -z "$file" ] || [ -f "$package/files$file" ] || fail "$1 has no $file, which is to be kept"
    done <"$package/conffiles"
    cp -a --no-clobber "$package/files/." "$target"
    differing=$(diff -r --no-dereference "$package/files" "$target" | grep '^diff' || true)
    [ -z "$differing" ] || fail "$1 and another package hold different files"
    while IFS=: read -r priority link path; do
        [ -n "$priority" ] || continue
        [ "$priority" -le "$(cat "$sdk/bin/$link.priority" 2>/dev/null || echo 0)" ] && continue
        mkdir -p "$(dirname "$sdk/bin/$link")" "$(dirname "$target$link")"
        echo "$priority" >"$sdk/bin/$link.priority"
        ln -sf "$path" "$target$link"
    done <"$package/alternatives"
}

# installed PACKAGE...: the names of all files of a fresh root folder with these packages.
installed() {
    local package
    rm -rf "$target" "$sdk/bin/etc"
    mkdir "$target"
    for package; do
        install_package "$package"
    done
    (cd "$target" && find . ! -type d -printf '%P %m\n' | sed 's/ 777$/ link/' | sort)
}

expect() { # expect WHAT TEXT: the input
    local found
    found=$(cat)
    [ "$found" = "$2" ] || fail "$1: $(diff <(echo "$2") <(echo "$found"))"
}

look_at_files() {
    installed wan_detect wan_detect-manager | expect "files with the manager's commands" "\
etc/capabilities/wan_detect.json 644
etc/init.d/wan_detect 755
etc/uci-defaults/60_wan_detect 644
etc/wan_detect/get_all_port_state.sh link
etc/wan_detect/get_combo_state.sh 755
sbin/wanlan_port_reload 755
usr/libexec/wan_detect/port_state 755
usr/sbin/network_lanwan_swap 755
usr/sbin/online-test 755
usr/sbin/wan_detect 755
usr/share/acl.d/wan_detect.json 644
usr/share/rpcd/acl.d/wan_detect.json 644"
    cmp -s "$target/sbin/wanlan_port_reload" packaging/openwrt/files/manager/wanlan_port_reload ||
        fail "another reload than the manager's"
    ! grep -q ADMIN "$target/etc/capabilities/wan_detect.json" || fail "rights that the manager's commands do not need"
    installed wan_detect wan_detect-bridge wan_detect-swconfig | grep -c . | expect "number of files with swconfig" 13
    cmp -s "$target/sbin/wanlan_port_reload" router/wanlan_port_reload || fail "another reload than the bridge's"
    readlink "$target/etc/wan_detect/get_all_port_state.sh" |
        expect "port states" /usr/libexec/wan_detect/port_state_swconfig
}

look_at_program() {
    local program=$target/usr/sbin/wan_detect header dynamic
    header=$(readelf -h "$program")
    dynamic=$(readelf -d "$program")
    grep -q 'Machine:.*ARM' <<<"$header" || fail "no program for ARM"
    grep -q 'FLAGS_1.*PIE' <<<"$dynamic" || fail "it runs at a fixed place"
    grep -q 'BIND_NOW' <<<"$dynamic" || fail "libraries are bound late"
    ! grep -E 'NEEDED.*(stdc|gcc_s)|R(UN)?PATH' <<<"$dynamic" || fail "asks for too much"
    ! readelf -S "$program" | grep -q '\.symtab' || fail "not stripped"
    ! grep -q -a -F "$sdk" "$program" || fail "a path of the build is in it"
    grep -q 'WAN_DETECT_LTO:BOOL=ON' "$sdk/build_dir/wan_detect-$version/cmake-build/CMakeCache.txt" || fail "no LTO"
    printf '%s bytes, needs' "$(stat -c %s "$program")"
    sed -n 's/.*NEEDED.*\[\(.*\)\]/ \1/p' <<<"$dynamic" | tr -d '\n'
    echo
    qemu-arm -L "/usr/$machine" -E "LD_LIBRARY_PATH=$staging/lib" "$program" --version |
        expect "the program's version" "wan_detect $version"
}

[ "$(id -u)" -eq 0 ] || fail "needs root"
install_packages g++-$machine make cmake ninja-build uthash-dev xz-utils qemu-user >/dev/null || fail "cannot install what it needs"
make_sdk
quietly archive make_archive
add_libraries
quietly compile make -C "$sdk/package/wan_detect" TOPDIR="$sdk" compile
look_at_files
look_at_program
echo "from packaging/openwrt to $target in $SECONDS s"
