// SPDX-License-Identifier: MIT
// Times the probes on real packet sockets over real cables, in networks of the program's own.
#include <benchmark/benchmark.h>

#include "bench/arp_bench.h"
#include "bench/dhcp_bench.h"
#include "bench/networks.h"
#include "core/engine_life.h"
#include "model/port_model.h"
#include "model/tables.h"
#include "platform/log.h"

extern "C" {
#include <libubox/uloop.h>
}

namespace {

// As much of a started daemon as the probes stand on, with the log level that it has unless told.
void prepare_daemon()
{
    uloop_handle_sigchld = false;
    uloop_init();
    init_engine();
    log_set_level(LOG_LEVEL_Critical);
    add_protocol(&port_model.proto_hashmap_head, create_new_protocol("dhcp"));
}

} // namespace

int main(int argc, char **argv)
{
    benchmark::Initialize(&argc, argv);
    if (benchmark::ReportUnrecognizedArguments(argc, argv))
        return 2;
    enter_networks();
    must_run("ip link add br-lan type bridge forward_delay 0 mcast_snooping 0 && "
             "ip addr add 192.168.1.1/24 dev br-lan && ip link set br-lan up");
    prepare_daemon();
    prepare_dhcp_bench();
    prepare_arp_bench();
    benchmark::RunSpecifiedBenchmarks();
    return 0;
}
