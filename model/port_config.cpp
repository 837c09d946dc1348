// SPDX-License-Identifier: MIT
// Loading the ports of the network configuration, their order, the pool and the enable switch.
#include "model/port_config.h"

#include <cstdlib>
#include <cstring>

#include "model/config_text.h"
#include "model/fake_wan.h"
#include "model/tables.h"
#include "platform/log.h"
#include "platform/result_codes.h"
#include "platform/text.h"

namespace {

constexpr int DEVICE_LIMIT = static_cast<int>(MAX_DEVICES);

// The two lists of switch port numbers, empty when missing.
struct t_port_numbers {
    char priority[CONFIG_TEXT_SIZE];
    char pool[CONFIG_TEXT_SIZE];
};

enum class t_list_option { other, priority, pool, unreadable };

// Takes over an option that lists port numbers.
t_list_option read_list_option(const uci_option *option, t_port_numbers *numbers)
{
    const bool is_priority = strcmp(option->e.name, "wan_port_priority") == 0;
    if (!is_priority && strcmp(option->e.name, "wan_port_pool") != 0)
        return t_list_option::other;
    const char *text = option_text(option);
    if (!text)
        return t_list_option::unreadable;
    bounded_copy(is_priority ? numbers->priority : numbers->pool, text, CONFIG_TEXT_SIZE);
    return is_priority ? t_list_option::priority : t_list_option::pool;
}

// A record of the main table, whose numbers start at 0, unlike those of the other tables. Null when memory is short.
t_device *create_main_device(const char *name)
{
    auto *device = static_cast<t_device *>(calloc(1, sizeof(t_device)));
    if (device)
        copy_name(device->name, name);
    return device;
}

bool read_port_ifname(const char *number, char (&ifname)[UCI_VALUE_SIZE])
{
    char key[SWITCH_KEY_SIZE];
    return read_switch_ifname("port", number, key, ifname) == OK;
}

} // namespace

// Long because every line it logs carries its name.
int generate_eth_device(t_port_model *model)
{
    LOG_ENTER();
    t_uci_package network("network");
    if (!network.package) {
        LOG(Error, "Unable to load uci network!\n");
        network.tell_error();
        return ERR_CONFIG_PACKAGE;
    }
    int count = 0;
    t_port_numbers numbers = {};
    uci_element *element;
    uci_foreach_element(&network.package->sections, element)
    {
        uci_section *section = uci_to_section(element);
        if (strcmp(section->type, "device") == 0) {
            const uci_option *option = find_config_option(section, "name");
            if (!option)
                continue;
            const char *name = option_text(option);
            if (!name) {
                LOG(Error, "Unable to get uci network , type=device\n");
                return count;
            }
            t_device *device = create_main_device(name);
            if (!device) {
                LOG(Error, "Malloc new device failed!\n");
                return count;
            }
            keep_device(&model->dev_hashmap_head, device);
            count++;
            LOG(Debug, "Parse network devices(%d totoal) name: %s\n", count, name);
            if (count >= DEVICE_LIMIT) {
                LOG(Error, "Parse network, device number more than %d!\n", DEVICE_LIMIT);
                return count;
            }
        } else if (strcmp(element->name, "auto_wan_detect") == 0) {
            uci_element *option;
            uci_foreach_element(&section->options, option)
            {
                const t_list_option read = read_list_option(uci_to_option(option), &numbers);
                if (read == t_list_option::priority)
                    LOG(Debug, "Parse devices priority order: %s\n", numbers.priority);
                else if (read == t_list_option::pool)
                    LOG(Debug, "Parse wan dev pool: %s\n", numbers.pool);
                else if (read == t_list_option::unreadable)
                    LOG(Error, "Unable to get uci network.auto_wan_detect\n");
            }
        }
    }

    char number[CONFIG_TEXT_SIZE];
    char ifname[UCI_VALUE_SIZE];
    int position = 0;
    for (const char *rest = numbers.priority; next_word(&rest, number);) {
        if (!read_port_ifname(number, ifname)) {
            LOG(Error, "Unable to get switch.port%s.ifname, skip it!!\n", number);
            continue;
        }
        if (t_device *device = find_device(model->dev_hashmap_head, ifname)) {
            model->priority_order[position++] = device;
            device->priority = static_cast<int8_t>(position);
            LOG(Debug, "device:%s (priority:%d) parse success!\n", ifname, position);
        } else {
            LOG(Error, "device:%s in network.dev_priority.ifname:%s not found!\n", ifname, numbers.priority);
        }
        if (position >= DEVICE_LIMIT) {
            LOG(Error, "Parse network.dev_priority.ifname:%s device number more than %d!\n", numbers.priority,
                DEVICE_LIMIT);
            return count;
        }
    }

    int pool_count = 0;
    for (const char *rest = numbers.pool; next_word(&rest, number);) {
        if (!read_port_ifname(number, ifname)) {
            LOG(Error, "Unable to get switch.port%s.ifname, skip it!!\n", number);
            continue;
        }
        if (!find_device(model->dev_hashmap_head, ifname)) {
            LOG(Error, "device:%s in network.auto_wan_detect.wan_port_pool:%s not found!\n", ifname, numbers.pool);
            continue;
        }
        t_device *device = create_new_device(ifname);
        if (!device) {
            LOG(Error, "Create new device failed!\n");
            return count;
        }
        keep_device(&model->wan_port_pool, device);
        pool_count++;
        LOG(Debug, "allowed wan device:%s parse success!\n", ifname);
    }
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

int get_wan_detect_enable()
{
    char value[UCI_VALUE_SIZE] = "";
    if (_uci_get_value("network.auto_wan_detect.enable", value) != OK) {
        LOG(Error, "Unable to get network.auto_wan_detect.enable, treat it as off!\n");
        wan_detect_remove_fake_wan();
        return 0;
    }
    if (has_prefix(value, "on") || has_prefix(value, "true"))
        return 1;
    wan_detect_remove_fake_wan();
    return 0;
}
