// SPDX-License-Identifier: MIT
// Loading the protocols and their order of preference.
#include "model/protocol_config.h"

#include <algorithm>
#include <cstring>

#include "model/config_text.h"
#include "model/tables.h"
#include "platform/log.h"
#include "platform/result_codes.h"
#include "platform/text.h"

constexpr const char *LOADING = "init_all_protocols"; // its parts speak in its name

namespace {

// An address family: its section, and what is said of it.
struct t_ipv4 {
    static constexpr bool IS_IPV4 = true;
    static constexpr const char *SECTION = "ipv4";
    static constexpr char NO_SECTION[] = "Unable to get uci protocol.ipv4\n";
    static constexpr char NO_NAMES[] = "Unable to get uci protocol.ipv4.protos\n";
    static constexpr char CREATED[] = "Parse ipv4 protocol(%d totoal): %s\n";
};

struct t_ipv6 {
    static constexpr bool IS_IPV4 = false;
    static constexpr const char *SECTION = "ipv6";
    static constexpr char NO_SECTION[] = "Unable to get uci protocol.ipv6\n";
    static constexpr char NO_NAMES[] = "Unable to get uci protocol.ipv6.protos\n";
    static constexpr char CREATED[] = "Parse ipv6 protocol(%d totoal): %s\n";
};

} // namespace

// Creates the protocols that a family lists and counts them; a plain option names none. False when the loading ends
// here.
template <typename Family> static bool load_family(t_port_model *model, uci_package *package, int *count)
{
    uci_section *section = find_config_section(package, Family::SECTION);
    if (!section) {
        LOG_AS(LOADING, Error, Family::NO_SECTION);
        return false;
    }
    uci_option *names = find_config_option(section, "protos");
    if (!names) {
        LOG_AS(LOADING, Error, Family::NO_NAMES);
        return false;
    }
    for (uci_element &item : t_config_list(is_list_option(names) ? &names->v.list : nullptr)) {
        t_protocol *protocol = create_new_protocol(item.name);
        if (!protocol)
            return false;
        protocol->is_ipv4 = Family::IS_IPV4;
        keep_protocol(&model->proto_hashmap_head, protocol);
        ++*count;
        LOG_AS(LOADING, Debug, Family::CREATED, *count, item.name);
    }
    return true;
}

// A value that fills its buffer may have been cut; only the package itself tells how it goes on.
static bool ends_within_a_word(const char *value)
{
    t_uci_package network("network");
    uci_section *section = network.package ? find_config_section(network.package, "auto_wan_detect") : nullptr;
    const uci_option *option = find_config_option(section, "proto_priority");
    const char *text = option ? option_text(option) : nullptr;
    const size_t length = strlen(value);
    return text && strncmp(text, value, length) == 0 && text[length] != '\0' && text[length] != ' ';
}

// Half a name could be the name of another protocol.
static void drop_last_word(char *text)
{
    char *space = strrchr(text, ' ');
    *(space ? space : text) = '\0';
}

static bool read_proto_priority(char (&order)[UCI_VALUE_SIZE])
{
    if (_uci_get_value("network.auto_wan_detect.proto_priority", order) != OK)
        return false;
    if (strlen(order) == UCI_VALUE_SIZE - 1 && ends_within_a_word(order))
        drop_last_word(order);
    return true;
}

// Protocols that are not named keep priority 0.
static void load_priorities(t_protocol *proto_hashmap_head)
{
    char order[UCI_VALUE_SIZE];
    if (!read_proto_priority(order)) {
        LOG_AS(LOADING, Error,
               "Unable to get network.auto_wan_detect.proto_priority, treat it as \"pppoe dhcp static\"!\n");
        bounded_copy(order, PROTO_PRIORITY_DEFAULT, sizeof order);
    }
    int8_t priority = 0;
    char word[CONFIG_TEXT_SIZE];
    for (const char *rest = order; next_word(&rest, word);) {
        t_protocol *protocol = find_protocol(proto_hashmap_head, word);
        if (!protocol) {
            LOG_AS(LOADING, Error, "Unable to find %s, network.auto_wan_detect.proto_priority=%s!\n", word, order);
            continue;
        }
        protocol->priority = ++priority;
        LOG_AS(LOADING, Debug, "Parse %s protocol priority=%d\n", protocol->name, priority);
    }
}

int init_all_protocols(t_port_model *model)
{
    t_uci_package config_package("protocol");
    if (!config_package.package) {
        LOG(Error, "Unable to load uci protocol!\n");
        config_package.tell_error();
        return ERR_CONFIG_PACKAGE;
    }
    int count = 0;
    if (!load_family<t_ipv4>(model, config_package.package, &count) ||
        !load_family<t_ipv6>(model, config_package.package, &count))
        return count;
    LOG(Info, "Parse protocol success, count:%d\n", count);
    model->protocol_count = static_cast<uint8_t>(std::min(count, UINT8_MAX));
    load_priorities(model->proto_hashmap_head);
    return count;
}
