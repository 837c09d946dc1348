# SPDX-License-Identifier: MIT
# shellcheck shell=bash
# Debian packages for the scripts of this tree, which source it.

# install_packages NAME...: installs those that are missing; false when it cannot.
install_packages() {
    local package missing=()
    for package in "$@"; do
        dpkg-query -W -f '${Status}' "$package" 2>/dev/null | grep -q 'install ok installed' || missing+=("$package")
    done
    [ ${#missing[@]} -gt 0 ] || return 0
    [ "$(id -u)" -eq 0 ] || { echo "missing: ${missing[*]}; run as root to install them" >&2; return 1; }
    echo "Installing ${missing[*]} ..." >&2
    { apt-get -q update && DEBIAN_FRONTEND=noninteractive apt-get -qy install --no-install-recommends "${missing[@]}"; } 2>&1
}
