// SPDX-License-Identifier: MIT
// How long the loop stands still while the LAN ARP table is re-checked, by the number of hosts in it.
#include "bench/arp_bench.h"

#include <arpa/inet.h>
#include <cstdio>
#include <cstring>
#include <linux/if_packet.h>
#include <net/ethernet.h>
#include <net/if.h>
#include <string>
#include <sys/socket.h>
#include <unistd.h>

#include <benchmark/benchmark.h>

#include "bench/networks.h"
#include "bench/peers.h"
#include "bench/stopwatch.h"
#include "model/port_model.h"
#include "model/tables.h"
#include "platform/result_codes.h"
#include "probes/arp/arp_probe.h"
#include "probes/lan/arp_table.h"
#include "probes/lan/lan_hosts.h"
#include "probes/wire/packet_socket.h"

namespace {

constexpr const char *LAN_PORT = "lan0";
constexpr const char *HOSTS = "hosts";
constexpr uint32_t LAN_SUBNET = 0xc0a80100; // 192.168.1.0; the router is .1
constexpr int FIRST_HOST = 2;
constexpr int MANY_HOSTS = 250;
constexpr int MOST_CHECKED_HOSTS = 255; // of a table with more, only so many at most
constexpr uint32_t ETHERNET_HARDWARE = 1;

// Host `number` of the LAN.
struct t_host {
    uint32_t address_be;
    t_mac mac;

    explicit t_host(int number)
        : address_be(htonl(LAN_SUBNET + static_cast<uint32_t>(FIRST_HOST + number))), mac{{2, 0, 0, 0, 1,
                                                                                           static_cast<uint8_t>(
                                                                                               number)}}
    {
    }
    std::string mac_text() const
    {
        char text[] = "00:00:00:00:00:00";
        snprintf(text, sizeof text, "%02x:%02x:%02x:%02x:%02x:%02x", MAC_ARGS(mac));
        return text;
    }
};

// The sum of what the iterations of one benchmark cost.
class t_meter {
public:
    explicit t_meter(benchmark::State &state) : state_(state) {}

    // One iteration.
    template <typename t_call> void measure(t_call call)
    {
        restart_call_times();
        const t_microseconds cpu = thread_cpu();
        const t_moment start = now();
        const bool done = call() == OK;
        state_.SetIterationTime(std::chrono::duration<double>(now() - start).count());
        cpu_ += thread_cpu() - cpu;
        in_close_ += call_times().in_close;
        if (!done)
            state_.SkipWithError("the re-check failed");
    }
    void tell()
    {
        state_.counters["close_us"] = benchmark::Counter(in_close_.count(), benchmark::Counter::kAvgIterations);
        state_.counters["cpu_us"] = benchmark::Counter(cpu_.count(), benchmark::Counter::kAvgIterations);
    }

private:
    benchmark::State &state_;
    t_microseconds cpu_{0}, in_close_{0};
};

t_arp_entry *table_of(int hosts)
{
    t_arp_entry *table = nullptr;
    for (int i = 0; i < hosts; i++) {
        const t_host host(i);
        add_arp_entry(&table, create_new_arp_entry(host.mac, ETHERNET_HARDWARE, host.address_be));
    }
    return table;
}

void recheck(benchmark::State &state)
{
    const int hosts = static_cast<int>(state.range(0));
    t_interface_info lan;
    if (query_interface(LAN_BRIDGE, &lan) != OK)
        give_up(LAN_BRIDGE);
    t_meter meter(state);
    unsigned kept = 0;
    for (auto _ : state) {
        t_arp_entry *table = table_of(hosts);
        meter.measure([&] {
            return double_check_arp_packet_all_blocked(&table, lan.address_be, lan.netmask_be, &lan.mac,
                                                       if_nametoindex(LAN_BRIDGE));
        });
        kept += arp_table_count(table);
        if (table)
            release_arp_table(&table);
    }
    meter.tell();
    state.counters["kept"] = benchmark::Counter(kept, benchmark::Counter::kAvgIterations);
}

void recheck_of_hosts_that_answer(benchmark::State &state)
{
    const t_peers hosts({HOSTS}, ETH_P_ARP, answer_arp);
    recheck(state);
}

void recheck_of_silent_hosts(benchmark::State &state)
{
    recheck(state);
}

// Makes the kernel know the hosts: its ARP cache their addresses, the bridge the port they are behind.
void introduce(int hosts)
{
    std::string neighbours, records;
    for (int i = 0; i < hosts; i++) {
        const t_host host(i);
        neighbours += "neigh replace 192.168.1." + std::to_string(FIRST_HOST + i) + " lladdr " + host.mac_text() +
                      " dev " + LAN_BRIDGE + " nud permanent\n";
        records += "fdb replace " + host.mac_text() + " dev " + LAN_PORT + " master static\n";
    }
    must_run(std::string("ip neigh flush dev ") + LAN_BRIDGE + " nud permanent && ip -batch -", neighbours);
    must_run("bridge -batch -", records);
}

// The whole refresh: the bridge's records, the kernel's cache, its re-check, the port's flag.
void refresh(benchmark::State &state, int count)
{
    introduce(count);
    const t_peers hosts({HOSTS}, ETH_P_ARP, answer_arp);
    const t_device *port = find_device(port_model.dev_hashmap_head, LAN_PORT);
    t_meter meter(state);
    for (auto _ : state) {
        meter.measure([] { return update_brlan_dev(&port_model); });
        if (!port->is_brlan_dev)
            state.SkipWithError("no host was found behind the port");
    }
    meter.tell();
}

void refresh_of_lan_hosts(benchmark::State &state)
{
    refresh(state, static_cast<int>(state.range(0)));
}

// Lets the bridge learn MACs that somebody behind the port made up: one frame from each.
void invent(int macs)
{
    const t_far_side far_side;
    const int fd = socket(AF_PACKET, SOCK_RAW | SOCK_CLOEXEC, 0);
    sockaddr_ll line = {};
    line.sll_family = AF_PACKET;
    line.sll_ifindex = static_cast<int>(if_nametoindex(HOSTS));
    t_ethernet_header header = {.destination = BROADCAST_MAC, .source = {{2, 1, 0}}, .ether_type_be = 0};
    for (int i = 0; i < macs; i++) {
        const uint32_t number_be = htonl(static_cast<uint32_t>(i));
        memcpy(header.source.bytes + MAC_SIZE - sizeof number_be, &number_be, sizeof number_be);
        if (sendto(fd, &header, sizeof header, 0, reinterpret_cast<sockaddr *>(&line), sizeof line) < 0)
            give_up("an invented host does not send");
    }
    close(fd);
}

// The same with one host that answers, among many that were made up.
void refresh_among_invented_macs(benchmark::State &state)
{
    must_run(std::string("ip link set ") + LAN_PORT + " nomaster && ip link set " + LAN_PORT + " master " + LAN_BRIDGE);
    invent(static_cast<int>(state.range(0)));
    refresh(state, 1);
    must_run(std::string("ip link set ") + LAN_PORT + " nomaster && ip link set " + LAN_PORT + " master " + LAN_BRIDGE);
}

void answering(benchmark::internal::Benchmark *bench)
{
    bench->Arg(1)->Arg(10)->Arg(100)->Arg(MANY_HOSTS)->Iterations(3)->UseManualTime()->Unit(benchmark::kMillisecond);
}

BENCHMARK(recheck_of_hosts_that_answer)->Apply(answering);
BENCHMARK(recheck_of_silent_hosts)
    ->Arg(1)
    ->Arg(10)
    ->Arg(MOST_CHECKED_HOSTS)
    ->Iterations(3)
    ->UseManualTime()
    ->Unit(benchmark::kMillisecond);
BENCHMARK(refresh_of_lan_hosts)->Apply(answering);
BENCHMARK(refresh_among_invented_macs)
    ->Arg(1'000)
    ->Arg(10'000)
    ->Arg(100'000)
    ->Iterations(3)
    ->UseManualTime()
    ->Unit(benchmark::kMillisecond);

} // namespace

void prepare_arp_bench()
{
    add_cable(LAN_PORT, HOSTS);
    must_run(std::string("ip link set ") + LAN_PORT + " master " + LAN_BRIDGE);
    add_device(&port_model.dev_hashmap_head, create_new_device(LAN_PORT));
}
