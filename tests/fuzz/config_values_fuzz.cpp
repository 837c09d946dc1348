// SPDX-License-Identifier: MIT
// Every configuration value the daemon reads, as any text, in files that are sound otherwise. Each line of the input
// replaces one value, in the order of the files below; a line "=" leaves the usual one, and an empty line removes it.
#include <iterator>

#include "tests/fuzz/support/config_scene.h"
#include "tests/fuzz/support/fuzz.h"

namespace {

struct t_line {
    const char *keyword; // "config type 'name'", or "option name" and "list name", which have a value
    const char *usual;   // null for a section
};

constexpr t_line NETWORK[] = {
    {"config device", nullptr},
    {"option name", "eth0"},
    {"config device", nullptr},
    {"option name", "eth1"},
    {"config device", nullptr},
    {"option name", "eth2"},
    {"config auto_wan_detect 'auto_wan_detect'", nullptr},
    {"option wan_port_priority", "1 2 3"},
    {"option wan_port_pool", "1 2"},
    {"option proto_priority", "pppoe dhcp static"},
    {"option fake_wan_port", "2"},
    {"option enable", "on"},
    {"option wan_combo_first_priority", "sfp"},
    {"config interface 'wan'", nullptr},
    {"option wan_type", "pppoe"},
    {"option proto", "dhcp"},
    {"option carrier", "4"},
};
constexpr t_line SWITCH[] = {
    {"config switch_port 'port1'", nullptr},
    {"option port", "1"},
    {"option ifname", "eth0"},
    {"option label", "LAN1"},
    {"config switch_port 'port2'", nullptr},
    {"option port", "2"},
    {"option ifname", "eth1"},
    {"option label", "LAN2"},
    {"option type", "combo"},
    {"option wan_port", "sfp"},
    {"option addr", "7"},
    {"config switch_port 'port3'", nullptr},
    {"option port", "3"},
    {"option ifname", "eth2"},
    {"option label", "LAN3"},
    {"config wan 'wan'", nullptr},
    {"option switch_port", "port2"},
    {"config gaming 'gaming'", nullptr},
    {"option switch_port", "port1"},
    {"config lan_agg 'lan_agg'", nullptr},
    {"option enable_agg", "on"},
    {"option lanport", "LAN1 LAN2 LAN3"},
    {"option lacpports", "2 3"},
};
constexpr t_line PROTOCOL[] = {
    {"config family 'ipv4'", nullptr},
    {"list protos", "dhcp"},
    {"list protos", "pppoe"},
    {"list protos", "static"},
    {"list protos", "l2tp"},
    {"config family 'ipv6'", nullptr},
    {"list protos", "dhcpv6"},
    {"config proto 'static'", nullptr},
    {"option ipaddr", "192.0.2.2"},
    {"option gateway", "192.0.2.1"},
    {"option pri_dns", "192.0.2.53"},
    {"config proto 'pppoe'", nullptr},
    {"option snd_conn", "static"},
    {"option static_ip", "192.0.2.3"},
    {"option static_pridns", "192.0.2.54"},
    {"option dns_mode", ""},
    {"config proto 'l2tp'", nullptr},
    {"option snd_conn", "static"},
    {"option static_ip", "192.0.2.4"},
    {"option static_gateway", "192.0.2.1"},
    {"option static_pridns", "192.0.2.55"},
};
constexpr t_line SYSMODE[] = {
    {"config sysmode 'sysmode'", nullptr},
    {"option mode", "router"},
};
constexpr std::span<const t_line> FILES[CONFIG_PACKAGE_COUNT] = {NETWORK, SWITCH, PROTOCOL, SYSMODE};

constexpr size_t VALUES = std::size(NETWORK) + std::size(SWITCH) + std::size(PROTOCOL) + std::size(SYSMODE);

std::string quoted(const std::string &value)
{
    std::string text = "'";
    for (char c : value)
        text += c == '\'' ? std::string("'\\''") : std::string(1, c);
    return text + "'";
}

std::string file_text(std::span<const t_line> lines, const std::vector<std::string> &values, size_t *next)
{
    std::string text;
    for (const t_line &line : lines) {
        text += line.keyword;
        if (line.usual) {
            const std::string &value = values[(*next)++];
            text += " " + quoted(value == "=" ? line.usual : value);
        }
        text += "\n";
    }
    return text;
}

} // namespace

void prepare()
{
    prepare_config_scene();
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    const std::vector<std::string> values = split(text_of({data, size}), "\n", VALUES);
    size_t next = 0;
    for (size_t i = 0; i < CONFIG_PACKAGE_COUNT; i++)
        configure_package(CONFIG_PACKAGES[i], file_text(FILES[i], values, &next));
    load_whole_configuration();
    return 0;
}
