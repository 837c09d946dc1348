# SPDX-License-Identifier: MIT
"""The Debian package: what it holds, what an installation and a purge change, and the main job on a machine that booted with it."""
import os
import re
import subprocess
import time

import pytest

import machine as machines
import router_life

pytest_plugins = ["debian_package"]
CONFIGURATION = ("network", "protocol", "switch", "sysmode")
# What dpkg and systemd write of themselves.
NOT_OF_THE_PACKAGE = re.compile(r"/(proc|sys|dev|run|var/lib/dpkg|var/log|var/cache|var/lib/systemd|tmp/systemd-private)(/|-|$)")
PUT = "/run/package.deb"    # within a machine
LIST_S = 600    # a busy machine
WAIT_S = 30
NOBODY = 65534
LIST_FILES = r"""find / /tmp -xdev -printf '%p %y %m %u %l\n'
find / /tmp -xdev -type f -exec sha256sum {} + | sed 's/^\([^ ]*\)  \(.*\)/\2 \1/'"""


def field(package, name):
    return subprocess.run(["dpkg-deb", "-f", package, name], check=True, capture_output=True, text=True).stdout.strip()


def files_of(listing):
    return {line for line in listing.splitlines() if not NOT_OF_THE_PACKAGE.match(line)}


def files_in(folder):
    return files_of(machines.run_in(folder, "sh", "-c", LIST_FILES).stdout)


def test_the_package_has_the_version_of_the_tree(package):
    version = re.search(r"project\(wan_detect VERSION ([0-9.]+) ", (machines.ROOT / "CMakeLists.txt").read_text())[1]
    assert field(package, "Version") == f"{version}-1"


def test_lintian_finds_no_error(package):
    done = subprocess.run(["lintian", "--allow-root", "--fail-on", "error", str(package)], check=False, capture_output=True, text=True)
    assert done.returncode == 0, done.stdout


def test_an_installation_switches_nothing_on(installed):
    assert not list((installed / "etc/systemd/system").rglob("*wan_detect*"))
    assert not list((installed / "etc/systemd/system").rglob("*ubusd*"))
    assert machines.run_in(installed, "uci", "get", "network.auto_wan_detect.enable").stdout == "off\n"


def test_the_configuration_is_roots_alone(installed):
    modes = {path.name: path.stat().st_mode & 0o777 for path in (installed / "etc/config").iterdir()}
    assert modes == {name: 0o600 for name in CONFIGURATION}


@pytest.mark.parametrize("unit, exposure", [("wan_detect", 2.6), ("ubusd", 1.1)])
def test_systemd_understands_the_units_and_finds_them_well_guarded(installed, unit, exposure):
    """From 0 to 10, by systemd's own scale."""
    assert machines.run_in(installed, "systemd-analyze", "verify", "--man=no", f"{unit}.service").stdout == ""
    machines.run_in(installed, "systemd-analyze", "security", "--offline=true", f"--threshold={exposure * 10:.0f}",
                    f"/usr/lib/systemd/system/{unit}.service")


def test_a_purge_leaves_no_trace(folder, package):
    before = files_in(folder)
    machines.install(folder, package)
    assert files_in(folder) > before
    machines.run_in(folder, "dpkg", "--purge", machines.PACKAGE)
    assert files_in(folder) == before


def test_a_configuration_that_was_there_stays(folder, package):
    own = folder / "etc/config/network"
    own.parent.mkdir()
    own.write_text("config interface 'mine'\n")
    machines.install(folder, package)
    assert own.read_text() == "config interface 'mine'\n"
    machines.run_in(folder, "dpkg", "--purge", machines.PACKAGE)
    assert [path.name for path in own.parent.iterdir()] == ["network"]


def test_a_second_installation_keeps_what_was_configured(folder, package):
    machines.install(folder, package)
    machines.run_in(folder, "uci", "set", "network.auto_wan_detect.enable=on")
    machines.run_in(folder, "uci", "commit")
    (folder / "etc/config/sysmode").unlink()
    machines.install(folder, package)
    assert machines.run_in(folder, "uci", "get", "network.auto_wan_detect.enable").stdout == "on\n"
    assert not (folder / "etc/config/sysmode").exists()


@pytest.mark.parametrize("program", ["wanlan_port_reload", "online-test", "ubusd"])
def test_a_program_of_somebody_elses_is_not_replaced(folder, package, program):
    own = folder / "usr/sbin" / program
    own.write_text("mine\n")
    done = machines.install(folder, package, check=False)
    assert done.returncode != 0 and f"/usr/sbin/{program} is there" in done.stdout
    assert own.read_text() == "mine\n"


def test_every_program_of_the_package_is_guarded(package, tmp_path):
    subprocess.run(["dpkg-deb", "-R", package, tmp_path], check=True)
    shipped = {str(path.relative_to(tmp_path / "usr")) for folder in ("bin", "sbin") for path in (tmp_path / "usr" / folder).iterdir()}
    guarded = re.search(r"for program in (.*); do", (tmp_path / "DEBIAN/preinst").read_text())[1]
    assert shipped == set(guarded.split())


def test_every_program_of_the_package_has_a_manual_page(package, tmp_path):
    subprocess.run(["dpkg-deb", "-x", package, tmp_path], check=True)
    programs = {f"man{section}/{path.name}.{section}.gz" for folder, section in (("bin", 1), ("sbin", 8))
                for path in (tmp_path / "usr" / folder).iterdir()}
    manuals = tmp_path / "usr/share/man"
    assert programs == {str(path.relative_to(manuals)) for path in manuals.glob("*/*")}


def test_an_upgrade_restarts_a_daemon_that_runs(installed, package):
    with machines.Machine(installed) as machine:
        put(package, machine)
        machine.run("systemctl", "start", "wan_detect")
        first = machine.run("systemctl", "show", "-p", "MainPID", "wan_detect").stdout
        machine.run("dpkg", "-i", PUT)
        assert machine.run("systemctl", "is-active", "wan_detect", check=False).stdout == "active\n"
        assert machine.run("systemctl", "show", "-p", "MainPID", "wan_detect").stdout != first


def test_a_manager_that_fails_leaves_no_half_package(folder, package):
    machines.install(folder, package)
    (folder / "run/systemd/system").mkdir(parents=True)
    failing = folder / "usr/local/bin/systemctl"
    failing.write_text("#!/bin/sh\n: >/asked\nexit 1\n")
    failing.chmod(0o755)
    for step in (["-i", "/package.deb"], ["--remove", machines.PACKAGE], ["--purge", machines.PACKAGE]):
        (folder / "package.deb").write_bytes(package.read_bytes())
        done = machines.run_in(folder, "dpkg", *step, check=False)
        assert done.returncode == 0, done.stdout
        (folder / "asked").unlink()


def test_a_purge_leaves_somebody_elses_unit_of_the_name_enabled(folder, package):
    machines.install(folder, package)
    machines.run_in(folder, "systemctl", "enable", "wan_detect", "ubusd")
    (folder / "etc/systemd/system/ubusd.service").write_text("[Service]\nExecStart=/opt/ubusd\n")
    machines.run_in(folder, "dpkg", "--purge", machines.PACKAGE)
    assert [path.name for path in (folder / "etc/systemd/system/multi-user.target.wants").iterdir()
            if path.name in ("wan_detect.service", "ubusd.service")] == ["ubusd.service"]


def test_a_purge_follows_no_link_of_a_strangers(folder, package):
    machines.install(folder, package)
    kept = folder / "srv/network"
    kept.write_text("mine\n")
    waiting = folder / "tmp/.uci"
    waiting.symlink_to("/srv")
    os.chown(waiting, NOBODY, NOBODY, follow_symlinks=False)
    machines.run_in(folder, "dpkg", "--purge", machines.PACKAGE)
    assert kept.read_text() == "mine\n"


def test_ports_join_a_bridge_that_comes_after_the_start_and_only_where_detection_is_on(installed):
    with machines.Machine(installed) as machine:
        router_life.build(machine)
        machine.run("systemctl", "start", "wan_detect")
        assert machine.run("ls", "/sys/class/net/br-lan/brif").stdout == ""
        machine.script("uci set network.auto_wan_detect.enable=on; uci commit; ip link del br-lan; systemctl restart --no-block wan_detect")
        wait_for(machine, '[ "$(systemctl show --value -p SubState wan_detect)" = start-pre ]')
        machine.run("ip", "link", "add", "br-lan", "type", "bridge")
        wait_for(machine, "systemctl is-active wan_detect")
        assert machine.run("ls", "/sys/class/net/br-lan/brif").stdout.split() == ["eth1", "eth2", "eth3"]


@pytest.mark.parametrize("left", ["mkdir /tmp/.uci; echo switch.wan.switch_port=port4 >/tmp/.uci/switch", "ln -s /etc/config /tmp/.uci"],
                         ids=["folder", "link"])
def test_a_start_takes_the_place_of_waiting_changes_back(installed, left):
    with machines.Machine(installed) as machine:
        machine.script("rm -rf /tmp/.uci; ls -l /etc/config >/run/before")
        machine.run("setpriv", f"--reuid={NOBODY}", "--clear-groups", "sh", "-c", left)
        machine.run("systemctl", "start", "wan_detect")
        assert machine.run("stat", "-c", "%F %U %a", "/tmp/.uci").stdout == "directory root 700\n"
        assert machine.run("uci", "get", "switch.wan.switch_port").stdout == "port1\n"
        machine.script("ls -l /etc/config | cmp - /run/before")


def test_a_start_leaves_what_root_lets_wait(installed):
    with machines.Machine(installed) as machine:
        machine.run("uci", "set", "switch.wan.switch_port=port4")
        machine.run("systemctl", "start", "wan_detect")
        assert machine.run("uci", "get", "switch.wan.switch_port").stdout == "port4\n"


def wait_for(machine, question):
    end = time.monotonic() + WAIT_S
    while not router_life.holds(machine, question):
        assert time.monotonic() < end, question
        time.sleep(0.1)


def put(package, machine):
    with open(package, "rb") as stream:
        subprocess.run(["nsenter", "-t", str(machine.pid), "-m", "-r", "sh", "-c", f"cat >{PUT}"], stdin=stream, check=True)


def test_the_main_job_on_a_booted_machine_and_a_purge_after_it(base, package):
    with machines.Machine(base) as machine:
        router_life.build(machine)
        put(package, machine)
        before = files_of(machine.run("sh", "-c", LIST_FILES, seconds=LIST_S).stdout)
        machine.run("dpkg", "-i", PUT)
        assert machine.run("systemctl", "is-active", "wan_detect", "ubusd", check=False).stdout.split() == ["inactive"] * 2
        assert router_life.play(machine) == router_life.WHOLE, machine.run("journalctl", "-u", "wan_detect").stdout
        machine.run("dpkg", "--purge", machines.PACKAGE)
        assert files_of(machine.run("sh", "-c", LIST_FILES, seconds=LIST_S).stdout) == before
        assert machine.run("systemctl", "is-active", "ubusd", check=False).stdout == "inactive\n"
