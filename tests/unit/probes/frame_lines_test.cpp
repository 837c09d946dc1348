// SPDX-License-Identifier: MIT
// What a flood of frames makes a probe say at the levels that tell of every frame.
#include "probes/dns/dns_receive.h"
#include "probes/lan/lan_hosts.h"
#include "probes/wire/frame_lines.h"

#include <algorithm>

#include "platform/result_codes.h"
#include "probes/arp/arp_probe.h"
#include "probes/discovery/dhcp_discovery.h"
#include "probes/discovery/pppoe_discovery.h"
#include "probes/dns/dns_probe.h"
#include "probes/lan/arp_table.h"
#include "tests/unit/probes/dns_scene.h"
#include "tests/unit/probes/probe_fixture.h"
#include "tests/unit/support/fake_clock.h"

namespace {

class frame_lines : public t_probe_test {
protected:
    void SetUp() override
    {
        t_probe_test::SetUp();
        fake_clock.reset();
        fake_clock.set(100);
        eth1_ = add_port("eth1", 1);
        list_port(eth1_);
        lines_.probe = "a probe";
    }

    // How many of so many lines may be said.
    int said_of(int count, t_log_level level = LOG_LEVEL_Debug)
    {
        int said = 0;
        for (int i = 0; i < count; i++)
            said += may_tell_of_frame(&lines_, level);
        return said;
    }

    static void flood(const t_bytes &frame, int count)
    {
        for (int i = 0; i < count; i++)
            fake_wire.arrive("eth1", frame);
        fake_wire.run_loop();
    }

    // All the lines of a function's that tell of frames.
    int lines_of(const char *function, std::initializer_list<const char *> bodies)
    {
        int count = 0;
        for (const char *body : bodies)
            count += log_.count("", function, body);
        return count;
    }
    long sums()
    {
        const auto said = log_.lines();
        return std::count_if(said.begin(), said.end(),
                             [](const t_log_line &line) { return line.function == "tell_lines_left_out"; });
    }
    int sums(const std::string &body) { return log_.count("Info", "tell_lines_left_out", body); }

    t_frame_lines lines_ = {};
    t_device *eth1_ = nullptr;
    t_log_capture log_;
};

// holds: frame-lines
TEST_F(frame_lines, two_hundred_a_second_are_said_and_the_others_summed_up_in_one)
{
    EXPECT_EQ(said_of(500), 200);
    fake_clock.advance_ms(999);
    EXPECT_EQ(said_of(37), 0);
    EXPECT_EQ(sums(), 0);
    fake_clock.advance_ms(1);
    EXPECT_EQ(said_of(1), 1);
    EXPECT_EQ(sums("a probe: 337 more lines about received frames left out"), 1);
    EXPECT_EQ(said_of(500), 199);
}

// holds: frame-lines
TEST_F(frame_lines, the_sum_of_the_last_second_is_said_once_and_only_when_something_was_left_out)
{
    said_of(200);
    tell_lines_left_out(&lines_);
    EXPECT_EQ(sums(), 0);
    said_of(1);
    tell_lines_left_out(&lines_);
    EXPECT_EQ(sums("a probe: 1 more lines about received frames left out"), 1);
    fake_clock.advance_ms(5000);
    EXPECT_EQ(said_of(1), 1);
    tell_lines_left_out(&lines_);
    EXPECT_EQ(sums(), 1);
}

// holds: frame-lines
TEST_F(frame_lines, what_the_level_does_not_show_does_not_count)
{
    log_set_level(LOG_LEVEL_Info);
    EXPECT_EQ(said_of(1000, LOG_LEVEL_Debug), 0);
    EXPECT_EQ(said_of(1000, LOG_LEVEL_Info), 200);
    EXPECT_EQ(lines_.left_out, 800u);
}

// holds: frame-lines
TEST_F(frame_lines, below_level_info_nothing_is_left_out)
{
    log_set_level(LOG_LEVEL_Notice);
    EXPECT_EQ(said_of(1000, LOG_LEVEL_Error), 1000);
    EXPECT_EQ(said_of(10, LOG_LEVEL_Info), 0);
    log_set_level(LOG_LEVEL_Info);
    EXPECT_EQ(said_of(1000, LOG_LEVEL_Error), 200);
}

TEST_F(frame_lines, a_clock_that_goes_back_begins_a_new_second)
{
    said_of(300);
    fake_clock.set(50);
    EXPECT_EQ(said_of(300), 200);
}

// holds: frame-lines
TEST_F(frame_lines, a_flood_of_offers_is_summed_up_and_the_awaited_one_is_told_of)
{
    next_random = {1, 101};
    ASSERT_EQ(send_batch(dhcp_discovery, &list_), OK);
    flood(offer(99, {}), 1000);
    EXPECT_EQ(lines_of("recv_dhcp_discovery_packet",
                       {"recv dhcp discovery packet from dev:eth1",
                        "Not match: rdhcp->xid=0x00000063, dhcp_detect_ctx->random_xid=0x00000065"}),
              200);
    flood(offer(101, usual_options()), 1);
    EXPECT_TRUE(log_.has("Info", "recv_dhcp_discovery_packet", "Success parse dhcp discovery packet in dev=eth1"));
    EXPECT_TRUE(log_.has("Debug", "recv_dhcp_discovery_packet", "dev:eth1, GATEWAY=10.20.30.1"));
    EXPECT_TRUE(log_.has("Debug", "recv_dhcp_discovery_packet", "dev:eth1, IPADDR=10.20.30.40, MAC=02-5E-00-00-00-99"));
    EXPECT_EQ(collect_batch(dhcp_discovery, model_.dev_hashmap_head, model_.proto_hashmap_head, false),
              PROBE_ALL_ANSWERED);
    EXPECT_EQ(sums("dhcp: 1801 more lines about received frames left out"), 1);
}

// holds: frame-lines
TEST_F(frame_lines, offers_of_the_routers_own_server_are_summed_up)
{
    next_random = {1, 101};
    ASSERT_EQ(send_batch(dhcp_discovery, &list_), OK);
    flood(patched(offer(101, usual_options()), 6, mac_bytes(LAN_MAC)), 1000);
    EXPECT_LE(log_.lines().size(), 200u + 10u);
    EXPECT_EQ(log_.count("Warning", "recv_dhcp_discovery_packet",
                         "Detecing dhcp offer from own mac:02-00-00-00-00-01, meaning there is a cirecle in lan!!"),
              66);
    release_batch(dhcp_discovery);
    EXPECT_EQ(sums("dhcp: 2800 more lines about received frames left out"), 1);
}

// holds: frame-lines
TEST_F(frame_lines, a_flood_of_pados_is_summed_up_and_the_awaited_one_is_told_of)
{
    next_random = {1, 101};
    ASSERT_EQ(send_batch(pppoe_discovery, &list_), OK);
    flood(pado(usual_tags(99)), 300);
    flood(patched(pado({}), PADO_CODE, {0x65}), 300);
    fake_clock.advance_ms(1500);
    flood(pado(usual_tags(101)), 1);
    const char *const job = "recv_pppoe_discovery_packet";
    EXPECT_EQ(lines_of(job, {"recv pppoe discovery offer(PADO) packet from dev:eth1",
                             "Ignoring packet because it is not a PADO packet!",
                             "read from socket parse error, try again! dev=eth1"}) +
                  lines_of("packetIsForMe", {"Invalid PPPoE unique host tag value (0x00000063)/(0x00000065)"}),
              200 + 1);
    EXPECT_TRUE(log_.has("Info", job, "Success parse pppoe discovery offer(PADO) packet in dev=eth1"));
    EXPECT_EQ(sums("pppoe: 1300 more lines about received frames left out"), 1);
    release_batch(pppoe_discovery);
    EXPECT_EQ(sums(), 1);
}

// holds: frame-lines
TEST_F(frame_lines, a_flood_while_dns_answers_are_awaited_is_summed_up_each_second)
{
    t_dns_ctx ctx = {};
    ctx.count = 1;
    ctx.entries[0].dev = eth1_;
    ctx.entries[0].dev_ip_be = ipv4("100.64.1.2");
    ctx.entries[0].dns_server_be = ipv4("198.51.100.1");
    fake_wire.on_wait = [&ctx, wait = 0](int, int) mutable {
        t_dns_reply foreign = answer_to(ctx.entries[0]);
        foreign.id ^= 1;
        for (int i = 0; i < 500; i++)
            fake_wire.arrive(ctx.entries[0].socket.watcher.fd, foreign.bytes());
        if (++wait == 3)
            fake_wire.arrive(ctx.entries[0].socket.watcher.fd, answer_to(ctx.entries[0]).bytes());
        fake_clock.advance_ms(900);
    };
    EXPECT_EQ(dns_lookup_via_multi_eth(&ctx), 1);
    EXPECT_TRUE(log_.has("Info", "recv_dns_query", "dns response checked! eth=eth1, dev_ip:100.64.1.2"));
    // The first and second wait lie within two seconds of the first line, the third in the next.
    EXPECT_EQ(log_.count("Info", "recv_dns_query", "dns response from ip=100.64.1.2!"), 2 * 100);
    EXPECT_EQ(sums("dns: 1800 more lines about received frames left out"), 1);
    EXPECT_EQ(sums("dns: 801 more lines about received frames left out"), 1);
}

// holds: frame-lines
TEST_F(frame_lines, a_flood_of_arp_packets_is_summed_up_and_the_reply_is_told_of)
{
    fake_wire.on_send = [](const t_sent_frame &request) {
        for (int i = 0; i < 400; i++) {
            fake_wire.arrive(request.fd, t_arp_answer{t_mac{{2, 0, 0, 0, 0, 9}}, ip("10.0.0.9"), 1}.bytes());
            fake_wire.arrive(request.fd, t_arp_answer{t_mac{{2, 0, 0, 0, 0, 9}}, ip("10.0.0.9")}.bytes());
        }
        fake_wire.arrive(request.fd, t_arp_answer{t_mac{{2, 0, 0, 0, 0, 1}}, ip("10.0.0.1")}.bytes());
    };
    EXPECT_EQ(find_target_ip_and_device_with_arp(&list_, ip("10.0.0.1")), OK);
    EXPECT_EQ(list_.count, 1);
    const char *const job = "check_ip_using_arp_blocked";
    EXPECT_EQ(lines_of(job, {"Not a arp reply packet", "arp reply receieve a different ip:10.0.0.9, Ignore!",
                             "arp reply receieve a different ip, orig:10.0.0.1, Ignore!"}),
              200);
    EXPECT_TRUE(log_.has("Debug", job,
                         "arp reply success in 10.0.0.1|00-00-00-00-00-00 via dev:eth1, and mac is overwriten!!"));
    EXPECT_EQ(sums("arp: 1000 more lines about received frames left out"), 1);
}

// holds: frame-lines
TEST_F(frame_lines, a_flood_during_the_recheck_of_hosts_is_summed_up_and_the_host_stays)
{
    const t_mac host = {{2, 0, 0, 0, 0, 9}}, other = {{2, 0, 0, 0, 0, 8}};
    fake_wire.on_send = [&](const t_sent_frame &request) {
        for (int i = 0; i < 100; i++) {
            fake_wire.arrive(request.fd, t_arp_answer{other, ip("10.0.0.9")}.bytes());
            fake_wire.arrive(request.fd, t_arp_answer{other, ip("10.0.0.9"), 2, host}.bytes());
            fake_wire.arrive(request.fd, t_arp_answer{host, ip("10.0.0.9"), 1}.bytes());
        }
        fake_wire.arrive(request.fd, t_arp_answer{host, ip("192.168.1.9")}.bytes());
    };
    t_arp_entry *table = nullptr;
    add_arp_entry(&table, create_new_arp_entry(host, 1, ip("192.168.1.9")));
    EXPECT_EQ(double_check_arp_packet_all_blocked(&table, ip("192.168.1.1"), ip("255.255.255.0"), &LAN_MAC, 1), OK);
    EXPECT_EQ(arp_table_count(table), 1u);
    EXPECT_EQ(sums("arp: 100 more lines about received frames left out"), 1);
    release_arp_table(&table);
}

TEST_F(frame_lines, a_new_batch_begins_its_own_second)
{
    for (int batch = 0; batch < 2; batch++) {
        next_random = {1, 101};
        ASSERT_EQ(send_batch(dhcp_discovery, &list_), OK);
        flood(t_bytes(60, 0xff), 300);
        release_batch(dhcp_discovery);
    }
    EXPECT_EQ(sums("dhcp: 400 more lines about received frames left out"), 2);
}

} // namespace
