// SPDX-License-Identifier: MIT
// The bridge's forwarding records, joined with the ARP cache and the ports' bridge numbers: one refresh of the LAN
// hosts. The input is three blocks: forwarding records, ARP cache, the two port numbers.
#include <arpa/inet.h>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <map>

#include "probes/arp/arp_frames.h"
#include "probes/lan/bridge_table.h"
#include "probes/lan/lan_hosts.h"
#include "tests/fuzz/support/probe_scene.h"

namespace {

std::map<std::string, std::string> kernel_files;

// A host that is alive: answers what it is asked.
void answer_request(const t_sent_frame &request)
{
    t_arp_frame frame = {};
    memcpy(&frame, request.bytes.data(), std::min(request.bytes.size(), sizeof frame));
    frame.ethernet.source = frame.target_mac;
    frame.sender_mac = frame.target_mac;
    frame.sender_ip_be = frame.target_ip_be;
    frame.opcode_be = htons(ARP_OPCODE_REPLY);
    const auto *first = reinterpret_cast<const uint8_t *>(&frame);
    fake_wire.arrive(request.fd, t_bytes(first, first + sizeof frame));
}

} // namespace

extern "C" FILE *__real_fopen(const char *path, const char *mode);
extern "C" FILE *__wrap_fopen(const char *path, const char *mode)
{
    if (strncmp(path, "/sys/", 5) != 0 && strncmp(path, "/proc/net/", 10) != 0)
        return __real_fopen(path, mode);
    const auto found = kernel_files.find(path);
    if (found != kernel_files.end())
        return fmemopen(found->second.data(), found->second.size(), "r");
    errno = ENOENT;
    return nullptr;
}

void prepare()
{
    say_everything();
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    t_input input(data, size);
    kernel_files["/sys/class/net/br-lan/brforward"] = text_of(input.block());
    kernel_files["/proc/net/arp"] = text_of(input.block());
    const std::vector<std::string> numbers = split(text_of(input.rest()), "\n", 2);
    kernel_files["/sys/class/net/eth1/brport/port_no"] = numbers[0];
    kernel_files["/sys/class/net/eth2/brport/port_no"] = numbers[1];

    t_probe_scene scene;
    fake_wire.on_send = answer_request;
    update_brlan_dev(&scene.model);
    REQUIRE(!scene.model.arp_table_hashmap_head);

    t_bridge_record *records = nullptr;
    const int count = get_bridge_table("br-lan", &records);
    REQUIRE(count == static_cast<int>(kernel_files["/sys/class/net/br-lan/brforward"].size() / sizeof *records));
    free(records);
    return 0;
}
