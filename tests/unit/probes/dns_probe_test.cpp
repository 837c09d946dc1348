// SPDX-License-Identifier: MIT
// The DNS probe on a wire of byte arrays.
#include <cerrno>

#include <net/ethernet.h>
#include <sys/socket.h>

#include "model/chronicle.h"
#include "platform/log.h"
#include "probes/arp/arp_frames.h"
#include "probes/dns/dns_frames.h"
#include "probes/dns/dns_receive.h"
#include "probes/wire/packet_socket.h"
#include "tests/unit/probes/dns_scene.h"
#include "tests/unit/probes/fake_wire.h"
#include "tests/unit/support/fake_clock.h"
#include "tests/unit/support/sandbox.h"

static int random_value;

extern "C" int __wrap_rand();
extern "C" int __wrap_rand()
{
    return random_value;
}

namespace {

class dns_probe : public testing::Test {
protected:
    t_device eth1 = make_port("eth1", 1), eth2 = make_port("eth2", 2), eth3 = make_port("eth3", 3);
    t_dns_ctx ctx = {};
    t_log_capture log;

    dns_probe()
    {
        fake_wire.reset();
        fake_clock.reset();
        random_value = 4711;
        fake_wire.add_interface("eth1", {.ifindex = 11, .mac = {{2, 0, 0, 0, 0, 11}}});
        fake_wire.add_interface("eth2", {.ifindex = 12, .mac = {{2, 0, 0, 0, 0, 12}}});
        fake_wire.add_interface("eth3", {.ifindex = 13, .mac = {{2, 0, 0, 0, 0, 13}}});
        fake_wire.on_wait = [](int, int ms) { fake_clock.advance_ms(ms); };
        ask(&eth1, "100.64.1.2", "198.51.100.1", "aa:bb:cc:00:00:01");
        ask(&eth2, "100.64.2.2", "198.51.100.2", "aa:bb:cc:00:00:02");
    }
    ~dns_probe() override { EXPECT_EQ(fake_wire.open_sockets(), 0); }

    t_dns_entry &ask(t_device *dev, const char *own, const char *server, const char *next_hop)
    {
        t_dns_entry &entry = ctx.entries[ctx.count++];
        entry.dev = dev;
        entry.dev_ip_be = ip(own);
        entry.dns_server_be = ip(server);
        entry.server_mac = mac(next_hop);
        return entry;
    }

    // An answer reaches entry `index` at the `wait`-th wait, made by `spoil` from the good one.
    struct t_arrival {
        int wait;
        int index;
        std::function<void(t_dns_reply &)> spoil = [](t_dns_reply &) {};
    };
    void at_waits(std::vector<t_arrival> arrivals)
    {
        fake_wire.on_wait = [this, arrivals, wait = 0](int, int ms) mutable {
            wait++;
            bool arrived = false;
            for (const t_arrival &arrival : arrivals) {
                if (arrival.wait != wait)
                    continue;
                t_dns_reply reply = answer_to(ctx.entries[arrival.index]);
                arrival.spoil(reply);
                fake_wire.arrive(ctx.entries[arrival.index].socket.watcher.fd, reply.bytes());
                arrived = true;
            }
            fake_clock.advance_ms(arrived ? 10 : ms);
        };
    }
};

// holds: dns-look-up-codes, chronicle-wire
TEST_F(dns_probe, the_answering_port_wins)
{
    const t_counters before = chronicle.counters;
    at_waits({{1, 1}});
    EXPECT_EQ(dns_lookup_via_multi_eth(&ctx), 1);
    EXPECT_EQ(ctx.winner, &eth2);
    EXPECT_EQ(fake_clock.now_us, 10'000);
    EXPECT_EQ(questions_last_hour(&eth2), 1u);
    EXPECT_EQ(chronicle.counters.answers, before.answers + 1);
    EXPECT_EQ(eth2.notes.answer, nullptr) << "what served the port stays what it was";
    EXPECT_TRUE(log.has("Debug", "dns_lookup_via_multi_eth", "Entering function: dns_lookup_via_multi_eth!"));
    EXPECT_TRUE(log.has("Info", "dnslookup_init_fd", "sending eth:eth2 using ip 100.64.2.2 is in initial!"));
    EXPECT_TRUE(
        log.has("Debug", "gethostbyname_own_implement", "Send dns request to 198.51.100.2 success using dev:eth2"));
    EXPECT_TRUE(log.has("Info", "recv_dns_query", "dns response from ip=100.64.2.2!"));
    EXPECT_TRUE(log.has("Info", "recv_dns_query", "dns response checked! eth=eth2, dev_ip:100.64.2.2"));
    EXPECT_TRUE(log.has("Info", "recv_dns_query", "dns response checked! eth=eth2, dns_server:198.51.100.2"));
    EXPECT_TRUE(log.has("Debug", "wait_dns_response", "dnslookup success, eth=eth2, dev_ip:100.64.2.2"));
    EXPECT_TRUE(log.has("Debug", "wait_dns_response",
                        "dnslookup success, eth=eth2, dns_server:198.51.100.2, server_mac:AA-BB-CC-00-00-02"));
    EXPECT_TRUE(log.has("Debug", "wait_dns_response", "gethostbyname_own_implement return success!"));
    EXPECT_FALSE(log.has_body("dnslookup failed at: eth1, dev_ip:100.64.1.2"));
}

TEST_F(dns_probe, every_query_is_sent_before_any_answer_is_awaited)
{
    size_t sent_before_waiting = 0;
    fake_wire.on_wait = [&](int, int ms) {
        if (sent_before_waiting == 0)
            sent_before_waiting = fake_wire.sent().size();
        fake_clock.advance_ms(ms);
    };
    dns_lookup_via_multi_eth(&ctx);
    EXPECT_EQ(sent_before_waiting, 2u);
}

// holds: dns-query-codes
TEST_F(dns_probe, each_query_leaves_its_port_for_its_next_hop)
{
    dns_lookup_via_multi_eth(&ctx);
    ASSERT_EQ(fake_wire.sent().size(), 2u);
    for (int i = 0; i < 2; i++) {
        const t_sent_frame &sent = fake_wire.sent()[static_cast<size_t>(i)];
        const t_dns_entry &entry = ctx.entries[i];
        EXPECT_EQ(sent.port, entry.dev->name);
        EXPECT_EQ(sent.address.sll_protocol, htons(ETH_P_ALL));
        EXPECT_EQ(sent.address.sll_halen, 6);
        EXPECT_EQ(mac_at(sent.address.sll_addr), entry.server_mac);
        const t_mac port_mac = {{2, 0, 0, 0, 0, static_cast<uint8_t>(11 + i)}};
        t_dns_query_frame expected;
        build_dns_query(&expected, entry, entry.dev_ip_be, port_mac);
        ASSERT_EQ(sent.bytes.size(), sizeof expected);
        EXPECT_EQ(memcmp(sent.bytes.data(), &expected, sizeof expected), 0);
    }
}

// holds: dns-sockets
TEST_F(dns_probe, sockets_are_set_up_as_documented)
{
    dns_lookup_via_multi_eth(&ctx);
    const t_fake_socket &socket = fake_wire.sockets().begin()->second;
    EXPECT_EQ(socket.ether_type, ETH_P_ALL);
    EXPECT_EQ(socket.device, "eth1");
    EXPECT_EQ(socket.address.sll_ifindex, 11);
    EXPECT_TRUE(socket.nonblocking);
    const int off = 0;
    const timeval three_seconds = {.tv_sec = 3, .tv_usec = 0};
    ASSERT_EQ(socket.options.size(), 3u);
    EXPECT_EQ(socket.options[0].option, SO_REUSEADDR);
    EXPECT_EQ(memcmp(socket.options[0].value.data(), &off, sizeof off), 0);
    for (size_t i : {1u, 2u}) {
        EXPECT_EQ(socket.options[i].option, i == 1 ? SO_SNDTIMEO : SO_RCVTIMEO);
        EXPECT_EQ(memcmp(socket.options[i].value.data(), &three_seconds, sizeof three_seconds), 0);
    }
}

TEST_F(dns_probe, sockets_are_filtered_before_they_hear_unless_every_frame_is_told_of)
{
    dns_lookup_via_multi_eth(&ctx);
    EXPECT_EQ(fake_wire.sockets().begin()->second.filter_length, 0u);
    log_set_level(LOG_LEVEL_Notice);
    const int next_fd = fake_wire.sockets().rbegin()->first + 1;
    dns_lookup_via_multi_eth(&ctx);
    EXPECT_TRUE(fake_wire.socket(next_fd).filtered_before_bound);
    EXPECT_GT(fake_wire.socket(next_fd).filter_length, 0u);
}

// holds: dns-timeout
TEST_F(dns_probe, without_any_answer_the_probe_ends_after_three_seconds)
{
    ctx.winner = &eth3;
    EXPECT_EQ(dns_lookup_via_multi_eth(&ctx), 0);
    EXPECT_EQ(ctx.winner, nullptr);
    EXPECT_GT(fake_clock.now_us, 3'000'000);
    EXPECT_LE(fake_clock.now_us, 3'010'000);
    EXPECT_TRUE(log.has("Info", "wait_dns_response", "dnslookup failed at: eth1, dev_ip:100.64.1.2"));
    EXPECT_TRUE(log.has("Info", "wait_dns_response",
                        "dnslookup failed at: eth2, dns_server:198.51.100.2, server_mac:AA-BB-CC-00-00-02"));
    EXPECT_TRUE(log.has("Error", "wait_dns_response", "gethostbyname_own_implement resolve failed!, ret = 96"));
}

// holds: dns-timeout, dns-look-up-codes
TEST_F(dns_probe, the_lookup_itself_returns_96_without_any_answer)
{
    ctx.winner = &eth3;
    EXPECT_EQ(gethostbyname_own_implement(&ctx), 96);
    EXPECT_EQ(ctx.winner, nullptr);
    at_waits({{1, 0}});
    EXPECT_EQ(gethostbyname_own_implement(&ctx), 0);
}

// holds: dns-timeout
TEST_F(dns_probe, an_answer_after_the_third_second_is_too_late)
{
    at_waits({{2, 0}});
    EXPECT_EQ(dns_lookup_via_multi_eth(&ctx), 0);
    EXPECT_EQ(ctx.entries[0].received, 0);
}

TEST_F(dns_probe, an_endless_flood_does_not_move_the_deadline)
{
    fake_wire.on_wait = [this](int, int) {
        for (int i = 0; i < 3000; i++)
            fake_wire.arrive(ctx.entries[0].socket.watcher.fd, t_bytes(60, 0xff));
        fake_clock.advance_ms(1000);
    };
    EXPECT_EQ(dns_lookup_via_multi_eth(&ctx), 0);
    EXPECT_EQ(fake_clock.now_us, 4'000'000);
    // Each of the four looks at the clock comes after a bounded number of frames, and as many seconds' lines.
    EXPECT_EQ(fake_wire.received, 4 * 1024);
    EXPECT_EQ(log.count("Info", "recv_dns_query", "dns response from ip=100.64.1.2!"), 4 * 100);
}

// holds: dns-two-answers
TEST_F(dns_probe, of_two_ready_answers_the_earlier_port_in_the_table_wins)
{
    at_waits({{1, 1}, {1, 0}});
    EXPECT_EQ(dns_lookup_via_multi_eth(&ctx), 1);
    EXPECT_EQ(ctx.winner, &eth1);
}

// holds: dns-two-answers
TEST_F(dns_probe, of_two_answers_at_different_times_the_first_wins)
{
    at_waits({{1, 1}, {2, 0}});
    EXPECT_EQ(dns_lookup_via_multi_eth(&ctx), 1);
    EXPECT_EQ(ctx.winner, &eth2);
}

// holds: dns-no-records
TEST_F(dns_probe, an_answer_without_records_is_not_accepted)
{
    at_waits({{1, 0, [](t_dns_reply &reply) { reply.answers = 0; }}});
    EXPECT_EQ(dns_lookup_via_multi_eth(&ctx), 0);
    EXPECT_EQ(log.count("", "recv_dns_query", "dns response from ip=100.64.1.2!"), 1);
    EXPECT_EQ(log.text().find("DNS response check fail"), std::string::npos) << "it is dropped in silence";
}

// holds: dns-other-server
TEST_F(dns_probe, an_answer_from_another_server_is_dropped)
{
    at_waits({{1, 0, [](t_dns_reply &reply) { reply.source_be = ip("198.51.100.9"); }}});
    EXPECT_EQ(dns_lookup_via_multi_eth(&ctx), 0);
    EXPECT_TRUE(log.has("Info", "recv_dns_query", "DNS response check fail at IP addr dst_addr: 100.64.1.2"));
    EXPECT_TRUE(log.has("Info", "recv_dns_query", "DNS response check fail at IP addr src_addr: 198.51.100.9"));
}

// holds: dns-other-server
TEST_F(dns_probe, an_answer_to_another_address_is_dropped)
{
    at_waits({{1, 0, [](t_dns_reply &reply) { reply.destination_be = ip("100.64.9.9"); }}});
    EXPECT_EQ(dns_lookup_via_multi_eth(&ctx), 0);
    EXPECT_TRUE(log.has("Info", "recv_dns_query", "DNS response check fail at IP addr dst_addr: 100.64.9.9"));
}

TEST_F(dns_probe, an_answer_of_another_protocol_port_or_id_is_dropped)
{
    at_waits({{1, 0, [](t_dns_reply &reply) { reply.protocol = 6; }},
              {1, 0, [](t_dns_reply &reply) { reply.source_port = 5353; }},
              {1, 0, [](t_dns_reply &reply) { reply.id = static_cast<uint16_t>(reply.id + 1); }}});
    EXPECT_EQ(dns_lookup_via_multi_eth(&ctx), 0);
    const int id = ctx.entries[0].query_id;
    EXPECT_TRUE(log.has("Debug", "recv_dns_query", "DNS response check fail at IP protocol: 6/17"));
    EXPECT_TRUE(log.has("Info", "recv_dns_query", "DNS response check fail at udp port: 5353/53"));
    EXPECT_TRUE(
        log.has("Info", "recv_dns_query",
                "DNS response check fail at dns id: " + std::to_string((id + 1) & 0xffff) + "/" + std::to_string(id)));
}

TEST_F(dns_probe, the_identification_does_not_matter_while_waiting)
{
    at_waits({{1, 0, [](t_dns_reply &reply) { reply.identification ^= 0xffff; }}});
    EXPECT_EQ(dns_lookup_via_multi_eth(&ctx), 1);
}

TEST_F(dns_probe, bad_frames_before_a_good_one_do_no_harm)
{
    at_waits({{1, 0, [](t_dns_reply &reply) { reply.answers = 0; }},
              {1, 0, [](t_dns_reply &reply) { reply.protocol = 1; }},
              {1, 0}});
    EXPECT_EQ(dns_lookup_via_multi_eth(&ctx), 1);
    EXPECT_EQ(ctx.winner, &eth1);
}

// holds: dns-own-query
TEST_F(dns_probe, the_query_itself_is_no_answer)
{
    fake_wire.on_send = [](const t_sent_frame &sent) { fake_wire.arrive(sent.fd, sent.bytes); };
    EXPECT_EQ(dns_lookup_via_multi_eth(&ctx), 0);
    EXPECT_TRUE(log.has("Info", "recv_dns_query", "DNS response check fail at IP addr dst_addr: 198.51.100.1"));
    EXPECT_TRUE(log.has("Info", "recv_dns_query", "DNS response check fail at IP addr src_addr: 100.64.1.2"));
}

TEST_F(dns_probe, an_answer_to_one_port_does_not_count_for_another)
{
    fake_wire.on_wait = [this](int, int ms) {
        fake_wire.arrive(ctx.entries[0].socket.watcher.fd, answer_to(ctx.entries[1]).bytes());
        fake_clock.advance_ms(ms);
    };
    EXPECT_EQ(dns_lookup_via_multi_eth(&ctx), 0);
}

TEST_F(dns_probe, frames_of_every_size_are_survived)
{
    fake_wire.on_wait = [this](int, int ms) {
        const t_bytes good = answer_to(ctx.entries[0]).bytes();
        for (size_t size = 0; size < 54; size++)
            fake_wire.arrive(ctx.entries[0].socket.watcher.fd,
                             t_bytes(good.begin(), good.begin() + static_cast<long>(size)));
        fake_wire.arrive(ctx.entries[1].socket.watcher.fd, t_bytes(9000, 0xff));
        fake_clock.advance_ms(ms);
    };
    EXPECT_EQ(dns_lookup_via_multi_eth(&ctx), 0);
}

TEST_F(dns_probe, a_huge_answer_is_read_as_far_as_it_matters)
{
    fake_wire.on_wait = [this](int, int) {
        t_bytes huge = answer_to(ctx.entries[1]).bytes();
        huge.resize(1500, 0xaa);
        fake_wire.arrive(ctx.entries[1].socket.watcher.fd, huge);
    };
    EXPECT_EQ(dns_lookup_via_multi_eth(&ctx), 1);
    EXPECT_EQ(ctx.winner, &eth2);
}

// holds: dns-no-socket
TEST_F(dns_probe, a_port_without_a_socket_never_wins_and_is_not_reported)
{
    fake_wire.fail(t_wire_call::OPEN, EMFILE); // the first port's
    EXPECT_EQ(dns_lookup_via_multi_eth(&ctx), 0);
    EXPECT_TRUE(log.has("Error", "dnslookup_init_fd", "dnslookup_init_fd create socket in eth1 fail!"));
    EXPECT_TRUE(fake_wire.sent_on("eth1").empty());
    EXPECT_EQ(log.text().find("dnslookup failed at: eth1"), std::string::npos);
    EXPECT_TRUE(log.has_body("dnslookup failed at: eth2, dev_ip:100.64.2.2"));
    EXPECT_EQ(ctx.entries[0].socket.watcher.fd, -1);
}

// holds: dns-no-socket
TEST_F(dns_probe, a_port_that_cannot_be_bound_never_wins_and_is_not_reported)
{
    fake_wire.fail(t_wire_call::BIND_TO_DEVICE, ENODEV, 0, 1, "eth1");
    at_waits({{1, 1}});
    EXPECT_EQ(dns_lookup_via_multi_eth(&ctx), 1);
    EXPECT_EQ(ctx.winner, &eth2);
    EXPECT_TRUE(log.has("Error", "dnslookup_init_fd", "dnslookup_init_fd bindtodevice in eth1 fail!"));

    fake_wire.fail(t_wire_call::BIND_TO_DEVICE, ENODEV, 0, 1, "eth1");
    at_waits({});
    EXPECT_EQ(dns_lookup_via_multi_eth(&ctx), 0);
    EXPECT_EQ(log.text().find("dnslookup failed at: eth1"), std::string::npos);
    EXPECT_TRUE(log.has_body("dnslookup failed at: eth2, dev_ip:100.64.2.2"));
}

// holds: dns-sockets
TEST_F(dns_probe, a_socket_that_refuses_the_reuse_option_is_closed)
{
    fake_wire.fail(t_wire_call::SET_OPTION, EPERM, 0, 1, "eth1");
    EXPECT_EQ(dns_lookup_via_multi_eth(&ctx), 0);
    EXPECT_TRUE(log.has("Error", "dnslookup_init_fd", "Failed to set socket in eth1 option 'SO_REUSE"));
    EXPECT_TRUE(fake_wire.sent_on("eth1").empty());
    EXPECT_EQ(log.text().find("dnslookup failed at: eth1"), std::string::npos);
    EXPECT_TRUE(log.has_body("dnslookup failed at: eth2, dev_ip:100.64.2.2"));
}

// holds: dns-query-codes
TEST_F(dns_probe, a_failed_bind_or_sending_closes_that_socket_only)
{
    fake_wire.fail(t_wire_call::BIND, ENETDOWN, 0, 1, "eth1");
    fake_wire.fail(t_wire_call::SEND, ENETDOWN, 0, 1, "eth2");
    ask(&eth3, "100.64.3.2", "198.51.100.3", "aa:bb:cc:00:00:03");
    at_waits({{1, 2}});
    EXPECT_EQ(dns_lookup_via_multi_eth(&ctx), 1);
    EXPECT_EQ(ctx.winner, &eth3);
    EXPECT_TRUE(log.has("Error", "send_dns_query", "detect_all_dns_query bind socket to eth1 fail!"));
    EXPECT_TRUE(
        log.has("Error", "send_dns_query", "dns sendto 198.51.100.2 failed, errno=" + std::to_string(ENETDOWN) + "!"));
    EXPECT_FALSE(log.has_body("Send dns request to 198.51.100.1 success using dev:eth1"));
}

// holds: dns-query-codes
TEST_F(dns_probe, sending_tells_what_failed)
{
    t_dns_entry &entry = ctx.entries[0];
    for (t_wire_call call : {t_wire_call::QUERY_PORT, t_wire_call::BIND, t_wire_call::SEND}) {
        entry.socket.watcher.fd = fake_wire.add_socket(ETH_P_ALL);
        fake_wire.fail(call, ENETDOWN, 0, 1, "eth1");
        EXPECT_EQ(send_dns_query(entry.dev_ip_be, &entry), call == t_wire_call::SEND ? -88 : -89);
        EXPECT_EQ(entry.socket.watcher.fd, -1);
    }
    entry.socket.watcher.fd = fake_wire.add_socket(ETH_P_ALL);
    EXPECT_EQ(send_dns_query(entry.dev_ip_be, &entry), 0);
    close_dns_entry(&entry);
}

// Somebody asks on the port of entry `index` who has the address that its query came from.
t_bytes who_has(const t_dns_entry &entry)
{
    t_arp_frame frame;
    build_arp_request(&frame, entry.server_mac, ip("100.64.9.1"), UNKNOWN_MAC, entry.dev_ip_be);
    const auto *first = reinterpret_cast<const uint8_t *>(&frame);
    return {first, first + sizeof frame};
}

// holds: dns-address-answered-for
TEST_F(dns_probe, who_asks_for_the_querys_address_is_told_before_he_answers)
{
    fake_wire.on_wait = [this](int, int) {
        if (fake_wire.sent().size() == 2)
            fake_wire.arrive("eth2", who_has(ctx.entries[1]));
        else
            fake_wire.arrive(ctx.entries[1].socket.watcher.fd, answer_to(ctx.entries[1]).bytes());
        fake_clock.advance_ms(10);
    };
    EXPECT_EQ(dns_lookup_via_multi_eth(&ctx), 1);
    EXPECT_EQ(ctx.winner, &eth2);
    ASSERT_EQ(fake_wire.sent().size(), 3u);
    const t_sent_frame &told = fake_wire.sent()[2];
    EXPECT_EQ(told.port, "eth2");
    t_arp_frame expected;
    const t_mac port_mac = {{2, 0, 0, 0, 0, 12}};
    t_arp_asker asker = {.mac = {}, .ip_be = ip("100.64.9.1")};
    asker.mac = ctx.entries[1].server_mac;
    build_arp_reply(&expected, port_mac, ip("100.64.2.2"), asker);
    ASSERT_EQ(told.bytes.size(), sizeof expected);
    EXPECT_EQ(memcmp(told.bytes.data(), &expected, sizeof expected), 0);
}

// holds: dns-address-not-answered
TEST_F(dns_probe, a_port_does_not_answer_for_the_address_of_another)
{
    fake_wire.on_wait = [this](int, int ms) {
        fake_wire.arrive("eth1", who_has(ctx.entries[1]));
        fake_clock.advance_ms(ms);
    };
    EXPECT_EQ(dns_lookup_via_multi_eth(&ctx), 0);
    EXPECT_EQ(fake_wire.sent().size(), 2u);
}

// holds: dns-next-hop-flood
TEST_F(dns_probe, a_flood_of_questions_does_not_move_the_deadline_nor_hide_the_answer)
{
    auto ask_a_lot = [this] {
        for (int i = 0; i < 3000; i++)
            fake_wire.arrive(ctx.entries[0].answerer.socket.watcher.fd, who_has(ctx.entries[0]));
    };
    fake_wire.on_wait = [&](int, int) {
        ask_a_lot();
        fake_clock.advance_ms(100);
    };
    EXPECT_EQ(dns_lookup_via_multi_eth(&ctx), 0);
    EXPECT_EQ(fake_clock.now_us, 3'100'000);
    EXPECT_EQ(fake_wire.sent().size(), 2u + 4 * ARP_ANSWERS_PER_SECOND);
    fake_wire.on_wait = [&](int, int) {
        ask_a_lot();
        fake_wire.arrive(ctx.entries[0].socket.watcher.fd, answer_to(ctx.entries[0]).bytes());
        fake_clock.advance_ms(100);
    };
    EXPECT_EQ(dns_lookup_via_multi_eth(&ctx), 1);
}

// holds: dns-cannot-tell
TEST_F(dns_probe, an_answer_is_found_where_nobody_can_be_told_anything)
{
    fake_wire.fail(t_wire_call::OPEN, EMFILE, 2, 2); // the sockets of the queries can be made
    at_waits({{1, 1}});
    EXPECT_EQ(dns_lookup_via_multi_eth(&ctx), 1);
    EXPECT_EQ(ctx.winner, &eth2);
}

TEST_F(dns_probe, an_entry_without_a_port_and_a_mad_count_are_survived)
{
    ctx.entries[0].dev = nullptr;
    EXPECT_EQ(dns_lookup_via_multi_eth(&ctx), 0);
    EXPECT_TRUE(log.has("Error", "dnslookup_init_fd", "dnslookup_init_fd bindtodevice in null fail!"));
    ctx.count = 1000;
    EXPECT_EQ(dns_lookup_via_multi_eth(&ctx), 0);
    ctx.count = -1;
    EXPECT_EQ(dns_lookup_via_multi_eth(&ctx), 0);
}

TEST_F(dns_probe, sixteen_ports_are_asked_at_once)
{
    while (ctx.count < DNS_MAX_ENTRIES)
        ask(&eth3, "100.64.3.2", "198.51.100.3", "aa:bb:cc:00:00:03");
    at_waits({{1, 15}});
    EXPECT_EQ(dns_lookup_via_multi_eth(&ctx), 1);
    EXPECT_EQ(ctx.winner, &eth3);
    EXPECT_EQ(fake_wire.sent().size(), 16u);
    EXPECT_EQ(ctx.entries[15].index, 15);
    EXPECT_EQ(ctx.entries[15].received, 1);
    EXPECT_EQ(ctx.entries[14].received, 0);
}

TEST_F(dns_probe, a_second_lookup_starts_afresh)
{
    at_waits({{1, 0}});
    EXPECT_EQ(dns_lookup_via_multi_eth(&ctx), 1);
    at_waits({});
    EXPECT_EQ(dns_lookup_via_multi_eth(&ctx), 0);
    EXPECT_EQ(ctx.entries[0].received, 0);
}

TEST_F(dns_probe, an_id_is_a_random_value_modulo_65535)
{
    random_value = 65534;
    dns_lookup_via_multi_eth(&ctx);
    EXPECT_EQ(ctx.entries[0].query_id, 65534);
    random_value = 65535;
    dns_lookup_via_multi_eth(&ctx);
    EXPECT_EQ(ctx.entries[0].query_id, 0);
    random_value = RAND_MAX;
    dns_lookup_via_multi_eth(&ctx);
    EXPECT_EQ(ctx.entries[0].query_id, RAND_MAX % 65535);
}

// The form for the loop.
class dns_loop_form : public dns_probe {
protected:
    t_dns_entry &entry = ctx.entries[1];

    dns_loop_form()
    {
        ctx.entries[0].index = 0;
        entry.index = 1;
        entry.query_id = 0x1234;
        entry.socket.watcher.fd = fake_wire.add_socket(ETH_P_ALL);
        entry.socket.watcher.cb = uloop_recv_dns_query;
    }
    ~dns_loop_form() override { fake_wire.close_socket(entry.socket.watcher.fd); }

    void hear(const t_dns_reply &reply)
    {
        fake_wire.arrive(entry.socket.watcher.fd, reply.bytes());
        uloop_recv_dns_query(&entry.socket.watcher, ULOOP_READ);
    }
};

TEST_F(dns_loop_form, accepts_a_good_answer)
{
    hear(answer_to(entry));
    EXPECT_EQ(entry.received, 1);
    EXPECT_EQ(ctx.winner, &eth2);
    EXPECT_TRUE(log.has("Info", "uloop_recv_dns_query", "dns response:events=1, ip=100.64.2.2!"));
    EXPECT_TRUE(log.has("Info", "uloop_recv_dns_query", "dns response checked! eth=eth2, dev_ip:100.64.2.2"));
    EXPECT_TRUE(log.has("Info", "uloop_recv_dns_query", "dns response checked! eth=eth2, dns_server:198.51.100.2"));
}

TEST_F(dns_loop_form, reads_one_frame_at_a_time)
{
    t_dns_reply bad = answer_to(entry);
    bad.answers = 0;
    fake_wire.arrive(entry.socket.watcher.fd, bad.bytes());
    hear(answer_to(entry));
    EXPECT_EQ(entry.received, 0);
    uloop_recv_dns_query(&entry.socket.watcher, ULOOP_READ);
    EXPECT_EQ(entry.received, 1);
}

TEST_F(dns_loop_form, checks_the_identification_before_the_addresses)
{
    t_dns_reply bad = answer_to(entry);
    bad.identification = 5;
    bad.source_be = 0;
    hear(bad);
    EXPECT_EQ(entry.received, 0);
    EXPECT_EQ(ctx.winner, nullptr);
    EXPECT_TRUE(log.has("Info", "uloop_recv_dns_query", "DNS response check fail at IP id: 5/291"));
    EXPECT_TRUE(log.has("Info", "uloop_recv_dns_query", "dns through ip 100.64.2.2 failed!"));
    EXPECT_FALSE(log.has_body("DNS response check fail at IP addr src_addr: 0.0.0.0"));
}

TEST_F(dns_loop_form, tells_every_flaw_at_info)
{
    t_dns_reply bad = answer_to(entry);
    bad.protocol = 1;
    hear(bad);
    bad = answer_to(entry);
    bad.source_be = ip("192.0.2.1");
    hear(bad);
    bad = answer_to(entry);
    bad.source_port = 1053;
    hear(bad);
    bad = answer_to(entry);
    bad.id = 0x1235;
    hear(bad);
    bad = answer_to(entry);
    bad.answers = 0;
    hear(bad);
    const char *const job = "uloop_recv_dns_query";
    EXPECT_TRUE(log.has("Info", job, "DNS response check fail at IP protocol: 1/17"));
    EXPECT_TRUE(log.has("Info", job, "DNS response check fail at IP addr dst_addr: 100.64.2.2"));
    EXPECT_TRUE(log.has("Info", job, "DNS response check fail at IP addr src_addr: 192.0.2.1"));
    EXPECT_TRUE(log.has("Info", job, "DNS response check fail at udp port: 1053/53"));
    EXPECT_TRUE(log.has("Info", job, "DNS response check fail at dns id: 4661/4660"));
    EXPECT_EQ(log.count("Info", job, "dns through ip 100.64.2.2 failed!"), 5);
    EXPECT_EQ(entry.received, 0);
}

TEST_F(dns_loop_form, a_read_error_or_an_empty_frame_fails)
{
    uloop_recv_dns_query(&entry.socket.watcher, ULOOP_READ);
    EXPECT_EQ(log.count("Info", "uloop_recv_dns_query", "dns through ip 100.64.2.2 failed!"), 1);
    fake_wire.arrive(entry.socket.watcher.fd, t_bytes());
    uloop_recv_dns_query(&entry.socket.watcher, ULOOP_READ);
    EXPECT_EQ(log.count("Info", "uloop_recv_dns_query", "dns through ip 100.64.2.2 failed!"), 2);
}

TEST_F(dns_loop_form, without_something_to_read_nothing_is_read)
{
    fake_wire.arrive(entry.socket.watcher.fd, answer_to(entry).bytes());
    uloop_recv_dns_query(&entry.socket.watcher, 0);
    EXPECT_EQ(entry.received, 0);
    EXPECT_TRUE(log.has("Info", "uloop_recv_dns_query", "dns response:events=0, ip=100.64.2.2!"));
    EXPECT_FALSE(log.has_body("dns through ip 100.64.2.2 failed!"));
}

TEST_F(dns_loop_form, an_entry_that_has_its_answer_reads_no_more)
{
    entry.received = 1;
    hear(answer_to(entry));
    EXPECT_EQ(ctx.winner, nullptr);
    EXPECT_EQ(fake_wire.socket(entry.socket.watcher.fd).arrived.size(), 1u);
    EXPECT_TRUE(log.has("Debug", "uloop_recv_dns_query", "Already receieved response!"));
    recv_dns_query(&entry.socket.watcher);
    EXPECT_EQ(fake_wire.socket(entry.socket.watcher.fd).arrived.size(), 1u);
    EXPECT_TRUE(log.has("Debug", "recv_dns_query", "Already receieved response!"));
}

} // namespace
