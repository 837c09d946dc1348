// SPDX-License-Identifier: MIT
// What the kernel may keep from the probes: only what they would pass over without a word. The judge is the handlers
// themselves, at every log level, over frames of all sorts; the filters run in the kernel.
#include "probes/arp/arp_search.h"
#include "probes/dns/dns_receive.h"
#include "probes/lan/lan_hosts.h"
#include "probes/wire/frame_filter.h"

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <random>

#include "platform/log.h"
#include "probes/arp/arp_batch.h"
#include "probes/arp/arp_probe.h"
#include "probes/discovery/dhcp_discovery.h"
#include "probes/discovery/dhcp_frames.h"
#include "probes/discovery/pppoe_discovery.h"
#include "probes/discovery/pppoe_frames.h"
#include "probes/dns/dns_frames.h"
#include "probes/lan/arp_table.h"
#include "tests/unit/probes/dns_scene.h"
#include "tests/unit/probes/fake_wire.h"
#include "tests/unit/probes/kernel_filter.h"
#include "tests/unit/probes/sample_frames.h"
#include "tests/unit/support/fake_clock.h"
#include "tests/unit/support/sandbox.h"

namespace {

using t_frames = std::vector<t_bytes>;

constexpr uint32_t IDENTIFIER = 2; // the one that the frames of the fuzz targets carry
constexpr t_mac BRIDGE_MAC = {{0x02, 0x00, 0x00, 0x00, 0x00, 0x01}};
constexpr int MUTATIONS = 60;    // of each frame
constexpr size_t LONGEST = 1600; // more than any probe reads

void add_folder(t_frames *frames, const std::string &folder)
{
    for (const auto &entry : std::filesystem::directory_iterator(std::string(WAN_DETECT_TEST_DATA) + folder)) {
        std::ifstream file(entry.path(), std::ios::binary);
        frames->emplace_back(std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>());
    }
}

// The same frame with a few bytes changed, cut, or longer: mostly where fields are.
t_bytes mutated(t_bytes frame, std::mt19937 *dice)
{
    auto below = [dice](size_t limit) { return (*dice)() % limit; };
    for (size_t changes = below(3); changes > 0 && !frame.empty(); changes--) {
        uint8_t &byte = frame[below(std::min<size_t>(frame.size(), below(2) ? 64 : frame.size()))];
        constexpr uint8_t odd_values[] = {0, 1, 2, 4, 7, 17, 68, 0xff};
        byte = below(2) ? odd_values[below(sizeof odd_values)] : static_cast<uint8_t>(byte ^ (1 << below(8)));
    }
    if (below(4) == 0)
        frame.resize(below(frame.size() + 1));
    if (below(8) == 0)
        frame.resize(frame.size() + below(LONGEST - std::min(LONGEST - 1, frame.size())));
    return frame;
}

t_frames with_mutations(const t_frames &frames)
{
    std::mt19937 dice(1);
    t_frames all = frames;
    for (const t_bytes &frame : frames)
        for (int i = 0; i < MUTATIONS; i++)
            all.push_back(mutated(frame, &dice));
    return all;
}

// What a port hears besides its own answers, whatever it waits for.
t_frames everything()
{
    t_frames frames = {offer(IDENTIFIER, usual_options()),
                       pado(usual_tags(IDENTIFIER)),
                       t_arp_answer{mac("02:5e:00:00:00:99"), ip("192.168.1.50")}.bytes(),
                       t_bytes(60, 0xff),
                       t_bytes(1, 0),
                       zeros(1514)};
    for (const char *folder : {"dhcp_answer", "pado", "arp_frame", "dns_answer"})
        add_folder(&frames, std::string("/fuzz/corpus/") + folder);
    return frames;
}

class frame_filter : public testing::TestWithParam<int> {
protected:
    void SetUp() override
    {
        fake_wire.reset();
        fake_clock.reset();
        fake_wire.add_interface("eth1", {.ifindex = 11, .mac = {{0x02, 0, 0, 0, 1, 1}}});
    }

    // Every frame that the handler takes or tells of must pass; how many did not, and how many there are to be told of.
    template <typename Heard>
    void expect_nothing_lost(const t_frame_filter &filter, const t_frames &frames, Heard heard)
    {
        const t_kernel_filter kernel(filter);
        int matters = 0;
        for (const t_bytes &frame : frames) {
            if (frame.empty() || !heard(frame))
                continue;
            matters++;
            ASSERT_TRUE(kernel.passes(frame)) << "level " << GetParam() << ": " << testing::PrintToString(frame);
        }
        EXPECT_GT(matters, 10) << "hardly a frame was heard, so nothing was tested";
    }

    t_device eth1 = make_port("eth1");
};

INSTANTIATE_TEST_SUITE_P(level, frame_filter, testing::Values(0, 2, 3, 4, 5, 6, 7));

// Hands a frame to the callback of a watcher with a socket on the fake wire. True when something was logged.
template <typename Callback> bool told_of(uloop_fd *watcher, const t_bytes &frame, int level, Callback callback)
{
    t_log_capture log(level);
    dhcp_detect_handle.lines = pppoe_detect_handle.lines = {}; // nothing is left out of what is said
    watcher->fd = fake_wire.add_socket(0);
    fake_wire.arrive(watcher->fd, frame);
    callback();
    if (watcher->fd >= 0)
        fake_wire.close_socket(watcher->fd);
    return !log.text().empty();
}

t_discovery_port asked(const t_discovery &kind, t_device *dev)
{
    t_discovery_port port = {};
    port.kind = &kind;
    port.identifier = IDENTIFIER;
    port.dev = dev;
    return port;
}

TEST_P(frame_filter, for_offers_drops_nothing_that_is_taken_or_told_of)
{
    t_frames frames = everything();
    frames.push_back(patched(frames[0], 6, mac_bytes(BRIDGE_MAC)));
    for (uint32_t xid : {0u, 1u, IDENTIFIER, 0xffffffffu})
        frames.push_back(offer(xid, {}));
    dhcp_detect_handle.lan_mac = BRIDGE_MAC;
    expect_nothing_lost(dhcp_offer_filter(IDENTIFIER, dhcp_detect_handle.lan_mac, GetParam()), with_mutations(frames),
                        [this](const t_bytes &frame) {
                            t_discovery_port ctx = asked(dhcp_discovery, &eth1);
                            const bool told = told_of(&ctx.socket.watcher, frame, GetParam(),
                                                      [&ctx] { receive_on_port(&ctx.socket.watcher, ULOOP_READ); });
                            return told || ctx.answered;
                        });
    dhcp_detect_handle = {};
}

TEST_P(frame_filter, for_pados_drops_nothing_that_is_taken_or_told_of)
{
    t_frames frames = everything();
    const t_bytes mine = tag(0x0103, native(IDENTIFIER)), other = tag(0x0103, native(IDENTIFIER + 1));
    for (size_t before : {0u, 1u, 5u, 23u, 24u, 25u, 100u, 372u}) {
        t_bytes tags;
        while (tags.size() < 4 * before)
            tags = join({tags, tag(0x0101, {})});
        frames.push_back(pado(join({tags, mine})));
    }
    frames.push_back(pado(join({other, mine})));
    frames.push_back(pado(join({tag(0x0103, {1, 2}), tag(0x0103, zeros(8)), mine, tag(0, {})})));
    frames.push_back(pado(join({tag(0x0101, zeros(1400)), mine})));
    frames.push_back(join({pado(mine), zeros(40)}));
    expect_nothing_lost(pado_filter(IDENTIFIER, GetParam()), with_mutations(frames), [this](const t_bytes &frame) {
        t_discovery_port ctx = asked(pppoe_discovery, &eth1);
        const bool told = told_of(&ctx.socket.watcher, frame, GetParam(),
                                  [&ctx] { receive_on_port(&ctx.socket.watcher, ULOOP_READ); });
        return told || ctx.answered;
    });
}

t_dns_entry dns_entry(t_device *dev)
{
    t_dns_entry entry = {};
    entry.dev = dev;
    entry.dev_ip_be = ip("10.20.30.40");
    entry.dns_server_be = ip("10.20.30.53");
    entry.query_id = 1;
    return entry;
}

TEST_P(frame_filter, for_dns_answers_drops_nothing_that_is_taken_or_told_of)
{
    t_frames frames = everything();
    frames.push_back(answer_to(dns_entry(&eth1)).bytes());
    expect_nothing_lost(
        dns_answer_filter(dns_entry(&eth1), GetParam()), with_mutations(frames), [this](const t_bytes &frame) {
            t_dns_ctx ctx = {};
            ctx.count = 1;
            ctx.entries[0] = dns_entry(&eth1);
            t_dns_entry &entry = ctx.entries[0];
            const bool told =
                told_of(&entry.socket.watcher, frame, GetParam(), [&entry] { recv_dns_query(&entry.socket.watcher); });
            return told || entry.received;
        });
}

t_frames arp_packets()
{
    t_frames frames = everything();
    const t_mac host = mac("02:5e:00:00:00:99"), other = mac("02:5e:00:00:00:98");
    for (const char *address : {"192.168.1.50", "192.168.1.51", "10.0.0.1"})
        for (uint16_t opcode : {1, 2, 3})
            for (const t_mac &sender : {host, other})
                for (const t_mac &source : {host, other})
                    for (size_t size : {60u, 41u})
                        frames.push_back(t_arp_answer{sender, ip(address), opcode, source, size}.bytes());
    return with_mutations(frames);
}

// What the job tells of itself does not count.
bool says_one_of(t_log_capture &log, std::initializer_list<const char *> texts)
{
    const std::string said = log.text();
    return std::any_of(texts.begin(), texts.end(),
                       [&said](const char *text) { return said.find(text) != std::string::npos; });
}

void answer_requests_with(const t_bytes &frame)
{
    fake_wire.on_send = [frame](const t_sent_frame &request) { fake_wire.arrive(request.fd, frame); };
}

TEST_P(frame_filter, for_the_search_of_an_address_drops_nothing_that_is_taken_or_told_of)
{
    const uint32_t target = ip("192.168.1.50");
    expect_nothing_lost(arp_search_filter(target, GetParam()), arp_packets(), [&](const t_bytes &frame) {
        t_log_capture log(GetParam());
        answer_requests_with(frame);
        t_port_list ports = {&eth1};
        check_ip_using_arp_blocked(target, &UNKNOWN_MAC, &ports.list, ip("192.168.1.1"), &BRIDGE_MAC);
        return ports.list.count == 1 || says_one_of(log, {"Not a arp reply packet", "receieve a different ip"});
    });
}

TEST_P(frame_filter, for_the_recheck_of_a_host_drops_nothing_that_is_taken_or_told_of)
{
    const t_mac host = mac("02:5e:00:00:00:99");
    expect_nothing_lost(arp_host_filter(host, GetParam()), arp_packets(), [&](const t_bytes &frame) {
        t_arp_packet packet;
        if (!parse_arp_frame(frame, &packet)) // such a socket hears nothing else
            return false;
        t_log_capture log(GetParam());
        answer_requests_with(frame);
        t_arp_entry *table = nullptr;
        add_arp_entry(&table, create_new_arp_entry(host, 1, ip("192.168.1.50")));
        double_check_arp_packet_all_blocked(&table, ip("192.168.1.1"), ip("255.255.255.0"), &BRIDGE_MAC, 7);
        const bool kept = table;
        if (table)
            release_arp_table(&table);
        return kept || says_one_of(log, {"Not match", "Not a arp reply packet", "receieve a different ip"});
    });
}

TEST_P(frame_filter, for_questions_about_an_address_drops_nothing_that_is_answered)
{
    const uint32_t own = ip("192.168.1.50");
    t_frames frames = arp_packets();
    for (const char *target : {"192.168.1.50", "192.168.1.51"}) {
        t_arp_frame question;
        build_arp_request(&question, mac("02:5e:00:00:00:99"), ip("10.0.0.1"), UNKNOWN_MAC, ip(target));
        const auto *first = reinterpret_cast<const uint8_t *>(&question);
        frames.emplace_back(first, first + sizeof question);
        frames.emplace_back(first, first + offsetof(t_arp_frame, padding));
    }
    expect_nothing_lost(arp_question_filter(own), with_mutations(frames), [own](const t_bytes &frame) {
        t_arp_asker asker;
        return parse_arp_question(frame, own, &asker);
    });
}

// --- what a flood is made of does not come through

struct t_flood {
    t_frame_filter filter;
    t_frames frames;
};

void expect_all_dropped(const t_flood &flood)
{
    const t_kernel_filter kernel(flood.filter);
    for (const t_bytes &frame : flood.frames)
        EXPECT_FALSE(kernel.passes(frame)) << testing::PrintToString(frame);
}

TEST(quiet_filter, for_offers_drops_every_answer_with_a_flaw)
{
    const t_bytes right = offer(IDENTIFIER, usual_options());
    expect_all_dropped({dhcp_offer_filter(IDENTIFIER, BRIDGE_MAC, LOG_LEVEL_Critical),
                        {patched(right, OFFER_IP_PROTOCOL, {6}),
                         patched(right, OFFER_DESTINATION_PORT, {0, 67}),
                         patched(right, OFFER_OP, {1}),
                         patched(right, OFFER_COOKIE + 3, {0x64}),
                         offer(IDENTIFIER + 1, {}),
                         offer(0x02000000, {}),
                         patched(right, 6, mac_bytes(BRIDGE_MAC)),
                         t_bytes(right.begin(), right.begin() + OFFER_COOKIE + 3),
                         t_bytes(60, 0xff),
                         {0}}});
    EXPECT_TRUE(t_kernel_filter(dhcp_offer_filter(IDENTIFIER, BRIDGE_MAC, LOG_LEVEL_Critical)).passes(right));
}

TEST(quiet_filter, for_pados_drops_every_answer_with_a_flaw)
{
    const t_bytes right = pado(usual_tags(IDENTIFIER));
    expect_all_dropped({pado_filter(IDENTIFIER, LOG_LEVEL_Critical),
                        {patched(right, PADO_SOURCE, t_bytes(6, 0xff)),
                         patched(right, PADO_ETHER_TYPE, {0x88, 0x64}),
                         patched(right, PADO_CODE, {0x65}),
                         patched(right, PADO_LENGTH, {0x05, 0xd7}),
                         patched(right, PADO_LENGTH, {0, 0}),
                         patched(right, PADO_VERSION_TYPE, {0x21}),
                         patched(right, PADO_VERSION_TYPE, {0x12}),
                         pado(usual_tags(IDENTIFIER + 1)),
                         pado({}),
                         pado(join({tag(0, {}), tag(0x0103, native(IDENTIFIER))})),
                         pado(tag(0x0103, zeros(8))),
                         pado(join({tag(0x0101, zeros(1491)), tag(0x0103, native(IDENTIFIER))})),
                         t_bytes(60, 0xff),
                         {0}}});
    EXPECT_TRUE(t_kernel_filter(pado_filter(IDENTIFIER, LOG_LEVEL_Critical)).passes(right));
}

TEST(quiet_filter, for_dns_answers_drops_every_answer_with_a_flaw)
{
    const t_dns_entry entry = dns_entry(nullptr);
    const t_dns_reply right = answer_to(entry);
    t_frames flawed;
    for (int flaw = 0; flaw < 6; flaw++) {
        t_dns_reply reply = right;
        reply.protocol = flaw == 0 ? 6 : reply.protocol;
        reply.source_be ^= flaw == 1 ? 1 : 0;
        reply.destination_be ^= flaw == 2 ? 1 : 0;
        reply.source_port = flaw == 3 ? 54 : reply.source_port;
        reply.id = static_cast<uint16_t>(reply.id ^ (flaw == 4 ? 1 : 0));
        reply.answers = flaw == 5 ? 0 : reply.answers;
        flawed.push_back(reply.bytes());
    }
    flawed.push_back(t_bytes(49, 0));
    expect_all_dropped({dns_answer_filter(entry, LOG_LEVEL_Critical), flawed});
    EXPECT_TRUE(t_kernel_filter(dns_answer_filter(entry, LOG_LEVEL_Critical)).passes(right.bytes()));
}

TEST(quiet_filter, for_arp_drops_every_answer_with_a_flaw)
{
    const t_mac host = mac("02:5e:00:00:00:99"), other = mac("02:5e:00:00:00:98");
    const uint32_t target = ip("192.168.1.50");
    expect_all_dropped({arp_search_filter(target, LOG_LEVEL_Critical),
                        {t_arp_answer{host, ip("192.168.1.51")}.bytes(),
                         t_arp_answer{host, target, 1}.bytes(),
                         patched(t_arp_answer{host, target}.bytes(), 12, {0x80, 0x35}),
                         t_bytes(60, 0xff),
                         {0}}});
    expect_all_dropped({arp_host_filter(host, LOG_LEVEL_Critical),
                        {t_arp_answer{other, target}.bytes(), t_arp_answer{host, target, 2, other}.bytes(),
                         t_arp_answer{other, target, 2, host}.bytes(), t_arp_answer{host, target, 1}.bytes()}});
    EXPECT_TRUE(
        t_kernel_filter(arp_search_filter(target, LOG_LEVEL_Critical)).passes(t_arp_answer{other, target}.bytes()));
    EXPECT_TRUE(t_kernel_filter(arp_host_filter(host, LOG_LEVEL_Critical)).passes(t_arp_answer{host, 0}.bytes()));
}

TEST(quiet_filter, for_questions_about_an_address_drops_every_other_packet)
{
    const t_mac host = mac("02:5e:00:00:00:99");
    t_arp_frame question;
    build_arp_request(&question, host, ip("10.0.0.1"), host, ip("10.0.0.2"));
    const auto *first = reinterpret_cast<const uint8_t *>(&question);
    const t_bytes right(first, first + sizeof question);
    expect_all_dropped({arp_question_filter(ip("10.0.0.2")),
                        {patched(right, 41, {3}),
                         patched(right, 12, {0x08, 0x00}),
                         patched(right, 14, {0, 6}),
                         patched(right, 16, {0x86, 0xdd}),
                         patched(right, 18, {8}),
                         patched(right, 19, {16}),
                         patched(right, 20, {0, 2}),
                         t_bytes(right.begin(), right.begin() + 41),
                         t_bytes(60, 0xff),
                         {0}}});
    EXPECT_TRUE(t_kernel_filter(arp_question_filter(ip("10.0.0.2"))).passes(right));
}

TEST(frame_filter_parts, a_filter_that_grows_too_long_is_cut_and_never_overflows)
{
    t_frame_filter filter = {};
    for (size_t i = 0; i < FRAME_FILTER_SIZE; i++)
        filter_require_byte(&filter, 0, 1);
    EXPECT_EQ(filter.length, FRAME_FILTER_SIZE);
}

} // namespace
