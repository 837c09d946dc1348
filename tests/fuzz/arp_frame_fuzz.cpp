// SPDX-License-Identifier: MIT
// One frame as the reply to every ARP request: the parser, the search for an address behind a port, and the re-check of
// the LAN ARP table; and as a request for an address that a probe answers for.
#include <arpa/inet.h>
#include <cstring>

#include "platform/log.h"
#include "platform/result_codes.h"
#include "probes/arp/arp_answer.h"
#include "probes/arp/arp_frames.h"
#include "probes/arp/arp_probe.h"
#include "probes/lan/arp_table.h"
#include "probes/lan/lan_hosts.h"
#include "tests/fuzz/support/probe_scene.h"
#include "tests/unit/probes/kernel_filter.h"

namespace {

constexpr const char *TARGET_ADDRESS = "192.168.1.50";
constexpr t_mac HOST_MAC = {{0x02, 0x5e, 0x00, 0x00, 0x00, 0x99}};

void answer_every_request(const t_bytes &frame)
{
    fake_wire.on_send = [frame](const t_sent_frame &request) { fake_wire.arrive(request.fd, frame); };
}

// Whoever is told is the one who asked for this address, and nobody else hears of it.
void answer_for_an_address(t_probe_scene &scene, const t_bytes &frame)
{
    const uint32_t own_be = inet_addr(TARGET_ADDRESS);
    t_arp_asker asker = {};
    const bool asks = parse_arp_question(frame, own_be, &asker);
    static const t_kernel_filter filter(arp_question_filter(own_be));
    REQUIRE(!asks || filter.passes(frame));

    fake_wire.on_send = nullptr;
    t_arp_answerer answerer = {};
    answerer.dev = scene.port;
    answerer.own_ip_be = own_be;
    start_arp_answers(&answerer);
    fake_wire.arrive(answerer.socket.watcher.fd, frame);
    const size_t sent_before = fake_wire.sent().size();
    answer_arp_questions(&answerer);
    stop_arp_answers(&answerer);
    REQUIRE(fake_wire.sent().size() - sent_before == (asks ? 1 : 0));
    REQUIRE(!asks || memcmp(fake_wire.sent().back().bytes.data(), asker.mac.bytes, MAC_SIZE) == 0);
    REQUIRE(!asks || (!(asker.mac[0] & 1) && asker.ip_be != own_be && asker.ip_be != 0));
}

} // namespace

void prepare()
{
    say_everything();
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    t_arp_packet packet = {};
    const bool is_arp = parse_arp_frame({data, size}, &packet);
    REQUIRE(!is_arp || size >= sizeof(t_ethernet_header));
    REQUIRE(packet.opcode == 0 || size >= offsetof(t_arp_frame, padding));
    const uint32_t target_be = inet_addr(TARGET_ADDRESS);
    const bool answers = is_arp && packet.opcode == ARP_OPCODE_REPLY && packet.sender_ip_be == target_be;

    static const t_kernel_filter filter(arp_search_filter(target_be, LOG_LEVEL_Error));
    REQUIRE(!answers || filter.passes({data, data + size}));

    t_probe_scene scene;
    answer_every_request(scene.bytes({data, size}));
    REQUIRE(find_target_ip_and_device_with_arp(&scene.list, target_be) == OK);
    REQUIRE(scene.list.count == (answers ? 1 : 0));
    REQUIRE(!answers || memcmp(scene.port->result.server_mac, packet.sender_mac.bytes, MAC_SIZE) == 0);

    t_arp_entry *table = nullptr;
    REQUIRE(add_arp_entry(&table, create_new_arp_entry(HOST_MAC, 1, target_be)));
    double_check_arp_packet_all_blocked(&table, inet_addr(LAN_ADDRESS), inet_addr(LAN_NETMASK), &LAN_MAC, 1);
    REQUIRE(arp_table_count(table) <= 1);
    if (table)
        release_arp_table(&table);
    if (size > 0)
        answer_for_an_address(scene, scene.bytes({data, size}));
    return 0;
}
