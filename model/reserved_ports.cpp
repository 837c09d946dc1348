// SPDX-License-Identifier: MIT
// Ports that are LAN by configuration: members of a link aggregation, and the gaming port.
#include "model/reserved_ports.h"

#include <cstring>
#include <initializer_list>

#include "model/config_text.h"
#include "model/tables.h"
#include "platform/log.h"
#include "platform/result_codes.h"
#include "platform/text.h"

constexpr int MAX_LABELS = 16;
constexpr int LOWEST_INDEX = 2; // the first LAN port is never taken for a member
constexpr int HIGHEST_INDEX = MAX_LABELS;
constexpr const char *REBUILDING = "update_lan_agg_port"; // its parts speak in its name

namespace {

struct t_lan_agg_config {
    char enable[CONFIG_TEXT_SIZE];
    char lan_ports[CONFIG_TEXT_SIZE]; // labels
    char members[CONFIG_TEXT_SIZE];   // positions among the labels, from 1
};

struct t_label_list {
    int count;
    char labels[MAX_LABELS][NAME_SIZE];
};

} // namespace

static bool is_off_word(const char *value)
{
    return strcmp(value, "0") == 0 || strcmp(value, "off") == 0 || strcmp(value, "false") == 0;
}

static char *field_of_option(t_lan_agg_config *config, const char *name)
{
    if (strcmp(name, "enable_agg") == 0)
        return config->enable;
    if (strcmp(name, "lanport") == 0)
        return config->lan_ports;
    return strcmp(name, "lacpports") == 0 ? config->members : nullptr;
}

// Without the section, or without the switch in it, aggregation is on; reading ends where it is switched off.
static int read_lan_agg(uci_package *package, t_lan_agg_config *config)
{
    for (uci_element &element : options_of(find_config_section(package, "lan_agg"))) {
        char *field = field_of_option(config, element.name);
        if (!field)
            continue;
        const char *value = option_text(uci_to_option(&element));
        if (!value) {
            LOG_AS(REBUILDING, Error, "Unable to get uci switch.lan_agg\n");
            return ERR_CONFIG_PACKAGE;
        }
        bounded_copy(field, value, CONFIG_TEXT_SIZE);
        if (is_off_word(config->enable))
            break;
    }
    return OK;
}

static t_label_list split_labels(const char *text)
{
    t_label_list list = {};
    char word[CONFIG_TEXT_SIZE];
    while (list.count < MAX_LABELS && next_word(&text, word))
        copy_name(list.labels[list.count++], word);
    return list;
}

// The label that a word of the member list stands for, or null.
static const char *find_label(const t_label_list &list, const char *word)
{
    int index = 0;
    if (!parse_decimal(word, LOWEST_INDEX, HIGHEST_INDEX, &index) || index > list.count)
        return nullptr;
    return list.labels[index - 1];
}

static const t_device *find_labelled_device(const t_device *dev_hashmap_head, const char *label)
{
    const t_device *device = dev_hashmap_head;
    while (device && strcmp(device->label, label) != 0)
        device = static_cast<t_device *>(device->hh.next);
    return device;
}

// Adds the port of this label. False when the rebuilding ends here.
static bool add_member(t_device *dev_hashmap_head, t_device **lan_agg, const char *label)
{
    const t_device *labelled = find_labelled_device(dev_hashmap_head, label);
    if (!labelled) {
        LOG_AS(REBUILDING, Warning, "null dev found for %s, continue whatever!\n", label);
        return false;
    }
    t_device *device = create_new_device(labelled->name);
    if (!device) {
        LOG_AS(REBUILDING, Error, "Create new device failed!\n");
        return false;
    }
    keep_device(lan_agg, device);
    LOG_AS(REBUILDING, Debug, "lan_agg device:%s parse success!\n", labelled->name);
    return true;
}

// False when the rebuilding ends early.
static bool add_members(t_device *dev_hashmap_head, t_device **lan_agg, const t_lan_agg_config &config)
{
    LOG_AS(REBUILDING, Debug, "lan_agg enable! now start to parse switch.lan_agg.lanport=%s\n", config.lan_ports);
    const t_label_list labels = split_labels(config.lan_ports);
    LOG_AS(REBUILDING, Debug, "lan_agg enable! now start to parse switch.lan_agg.lacpports=%s\n", config.members);
    char word[CONFIG_TEXT_SIZE];
    for (const char *rest = config.members; next_word(&rest, word);) {
        const char *label = find_label(labels, word);
        if (!label)
            LOG_AS(REBUILDING, Error,
                   "LAN decvice index:%s in switch.lan_agg.lacpports:%s not found correspond device in %s!\n", word,
                   config.members, config.lan_ports);
        else if (!add_member(dev_hashmap_head, lan_agg, label))
            return false;
    }
    return true;
}

int update_lan_agg_port(t_device *dev_hashmap_head, t_device **lan_agg)
{
    LOG_ENTER();
    release_any_device(lan_agg);
    t_uci_package config_package("switch");
    if (!config_package.package) {
        LOG(Error, "Unable to load uci switch!\n");
        config_package.tell_error();
        return ERR_CONFIG_PACKAGE;
    }
    t_lan_agg_config config = {};
    const int result = read_lan_agg(config_package.package, &config);
    if (result != OK)
        return result;
    if (is_off_word(config.enable)) {
        LOG(Debug, "lan_agg disable! switch.lan_agg.enable_agg=%s\n", config.enable);
        return OK;
    }
    if (add_members(dev_hashmap_head, lan_agg, config))
        LOG(Info, "Parse lan_agg devices success\n");
    return OK;
}

int update_lan_gaming_port(t_device **gaming)
{
    LOG_ENTER();
    release_any_device(gaming);
    char value[UCI_VALUE_SIZE] = "";
    if (_uci_get_value("switch.gaming.switch_port", value) != OK) {
        LOG(Info, "Unable to get switch.gaming.switch_port!\n");
        return OK;
    }
    char section[NAME_SIZE];
    copy_name(section, value);
    char key[SWITCH_KEY_SIZE];
    char ifname[UCI_VALUE_SIZE];
    if (read_switch_ifname("", section, key, ifname) != OK) {
        LOG(Info, "Unable to get %s!\n", key);
        return OK;
    }
    t_device *device = create_new_device(ifname);
    if (!device) {
        LOG(Error, "Create new device failed!\n");
        return OK;
    }
    LOG(Info, "Suceess get gaming device:%s\n", device->name);
    keep_device(gaming, device);
    return OK;
}

bool is_reserved_port(const t_port_model *model, const char *name)
{
    for (t_device *table : {model->lan_agg[0], model->lan_agg[1], model->gaming}) {
        if (table && find_device(table, name))
            return true;
    }
    return false;
}
