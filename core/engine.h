// SPDX-License-Identifier: MIT
// The engine record: what all steps of a detection cycle share, and the small moves that every step makes. Loop thread
// only, but for the flags marked as shared.
#pragma once

#include <cstddef>
#include <cstdint>

#include "adapters/engine_handlers.h"
#include "model/gate.h"
#include "model/records.h"
#include "probes/dns/dns_probe.h"

extern "C" {
#include <libubox/uloop.h>
}

// Where a cycle is; core/cycle.cpp holds the ways between these. It runs from its first pass (looking) on.
enum class t_cycle_state : uint8_t { resting, waiting, looking, probing, judging, asking_arp, asking_dns, ending };

// Who holds the one protocol-probe stage.
enum class t_stage_owner : uint8_t { nobody, cycle, request };

// A pause that goes on while ports are asked: one that their stage cut short, whose rest is waited for behind it, or
// one that began meanwhile.
enum class t_running_on : uint8_t { none, cut, begun };

// The pauses between two looks of a cycle that has not found anybody yet.
struct t_retry {
    int first_s;          // as configured when the running pause began, at first at start-up; 0 for never
    int armed_s;          // the pause that is running
    uint32_t due_ms;      // when that is over, on the clock of monotonic_ms()
    t_running_on runs_on; // while ports are asked
    int next_s;           // the pause after it; 0 for the first again
    unsigned looks;       // behind a search by ARP, since the cycle opened by itself
    bool has_searched;    // by ARP, since the last look
    bool opened_cycle;    // the next cycle is such a look
};

// What tells whether a file was changed meanwhile.
struct t_file_stamp {
    uint64_t inode;
    int64_t size, changed_s, changed_ns;
    bool operator==(const t_file_stamp &) const = default;
};

// The last swap, until a cycle has tested it, and the pauses behind swaps that were tested in vain.
struct t_swap_trial {
    t_device *dev;        // that the role was sent to, borrowed; null when there is nothing to test
    t_file_stamp network; // the configuration when the swap was over
    uint8_t failures;     // in a row, and nothing has changed since
    uint8_t doubts;       // the same of tests that could not tell, until one can
    bool is_new;          // made by the cycle that is about to end
    bool failed;          // says the cycle that tests it
    bool is_doubtful;     // some cycle could not tell so far
    bool pause_runs;      // the cycle over all ports that is asked for is its test
};

struct t_wan_detect_engine {
    t_flag detecting;                               // a cycle is open; ports that come up are parked. Shared.
    uint8_t restart_requested;                      // the running cycle gives up at its next pass
    t_device *result_dev;                           // verdict, borrowed; null for none
    t_device_list_head possible_wan_dev_list;       // candidates, by priority
    t_device_list_head possible_wan_dev_list_cache; // parked ports, under the cache lock
    // Made anew for every DNS probe. Nothing but zeros until then, so that the program file need not hold the whole
    // record.
    union {
        uint8_t no_dns_probe_yet;
        t_dns_ctx dns_ctx;
    };
    // Thirteen timers: eight here, five further down. Each is bound once, at start-up.
    uloop_timeout init_wan_detect_all;
    uloop_timeout start_wan_detect;
    uloop_timeout using_proto_detect;
    uloop_timeout using_arp;
    uloop_timeout using_dns;
    uloop_timeout try_each;
    uloop_timeout end;
    uloop_timeout heartbeat;
    t_engine_gate gate; // the two pause flags and the five locks
    uint32_t proto_detect_elapsed_ms;
    uint32_t proto_detect_timeout_ms;
    t_device *proto_detect_dev;      // borrowed; null for every linked port
    t_protocol *proto_detect_target; // borrowed; null for DHCP and PPPoE both
    uloop_timeout proto_detect_start;
    uloop_timeout proto_detect_end;

    t_shared<t_cycle_state> state;
    // Keeps a cycle and a one-shot request out of each other's way.
    t_stage_owner stage_owner;
    bool put_off;       // the cycle waits for a request, and is next
    bool stage_was_cut; // a pass cut the cycle's last stage short; the next one is let through

    t_shared<uint32_t> waiting_since_ms; // when the cycle was opened, on the clock of monotonic_ms
    int bus_waits;                       // passes that waited for a network manager that is away
    uint32_t manager_missed_ms;          // when a pass found it away last, on the same clock
    uloop_timeout look_again;
    t_retry retry;
    bool silence_is_expected; // in this look nobody has told the hints of silence so far
    t_swap_trial swap;
    uloop_timeout news;
    uloop_timeout network_watch;
    t_flag pass_is_wished; // by any thread, the last wish winning
    t_shared<int> wished_pass_ms;
};
static_assert(offsetof(t_wan_detect_engine, detecting) == 0 && offsetof(t_wan_detect_engine, restart_requested) == 1);
static_assert(offsetof(t_wan_detect_engine, result_dev) < offsetof(t_wan_detect_engine, possible_wan_dev_list));
static_assert(offsetof(t_wan_detect_engine, possible_wan_dev_list_cache) < offsetof(t_wan_detect_engine, dns_ctx));
static_assert(offsetof(t_wan_detect_engine, dns_ctx) < offsetof(t_wan_detect_engine, init_wan_detect_all));
static_assert(offsetof(t_wan_detect_engine, gate) > offsetof(t_wan_detect_engine, heartbeat));
static_assert(offsetof(t_wan_detect_engine, proto_detect_elapsed_ms) > offsetof(t_wan_detect_engine, gate));

extern t_wan_detect_engine engine;
