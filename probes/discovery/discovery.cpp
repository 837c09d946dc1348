// SPDX-License-Identifier: MIT
#include "probes/discovery/discovery.h"

#include <cerrno>
#include <cstdlib>
#include <net/ethernet.h>
#include <sys/socket.h>

#include "model/chronicle.h"
#include "model/current_wan.h"
#include "model/gate.h"
#include "model/reserved_ports.h"
#include "platform/guards.h"
#include "platform/log.h"
#include "platform/result_codes.h"
#include "probes/wire/new_contexts.h"
#include "probes/wire/packet_socket.h"

#pragma GCC diagnostic ignored "-Wformat-nonliteral" // the descriptions' texts: t_text has looked at them
#pragma GCC diagnostic ignored "-Wformat-security"

static void announce(const char *speaker)
{
    log_enter(__LINE__, speaker);
}

// Every linked port that no LAN host is behind and no table reserves. The lock is gone before anything is sent.
static void collect_linked_ports(t_port_model *model, t_device_list_head *ports)
{
    const t_read_guard guard(engine_gate->locks.device_lock);
    for (t_device *dev = model->dev_hashmap_head; dev; dev = static_cast<t_device *>(dev->hh.next))
        if (dev->link_active && !dev->is_brlan_dev && !is_reserved_port(model, dev->name))
            ports->add(dev);
}

int ask_linked_ports(const t_discovery &kind, t_port_model *model)
{
    const char *const speaker = kind.speakers.ask_linked;
    t_device_list_head ports = {};
    collect_linked_ports(model, &ports);
    LOG_AS(speaker, Debug, kind.texts.ports_ready.format, ports.count);
    if (ports.count == 0)
        LOG_AS(speaker, Info, kind.texts.no_ports.format);
    else if (send_batch(kind, &ports) == OK)
        LOG_AS(speaker, Debug, kind.texts.ports_asked.format, ports.count);
    else
        LOG_AS(speaker, Error, kind.texts.ports_not_asked.format);
    ports.clear();
    return OK;
}

static bool has_link(const t_discovery &kind, const t_device &dev)
{
    const t_read_guard guard(engine_gate->locks.device_lock);
    if (!dev.link_active)
        LOG_AS(kind.speakers.ask_one, Info, "dev:%s has no link, skip the detect!\n", dev.name);
    else if (dev.is_brlan_dev)
        LOG_AS(kind.speakers.ask_one, Debug,
               "dev:%s has a lan device, cotinue the detect as device has been specified!\n", dev.name);
    return dev.link_active;
}

int ask_one_port(const t_discovery &kind, t_device *dev)
{
    if (!dev) {
        LOG_AS(kind.speakers.ask_one, Error, "Null devive specified!\n");
        return ERR_INVALID_INPUT;
    }
    if (!has_link(kind, *dev))
        return DEVICE_WITHOUT_LINK;
    t_device_list_head ports = {};
    ports.add(dev);
    LOG_AS(kind.speakers.ask_one, Debug, kind.texts.port_ready.format, dev->name);
    if (send_batch(kind, &ports) != OK)
        LOG_AS(kind.speakers.ask_one, Error, kind.texts.port_not_asked.format, dev->name);
    else if (kind.texts.port_asked.is_said())
        LOG_AS(kind.speakers.ask_one, Debug, kind.texts.port_asked.format, dev->name);
    ports.clear();
    return OK;
}

static std::span<t_discovery_port> ports_of(const t_discovery_batch &batch)
{
    const size_t count = batch.contexts ? batch.device_num : 0;
    return {batch.contexts, count};
}

static bool learn_lan_mac(const t_discovery &kind)
{
    t_interface_info lan;
    if (query_interface(LAN_BRIDGE, &lan) != 0) {
        LOG_AS(kind.speakers.send_all, Error, kind.texts.no_lan_bridge.format);
        return false;
    }
    kind.batch.lan_mac = lan.mac;
    return true;
}

static int open_batch(const t_discovery &kind, uint8_t count)
{
    if (kind.must_know_lan_mac && !learn_lan_mac(kind))
        return DISCOVERY_ERR_LAN_BRIDGE;
    kind.batch.contexts = new_contexts<t_discovery_port>(count);
    if (!kind.batch.contexts) {
        LOG_AS(kind.speakers.send_all, Error, kind.texts.no_memory.format, count);
        return ERR_NO_MEMORY;
    }
    kind.batch.device_num = count;
    kind.batch.finished = 0;
    kind.batch.filter_level = log_get_level();
    kind.batch.lines.probe = kind.protocol;
    return OK;
}

static void open_port(const t_discovery &kind, t_discovery_port *port, t_device *dev)
{
    if (!dev) {
        LOG_AS(kind.speakers.send_all, Error, kind.texts.no_port.format);
    } else if (open_on_port(kind, port) != OK) {
        LOG_AS(kind.speakers.send_all, Error, kind.texts.not_opened.format, dev->name);
    } else {
        port->dev = dev;
        LOG_AS(kind.speakers.send_all, Debug, kind.texts.opened.format, dev->name);
    }
}

static void ask_port(const t_discovery &kind, t_discovery_port *port)
{
    LOG_AS(kind.speakers.send_all, Debug, kind.texts.sending.format, device_name(port->dev));
    if (send_on_port(kind, port) != OK)
        LOG_AS(kind.speakers.send_all, Error, kind.texts.not_sent.format, device_name(port->dev));
    else
        LOG_AS(kind.speakers.send_all, Debug, kind.texts.sent.format, device_name(port->dev));
}

int send_batch(const t_discovery &kind, t_device_list_head *list)
{
    announce(kind.speakers.send_all);
    if (!list || list->count == 0) {
        LOG_AS(kind.speakers.send_all, Error, kind.texts.bad_list.format);
        return ERR_INVALID_INPUT;
    }
    if (kind.batch.contexts) {
        LOG_AS(kind.speakers.send_all, Notice, "Last time handle not release, release it before resend!\n");
        release_batch(kind);
    }
    const int opened = open_batch(kind, list->count);
    if (opened != OK)
        return opened;
    const t_device_list *node = list->head.next;
    for (t_discovery_port &port : ports_of(kind.batch)) {
        open_port(kind, &port, node ? node->dev : nullptr);
        node = node ? node->next : nullptr;
    }
    for (t_discovery_port &port : ports_of(kind.batch))
        ask_port(kind, &port);
    return OK;
}

int open_on_port(const t_discovery &kind, t_discovery_port *port)
{
    const int first = rand(), second = rand();
    *port = {};
    port->identifier = probe_identifier(first, second);
    port->kind = &kind;
    port->socket.watcher.cb = receive_on_port;
    if (!port->socket.open(ETH_P_ALL)) {
        if (errno == EPERM && kind.texts.no_rights.is_said())
            LOG_AS(kind.speakers.open, Error, kind.texts.no_rights.format);
        LOG_AS(kind.speakers.open, Error, kind.texts.no_socket.format);
        return kind.error_without_socket;
    }
    const int on = 1;
    if (kind.may_broadcast && packet_socket_set_option(port->socket.watcher.fd, SO_BROADCAST, &on, sizeof on) != 0)
        LOG_AS(kind.speakers.open, Error, "setsockopt 'SO_BROADCAST' error!\n");
    return OK;
}

static t_frame_filter filter_of(const t_discovery &kind, const t_discovery_port &port)
{
    return kind.filter(port.identifier, kind.batch.lan_mac, log_get_level());
}

int send_on_port(const t_discovery &kind, t_discovery_port *port)
{
    announce(kind.speakers.send_packet);
    t_port_socket &socket = port->socket;
    const char *name = device_name(port->dev);
    if (!socket.is_open()) {
        LOG_AS(kind.speakers.send_packet, Error, kind.texts.not_open.format);
        return DISCOVERY_ERR_NOT_OPEN;
    }
    socket.look_up(name); // a port that is gone has index 0: nothing can be sent to that one
    LOG_AS(kind.speakers.send_packet, Debug, "Get device:%s , index=%d, hw_addr=%02x-%02x-%02x-%02x-%02x-%02x\n", name,
           socket.ifindex, MAC_ARGS(socket.mac));
    const sockaddr_ll everyone = packet_broadcast_address(ETH_P_ALL, socket.ifindex);
    if (!socket.listen(filter_of(kind, *port), everyone)) {
        LOG_AS(kind.speakers.send_packet, Error, "Error binding socket!\n");
        socket.close();
        return DISCOVERY_ERR_BIND;
    }
    uint8_t buffer[DISCOVERY_BUFFER_SIZE];
    const size_t size = kind.build(std::span(buffer), socket.mac, port->identifier);
    if (size == 0) {
        if (kind.texts.not_built.is_said())
            LOG_AS(kind.speakers.send_packet, Error, kind.texts.not_built.format, name);
        socket.close();
        return DISCOVERY_ERR_FRAME;
    }
    packet_socket_unwatch(&socket.watcher);
    if (!socket.send({buffer, size}, everyone)) {
        LOG_AS(kind.speakers.send_packet, Error, kind.texts.not_written.format, name);
        socket.close();
        return DISCOVERY_ERR_SEND;
    }
    note_question(port->dev);
    packet_socket_watch(&socket.watcher);
    return OK;
}

void receive_on_port(uloop_fd *watcher, unsigned int events)
{
    if (!(events & ULOOP_READ)) {
        packet_socket_settle_error(watcher);
        return;
    }
    t_discovery_port *port = container_of(watcher, t_discovery_port, socket.watcher);
    const t_discovery &kind = *port->kind;
    const char *name = device_name(port->dev);
    if (may_tell_of_frame(&kind.batch.lines, LOG_LEVEL_Debug))
        LOG_AS(kind.speakers.receive, Debug, kind.texts.heard.format, name);
    uint8_t buffer[DISCOVERY_BUFFER_SIZE];
    const ssize_t got = port->socket.receive({buffer, kind.frame_size});
    if (got < 1) {
        LOG_AS(kind.speakers.receive, Error, "Cannot read from socket, try again! dev=%s\n", name);
        return;
    }
    if (!kind.is_answer(port, {buffer, static_cast<size_t>(got)}))
        return;
    port->answered = 1;
    port->socket.close();
    LOG_AS(kind.speakers.receive, Info, kind.texts.understood.format, name);
}

static int result_of(const t_discovery &kind, bool final)
{
    if (!kind.batch.contexts) {
        LOG_AS(kind.speakers.process, Info, kind.texts.nothing_sent.format);
        return PROBE_NO_BATCH;
    }
    if (kind.batch.device_num == 0) {
        LOG_AS(kind.speakers.process, Error, kind.texts.impossible.format);
        return ERR_INVALID_INPUT;
    }
    for (const t_discovery_port &port : ports_of(kind.batch))
        if (!port.answered)
            return final ? PROBE_SOME_SILENT : PROBE_WAITING;
    return PROBE_ALL_ANSWERED;
}

// Somebody may want to see more, or less, while the probe runs.
static void follow_log_level(const t_discovery &kind)
{
    const int level = log_get_level();
    if (level == kind.batch.filter_level)
        return;
    kind.batch.filter_level = level;
    for (const t_discovery_port &port : ports_of(kind.batch))
        if (port.socket.is_open())
            packet_socket_filter(port.socket.watcher.fd, filter_of(kind, port));
}

static void keep_result(const t_discovery &kind, const t_discovery_port &port)
{
    if (!kind.tell_result)
        return;
    port.dev->result = port.result;
    kind.tell_result(*port.dev);
}

int collect_batch(const t_discovery &kind, t_device *dev_hashmap_head, t_protocol *proto_hashmap_head, bool final)
{
    announce(kind.speakers.process);
    const int result = result_of(kind, final);
    if (result == PROBE_WAITING) {
        follow_log_level(kind);
        return result;
    }
    kind.batch.finished = 1;
    for (const t_discovery_port &port : ports_of(kind.batch)) {
        LOG_AS(kind.speakers.process, Debug, kind.texts.looking.format, device_name(port.dev));
        if (port.answered && port.dev) {
            LOG_AS(kind.speakers.process, Info, kind.texts.found.format, port.dev->name);
            set_dev_using_specific_proto(dev_hashmap_head, proto_hashmap_head, nullptr, nullptr, port.dev->name,
                                         kind.protocol);
            keep_result(kind, port);
            note_answer(port.dev, kind.protocol, port.result);
        } else {
            LOG_AS(kind.speakers.process, Debug, kind.texts.silent.format, device_name(port.dev));
        }
    }
    release_batch(kind);
    return result;
}

void release_batch(const t_discovery &kind)
{
    announce(kind.speakers.release);
    if (!kind.batch.contexts) {
        LOG_AS(kind.speakers.release, Info, kind.texts.nothing_open.format);
        return;
    }
    if (kind.batch.device_num == 0)
        LOG_AS(kind.speakers.release, Error, kind.texts.count_lost.format);
    for (t_discovery_port &port : ports_of(kind.batch))
        port.socket.close();
    tell_lines_left_out(&kind.batch.lines);
    free(kind.batch.contexts);
    LOG_AS(kind.speakers.release, Debug, kind.texts.released.format);
    kind.batch = {};
}
