# SPDX-License-Identifier: MIT
"""System calls that fail: each of them for a while in one life, and each single one of a life's calls."""
from dataclasses import dataclass

from lab.bus import uci
from lab.daemon import LOG
from lab.faults import UNLIMITED
from lab.lan import LanHost, Together
from lab.refused import LONGEST_CALL_REAL_S, LONGEST_CYCLE_REAL_S, Trial, ask_for_cycle
from lab.scenarios.refused import BROKEN, WENT_ON, Refused
from lab.scenarios.static import GATEWAY, NETWORK
from lab.upstream import DhcpServer, Gateway, PppoeServer, Silent

HIGHEST, CLOSED = 7, -1    # levels
NO_DEVICE, NO_ROOM, FORBIDDEN, TOO_MANY, LATER = "ENODEV", "ENOBUFS", "EPERM", "EMFILE", "EAGAIN"
BACK_REAL_S = 5.0


@dataclass
class Failure:
    """A call that fails in the cycles of one kind of connection, and the line that must tell of it."""
    kind: str
    call: str
    errors: tuple
    function: str    # "" for what is told without one
    text: str
    limit: int = UNLIMITED    # so many calls fail, then they work
    spare: int = 0            # so many work before
    meanwhile: str = "ask_for_cycle"    # how the call is brought about


FAILURES = [
    Failure("dhcp", "socket packet", (FORBIDDEN, TOO_MANY), "init_dhcp_sockfd", "Create DHCP request socket failed!"),
    Failure("dhcp", "socket packet", (NO_ROOM,), "send_dhcp_discovery_all", "Failed to init DHCP socket in dev:"),
    Failure("dhcp", "socket inet", (TOO_MANY, NO_ROOM), "send_dhcp_discovery_all", "Couldn't get br-lan ip, netmask, mac!"),
    Failure("dhcp", "socket inet", (TOO_MANY,), "update_brlan_dev", "Couldn't get br-lan ip, netmask, mac!"),
    Failure("dhcp", "ioctl", (NO_DEVICE, FORBIDDEN), "send_dhcp_discovery_all", "Couldn't get br-lan ip, netmask, mac!"),
    Failure("dhcp", "bind", (NO_DEVICE, FORBIDDEN), "send_dhcp_discovery_packet", "Error binding socket!"),
    Failure("dhcp", "sendto", (NO_ROOM, FORBIDDEN, NO_DEVICE), "send_dhcp_discovery_packet",
            "Error while writing to dhcp request socket, using device:"),
    Failure("dhcp", "recvfrom", (NO_ROOM,), "recv_dhcp_discovery_packet", "Cannot read from socket, try again! dev=", 3),
    Failure("dhcp", "epoll_ctl add", ("ENOSPC",), "remove_specific_proto_dev_from_list", "was detected after 3 times try!"),
    Failure("dhcp", "pipe2", (TOO_MANY,), "", "popen faild. (24, Too many open files)"),
    Failure("dhcp", "clone", (LATER,), "", "popen faild. (11, Resource temporarily unavailable)"),
    Failure("dhcp", "open", (TOO_MANY, FORBIDDEN), "update_wan_ipv4_protocol", "get_ipv4_conntype failed!"),
    Failure("dhcp", "fopen", (TOO_MANY,), "update_brlan_dev", "Failed to get arp table!"),
    Failure("dhcp", "mkostemp", (TOO_MANY,), "", "Open Failed !"),
    Failure("dhcp", "timer_create", (LATER,), "ubus_call_method", "Can't find network.interface"),
    Failure("dhcp", "sendmsg", ("EPIPE", NO_ROOM), "connection_lost", "ubus connection lost"),
    Failure("dhcp", "connect", (FORBIDDEN,), "connection_lost", "ubus connection lost", meanwhile="restart_bus"),
    Failure("dhcp", "socket unix", (TOO_MANY,), "connection_lost", "ubus connection lost", meanwhile="restart_bus"),
    Failure("dhcp", "epoll_ctl add", ("ENOMEM",), "connection_lost", "ubus connection lost", meanwhile="restart_bus"),
    # The first one watches for the bus daemon's greeting, the next one the connection itself.
    Failure("dhcp", "epoll_ctl add", ("ENOMEM",), "connection_lost", "ubus connection lost", 1, 1, "restart_bus"),
    Failure("dhcp", "timer_create", (LATER,), "connection_lost", "ubus connection lost", meanwhile="restart_bus"),
    Failure("dhcp", "open console", (NO_DEVICE,), "", "set debug level:7.", meanwhile="reopen_log"),
    Failure("dhcp", "pthread_create", (LATER,), "wan_detect_process_link_change",
            "pthread_create pid_delay_trigger_thread failed...ret=11, continue whatever!", meanwhile="plug_in_cycle"),
    Failure("dhcp", "setsockopt", (NO_DEVICE,), "dnslookup_init_fd", "dnslookup_init_fd bindtodevice in"),
    Failure("pppoe", "socket packet", (FORBIDDEN,), "init_pppoe_sockfd",
            "Cannot create raw socket -- pppoe must be run as root."),
    Failure("pppoe", "socket packet", (TOO_MANY,), "init_pppoe_sockfd", "Create pppoe request socket failed!"),
    Failure("pppoe", "setsockopt", (NO_ROOM,), "init_pppoe_sockfd", "setsockopt 'SO_BROADCAST' error!"),
    Failure("pppoe", "bind", (NO_DEVICE,), "send_pppoe_discovery_packet", "Error binding socket!"),
    Failure("pppoe", "sendto", (NO_ROOM,), "send_pppoe_discovery_packet",
            "Error while writing to pppoe discovery socket, using device:"),
    Failure("pppoe", "recvfrom", (NO_ROOM,), "recv_pppoe_discovery_packet", "Cannot read from socket, try again! dev=", 3),
    Failure("static", "socket packet", (TOO_MANY,), "init_arp_sockfd", "Create ARP socket for"),
    Failure("static", "setsockopt", (NO_DEVICE,), "init_arp_sockfd", "init_arp_sockfd bind to dev:"),
    Failure("static", "sendto", (NO_ROOM,), "send_arp_unicast_packet_blocked", "Error while sending arp socket to"),
    Failure("static", "socket inet", (NO_ROOM,), "find_target_ip_and_device_with_arp", "Couldn't get br-lan ip, netmask, mac!"),
]
WINNERS = {"dhcp": "eth2", "pppoe": "eth5", "static": "eth2"}
# What each call fails with where only one of a life's calls does.
CALLS = {"socket packet": NO_ROOM, "socket inet": TOO_MANY, "socket unix": TOO_MANY, "ioctl": NO_DEVICE, "bind": NO_DEVICE,
         "connect": "ECONNREFUSED", "setsockopt": NO_ROOM, "sendto": NO_ROOM, "recvfrom": NO_ROOM, "sendmsg": "EPIPE",
         "epoll_create1": TOO_MANY, "epoll_ctl add": "ENOSPC", "timer_create": LATER, "eventfd": TOO_MANY,
         "signalfd": TOO_MANY, "pipe2": TOO_MANY, "open": TOO_MANY, "fopen": TOO_MANY, "mkostemp": TOO_MANY, "clone": LATER,
         "pthread_create": LATER}
NEVER = 1 << 30    # so many calls work first


class FailingCalls(Refused):
    name = "failing-calls"
    rank = 85
    summary = "sockets, descriptors, timers, threads and programs refused for a while, one after the other (--option step=)"
    story = """
        In one life of the daemon one system call after the other fails for a while: those of the probes, of the bus, of
        programs, files and threads, with connections of every kind. Each time the daemon tells what failed; as soon as it
        works again, the next cycle finds the port.
    """
    port_count = 6
    cables = {"eth0": Silent(), "eth2": Together(DhcpServer(), Gateway(GATEWAY, dns=False), title="DHCP"), "eth3": LanHost(),
              "eth4": DhcpServer(dns=False), "eth5": PppoeServer()}
    trial = None

    def configure(self, config):
        config.protocol["static"].update(NETWORK)

    def lives(self, stage):
        self.page.clear()
        self.trial = Trial(stage.router, self.healthy, page=self.page)
        self.trial.is_up()
        self.trial.next_verdict()
        for failure in FAILURES[::int(stage.settings["options"].get("step", 1))]:
            for error in failure.errors:
                why = self.fails_for_a_while(stage, failure, error)
                self.note_life(stage, f"{failure.call} fails with {error} ({failure.kind}, {failure.text})",
                               BROKEN if why else WENT_ON, why, {"lines": self.trial.life.lines(), "output": ""})
                if self.trial.is_gone():
                    break
        self.connect_by(stage, "dhcp")
        _, done = self.trial.end()
        if self.trial.trouble:
            self.note_life(stage, "the life of all this", BROKEN, self.trial.trouble, done)

    def fails_for_a_while(self, stage, failure, error):
        """What was wrong about it."""
        trial, why = self.trial, []
        self.connect_by(stage, failure.kind)
        before = self.told(failure)
        self.page.fail(failure.call, error, failure.spare, failure.limit)
        getattr(self, failure.meanwhile)(stage)
        if not trial.wait(lambda: self.told(failure) > before, LONGEST_CYCLE_REAL_S):
            why.append("it told nothing of it")
        trial.look_for_spin()
        if not self.page.work_again(failure.call):
            why.append("nothing was refused")
        if not trial.wait(lambda: "wan_detect" in stage.router.bus.objects(), BACK_REAL_S):
            why.append("the object is not on the bus")
        elif not trial.recovers(lambda: True):
            why.append("the next cycle did not find the port")
        why += trial.trouble
        trial.trouble = []
        return why + (["it is gone"] if trial.is_gone() else [])

    def told(self, failure):
        """How often the line was told."""
        function = f"[{failure.function}:" if failure.function else ""
        return sum(function in line and failure.text in line for line in self.trial.log().splitlines())

    def connect_by(self, stage, kind):
        if uci("get", "network.wan.proto") == kind:
            return
        for option in ("proto", "wan_type"):
            uci("set", f"network.wan.{option}={kind}")
        uci("commit", "network")
        self.trial.winner = WINNERS[kind]

    # --- what brings the calls about -----------------------------------------------------------------------------------

    def ask_for_cycle(self, stage):
        ask_for_cycle()

    def restart_bus(self, stage):
        """The network manager's object does not come back with it: to the daemon it is not connected either way."""
        stage.router.bus.kill_broker()
        stage.router.bus.start_broker()
        self.trial.wait(lambda: any(slot.refused for slot in self.page.layout.slots), LONGEST_CALL_REAL_S)

    def reopen_log(self, stage):
        """Without its file the log is to go to the console, which cannot be opened."""
        stage.router.bus.call("wan_detect", "log", level=CLOSED)
        LOG.unlink()
        stage.router.bus.call("wan_detect", "log", level=HIGHEST)
        stage.router.bus.call("wan_detect", "log", level=CLOSED)
        LOG.write_bytes(b"")
        stage.router.bus.call("wan_detect", "log", level=HIGHEST)

    def plug_in_cycle(self, stage):
        """The bus tells of it at once, the scan of the links only after its pause."""
        begun = self.trial.log().count("using protocol detect")
        self.ask_for_cycle(stage)
        self.trial.wait(lambda: self.trial.log().count("using protocol detect") > begun, LONGEST_CYCLE_REAL_S)
        for up in (True, False):
            stage.router.bus.call("wan_detect", "hotplug", name="eth1", status=up)


class CallRefused(Refused):
    name = "call-refused"
    rank = 86
    summary = "a single system call refused in each of many lives (--option call=, first=, step=)"
    story = """
        The daemon is started again and again, and in each life another one of its system calls fails, once. It has to give
        up in the way that is described, or to go on and find the port in the next cycle.
    """

    def prepare_healthy_life(self):
        for call, error in CALLS.items():
            self.page.fail(call, error, spare=NEVER)

    def lives(self, stage):
        made = stage.note("calls", {call: self.page.slot(call).calls for call in CALLS})
        options = stage.settings["options"]
        calls = [options["call"]] if "call" in options else CALLS
        numbers = [(call, number) for call in calls for number in range(1, made[call] + 1)]
        for call, number in numbers[int(options.get("first", 1)) - 1::int(options.get("step", 1))]:
            outcome, why, done = self.one_life(
                stage, lambda: self.page.fail(call, CALLS[call], spare=number - 1, limit=1),
                lambda: self.page.slot(call).refused > 0)
            self.note_life(stage, f"{call} {number}", outcome, why, done)
