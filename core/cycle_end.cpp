// SPDX-License-Identifier: MIT
#include "core/cycle_end.h"

#include "core/candidates.h"
#include "core/cycle_start.h"
#include "core/engine.h"
#include "core/link_change.h"
#include "model/banned.h"
#include "model/current_wan.h"
#include "model/fake_wan.h"
#include "model/lists.h"
#include "model/port_model.h"
#include "model/tables.h"
#include "platform/adapters/wan_switch.h"
#include "platform/files.h"
#include "platform/log.h"
#include "platform/result_codes.h"

// The fake WAN port gives way before another port takes over, but only after it has become the real one itself.
static void make_wan(t_device *winner)
{
    if (winner == port_model.fake_wan) {
        switch_wan_to_dev(winner, 0);
        wan_detect_remove_fake_wan();
    } else {
        wan_detect_remove_fake_wan();
        switch_wan_to_dev(winner, 0);
    }
}

// A one-shot request that is running keeps its flag.
static void clear_cycle_flags()
{
    port_model.wan_detect_running = 0;
    if (engine.stage_owner != t_stage_owner::request)
        port_model.proto_detect_running = 0;
    engine.restart_requested = 0;
    engine.detecting = 0;
}

static void clear_parked_devices()
{
    t_spin_guard guard(engine_gate->locks.cache_lock);
    free_device_list(&engine.possible_wan_dev_list_cache.head);
    engine.possible_wan_dev_list_cache.count = 0;
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

void uloop_wan_detect_end(uloop_timeout *)
{
    LOG_ENTER();
    bool wan_was_lost = engine.start_wan_detect.pending; // nothing else asks for a pass once there is a verdict
    cancel_cycle_stage();
    update_banned_device_list(&port_model.banned_list);
    t_device *winner = engine.result_dev;
    if (winner && is_banned_device(&port_model.banned_list, winner)) {
        LOG(Notice,
            "About to change %s as wan, however it's banned after detection and before switch wan. So treat the "
            "detecion as failure! If more than one server is plugged in the same time, it's very likely that another "
            "server is missed!!\n",
            winner->name);
        engine.result_dev = nullptr;
        uloop_timeout_set(&engine.start_wan_detect, CYCLE_POLL_MS);
        return;
    }
    if (!winner) {
        LOG(Warning, "Detect wan result is null! just keep the original wan\n");
        // Whoever moved the role since the cycle began keeps what he chose, even a port that is none of ours.
        if (update_wan_device(&port_model) != ERR_NOTHING_DONE)
            switch_wan_to_dev(port_model.wan_dev, 0);
    } else {
        make_wan(winner);
    }
    update_wan_device(&port_model);
    dump_all_device(port_model.dev_hashmap_head);
    dump_all_protocols(port_model.proto_hashmap_head);
    clear_cycle_flags();
    if (winner)
        write_wan_detect_result_file();
    engine.result_dev = nullptr;
    clear_candidates();
    clear_parked_devices();
    clear_dev_volatile_attribute();
    engine.dns_ctx = {};
    LOG(Info, "Wan Detection over!\n");
    if (wan_was_lost)
        reopen_after_wan_loss();
}
