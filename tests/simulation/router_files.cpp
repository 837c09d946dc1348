// SPDX-License-Identifier: MIT
// The router's configuration and what its kernel shows of it in files.
#include <string>
#include <string_view>

#include "tests/simulation/event_log.h"
#include "tests/simulation/file_tree.h"
#include "tests/simulation/neighbours.h"
#include "tests/simulation/world.h"

namespace sim {

std::string text_of_arp_table(); // lan_host.cpp
std::string text_of_forwarding_table();

static std::string line(const char *key, const std::string &value)
{
    return std::string("\toption ") + key + " '" + value + "'\n";
}

static std::string numbers_of(const std::vector<int> &ports)
{
    std::string text;
    for (int port : ports)
        text += (text.empty() ? "" : " ") + std::to_string(port);
    return text;
}

static std::string network_text(const t_life &life)
{
    std::string text;
    for (const t_port &port : world.ports)
        text += "config device\n" + line("name", port.name) + "\n";
    text += "config wan_detect 'auto_wan_detect'\n" + line("enable", "on") +
            line("wan_port_priority", numbers_of(life.pool)) + line("wan_port_pool", numbers_of(life.pool)) +
            line("proto_priority", "pppoe dhcp static") + line("fake_wan_port", "-1") +
            line("wan_combo_first_priority", "phy");
    text += "\nconfig interface 'wan'\n" + line("proto", life.connection) + line("wan_type", life.connection);
    text += "\nconfig interface 'internet'\n" + line("proto", life.connection);
    return text;
}

static std::string labels(const t_life &life)
{
    std::string text;
    for (size_t i = 1; i <= life.ports.size(); i++)
        text += (text.empty() ? "P" : " P") + std::to_string(i);
    return text;
}

static std::string switch_text(const t_life &life)
{
    std::string text;
    for (const t_port &port : world.ports)
        text += "config switch_port 'port" + std::to_string(port.number) + "'\n" +
                line("port", std::to_string(port.number)) + line("ifname", port.name) +
                line("label", "P" + std::to_string(port.number)) + line("wan_port", "phy") +
                (port.is_combo ? line("type", "combo") : "") + "\n";
    text += "config switch_port 'port" + std::to_string(FOREIGN_PORT) + "'\n" +
            line("port", std::to_string(FOREIGN_PORT)) + line("ifname", "eth" + std::to_string(FOREIGN_PORT)) + "\n";
    text += "config wan 'wan'\n" + line("switch_port", "port" + std::to_string(life.wan));
    text += "\nconfig lan_agg 'lan_agg'\n" + line("enable_agg", "0") + line("lanport", labels(life)) +
            line("lacpports", "");
    text += "\nconfig gaming 'gaming'\n" + line("name", "gaming");
    return text;
}

static std::string protocol_text()
{
    std::string text = "config family 'ipv4'\n";
    for (const char *protocol : {"dhcp", "pppoe", "static", "l2tp", "pptp", "v6plus"})
        text += std::string("\tlist protos '") + protocol + "'\n";
    text += "\nconfig family 'ipv6'\n\tlist protos 'dhcpv6'\n";
    text += "\nconfig protocol 'pppoe'\n" + line("snd_conn", "none");
    text += "\nconfig protocol 'static'\n" + line("ipaddr", OWN_ADDRESS) + line("gateway", GATEWAY) +
            line("pri_dns", NAME_SERVER);
    for (const char *tunnel : {"l2tp", "pptp"})
        text += std::string("\nconfig protocol '") + tunnel + "'\n" + line("snd_conn", "dynamic") +
                line("static_ip", OWN_ADDRESS) + line("static_gateway", GATEWAY);
    return text;
}

static std::string path_of(const std::string &package)
{
    return "/etc/config/" + package;
}

// Settings of the life whose keys have dots are options: "network.auto_wan_detect.retry_interval".
static void apply_settings(const t_life &life)
{
    for (const auto &[key, value] : life.settings) {
        const size_t first = key.find('.'), second = key.find('.', first + 1);
        if (first != std::string::npos && second != std::string::npos)
            set_option(key.substr(0, first), key.substr(first + 1, second - first - 1), key.substr(second + 1), value);
    }
}

void write_router_files(const t_life &life)
{
    put_folder("/tmp", 01777);
    put_folder("/var/run");
    put_file("/var/run/ubus.sock", "");
    put_file("/dev/null", "")->type = t_node::device;
    put_file("/dev/console", "")->type = t_node::device;
    put_file(path_of("network"), network_text(life));
    put_file(path_of("switch"), switch_text(life));
    put_file(path_of("protocol"), protocol_text());
    put_file(path_of("sysmode"), "config sysmode 'sysmode'\n" + line("mode", "router"));
    put_made_file("/proc/net/arp", text_of_arp_table);
    put_made_file("/sys/class/net/br-lan/brforward", text_of_forwarding_table);
    apply_settings(life);
}

// --- options

namespace {

// Where an option's value stands in a package's text; none when start is npos. `section_end` is where one can be added.
struct t_place {
    size_t start = std::string::npos;
    size_t length = 0;
    size_t section_end = std::string::npos;
};

t_place find_option(std::string_view text, std::string_view section, std::string_view option)
{
    t_place place;
    const std::string heading = "'" + std::string(section) + "'", key = "\toption " + std::string(option) + " '";
    bool within = false;
    for (size_t at = 0; at < text.size();) {
        const size_t end = std::min(text.find('\n', at), text.size());
        const std::string_view one = text.substr(at, end - at);
        if (one.starts_with("config "))
            within = one.ends_with(heading);
        else if (within && one.starts_with(key))
            place.start = at + key.size(), place.length = one.size() - key.size() - 1;
        if (within && !one.empty())
            place.section_end = end + 1;
        at = end + 1;
    }
    return place;
}

} // namespace

std::string option_of(const std::string &package, const std::string &section, const std::string &option)
{
    const auto file = files.find(path_of(package));
    if (file == files.end())
        return "";
    const std::string &text = file->second->text; // none of these is made anew for who reads it
    const t_place place = find_option(text, section, option);
    return place.start == std::string::npos ? "" : text.substr(place.start, place.length);
}

// As another program would do it: the new text in a new file.
void set_option(const std::string &package, const std::string &section, const std::string &option,
                const std::string &value)
{
    std::string text = text_of_file(path_of(package));
    const t_place place = find_option(text, section, option);
    if (place.start != std::string::npos)
        text.replace(place.start, place.length, value);
    else if (place.section_end != std::string::npos)
        text.insert(std::min(place.section_end, text.size()), line(option.c_str(), value));
    put_file(path_of(package), text);
    log_line("config", "%s.%s.%s=%s", package.c_str(), section.c_str(), option.c_str(), value.c_str());
}

} // namespace sim
