// SPDX-License-Identifier: MIT
// Many frames on two ports, for both protocols at once and for the probes that wait, while calls of the kernel fail.
// The input is a row of steps: a byte that chooses the step and the port, and what that step needs.
#include <arpa/inet.h>
#include <cerrno>
#include <cstring>

#include "model/lists.h"
#include "platform/result_codes.h"
#include "probes/arp/arp_probe.h"
#include "probes/discovery/dhcp_discovery.h"
#include "probes/discovery/pppoe_discovery.h"
#include "probes/dns/dns_probe.h"
#include "tests/fuzz/support/probe_scene.h"
#include "tests/unit/support/fake_clock.h"

namespace {

constexpr int MOST_STEPS = 64;
constexpr size_t MOST_WAITING_FRAMES = 32;
constexpr uint8_t SECOND_PORT = 0x80;
constexpr uint8_t FINAL = 0x40;
constexpr const char *DNS_SERVER = "10.20.30.53";
constexpr const char *TARGET_ADDRESS = "192.168.1.50";

enum t_step : uint8_t {
    ASK_DHCP,
    ASK_PPPOE,
    FRAME, // arrives at once
    RUN_LOOP,
    COLLECT_DHCP,
    COLLECT_PPPOE,
    PEER_FRAME, // waits until a probe asks something
    SEARCH_WITH_ARP,
    ASK_DNS,
    FAILURE, // of a kernel call, from now on
    SOCKET_ERROR,
    UNPLUG,
    STEPS
};

struct t_exchange {
    t_probe_scene &scene;
    std::vector<t_bytes> peer_frames; // what a peer says when it is asked, all of it

    void answer(const t_sent_frame &request)
    {
        for (const t_bytes &frame : peer_frames)
            fake_wire.arrive(request.fd, frame);
    }
};

void ask_dns(t_probe_scene &scene)
{
    t_dns_ctx ctx = {};
    for (t_device *dev : {scene.port, scene.other_port}) {
        t_dns_entry &entry = ctx.entries[ctx.count++];
        entry.dev = dev;
        entry.dev_ip_be = dev->result.address.ipv4_be;
        entry.dns_server_be = inet_addr(DNS_SERVER);
    }
    const bool answered = dns_lookup_via_multi_eth(&ctx) == 1;
    REQUIRE(answered == (ctx.winner != nullptr));
    REQUIRE(!answered || ctx.winner == scene.port || ctx.winner == scene.other_port);
}

void search_with_arp(t_probe_scene &scene)
{
    t_device_list_head list = {};
    for (t_device *dev : {scene.port, scene.other_port})
        list.count = static_cast<uint8_t>(list.count + (add_unique_device_inorder_to_list(&list.head, dev) == OK));
    find_target_ip_and_device_with_arp(&list, inet_addr(TARGET_ADDRESS));
    unsigned left = 0;
    for (const t_device_list *node = list.head.next; node; node = node->next)
        left++;
    REQUIRE(left == list.count && left <= 2);
    free_device_list(&list.head);
}

// A batch that is over has closed its sockets.
void check_collected(int result, bool final, const void *contexts)
{
    REQUIRE(result != PROBE_WAITING || (!final && contexts));
    REQUIRE(result == PROBE_WAITING || !contexts);
}

void fail_call(t_input &input, const char *port)
{
    constexpr int ERRORS[] = {EIO, ENODEV, ENETDOWN, ENOBUFS, EAGAIN, EMFILE, EPERM, EINTR};
    const uint8_t choice = input.byte();
    const auto call = static_cast<t_wire_call>(choice % (static_cast<int>(t_wire_call::QUERY_PORT) + 1));
    fake_wire.fail(call, ERRORS[choice >> 5], input.byte() % 4, 1 + input.byte() % 4,
                   call == t_wire_call::OPEN ? "" : port);
}

void show_errors()
{
    for (const auto &[fd, socket] : fake_wire.sockets())
        if (uloop_fd *watcher = socket.watcher) {
            fake_wire.socket(fd).error_pending = true;
            watcher->cb(watcher, ULOOP_WRITE);
            break;
        }
}

void take_step(t_exchange &exchange, uint8_t choice, t_input &input)
{
    t_probe_scene &scene = exchange.scene;
    t_device *dev = choice & SECOND_PORT ? scene.other_port : scene.port;
    const bool final = choice & FINAL;
    switch ((choice & ~(SECOND_PORT | FINAL)) % STEPS) {
    case ASK_DHCP:
        final ? ask_one_port(dhcp_discovery, dev) : ask_linked_ports(dhcp_discovery, &scene.model);
        break;
    case ASK_PPPOE:
        final ? ask_one_port(pppoe_discovery, dev) : ask_linked_ports(pppoe_discovery, &scene.model);
        break;
    case FRAME:
        fake_wire.arrive(dev->name, scene.bytes(input.block()));
        break;
    case RUN_LOOP:
        fake_wire.run_loop();
        break;
    case COLLECT_DHCP:
        check_collected(
            collect_batch(dhcp_discovery, scene.model.dev_hashmap_head, scene.model.proto_hashmap_head, final), final,
            dhcp_detect_handle.contexts);
        break;
    case COLLECT_PPPOE:
        check_collected(
            collect_batch(pppoe_discovery, scene.model.dev_hashmap_head, scene.model.proto_hashmap_head, final), final,
            pppoe_detect_handle.contexts);
        break;
    case PEER_FRAME:
        if (exchange.peer_frames.size() < MOST_WAITING_FRAMES)
            exchange.peer_frames.push_back(scene.bytes(input.block()));
        break;
    case SEARCH_WITH_ARP:
        final ? static_cast<void>(send_special_arp(dev, inet_addr(TARGET_ADDRESS))) : search_with_arp(scene);
        break;
    case ASK_DNS:
        ask_dns(scene);
        break;
    case FAILURE:
        fail_call(input, dev->name);
        break;
    case SOCKET_ERROR:
        show_errors();
        break;
    case UNPLUG:
        dev->link_active = final;
        break;
    }
}

} // namespace

void prepare()
{
    say_everything();
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    t_input input(data, size);
    t_probe_scene scene;
    t_exchange exchange = {scene, {}};
    fake_wire.on_send = [&exchange](const t_sent_frame &request) { exchange.answer(request); };
    fake_wire.on_wait = [](int, int timeout_ms) { fake_clock.advance_ms(timeout_ms); };
    for (int steps = 0; !input.empty() && steps < MOST_STEPS; steps++)
        take_step(exchange, input.byte(), input);
    if (dhcp_detect_handle.contexts)
        release_batch(dhcp_discovery);
    if (pppoe_detect_handle.contexts)
        release_batch(pppoe_discovery);
    return 0; // the scene's end checks that every socket was closed
}
