// SPDX-License-Identifier: MIT
#include "probes/lan/arp_table.h"

#include "tests/unit/probes/lan_scene.h"
#include "tests/unit/support/failing_memory.h"
#include "tests/unit/support/sandbox.h"

namespace {

const char *const HEADER = "IP address       HW type     Flags       HW address            Mask     Device\n";
const char *const CACHE = "/tmp/arp_cache";

class arp_table : public testing::Test {
protected:
    t_arp_entry *head = nullptr;
    t_log_capture log;

    ~arp_table() override
    {
        if (head)
            release_arp_table(&head);
    }

    int read(const std::string &cache, const char *lan = "192.168.1.1", const char *netmask = "255.255.255.0")
    {
        write_file(CACHE, cache);
        return update_filtered_arp_table(&head, ip(lan), ip(netmask), CACHE);
    }

    std::vector<std::string> addresses() const
    {
        std::vector<std::string> found;
        for (const t_arp_entry *entry = head; entry; entry = static_cast<t_arp_entry *>(entry->hh.next)) {
            char text[INET_ADDRSTRLEN];
            found.push_back(inet_ntop(AF_INET, &entry->address_be, text, sizeof text));
        }
        return found;
    }

    void add(const char *address, const char *hardware)
    {
        t_arp_entry *entry = create_new_arp_entry(mac(hardware), 1, ip(address));
        ASSERT_TRUE(add_arp_entry(&head, entry));
    }
};

using t_texts = std::vector<std::string>;

// As a router with three hosts on its bridge and one upstream shows it.
const std::string RECORDED = std::string(HEADER) +
                             "192.168.1.50     0x1         0x2         aa:bb:cc:00:00:32     *        br-lan\n"
                             "10.64.0.1        0x1         0x2         aa:bb:cc:00:00:01     *        eth0\n"
                             "192.168.1.7      0x1         0x6         aa:bb:cc:00:00:07     *        br-lan\n"
                             "192.168.1.99     0x1         0x0         00:00:00:00:00:00     *        br-lan\n";

// holds: arp-cache-codes
TEST_F(arp_table, holds_the_complete_entries_of_the_subnet_in_the_order_of_the_cache)
{
    EXPECT_EQ(read(RECORDED), 0);
    EXPECT_EQ(addresses(), (t_texts{"192.168.1.50", "192.168.1.7"}));
    EXPECT_EQ(arp_table_count(head), 2u);
    EXPECT_EQ(log.count("Debug", "update_filtered_arp_table", "Entering function: update_filtered_arp_table!"), 1);
    EXPECT_TRUE(log.has("Debug", "update_filtered_arp_table", "Detect new arp entry for AA-BB-CC-00-00-32, flags=2"));
    EXPECT_TRUE(log.has("Debug", "update_filtered_arp_table", "Detect new arp entry for AA-BB-CC-00-00-07, flags=6"));
    EXPECT_FALSE(log.has_body("Couldn't parse ARP table!"));
}

TEST_F(arp_table, an_entry_keeps_hardware_type_address_and_mac)
{
    read(std::string(HEADER) + "192.168.1.50 0x6 0x2 aa:bb:cc:00:00:32 * br-lan\n");
    ASSERT_NE(head, nullptr);
    EXPECT_EQ(head->hardware_type, 6u);
    EXPECT_EQ(head->hardware_type_again, 6u);
    EXPECT_EQ(head->address_be, ip("192.168.1.50"));
    EXPECT_EQ(head->mac, mac("aa:bb:cc:00:00:32"));
    for (uint32_t word : head->unused)
        EXPECT_EQ(word, 0u);
}

// holds: arp-incomplete
TEST_F(arp_table, incomplete_entries_alone_leave_it_empty)
{
    EXPECT_EQ(read(std::string(HEADER) + "192.168.1.50 0x1 0x0 00:00:00:00:00:00 * br-lan\n"
                                         "192.168.1.51 0x1 0x4 aa:bb:cc:00:00:33 * br-lan\n"),
              0);
    EXPECT_EQ(head, nullptr);
}

// holds: arp-other-subnet
TEST_F(arp_table, a_host_of_another_subnet_is_left_out)
{
    EXPECT_EQ(read(std::string(HEADER) + "192.168.2.50 0x1 0x2 aa:bb:cc:00:00:32 * br-lan\n"), 0);
    EXPECT_EQ(head, nullptr);
    EXPECT_EQ(
        read(std::string(HEADER) + "192.168.2.50 0x1 0x2 aa:bb:cc:00:00:32 * br-lan\n", "192.168.1.1", "255.255.0.0"),
        0);
    EXPECT_EQ(addresses(), t_texts{"192.168.2.50"});
}

// holds: same-mac-twice
TEST_F(arp_table, the_first_line_of_a_mac_wins)
{
    EXPECT_EQ(read(std::string(HEADER) + "192.168.1.50 0x1 0x2 aa:bb:cc:00:00:32 * br-lan\n"
                                         "192.168.1.51 0x1 0x2 aa:bb:cc:00:00:32 * br-lan\n"),
              0);
    EXPECT_EQ(addresses(), t_texts{"192.168.1.50"});
    EXPECT_TRUE(log.has("Error", "add_arp_entry", "Arp entry:AA-BB-CC-00-00-32 already existed!"));
    EXPECT_EQ(log.count("Debug", "update_filtered_arp_table", "Detect new arp entry for AA-BB-CC-00-00-32, flags=2"),
              2);
}

TEST_F(arp_table, the_first_entry_of_all_finds_no_table_yet)
{
    read(RECORDED);
    EXPECT_EQ(log.count("Info", "check_arp_already_add", "arp_table_hashmap_head input is NULL!"), 1);
    EXPECT_EQ(log.count("Info", "find_arp_entry", "arp_table_hashmap_head input is NULL!"), 0);
}

TEST_F(arp_table, a_cache_with_its_header_only_is_simply_empty)
{
    for (const char *cache : {HEADER, "IP address", ""}) {
        EXPECT_EQ(read(cache), 0);
        EXPECT_EQ(head, nullptr);
    }
    EXPECT_FALSE(log.has_body("Couldn't parse ARP table!"));
}

// holds: arp-cache-codes
TEST_F(arp_table, a_missing_cache_is_an_error)
{
    EXPECT_EQ(update_filtered_arp_table(&head, ip("192.168.1.1"), ip("255.255.255.0"), "/tmp/no_such_cache"), -86);
    EXPECT_EQ(head, nullptr);
    EXPECT_TRUE(log.has("Error", "update_filtered_arp_table", "Couldn't open /proc/net/arp!"));
}

TEST_F(arp_table, the_kernels_own_cache_can_be_read)
{
    EXPECT_EQ(update_filtered_arp_table(&head, ip("192.168.1.1"), ip("255.255.255.0")), 0);
    EXPECT_FALSE(log.has_body("Couldn't parse ARP table!"));
}

TEST_F(arp_table, lines_that_cannot_be_read_are_skipped_one_by_one)
{
    EXPECT_EQ(read(std::string(HEADER) + "garbage\n"
                                         "192.168.1.50 0x1 0x2 aa:bb:cc:00:00 * br-lan\n"
                                         "192.168.1.300 0x1 0x2 aa:bb:cc:00:00:35 * br-lan\n"
                                         "192.168.1.52 1 2 aa:bb:cc:00:00:34 * br-lan\n"
                                         "192.168.1.51 0x1 0x2 aa:bb:cc:00:00:33 * br-lan\n"
                                         "192.168.1.53 0x1 0x2 not:a:mac\n"),
              0);
    EXPECT_EQ(addresses(), t_texts{"192.168.1.51"});
    EXPECT_EQ(log.count("Error", "update_filtered_arp_table", "Couldn't parse ARP table!"), 5);
}

TEST_F(arp_table, an_empty_line_is_one_broken_line_and_does_not_stop_the_reading)
{
    EXPECT_EQ(read(std::string(HEADER) + "\n192.168.1.51 0x1 0x2 aa:bb:cc:00:00:33 * br-lan\n\n\n"), 0);
    EXPECT_EQ(addresses(), t_texts{"192.168.1.51"});
    EXPECT_EQ(log.count("Error", "update_filtered_arp_table", "Couldn't parse ARP table!"), 1);
}

TEST_F(arp_table, a_huge_line_is_read_in_pieces_and_the_next_one_is_found)
{
    EXPECT_EQ(
        read(std::string(HEADER) + std::string(1000, 'x') + "\n192.168.1.51 0x1 0x2 aa:bb:cc:00:00:33 * br-lan\n"), 0);
    EXPECT_EQ(addresses(), t_texts{"192.168.1.51"});
    EXPECT_EQ(log.count("Error", "update_filtered_arp_table", "Couldn't parse ARP table!"), 4); // 256 + 256 + 256 + 232
}

TEST_F(arp_table, a_last_line_without_its_end_and_bytes_of_every_kind_are_survived)
{
    std::string bytes;
    for (int c = 0; c < 256; c++)
        bytes.push_back(static_cast<char>(c));
    EXPECT_EQ(read(std::string(HEADER) + bytes + "\n" + bytes + "\n192.168.1.51 0x1 0x2 aa:bb:cc:00:00:33"), 0);
    EXPECT_EQ(addresses(), t_texts{"192.168.1.51"});
}

// holds: hosts-cannot-grow
TEST_F(arp_table, without_memory_for_the_table_entries_are_left_out)
{
    t_arp_entry *entry = create_new_arp_entry(mac("aa:bb:cc:00:00:32"), 1, ip("192.168.1.50"));
    {
        const t_memory_shortage shortage;
        EXPECT_FALSE(add_arp_entry(&head, entry));
    }
    EXPECT_EQ(head, nullptr);
    EXPECT_TRUE(log.has("Error", "add_arp_entry", "No memory to add AA-BB-CC-00-00-32!"));
    EXPECT_TRUE(add_arp_entry(&head, entry));
}

TEST_F(arp_table, without_memory_lines_are_passed_over)
{
    {
        write_file(CACHE, RECORDED);
        const t_memory_shortage shortage;
        EXPECT_EQ(update_filtered_arp_table(&head, ip("192.168.1.1"), ip("255.255.255.0"), CACHE), 0);
    }
    EXPECT_EQ(head, nullptr);
    EXPECT_TRUE(log.has("Error", "create_new_arp_entry", "Create new arp_entry for AA-BB-CC-00-00-32 failed!"));
    EXPECT_TRUE(
        log.has("Error", "update_filtered_arp_table", "Create new arp_entry for AA-BB-CC-00-00-32 failed, continue!"));
    EXPECT_TRUE(
        log.has("Error", "update_filtered_arp_table", "Create new arp_entry for AA-BB-CC-00-00-07 failed, continue!"));
}

TEST_F(arp_table, finds_by_mac)
{
    add("192.168.1.50", "aa:bb:cc:00:00:32");
    add("192.168.1.51", "aa:bb:cc:00:00:33");
    const t_arp_entry *found = find_arp_entry(head, at(mac("aa:bb:cc:00:00:33")));
    ASSERT_NE(found, nullptr);
    EXPECT_EQ(found->address_be, ip("192.168.1.51"));
    EXPECT_EQ(find_arp_entry(head, at(mac("aa:bb:cc:00:00:34"))), nullptr);
}

TEST_F(arp_table, finding_in_nothing_or_for_nothing_says_so)
{
    EXPECT_EQ(find_arp_entry(nullptr, at(mac("aa:bb:cc:00:00:32"))), nullptr);
    EXPECT_TRUE(log.has("Info", "find_arp_entry", "arp_table_hashmap_head input is NULL!"));
    add("192.168.1.50", "aa:bb:cc:00:00:32");
    EXPECT_EQ(find_arp_entry(head, nullptr), nullptr);
    EXPECT_TRUE(log.has("Error", "find_arp_entry", "Invalid mac input!"));
}

// holds: arp-remove-codes
TEST_F(arp_table, removing_the_last_entry_leaves_no_table)
{
    add("192.168.1.50", "aa:bb:cc:00:00:32");
    add("192.168.1.51", "aa:bb:cc:00:00:33");
    EXPECT_EQ(remove_arp_entry(&head, at(mac("aa:bb:cc:00:00:32"))), 0);
    EXPECT_EQ(addresses(), t_texts{"192.168.1.51"});
    EXPECT_EQ(remove_arp_entry(&head, at(mac("aa:bb:cc:00:00:33"))), 0);
    EXPECT_EQ(head, nullptr);
}

// holds: arp-remove-codes
TEST_F(arp_table, removing_refuses_what_it_is_not_given)
{
    EXPECT_EQ(remove_arp_entry(nullptr, at(mac("aa:bb:cc:00:00:32"))), -99);
    EXPECT_EQ(remove_arp_entry(&head, at(mac("aa:bb:cc:00:00:32"))), -99);
    EXPECT_EQ(log.count("Error", "remove_arp_entry", "Invalid arp_table_hashmap_head input!"), 2);
    add("192.168.1.50", "aa:bb:cc:00:00:32");
    EXPECT_EQ(remove_arp_entry(&head, nullptr), -99);
    EXPECT_TRUE(log.has("Error", "remove_arp_entry", "Invalid mac input!"));
    EXPECT_EQ(remove_arp_entry(&head, at(mac("aa:bb:cc:00:00:33"))), -96);
    EXPECT_TRUE(log.has("Error", "remove_arp_entry", "Arp entry:AA-BB-CC-00-00-33 doesn't existed!"));
    EXPECT_EQ(arp_table_count(head), 1u);
}

TEST_F(arp_table, releasing_frees_every_entry)
{
    add("192.168.1.50", "aa:bb:cc:00:00:32");
    add("192.168.1.51", "aa:bb:cc:00:00:33");
    release_arp_table(&head);
    EXPECT_EQ(head, nullptr);
    EXPECT_EQ(arp_table_count(head), 0u);
    EXPECT_FALSE(log.has_body("Invalid arp_table_hashmap_head input!"));
    release_arp_table(&head);
    release_arp_table(nullptr);
    EXPECT_EQ(log.count("Error", "release_arp_table", "Invalid arp_table_hashmap_head input!"), 2);
}

} // namespace
