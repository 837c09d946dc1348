// SPDX-License-Identifier: MIT
// The attributes of a port, read option by option from its section.
#include "model/switch_attributes.h"

#include <cstring>
#include <initializer_list>

#include "model/config_text.h"
#include "model/port_names.h"
#include "model/tables.h"
#include "platform/log.h"
#include "platform/result_codes.h"
#include "platform/text.h"

constexpr int NO_PORT = -1;
constexpr int NO_ADDRESS = -1;
constexpr const char *READING = "get_eth_atrribute"; // its parts speak in its name

namespace {

struct t_switch_port {
    int port = NO_PORT;
    int addr = NO_ADDRESS;
    bool is_combo = false;
    uint8_t sub_port = SUB_PORT_PHY;
    char ifname[CONFIG_TEXT_SIZE] = "";
    char label[CONFIG_TEXT_SIZE] = "";
};

} // namespace

constexpr char PORT_OPTIONS[][9] = {"port", "ifname", "label", "wan_port", "type", "addr"};

static bool is_port_option(const char *name)
{
    for (const char *known : PORT_OPTIONS) {
        if (strcmp(name, known) == 0)
            return true;
    }
    return false;
}

// Any other word than these two means the copper side.
static uint8_t read_side(const char *value)
{
    if (strcmp(value, FIBRE_SIDE) == 0)
        return SUB_PORT_SFP;
    if (strcmp(value, COPPER_SIDE) != 0)
        LOG_AS(READING, Error, "config switch.portx.wan_port only support sfp&phy!\n");
    return SUB_PORT_PHY;
}

static void take_option(const char *name, const char *value, t_switch_port *port)
{
    if (strcmp(name, "wan_port") == 0)
        port->sub_port = read_side(value);
    else if (strcmp(name, "port") == 0)
        parse_decimal(value, INT8_MIN, INT8_MAX, &port->port);
    else if (strcmp(name, "addr") == 0)
        parse_decimal(value, INT8_MIN, INT8_MAX, &port->addr);
    else if (strcmp(name, "ifname") == 0)
        bounded_copy(port->ifname, value, sizeof port->ifname);
    else if (strcmp(name, "label") == 0)
        bounded_copy(port->label, value, sizeof port->label);
    else if (strcmp(value, "combo") == 0)
        port->is_combo = true;
}

// False for a section that cannot be read to its end.
static bool read_switch_port(uci_section *section, t_switch_port *port)
{
    for (uci_element &element : options_of(section)) {
        if (!is_port_option(element.name))
            continue;
        const char *value = option_text(uci_to_option(&element));
        if (!value) {
            LOG_AS(READING, Error, "Unable to get uci network , type=switch_port\n");
            return false;
        }
        take_option(element.name, value, port);
    }
    return true;
}

// The device that a section describes, or null.
static t_device *find_described_device(t_device *dev_hashmap_head, const t_switch_port &port, const char *section)
{
    if (!port.ifname[0] || port.port == NO_PORT) {
        LOG_AS(READING, Info, "Failed to get device by config switch.%s\n", section);
        return nullptr;
    }
    if (!is_port_name(port.ifname)) {
        LOG_AS(READING, Error, "%s not begin with \"eth\"\n", port.ifname);
        return nullptr;
    }
    t_device *device = find_device(dev_hashmap_head, port.ifname);
    if (!device)
        LOG_AS(READING, Error, "Can't find device %s\n", port.ifname);
    return device;
}

static void apply_attributes(const t_switch_port &port, t_device *device)
{
    device->port_num = static_cast<int8_t>(port.port);
    copy_name(device->label, port.label);
    device->is_combo = port.is_combo;
    device->port_addr = static_cast<int8_t>(port.is_combo ? port.addr : NO_ADDRESS);
    device->sub_port = port.is_combo ? port.sub_port : SUB_PORT_PHY;
    if (port.is_combo)
        LOG_AS(READING, Debug, "Success get device:%s,Port:%d,sub_port:%s,port_addr=%d\n", port.ifname, port.port,
               sub_port_word(port.sub_port), port.addr);
}

int get_eth_atrribute(t_device *dev_hashmap_head)
{
    LOG_ENTER();
    t_uci_package config_package("switch");
    if (!config_package.package) {
        LOG(Error, "Unable to load uci switch!\n");
        return ERR_CONFIG_PACKAGE;
    }
    int count = 0;
    for (uci_element &element : sections_of(config_package.package)) {
        uci_section *section = uci_to_section(&element);
        if (strcmp(section->type, "switch_port") != 0)
            continue;
        t_switch_port port;
        if (!read_switch_port(section, &port))
            return count;
        if (t_device *device = find_described_device(dev_hashmap_head, port, element.name)) {
            apply_attributes(port, device);
            count++;
        }
    }
    LOG(Info, "Parse network devices atrribute success, count:%d\n", count);
    return count;
}
