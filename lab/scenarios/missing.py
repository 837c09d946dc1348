# SPDX-License-Identifier: MIT
"""The daemon started with one thing missing that it needs: what it says, and whether it goes on."""
from dataclasses import dataclass

from lab import config
from lab.bus import SOCKET
from lab.daemon import LINE, LOG
from lab.lan import Together
from lab.life import Life
from lab.missing import (RELOAD, broken, changed, connected, covered, deaf_socket, devices_without_console, moved,
                         no_option, no_package, no_program, no_section, no_sections_of, unmount, with_line,
                         without_bridge, without_interface, without_manager)
from lab.mounts import mount
from lab.router import WAN_RESULT
from lab.scenarios.life import DEBUG, END_REAL_S, LifeScenario
from lab.scenarios.static import NETWORK
from lab.upstream import DhcpServer, Gateway, Silent

SCRIPT_FOLDER = "/etc/wan_detect"
IN_LOOP = ("Debug", "main", "Wan detect start uloop!!!!!!")
LINKED = ("Info", "wan_detect_process_link_change", "Device eth0 link status change to up!")
NO_LINK = ("Debug", "main", "No device has plugged in, Waiting & check after 2s!")
NO_PROTOCOLS = ("Critical", "main", "init_all_protocols failed!")
NO_DEVICES = ("Critical", "main", "init_all_eth_device failed!")
NO_ATTRIBUTES = ("Error", "init_all_eth_device", "get_eth_atrribute failed, or no attribute successfully parse!")
LINES_REAL_S = 20.0


def use_static(mine):
    mine.set_wan_type("static")
    mine.protocol["static"].update(NETWORK)
    mine.switch["wan"]["switch_port"] = "port3"


def use_fake_wan(mine):
    mine.network["auto_wan_detect"]["fake_wan_port"] = "4"
    mine.switch["wan"]["switch_port"] = "port3"


def use_combo(mine):
    mine.switch["wan"]["switch_port"] = "port5"


@dataclass
class Case:
    taken: object           # a context manager made of the router, in which the thing is missing
    says: list              # (level, function, beginning of the text), each of which must come
    fatal: bool = False
    never: tuple = ()       # texts that must not come
    prints: str = ""        # what must stand in the log or in the output besides


def error(function, text):
    return ("Error", function, text)


def debug(function, text):
    return ("Debug", function, text)


AUTO = "network.auto_wan_detect"
NO_BUS = [("Critical", "wan_detect_ubus_init", "ubus connect fail!"), ("Critical", "main", "ubus")]
NO_PROTOCOL_PACKAGE = [error("init_all_protocols", "Unable to load uci protocol!"), NO_PROTOCOLS]
NO_NETWORK_PACKAGE = [error("generate_eth_device", "Unable to load uci network!"),
                      error("init_all_eth_device", "Parse network devices fail!"), NO_DEVICES]
NO_SWITCH_PACKAGE = [error("get_eth_atrribute", "Unable to load uci switch!"), NO_ATTRIBUTES, NO_DEVICES]
NO_MODE = error("get_is_router_mode", "Unable to get sysmode.sysmode.mode, treat it as router!")
NO_PRIORITY = error("init_all_protocols",
                    f"Unable to get {AUTO}.proto_priority, treat it as \"pppoe dhcp static\"!")
NO_FAKE_WAN = [("Warning", "init_fake_wan_device", f"Get {AUTO}.fake_wan_port failed!"),
               ("Info", "main", "init_fake_wan_device failed!")]
NO_ENABLE = error("get_wan_detect_enable", f"Unable to get {AUTO}.enable, treat it as off!")
NO_POOL = ("Info", "generate_eth_device",
           "Parse network devices success, count:5, lan_dev count:0, wan_port_pool count:0")
NO_TYPE = error("update_wan_ipv4_protocol", "get_ipv4_conntype failed!")
NO_WAN = [error("get_wan_device_name", "switch.wan.switch_port="),
          error("update_wan_device", "get_wan_device_name failed!"), NO_LINK]
STATES, COMBO_STATES = f"{SCRIPT_FOLDER}/get_all_port_state.sh", f"{SCRIPT_FOLDER}/get_combo_state.sh"
CYCLE = "Entering function: uloop_init_wan_detect_all"

CASES = {
    # --- the bus
    "the bus's socket": Case(lambda _: moved(SOCKET), NO_BUS, fatal=True),
    "anybody at the bus's socket": Case(lambda _: deaf_socket(), NO_BUS, fatal=True),
    "the network manager": Case(without_manager, [
        error("get_network_status",
              "Failed to run ubus call network.interface status '{\"interface\":\"wan\"}'"), IN_LOOP]),
    # --- packages
    "the package protocol": Case(no_package("protocol"), NO_PROTOCOL_PACKAGE, fatal=True),
    "the package network": Case(no_package("network"), NO_NETWORK_PACKAGE, fatal=True),
    "the package switch": Case(no_package("switch"), NO_SWITCH_PACKAGE, fatal=True),
    "the package sysmode": Case(no_package("sysmode"), [NO_MODE, IN_LOOP]),
    "every package": Case(lambda _: moved(config.FOLDER), NO_PROTOCOL_PACKAGE, fatal=True),
    "sense in the package protocol": Case(broken("protocol"), NO_PROTOCOL_PACKAGE, fatal=True),
    "sense in the package network": Case(broken("network"), NO_NETWORK_PACKAGE, fatal=True),
    "sense in the package switch": Case(broken("switch"), NO_SWITCH_PACKAGE, fatal=True),
    "sense in the package sysmode": Case(broken("sysmode"), [NO_MODE, LINKED]),
    # --- sections and options
    "devices in network": Case(no_sections_of("network", "device"), [
        error("get_eth_atrribute", "Can't find device eth0"), NO_ATTRIBUTES, NO_DEVICES], fatal=True),
    "ports in switch": Case(no_sections_of("switch", "switch_port"), [
        error("generate_eth_device", "Unable to get switch.port1.ifname, skip it!!"), NO_ATTRIBUTES,
        NO_DEVICES], fatal=True),
    "protocol.ipv4": Case(no_section("protocol", "ipv4"), [
        error("init_all_protocols", "Unable to get uci protocol.ipv4"),
        error("find_protocol", "Invalid proto_hashmap_head input!"), IN_LOOP]),
    "protocol.ipv4.protos": Case(no_option("protocol", "ipv4", "protos"), [
        error("init_all_protocols", "Unable to get uci protocol.ipv4.protos"), IN_LOOP]),
    "protocol.ipv6": Case(no_section("protocol", "ipv6"), [
        error("init_all_protocols", "Unable to get uci protocol.ipv6"), LINKED]),
    "protocol.ipv6.protos": Case(no_option("protocol", "ipv6", "protos"), [
        error("init_all_protocols", "Unable to get uci protocol.ipv6.protos"), LINKED]),
    "protocol.static": Case(lambda router: with_line(router, changed(router, lambda mine: (
        use_static(mine), mine.protocol.pop("static")))), [
            debug("update_static_protocol_ip_config",
                  "get secondary static ip info for static, ip:0.0.0.0, gateway:0.0.0.0, dns:0.0.0.0"), IN_LOOP]),
    AUTO: Case(no_section("network", "auto_wan_detect"), [
        NO_PRIORITY, NO_POOL, *NO_FAKE_WAN, NO_ENABLE, IN_LOOP], never=(CYCLE,)),
    f"{AUTO}.enable": Case(no_option("network", "auto_wan_detect", "enable"), [NO_ENABLE, IN_LOOP], never=(CYCLE,)),
    f"{AUTO}.wan_port_priority": Case(no_option("network", "auto_wan_detect", "wan_port_priority"), [
        debug("generate_eth_device", "allowed wan device:eth0 parse success!"), LINKED], never=("(priority:1)",)),
    f"{AUTO}.wan_port_pool": Case(no_option("network", "auto_wan_detect", "wan_port_pool"), [NO_POOL, LINKED],
                                  never=("allowed wan device",)),
    f"{AUTO}.proto_priority": Case(no_option("network", "auto_wan_detect", "proto_priority"), [
        NO_PRIORITY, debug("init_all_protocols", "Parse pppoe protocol priority=1"),
        debug("init_all_protocols", "Parse static protocol priority=3"), LINKED]),
    f"{AUTO}.fake_wan_port": Case(no_option("network", "auto_wan_detect", "fake_wan_port"), [*NO_FAKE_WAN, LINKED]),
    f"{AUTO}.wan_combo_first_priority": Case(no_option("network", "auto_wan_detect", "wan_combo_first_priority"), [
        error("wan_combo_auto_switch", f"Unable to get {AUTO}.wan_combo_first_priority, treat it as phy!"), IN_LOOP]),
    "network.wan": Case(no_section("network", "wan"), [NO_TYPE, IN_LOOP]),
    "network.wan.wan_type": Case(no_option("network", "wan", "wan_type"), [
        debug("update_wan_ipv4_protocol", "get wan device: eth0 using conntype: dhcp"), IN_LOOP]),
    "network.wan.wan_type and .proto": Case(no_option("network", "wan", "wan_type", "proto"), [NO_TYPE, IN_LOOP]),
    "switch.wan": Case(no_section("switch", "wan"), NO_WAN),
    "switch.wan.switch_port": Case(no_option("switch", "wan", "switch_port"), NO_WAN),
    "the WAN port's section": Case(no_section("switch", "port1"), [
        error("generate_eth_device", "Unable to get switch.port1.ifname, skip it!!"),
        error("get_wan_device_name", "switch.port1.ifname=, or not begin with \"eth\""), NO_LINK]),
    "the WAN port among the devices": Case(no_section("network", "eth0"), [
        error("get_eth_atrribute", "Can't find device eth0"),
        error("update_wan_device", "Can't find the device:eth0 in hash list!"), NO_LINK]),
    "a port's section": Case(no_section("switch", "port3"), [
        error("generate_eth_device", "Unable to get switch.port3.ifname, skip it!!"), LINKED]),
    "switch.lan_agg": Case(no_section("switch", "lan_agg"), [
        ("Info", "update_lan_agg_port", "Parse lan_agg devices success"), IN_LOOP]),
    # --- scripts and commands
    "the port states": Case(lambda _: moved(STATES), [
        error("update_eth_link_status_using_script", f"Execute command:{STATES} error!"), NO_LINK,
        ("Info", "main", "No device plugged in in 60s, Waiting for another 15s before starting main!"), IN_LOOP,
        error("update_eth_link_status_trigger", f"Execute command:{STATES} error!")]),
    "the combo states": Case(lambda router: with_line(router, moved(COMBO_STATES), use_combo, "eth4/phy"), [
        IN_LOOP, error("update_combo_device_status", f"Execute command:{COMBO_STATES} port5 error!")]),
    "the swap command": Case(lambda router: with_line(router, moved("/usr/sbin/network_lanwan_swap")), [
        debug("switch_wan_to_dev", "wan_detect:Switching wan dev to eth2 execute:network_lanwan_swap set port3!"),
        ("Info", "uloop_wan_detect_end", "Wan Detection over!"),
        ("Info", "uloop_start_wan_detect", "Start to detect in 2 device(s)")]),
    "the rebuild command": Case(lambda router: with_line(router, moved(RELOAD), use_fake_wan), [
        debug("wan_detect_remove_fake_wan", f"Set fake_wan_dev=null, {AUTO}.fake_wan_port=-1."), IN_LOOP]),
    "the online test": Case(lambda router: with_line(router, moved("/usr/sbin/online-test"), use_static), [
        error("check_online", "online-test failed, try again!!"),
        debug("get_network_status", "Get network status return: poor connected"), IN_LOOP]),
    # --- the system
    "the shell": Case(lambda _: covered("/bin/sh", no_program()), [debug("main", "init over"), NO_LINK],
                      prints="popen faild. (13, Permission denied)"),
    "/dev/console": Case(lambda _: devices_without_console(), [debug("main", "init over"), LINKED]),
    "br-lan": Case(lambda router: with_line(router, without_bridge()), [
        IN_LOOP, error("update_brlan_dev", "Couldn't get br-lan ip, netmask, mac!")]),
    "the WAN port's interface": Case(lambda _: without_interface("eth0"), [
        error("update_eth_link_status_using_script", "Invalid device state for:eth0! Response:"), NO_LINK]),
    "a bridge port's interface": Case(lambda _: without_interface("eth3"), [
        error("update_eth_link_status_using_script", "Invalid device state for:eth3! Response:"), IN_LOOP]),
}
WITHOUT_TMP = Case(None, [("Debug", "main", "init over"), IN_LOOP,
                          error("write_wan_detect_result_file", "File:/tmp/wan_detect_result Open Failed !"),
                          ("Info", "uloop_wan_detect_end", "Wan Detection over!")])


class LifeWithoutTmp(Life):
    """Finds a /tmp that is empty and cannot be written to."""

    def __init__(self, *arguments, router, **options):
        self.console, self.past = router.console, len(router.console)
        super().__init__(*arguments, **options)

    def start(self, command, **options):
        mount("-t", "tmpfs", "-o", "ro", "tmpfs", "/tmp")
        return super().start(command, **options)

    def lines(self):
        found = (LINE.search(line) for line in self.console[self.past:])
        return [[line.group(1), line.group(3), line.group(5)] for line in found if line]


class Missing(LifeScenario):
    name = "missing"
    rank = 60
    summary = "the daemon started with one thing missing: bus, packages, sections, options, scripts, ports"
    story = """
        Each time the daemon is started, something that it needs is not there. It must say so in the words that are
        known, and either end with status 0 or go on, as far as it goes.
    """
    cables = {"eth0": Silent()}
    combo = {"eth4": "phy"}

    def play(self, stage):
        both = Together(DhcpServer(), Gateway(NETWORK["gateway"], dns=False), title="DHCP")
        stage.router.attach("eth2", both, plugged=False)
        stage.router.attach("eth4/phy", DhcpServer(), plugged=False)
        super().play(stage)

    def lives(self):
        return {title: lambda router, case=case: self.live_without(router, case) for title, case in CASES.items()} | {
            "a /tmp that can be written to": self.live_without_tmp}

    @staticmethod
    def live_without(router, case):
        with case.taken(router):
            life = Life(*DEBUG, clock=router.clock)
            for _, _, text in case.says:
                life.said(text, LINES_REAL_S)
            if not case.fatal:
                life.signal()
            ended = life.end(END_REAL_S)
        return ended | {"text": ended["output"] + LOG.read_text(errors="replace")} if case.prints else ended

    @staticmethod
    def live_without_tmp(router):
        """The log goes to the console then, and no result file can be made."""
        with connected(router, lambda mine: mine.switch["wan"].update(switch_port="port3"), "eth2"):
            life = LifeWithoutTmp(*DEBUG, clock=router.clock, router=router)
            life.said(IN_LOOP[2], LINES_REAL_S)
            router.bus.call("wan_detect", "wan_detect")
            life.said("Wan Detection over!", LINES_REAL_S)
            life.signal()
            ended = life.end(END_REAL_S)
            unmount("/tmp")
            return ended | {"result": WAN_RESULT.exists()}

    def judge(self, stage):
        for title, life in stage.facts["lives"].items():
            said = [(level, function, body) for level, function, body in life["lines"]]
            case = CASES.get(title, WITHOUT_TMP)
            absent = [wanted for wanted in case.says if not any(
                line[:2] == wanted[:2] and line[2].startswith(wanted[2]) for line in said)]
            stage.check(f"without {title}: it says what it must", not absent, absent)
            never = [text for text in (*case.never, *(["Wan detect start uloop"] if case.fatal else []))
                     if any(text in body for _, _, body in said)]
            stage.check(f"without {title}: it says nothing else", not never, never)
            if case.prints:
                stage.check(f"without {title}: {case.prints}", case.prints in life["text"])
            stage.check(f"without {title}: it ends with status 0, and alone",
                        (life["first_status"], life["status"], life["left"]) == (0, 0, []),
                        [life["status"], life["left"]])
        super().judge(stage)
