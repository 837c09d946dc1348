// SPDX-License-Identifier: MIT
// The two questions put to ports in the LAN bridge's name.
#include "probes/arp_probe.h"

#include "model/lists.h"
#include "platform/ipv4_text.h"
#include "platform/log.h"
#include "platform/result_codes.h"
#include "probes/interface_query.h"

static void empty_list(t_device_list_head *list)
{
    if (!list)
        return;
    free_device_list(&list->head);
    list->count = 0;
}

namespace {

// A list of one port for one question.
struct t_single_port_list {
    t_device_list_head list = {};
    bool filled;

    explicit t_single_port_list(t_device *dev) : filled(add_unique_device_inorder_to_list(&list.head, dev) == OK)
    {
        list.count = filled;
    }
    ~t_single_port_list() { free_device_list(&list.head); }
    t_single_port_list(const t_single_port_list &) = delete;
    t_single_port_list &operator=(const t_single_port_list &) = delete;
};

} // namespace

int find_target_ip_and_device_with_arp(t_device_list_head *list, uint32_t target_be, uint32_t sender_be)
{
    LOG(Debug, "Entering function: find_target_ip_and_device_with_arp, target_ip=%s!\n", t_ipv4_text(target_be).text);
    t_interface_info lan;
    if (query_interface(LAN_BRIDGE, &lan) != 0) {
        LOG(Error, "Couldn't get br-lan ip, netmask, mac!\n");
        empty_list(list);
        return ARP_ERR_LAN_BRIDGE;
    }
    LOG(Debug, "Success get br-lan ip:%s, mac:%02X-%02X-%02X-%02X-%02X-%02X\n", t_ipv4_text(lan.address_be).text,
        MAC_ARGS(lan.mac));
    const uint32_t asker_be = sender_be ? sender_be : lan.address_be;
    if (check_ip_using_arp_blocked(target_be, &UNKNOWN_MAC, list, asker_be, &lan.mac) != OK) {
        LOG(Error, "Failed to send arp request for each device!\n");
        empty_list(list);
        return ARP_ERR_SEARCH;
    }
    if (list->count == 0)
        LOG(Debug, "Target ip:%s not found with arp in each device!\n", t_ipv4_text(target_be).text);
    if (list->count > 1)
        LOG(Warning, "Detect %d device own same ip:%s!\n", list->count, t_ipv4_text(target_be).text);
    return OK;
}

int send_special_arp(t_device *dev, uint32_t target_be)
{
    LOG(Debug, "Entering function: send_special_arp, target_ip=%s!\n", t_ipv4_text(target_be).text);
    t_single_port_list port(dev);
    if (!port.filled) {
        LOG(Error, "That's impossible, as dev_list is empty!\n");
        return 0;
    }
    t_interface_info lan;
    if (query_interface(LAN_BRIDGE, &lan) != 0) {
        LOG(Error, "Couldn't get br-lan ip, netmask, mac!\n");
        return 0;
    }
    LOG(Debug, "Success get br-lan mac:%02X-%02X-%02X-%02X-%02X-%02X\n", MAC_ARGS(lan.mac));
    if (check_ip_using_arp_blocked(target_be, &UNKNOWN_MAC, &port.list, lan.address_be, &lan.mac) != OK) {
        LOG(Error, "Failed to send arp request for dev:%s!\n", dev->name);
        return 0;
    }
    if (check_device_in_list(&port.list.head, dev))
        LOG(Debug, "Send a arp packet to ip:%s via %s and success get response!!\n", t_ipv4_text(target_be).text,
            dev->name);
    else
        LOG(Debug, "Send a arp packet to ip:%s via %s, however no response!!\n", t_ipv4_text(target_be).text,
            dev->name);
    return 1;
}
