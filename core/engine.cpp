// SPDX-License-Identifier: MIT
#include "core/engine.h"

#include "core/wishes.h"
#include "model/port_model.h"
#include "platform/clock.h"
#include "platform/log.h"
#include "probes/dhcp_probe.h"
#include "probes/pppoe_probe.h"

t_wan_detect_engine engine;

void start_wan_detect_all(int delay_ms)
{
    LOG(Notice, "Will begin to detect all device after %dms!\n", delay_ms);
    request_fresh_retries();
    uloop_timeout_set(&engine.init_wan_detect_all, delay_ms);
}

void open_cycle()
{
    engine.waiting_since_ms = monotonic_ms();
    engine.detecting = 1;
}

void end_cycle_with(t_device *result)
{
    engine.result_dev = result;
    engine.put_off = false;
    uloop_timeout_set(&engine.end, 0);
}

bool end_if_switched_off(const char *step)
{
    if (port_model.enable)
        return false;
    LOG_AS(step, Info, "exiting detecting due to switch off!\n");
    end_cycle_with(nullptr);
    return true;
}

bool cycle_needs_stage()
{
    return engine.put_off || engine.verdict_pending || engine.using_arp.pending || engine.using_dns.pending ||
           engine.end.pending;
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
