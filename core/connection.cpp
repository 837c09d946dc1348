// SPDX-License-Identifier: MIT
#include "core/connection.h"

#include "model/port_model.h"
#include "model/tables.h"

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
