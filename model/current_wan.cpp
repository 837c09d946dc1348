// SPDX-License-Identifier: MIT
// The current WAN port and its connection type, read anew from the configuration.
#include "model/current_wan.h"

#include <cstdio>
#include <cstring>

#include "model/config_text.h"
#include "model/port_names.h"
#include "model/static_config.h"
#include "model/tables.h"
#include "platform/log.h"
#include "platform/result_codes.h"
#include "platform/text.h"

namespace {

// Who has the WAN role by the configuration, and the texts that lead there.
struct t_wan_role {
    char section[UCI_VALUE_SIZE];
    char key[SWITCH_KEY_SIZE];
    char ifname[UCI_VALUE_SIZE];
};

} // namespace

static int get_ipv4_conntype(char (&type)[NAME_SIZE])
{
    LOG_ENTER();
    char value[UCI_VALUE_SIZE] = "";
    if (_uci_get_value("network.wan.wan_type", value) != OK || !value[0]) {
        const int result = _uci_get_value("network.wan.proto", value);
        if (result != OK)
            return result;
    } else if (strcmp(value, "pppoeshare") == 0) {
        bounded_copy(value, "pppoe", sizeof value);
    }
    char carrier[UCI_VALUE_SIZE] = "";
    if (strcmp(value, "v6plus") == 0 && _uci_get_value("network.wan.carrier", carrier) == OK &&
        strcmp(carrier, "4") == 0)
        bounded_copy(value, "ocn", sizeof value);
    copy_name(type, value);
    return OK;
}

static void get_ipv4_secondary_conntype(const char *type, t_protocol *protocol)
{
    LOG_ENTER();
    char key[CONFIG_TEXT_SIZE];
    snprintf(key, sizeof key, "protocol.%s.snd_conn", type);
    char value[UCI_VALUE_SIZE];
    if (_uci_get_value(key, value) == OK)
        copy_name(protocol->snd_conn, value);
    else
        copy_name(protocol->snd_conn, has_prefix(type, "pppoe") ? "none" : "dynamic");
}

static bool has_secondary_connection(const char *type)
{
    return has_prefix(type, "l2tp") || has_prefix(type, "pptp") || has_prefix(type, "pppoe");
}

// 0; the first read's failure; ERR_CONFIG_VALUE when what it names is no Ethernet port.
static int read_wan_role(t_wan_role *role)
{
    *role = {};
    const int result = _uci_get_value("switch.wan.switch_port", role->section);
    if (result != OK)
        return result;
    const bool is_named = read_switch_ifname("", role->section, role->key, role->ifname) == OK;
    return is_named && is_port_name(role->ifname) ? OK : ERR_CONFIG_VALUE;
}

int get_wan_device_name(char *buffer, size_t size)
{
    if (!buffer || size == 0)
        return ERR_INVALID_INPUT;
    memset(buffer, 0, size);
    t_wan_role role;
    const int result = read_wan_role(&role);
    if (result == ERR_CONFIG_VALUE) {
        LOG(Error, "%s=%s, or not begin with \"eth\"\n", role.key, role.ifname);
    } else if (result != OK) {
        LOG(Error, "switch.wan.switch_port=%s\n", role.section);
    } else {
        bounded_copy(buffer, role.ifname, size);
        LOG(Debug, "Successful get wan device:%s\n", buffer);
    }
    return result;
}

// OK, or ERR_NOTHING_DONE for an unknown port.
static int take_wan_role(t_port_model *model, const char (&name)[NAME_SIZE])
{
    memcpy(model->wan_role, name, sizeof name);
    t_device *device = find_device(model->dev_hashmap_head, name);
    model->role_is_away = !device && model->wan_dev;
    if (!device) {
        LOG_AS("update_wan_device", Error, "Can't find the device:%s in hash list!\n", name);
        return ERR_NOTHING_DONE;
    }
    model->wan_dev = device;
    return OK;
}

int update_wan_device(t_port_model *model)
{
    LOG_ENTER();
    char name[NAME_SIZE];
    if (get_wan_device_name(name, sizeof name) != OK) {
        LOG(Error, "get_wan_device_name failed!\n");
        return ERR_CONFIG_VALUE;
    }
    return take_wan_role(model, name);
}

static bool find_role_holder(char (&name)[NAME_SIZE])
{
    t_wan_role role;
    if (read_wan_role(&role) != OK)
        return false;
    copy_name(name, role.ifname);
    return true;
}

t_role look_at_role(t_port_model *model)
{
    char name[NAME_SIZE];
    if (!find_role_holder(name) || strcmp(name, model->wan_role) == 0)
        return t_role::unmoved;
    char before[NAME_SIZE];
    copy_name(before, model->wan_role[0] ? model->wan_role : device_name(model->wan_dev));
    if (take_wan_role(model, name) != OK)
        return t_role::foreign;
    LOG(Info, "The wan role was moved from %s to %s!\n", before, name);
    return t_role::moved;
}

bool wan_role_is_at(const char *port_name)
{
    char name[NAME_SIZE];
    return find_role_holder(name) && strcmp(name, port_name) == 0;
}

void update_wan_ipv4_protocol(t_port_model *model)
{
    LOG_ENTER();
    char type[NAME_SIZE];
    if (get_ipv4_conntype(type) != OK) {
        LOG(Error, "get_ipv4_conntype failed!\n");
        return;
    }
    t_protocol *protocol = find_protocol(model->proto_hashmap_head, type);
    if (!protocol) {
        LOG(Error, "Can't find the protocol:%s in /etc/config!\n", type);
        return;
    }
    if (has_prefix(type, "static")) {
        update_static_protocol_ip_config(type, nullptr, &protocol->static_config);
    } else if (has_secondary_connection(type)) {
        get_ipv4_secondary_conntype(type, protocol);
        if (has_prefix(protocol->snd_conn, "static"))
            update_static_protocol_ip_config(type, protocol->snd_conn, &protocol->static_config);
    }
    model->wan_proto = protocol;
    LOG(Debug, "get wan device: %s using conntype: %s\n", device_name(model->wan_dev), type);
}

// --- the connection type

static t_connection tunnel_kind(const char *secondary)
{
    if (has_prefix(secondary, "dynamic"))
        return t_connection::tunnel_dynamic;
    return has_prefix(secondary, "static") ? t_connection::tunnel_fixed : t_connection::other;
}

t_connection connection_kind()
{
    const t_protocol *type = port_model.wan_proto;
    if (!type)
        return t_connection::other;
    if (has_prefix(type->name, "dhcp"))
        return t_connection::dhcp;
    if (has_prefix(type->name, "pppoe"))
        return t_connection::pppoe;
    if (has_prefix(type->name, "static"))
        return t_connection::fixed;
    if (has_prefix(type->name, "l2tp") || has_prefix(type->name, "pptp"))
        return tunnel_kind(type->snd_conn);
    return t_connection::other;
}

bool is_probed(t_connection kind)
{
    switch (kind) {
    case t_connection::dhcp:
    case t_connection::pppoe:
    case t_connection::tunnel_dynamic:
        return true;
    case t_connection::fixed:
    case t_connection::tunnel_fixed:
    case t_connection::other:
        break;
    }
    return false;
}

t_protocol *wanted_protocol()
{
    if (connection_kind() == t_connection::tunnel_dynamic)
        return find_protocol(port_model.proto_hashmap_head, "dhcp");
    return port_model.wan_proto;
}
