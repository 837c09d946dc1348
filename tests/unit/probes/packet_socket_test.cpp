// SPDX-License-Identifier: MIT
// Packet sockets and interface queries against the kernel, in the sandbox's own network namespace.
#include "probes/wire/packet_socket.h"

#include <cerrno>
#include <csignal>
#include <cstring>

#include <arpa/inet.h>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <linux/if_packet.h>
#include <net/ethernet.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <sys/time.h>
#include <unistd.h>

#include "platform/clock.h"
#include "probes/wire/frame_filter.h"
#include "tests/unit/probes/veth_net.h"

namespace {

constexpr int ANSWER_LIMIT_MS = 5000;
const char *const TOO_LONG_NAME = "eth1-and-much-more";

class packet_socket : public testing::Test {
protected:
    void SetUp() override
    {
        ASSERT_EQ(uloop_init(), 0);
        watcher_.fd = packet_socket_open(ETH_P_ALL);
        ASSERT_GT(watcher_.fd, 0);
        watcher_.cb = [](uloop_fd *, unsigned int) {};
    }

    void TearDown() override
    {
        packet_socket_close(&watcher_);
        uloop_done();
    }

    void bind_to(const t_cable &cable)
    {
        ASSERT_EQ(packet_socket_bind(watcher_.fd, packet_broadcast_address(ETH_P_ALL, cable.ifindex())), 0);
    }

    t_bytes receive()
    {
        t_bytes frame(2048);
        const ssize_t got = packet_socket_receive(watcher_.fd, frame.data(), frame.size(), &from_);
        frame.resize(got < 0 ? 0 : static_cast<size_t>(got));
        return frame;
    }

    t_cable cable_{"eth1"}, other_{"eth2"};
    uloop_fd watcher_ = {};
    sockaddr_ll from_ = {};
};

const t_bytes FRAME = join({t_bytes(6, 0xff), mac_bytes(SERVER_MAC), {0x88, 0x63}, t_bytes(50, 7)});

TEST_F(packet_socket, an_address_names_protocol_interface_and_destination)
{
    const sockaddr_ll address = packet_address(ETH_P_ARP, 7, &SERVER_MAC);
    EXPECT_EQ(address.sll_family, AF_PACKET);
    EXPECT_EQ(address.sll_protocol, htons(0x0806));
    EXPECT_EQ(address.sll_ifindex, 7);
    EXPECT_EQ(address.sll_halen, 6);
    EXPECT_EQ(t_bytes(address.sll_addr, address.sll_addr + 8), join({mac_bytes(SERVER_MAC), zeros(2)}));
    EXPECT_EQ(address.sll_hatype, 0);
    EXPECT_EQ(address.sll_pkttype, 0);
}

TEST_F(packet_socket, an_address_without_destination_is_zero_but_for_the_interface)
{
    sockaddr_ll expected = {};
    expected.sll_family = AF_PACKET;
    expected.sll_ifindex = 7;
    const sockaddr_ll address = packet_address(0, 7, nullptr);
    EXPECT_EQ(memcmp(&address, &expected, sizeof address), 0);
}

TEST_F(packet_socket, the_address_of_everyone_fills_the_spare_bytes)
{
    const sockaddr_ll address = packet_broadcast_address(ETH_P_ALL, 7);
    EXPECT_EQ(address.sll_halen, 6);
    EXPECT_EQ(t_bytes(address.sll_addr, address.sll_addr + 8), t_bytes(8, 0xff));
    EXPECT_EQ(sizeof address, 20u);
}

TEST_F(packet_socket, is_closed_when_a_program_is_started)
{
    EXPECT_TRUE(fcntl(watcher_.fd, F_GETFD) & FD_CLOEXEC);
}

TEST_F(packet_socket, of_a_port_may_get_descriptor_zero)
{
    const int saved = fcntl(0, F_DUPFD_CLOEXEC, 3);
    close(0);
    t_port_socket socket;
    ASSERT_TRUE(socket.open(ETH_P_ALL));
    EXPECT_EQ(socket.watcher.fd, 0);
    EXPECT_TRUE(socket.is_open());
    EXPECT_TRUE(socket.look_up("eth1"));
    EXPECT_EQ(socket.ifindex, cable_.ifindex());
    socket.close();
    EXPECT_FALSE(socket.is_open());
    EXPECT_EQ(fcntl(0, F_GETFD), -1) << "descriptor 0 was left open";
    if (saved >= 0) {
        dup2(saved, 0);
        close(saved);
    }
}

TEST_F(packet_socket, of_a_port_is_closed_from_birth_and_spares_descriptor_zero)
{
    t_port_socket socket;
    EXPECT_FALSE(socket.is_open());
    socket.close();
    EXPECT_NE(fcntl(0, F_GETFD), -1);
    uint8_t buffer[1];
    EXPECT_EQ(socket.receive(buffer), -1);
}

TEST_F(packet_socket, without_free_descriptors_is_not_opened)
{
    rlimit before;
    ASSERT_EQ(getrlimit(RLIMIT_NOFILE, &before), 0);
    rlimit none = before;
    none.rlim_cur = 0;
    ASSERT_EQ(setrlimit(RLIMIT_NOFILE, &none), 0);
    EXPECT_EQ(packet_socket_open(ETH_P_ALL), -1);
    EXPECT_EQ(errno, EMFILE);
    ASSERT_EQ(setrlimit(RLIMIT_NOFILE, &before), 0);
}

TEST_F(packet_socket, receiving_never_blocks)
{
    bind_to(cable_);
    ASSERT_FALSE(fcntl(watcher_.fd, F_GETFL) & O_NONBLOCK);
    uint8_t frame[64];
    EXPECT_EQ(packet_socket_receive(watcher_.fd, frame, sizeof frame, nullptr), -1);
    EXPECT_EQ(errno, EAGAIN);
}

TEST_F(packet_socket, bound_to_an_address_hears_that_port_only)
{
    bind_to(cable_);
    t_loop_peer near(cable_), far(other_);
    far.send(FRAME);
    EXPECT_EQ(packet_socket_wait_readable(watcher_.fd, 50), 0);
    near.send(FRAME);
    ASSERT_EQ(packet_socket_wait_readable(watcher_.fd, ANSWER_LIMIT_MS), 1);
    EXPECT_EQ(receive(), FRAME);
    EXPECT_EQ(from_.sll_ifindex, cable_.ifindex());
    EXPECT_EQ(from_.sll_protocol, htons(0x8863));
}

TEST_F(packet_socket, hears_nothing_before_it_is_bound)
{
    t_loop_peer near(cable_), far(other_);
    near.send(FRAME);
    far.send(FRAME);
    EXPECT_EQ(packet_socket_wait_readable(watcher_.fd, 50), 0);
    ASSERT_EQ(packet_socket_bind(watcher_.fd, packet_broadcast_address(ETH_P_ALL, cable_.ifindex())), 0);
    EXPECT_TRUE(receive().empty());
    near.send(FRAME);
    EXPECT_EQ(packet_socket_wait_readable(watcher_.fd, ANSWER_LIMIT_MS), 1);
}

TEST_F(packet_socket, for_one_protocol_hears_it_on_every_port)
{
    const int fd = packet_socket_open(0x8863);
    t_loop_peer near(cable_);
    near.send(FRAME);
    EXPECT_EQ(packet_socket_wait_readable(fd, ANSWER_LIMIT_MS), 1);
    close(fd);
}

TEST_F(packet_socket, hears_only_what_its_filter_lets_through)
{
    t_frame_filter filter = {};
    filter_require_half(&filter, 12, 0x8863);
    filter_refuse_own(&filter);
    filter_refuse_mac(&filter, 6, BROADCAST_MAC);
    filter_keep(&filter);
    ASSERT_EQ(packet_socket_filter(watcher_.fd, filter), 0);
    bind_to(cable_);
    t_loop_peer near(cable_);
    near.send(patched(FRAME, 12, {0x88, 0x64}));
    near.send(patched(FRAME, 6, t_bytes(6, 0xff)));
    const sockaddr_ll everyone = packet_broadcast_address(ETH_P_ALL, cable_.ifindex());
    ASSERT_GT(packet_socket_send(watcher_.fd, FRAME.data(), FRAME.size(), everyone), 0);
    const int sender = packet_socket_open(ETH_P_ALL); // of a socket's own frames it is not told anyway
    ASSERT_GT(packet_socket_send(sender, FRAME.data(), FRAME.size(), everyone), 0);
    close(sender);
    EXPECT_EQ(packet_socket_wait_readable(watcher_.fd, 50), 0);
    near.send(FRAME);
    ASSERT_EQ(packet_socket_wait_readable(watcher_.fd, ANSWER_LIMIT_MS), 1);
    EXPECT_EQ(receive(), FRAME);
    EXPECT_EQ(from_.sll_pkttype, PACKET_BROADCAST);
}

// holds: dhcp-log-level, pppoe-log-level
TEST_F(packet_socket, a_filter_is_replaced_by_another_and_by_none_while_it_hears)
{
    t_frame_filter nothing = {}, some = {};
    filter_drop(&nothing);
    filter_require_half(&some, 12, 0x8863);
    filter_keep(&some);
    const t_bytes other = patched(FRAME, 12, {0x88, 0x64});
    ASSERT_EQ(packet_socket_filter(watcher_.fd, nothing), 0);
    bind_to(cable_);
    t_loop_peer near(cable_);
    near.send(FRAME);
    ASSERT_EQ(packet_socket_filter(watcher_.fd, some), 0);
    near.send(other);
    near.send(FRAME);
    ASSERT_EQ(packet_socket_wait_readable(watcher_.fd, ANSWER_LIMIT_MS), 1);
    EXPECT_EQ(receive(), FRAME);
    EXPECT_EQ(packet_socket_wait_readable(watcher_.fd, 50), 0);
    ASSERT_EQ(packet_socket_filter(watcher_.fd, t_frame_filter()), 0);
    near.send(other);
    ASSERT_EQ(packet_socket_wait_readable(watcher_.fd, ANSWER_LIMIT_MS), 1);
    EXPECT_EQ(receive(), other);
}

TEST_F(packet_socket, is_not_filtered_by_nothing_nor_by_what_the_kernel_refuses)
{
    EXPECT_EQ(packet_socket_filter(watcher_.fd, t_frame_filter()), 0);
    EXPECT_EQ(packet_socket_filter(-1, t_frame_filter()), -1);
    t_frame_filter endless = {};
    filter_require_half(&endless, 12, 0x8863);
    endless.length--;
    EXPECT_EQ(packet_socket_filter(watcher_.fd, endless), -1);
    bind_to(cable_);
    t_loop_peer near(cable_);
    near.send(FRAME);
    EXPECT_EQ(packet_socket_wait_readable(watcher_.fd, ANSWER_LIMIT_MS), 1);
}

TEST_F(packet_socket, bound_to_a_device_hears_that_port_only)
{
    ASSERT_EQ(packet_socket_bind_to_device(watcher_.fd, "eth2"), 0);
    ASSERT_EQ(packet_socket_bind(watcher_.fd, packet_broadcast_address(ETH_P_ALL, other_.ifindex())), 0);
    t_loop_peer near(cable_), far(other_);
    near.send(FRAME);
    EXPECT_EQ(packet_socket_wait_readable(watcher_.fd, 50), 0);
    far.send(FRAME);
    ASSERT_EQ(packet_socket_wait_readable(watcher_.fd, ANSWER_LIMIT_MS), 1);
    EXPECT_EQ(receive(), FRAME);
}

TEST_F(packet_socket, sends_to_the_port_of_the_address)
{
    t_loop_peer far(cable_);
    EXPECT_EQ(packet_socket_send(watcher_.fd, FRAME.data(), FRAME.size(),
                                 packet_broadcast_address(ETH_P_ALL, cable_.ifindex())),
              static_cast<ssize_t>(FRAME.size()));
    ASSERT_TRUE(run_loop_until([&] { return !far.heard.empty(); }, ANSWER_LIMIT_MS));
    EXPECT_EQ(far.heard[0], FRAME);
}

TEST_F(packet_socket, sends_nothing_to_an_interface_that_does_not_exist)
{
    EXPECT_EQ(packet_socket_send(watcher_.fd, FRAME.data(), FRAME.size(), packet_broadcast_address(ETH_P_ALL, 0)), -1);
    EXPECT_EQ(errno, ENXIO);
    EXPECT_EQ(packet_socket_bind(watcher_.fd, packet_broadcast_address(ETH_P_ALL, 999)), -1);
}

TEST_F(packet_socket, is_not_bound_to_an_unknown_or_overlong_device)
{
    EXPECT_EQ(packet_socket_bind_to_device(watcher_.fd, "eth9"), -1);
    EXPECT_EQ(errno, ENODEV);
    // Cut to what fits, this name would be an interface's.
    t_cable long_named("eth1-and-much-m", "far-long");
    EXPECT_EQ(packet_socket_bind_to_device(watcher_.fd, TOO_LONG_NAME), -1);
    EXPECT_EQ(errno, ENODEV);
}

TEST_F(packet_socket, options_and_mode_are_set)
{
    const int on = 1;
    ASSERT_EQ(packet_socket_set_option(watcher_.fd, SO_BROADCAST, &on, sizeof on), 0);
    int value = 0;
    socklen_t size = sizeof value;
    ASSERT_EQ(getsockopt(watcher_.fd, SOL_SOCKET, SO_BROADCAST, &value, &size), 0);
    EXPECT_EQ(value, 1);
    ASSERT_EQ(packet_socket_set_nonblocking(watcher_.fd), 0);
    EXPECT_TRUE(fcntl(watcher_.fd, F_GETFL) & O_NONBLOCK);
    EXPECT_EQ(packet_socket_set_option(-1, SO_BROADCAST, &on, sizeof on), -1);
    EXPECT_EQ(packet_socket_set_nonblocking(-1), -1);
}

TEST_F(packet_socket, waiting_on_a_bad_descriptor_is_an_error)
{
    EXPECT_EQ(packet_socket_wait_readable(-1, 10), -1);
    EXPECT_EQ(packet_socket_wait_readable(1'000'000, 10), -1);
}

TEST_F(packet_socket, a_signal_does_not_cut_a_wait_short)
{
    bind_to(cable_);
    struct sigaction interrupt = {}, before;
    interrupt.sa_handler = [](int) {};
    ASSERT_EQ(sigaction(SIGALRM, &interrupt, &before), 0);
    const itimerval ticks = {{0, 10'000}, {0, 10'000}}, stopped = {};
    const t_time_stamp start = get_time_stamp();
    setitimer(ITIMER_REAL, &ticks, nullptr);
    EXPECT_EQ(packet_socket_wait_readable(watcher_.fd, 100), 0);
    setitimer(ITIMER_REAL, &stopped, nullptr);
    EXPECT_GE(time_stamp_diff_us(get_time_stamp(), start), 100'000);
    sigaction(SIGALRM, &before, nullptr);
}

TEST_F(packet_socket, watching_leaves_the_descriptor_in_blocking_mode)
{
    packet_socket_watch(&watcher_);
    EXPECT_TRUE(watcher_.registered);
    EXPECT_EQ(watcher_.flags, ULOOP_READ | ULOOP_ERROR_CB | ULOOP_BLOCKING);
    EXPECT_FALSE(fcntl(watcher_.fd, F_GETFL) & O_NONBLOCK);
    packet_socket_unwatch(&watcher_);
    EXPECT_FALSE(watcher_.registered);
    packet_socket_unwatch(&watcher_);
}

TEST_F(packet_socket, closing_leaves_the_loop_and_may_be_repeated)
{
    packet_socket_watch(&watcher_);
    const int fd = watcher_.fd;
    packet_socket_close(&watcher_);
    EXPECT_EQ(watcher_.fd, -1);
    EXPECT_FALSE(watcher_.registered);
    EXPECT_EQ(fcntl(fd, F_GETFD), -1);
    packet_socket_close(&watcher_);
    EXPECT_EQ(watcher_.fd, -1);
}

TEST_F(packet_socket, an_error_is_cleared_once_and_then_leaves_the_loop)
{
    bind_to(cable_);
    packet_socket_watch(&watcher_);
    must_run("ip link set eth1 down");
    packet_socket_settle_error(&watcher_);
    EXPECT_TRUE(watcher_.registered);
    packet_socket_settle_error(&watcher_);
    EXPECT_FALSE(watcher_.registered);
}

class interface_query : public testing::Test {
protected:
    t_cable lan_{"br-lan"}, cable_{"eth1"};
};

TEST_F(interface_query, tells_address_netmask_and_mac)
{
    must_run("ip address add 192.168.7.1/22 dev br-lan");
    t_interface_info info;
    ASSERT_EQ(query_interface(LAN_BRIDGE, &info), 0);
    EXPECT_EQ(info.address_be, htonl(0xc0a80701));
    EXPECT_EQ(info.netmask_be, htonl(0xfffffc00));
    EXPECT_EQ(mac_bytes(info.mac), lan_.mac());
}

TEST_F(interface_query, fails_without_an_address)
{
    t_interface_info info;
    EXPECT_EQ(query_interface("eth1", &info), -1);
}

TEST_F(interface_query, fails_for_an_unknown_overlong_or_null_name)
{
    t_cable long_named("eth1-and-much-m", "far-long");
    must_run("ip address add 192.168.7.1/22 dev eth1-and-much-m");
    t_interface_info info;
    EXPECT_EQ(query_interface("eth1-and-much-m", &info), 0);
    EXPECT_EQ(query_interface(TOO_LONG_NAME, &info), -1);
    EXPECT_EQ(query_interface("eth9", &info), -1);
    EXPECT_EQ(query_interface(nullptr, &info), -1);
}

TEST_F(interface_query, of_a_port_tells_index_and_mac)
{
    const int fd = packet_socket_open(ETH_P_ALL);
    int ifindex = -1;
    t_mac mac;
    EXPECT_EQ(query_port(fd, "eth1", &ifindex, &mac), 0);
    EXPECT_EQ(ifindex, cable_.ifindex());
    EXPECT_EQ(mac_bytes(mac), cable_.mac());
    EXPECT_EQ(query_port(fd, "eth9", &ifindex, &mac), -1);
    EXPECT_EQ(ifindex, 0);
    EXPECT_EQ(mac, UNKNOWN_MAC);
    close(fd);
}

} // namespace
