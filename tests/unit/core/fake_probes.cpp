// SPDX-License-Identifier: MIT
#include "tests/unit/core/fake_probes.h"

#include <algorithm>

#include "model/current_wan.h"
#include "model/lists.h"
#include "model/port_model.h"
#include "platform/ipv4_text.h"
#include "platform/result_codes.h"
#include "probes/arp/arp_probe.h"
#include "probes/discovery/dhcp_discovery.h"
#include "probes/discovery/pppoe_discovery.h"
#include "probes/dns/dns_probe.h"
#include "probes/lan/lan_hosts.h"

t_fake_probes fake_probes;

int t_fake_probes::count(const std::string &call) const
{
    return static_cast<int>(std::count(calls.begin(), calls.end(), call));
}

namespace {

// What the fakes know of a discovery.
struct t_fake_batch {
    const t_discovery &kind;
    const std::set<std::string> &answering;
    const int &result; // of collecting, unless 0
    std::vector<std::string> asked;
    t_discovery_port port; // while the batch is open
};
t_fake_batch dhcp_batch = {dhcp_discovery, fake_probes.dhcp_ports, fake_probes.dhcp_result, {}, {}};
t_fake_batch pppoe_batch = {pppoe_discovery, fake_probes.pppoe_ports, fake_probes.pppoe_result, {}, {}};

t_fake_batch &batch_of(const t_discovery &kind)
{
    return &kind == &dhcp_discovery ? dhcp_batch : pppoe_batch;
}

std::vector<std::string> linked_ports()
{
    std::vector<std::string> ports;
    for (t_device *dev = port_model.dev_hashmap_head; dev; dev = static_cast<t_device *>(dev->hh.next))
        if (dev->link_active)
            ports.push_back(dev->name);
    return ports;
}

int collect(t_fake_batch &batch, bool final)
{
    if (batch.result)
        return batch.result;
    bool waiting = false;
    for (const std::string &port : batch.asked)
        waiting = waiting || !batch.answering.contains(port);
    if (waiting && !final)
        return PROBE_WAITING;
    for (const std::string &port : batch.asked)
        if (batch.answering.contains(port))
            set_dev_using_specific_proto(port_model.dev_hashmap_head, port_model.proto_hashmap_head, nullptr, nullptr,
                                         port.c_str(), batch.kind.protocol);
    batch.asked.clear();
    return waiting ? PROBE_SOME_SILENT : PROBE_ALL_ANSWERED;
}

} // namespace

int ask_linked_ports(const t_discovery &kind, t_port_model *)
{
    fake_probes.calls.push_back(std::string(kind.protocol) + " all");
    batch_of(kind).asked = linked_ports();
    kind.batch.contexts = &batch_of(kind).port;
    return fake_probes.send_result;
}

int ask_one_port(const t_discovery &kind, t_device *dev)
{
    if (!dev)
        return ERR_INVALID_INPUT;
    fake_probes.calls.push_back(std::string(kind.protocol) + " " + dev->name);
    if (!dev->link_active)
        return DEVICE_WITHOUT_LINK;
    batch_of(kind).asked = {dev->name};
    return OK;
}

int collect_batch(const t_discovery &kind, t_device *, t_protocol *, bool final)
{
    const int result = collect(batch_of(kind), final);
    if (result != PROBE_WAITING)
        kind.batch.contexts = nullptr;
    return result;
}

void release_batch(const t_discovery &kind)
{
    fake_probes.calls.push_back(std::string("release ") + kind.protocol);
    kind.batch.contexts = nullptr;
    batch_of(kind).asked.clear();
}

int update_brlan_dev(t_port_model *model)
{
    for (t_device *dev = model->dev_hashmap_head; dev; dev = static_cast<t_device *>(dev->hh.next))
        dev->is_brlan_dev = fake_probes.lan_ports.contains(dev->name);
    return OK;
}

int find_target_ip_and_device_with_arp(t_device_list_head *list, uint32_t target_be, uint32_t sender_be)
{
    const std::string as = sender_be ? std::string(" as ") + t_ipv4_text(sender_be).text : "";
    fake_probes.calls.push_back(std::string("arp ") + t_ipv4_text(target_be).text + as);
    if (!fake_probes.bridge_readable) {
        list->clear();
        return ARP_ERR_LAN_BRIDGE;
    }
    if (fake_probes.lose_nodes) {
        free_device_list(&list->head);
        return OK;
    }
    list->drop_if([](const t_device_list &node) {
        if (!fake_probes.gateway_ports.contains(node.dev->name))
            return true;
        node.dev->result.server_mac[MAC_SIZE - 1] = fake_probes.gateway_mac[node.dev->name];
        return false;
    });
    return OK;
}

int send_special_arp(t_device *dev, uint32_t target_be)
{
    fake_probes.calls.push_back(std::string("special ") + dev->name + " " + t_ipv4_text(target_be).text);
    return 1;
}

int dns_lookup_via_multi_eth(t_dns_ctx *ctx)
{
    fake_probes.calls.push_back("dns");
    ctx->winner = nullptr;
    for (int32_t i = 0; i < ctx->count; i++) {
        const t_dns_entry &entry = ctx->entries[i];
        char text[128];
        snprintf(text, sizeof text, "%s %s %s %02x", entry.dev->name, t_ipv4_text(entry.dev_ip_be).text,
                 t_ipv4_text(entry.dns_server_be).text, entry.server_mac[MAC_SIZE - 1]);
        fake_probes.dns_entries.push_back(text);
        const auto &ports = fake_probes.dns_ports;
        if (!ctx->winner && std::find(ports.begin(), ports.end(), entry.dev->name) != ports.end())
            ctx->winner = entry.dev;
    }
    return ctx->winner ? 1 : 0;
}
