// SPDX-License-Identifier: MIT
// One frame as the answer to a PADI: its headers, its tags, and the whole exchange of a port.
#include <algorithm>
#include <cstring>

#include "platform/log.h"
#include "platform/result_codes.h"
#include "probes/discovery/pppoe_discovery.h"
#include "probes/discovery/pppoe_frames.h"
#include "tests/fuzz/support/probe_scene.h"
#include "tests/unit/probes/kernel_filter.h"

namespace {

constexpr size_t RECEIVED_AT_MOST = 1520; // bytes that the probe reads of a frame

void read_tags(t_octets frame)
{
    const uint16_t payload = __builtin_bswap16(read_pppoe_start(frame).pppoe.length_be);
    for (size_t position = 0; position < payload;) {
        const t_pppoe_tag_view tag = read_pppoe_tag(frame, payload, position);
        if (!tag.whole) {
            REQUIRE(tag.value.empty());
            break;
        }
        REQUIRE(tag.value.size() == tag.length);
        REQUIRE(tag.length == 0 ||
                (tag.value.data() >= frame.data() && tag.value.data() + tag.length <= frame.data() + frame.size()));
        position += sizeof(t_pppoe_tag) + tag.length;
    }
}

bool holds(t_octets frame, uint32_t value)
{
    const auto *first = reinterpret_cast<const uint8_t *>(&value);
    return std::search(frame.begin(), frame.end(), first, first + sizeof value) != frame.end();
}

} // namespace

void prepare()
{
    say_everything();
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    const t_octets frame(data, size);
    read_tags(frame);
    packetIsForMe(data, size, FIRST_IDENTIFIER);

    const t_octets received = frame.first(std::min(size, RECEIVED_AT_MOST));
    const bool is_ours = check_pado(received) == t_pado_flaw::none &&
                         packetIsForMe(received.data(), received.size(), FIRST_IDENTIFIER) == OK;
    REQUIRE(!is_ours || holds(received, FIRST_IDENTIFIER));

    static const t_kernel_filter filter(pado_filter(FIRST_IDENTIFIER, LOG_LEVEL_Error));
    REQUIRE(!is_ours || filter.passes({frame.begin(), frame.end()}));

    t_probe_scene scene;
    REQUIRE(send_batch(pppoe_discovery, &scene.list) == OK);
    fake_wire.arrive("eth1", scene.bytes(frame));
    fake_wire.run_loop();
    const int result =
        collect_batch(pppoe_discovery, scene.model.dev_hashmap_head, scene.model.proto_hashmap_head, true);
    REQUIRE(result == (is_ours ? PROBE_ALL_ANSWERED : PROBE_SOME_SILENT));
    REQUIRE((scene.port->proto.load() != nullptr) == is_ours);
    return 0;
}
