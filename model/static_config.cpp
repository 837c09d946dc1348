// SPDX-License-Identifier: MIT
// The options that hold the addresses, by connection type.
#include "model/static_config.h"

#include <arpa/inet.h>
#include <cstring>

#include "model/config_text.h"
#include "platform/ipv4_text.h"
#include "platform/log.h"

constexpr const char *READING = "update_static_protocol_ip_config"; // its parts speak in its name

namespace {

// Which option holds what; an empty name holds nothing.
struct t_static_options {
    char address[10];
    char gateway[15];
    char dns[14];
    char dynamic_dns[9]; // its presence ends the reading of `dns`
};

constexpr t_static_options PLAIN_STATIC = {"ipaddr", "gateway", "pri_dns", ""};
constexpr t_static_options PPPOE_SECONDARY = {"static_ip", "", "static_pridns", "dns_mode"};
constexpr t_static_options TUNNEL_SECONDARY = {"static_ip", "static_gateway", "static_pridns", ""};

// One walk over the options of a connection type.
struct t_static_reading {
    const char *conn_type;
    const t_static_options *options;
    t_detect_result *block;
    bool dns_is_dynamic;

    bool is_plain() const { return options == &PLAIN_STATIC; }
};

} // namespace

// Null when this pair of types has no static addresses.
static const t_static_options *choose_options(const char *conn_type, const char *secondary)
{
    if (has_prefix(conn_type, "static"))
        return &PLAIN_STATIC;
    if (!secondary) {
        LOG_AS(READING, Error, "conn_proto_IPV4=%s, not static, however snd_conn_proto=NULL\n", conn_type);
        return nullptr;
    }
    if (has_prefix(secondary, "static") && has_prefix(conn_type, "pppoe"))
        return &PPPOE_SECONDARY;
    if (has_prefix(secondary, "static") && (has_prefix(conn_type, "l2tp") || has_prefix(conn_type, "pptp")))
        return &TUNNEL_SECONDARY;
    LOG_AS(READING, Error, "Trying to get secondary for %s, secondary connetction type: %s\n", conn_type, secondary);
    return nullptr;
}

// An address that does not convert, the broadcast address among them, stays as all ones.
static void store_address(const t_static_reading &reading, const uci_option *option, t_address_slot *slot)
{
    const char *value = option_text(option);
    slot->ipv4_be = inet_addr(value);
    if (slot->ipv4_be == INADDR_NONE)
        LOG_AS(READING, Error, "protocol.%s.%s=%s, not a valid ip address\n", reading.conn_type, option->e.name, value);
}

static void take_address(const t_static_reading &reading, const uci_option *option)
{
    if (reading.is_plain())
        LOG_AS(READING, Debug, "Parse static ip_addr: %s\n", option_text(option));
    else
        LOG_AS(READING, Debug, "Parse %s sndconn: static ip_addr: %s\n", reading.conn_type, option_text(option));
    store_address(reading, option, &reading.block->address);
}

static void take_gateway(const t_static_reading &reading, const uci_option *option)
{
    LOG_AS(READING, Debug, "Parse static gateway addr: %s\n", option_text(option));
    store_address(reading, option, &reading.block->gateway);
}

static void take_dns(const t_static_reading &reading, const uci_option *option)
{
    if (reading.is_plain())
        LOG_AS(READING, Debug, "Parse static pri dns addr: %s\n", option_text(option));
    else
        LOG_AS(READING, Debug, "Parse %s sndconn: static pri dns addr: %s\n", reading.conn_type, option_text(option));
    store_address(reading, option, &reading.block->dns_server);
}

static void forget_dns(t_static_reading *reading)
{
    reading->block->dns_server.ipv4_be = 0;
    reading->dns_is_dynamic = true;
    LOG_AS(READING, Debug, "PPPOE using dynamic dns address!\n");
}

// False for one that cannot be read, with which the walk ends.
static bool take_option(t_static_reading *reading, const uci_option *option)
{
    const auto is = [option](const char *name) { return *name && strcmp(name, option->e.name) == 0; };
    const t_static_options &options = *reading->options;
    if (is(options.dynamic_dns)) {
        forget_dns(reading);
        return true;
    }
    const bool is_dns = is(options.dns) && !reading->dns_is_dynamic;
    if (!is_dns && !is(options.address) && !is(options.gateway))
        return true;
    if (!option_text(option)) {
        LOG_AS(READING, Error, "Unable to get uci protocol.%s\n", reading->conn_type);
        return false;
    }
    if (is_dns)
        take_dns(*reading, option);
    else if (is(options.address))
        take_address(*reading, option);
    else
        take_gateway(*reading, option);
    return true;
}

void update_static_protocol_ip_config(const char *conn_type, const char *secondary, t_detect_result *block)
{
    LOG_ENTER();
    block->address.ipv4_be = block->gateway.ipv4_be = block->dns_server.ipv4_be = 0;
    t_uci_package config_package("protocol");
    if (!config_package.package) {
        LOG(Error, "Unable to load uci protocol!\n");
        return;
    }
    t_static_reading reading = {conn_type, choose_options(conn_type, secondary), block, false};
    if (!reading.options)
        return;
    for (uci_element &element : options_of(find_config_section(config_package.package, conn_type))) {
        if (!take_option(&reading, uci_to_option(&element)))
            return;
    }
    LOG(Debug, "get secondary static ip info for %s, ip:%s, gateway:%s, dns:%s\n", conn_type,
        t_ipv4_text(block->address.ipv4_be).text, t_ipv4_text(block->gateway.ipv4_be).text,
        t_ipv4_text(block->dns_server.ipv4_be).text);
}
