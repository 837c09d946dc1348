# SPDX-License-Identifier: MIT
"""What may be behind a port: real DHCP, DNS and PPPoE servers, gateways, or nothing that answers."""
import subprocess
import time
from pathlib import Path

from lab.mounts import STATE
from lab.network import FAR_END, inside, make_line

READY_TRIES = 300
READY_PAUSE_REAL_S = 0.01
PLAIN_DNSMASQ = ["--keep-in-foreground", "--user=root", "--conf-file=/dev/null", "--pid-file=", "--log-facility=-",
                 "--no-resolv", "--no-hosts"]
# It gives groups up, which a plain user's namespace does not let it do; so there it keeps what it is.
KEEP_GROUPS = ["--no-daemon"]
BEYOND = "beyond"    # a gateway's way to the server behind it
ANY_NAME = "--address=/#/192.0.2.10"


def dnsmasq():
    may_give_up = Path("/proc/self/setgroups").read_text().strip() == "allow"
    return ["dnsmasq", *PLAIN_DNSMASQ, *([] if may_give_up else KEEP_GROUPS)]


def wait_until_ready(line, process, socket_list, pattern):
    """Waits until `pattern` shows in the namespace's socket list; a server that ends instead is an error."""
    for _ in range(READY_TRIES):
        listing = subprocess.run(["nsenter", f"--net=/run/netns/{line.namespace}", "cat", socket_list],
                                 capture_output=True, text=True, check=True).stdout
        if pattern in listing:
            return
        if process.poll() is not None:
            break
        time.sleep(READY_PAUSE_REAL_S)
    raise RuntimeError(f"{process.args[2]} behind {line.namespace} did not come up, see {STATE}")


class Silent:
    """A cable to something that never answers, such as a switched-off modem."""
    title = "silent device"

    def attach(self, line, port_number, clock):
        """Starts what is behind the line; the cable itself is plugged separately."""


class DhcpServer(Silent):
    """dnsmasq with DHCP and DNS on a subnet of the port's own; `ping_first` keeps its check for an address in use."""
    title = "DHCP server"
    interface = FAR_END

    def __init__(self, ping_first=False, dns=True):
        self.ping_first = ping_first
        self.dns = dns

    def attach(self, line, port_number, clock):
        subnet = f"10.10.{port_number}"
        line.ip("address", "add", f"{subnet}.1/24", "dev", self.interface)
        # Only the check for an address in use depends on time; without it the server may live in real time.
        process = line.start(self.command(subnet), STATE / f"dnsmasq-{port_number}.log",
                             clock.environment() if self.ping_first else None)
        wait_until_ready(line, process, "/proc/net/udp", ":0043 ")

    def command(self, subnet):
        command = [*dnsmasq(), "--log-dhcp", "--leasefile-ro", "--dhcp-authoritative",
                   f"--interface={self.interface}", "--bind-dynamic", f"--dhcp-range={subnet}.100,{subnet}.200,1h"]
        command += [ANY_NAME] if self.dns else ["--port=0", f"--dhcp-option=6,{subnet}.1"]
        return command if self.ping_first else command + ["--no-ping"]


class PppoeServer(Silent):
    title = "PPPoE server"

    def attach(self, line, port_number, clock):
        process = line.start(["pppoe-server", "-F", "-I", FAR_END, "-C", f"lab-{port_number}"],
                             STATE / f"pppoe-server-{port_number}.log")
        wait_until_ready(line, process, "/proc/net/packet", " 8863 ")


class Gateway(Silent):
    """A gateway that offers nothing: it answers ARP, and names unless `dns` is off. `remote_dns` is the address of a name
    server in another network, to which it is the way. A `strict` one answers only who asks with an address that it would
    send to through the same line."""
    title = "gateway"

    def __init__(self, address, dns=True, remote_dns=None, strict=False):
        self.address = address
        self.dns = dns
        self.remote_dns = remote_dns
        self.strict = strict

    def attach(self, line, port_number, clock):
        line.ip("address", "add", f"{self.address}/24", "dev", FAR_END)
        if self.strict:
            check_senders(line)
        if self.remote_dns:
            self.make_remote_server(line, port_number)
        elif self.dns:
            serve_names(line, FAR_END, port_number)

    def make_remote_server(self, line, port_number):
        """A name server behind the gateway: an address of a network that the port is not in."""
        with inside(line.namespace):
            Path("/proc/sys/net/ipv4/ip_forward").write_text("1")
        server = make_line(f"dns-{port_number}", BEYOND, line.namespace)
        network = self.remote_dns.rpartition(".")[0]
        line.ip("address", "add", f"{network}.1/24", "dev", BEYOND)
        server.plug()
        server.ip("address", "add", f"{self.remote_dns}/24", "dev", FAR_END)
        server.ip("route", "add", "default", "via", f"{network}.1")
        if self.strict:    # the rest of the world, the router's LAN included, is beyond
            line.ip("route", "add", "default", "via", self.remote_dns)
        serve_names(server, FAR_END, port_number)


def check_senders(line):
    """Switches the strict reverse path filter on, which holds for ARP requests as well."""
    with inside(line.namespace):
        for scope in ("all", FAR_END):
            Path(f"/proc/sys/net/ipv4/conf/{scope}/rp_filter").write_text("1")


def serve_names(line, interface, number):
    """Starts a server that knows every name."""
    process = line.start([*dnsmasq(), f"--interface={interface}", "--bind-dynamic", ANY_NAME],
                         STATE / f"dnsmasq-{number}.log")
    wait_until_ready(line, process, "/proc/net/udp", ":0035 ")
