// SPDX-License-Identifier: MIT
// From the first DISCOVER of a batch to its last OFFER, on real packet sockets over real cables, with peers that answer
// at once.
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <sched.h>
#include <string>
#include <sys/resource.h>
#include <vector>

#include <benchmark/benchmark.h>

#include "bench/dhcp_peers.h"
#include "core/engine.h"
#include "model/lists.h"
#include "model/port_model.h"
#include "model/tables.h"
#include "platform/log.h"
#include "platform/result_codes.h"
#include "probes/dhcp_probe.h"

namespace {

constexpr int MAX_PORTS = 8;
constexpr int LOOP_TURN_MS = 100;

void must_run(const std::string &command)
{
    if (system(command.c_str()) == 0)
        return;
    fprintf(stderr, "failed: %s\n", command.c_str());
    exit(EXIT_FAILURE);
}

// A network of our own: eight cables, and the LAN bridge that the probe reads its own address from.
void build_network()
{
    if (unshare(CLONE_NEWNET) != 0) {
        perror("unshare (needs root)");
        exit(EXIT_FAILURE);
    }
    must_run("ip link add br-lan type bridge && ip addr add 192.168.1.1/24 dev br-lan && ip link set br-lan up");
    for (int i = 0; i < MAX_PORTS; i++) {
        std::string number = std::to_string(i);
        must_run("ip link add eth" + number + " type veth peer name peer" + number + " && ip link set eth" + number +
                 " up && ip link set peer" + number + " up");
    }
}

void build_model()
{
    uloop_handle_sigchld = false;
    uloop_init();
    init_engine_gate(&engine.gate);
    engine_gate = &engine.gate;
    log_set_level(LOG_LEVEL_Critical);
    add_protocol(&port_model.proto_hashmap_head, create_new_protocol("dhcp"));
    for (int i = 0; i < MAX_PORTS; i++)
        add_device(&port_model.dev_hashmap_head, create_new_device(("eth" + std::to_string(i)).c_str()));
}

double cpu_seconds()
{
    rusage used = {};
    getrusage(RUSAGE_THREAD, &used);
    auto seconds = [](timeval time) {
        return static_cast<double>(time.tv_sec) + static_cast<double>(time.tv_usec) / 1e6;
    };
    return seconds(used.ru_utime) + seconds(used.ru_stime);
}

bool all_answered()
{
    for (int i = 0; i < dhcp_detect_handle.device_num; i++)
        if (!dhcp_detect_handle.contexts[i].offer_received)
            return false;
    return true;
}

void discover_to_last_offer(benchmark::State &state)
{
    t_device_list_head ports = {};
    std::vector<std::string> peers;
    for (int i = 0; i < state.range(0); i++) {
        add_unique_device_inorder_to_list(
            &ports.head, find_device(port_model.dev_hashmap_head, ("eth" + std::to_string(i)).c_str()));
        ports.count++;
        peers.push_back("peer" + std::to_string(i));
    }
    t_dhcp_peers servers(peers);
    double cpu = 0;
    for (auto _ : state) {
        double cpu_before = cpu_seconds();
        auto start = std::chrono::steady_clock::now();
        if (send_dhcp_discovery_all(&ports) != OK) {
            state.SkipWithError("the batch could not be sent");
            break;
        }
        while (!all_answered())
            uloop_run_timeout(LOOP_TURN_MS);
        state.SetIterationTime(std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count());
        cpu += cpu_seconds() - cpu_before;
        release_dhcp_detect_handle();
    }
    state.counters["cpu_us"] = benchmark::Counter(cpu * 1e6, benchmark::Counter::kAvgIterations);
    free_device_list(&ports.head);
}

BENCHMARK(discover_to_last_offer)->Arg(1)->Arg(4)->Arg(MAX_PORTS)->UseManualTime()->Unit(benchmark::kMicrosecond);

} // namespace

int main(int argc, char **argv)
{
    benchmark::Initialize(&argc, argv);
    build_network();
    build_model();
    benchmark::RunSpecifiedBenchmarks();
    return 0;
}
