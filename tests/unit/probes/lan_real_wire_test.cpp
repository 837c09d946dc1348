// SPDX-License-Identifier: MIT
// ARP and DNS probes on real interfaces: a bridge "br-lan" with the ports eth1 and eth2, whose far ends are host1 and
// host2.
#include <net/ethernet.h>

#include "model/tables.h"
#include "platform/clock.h"
#include "platform/log.h"
#include "probes/arp/arp_frames.h"
#include "probes/arp/arp_probe.h"
#include "probes/lan/lan_hosts.h"
#include "tests/support/world.h"
#include "tests/unit/probes/dns_scene.h"
#include "tests/unit/probes/veth_net.h"
#include "tests/unit/support/sandbox.h"

namespace {

using t_names = std::vector<std::string>;
using t_frames = std::vector<t_bytes>;

const t_mac HOST = {{0xaa, 0xbb, 0xcc, 0, 0, 0x32}}; // a multicast-free MAC that no interface has
const char *const HOST_ADDRESS = "192.168.1.50";

class lan_real_wire : public testing::Test {
protected:
    t_cable cable1{"eth1", "host1"}, cable2{"eth2", "host2"};
    t_port_model model = {};
    t_device *eth1, *eth2;
    t_log_capture log;

    lan_real_wire()
    {
        must_run("ip link add br-lan type bridge forward_delay 0 mcast_snooping 0 && "
                 "ip addr add 192.168.1.1/24 dev br-lan && ip link set br-lan up && "
                 "ip link set eth1 master br-lan && ip link set eth2 master br-lan");
        wait_until_running("br-lan");
        eth1 = add("eth1", 1);
        eth2 = add("eth2", 2);
    }
    ~lan_real_wire() override
    {
        release_all_device(&model.dev_hashmap_head);
        must_run("ip link del br-lan");
    }

    t_device *add(const char *name, int8_t priority) { return add_port_to(model, name, priority); }
};

// The reply of `HOST` to a request; to everyone when `broadcast`.
t_bytes arp_reply(const t_arp_frame &request, bool broadcast = false)
{
    const uint32_t asked_be = request.target_ip_be, asker_be = request.sender_ip_be; // odd addresses in the frame
    t_bytes frame = t_arp_answer{HOST, asked_be}.bytes();
    memcpy(frame.data(), (broadcast ? BROADCAST_MAC : request.ethernet.source).bytes, MAC_SIZE);
    memcpy(frame.data() + offsetof(t_arp_frame, target_mac), request.sender_mac.bytes, MAC_SIZE);
    memcpy(frame.data() + offsetof(t_arp_frame, target_ip_be), &asker_be, sizeof asker_be);
    return frame;
}

t_frames silence(const t_arp_frame &)
{
    return {};
}

t_frames answer(const t_arp_frame &request)
{
    return request.target_ip_be == ip(HOST_ADDRESS) ? t_frames{arp_reply(request)} : t_frames{};
}

TEST_F(lan_real_wire, the_answer_proves_the_bridge_port_it_came_in_on)
{
    t_arp_peer host1(cable1, silence), host2(cable2, answer);
    t_port_list ports = {eth1, eth2};
    EXPECT_EQ(find_target_ip_and_device_with_arp(&ports.list, ip(HOST_ADDRESS)), 0);
    EXPECT_EQ(ports.names(), t_names{"eth2"});
    EXPECT_EQ(mac_at(eth2->result.server_mac), HOST);
    EXPECT_EQ(host1.requests(), 1);
    EXPECT_EQ(host2.requests(), 1);
}

TEST_F(lan_real_wire, an_answer_that_the_bridge_floods_proves_only_the_port_it_came_in_on)
{
    t_arp_peer host1(cable1, silence),
        host2(cable2, [](const t_arp_frame &request) { return t_frames{arp_reply(request, true)}; });
    t_port_list ports = {eth1, eth2};
    EXPECT_EQ(find_target_ip_and_device_with_arp(&ports.list, ip(HOST_ADDRESS)), 0);
    EXPECT_EQ(ports.names(), t_names{"eth2"});
}

TEST_F(lan_real_wire, a_flood_before_the_answer_does_not_drown_it)
{
    // More than a socket's queue holds.
    t_arp_peer host1(cable1, [](const t_arp_frame &request) {
        t_bytes noise(1400, 0x55);
        memset(noise.data(), 0xff, MAC_SIZE);
        noise[12] = 0x08, noise[13] = 0x00;
        t_frames frames(3000, noise);
        frames.push_back(arp_reply(request));
        return frames;
    });
    t_port_list ports = {eth1};
    EXPECT_EQ(find_target_ip_and_device_with_arp(&ports.list, ip(HOST_ADDRESS)), 0);
    EXPECT_EQ(ports.names(), t_names{"eth1"});
    EXPECT_EQ(host1.requests(), 1);
}

// Packets of other hosts to everyone, more than a socket's queue holds, and then the reply.
t_frames flood_and_answer(const t_arp_frame &request)
{
    t_bytes noise = t_arp_answer{{0xaa, 0xbb, 0xcc, 0, 0, 0x77}, ip("192.168.1.77")}.bytes();
    memset(noise.data(), 0xff, MAC_SIZE);
    t_frames frames(3000, noise);
    frames.push_back(arp_reply(request));
    return frames;
}

TEST_F(lan_real_wire, a_flood_of_other_hosts_replies_does_not_drown_the_answer)
{
    log_set_level(LOG_LEVEL_Critical);
    t_arp_peer host1(cable1, flood_and_answer);
    t_port_list ports = {eth1};
    EXPECT_EQ(find_target_ip_and_device_with_arp(&ports.list, ip(HOST_ADDRESS)), 0);
    EXPECT_EQ(ports.names(), t_names{"eth1"});
    EXPECT_EQ(host1.requests(), 1);
}

TEST_F(lan_real_wire, a_flood_of_other_hosts_replies_does_not_hide_a_live_host)
{
    log_set_level(LOG_LEVEL_Critical);
    t_arp_peer host1(cable1, flood_and_answer);
    host1.send(t_arp_answer{HOST, ip(HOST_ADDRESS)}.bytes());
    must_run("ip neigh replace 192.168.1.50 lladdr aa:bb:cc:00:00:32 dev br-lan nud reachable");
    EXPECT_EQ(update_brlan_dev(&model), 0);
    EXPECT_EQ(eth1->is_brlan_dev, 1);
}

TEST_F(lan_real_wire, one_port_can_be_asked_alone)
{
    t_arp_peer host1(cable1, silence), host2(cable2, answer);
    EXPECT_EQ(send_special_arp(eth2, ip(HOST_ADDRESS)), 1);
    EXPECT_EQ(mac_at(eth2->result.server_mac), HOST);
    EXPECT_EQ(host1.requests(), 0);
    EXPECT_EQ(send_special_arp(eth1, ip(HOST_ADDRESS)), 1);
    EXPECT_EQ(mac_at(eth1->result.server_mac), UNKNOWN_MAC);
    EXPECT_EQ(host1.requests(), 2);
}

TEST_F(lan_real_wire, a_live_host_flags_its_port_and_a_dead_one_does_not)
{
    const t_mac dead = {{0xaa, 0xbb, 0xcc, 0, 0, 0x33}};
    t_arp_peer host1(cable1, answer), host2(cable2, silence);
    // The bridge learns both, and the cache knows both.
    host1.send(t_arp_answer{HOST, ip(HOST_ADDRESS)}.bytes());
    host2.send(t_arp_answer{dead, ip("192.168.1.51")}.bytes());
    must_run("ip neigh replace 192.168.1.50 lladdr aa:bb:cc:00:00:32 dev br-lan nud reachable && "
             "ip neigh replace 192.168.1.51 lladdr aa:bb:cc:00:00:33 dev br-lan nud reachable");
    EXPECT_EQ(update_brlan_dev(&model), 0);
    EXPECT_EQ(eth1->is_brlan_dev, 1);
    EXPECT_EQ(eth2->is_brlan_dev, 0);
    EXPECT_EQ(host1.requests() + host2.requests(), 2); // each by unicast, behind its port only
    EXPECT_FALSE(
        log.has("Error", "double_checkarp_table", "failed to send&recv ARP sniffer packet, continue whatever!"));
    EXPECT_EQ(model.arp_table_hashmap_head, nullptr);
}

// holds: other-bridge
TEST_F(lan_real_wire, a_host_behind_a_port_of_another_bridge_does_not_count_for_the_lan_port_of_the_same_number)
{
    t_device *stranger = nullptr;
    release_all_device(&model.dev_hashmap_head);
    t_cable cable3("eth3", "host3");
    must_run("ip link add br-guest type bridge && ip link set br-guest up && ip link set eth3 master br-guest");
    stranger = add("eth3", 1); // stands before eth1 in the table, and has its number
    eth1 = add("eth1", 2);
    eth2 = add("eth2", 3);
    t_arp_peer host1(cable1, answer);
    host1.send(t_arp_answer{HOST, ip(HOST_ADDRESS)}.bytes());
    must_run("ip neigh replace 192.168.1.50 lladdr aa:bb:cc:00:00:32 dev br-lan nud reachable");
    EXPECT_EQ(update_brlan_dev(&model), 0);
    EXPECT_EQ(stranger->brlan_index, -1);
    EXPECT_EQ(stranger->is_brlan_dev, 0);
    EXPECT_EQ(eth1->is_brlan_dev, 1);
    must_run("ip link del br-guest");
}

TEST_F(lan_real_wire, a_port_that_is_down_or_gone_has_not_answered)
{
    t_arp_peer host2(cable2, answer);
    t_device ghost = make_port("eth9");
    must_run("ip link set eth1 down");
    t_port_list ports = {eth1, eth2, &ghost};
    EXPECT_EQ(find_target_ip_and_device_with_arp(&ports.list, ip(HOST_ADDRESS)), 0);
    EXPECT_EQ(ports.names(), t_names{"eth2"});
}

TEST_F(lan_real_wire, a_bridge_without_an_address_fails_every_question)
{
    must_run("ip addr flush dev br-lan");
    t_port_list ports = {eth1, eth2};
    EXPECT_EQ(find_target_ip_and_device_with_arp(&ports.list, ip(HOST_ADDRESS)), -87);
    EXPECT_EQ(send_special_arp(eth1, ip(HOST_ADDRESS)), 0);
    EXPECT_EQ(update_brlan_dev(&model), -87);
}

// The DNS queries of an upstream host, answered by `answer_query` from the entry they belong to.
class dns_real_wire : public lan_real_wire {
public:
    // A server that answers every query as asked, after `noise` frames that are none.
    static t_frames answer_query(const t_bytes &query, size_t noise);

protected:
    t_dns_ctx ctx = {};

    dns_real_wire()
    {
        ctx.count = 2;
        for (int i = 0; i < 2; i++) {
            ctx.entries[i].dev = i == 0 ? eth1 : eth2;
            ctx.entries[i].dev_ip_be = ip(i == 0 ? "100.64.1.2" : "100.64.2.2");
            ctx.entries[i].dns_server_be = ip("198.51.100.53");
            ctx.entries[i].server_mac = HOST;
        }
    }

    int64_t look_up_ms(int *result)
    {
        const t_time_stamp start = get_time_stamp();
        *result = dns_lookup_via_multi_eth(&ctx);
        return time_stamp_diff_us(get_time_stamp(), start) / 1000;
    }
};

t_frames dns_real_wire::answer_query(const t_bytes &query, size_t noise)
{
    if (query.size() < 54 || query[23] != 17)
        return {};
    t_dns_reply reply;
    reply.id = static_cast<uint16_t>(query[42] << 8 | query[43]);
    memcpy(&reply.source_be, &query[30], sizeof reply.source_be);
    memcpy(&reply.destination_be, &query[26], sizeof reply.destination_be);
    t_frames frames(noise, t_bytes(60, 0x08));
    frames.push_back(reply.bytes());
    memcpy(frames.back().data(), &query[6], MAC_SIZE);
    frames.back()[12] = 0x08;
    return frames;
}

TEST_F(dns_real_wire, the_answering_port_wins_at_once)
{
    t_thread_peer host2(cable2, ETH_P_IP, [](const t_bytes &query) { return answer_query(query, 0); });
    int result;
    EXPECT_LT(look_up_ms(&result), 1000);
    EXPECT_EQ(result, 1);
    EXPECT_EQ(ctx.winner, eth2);
    for (const t_dns_entry &entry : ctx.entries)
        EXPECT_FALSE(entry.socket.is_open());
}

TEST_F(dns_real_wire, noise_before_the_answer_does_no_harm)
{
    t_thread_peer host1(cable1, ETH_P_IP, [](const t_bytes &query) { return answer_query(query, 50); });
    int result;
    EXPECT_LT(look_up_ms(&result), 1000);
    EXPECT_EQ(ctx.winner, eth1);
}

TEST_F(dns_real_wire, a_flood_of_near_misses_before_the_answer_does_not_drown_it)
{
    log_set_level(LOG_LEVEL_Critical);
    t_thread_peer host1(cable1, ETH_P_IP, [](const t_bytes &query) {
        t_frames frames = answer_query(query, 0);
        if (frames.empty())
            return frames;
        t_bytes near_miss = frames[0];
        near_miss[43] ^= 1; // another query's
        frames.insert(frames.begin(), 3000, near_miss);
        return frames;
    });
    int result;
    EXPECT_LT(look_up_ms(&result), 1000);
    EXPECT_EQ(ctx.winner, eth1);
}

// What a resolver that does not know the asker's address yet says instead of an answer: who has it?
t_bytes who_has(uint32_t address_be, const t_mac &asker = HOST)
{
    t_arp_frame frame;
    build_arp_request(&frame, asker, ip("198.51.100.53"), UNKNOWN_MAC, address_be);
    const auto *first = reinterpret_cast<const uint8_t *>(&frame);
    return {first, first + sizeof frame};
}

// A resolver that asks where its answer has to go, and answers when it was told: a row of frames for each frame heard.
class t_asking_resolver {
public:
    t_frames ask_with; // what it asks, and who else asks

    t_frames hear(const t_bytes &frame)
    {
        if (frame.size() >= 54 && frame[12] == 0x08 && frame[13] == 0x00 && frame[23] == 17) {
            query_ = frame;
            return ask_with;
        }
        if (frame.size() < 42 || frame[12] != 0x08 || frame[13] != 0x06 || frame[21] != 2 || query_.empty())
            return {};
        told = {frame.begin() + 22, frame.begin() + 28};
        if (mac_at(frame.data()) != HOST)
            return {};
        return dns_real_wire::answer_query(query_, 0);
    }

    std::vector<uint8_t> told;

private:
    t_bytes query_;
};

// holds: dns-address-answered-for
TEST_F(dns_real_wire, a_resolver_that_asks_where_its_answer_has_to_go_is_told_behind_a_port_of_the_bridge)
{
    t_asking_resolver resolver;
    resolver.ask_with = {who_has(ip("100.64.2.2"))};
    {
        t_thread_peer host2(cable2, ETH_P_ALL, [&](const t_bytes &frame) { return resolver.hear(frame); });
        int result;
        EXPECT_LT(look_up_ms(&result), 1000);
        EXPECT_EQ(result, 1);
    }
    EXPECT_EQ(ctx.winner, eth2);
    EXPECT_EQ(resolver.told, cable2.mac());
}

// holds: dns-address-answered-for
TEST_F(dns_real_wire, a_resolver_is_told_behind_a_port_of_its_own_too)
{
    must_run("ip link set eth2 nomaster");
    t_asking_resolver resolver;
    resolver.ask_with = {who_has(ip("100.64.2.2"))};
    t_thread_peer host2(cable2, ETH_P_ALL, [&](const t_bytes &frame) { return resolver.hear(frame); });
    int result;
    EXPECT_LT(look_up_ms(&result), 1000);
    EXPECT_EQ(ctx.winner, eth2);
}

// holds: dns-address-answered-for
TEST_F(dns_real_wire, a_tagged_question_is_answered_as_the_query_went_out)
{
    t_bytes tagged = who_has(ip("100.64.2.2"));
    const t_bytes tag = {0x81, 0x00, 0x00, 0x00};
    tagged.insert(tagged.begin() + 12, tag.begin(), tag.end());
    t_asking_resolver resolver;
    resolver.ask_with = {tagged};
    t_thread_peer host2(cable2, ETH_P_ALL, [&](const t_bytes &frame) { return resolver.hear(frame); });
    int result;
    EXPECT_LT(look_up_ms(&result), 1000);
    EXPECT_EQ(ctx.winner, eth2);
}

// holds: dns-next-hop-flood
TEST_F(dns_real_wire, strangers_who_flood_the_port_with_questions_do_not_keep_the_resolver_from_being_told)
{
    for (int level : {LOG_LEVEL_Critical, LOG_LEVEL_Debug}) {
        log_set_level(level);
        t_asking_resolver resolver;
        resolver.ask_with = t_frames(200, who_has(ip("100.64.2.2"), {0xaa, 0xbb, 0xcc, 0, 0, 0x77}));
        resolver.ask_with.push_back(who_has(ip("100.64.2.2")));
        t_thread_peer host2(cable2, ETH_P_ALL, [&](const t_bytes &frame) { return resolver.hear(frame); });
        int result;
        EXPECT_LT(look_up_ms(&result), 1000);
        EXPECT_EQ(ctx.winner, eth2) << "level " << level;
    }
}

// holds: dns-address-not-answered
TEST_F(dns_real_wire, a_host_on_another_port_is_not_told_though_the_bridge_floods_its_question)
{
    std::atomic<int> replies = 0;
    auto count_replies = [&replies](const t_bytes &frame) {
        replies += frame.size() >= 42 && frame[12] == 0x08 && frame[13] == 0x06 && frame[21] == 2;
        return t_frames();
    };
    t_thread_peer host1(cable1, ETH_P_ALL, count_replies), host2(cable2, ETH_P_ALL, [&](const t_bytes &frame) {
        if (frame.size() >= 54 && frame[23] == 17)
            host1.send(who_has(ip("100.64.2.2"), {0xaa, 0xbb, 0xcc, 0, 0, 0x55}));
        return count_replies(frame);
    });
    int result;
    look_up_ms(&result);
    EXPECT_EQ(result, 0);
    EXPECT_EQ(replies, 0);
}

// holds: dns-timeout
TEST_F(dns_real_wire, silence_lasts_three_seconds_and_does_not_burn_the_processor)
{
    timespec busy_before, busy_after;
    clock_gettime(CLOCK_PROCESS_CPUTIME_ID, &busy_before);
    int result;
    const int64_t ms = look_up_ms(&result);
    clock_gettime(CLOCK_PROCESS_CPUTIME_ID, &busy_after);
    EXPECT_EQ(result, 0);
    EXPECT_EQ(ctx.winner, nullptr);
    EXPECT_GE(ms, 3000);
    EXPECT_LT(ms, 3500);
    EXPECT_LT((busy_after.tv_sec - busy_before.tv_sec) * 1000 + (busy_after.tv_nsec - busy_before.tv_nsec) / 1'000'000,
              500);
}

TEST_F(dns_real_wire, a_port_that_goes_away_meanwhile_does_not_stop_the_others)
{
    t_thread_peer host1(cable1, ETH_P_IP, [](const t_bytes &query) {
        must_run("ip link set eth2 down");
        return answer_query(query, 0);
    });
    int result;
    look_up_ms(&result);
    EXPECT_EQ(result, 1);
    EXPECT_EQ(ctx.winner, eth1);
}

} // namespace
