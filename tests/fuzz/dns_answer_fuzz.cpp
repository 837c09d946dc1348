// SPDX-License-Identifier: MIT
// One frame as the answer to a DNS query: the parser, and both ways of reading it from a port.
#include <algorithm>
#include <arpa/inet.h>

#include "platform/log.h"
#include "probes/dns/dns_frames.h"
#include "probes/dns/dns_probe.h"
#include "probes/dns/dns_receive.h"
#include "tests/fuzz/support/probe_scene.h"
#include "tests/unit/probes/kernel_filter.h"
#include "tests/unit/support/fake_clock.h"

namespace {

constexpr const char *SERVER_ADDRESS = "10.20.30.53";
constexpr const char *PORT_ADDRESS = "10.20.30.40";
constexpr size_t RECEIVED_AT_MOST = 255; // bytes that the probe reads of a frame
constexpr uint16_t QUERY_ID = 1;         // the first that is drawn

t_dns_entry entry_of(t_device *dev)
{
    t_dns_entry entry = {};
    entry.dev = dev;
    entry.dev_ip_be = inet_addr(PORT_ADDRESS);
    entry.dns_server_be = inet_addr(SERVER_ADDRESS);
    entry.query_id = QUERY_ID;
    return entry;
}

// The loop's callback reads one frame from a socket of its own.
bool loop_takes_it(t_probe_scene &scene, const t_bytes &frame)
{
    t_dns_ctx ctx = {};
    ctx.count = 1;
    t_dns_entry &entry = ctx.entries[0];
    entry = entry_of(scene.port);
    entry.socket.watcher.fd = fake_wire.add_socket(0);
    fake_wire.arrive(entry.socket.watcher.fd, frame);
    uloop_recv_dns_query(&entry.socket.watcher, ULOOP_READ);
    REQUIRE((ctx.winner != nullptr) == (entry.received != 0));
    fake_wire.close_socket(entry.socket.watcher.fd);
    return entry.received != 0;
}

// The probe waits for its answer among whatever arrives.
bool probe_takes_it(t_probe_scene &scene, const t_bytes &frame)
{
    t_dns_ctx ctx = {};
    ctx.count = 1;
    ctx.entries[0] = entry_of(scene.port);
    fake_wire.on_send = [&frame](const t_sent_frame &query) { fake_wire.arrive(query.fd, frame); };
    fake_wire.on_wait = [](int, int timeout_ms) { fake_clock.advance_ms(timeout_ms); };
    const bool taken = dns_lookup_via_multi_eth(&ctx) == 1;
    REQUIRE(ctx.winner == (taken ? scene.port : nullptr));
    return taken;
}

} // namespace

void prepare()
{
    say_everything();
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    t_probe_scene scene;
    const t_dns_entry entry = entry_of(scene.port);
    parse_dns_answer({data, size});
    const t_dns_answer answer = parse_dns_answer({data, std::min(size, RECEIVED_AT_MOST)});
    const bool strictly = find_dns_flaw(answer, entry, true) == t_dns_flaw::none;
    const bool loosely = find_dns_flaw(answer, entry, false) == t_dns_flaw::none;
    REQUIRE(!strictly || loosely);
    REQUIRE(!loosely || size >= offsetof(t_dns_query_frame, name));

    static const t_kernel_filter filter(dns_answer_filter(entry, LOG_LEVEL_Error));
    const t_bytes frame(data, data + size);
    REQUIRE(!loosely || filter.passes(frame));
    REQUIRE(loop_takes_it(scene, frame) == strictly);
    REQUIRE(probe_takes_it(scene, frame) == loosely);
    return 0;
}
