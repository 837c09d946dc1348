# SPDX-License-Identifier: MIT
"""What may be behind a port: real DHCP, DNS and PPPoE servers, hosts of the LAN, or nothing that answers."""
import subprocess
import threading
import time

from lab.arp import ask_for_address
from lab.mounts import STATE
from lab.network import FAR_END, inside

READY_TRIES = 300
READY_PAUSE_REAL_S = 0.01
ROUTER_ADDRESS = "192.168.1.1"
HOST_PERIOD_REAL_S = 0.2
PLAIN_DNSMASQ = ["--keep-in-foreground", "--user=root", "--conf-file=/dev/null", "--pid-file=", "--log-facility=-",
                 "--no-resolv", "--no-hosts"]
ANY_NAME = "--address=/#/192.0.2.10"


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

    def __init__(self, ping_first=False, dns=True):
        self.ping_first = ping_first
        self.dns = dns

    def attach(self, line, port_number, clock):
        subnet = f"10.10.{port_number}"
        line.ip("address", "add", f"{subnet}.1/24", "dev", FAR_END)
        # Only the check for an address in use depends on time; without it the server may live in real time.
        process = line.start(self.command(subnet), STATE / f"dnsmasq-{port_number}.log",
                             clock.environment() if self.ping_first else None)
        wait_until_ready(line, process, "/proc/net/udp", ":0043 ")

    def command(self, subnet):
        command = ["dnsmasq", *PLAIN_DNSMASQ, "--log-dhcp", "--leasefile-ro", "--dhcp-authoritative",
                   f"--interface={FAR_END}", "--bind-dynamic", f"--dhcp-range={subnet}.100,{subnet}.200,1h"]
        command += [ANY_NAME] if self.dns else ["--port=0", f"--dhcp-option=6,{subnet}.1"]
        return command if self.ping_first else command + ["--no-ping"]


class PppoeServer(Silent):
    title = "PPPoE server"

    def attach(self, line, port_number, clock):
        process = line.start(["pppoe-server", "-F", "-I", FAR_END, "-C", f"lab-{port_number}"],
                             STATE / f"pppoe-server-{port_number}.log")
        wait_until_ready(line, process, "/proc/net/packet", " 8863 ")


class Gateway(Silent):
    """A gateway that offers nothing: it answers ARP, and names unless `dns` is off."""
    title = "gateway"

    def __init__(self, address, dns=True):
        self.address = address
        self.dns = dns

    def attach(self, line, port_number, clock):
        line.ip("address", "add", f"{self.address}/24", "dev", FAR_END)
        if self.dns:
            process = line.start(["dnsmasq", *PLAIN_DNSMASQ, f"--interface={FAR_END}", "--bind-dynamic", ANY_NAME],
                                 STATE / f"dnsmasq-{port_number}.log")
            wait_until_ready(line, process, "/proc/net/udp", ":0035 ")


class LanHost(Silent):
    """A host with an address of the LAN's subnet, so that the router's ARP cache and its bridge get to know it."""
    title = "LAN host"

    def attach(self, line, port_number, clock):
        own_address = f"192.168.1.{100 + port_number}"
        line.ip("address", "add", f"{own_address}/24", "dev", FAR_END)
        threading.Thread(target=talk_to_router, args=(line, own_address), daemon=True).start()


def talk_to_router(line, own_address):
    """Body of a host's thread: asks for the router as long as the cable is plugged."""
    with inside(line.namespace):
        while True:
            if line.plugged:
                ask_for_address(FAR_END, ROUTER_ADDRESS, own_address, HOST_PERIOD_REAL_S)
            time.sleep(HOST_PERIOD_REAL_S)
