// SPDX-License-Identifier: MIT
// The two questions put to ports in the LAN bridge's name.
#include "probes/arp/arp_probe.h"

#include <cstring>

#include "model/chronicle.h"
#include "platform/ipv4_text.h"
#include "platform/log.h"
#include "platform/result_codes.h"
#include "probes/arp/arp_search.h"
#include "probes/wire/packet_socket.h"

// A search learns the MAC; the rest of a port's record is of another probe, or configured.
static void note_owners(const t_device_list_head *list)
{
    for (const t_device_list *node = list->head.next; node; node = node->next) {
        t_detect_result learned = {};
        memcpy(learned.server_mac, node->dev->result.server_mac, MAC_SIZE);
        note_answer(node->dev, "arp", learned);
    }
}

int find_target_ip_and_device_with_arp(t_device_list_head *list, uint32_t target_be, uint32_t sender_be)
{
    LOG(Debug, "Entering function: find_target_ip_and_device_with_arp, target_ip=%s!\n", t_ipv4_text(target_be).text);
    t_interface_info lan;
    if (query_interface(LAN_BRIDGE, &lan) != 0) {
        LOG(Error, "Couldn't get br-lan ip, netmask, mac!\n");
        if (list)
            list->clear();
        return ARP_ERR_LAN_BRIDGE;
    }
    LOG(Debug, "Success get br-lan ip:%s, mac:%02X-%02X-%02X-%02X-%02X-%02X\n", t_ipv4_text(lan.address_be).text,
        MAC_ARGS(lan.mac));
    const uint32_t asker_be = sender_be ? sender_be : lan.address_be;
    if (check_ip_using_arp_blocked(target_be, &UNKNOWN_MAC, list, asker_be, &lan.mac) != OK) {
        LOG(Error, "Failed to send arp request for each device!\n");
        if (list)
            list->clear();
        return ARP_ERR_SEARCH;
    }
    note_owners(list);
    if (list->count == 0)
        LOG(Debug, "Target ip:%s not found with arp in each device!\n", t_ipv4_text(target_be).text);
    if (list->count > 1)
        LOG(Warning, "Detect %d device own same ip:%s!\n", list->count, t_ipv4_text(target_be).text);
    return OK;
}

constexpr const char *ASKING_ONE = "send_special_arp"; // its part speaks in its name

static int ask_single_port(t_device_list_head *port, t_device *dev, uint32_t target_be)
{
    t_interface_info lan;
    if (query_interface(LAN_BRIDGE, &lan) != 0) {
        LOG_AS(ASKING_ONE, Error, "Couldn't get br-lan ip, netmask, mac!\n");
        return 0;
    }
    LOG_AS(ASKING_ONE, Debug, "Success get br-lan mac:%02X-%02X-%02X-%02X-%02X-%02X\n", MAC_ARGS(lan.mac));
    if (check_ip_using_arp_blocked(target_be, &UNKNOWN_MAC, port, lan.address_be, &lan.mac) != OK) {
        LOG_AS(ASKING_ONE, Error, "Failed to send arp request for dev:%s!\n", dev->name);
        return 0;
    }
    if (port->count > 0)
        LOG_AS(ASKING_ONE, Debug, "Send a arp packet to ip:%s via %s and success get response!!\n",
               t_ipv4_text(target_be).text, dev->name);
    else
        LOG_AS(ASKING_ONE, Debug, "Send a arp packet to ip:%s via %s, however no response!!\n",
               t_ipv4_text(target_be).text, dev->name);
    return 1;
}

int send_special_arp(t_device *dev, uint32_t target_be)
{
    LOG(Debug, "Entering function: send_special_arp, target_ip=%s!\n", t_ipv4_text(target_be).text);
    t_device_list_head port = {};
    if (port.add(dev) != OK) {
        LOG(Error, "That's impossible, as dev_list is empty!\n");
        return 0;
    }
    const int ran = ask_single_port(&port, dev, target_be);
    port.clear();
    return ran;
}
