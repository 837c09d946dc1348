// SPDX-License-Identifier: MIT
#include "core/cycle.h"

#include <algorithm>
#include <cassert>

#include "core/cycle_ways.h"
#include "core/fates.h"
#include "core/retries.h"
#include "core/wishes.h"
#include "model/port_model.h"
#include "platform/clock.h"
#include "platform/log.h"
#include "probes/discovery/dhcp_discovery.h"
#include "probes/discovery/pppoe_discovery.h"

constexpr const char *CHANGE = "wan_detect_process_link_change"; // whose lines tell of an opening after a loss
constexpr int AFTER_VERDICT_MS = 1;                              // behind the steps that are due now

// The flags that others read say no more than the state does.
static void enter(t_cycle_state state)
{
    assert(is_cycle_way(engine.state, state));
    engine.state = state;
    port_model.wan_detect_running = state >= t_cycle_state::looking;
    engine.detecting = state != t_cycle_state::resting;
}

static void arm_pass(int delay_ms)
{
    uloop_timeout_set(&engine.start_wan_detect, delay_ms);
}

bool cycle_is_open()
{
    return engine.state != t_cycle_state::resting;
}

bool cycle_is_running()
{
    return engine.state >= t_cycle_state::looking;
}

// --- opening

static void wish_for_pass_in(int delay_ms)
{
    engine.wished_pass_ms = delay_ms;
    engine.pass_is_wished = 1;
    wish_for(t_wish::pass);
}

// Nothing happens when the other thread that may open a cycle was faster; and a cycle that waits already waits on, or
// calls for it would let a WAN port that flaps put it off for ever. Any thread.
static void begin_waiting()
{
    if (engine.state != t_cycle_state::waiting)
        engine.waiting_since_ms = monotonic_ms();
    if (engine.state.replace(t_cycle_state::resting, t_cycle_state::waiting)) {
        assert(is_cycle_way(t_cycle_state::resting, t_cycle_state::waiting));
        engine.detecting = 1;
    }
}

static void arm_cycle_over_all(int delay_ms)
{
    uloop_timeout_set(&engine.init_wan_detect_all, delay_ms);
}

void open_cycle_over_all_in(int delay_ms)
{
    engine.swap.pause_runs = false; // whoever swaps says so afterwards
    arm_cycle_over_all(delay_ms);
}

void bring_cycle_over_all_forward(int longest_ms)
{
    uloop_timeout &start = engine.init_wan_detect_all;
    if (start.pending && uloop_timeout_remaining64(&start) > longest_ms)
        arm_cycle_over_all(longest_ms);
}

void start_wan_detect_all(int delay_ms)
{
    LOG(Notice, "Will begin to detect all device after %dms!\n", delay_ms);
    note_opener(t_opener::bus_call); // any other caller says more
    begin_retries_anew();
    engine.retry.opened_cycle = false; // this call takes the place of a look
    if (delay_ms > CYCLE_RETRY_MS && !cycle_is_running())
        engine.put_off = false; // whoever put it off so far does not wait for a request any more
    open_cycle_over_all_in(delay_ms);
}

void open_cycle()
{
    note_cycle_over_all();
    begin_waiting();
    arm_pass(0);
}

void open_cycle_after_loss()
{
    begin_waiting();
    wish_for_pass_in(WAN_DOWN_DELAY_MS);
    LOG_AS(CHANGE, Info, "Wan down!! Begin detecting in %dms\n", WAN_DOWN_DELAY_MS);
}

// A WAN port that flaps puts its cycle off, but not for ever.
static int quiet_wait_ms()
{
    const auto waited_ms = static_cast<int64_t>(monotonic_ms() - engine.waiting_since_ms);
    const int64_t left_ms = WAN_DOWN_DELAY_MS + MAX_POSTPONED_MS - waited_ms;
    return static_cast<int>(std::clamp<int64_t>(left_ms, 0, WAN_DOWN_DELAY_MS));
}

void put_off_first_pass()
{
    const int wait_ms = quiet_wait_ms();
    wish_for_pass_in(wait_ms);
    LOG_AS(CHANGE, Info, "Reset start detecting time to %dms\n", wait_ms);
}

void interrupt_cycle()
{
    wish_for_pass_in(WAN_DOWN_RETRY_MS);
    LOG_AS(CHANGE, Info, "Wan down during detecting!! Begin detecting in %dms\n", WAN_DOWN_RETRY_MS);
}

void reopen_after_wan_loss()
{
    const t_device *now_wan = port_model.wan_dev;
    if (port_model.enable && port_model.router_mode && now_wan && !now_wan->link_active)
        open_cycle_after_loss();
}

void serve_wished_pass()
{
    if (!engine.pass_is_wished.replace(1, 0))
        return;
    if (cycle_is_open())
        arm_pass(engine.wished_pass_ms);
    else
        reopen_after_wan_loss();
}

// --- passes

void close_probe_batches()
{
    for (const t_discovery *kind : {&dhcp_discovery, &pppoe_discovery})
        if (kind->batch.contexts)
            release_batch(*kind);
}

static void leave_stage()
{
    port_model.proto_detect_running = 0;
    engine.stage_owner = t_stage_owner::nobody;
    engine.proto_detect_elapsed_ms = 0;
}

// Every step of the cycle, so that no timer of an earlier life brings one.
static void cancel_steps()
{
    if (engine.stage_owner == t_stage_owner::cycle) {
        uloop_timeout_cancel(&engine.proto_detect_start);
        uloop_timeout_cancel(&engine.proto_detect_end);
        close_probe_batches();
        leave_stage();
    }
    uloop_timeout_cancel(&engine.start_wan_detect);
    uloop_timeout_cancel(&engine.using_proto_detect);
    uloop_timeout_cancel(&engine.using_arp);
    uloop_timeout_cancel(&engine.using_dns);
    uloop_timeout_cancel(&engine.end);
}

// A pass that fell due while a stage blocked must not throw away what that found, and one that keeps falling due (a WAN
// port that flaps) must not cut every stage short.
bool pass_yields()
{
    switch (engine.state.load()) {
    case t_cycle_state::asking_dns:
    case t_cycle_state::ending:
        arm_pass(AFTER_VERDICT_MS);
        return true;
    case t_cycle_state::judging:
        return true; // what comes of the answers asks for the next step within a moment
    case t_cycle_state::probing: {
        const bool again =
            engine.stage_was_cut && (engine.proto_detect_start.pending || engine.proto_detect_end.pending);
        engine.stage_was_cut = true;
        return again;
    }
    case t_cycle_state::resting:
    case t_cycle_state::waiting:
    case t_cycle_state::looking:
    case t_cycle_state::asking_arp:
        break;
    }
    return false;
}

bool begin_pass()
{
    const bool first = !cycle_is_running();
    cancel_steps();
    engine.pass_is_wished = 0; // this one looks at all links itself
    enter(t_cycle_state::looking);
    return first;
}

void look_in(int delay_ms)
{
    enter(t_cycle_state::looking);
    arm_pass(delay_ms);
}

void poll_for_candidates()
{
    engine.put_off = false;
    engine.stage_was_cut = false;
    look_in(CYCLE_POLL_MS);
}

void wait_behind_request()
{
    engine.put_off = true;
}

// --- stages

static void begin_asking()
{
    engine.put_off = false;
    cut_pause_short();
    note_candidates_asked();
}

void ask_by_arp()
{
    begin_asking();
    enter(t_cycle_state::asking_arp);
    uloop_timeout_set(&engine.using_arp, 0);
}

void ask_by_dns()
{
    enter(t_cycle_state::asking_dns);
    uloop_timeout_set(&engine.using_dns, 0);
}

void begin_probing()
{
    begin_asking();
    enter(t_cycle_state::probing);
    take_stage(t_stage_owner::cycle);
    judge_later();
}

void judge_later()
{
    uloop_timeout_set(&engine.using_proto_detect, PROTO_JUDGE_INTERVAL_MS);
}

void finish_stage()
{
    if (engine.stage_owner == t_stage_owner::cycle) {
        engine.stage_was_cut = false;
        if (engine.state == t_cycle_state::probing) // not when the cycle ended while this was due
            enter(t_cycle_state::judging);
    }
    leave_stage();
}

bool request_is_under_way()
{
    return engine.stage_owner == t_stage_owner::request &&
           (engine.proto_detect_start.pending || engine.proto_detect_end.pending);
}

bool stage_is_taken()
{
    return port_model.proto_detect_running || engine.put_off || engine.state >= t_cycle_state::probing;
}

void take_stage(t_stage_owner owner)
{
    engine.stage_owner = owner;
    engine.proto_detect_elapsed_ms = 0;
    port_model.proto_detect_running = 1;
}

// --- the end

void end_cycle_with(t_device *result, t_decision how)
{
    engine.result_dev = result;
    note_decision(how);
    engine.put_off = false;
    if (engine.state != t_cycle_state::ending) // two steps that were due together may find detection switched off
        enter(t_cycle_state::ending);
    uloop_timeout_set(&engine.end, 0);
}

bool end_if_switched_off(const char *step)
{
    if (port_model.enable)
        return false;
    LOG_AS(step, Info, "exiting detecting due to switch off!\n");
    end_cycle_with(nullptr, t_decision::switched_off);
    return true;
}

// Nothing but a loss asks for a pass once there is a verdict, and a look waits.
bool begin_end()
{
    const bool wan_was_lost = engine.start_wan_detect.pending;
    cancel_steps();
    return wan_was_lost;
}

void close_cycle()
{
    if (!request_is_under_way())
        leave_stage();
    engine.restart_requested = 0;
    engine.stage_was_cut = false;
    enter(t_cycle_state::resting);
}
