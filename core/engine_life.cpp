// SPDX-License-Identifier: MIT
#include "core/engine_life.h"

#include "adapters/wan_switch.h"
#include "core/confirm_stages.h"
#include "core/cycle.h"
#include "core/cycle_end.h"
#include "core/cycle_start.h"
#include "core/engine.h"
#include "core/link_change.h"
#include "core/look_again.h"
#include "core/news.h"
#include "core/progress.h"
#include "core/proto_stage.h"
#include "core/retries.h"
#include "core/swap_pause.h"
#include "core/wan_role.h"
#include "core/wishes.h"
#include "model/chronicle.h"
#include "model/fake_wan.h"
#include "model/port_model.h"
#include "platform/log.h"
#include "probes/lan/arp_table.h"

// Wakes the loop at least ten times a second, whatever else sleeps.
static void uloop_heartbeat(uloop_timeout *timer)
{
    uloop_timeout_set(timer, HEARTBEAT_INTERVAL_MS);
}

// Trying one port after the other is not supported; nothing arms this.
static void uloop_wan_detect_try_each(uloop_timeout *)
{
    LOG(Error, "Impossible to get here, try each port as wan is not supported!\n");
}

static void bind_timers()
{
    engine.init_wan_detect_all.cb = uloop_init_wan_detect_all;
    engine.start_wan_detect.cb = uloop_start_wan_detect;
    engine.proto_detect_start.cb = uloop_proto_detect_start;
    engine.proto_detect_end.cb = uloop_proto_detect_end;
    engine.using_proto_detect.cb = uloop_wan_detect_using_proto_detect;
    engine.using_arp.cb = uloop_wan_detect_using_arp;
    engine.using_dns.cb = uloop_wan_detect_using_dns;
    engine.try_each.cb = uloop_wan_detect_try_each;
    engine.end.cb = uloop_wan_detect_end;
    engine.heartbeat.cb = uloop_heartbeat;
    engine.look_again.cb = uloop_look_again;
    engine.news.cb = uloop_tell_news;
    engine.network_watch.cb = uloop_watch_network_package;
}

static void serve(t_wish wish)
{
    switch (wish) {
    case t_wish::fresh_retries:
        begin_retries_anew();
        return look_for_news(); // maybe a ban, which is not made yet
    case t_wish::link_news:
        begin_retries_anew();
        begin_swap_pauses_anew();
        return look_for_news();
    case t_wish::pass:
        return serve_wished_pass();
    case t_wish::role_look:
        return follow_moved_role();
    }
}

static void wish_for_fresh_retries()
{
    wish_for(t_wish::fresh_retries);
}

static void bind_handlers()
{
    engine_handlers.start_wan_detect_all = start_wan_detect_all;
    engine_handlers.start_proto_detect = start_proto_detect;
    engine_handlers.process_link_change = wan_detect_process_link_change;
    engine_handlers.begin_retries_anew = wish_for_fresh_retries;
    engine_handlers.tell_progress = tell_progress;
    engine_handlers.begin_swap = begin_swap;
}

void init_engine()
{
    init_engine_gate(&engine.gate);
    engine_gate = &engine.gate;
    remove_fake_wan_if_match = give_up_fake_wan_if_match;
    bind_handlers();
    bind_timers();
    bind_wish_server(serve);
    engine.retry.first_s = RETRY_FIRST_S;
    begin_chronicle();
}

void release_engine()
{
    destroy_engine_gate(&engine.gate);
    engine.possible_wan_dev_list.clear();
    engine.possible_wan_dev_list_cache.clear();
    release_port_model(&port_model);
    if (port_model.arp_table_hashmap_head)
        release_arp_table(&port_model.arp_table_hashmap_head);
}
