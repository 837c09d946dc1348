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

namespace {

// The names of one address family, as far as the configuration has them.
struct t_proto_names {
    uci_section *section;
    uci_option *option;
    uci_list *list; // null for a plain option, which names no protocol
};

t_proto_names find_proto_names(uci_package *package, const char *family)
{
    t_proto_names names = {};
    names.section = find_config_section(package, family);
    names.option = find_config_option(names.section, "protos");
    if (names.option && is_list_option(names.option))
        names.list = &names.option->v.list;
    return names;
}

// False when memory is short.
bool create_protocol(t_protocol **proto_hashmap_head, const char *name, bool is_ipv4)
{
    t_protocol *protocol = create_new_protocol(name);
    if (!protocol)
        return false;
    protocol->is_ipv4 = is_ipv4;
    keep_protocol(proto_hashmap_head, protocol);
    return true;
}

// A value that fills its buffer may have been cut; only the package itself tells how it goes on.
bool ends_within_a_word(const char *value)
{
    t_uci_package network("network");
    uci_section *section = network.package ? find_config_section(network.package, "auto_wan_detect") : nullptr;
    const uci_option *option = find_config_option(section, "proto_priority");
    const char *text = option ? option_text(option) : nullptr;
    const size_t length = strlen(value);
    return text && strncmp(text, value, length) == 0 && text[length] != '\0' && text[length] != ' ';
}

// Half a name could be the name of another protocol.
void drop_last_word(char *text)
{
    char *space = strrchr(text, ' ');
    *(space ? space : text) = '\0';
}

bool read_proto_priority(char (&order)[UCI_VALUE_SIZE])
{
    if (_uci_get_value("network.auto_wan_detect.proto_priority", order) != OK)
        return false;
    if (strlen(order) == UCI_VALUE_SIZE - 1 && ends_within_a_word(order))
        drop_last_word(order);
    return true;
}

} // namespace

// Long because every line it logs carries its name.
int init_all_protocols(t_protocol **proto_hashmap_head)
{
    t_uci_package config_package("protocol");
    if (!config_package.package) {
        LOG(Error, "Unable to load uci protocol!\n");
        config_package.tell_error();
        return ERR_CONFIG_PACKAGE;
    }
    int count = 0;

    const t_proto_names ipv4 = find_proto_names(config_package.package, "ipv4");
    if (!ipv4.section) {
        LOG(Error, "Unable to get uci protocol.ipv4\n");
        return count;
    }
    if (!ipv4.option) {
        LOG(Error, "Unable to get uci protocol.ipv4.protos\n");
        return count;
    }
    for (uci_element *item = nullptr; (item = next_config_element(ipv4.list, item));) {
        if (!create_protocol(proto_hashmap_head, item->name, true))
            return count;
        count++;
        LOG(Debug, "Parse ipv4 protocol(%d totoal): %s\n", count, item->name);
    }

    const t_proto_names ipv6 = find_proto_names(config_package.package, "ipv6");
    if (!ipv6.section) {
        LOG(Error, "Unable to get uci protocol.ipv6\n");
        return count;
    }
    if (!ipv6.option) {
        LOG(Error, "Unable to get uci protocol.ipv6.protos\n");
        return count;
    }
    for (uci_element *item = nullptr; (item = next_config_element(ipv6.list, item));) {
        if (!create_protocol(proto_hashmap_head, item->name, false))
            return count;
        count++;
        LOG(Debug, "Parse ipv6 protocol(%d totoal): %s\n", count, item->name);
    }
    LOG(Info, "Parse protocol success, count:%d\n", count);
    port_model.protocol_count = static_cast<uint8_t>(std::min(count, UINT8_MAX));

    char order[UCI_VALUE_SIZE];
    if (!read_proto_priority(order)) {
        LOG(Error, "Unable to get network.auto_wan_detect.proto_priority, treat it as \"pppoe dhcp static\"!\n");
        bounded_copy(order, PROTO_PRIORITY_DEFAULT, sizeof order);
    }
    int8_t priority = 0;
    char word[CONFIG_TEXT_SIZE];
    for (const char *rest = order; next_word(&rest, word);) {
        t_protocol *protocol = find_protocol(*proto_hashmap_head, word);
        if (!protocol) {
            LOG(Error, "Unable to find %s, network.auto_wan_detect.proto_priority=%s!\n", word, order);
            continue;
        }
        protocol->priority = ++priority;
        LOG(Debug, "Parse %s protocol priority=%d\n", protocol->name, priority);
    }
    return count;
}
