// SPDX-License-Identifier: MIT
// Loading what the switch configuration says of each port: its number, label and the sides of a combo port.
#include "model/port_config.h"

#include <cstring>
#include <initializer_list>

#include "model/config_text.h"
#include "model/tables.h"
#include "platform/log.h"
#include "platform/result_codes.h"
#include "platform/text.h"

namespace {

constexpr int NO_PORT = -1;
constexpr int NO_ADDRESS = -1;

struct t_switch_port {
    int port = NO_PORT;
    int addr = NO_ADDRESS;
    bool is_combo = false;
    uint8_t sub_port = SUB_PORT_PHY;
    char ifname[CONFIG_TEXT_SIZE] = "";
    char label[CONFIG_TEXT_SIZE] = "";
};

enum class t_port_option { fine, unknown_side, unreadable };

bool is_port_option(const char *name)
{
    for (const char *known : {"port", "ifname", "label", "wan_port", "type", "addr"}) {
        if (strcmp(name, known) == 0)
            return true;
    }
    return false;
}

t_port_option read_side(const char *value, t_switch_port *port)
{
    port->sub_port = strcmp(value, "sfp") == 0 ? SUB_PORT_SFP : SUB_PORT_PHY;
    return port->sub_port == SUB_PORT_SFP || strcmp(value, "phy") == 0 ? t_port_option::fine
                                                                       : t_port_option::unknown_side;
}

t_port_option read_port_option(const uci_option *option, t_switch_port *port)
{
    const char *name = option->e.name;
    if (!is_port_option(name))
        return t_port_option::fine;
    const char *value = option_text(option);
    if (!value)
        return t_port_option::unreadable;
    if (strcmp(name, "wan_port") == 0)
        return read_side(value, port);
    if (strcmp(name, "port") == 0)
        parse_decimal(value, INT8_MIN, INT8_MAX, &port->port);
    else if (strcmp(name, "addr") == 0)
        parse_decimal(value, INT8_MIN, INT8_MAX, &port->addr);
    else if (strcmp(name, "ifname") == 0)
        bounded_copy(port->ifname, value, sizeof port->ifname);
    else if (strcmp(name, "label") == 0)
        bounded_copy(port->label, value, sizeof port->label);
    else if (strcmp(value, "combo") == 0)
        port->is_combo = true;
    return t_port_option::fine;
}

void apply_attributes(const t_switch_port &port, t_device *device)
{
    device->port_num = static_cast<int8_t>(port.port);
    copy_name(device->label, port.label);
    device->is_combo = port.is_combo;
    device->port_addr = static_cast<int8_t>(port.is_combo ? port.addr : NO_ADDRESS);
    device->sub_port = port.is_combo ? port.sub_port : SUB_PORT_PHY;
}

} // namespace

int get_eth_atrribute(t_device *dev_hashmap_head)
{
    LOG_ENTER();
    t_uci_package config_package("switch");
    if (!config_package.package) {
        LOG(Error, "Unable to load uci switch!\n");
        return ERR_CONFIG_PACKAGE;
    }
    int count = 0;
    uci_element *element;
    uci_foreach_element(&config_package.package->sections, element)
    {
        uci_section *section = uci_to_section(element);
        if (strcmp(section->type, "switch_port") != 0)
            continue;
        t_switch_port port;
        uci_element *option;
        uci_foreach_element(&section->options, option)
        {
            const t_port_option read = read_port_option(uci_to_option(option), &port);
            if (read == t_port_option::unreadable) {
                LOG(Error, "Unable to get uci network , type=switch_port\n");
                return count;
            }
            if (read == t_port_option::unknown_side)
                LOG(Error, "config switch.portx.wan_port only support sfp&phy!\n");
        }
        if (!port.ifname[0] || port.port == NO_PORT) {
            LOG(Info, "Failed to get device by config switch.%s\n", element->name);
            continue;
        }
        if (!is_ethernet_name(port.ifname)) {
            LOG(Error, "%s not begin with \"eth\"\n", port.ifname);
            continue;
        }
        t_device *device = find_device(dev_hashmap_head, port.ifname);
        if (!device) {
            LOG(Error, "Can't find device %s\n", port.ifname);
            continue;
        }
        apply_attributes(port, device);
        if (port.is_combo)
            LOG(Debug, "Success get device:%s,Port:%d,sub_port:%s,port_addr=%d\n", port.ifname, port.port,
                port.sub_port == SUB_PORT_PHY ? "phy" : "sfp", port.addr);
        count++;
    }
    LOG(Info, "Parse network devices atrribute success, count:%d\n", count);
    return count;
}
