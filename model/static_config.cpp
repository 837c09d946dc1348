// SPDX-License-Identifier: MIT
// The static addresses of a connection type, or of its secondary connection.
#include "model/current_wan.h"

#include <arpa/inet.h>
#include <cstring>

#include "model/config_text.h"
#include "platform/ipv4_text.h"
#include "platform/log.h"

namespace {

enum class t_static_field { none, address, gateway, dns, dynamic_dns };

// Which option holds what; a null name holds nothing.
struct t_static_options {
    const char *address;
    const char *gateway;
    const char *dns;
    const char *dynamic_dns; // its presence ends the reading of `dns`
};

constexpr t_static_options PLAIN_STATIC = {"ipaddr", "gateway", "pri_dns", nullptr};
constexpr t_static_options PPPOE_SECONDARY = {"static_ip", nullptr, "static_pridns", "dns_mode"};
constexpr t_static_options TUNNEL_SECONDARY = {"static_ip", "static_gateway", "static_pridns", nullptr};

// Null when this pair of types has no static addresses.
const t_static_options *options_of(const char *conn_type, const char *secondary)
{
    if (has_prefix(conn_type, "static"))
        return &PLAIN_STATIC;
    if (!has_prefix(secondary, "static"))
        return nullptr;
    if (has_prefix(conn_type, "pppoe"))
        return &PPPOE_SECONDARY;
    return has_prefix(conn_type, "l2tp") || has_prefix(conn_type, "pptp") ? &TUNNEL_SECONDARY : nullptr;
}

t_static_field field_of(const t_static_options &options, const char *name)
{
    const struct {
        const char *name;
        t_static_field field;
    } fields[] = {{options.address, t_static_field::address},
                  {options.gateway, t_static_field::gateway},
                  {options.dns, t_static_field::dns},
                  {options.dynamic_dns, t_static_field::dynamic_dns}};
    for (const auto &known : fields) {
        if (known.name && strcmp(known.name, name) == 0)
            return known.field;
    }
    return t_static_field::none;
}

uint32_t *slot_of(t_detect_result *block, t_static_field field)
{
    switch (field) {
    case t_static_field::address:
        return &block->address.ipv4_be;
    case t_static_field::gateway:
        return &block->gateway.ipv4_be;
    case t_static_field::dns:
    case t_static_field::dynamic_dns:
        return &block->dns_server.ipv4_be;
    case t_static_field::none:
        break;
    }
    return nullptr;
}

} // namespace

// Long because every line it logs carries its name.
void update_static_protocol_ip_config(const char *conn_type, const char *secondary, t_detect_result *block)
{
    LOG_ENTER();
    block->address.ipv4_be = block->gateway.ipv4_be = block->dns_server.ipv4_be = 0;
    t_uci_package config_package("protocol");
    if (!config_package.package) {
        LOG(Error, "Unable to load uci protocol!\n");
        return;
    }
    const t_static_options *options = options_of(conn_type, secondary);
    if (!options && !secondary) {
        LOG(Error, "conn_proto_IPV4=%s, not static, however snd_conn_proto=NULL\n", conn_type);
        return;
    }
    if (!options) {
        LOG(Error, "Trying to get secondary for %s, secondary connetction type: %s\n", conn_type, secondary);
        return;
    }
    const bool plain = options == &PLAIN_STATIC;
    bool dns_is_dynamic = false;
    uci_section *section = find_config_section(config_package.package, conn_type);
    uci_list *walked = section ? &section->options : nullptr;
    for (uci_element *element = nullptr; (element = next_config_element(walked, element));) {
        const t_static_field field = field_of(*options, element->name);
        if (field == t_static_field::none || (field == t_static_field::dns && dns_is_dynamic))
            continue;
        if (field == t_static_field::dynamic_dns) {
            block->dns_server.ipv4_be = 0;
            dns_is_dynamic = true;
            LOG(Debug, "PPPOE using dynamic dns address!\n");
            continue;
        }
        const char *value = option_text(uci_to_option(element));
        if (!value) {
            LOG(Error, "Unable to get uci protocol.%s\n", conn_type);
            return;
        }
        if (field == t_static_field::gateway)
            LOG(Debug, "Parse static gateway addr: %s\n", value);
        else if (field == t_static_field::address && plain)
            LOG(Debug, "Parse static ip_addr: %s\n", value);
        else if (field == t_static_field::address)
            LOG(Debug, "Parse %s sndconn: static ip_addr: %s\n", conn_type, value);
        else if (plain)
            LOG(Debug, "Parse static pri dns addr: %s\n", value);
        else
            LOG(Debug, "Parse %s sndconn: static pri dns addr: %s\n", conn_type, value);
        // An address that does not convert, the broadcast address among them, stays as all ones.
        uint32_t *slot = slot_of(block, field);
        *slot = inet_addr(value);
        if (*slot == INADDR_NONE)
            LOG(Error, "protocol.%s.%s=%s, not a valid ip address\n", conn_type, element->name, value);
    }
    LOG(Debug, "get secondary static ip info for %s, ip:%s, gateway:%s, dns:%s\n", conn_type,
        t_ipv4_text(block->address.ipv4_be).text, t_ipv4_text(block->gateway.ipv4_be).text,
        t_ipv4_text(block->dns_server.ipv4_be).text);
}
