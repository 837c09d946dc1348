// SPDX-License-Identifier: MIT
// Loading the ports of the network configuration, their order, the pool and the enable switch.
#include "model/port_config.h"

#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "model/chronicle.h"
#include "model/config_text.h"
#include "model/port_names.h"
#include "model/switch_attributes.h"
#include "model/tables.h"
#include "platform/log.h"
#include "platform/result_codes.h"
#include "platform/text.h"

constexpr int DEVICE_LIMIT = MAX_DEVICES;
constexpr const char *LOADING = "generate_eth_device"; // its parts speak in its name

namespace {

// The two lists of switch port numbers, empty when missing.
struct t_port_numbers {
    char priority[CONFIG_TEXT_SIZE];
    char pool[CONFIG_TEXT_SIZE];
};

// Devices that no port can be, bridges and VLANs. They count as devices only while there is room for all.
struct t_left_out {
    bool too_many;
    int count;
    char names[CONFIG_TEXT_SIZE]; // each with a space before it

    bool takes(const char *name);
};

} // namespace

bool t_left_out::takes(const char *name)
{
    if (!too_many || is_own_port_name(name))
        return false;
    count++;
    const size_t length = strlen(names);
    snprintf(names + length, sizeof names - length, " %s", name);
    return true;
}

// A record of the main table, whose numbers start at 0, unlike those of the other tables. Null when memory is short.
static t_device *create_main_device(const char *name)
{
    auto *device = static_cast<t_device *>(calloc(1, sizeof(t_device)));
    if (device)
        copy_name(device->name, name);
    else
        LOG_AS(LOADING, Error, "Malloc new device failed!\n");
    return device;
}

static bool is_device(const uci_section *section)
{
    return strcmp(section->type, "device") == 0;
}

static bool has_too_many_devices(uci_package *package)
{
    int count = 0;
    for (uci_element &element : sections_of(package)) {
        uci_section *section = uci_to_section(&element);
        count += is_device(section) && find_config_option(section, "name");
    }
    return count >= DEVICE_LIMIT;
}

static void read_port_prefixes(uci_package *package)
{
    const uci_option *option = find_config_option(find_config_section(package, "auto_wan_detect"), "port_prefix");
    const char *words = option ? option_text(option) : nullptr;
    set_port_prefixes(words ? words : "");
}

// Adds the port that a section declares and counts it. False when the loading ends here.
static bool load_device(t_port_model *model, uci_section *section, t_left_out *left_out, int *count)
{
    const uci_option *option = find_config_option(section, "name");
    if (!option)
        return true;
    const char *name = option_text(option);
    if (!name) {
        LOG_AS(LOADING, Error, "Unable to get uci network , type=device\n");
        return false;
    }
    if (left_out->takes(name))
        return true;
    t_device *device = create_main_device(name);
    if (!device)
        return false;
    keep_device(&model->dev_hashmap_head, device);
    ++*count;
    LOG_AS(LOADING, Debug, "Parse network devices(%d totoal) name: %s\n", *count, name);
    if (*count < DEVICE_LIMIT)
        return true;
    LOG_AS(LOADING, Error, "Parse network, device number more than %d!\n", DEVICE_LIMIT);
    return false;
}

static void read_port_numbers(uci_section *section, t_port_numbers *numbers)
{
    for (uci_element &element : options_of(section)) {
        const bool is_priority = strcmp(element.name, "wan_port_priority") == 0;
        if (!is_priority && strcmp(element.name, "wan_port_pool") != 0)
            continue;
        const char *text = option_text(uci_to_option(&element));
        if (!text) {
            LOG_AS(LOADING, Error, "Unable to get uci network.auto_wan_detect\n");
        } else if (is_priority) {
            bounded_copy(numbers->priority, text, sizeof numbers->priority);
            LOG_AS(LOADING, Debug, "Parse devices priority order: %s\n", numbers->priority);
        } else {
            bounded_copy(numbers->pool, text, sizeof numbers->pool);
            LOG_AS(LOADING, Debug, "Parse wan dev pool: %s\n", numbers->pool);
        }
    }
}

// False when the loading ends within the sections.
static bool load_sections(t_port_model *model, uci_package *package, t_left_out *left_out, t_port_numbers *numbers,
                          int *count)
{
    for (uci_element &element : sections_of(package)) {
        uci_section *section = uci_to_section(&element);
        if (is_device(section)) {
            if (!load_device(model, section, left_out, count))
                return false;
        } else if (strcmp(element.name, "auto_wan_detect") == 0) {
            read_port_numbers(section, numbers);
        }
    }
    return true;
}

static bool load_devices_and_numbers(t_port_model *model, uci_package *package, t_port_numbers *numbers, int *count)
{
    read_port_prefixes(package);
    t_left_out left_out = {};
    left_out.too_many = has_too_many_devices(package);
    const bool to_the_end = load_sections(model, package, &left_out, numbers, count);
    if (left_out.count)
        LOG_AS(LOADING, Warning, "Parse network, %d device(s) that cannot be ports left out:%s\n", left_out.count,
               left_out.names);
    return to_the_end;
}

// The next word of a list of port numbers as a port's name; numbers without a name are skipped. False at the end.
static bool next_port(const char **numbers, char (&ifname)[UCI_VALUE_SIZE])
{
    char number[CONFIG_TEXT_SIZE];
    while (next_word(numbers, number)) {
        char key[SWITCH_KEY_SIZE];
        if (read_switch_ifname("port", number, key, ifname) == OK)
            return true;
        LOG_AS(LOADING, Error, "Unable to get switch.port%s.ifname, skip it!!\n", number);
    }
    return false;
}

// False when the order is full.
static bool load_priorities(t_port_model *model, const char *numbers)
{
    int position = 0;
    char ifname[UCI_VALUE_SIZE];
    for (const char *rest = numbers; next_port(&rest, ifname);) {
        if (t_device *device = find_device(model->dev_hashmap_head, ifname)) {
            model->priority_order[position++] = device;
            device->priority = static_cast<int8_t>(position);
            LOG_AS(LOADING, Debug, "device:%s (priority:%d) parse success!\n", ifname, position);
        } else {
            LOG_AS(LOADING, Error, "device:%s in network.dev_priority.ifname:%s not found!\n", ifname, numbers);
        }
        if (position >= DEVICE_LIMIT) {
            LOG_AS(LOADING, Error, "Parse network.dev_priority.ifname:%s device number more than %d!\n", numbers,
                   DEVICE_LIMIT);
            return false;
        }
    }
    return true;
}

static int count_words(const char *text)
{
    int count = 0;
    for (char word[CONFIG_TEXT_SIZE]; next_word(&text, word);)
        count++;
    return count;
}

// False when memory is short.
static bool load_pool(t_port_model *model, const char *numbers, int *count)
{
    char ifname[UCI_VALUE_SIZE];
    for (const char *rest = numbers; next_port(&rest, ifname);) {
        if (!find_device(model->dev_hashmap_head, ifname)) {
            LOG_AS(LOADING, Error, "device:%s in network.auto_wan_detect.wan_port_pool:%s not found!\n", ifname,
                   numbers);
            continue;
        }
        t_device *device = create_new_device(ifname);
        if (!device) {
            LOG_AS(LOADING, Error, "Create new device failed!\n");
            return false;
        }
        keep_device(&model->wan_port_pool, device);
        ++*count;
        LOG_AS(LOADING, Debug, "allowed wan device:%s parse success!\n", ifname);
    }
    chronicle.pool_has_strangers = *count != count_words(numbers);
    return true;
}

int generate_eth_device(t_port_model *model)
{
    LOG_ENTER();
    t_uci_package network("network");
    if (!network.package) {
        LOG(Error, "Unable to load uci network!\n");
        network.tell_error();
        return ERR_CONFIG_PACKAGE;
    }
    int count = 0, pool_count = 0;
    t_port_numbers numbers = {};
    if (!load_devices_and_numbers(model, network.package, &numbers, &count) ||
        !load_priorities(model, numbers.priority) || !load_pool(model, numbers.pool, &pool_count))
        return count;
    LOG(Info, "Parse network devices success, count:%d, lan_dev count:%d, wan_port_pool count:%d\n", count, 0,
        pool_count);
    model->device_count = static_cast<uint8_t>(count);
    return count;
}

int init_all_eth_device(t_port_model *model)
{
    int result = generate_eth_device(model);
    if (result < 0) {
        LOG(Error, "Parse network devices fail!\n");
        return result;
    }
    result = get_eth_atrribute(model->dev_hashmap_head);
    if (result <= 0)
        LOG(Error, "get_eth_atrribute failed, or no attribute successfully parse!\n");
    return result;
}

bool get_wan_detect_enable()
{
    char value[UCI_VALUE_SIZE] = "";
    if (_uci_get_value("network.auto_wan_detect.enable", value) != OK) {
        LOG(Error, "Unable to get network.auto_wan_detect.enable, treat it as off!\n");
        return false;
    }
    return has_prefix(value, "on") || has_prefix(value, "true");
}
