#!/usr/bin/env bash
# SPDX-License-Identifier: MIT
# The daemon on another kernel than this machine's: boots Debian's own in an emulated machine whose root is this machine's, read
# only, and plays a scenario of the virtual router there: by default one with a VLAN and a line that loses and delays frames. Needs
# Debian and root; installs what is missing. Everything it writes is in build/kernel.
#
#   tests/kernel.sh [--build BUILD] [SCENARIO]    with the programs in BUILD (build/release)
set -euo pipefail
root=$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)
cd "$root"
base=$root/build/kernel
build=$root/build/release
# All that the scenarios want of a kernel, and what brings the machine its root.
modules=(virtio_pci 9pnet_virtio 9p overlay veth bridge 8021q sch_netem)
longest_s=1800

fail() {
    echo "kernel.sh: $*" >&2
    exit 1
}

if [ "${1:-}" = --build ]; then
    build=$(realpath "${2:?a folder}")
    shift 2
fi
scenario=${1:-lossy-line}
[ -x "$build/bin/wan_detect" ] || fail "no programs in $build: build first, or name the folder with --build"
[ "$(id -u)" -eq 0 ] || fail "needs root"
. .ci/packages.sh
install_packages qemu-system-x86 python3 iproute2 dnsmasq-base pppoe udhcpc iputils-arping iputils-ping >/dev/null ||
    fail "cannot install what it needs"

# Downloaded, not installed: a kernel of this machine's own it shall not be.
unpack_packages() {
    local kernel
    kernel=$(apt-cache depends linux-image-amd64 | sed -n 's/.*Depends: \(linux-image-[^ ]*\)$/\1/p' | head -n 1)
    rm -rf "$base/packages" "$base/unpacked"
    mkdir -p "$base/packages" "$base/unpacked"
    (cd "$base/packages" && apt-get -q -o APT::Sandbox::User=root download "$kernel" busybox-static) || return 1
    local package
    for package in "$base"/packages/*.deb; do
        dpkg-deb -x "$package" "$base/unpacked" || return 1
    done
    "$base/unpacked/bin/busybox" depmod -b "$base/unpacked" "$(release)" && : >"$base/unpacked/complete"
}

release() {
    basename "$base"/unpacked/lib/modules/*
}

# What the kernel starts: its root becomes this machine's, with /run and /tmp of its own.
write_init() {
    cat >"$base/initramfs/init" <<END
#!/bin/busybox sh
export PATH=/bin
/bin/busybox --install -s /bin
mount -t proc proc /proc && mount -t sysfs sysfs /sys && mount -t devtmpfs dev /dev
mkdir -p /dev/shm /dev/pts && mount -t devpts devpts /dev/pts
modprobe -a ${modules[*]} || echo "modules are missing"
mount -t 9p -o ro,trans=virtio,version=9p2000.L,msize=512000,cache=loose host /host || poweroff -f
for folder in /proc /sys /dev; do mount --move \$folder /host\$folder; done
for folder in /run /tmp; do mount -t tmpfs tmpfs /host\$folder; done
cp /play /host/run/play
cd /host && mount --move . / && exec chroot . /bin/sh /run/play
END
    cat >"$base/initramfs/play" <<END
export PYTHONPATH=$root PYTHONDONTWRITEBYTECODE=1 PATH=/usr/sbin:/usr/bin:/sbin:/bin
cd $root
uname -a
/usr/bin/python3 -m lab $scenario --speed 1 --log --build $build
echo "kernel.sh: status \$?"
echo o >/proc/sysrq-trigger
sleep 60
END
    chmod +x "$base/initramfs/init"
}

make_initramfs() {
    local name wanted folder=$base/initramfs
    rm -rf "$folder"
    mkdir -p "$folder"/{bin,proc,sys,dev,host} "$folder/lib/modules/$(release)"
    cp "$base/unpacked/bin/busybox" "$folder/bin"
    # Every module that these need stands behind its colon.
    wanted=$(printf '/%s.ko:|' "${modules[@]//_/[-_]}")
    cd "$base/unpacked/lib/modules/$(release)"
    grep -E "${wanted%|}" modules.dep | tr -d : | tr ' ' '\n' | sort -u | xargs cp --parents -t "$folder/lib/modules/$(release)"
    cp modules.dep modules.alias modules.builtin modules.order "$folder/lib/modules/$(release)"
    write_init
    (cd "$folder" && find . | "$base/unpacked/bin/busybox" cpio -o -H newc 2>/dev/null | gzip -1 >"$base/initramfs.gz")
    cd "$root"
}

boot() {
    timeout "$longest_s" qemu-system-x86_64 -accel tcg,thread=multi -machine q35 -cpu max -smp 2 -m 1024 -nodefaults -no-reboot \
        -display none -serial stdio -kernel "$base"/unpacked/boot/vmlinuz-* -initrd "$base/initramfs.gz" \
        -append "console=ttyS0 quiet panic=-1 no_timer_check" \
        -virtfs local,path=/,mount_tag=host,security_model=none,readonly=on,multidevs=remap </dev/null
}

mkdir -p "$base"
[ -e "$base/unpacked/complete" ] || unpack_packages >"$base/packages.log" 2>&1 || fail "no kernel, see build/kernel/packages.log"
make_initramfs
boot 2>&1 | tee "$base/console.log"
grep -q 'kernel.sh: status 0' "$base/console.log" || fail "$scenario failed, see build/kernel/console.log"
