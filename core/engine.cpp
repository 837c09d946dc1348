// SPDX-License-Identifier: MIT
#include "core/engine.h"

#include "core/confirm_stages.h"
#include "core/cycle_end.h"
#include "core/cycle_start.h"
#include "core/proto_stage.h"
#include "model/port_model.h"
#include "platform/log.h"
#include "probes/dhcp_probe.h"
#include "probes/pppoe_probe.h"

t_wan_detect_engine engine;

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

void bind_engine_timers()
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
}

void start_wan_detect_all(int delay_ms)
{
    LOG(Notice, "Will begin to detect all device after %dms!\n", delay_ms);
    uloop_timeout_set(&engine.init_wan_detect_all, delay_ms);
}

void end_cycle_with(t_device *result)
{
    engine.result_dev = result;
    uloop_timeout_set(&engine.end, 0);
}

static void close_probe_batches()
{
    if (dhcp_detect_handle.contexts)
        release_dhcp_detect_handle();
    if (pppoe_detect_handle.contexts)
        release_pppoe_detect_handle();
}

void cancel_cycle_stage()
{
    if (engine.stage_owner == t_stage_owner::cycle) {
        uloop_timeout_cancel(&engine.proto_detect_start);
        uloop_timeout_cancel(&engine.proto_detect_end);
        close_probe_batches();
        engine.proto_detect_elapsed_ms = 0;
        port_model.proto_detect_running = 0;
        engine.stage_owner = t_stage_owner::nobody;
    }
    engine.verdict_pending = false;
    uloop_timeout_cancel(&engine.start_wan_detect);
    uloop_timeout_cancel(&engine.using_proto_detect);
    uloop_timeout_cancel(&engine.using_arp);
    uloop_timeout_cancel(&engine.using_dns);
    uloop_timeout_cancel(&engine.end);
}

bool connection_is(const char *keyword)
{
    return port_model.wan_proto && has_prefix(port_model.wan_proto->name, keyword);
}

bool tunnel_over(const char *secondary)
{
    return (connection_is("l2tp") || connection_is("pptp")) && has_prefix(port_model.wan_proto->snd_conn, secondary);
}
