# SPDX-License-Identifier: MIT
# shellcheck shell=bash
# Debian packages for the scripts of this tree, which source it.

# install_packages NAME...: installs those that are missing; false when it cannot, which one line says.
install_packages() {
    local package missing=() said
    for package in "$@"; do
        dpkg-query -W -f '${Status}' "$package" 2>/dev/null | grep -q 'install ok installed' || missing+=("$package")
    done
    [ ${#missing[@]} -gt 0 ] || return 0
    if [ "$(id -u)" -ne 0 ]; then
        echo "${0##*/}: packages are missing; as root: apt-get install --no-install-recommends ${missing[*]}" >&2
        return 1
    fi
    echo "Installing ${missing[*]} ..." >&2
    said=$({ apt-get -q update && DEBIAN_FRONTEND=noninteractive apt-get -qy install --no-install-recommends "${missing[@]}"; } 2>&1) || {
        echo "${0##*/}: cannot install ${missing[*]}: $(grep -m 1 '^E:' <<<"$said" || tail -n 1 <<<"$said")" >&2
        return 1
    }
}
