// SPDX-License-Identifier: MIT
// From the call that sends a DISCOVER on every port to the moment the handler has taken the last OFFER.
#include "bench/dhcp_bench.h"

#include <net/ethernet.h>
#include <string>
#include <vector>

#include "bench/networks.h"
#include "bench/peers.h"
#include "bench/stopwatch.h"
#include "model/lists.h"
#include "model/port_model.h"
#include "model/tables.h"
#include "platform/result_codes.h"
#include "probes/discovery/dhcp_discovery.h"

namespace {

constexpr int LOOP_TURN_MS = 100;
constexpr std::chrono::seconds OFFER_LIMIT(5);

std::string port_name(int number)
{
    return "eth" + std::to_string(number);
}

std::string far_end(int number)
{
    return "peer" + std::to_string(number);
}

// The list of the first `count` ports, as a cycle would make it.
struct t_candidates {
    t_device_list_head list = {};

    explicit t_candidates(int count)
    {
        for (int i = 0; i < count; i++)
            list.add(find_device(port_model.dev_hashmap_head, port_name(i).c_str()));
    }
    ~t_candidates() { list.clear(); }
    t_candidates(const t_candidates &) = delete;
    t_candidates &operator=(const t_candidates &) = delete;
};

bool all_answered()
{
    for (int i = 0; i < dhcp_detect_handle.device_num; i++)
        if (!dhcp_detect_handle.contexts[i].answered)
            return false;
    return true;
}

bool run_loop_until_answered()
{
    const t_moment limit = now() + OFFER_LIMIT;
    while (!all_answered() && now() < limit)
        uloop_run_timeout(LOOP_TURN_MS);
    return all_answered();
}

struct t_dhcp_costs {
    t_microseconds sent{0}, last_offer{0}, released{0}, first_send_to_last_offer{0}, in_bind{0}, in_close{0}, cpu{0};

    void add(const t_dhcp_costs &other)
    {
        sent += other.sent;
        last_offer += other.last_offer;
        released += other.released;
        first_send_to_last_offer += other.first_send_to_last_offer;
        in_bind += other.in_bind;
        in_close += other.in_close;
        cpu += other.cpu;
    }
};

// One batch. The handler closes a port's socket as soon as it has taken the OFFER, so the last close() begins where the
// last OFFER has arrived. False when the batch could not be sent or an OFFER got lost.
bool measure_batch(t_device_list_head *ports, t_dhcp_costs *costs)
{
    restart_call_times();
    const t_microseconds cpu = thread_cpu();
    const t_moment start = now();
    const bool sent = send_batch(dhcp_discovery, ports) == OK;
    costs->sent = now() - start;
    const bool answered = sent && run_loop_until_answered();
    const t_call_times &calls = call_times();
    const t_moment last_offer = calls.last_close;
    costs->last_offer = last_offer - start;
    costs->first_send_to_last_offer = last_offer - calls.first_send;
    if (sent)
        release_batch(dhcp_discovery);
    costs->released = now() - last_offer;
    costs->cpu = thread_cpu() - cpu;
    costs->in_bind = calls.in_bind;
    costs->in_close = calls.in_close;
    return answered;
}

void discover_to_last_offer(benchmark::State &state)
{
    const int count = static_cast<int>(state.range(0));
    const t_candidates ports(count);
    std::vector<std::string> far_ends;
    for (int i = 0; i < count; i++)
        far_ends.push_back(far_end(i));
    const t_peers servers(far_ends, ETH_P_IP, answer_discover);
    t_device_list_head list = ports.list;
    t_dhcp_costs all;
    for (auto _ : state) {
        t_dhcp_costs costs;
        if (!measure_batch(&list, &costs)) {
            state.SkipWithError("a DISCOVER could not be sent, or an OFFER got lost");
            break;
        }
        state.SetIterationTime(std::chrono::duration<double>(costs.last_offer).count());
        all.add(costs);
    }
    auto mean = [&state](const char *name, t_microseconds sum) {
        state.counters[name] = benchmark::Counter(sum.count(), benchmark::Counter::kAvgIterations);
    };
    mean("send_all_us", all.sent);
    mean("first_send_to_last_offer_us", all.first_send_to_last_offer);
    mean("release_us", all.released);
    mean("bind_us", all.in_bind);
    mean("close_us", all.in_close);
    mean("cpu_us", all.cpu);
}

BENCHMARK(discover_to_last_offer)
    ->Arg(1)
    ->Arg(4)
    ->Arg(DHCP_BENCH_PORTS)
    ->Iterations(20)
    ->UseManualTime()
    ->Unit(benchmark::kMillisecond);

} // namespace

void prepare_dhcp_bench()
{
    for (int i = 0; i < DHCP_BENCH_PORTS; i++) {
        add_cable(port_name(i), far_end(i));
        add_device(&port_model.dev_hashmap_head, create_new_device(port_name(i).c_str()));
    }
}
