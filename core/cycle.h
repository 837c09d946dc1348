// SPDX-License-Identifier: MIT
// The states of a detection cycle and all ways between them. Nobody else arms the cycle's timers, or writes the flags
// by which others know the state; proto_stage.cpp arms the two timers of the stage, which requests take as well, and
// retries.cpp that of a look, which begins a cycle only where the WAN port does not work.
// docs/architecture.md draws the picture.
#pragma once

#include <cstdint>

#include "core/engine.h"
#include "model/chronicle.h"

constexpr int WAN_DOWN_DELAY_MS = 10000; // from the WAN port's loss of link to the cycle
constexpr int MAX_POSTPONED_MS = 60000;  // so much longer at most, when the port flaps meanwhile
constexpr int WAN_DOWN_RETRY_MS = 1000;  // from such a loss to the next pass, while a cycle runs
constexpr int CYCLE_RETRY_MS = 500;      // another cycle or a request is running
constexpr int CYCLE_POLL_MS = 1000;      // no candidate left, or none answered
constexpr int PROTO_JUDGE_INTERVAL_MS = 100;

// --- any thread

bool cycle_is_open();
bool cycle_is_running(); // open, and its first pass has begun

// resting -> waiting: the WAN port lost its link, and says so.
void open_cycle_after_loss();

// waiting: the WAN port's link changed again, which puts the first pass off, and says so.
void put_off_first_pass();

// The WAN port was lost while the cycle runs: the next pass comes early, whatever stage is under way.
void interrupt_cycle();

// --- loop thread

// Asks for a cycle over all linked ports of the pool; the last request wins.
void open_cycle_over_all_in(int delay_ms);

// The same for who asks from outside: says so, and counts as a change that makes another look worth while.
void start_wan_detect_all(int delay_ms);

// A cycle over all ports that is asked for already comes within `longest_ms`.
void bring_cycle_over_all_forward(int longest_ms);

// resting -> waiting, the first pass at once: the list is about to be made, and ports that come up meanwhile are
// parked.
void open_cycle();

// Arms what a thread wished for, if any did: a pass, or the next cycle when this one ended meanwhile.
void serve_wished_pass();

// The WAN port went down too late for the cycle that just ended: the next one opens as after any loss. Nothing happens
// when the port that is the WAN port now has a link.
void reopen_after_wan_loss();

// True when this pass is not due yet: a verdict comes first, or a stage that must not be cut short again.
bool pass_yields();

// any -> looking. Ends whatever stage was under way; a one-shot request is left alone. True for the first pass.
bool begin_pass();

// looking, judging, asking -> looking: the next pass comes after `delay_ms`.
void look_in(int delay_ms);

// The same, with nobody left to ask: requests may come again.
void poll_for_candidates();

// The cycle stands behind a one-shot request, and is next: `look_in` or `open_cycle_over_all_in` brings it back.
void wait_behind_request();

// looking -> asking by ARP, or probing: somebody is asked, so no look is due any more, and requests may come again.
void ask_by_arp();
void begin_probing();

// looking, judging, asking by ARP -> asking by DNS.
void ask_by_dns();

// probing: looks again whether the stage is over.
void judge_later();

// any -> ending: with a verdict, or without one (null), and what decided.
void end_cycle_with(t_device *result, t_decision how);

// The same without a verdict when detection was switched off; true then. `step` is the function that says so.
bool end_if_switched_off(const char *step);

// ending: stops what may still be under way. True when the WAN port was lost behind the verdict.
bool begin_end();

// ending -> resting.
void close_cycle();

// --- the one probe stage

// True when a one-shot request may not take the stage: somebody has it, or it would get into a cycle's way that was put
// off by one already, or holds answers that are not judged or a verdict that is not carried out yet.
bool stage_is_taken();

// A request that will come to its end; one that found no record of DHCP never does.
bool request_is_under_way();

void take_stage(t_stage_owner owner);

// Whatever batch of questions is open.
void close_probe_batches();

// The stage is over: probing -> judging when it was the cycle's.
void finish_stage();
