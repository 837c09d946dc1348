# SPDX-License-Identifier: MIT
"""The router package's files among themselves and with the rest of the tree."""
import json
import re
import subprocess

import pytest

from conftest import ROOT

PACKAGE = ROOT / "packaging" / "openwrt"
MAKEFILE = (PACKAGE / "Makefile").read_text(encoding="ascii")
HOTPLUG = "packaging/openwrt/examples/90-wan_detect"


def test_the_version_is_that_of_the_program():
    """A package folder stands alone, so it says the version once more."""
    project = re.search(r"^project\(wan_detect VERSION (\S+)", (ROOT / "CMakeLists.txt").read_text(), re.MULTILINE)
    assert re.search(r"^PKG_VERSION:=(.*)$", MAKEFILE, re.MULTILINE).group(1) == project.group(1)


def test_every_file_is_installed_and_every_file_installed_is_there():
    named = set(re.findall(r"\./(files/\S+)", MAKEFILE))
    assert named == {str(path.relative_to(PACKAGE)) for path in (PACKAGE / "files").rglob("*") if path.is_file()}
    commands = set(re.findall(r"\$\(PKG_BUILD_DIR\)/(router/\S+)", MAKEFILE))
    assert commands == {str(path.relative_to(ROOT)) for path in (ROOT / "router").iterdir()}


@pytest.mark.parametrize("package", ["wan_detect", "wan_detect-commands/Default"])
def test_who_waits_with_a_limit_has_the_program_for_it(package):
    """Without `timeout` a lock is waited for without an end."""
    needs = re.search(rf"^define Package/{package}$.*?^  DEPENDS:=(.*?)$", MAKEFILE, re.MULTILINE | re.DOTALL).group(1)
    assert "+coreutils-timeout" in needs.split()


def offered_methods():
    """What each of the daemon's two objects offers."""
    acts, tells = ((ROOT / "adapters" / name).read_text(encoding="utf-8") for name in ("bus_object.cpp", "state_object.cpp"))
    return {"wan_detect": set(re.findall(r'method<\w+>\("(\w+)"', acts)),
            "wan_detect.state": set(re.findall(r'\.name = "(\w+)"', tells))}


def test_the_access_lists_name_methods_of_the_daemon():
    offered = offered_methods()
    bus = json.loads((PACKAGE / "files" / "wan_detect.bus.json").read_text(encoding="ascii"))
    web = json.loads((PACKAGE / "files" / "wan_detect.web.json").read_text(encoding="ascii"))["wan_detect"]
    lists = [{name: rights["methods"] for name, rights in bus["access"].items()}, web["read"]["ubus"], web["write"]["ubus"]]
    for names in lists:
        assert names and all(methods and set(methods) <= offered[name] for name, methods in names.items())


def test_who_may_only_read_changes_nothing_and_sees_no_secret():
    """Each method of `wan_detect` does something, those of `wan_detect.state` tell; passwords are in `network` and `protocol`."""
    web = json.loads((PACKAGE / "files" / "wan_detect.web.json").read_text(encoding="ascii"))["wan_detect"]
    told = sorted(offered_methods()["wan_detect.state"])
    assert web["read"] == {"ubus": {"wan_detect.state": told}, "uci": ["switch", "sysmode"]}


@pytest.mark.parametrize("action,interface,enable,link,asked", [
    ("ifdown", "wan", "on", "up", True), ("ifup", "wan", "on", "up", False), ("ifdown", "lan", "on", "up", False),
    ("ifdown", "wan", "off", "up", False), ("ifdown", "wan", "on", "down", False)])
def test_the_hotplug_example_asks_for_a_look_when_the_wan_interface_goes_down_and_its_link_stays(
        router, shell, action, interface, enable, link, asked):
    router.write("network", f"config wan_detect 'auto_wan_detect'\n\toption enable '{enable}'\n")
    router.write("switch", "config switch_port 'port1'\n\toption ifname 'eth0'\n\nconfig wan 'wan'\n\toption switch_port 'port1'\n")
    done = router.run("ip link add eth0 type veth peer name far", "ip link set eth0 up", f"ip link set far {link}",
                      f"ACTION={action} INTERFACE={interface} {shell} {HOTPLUG}", network=True)
    assert (done.returncode, done.stderr) == (0, "")
    calls = router.state / "asked"
    assert (calls.read_text() if calls.exists() else "") == ('call wan_detect wan_detect {"delay": 30}\n' if asked else "")


def test_the_readme_tells_how_the_archive_is_checked(tmp_path):
    """The line is run as it stands there."""
    readme = (PACKAGE / "README.md").read_text(encoding="utf-8")
    version = re.search(r"^PKG_VERSION:=(.*)$", MAKEFILE, re.MULTILINE).group(1)
    (tmp_path / "dl").mkdir()
    (tmp_path / "dl" / f"wan_detect-{version}.tar.xz.sha256").write_text(f"{'ab' * 32}  wan_detect-{version}.tar.xz\n")
    (tmp_path / "package" / "wan_detect").mkdir(parents=True)
    makefile = tmp_path / "package" / "wan_detect" / "Makefile"
    makefile.write_text(MAKEFILE, encoding="ascii")
    subprocess.run(re.search(r"^    (sed .*)$", readme, re.MULTILINE).group(1), shell=True, cwd=tmp_path, check=True)
    assert makefile.read_text(encoding="ascii") == MAKEFILE.replace("PKG_HASH?=skip", f"PKG_HASH:={'ab' * 32}")


def test_the_readme_tells_the_rights_that_each_set_of_commands_ships():
    """As the kernel shows them."""
    numbers = {"CAP_NET_ADMIN": 12, "CAP_NET_RAW": 13}
    told = re.search(r"status`: `(\w+)` with the commands for a plain bridge,\s*`(\w+)` with the manager's",
                     (PACKAGE / "README.md").read_text(encoding="utf-8")).groups()
    files = (PACKAGE / "files" / commands / "capabilities.json" for commands in ("bridge", "manager"))
    shipped = [json.loads(path.read_text(encoding="ascii"))["bounding"] for path in files]
    assert list(told) == [f"{sum(1 << numbers[name] for name in names):016x}" for names in shipped]


def test_shellcheck_is_silent():
    scripts = [path for folder in ("router", "packaging/openwrt", "tests/packaging")
               for path in (ROOT / folder).rglob("*") if path.is_file() and path.read_bytes().startswith(b"#!/bin/sh")]
    assert len(scripts) > 10
    done = subprocess.run(["shellcheck", *scripts], capture_output=True, text=True, check=False)
    assert done.returncode == 0, done.stdout
