// SPDX-License-Identifier: MIT
#include "probes/lan/bridge_table.h"

#include <algorithm>
#include <cerrno>
#include <cstdarg>

#include <linux/sockios.h>
#include <net/if.h>
#include <sys/ioctl.h>
#include <sys/socket.h>

#include "model/tables.h"
#include "platform/guards.h"
#include "tests/unit/probes/bridge_records.h"
#include "tests/unit/probes/shell.h"
#include "tests/unit/support/failing_memory.h"
#include "tests/unit/support/sandbox.h"

namespace {

// What the wrapped calls do instead of asking the kernel.
struct {
    int busy_answers;        // this many private ioctls fail with EAGAIN
    int private_ioctls;      // asked so far
    int socket_error;        // 0: sockets can be made
    std::vector<int> chunks; // unless empty: how many records each private ioctl hands out, and then none
} kernel;

// As the bridge does: four words say the command, where to, how many at most, and from which record on.
int hand_out_records(const ifreq *request)
{
    const auto *words = reinterpret_cast<const unsigned long *>(request->ifr_data);
    const size_t call = static_cast<size_t>(kernel.private_ioctls - 1);
    const int count = call < kernel.chunks.size() ? kernel.chunks[call] : 0;
    EXPECT_STREQ(request->ifr_name, "br-lan");
    EXPECT_EQ(words[0], 18u);
    EXPECT_EQ(words[2], 64u);
    auto *records = reinterpret_cast<t_bridge_record *>(words[1]);
    for (int i = 0; i < count; i++) {
        records[i] = {};
        records[i].ageing_timer = static_cast<uint32_t>(words[3]) + static_cast<uint32_t>(i);
    }
    return count;
}

} // namespace

extern "C" {
int __real_ioctl(int fd, unsigned long request, void *argument);
int __wrap_ioctl(int fd, unsigned long request, void *argument);
int __real_socket(int family, int type, int protocol);
int __wrap_socket(int family, int type, int protocol);

int __wrap_ioctl(int fd, unsigned long request, void *argument)
{
    if (request == SIOCDEVPRIVATE && kernel.private_ioctls++ < kernel.busy_answers) {
        errno = EAGAIN;
        return -1;
    }
    if (request == SIOCDEVPRIVATE && !kernel.chunks.empty())
        return hand_out_records(static_cast<ifreq *>(argument));
    return __real_ioctl(fd, request, argument);
}

int __wrap_socket(int family, int type, int protocol)
{
    if (kernel.socket_error) {
        errno = kernel.socket_error;
        return -1;
    }
    return __real_socket(family, type, protocol);
}
}

namespace {

const char *const FORWARDING = "/sys/class/net/br-lan/brforward";

class bridge_table : public testing::Test {
protected:
    t_log_capture log;
    t_bridge_record *records = nullptr;

    bridge_table() { kernel = {}; }
    ~bridge_table() override { free(records); }

    // A bridge "br-lan" with the port "eth1" and `hosts` hosts 02:00:00:00:hi:lo behind it.
    void make_bridge(int hosts)
    {
        must_run(
            "ip link add br-lan type bridge forward_delay 0 && ip link add eth1 type veth peer name peer1 && "
            "ip link set eth1 master br-lan && ip link set br-lan up && ip link set eth1 up && ip link set peer1 up");
        std::string batch;
        char line[96];
        for (int i = 0; i < hosts; i++) {
            snprintf(line, sizeof line, "fdb add 02:00:00:00:%02x:%02x dev eth1 master static\n", i >> 8, i & 0xff);
            batch += line;
        }
        write_file("/tmp/hosts", batch);
        must_run("bridge -batch /tmp/hosts");
    }

    static void remove_bridge() { must_run("ip link del br-lan && ip link del eth1"); }

    // How many of the hosts of make_bridge are among the records, each on a port of the bridge.
    long hosts_found(int count) const
    {
        return std::count_if(records, records + count, [](const t_bridge_record &record) {
            return record.mac[0] == 2 && record.mac[1] == 0 && record.mac[2] == 0 && record.mac[3] == 0 &&
                   !record.is_local && record.port == 1;
        });
    }
};

// holds: many-forwarding-records
TEST_F(bridge_table, more_records_than_a_chunk_are_read_in_chunks_and_all_are_there)
{
    const t_hidden_sysfs sysfs;
    write_file(FORWARDING, forwarding_records(150));
    ASSERT_EQ(get_bridge_table("br-lan", &records), 150);
    for (int i = 0; i < 150; i++)
        EXPECT_EQ(records[i].mac[5], i);
    EXPECT_TRUE(log.has("Debug", "get_bridge_table", "Entering function: get_bridge_table!"));
    EXPECT_TRUE(log.has("Debug", "br_get_fdb", "Entering function: br_get_fdb!"));
    EXPECT_TRUE(log.has("Debug", "get_bridge_table", "get br:br-lan, overall 150 entry in fdb table"));
    EXPECT_EQ(kernel.private_ioctls, 0);
}

// holds: many-forwarding-records
TEST_F(bridge_table, a_number_of_records_at_a_chunks_edge_is_exact)
{
    for (int count : {0, 1, 63, 64, 65, 127, 128, 129}) {
        const t_hidden_sysfs sysfs;
        write_file(FORWARDING, forwarding_records(count));
        EXPECT_EQ(get_bridge_table("br-lan", &records), count);
        free(records);
        records = nullptr;
    }
}

TEST_F(bridge_table, a_record_cut_short_is_left_out)
{
    const t_hidden_sysfs sysfs;
    write_file(FORWARDING, forwarding_records(3) + "half a");
    EXPECT_EQ(get_bridge_table("br-lan", &records), 3);
}

// holds: forwarding-codes
TEST_F(bridge_table, a_record_tells_mac_and_port)
{
    const t_hidden_sysfs sysfs;
    write_file(FORWARDING, forwarding_record(mac("aa:bb:cc:00:00:32"), 200));
    ASSERT_EQ(get_bridge_table("br-lan", &records), 1);
    EXPECT_EQ(records[0].mac, mac("aa:bb:cc:00:00:32"));
    EXPECT_EQ(records[0].port, 200);
}

TEST_F(bridge_table, a_real_bridge_with_many_hosts_is_read_whole)
{
    make_bridge(100);
    const int count = get_bridge_table("br-lan", &records);
    remove_bridge();
    ASSERT_GE(count, 100);
    EXPECT_EQ(hosts_found(count), 100);
    EXPECT_EQ(kernel.private_ioctls, 0);
}

// holds: many-forwarding-records, no-forwarding-file
TEST_F(bridge_table, without_the_forwarding_file_the_bridge_is_asked_by_ioctl)
{
    make_bridge(100);
    int count;
    {
        const t_hidden_sysfs sysfs;
        count = get_bridge_table("br-lan", &records);
    }
    remove_bridge();
    ASSERT_GE(count, 100);
    EXPECT_EQ(hosts_found(count), 100);
    EXPECT_EQ(kernel.private_ioctls, 3); // 64, the rest, none
}

TEST_F(bridge_table, a_bridge_that_learns_while_it_is_read_does_not_overrun_the_array)
{
    kernel.chunks = {3, 64, 60, 64};
    const t_hidden_sysfs sysfs;
    ASSERT_EQ(get_bridge_table("br-lan", &records), 191);
    for (uint32_t i = 0; i < 191; i++)
        EXPECT_EQ(records[i].ageing_timer, i);
}

TEST_F(bridge_table, a_bridge_that_learns_faster_than_it_is_read_is_read_to_a_limit)
{
    kernel.chunks.assign(2 * BRIDGE_MAX_RECORDS / BRIDGE_CHUNK_RECORDS, BRIDGE_CHUNK_RECORDS);
    const t_hidden_sysfs sysfs;
    EXPECT_EQ(get_bridge_table("br-lan", &records), BRIDGE_MAX_RECORDS);
}

// holds: no-forwarding-file
TEST_F(bridge_table, a_busy_bridge_is_asked_again)
{
    make_bridge(5);
    kernel.busy_answers = 9;
    int count;
    {
        const t_hidden_sysfs sysfs;
        count = get_bridge_table("br-lan", &records);
    }
    remove_bridge();
    ASSERT_GE(count, 5);
    EXPECT_EQ(hosts_found(count), 5);
    EXPECT_EQ(kernel.private_ioctls, 11); // ten attempts for the first chunk, one for the end
}

// holds: no-forwarding-file
TEST_F(bridge_table, a_bridge_that_stays_busy_is_given_up_after_ten_attempts)
{
    make_bridge(5);
    kernel.busy_answers = 1000;
    int count;
    {
        const t_hidden_sysfs sysfs;
        count = get_bridge_table("br-lan", &records);
    }
    remove_bridge();
    EXPECT_EQ(count, -1);
    EXPECT_EQ(kernel.private_ioctls, 10);
    EXPECT_TRUE(log.has("Error", "br_get_fdb", "read of forward table failed: Resource temporarily unavailable"));
    EXPECT_TRUE(log.has("Debug", "get_bridge_table", "get br:br-lan, overall -1 entry in fdb table"));
}

// holds: forwarding-codes
TEST_F(bridge_table, a_bridge_that_does_not_exist_is_a_read_error)
{
    EXPECT_EQ(get_bridge_table("br-none", &records), -1);
    EXPECT_TRUE(log.has("Error", "br_get_fdb", "read of forward table failed: No such device"));
}

// holds: forwarding-codes
TEST_F(bridge_table, without_a_channel_nothing_is_read)
{
    kernel.socket_error = EMFILE;
    EXPECT_EQ(get_bridge_table("br-lan", &records), -1);
    EXPECT_EQ(records, nullptr);
    EXPECT_TRUE(log.has("Error", "get_bridge_table", "br_init fail: Too many open files"));
    EXPECT_FALSE(log.has_body("Entering function: br_get_fdb!"));
}

// holds: forwarding-codes
TEST_F(bridge_table, without_memory_the_result_says_so)
{
    const t_hidden_sysfs sysfs;
    write_file(FORWARDING, forwarding_records(3));
    int count;
    {
        const t_memory_shortage shortage;
        count = get_bridge_table("br-lan", &records);
    }
    EXPECT_EQ(count, -98);
    EXPECT_TRUE(log.has("Error", "br_get_fdb", "Out of memory"));
    EXPECT_TRUE(log.has("Debug", "get_bridge_table", "get br:br-lan, overall -98 entry in fdb table"));
}

TEST_F(bridge_table, the_channel_is_closed_again)
{
    const t_fd_guard before(socket(AF_UNIX, SOCK_STREAM, 0));
    get_bridge_table("br-none", &records);
    const t_fd_guard after(socket(AF_UNIX, SOCK_STREAM, 0));
    EXPECT_EQ(after.fd, before.fd + 1);
}

TEST_F(bridge_table, an_integer_is_read_in_any_base)
{
    write_file("/tmp/numbers/port_no", "0x1f\n");
    EXPECT_EQ(fetch_int("/tmp/numbers", "port_no"), 31);
    write_file("/tmp/numbers/port_no", "12\n");
    EXPECT_EQ(fetch_int("/tmp/numbers", "port_no"), 12);
    write_file("/tmp/numbers/port_no", "010");
    EXPECT_EQ(fetch_int("/tmp/numbers", "port_no"), 8);
}

TEST_F(bridge_table, what_is_no_integer_is_no_port_number)
{
    for (const char *text : {"", "\n", "port", "-"}) {
        write_file("/tmp/numbers/port_no", text);
        EXPECT_EQ(fetch_int("/tmp/numbers", "port_no"), -1) << text;
    }
    EXPECT_EQ(fetch_int("/tmp/numbers", "missing"), -1);
    EXPECT_EQ(log.count("Info", "fetch_int", "Failed to open /tmp/numbers/missing, not a br-lan deive"), 1);
}

class bridge_port_numbers : public bridge_table {
protected:
    t_device *head = nullptr;

    ~bridge_port_numbers() override
    {
        if (head)
            release_all_device(&head);
    }
    t_device *add(const char *name)
    {
        t_device *dev = create_new_device(name);
        EXPECT_TRUE(add_device(&head, dev));
        return dev;
    }
};

// holds: device-outside-bridge
TEST_F(bridge_port_numbers, come_from_the_kernel_for_members_and_are_minus_one_for_others)
{
    t_device *member = add("eth1"), *stranger = add("peer1"), *missing = add("eth9");
    member->brlan_index = stranger->brlan_index = missing->brlan_index = 55;
    make_bridge(0);
    EXPECT_EQ(update_brlan_dev_index(head), 0);
    remove_bridge();
    EXPECT_EQ(member->brlan_index, 1);
    EXPECT_EQ(stranger->brlan_index, -1);
    EXPECT_EQ(missing->brlan_index, -1);
    EXPECT_TRUE(log.has("Debug", "update_brlan_dev_index", "Entering function: update_brlan_dev_index!"));
    EXPECT_EQ(log.count("Debug", "update_brlan_dev_index", "success get dev:eth1 index:1"), 1);
    EXPECT_TRUE(log.has("Info", "fetch_int", "Failed to open /sys/class/net/peer1/brport/port_no, not a br-lan deive"));
    EXPECT_TRUE(log.has("Info", "fetch_int", "Failed to open /sys/class/net/eth9/brport/port_no, not a br-lan deive"));
}

// holds: other-bridge
TEST_F(bridge_port_numbers, of_a_port_of_another_bridge_are_none)
{
    t_device *guest = add("eth2"), *member = add("eth1");
    make_bridge(0);
    must_run("ip link add br-guest type bridge && ip link add eth2 type veth peer name peer2 && "
             "ip link set eth2 master br-guest");
    EXPECT_EQ(fetch_int("/sys/class/net/eth2/brport", "port_no"), 1) << "as eth1's, so nothing was tested";
    EXPECT_EQ(update_brlan_dev_index(head), 0);
    EXPECT_EQ(guest->brlan_index, -1);
    EXPECT_EQ(member->brlan_index, 1);
    EXPECT_FALSE(log.has_body("success get dev:eth2 index:1"));
    must_run("ip link set eth2 master br-lan");
    update_brlan_dev_index(head);
    EXPECT_EQ(guest->brlan_index, 2);
    must_run("ip link del eth2 && ip link del br-guest");
    remove_bridge();
}

TEST_F(bridge_port_numbers, survive_strange_names)
{
    add("../../../../../../../../../etc");
    add("%s%n");
    EXPECT_EQ(update_brlan_dev_index(head), 0);
    EXPECT_EQ(update_brlan_dev_index(nullptr), 0);
    EXPECT_EQ(head->brlan_index, -1);
}

} // namespace
