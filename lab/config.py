# SPDX-License-Identifier: MIT
"""The router's configuration: four packages as a scenario wants them, and a reader of committed values."""
import re
from pathlib import Path

FOLDER = Path("/etc/config")
ENTRY = re.compile(r"\s*(config|option)\s+'?([^'\s]+)'?(?:\s+'?([^']*)'?)?\s*$")


class Section(dict):
    """Options of one section; a list value becomes list entries, None leaves the option out."""

    def __init__(self, kind, anonymous=False, **options):
        super().__init__(options)
        self.kind = kind
        self.anonymous = anonymous

    def text(self, name):
        lines = [f"config {self.kind}" + ("" if self.anonymous else f" '{name}'")]
        for key, value in self.items():
            if isinstance(value, (list, tuple)):
                lines += [f"\tlist {key} '{item}'" for item in value]
            elif value is not None:
                lines.append(f"\toption {key} '{value}'")
        return "\n".join(lines) + "\n"


class Config:
    """`config.network["wan"]["proto"] = "pppoe"` until `write()` puts the files in place."""

    def __init__(self, ports, wan_port):
        numbers = " ".join(str(port.number) for port in ports)
        self.network = {port.name: Section("device", anonymous=True, name=port.name) for port in ports}
        self.network["auto_wan_detect"] = Section(
            "wan_detect", enable="on", wan_port_priority=numbers, wan_port_pool=numbers,
            proto_priority="pppoe dhcp static", fake_wan_port="-1", wan_combo_first_priority="phy")
        self.network["wan"] = Section("interface", proto="dhcp", wan_type="dhcp")
        self.switch = {f"port{port.number}": port_section(port) for port in ports}
        self.switch["wan"] = Section("wan", switch_port=f"port{wan_port.number}")
        self.switch["lan_agg"] = Section("lan_agg", enable_agg="0")
        self.protocol = {
            "ipv4": Section("family", protos=["dhcp", "pppoe", "static", "l2tp", "pptp"]),
            "ipv6": Section("family", protos=["dhcpv6"]),
            "pppoe": Section("protocol", snd_conn="none"),
            "static": Section("protocol"),
        }
        self.sysmode = {"sysmode": Section("sysmode", mode="router")}

    def set_wan_type(self, protocol):
        self.network["wan"].update(proto=protocol, wan_type=protocol)

    def write(self):
        FOLDER.mkdir(exist_ok=True)
        for package in ("network", "switch", "protocol", "sysmode"):
            sections = getattr(self, package).items()
            (FOLDER / package).write_text("\n".join(section.text(name) for name, section in sections))


def port_section(port):
    section = Section("switch_port", port=port.number, ifname=port.name, label=port.label, wan_port=port.combo or "phy")
    if port.combo:
        section.update(type="combo", addr=port.number)
    return section


def read(package):
    """The committed values of a package as {section: {option: value}}; sections without a name are left out, and a
    package that is missing is empty."""
    sections, current = {}, {}
    for line in text_of(package).splitlines():
        match = ENTRY.match(line)
        if not match:
            continue
        word, name, value = match.groups()
        if word == "config":
            current = {}
            if value:
                sections[value] = current
        else:
            current[name] = value
    return sections


def text_of(package):
    try:
        return (FOLDER / package).read_text(errors="replace")
    except FileNotFoundError:
        return ""


def wan_port_name():
    """Interface name of the port that holds the WAN role, as committed; None when the configuration names none."""
    switch = read("switch")
    return switch.get(switch.get("wan", {}).get("switch_port"), {}).get("ifname")
