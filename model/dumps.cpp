// SPDX-License-Identifier: MIT
// The columns of the two tables.
#include "model/dumps.h"

#include <cstdio>

#include "model/gate.h"
#include "platform/log.h"

constexpr const char *CLOSING_RULE =
    "----------------------------------------------------------------------------------";

constexpr int ROW_SIZE = 1024; // the longest names, in a list that is full

static void print_line(const char *text)
{
    log_print_always("%s\n", text);
}

void dump_all_device(t_device *dev_hashmap_head)
{
    if (log_get_level() < LOG_LEVEL_Debug)
        return;
    print_line("----------------------------------Dumping device----------------------------------");
    print_line("\tName\tport_num\tsub_port\tactive\tlink_active\tproto\t");
    {
        t_read_guard reading(engine_gate->locks.device_lock);
        for (const t_device *device = dev_hashmap_head; device; device = static_cast<t_device *>(device->hh.next))
            log_print_always("\t%s\t%d\t\t%s\t\t%s\t%s\t\t%s\t\n", device->name, device->port_num,
                             sub_port_word(device->sub_port), true_or_false(device->active),
                             true_or_false(device->link_active), protocol_name(device->proto));
    }
    print_line(CLOSING_RULE);
}

static void dump_protocol(const t_protocol &protocol)
{
    char row[ROW_SIZE];
    int length = snprintf(row, sizeof row, "\t%s\t\t%s\t", protocol.name, true_or_false(protocol.is_ipv4));
    for (const t_device_list *node = protocol.devices.head.next; node && length < ROW_SIZE; node = node->next)
        length += snprintf(row + length, sizeof row - static_cast<size_t>(length), "\t%s", device_name(node->dev));
    print_line(row);
}

void dump_all_protocols(t_protocol *proto_hashmap_head)
{
    if (log_get_level() < LOG_LEVEL_Debug)
        return;
    print_line("----------------------------------Dumping protocols----------------------------------");
    print_line("\tName\t\tis_ipv4\t\tdevices\t");
    for (const t_protocol *protocol = proto_hashmap_head; protocol;
         protocol = static_cast<t_protocol *>(protocol->hh.next))
        dump_protocol(*protocol);
    print_line(CLOSING_RULE);
}
