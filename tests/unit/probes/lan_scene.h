// SPDX-License-Identifier: MIT
// Addresses, ports and ARP answers that the tests of the ARP, DNS and LAN probes share.
#pragma once

#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <initializer_list>
#include <string>
#include <vector>

#include <arpa/inet.h>
#include <gtest/gtest.h>

#include "model/lists.h"
#include "model/records.h"
#include "platform/result_codes.h"
#include "probes/wire/wire_formats.h"

inline uint32_t ip(const char *text)
{
    uint32_t address_be = 0;
    EXPECT_EQ(inet_pton(AF_INET, text, &address_be), 1) << text;
    return address_be;
}

inline t_mac mac(const char *text)
{
    uint8_t bytes[MAC_SIZE] = {};
    EXPECT_EQ(sscanf(text, "%2hhx:%2hhx:%2hhx:%2hhx:%2hhx:%2hhx", &bytes[0], &bytes[1], &bytes[2], &bytes[3], &bytes[4],
                     &bytes[5]),
              6);
    return mac_at(bytes);
}

// For what takes a pointer, until the end of the expression.
inline const t_mac *at(const t_mac &mac)
{
    return &mac;
}

inline t_device make_port(const char *name, int8_t priority = 0)
{
    t_device dev = {};
    copy_name(dev.name, name);
    dev.priority = priority;
    return dev;
}

// A list of ports, emptied at the end.
struct t_port_list {
    t_device_list_head list = {};

    t_port_list(std::initializer_list<t_device *> ports)
    {
        for (t_device *port : ports)
            list.add(port);
    }
    ~t_port_list() { list.clear(); }
    t_port_list(const t_port_list &) = delete;
    t_port_list &operator=(const t_port_list &) = delete;

    std::vector<std::string> names() const
    {
        std::vector<std::string> found;
        for (const t_device_list *node = list.head.next; node; node = node->next)
            found.push_back(device_name(node->dev));
        return found;
    }
};

// An ARP packet as another host sends it. An answer says: `sender_ip` is at `sender_mac`.
struct t_arp_answer {
    t_mac sender_mac;
    uint32_t sender_ip_be;
    uint16_t opcode = 2;
    t_mac ethernet_source = UNKNOWN_MAC; // then it is the sender's MAC
    size_t size = sizeof(t_arp_frame);

    std::vector<uint8_t> bytes() const
    {
        t_arp_frame frame = {};
        frame.ethernet.source = ethernet_source == UNKNOWN_MAC ? sender_mac : ethernet_source;
        frame.ethernet.ether_type_be = htons(0x0806);
        frame.hardware_type_be = htons(1);
        frame.protocol_type_be = htons(0x0800);
        frame.hardware_length = 6;
        frame.protocol_length = 4;
        frame.opcode_be = htons(opcode);
        frame.sender_mac = sender_mac;
        frame.sender_ip_be = sender_ip_be;
        const auto *first = reinterpret_cast<const uint8_t *>(&frame);
        return {first, first + size};
    }
};
