// SPDX-License-Identifier: MIT
// One frame as the answer to a DISCOVER: the parser, the options, and the whole exchange of a port.
#include <algorithm>
#include <arpa/inet.h>
#include <cstring>

#include "platform/log.h"
#include "platform/result_codes.h"
#include "probes/discovery/dhcp_discovery.h"
#include "probes/discovery/dhcp_frames.h"
#include "tests/fuzz/support/probe_scene.h"
#include "tests/unit/probes/kernel_filter.h"

namespace {

constexpr size_t RECEIVED_AT_MOST = 1024; // bytes that the probe reads of a frame

bool lies_within(t_octets inner, t_octets outer)
{
    return inner.empty() ||
           (inner.data() >= outer.data() && inner.data() + inner.size() <= outer.data() + outer.size());
}

// True when the frame is an offer.
bool read_offer(t_octets frame, t_dhcp_offer *offer)
{
    if (!parse_dhcp_offer(frame, offer))
        return false;
    REQUIRE(frame.size() >= offsetof(t_dhcp_frame, dhcp.options));
    REQUIRE(lies_within(offer->options, frame));
    t_octets left = offer->options;
    t_dhcp_option option;
    t_detect_result result = {};
    while (!left.empty()) {
        const size_t before = left.size();
        if (!next_dhcp_option(&left, &option))
            break;
        REQUIRE(left.size() < before && lies_within(option.value, offer->options));
        learn_dhcp_option(option, &result);
    }
    return true;
}

} // namespace

void prepare()
{
    say_everything();
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    const t_octets frame(data, size);
    t_dhcp_offer offer;
    read_offer(frame, &offer);
    const bool is_offer = read_offer(frame.first(std::min(size, RECEIVED_AT_MOST)), &offer);
    const bool is_ours = is_offer && offer.xid == FIRST_IDENTIFIER && offer.server_mac != LAN_MAC;

    static const t_kernel_filter filter(dhcp_offer_filter(FIRST_IDENTIFIER, LAN_MAC, LOG_LEVEL_Error));
    REQUIRE(!is_ours || filter.passes({frame.begin(), frame.end()}));

    t_probe_scene scene;
    REQUIRE(send_batch(dhcp_discovery, &scene.list) == OK);
    fake_wire.arrive("eth1", scene.bytes(frame));
    fake_wire.run_loop();
    const int result =
        collect_batch(dhcp_discovery, scene.model.dev_hashmap_head, scene.model.proto_hashmap_head, true);
    REQUIRE(result == (is_ours ? PROBE_ALL_ANSWERED : PROBE_SOME_SILENT));
    REQUIRE((scene.port->proto.load() != nullptr) == is_ours);
    REQUIRE(!is_ours || scene.port->result.address.ipv4_be == offer.address_be);
    return 0;
}
