# SPDX-License-Identifier: MIT
"""Output of the router's commands, configuration files and waiting changes."""
from seeds.store import GOLDEN, LARGEST_SEED, save


def command_outputs():
    save("port_state", "usual", '{"eth0":true,"eth1":false,"eth2":true}\n')
    save("port_state", "port_missing", '{"eth0":true}')
    save("port_state", "numbers_and_texts", '{"eth0":1,"eth1":"up","eth2":null}')
    save("port_state", "nested", '{"eth0":{"a":[1,2]},"eth1":[],"eth2":1.5e300}')
    save("port_state", "list", "[true,false]")
    save("port_state", "cut", '{"eth0":true,"eth1":fal')
    save("port_state", "longer_than_the_buffer", '{"eth0":true,"x":"' + "y" * 600 + '"}')
    save("combo_state", "copper", '{"phy":true,"sfp":false,"serdes":"phy"}\n')
    save("combo_state", "fibre", '{"phy":false,"sfp":true,"serdes":"sfp"}\n')
    save("combo_state", "null_side", '{"phy":null,"sfp":"","serdes":null}')
    save("combo_state", "number_as_side", '{"phy":0,"sfp":1,"serdes":7}')
    save("combo_state", "nothing", "{}")
    save("combo_state", "longer_than_the_buffer", '{"phy":true,"sfp":true,"serdes":"' + "s" * 200 + '"}')


# Configuration

NETWORK = """config device
\toption name 'eth0'

config device
\toption name 'eth1'

config auto_wan_detect 'auto_wan_detect'
\toption enable 'on'
\toption wan_port_priority '1 2'
\toption wan_port_pool '1 2'
\toption proto_priority 'dhcp pppoe'
\toption fake_wan_port '1'
\toption wan_combo_first_priority 'sfp'

config interface 'wan'
\toption wan_type 'dhcp'
"""
SWITCH = """config switch_port 'port1'
\toption port '1'
\toption ifname 'eth0'
\toption label 'LAN1'

config switch_port 'port2'
\toption port '2'
\toption ifname 'eth1'
\toption label 'LAN2'
\toption type 'combo'
\toption wan_port 'sfp'
\toption addr '7'

config wan 'wan'
\toption switch_port 'port2'

config gaming 'gaming'
\toption switch_port 'port1'

config lan_agg 'lan_agg'
\toption enable_agg 'on'
\toption lanport 'LAN1 LAN2'
\toption lacpports '1 2'
"""
PROTOCOL = """config family 'ipv4'
\tlist protos 'dhcp'
\tlist protos 'pppoe'
\tlist protos 'static'

config family 'ipv6'
\tlist protos 'dhcpv6'

config proto 'static'
\toption ipaddr '192.0.2.2'
\toption gateway '192.0.2.1'
\toption pri_dns '192.0.2.53'

config proto 'pppoe'
\toption snd_conn 'static'
\toption static_ip '192.0.2.3'
\toption static_pridns '192.0.2.54'
"""
SYSMODE = "config sysmode 'sysmode'\n\toption mode 'router'\n"


def files(network=NETWORK, switch=SWITCH, protocol=PROTOCOL, sysmode=SYSMODE):
    return "\n%%\n".join([network, switch, protocol, sysmode])


# The order of the values in config_values_fuzz.cpp.
VALUES = (
    "device0 device1 device2 priority pool proto_priority fake_wan enable combo wan_type proto carrier "
    "port0 ifname0 label0 port1 ifname1 label1 type1 side1 addr1 port2 ifname2 label2 wan gaming "
    "agg lan_ports members ipv4_0 ipv4_1 ipv4_2 ipv4_3 ipv6 static_ip static_gateway static_dns "
    "pppoe_secondary pppoe_ip pppoe_dns pppoe_dns_mode l2tp_secondary l2tp_ip l2tp_gateway l2tp_dns mode"
).split()


def values(**changed):
    assert set(changed) <= set(VALUES)
    return "\n".join(changed.get(name, "=") for name in VALUES)


def configurations():
    save("config_files", "usual", files())
    save("config_files", "static_wan", files(network=NETWORK.replace("'dhcp'\n", "'static'\n")))
    save(
        "config_files", "pppoe_over_static", files(network=NETWORK.replace("wan_type 'dhcp'", "wan_type 'pppoeshare'"))
    )
    save("config_files", "lists_as_options", files(switch=SWITCH.replace("option", "list")))
    save("config_files", "options_as_lists", files(protocol=PROTOCOL.replace("list", "option")))
    save("config_files", "nothing_but_network", files(switch="", protocol="", sysmode=""))
    save("config_files", "broken_switch", files(switch=SWITCH.replace("'port2'", "'port2")))
    save(
        "config_files",
        "seventeen_devices",
        files(network="".join(f"config device\n\toption name 'eth{i}'\n" for i in range(17))),
    )
    save("config_values", "usual", values())
    save("config_values", "long_names", values(device0="eth" + "0" * 80, ifname0="eth" + "0" * 80, label0="L" * 300))
    save("config_values", "many_priorities", values(priority=" ".join("123" * 8), pool=" ".join("321" * 8)))
    save(
        "config_values", "strange_numbers", values(port0="-129", port1="99999999999999999999", addr1="0x7", port2=" 3")
    )
    save("config_values", "members_beyond_the_list", values(members="0 1 17 -3 a  2"))
    save("config_values", "aggregation_off", values(agg="off"))
    save("config_values", "static_wan", values(wan_type="static", static_ip="1.2.3", static_dns="255.255.255.255"))
    save("config_values", "carrier_4", values(wan_type="v6plus", ipv4_3="ocn"))
    save("config_values", "proto_only", values(wan_type="", proto="static"))
    save("config_values", "tunnel", values(wan_type="l2tp", l2tp_ip="x"))
    save("config_values", "dynamic_dns", values(pppoe_dns_mode="auto"))
    save("config_values", "no_fake_port", values(fake_wan="-1", enable="off", mode="ap", combo="both"))
    save("config_values", "format_letters", values(device0="%s%n%d", label1="%n", proto_priority="%s %s %n"))


def golden_texts():
    for case in sorted((GOLDEN / "uci").iterdir()):
        for path in sorted(case.glob("in/*")):
            text = path.read_bytes()
            if path.is_file() and len(text) <= LARGEST_SEED:
                save("config_parser", f"{case.name}_{path.name}", b"\0" + text)
        if (case / "in" / "net").is_file() and (case / "delta.txt").is_file():
            delta = (case / "delta.txt").read_bytes()
            if len(delta) <= LARGEST_SEED:
                save("config_delta", case.name, (case / "in" / "net").read_bytes() + b"\n%%\n" + delta)


def config_texts():
    golden_texts()
    save(
        "config_parser",
        "many_packages",
        "\2package a\nconfig t 'x'\n\toption o '1'\npackage b\nconfig t\n\tlist l '1'\n",
    )
    save("config_parser", "lenient", "\1config t\n\tnonsense\n\toption a 'b' c\n\toption d e\n")
    save("config_parser", "as_edits", "\4config t 'x'\n\toption a '1'\n\tlist l '1'\n\tlist l '2'\n")
    config = "config interface 'lan'\n\toption proto 'static'\n\tlist dns '1'\n\nconfig rule\n\toption name 'first'\n"
    for name, delta in {
        "every_change": "net.lan.proto='dhcp'\n-net.lan.proto\n|net.lan.dns='2'\n~net.lan.dns='1'\n+net.x='rule'\n"
        "@net.lan='lan2'\n^net.lan2='3'\nnet.new='type'\n-net.new\n",
        "cut_in_the_middle": "net.lan.proto='dhcp'\n-net.lan.pro",
        "unterminated_quote": "net.lan.proto='dhcp\n-net.lan\n",
        "value_over_lines": "net.lan.proto='a\nb\nc'\nnet.lan.x=\"y\\\nz\"\n",
        "other_package": "other.lan.proto='dhcp'\nnet.lan\nnet\n\n# comment\n",
        "item_by_number": "-net.lan.dns='0'\n-net.lan.dns='7'\n",
    }.items():
        save("config_delta", name, config + "\n%%\n" + delta)
    for name, lines in {
        "set_and_delete": "snet.lan.ipaddr=192.0.2.2\nsnet.lan.new=1\ndnet.lan.dns\nsnet.wan=interface\ndnet.lan",
        "by_index": "snet.@rule[0].name=x\nsnet.@rule[-1].name=y\nsnet.@[1].z=1\ndnet.@rule[5]\nsnet.@interface[].a=b",
        "lists": "anet.lan.dns=3\nlnet.lan.dns=1\nanet.lan.ipaddr=x\ndnet.lan.dns=0\ndnet.lan.dns=-1",
        "rename_and_reorder": "rnet.lan=lan2\nrnet.lan2.ipaddr=ip\nonet.lan2=2\nonet.@rule[0]=0\nnnet=rule",
        "other_places": "snet\nsother.a.b=c\ns/nowhere/net.a.b=c\ns\nsnet.=x\nsnet..x=1",
    }.items():
        save("config_path", name, lines)


def batches():
    config = "config interface 'lan'\n\toption proto 'static'\n\tlist dns '1'\n\nconfig rule\n\toption name 'first'\n"
    everything = (
        "set net.lan.proto='dhcp'\nset net.lan.x=\"a b\"\nget net.lan.proto\nget net.@rule[0].name\nadd net rule\n"
        "add_list net.lan.dns='2'\ndel_list net.lan.dns=1\nrename net.lan=lan2\nreorder net.lan2=1\nshow net\n"
        "changes\nexport net\nrevert net.lan2.x\ndelete net.@rule[-1]\ncommit net\nshow\nchanges net\n"
    )
    save("config_batch", "every_command", b"\0" + (config + "\n%%\n" + everything).encode())
    save("config_batch", "changes_are_kept", b"\x20" + (config + "\n%%\n" + everything).encode())
    save("config_batch", "real_names", b"\x04" + (config + "\n%%\n" + "show\nshow net.@rule[0]\nexport\n").encode())
    save(
        "config_batch",
        "wrong_commands",
        b"\0" + (config + "\n%%\n" + "nonsense\nset\nset a b c d\nset 'net.lan\nget net.none\n# comment\n").encode(),
    )
    save("config_batch", "import", b"\1" + (config + "\n%%\n" + SWITCH).encode())
    save("config_batch", "import_and_merge", b"\3" + (config + "\n%%\n" + config.replace("static", "dhcp")).encode())
    save("config_batch", "lenient_import", b"\x09" + (config + "\n%%\n" + "config t\n\tnonsense\n").encode())


def command_lines():
    save("options", "none", "wan_detect")
    save("options", "level", "wan_detect\n-d\n7")
    save("options", "long_level", "wan_detect\n--debug=3\n-d8\n-d\n-1")
    save("options", "help", "wan_detect\n--help")
    save("options", "unknown", "wan_detect\n-x\n--nothing")
    save("options", "missing_argument", "wan_detect\n-d")
    save("options", "quotes", "it's\n-d\n'; reboot '\n-d" + "'" * 600)


def make():
    command_outputs()
    configurations()
    config_texts()
    batches()
    command_lines()
