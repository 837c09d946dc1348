// SPDX-License-Identifier: MIT
#include "core/cycle_end.h"

#include <bit>

#include "adapters/state_events.h"
#include "adapters/wan_switch.h"
#include "core/cycle.h"
#include "core/cycle_start.h"
#include "core/fates.h"
#include "core/hints.h"
#include "core/retries.h"
#include "core/swap_pause.h"
#include "core/wan_role.h"
#include "model/banned.h"
#include "model/chronicle_words.h"
#include "model/current_wan.h"
#include "model/dumps.h"
#include "model/port_model.h"
#include "platform/files.h"
#include "platform/log.h"
#include "platform/result_codes.h"

constexpr const char *END = "uloop_wan_detect_end"; // its parts speak in its name

static bool may_still_be_given_to(const t_device *winner)
{
    const t_role role = look_where_role_is();
    return role == t_role::unmoved || (role == t_role::moved && winner == port_model.wan_dev);
}

// Called off when the role was moved, or could not be read, while a script was asked or the locks were another's.
static void switch_to(t_device *winner)
{
    switch_wan_to_dev(winner, 0);
    if (!engine.swap.is_new && winner != port_model.wan_dev)
        look_where_role_is();
}

// The fake WAN port gives way before another port takes over; for itself only behind the switch, whatever came of it.
static void make_wan(t_device *winner)
{
    if (winner == port_model.fake_wan) {
        switch_to(winner);
        wan_detect_remove_fake_wan();
    } else {
        wan_detect_remove_fake_wan(); // takes its time when the ports are rebuilt
        if (may_still_be_given_to(winner))
            switch_to(winner);
    }
}

static void clear_parked_devices()
{
    t_spin_guard guard(engine.gate.locks.cache_lock);
    engine.possible_wan_dev_list_cache.clear();
}

void write_wan_detect_result_file()
{
    const t_device *now_wan = port_model.wan_dev;
    if (!now_wan) {
        LOG(Error, "Can't find the device:%s in hash list!\n", device_name(now_wan));
        return;
    }
    if (!write_whole_file(WAN_RESULT_FILE, now_wan->name))
        LOG(Error, "File:%s Open Failed !\n", WAN_RESULT_FILE);
}

void clear_dev_volatile_attribute()
{
    LOG_ENTER();
    for (t_device *dev = port_model.dev_hashmap_head; dev; dev = static_cast<t_device *>(dev->hh.next)) {
        dev->is_brlan_dev = 0;
        dev->result = {};
    }
}

static void send_cycle_back()
{
    engine.result_dev = nullptr;
    note_decision(t_decision::none);
    look_in(CYCLE_POLL_MS);
}

// True when the verdict was sent back to the candidates: its port may not be WAN any more, or the role it was to take
// was given to another port meanwhile.
static bool verdict_is_void()
{
    t_device *winner = engine.result_dev;
    if (!winner)
        return false;
    if (is_banned_device(&port_model.banned_list, winner)) {
        LOG_AS(END, Notice,
               "About to change %s as wan, however it's banned after detection and before switch wan. So treat the "
               "detecion as failure! If more than one server is plugged in the same time, it's very likely that "
               "another server is missed!!\n",
               winner->name);
        send_cycle_back();
        return true;
    }
    switch (look_where_role_is()) {
    case t_role::unmoved:
        break;
    case t_role::moved:
        if (winner == port_model.wan_dev)
            break;
        send_cycle_back();
        return true;
    case t_role::foreign:
        note_decision(t_decision::role_is_foreign);
        engine.result_dev = nullptr; // whoever gave it to a port that is none of ours keeps what he chose
        break;
    }
    return false;
}

static void carry_out(t_device *winner)
{
    if (winner)
        return make_wan(winner);
    LOG_AS(END, Warning, "Detect wan result is null! just keep the original wan\n");
    look_where_role_is();
    // Whoever moved the role keeps what he chose, also when it cannot be read just now, or is a port that is none of
    // ours.
    const t_device *now_wan = port_model.wan_dev;
    if (!now_wan || wan_role_is_at(now_wan->name))
        switch_wan_to_dev(port_model.wan_dev, 0);
}

// Those that answered stand in the list, unless nobody was asked.
static void note_answers(const t_device *winner)
{
    const t_cycle_note *cycle = newest_cycle();
    if (!winner || !cycle || cycle->decision == t_decision::wan_works)
        return;
    note_winner(winner, cycle->decision);
    look_for_new_answers();
}

// One line of what the chronicle holds of this cycle, for whoever reads the log; and the same for those who subscribed.
static void tell_verdict(const t_device *winner)
{
    note_cycle_ends(winner);
    const t_cycle_note *cycle = newest_cycle();
    if (!cycle)
        return;
    constexpr uint32_t TENTH_MS = MILLISECONDS_PER_SECOND / 10;
    const uint32_t tenths = cycle->took_ms / TENTH_MS;
    LOG(Notice, "Verdict: %s by %s, %d asked, %u.%u s\n", winner ? winner->name : "none",
        decision_word(cycle->decision), std::popcount(cycle->asked), tenths / 10, tenths % 10);
    look_for_hints(winner);
    announce_verdict();
    announce_cycle(false);
}

// A verdict whose port could not get the role, or has lost its link again, found nothing.
static bool is_carried_out(const t_device *winner)
{
    return winner && winner == port_model.wan_dev && winner->link_active;
}

// A cycle that is already asked for looks by itself.
static void plan_next_look(bool found)
{
    if (found || port_model.role_is_away) {
        begin_retries_anew();
        stop_looking_again();
    } else if (!engine.init_wan_detect_all.pending && !engine.start_wan_detect.pending) {
        look_again_later();
    }
}

void uloop_wan_detect_end(uloop_timeout *)
{
    LOG_ENTER();
    const bool wan_was_lost = begin_end();
    const t_device *former_wan = port_model.wan_dev;
    update_banned_device_list(&port_model.banned_list);
    if (!port_model.enable) {
        note_decision(t_decision::switched_off);
        engine.result_dev = nullptr; // off means off, also for a verdict
    }
    if (verdict_is_void())
        return;
    t_device *winner = engine.result_dev;
    note_answers(winner);
    carry_out(winner);
    read_role_anew();
    settle_swap();
    tell_verdict(winner);
    dump_all_device(port_model.dev_hashmap_head);
    dump_all_protocols(port_model.proto_hashmap_head);
    close_cycle();
    if (winner && !port_model.role_is_away)
        write_wan_detect_result_file();
    engine.result_dev = nullptr;
    engine.possible_wan_dev_list.clear();
    clear_parked_devices();
    clear_dev_volatile_attribute();
    engine.dns_ctx = {};
    LOG(Info, "Wan Detection over!\n");
    const bool was_adopted = port_model.wan_dev != former_wan && !engine.init_wan_detect_all.pending;
    if (wan_was_lost || was_adopted)
        reopen_after_wan_loss();
    plan_next_look(is_carried_out(winner));
}
