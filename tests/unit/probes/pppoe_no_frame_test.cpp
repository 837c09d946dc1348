// SPDX-License-Identifier: MIT
// A PADI that cannot be built: probes/discovery/pppoe_frames.cpp is replaced by one that builds nothing.
#include "probes/discovery/pppoe_frames.h"

#include "probes/discovery/pppoe_discovery.h"
#include "tests/unit/probes/probe_fixture.h"

size_t build_padi(std::span<uint8_t>, const t_mac &, uint32_t)
{
    return 0;
}

t_pppoe_start read_pppoe_start(std::span<const uint8_t>)
{
    return {};
}

t_pado_flaw check_pado(std::span<const uint8_t>)
{
    return t_pado_flaw::length;
}

t_frame_filter pado_filter(uint32_t, int)
{
    return {};
}

t_pppoe_tag_view read_pppoe_tag(std::span<const uint8_t>, size_t, size_t)
{
    return {};
}

namespace {

class pppoe_no_frame : public t_probe_test {};

// holds: pppoe-port-codes
TEST_F(pppoe_no_frame, is_not_sent_and_closes_the_socket)
{
    t_discovery_port ctx = {};
    ASSERT_EQ(open_on_port(pppoe_discovery, &ctx), 0);
    ctx.dev = add_port("eth1", 1);
    t_log_capture log;
    EXPECT_EQ(send_on_port(pppoe_discovery, &ctx), -90);
    EXPECT_TRUE(
        log.has("Error", "send_pppoe_discovery_packet", "Error while creating a pppoe discovery socket, device:eth1"));
    EXPECT_EQ(ctx.socket.watcher.fd, -1);
    EXPECT_TRUE(fake_wire.sent().empty());
}

} // namespace
