// SPDX-License-Identifier: MIT
// Which ports have LAN hosts behind them: the kernel's own ARP cache, a forwarding file and port numbers of the test's
// making, and a wire of byte arrays for the re-check.
#include "probes/lan/lan_hosts.h"

#include "model/tables.h"
#include "probes/lan/arp_table.h"
#include "tests/support/world.h"
#include "tests/unit/probes/bridge_records.h"
#include "tests/unit/probes/fake_wire.h"
#include "tests/unit/probes/shell.h"
#include "tests/unit/support/fake_clock.h"
#include "tests/unit/support/sandbox.h"

namespace {

const char *const JOB = "update_brlan_dev";

class lan_hosts : public testing::Test {
protected:
    t_port_model model = {};
    t_device *eth1, *eth2, *eth3;
    t_hidden_sysfs sysfs;
    t_log_capture log;

    lan_hosts()
    {
        fake_wire.reset();
        fake_clock.reset();
        must_run("ip link add br-lan type bridge && ip link set br-lan up");
        fake_wire.add_interface("br-lan", {.ifindex = 7,
                                           .mac = {{2, 0, 0, 0, 0, 1}},
                                           .address_be = ip("192.168.1.1"),
                                           .netmask_be = ip("255.255.255.0")});
        eth1 = add("eth1");
        eth2 = add("eth2");
        eth3 = add("eth3");
        give_number("eth1", "0x1");
        give_number("eth2", "0x2");
        everybody_answers();
    }
    ~lan_hosts() override
    {
        release_all_device(&model.dev_hashmap_head);
        must_run("ip link del br-lan");
        EXPECT_EQ(model.arp_table_hashmap_head, nullptr);
        EXPECT_EQ(fake_wire.open_sockets(), 0);
    }

    t_device *add(const char *name) { return add_port_to(model, name); }
    static void give_number(const std::string &port, const std::string &text)
    {
        write_file("/sys/class/net/" + port + "/brport/port_no", text + "\n");
    }
    static void learn(const std::string &records) { write_file("/sys/class/net/br-lan/brforward", records); }
    static void remember(const char *address, const char *hardware)
    {
        must_run(std::string("ip neigh replace ") + address + " lladdr " + hardware + " dev br-lan nud permanent");
    }

    // Every asked host answers as it was asked, so nothing is stale.
    static void everybody_answers()
    {
        fake_wire.on_send = [](const t_sent_frame &sent) {
            t_arp_frame request;
            memcpy(&request, sent.bytes.data(), sizeof request);
            fake_wire.arrive(sent.fd, t_arp_answer{request.target_mac, request.target_ip_be}.bytes());
        };
    }
    static void nobody_answers() { fake_wire.on_send = nullptr; }
};

// holds: lan-look-codes
TEST_F(lan_hosts, a_port_with_a_live_host_of_the_subnet_is_flagged)
{
    remember("192.168.1.50", "aa:bb:cc:00:00:32");
    learn(forwarding_record(mac("aa:bb:cc:00:00:32"), 2));
    eth1->is_brlan_dev = 1; // of an earlier look
    EXPECT_EQ(update_brlan_dev(&model), 0);
    EXPECT_EQ(eth1->is_brlan_dev, 0);
    EXPECT_EQ(eth2->is_brlan_dev, 1);
    EXPECT_EQ(eth3->is_brlan_dev, 0);
    EXPECT_EQ(eth2->brlan_index, 2);
    EXPECT_EQ(eth3->brlan_index, -1);
    EXPECT_TRUE(log.has("Debug", JOB, "Entering function: update_brlan_dev!"));
    EXPECT_TRUE(log.has("Debug", "double_checkarp_table", "Entering function: double_checkarp_table!"));
    EXPECT_TRUE(log.has("Debug", JOB, "find ip|mac:192.168.1.1|AA-BB-CC-00-00-32 has same subnet as LAN in dev:eth2!"));
}

TEST_F(lan_hosts, the_bridge_is_announced_with_its_index)
{
    learn(forwarding_records(1));
    update_brlan_dev(&model);
    bool announced = false;
    for (const t_log_line &line : log.lines())
        announced =
            announced || line.body.rfind("Success get br-lan ip:192.168.1.1, mac:02-00-00-00-00-01, index:", 0) == 0;
    EXPECT_TRUE(announced);
}

// holds: arp-incomplete
TEST_F(lan_hosts, incomplete_entries_flag_nothing)
{
    must_run("ip neigh replace 192.168.1.50 lladdr aa:bb:cc:00:00:32 dev br-lan nud failed");
    learn(forwarding_record(mac("aa:bb:cc:00:00:32"), 1));
    EXPECT_EQ(update_brlan_dev(&model), 0);
    EXPECT_EQ(eth1->is_brlan_dev, 0);
    EXPECT_TRUE(log.has("Debug", JOB, "Failed to find arp entry for AA-BB-CC-00-00-32!"));
    // The empty table fails the re-check, and the join goes on.
    EXPECT_TRUE(
        log.has("Error", "double_checkarp_table", "failed to send&recv ARP sniffer packet, continue whatever!"));
}

// holds: arp-other-subnet
TEST_F(lan_hosts, a_host_of_another_subnet_flags_nothing)
{
    remember("10.0.0.50", "aa:bb:cc:00:00:32");
    learn(forwarding_record(mac("aa:bb:cc:00:00:32"), 1));
    EXPECT_EQ(update_brlan_dev(&model), 0);
    EXPECT_EQ(eth1->is_brlan_dev, 0);
    EXPECT_TRUE(fake_wire.sent().empty());
}

TEST_F(lan_hosts, a_host_that_no_longer_answers_flags_nothing)
{
    remember("192.168.1.50", "aa:bb:cc:00:00:32");
    learn(forwarding_record(mac("aa:bb:cc:00:00:32"), 1));
    nobody_answers();
    EXPECT_EQ(update_brlan_dev(&model), 0);
    EXPECT_EQ(eth1->is_brlan_dev, 0);
    EXPECT_EQ(fake_wire.sent().size(), 1u);
}

TEST_F(lan_hosts, a_record_of_a_port_that_is_not_ours_is_passed_over)
{
    remember("192.168.1.50", "aa:bb:cc:00:00:32");
    learn(forwarding_record(mac("aa:bb:cc:00:00:32"), 9));
    EXPECT_EQ(update_brlan_dev(&model), 0);
    EXPECT_TRUE(log.has("Debug", JOB, "No device index(9) match in device hashmap!"));
    EXPECT_EQ(eth1->is_brlan_dev + eth2->is_brlan_dev + eth3->is_brlan_dev, 0);
}

// holds: device-outside-bridge
TEST_F(lan_hosts, a_port_outside_the_bridge_matches_no_record)
{
    remember("192.168.1.50", "aa:bb:cc:00:00:32");
    learn(forwarding_record(mac("aa:bb:cc:00:00:32"), 255)); // -1 in eight bits
    EXPECT_EQ(update_brlan_dev(&model), 0);
    EXPECT_EQ(eth3->brlan_index, -1);
    EXPECT_EQ(eth3->is_brlan_dev, 0);
    EXPECT_TRUE(log.has("Debug", JOB, "No device index(255) match in device hashmap!"));
}

TEST_F(lan_hosts, of_two_ports_with_one_number_the_first_is_meant)
{
    give_number("eth3", "0x2");
    remember("192.168.1.50", "aa:bb:cc:00:00:32");
    learn(forwarding_record(mac("aa:bb:cc:00:00:32"), 2));
    EXPECT_EQ(update_brlan_dev(&model), 0);
    EXPECT_EQ(eth2->is_brlan_dev, 1);
    EXPECT_EQ(eth3->is_brlan_dev, 0);
}

// holds: chronicle-wire
TEST_F(lan_hosts, further_hosts_of_a_flagged_port_are_counted_until_the_next_look)
{
    eth1->notes.lan_hosts = 7;
    remember("192.168.1.50", "aa:bb:cc:00:00:32");
    remember("192.168.1.51", "aa:bb:cc:00:00:33");
    learn(forwarding_record(mac("aa:bb:cc:00:00:32"), 1) + forwarding_record(mac("aa:bb:cc:00:00:33"), 1));
    EXPECT_EQ(update_brlan_dev(&model), 0);
    EXPECT_EQ(log.count("Debug", JOB, "device:eth1 already has an ip that has same subnet as LAN!"), 1);
    EXPECT_EQ(eth1->notes.lan_hosts, 2);
    EXPECT_EQ(eth1->notes.lan_seen_s, monotonic_s());
    EXPECT_EQ(eth2->notes.lan_hosts, 0);
}

// holds: many-forwarding-records
TEST_F(lan_hosts, all_of_more_than_64_records_are_joined)
{
    remember("192.168.1.50", "aa:bb:cc:00:00:32");
    learn(forwarding_records(130) + forwarding_record(mac("aa:bb:cc:00:00:32"), 2));
    EXPECT_EQ(update_brlan_dev(&model), 0);
    EXPECT_EQ(eth2->is_brlan_dev, 1);
    EXPECT_TRUE(log.has("Debug", "get_bridge_table", "get br:br-lan, overall 131 entry in fdb table"));
}

// holds: same-mac-twice
TEST_F(lan_hosts, a_mac_with_two_addresses_is_asked_once)
{
    remember("192.168.1.50", "aa:bb:cc:00:00:32");
    remember("192.168.1.51", "aa:bb:cc:00:00:32");
    learn(forwarding_record(mac("aa:bb:cc:00:00:32"), 1));
    EXPECT_EQ(update_brlan_dev(&model), 0);
    EXPECT_EQ(fake_wire.sent().size(), 1u);
    EXPECT_EQ(eth1->is_brlan_dev, 1);
}

// holds: lan-look-codes
TEST_F(lan_hosts, without_the_bridges_address_only_the_flags_are_cleared)
{
    eth1->is_brlan_dev = 1;
    fake_wire.fail(t_wire_call::QUERY_INTERFACE, ENODEV, 0, 1, "br-lan");
    EXPECT_EQ(update_brlan_dev(&model), -87);
    EXPECT_EQ(eth1->is_brlan_dev, 0);
    EXPECT_TRUE(log.has("Error", JOB, "Couldn't get br-lan ip, netmask, mac!"));
    EXPECT_FALSE(log.has_body("Entering function: update_brlan_dev_index!"));
}

// holds: lan-host-lines
TEST_F(lan_hosts, invented_hosts_fill_no_log)
{
    give_number("eth1", "0x5");
    learn(forwarding_records(1000));
    update_brlan_dev(&model);
    EXPECT_EQ(log.count("Debug", JOB, "No device index(1) match in device hashmap!"), 200);
    EXPECT_TRUE(log.has("Info", "tell_lines_left_out", "lan hosts: 800 more lines about received frames left out"));
}

// holds: lan-host-lines
TEST_F(lan_hosts, invented_hosts_fill_no_log_while_no_host_is_known)
{
    learn(forwarding_records(1000));
    for (int level : {6, 7}) {
        t_log_capture told(level);
        update_brlan_dev(&model);
        const int lines = told.count("Info", "find_arp_entry", "arp_table_hashmap_head input is NULL!");
        EXPECT_LE(lines, 200);
        EXPECT_GE(lines, 60);
        EXPECT_NE(told.text().find("more lines about received frames left out"), std::string::npos);
    }
}

// holds: lan-look-codes
TEST_F(lan_hosts, without_forwarding_records_the_search_ends)
{
    learn("");
    EXPECT_EQ(update_brlan_dev(&model), -83);
    EXPECT_TRUE(log.has("Error", JOB, "Failed to get fdb table!"));
    EXPECT_EQ(eth1->brlan_index, 1);
    EXPECT_FALSE(log.has_body("Entering function: update_filtered_arp_table!"));
}

// holds: lan-look-codes
TEST_F(lan_hosts, an_arp_cache_that_cannot_be_opened_ends_the_search)
{
    learn(forwarding_records(1));
    ASSERT_EQ(mount("tmpfs", "/proc", "tmpfs", 0, nullptr), 0);
    const int result = update_brlan_dev(&model);
    ASSERT_EQ(umount("/proc"), 0);
    EXPECT_EQ(result, -82);
    EXPECT_TRUE(log.has("Error", "update_filtered_arp_table", "Couldn't open /proc/net/arp!"));
    EXPECT_TRUE(log.has("Error", JOB, "Failed to get arp table!"));
}

TEST_F(lan_hosts, a_table_left_over_is_released_first)
{
    ASSERT_TRUE(add_arp_entry(&model.arp_table_hashmap_head,
                              create_new_arp_entry(mac("aa:bb:cc:00:00:99"), 1, ip("192.168.1.99"))));
    learn(forwarding_record(mac("aa:bb:cc:00:00:99"), 1));
    EXPECT_EQ(update_brlan_dev(&model), 0);
    EXPECT_EQ(eth1->is_brlan_dev, 0);
}

TEST_F(lan_hosts, tables_are_released_in_silence)
{
    learn(forwarding_records(1));
    EXPECT_EQ(update_brlan_dev(&model), 0);
    remember("192.168.1.50", "aa:bb:cc:00:00:32");
    EXPECT_EQ(update_brlan_dev(&model), 0);
    EXPECT_FALSE(log.has("Error", "release_arp_table", "Invalid arp_table_hashmap_head input!"));
}

TEST_F(lan_hosts, a_model_without_ports_is_survived)
{
    release_all_device(&model.dev_hashmap_head);
    learn(forwarding_records(3));
    EXPECT_EQ(update_brlan_dev(&model), 0);
    EXPECT_EQ(log.count("Debug", JOB, "No device index(1) match in device hashmap!"), 3);
    add("eth1");
}

} // namespace
