// SPDX-License-Identifier: MIT
#include "tests/support/router_config.h"

constexpr int NETWORK_PORTS = 5;

std::string option_line(const std::string &name, const std::string &value)
{
    std::string text = "\toption " + name + " '";
    for (char c : value)
        text += c == '\'' ? std::string("'\\''") : std::string(1, c);
    return text + "'\n";
}

std::string t_router_config::network() const
{
    std::string text;
    for (int i = 0; i < NETWORK_PORTS; i++)
        text += "config device\n" + option_line("name", "eth" + std::to_string(i));
    return text + "config auto_wan_detect 'auto_wan_detect'\n" + option_line("enable", "on") +
           option_line("fake_wan_port", fake_wan) + option_line("wan_port_priority", priority) +
           option_line("wan_port_pool", pool) + option_line("proto_priority", "pppoe dhcp static") +
           option_line("wan_combo_first_priority", preferred_side) + "config interface 'wan'\n" +
           option_line("proto", wan_type);
}

std::string t_router_config::protocol() const
{
    std::string text = "config family 'ipv4'\n";
    for (const char *name : {"dhcp", "pppoe", "static", "l2tp", "pptp", "ocn"})
        text += std::string("\tlist protos '") + name + "'\n";
    return text + "config family 'ipv6'\n\tlist protos 'dhcpv6'\n" + protocol_sections;
}

std::string switch_config(int ports, const std::string &wan_port, int combo_port)
{
    std::string text;
    for (int i = 0; i < ports; i++) {
        const std::string number = std::to_string(i);
        text += "config switch_port 'port" + number + "'\n" + option_line("port", number) +
                option_line("ifname", "eth" + number) + option_line("label", "LAN" + number) +
                option_line("wan_port", "phy");
        if (i == combo_port)
            text += option_line("type", "combo") + option_line("addr", "7");
    }
    return text + "config wan 'wan'\n" + option_line("switch_port", wan_port);
}
