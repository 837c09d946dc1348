#!/bin/bash
# SPDX-License-Identifier: MIT
# Makes the archive of the release out of the current commit: the same commit gives the same bytes.
#   packaging/release.sh [FOLDER]    writes wan_detect-VERSION.tar.xz and its checksum there
set -euo pipefail
folder=$(realpath "${1:-.}")
cd "$(dirname "$0")/.."

fail() {
    echo "release.sh: $*" >&2
    exit 1
}

version=$(sed -n 's/^project(wan_detect VERSION \([0-9.]*\) .*/\1/p' CMakeLists.txt)
name=wan_detect-$version
[ -n "$version" ] || fail "CMakeLists.txt names no version"
grep -q "^## $version - " CHANGELOG.md || fail "CHANGELOG.md tells nothing of $version"
[ -z "$(git status --porcelain --untracked-files=no)" ] || fail "there are changes that are not committed"

git -c tar.umask=0022 archive --format=tar --prefix="$name/" HEAD | xz -9e --threads=1 >"$folder/$name.tar.xz.new"
mv "$folder/$name.tar.xz.new" "$folder/$name.tar.xz"
cd "$folder"
sha256sum "$name.tar.xz" | tee "$name.tar.xz.sha256"
