// SPDX-License-Identifier: MIT
#include "core/cycle_start.h"

#include "adapters/network_status.h"
#include "adapters/state_events.h"
#include "adapters/wan_switch.h"
#include "core/candidates.h"
#include "core/cycle.h"
#include "core/fates.h"
#include "core/hints.h"
#include "core/link_scan.h"
#include "core/proto_stage.h"
#include "core/retries.h"
#include "core/swap_pause.h"
#include "core/wan_role.h"
#include "model/banned.h"
#include "model/current_wan.h"
#include "model/port_model.h"
#include "platform/clock.h"
#include "platform/files.h"
#include "platform/log.h"

constexpr const char *PASS = "uloop_start_wan_detect"; // its parts speak in its name
constexpr int MAX_BUS_WAITS = 10;
// When nobody has looked for so long: longer than from pass to pass, and less than the pause before a swap is tested.
constexpr uint32_t ANOTHER_ABSENCE_MS = 20'000;
static_assert(ANOTHER_ABSENCE_MS < REDETECT_AFTER_SWITCH_SECONDS * MILLISECONDS_PER_SECOND);

// What a look at the current WAN port says; unknown while nobody can tell, and waited for in vain when that has lasted
// too long: then it counts as bad, but nobody has said so.
enum class t_wan_state : uint8_t { good, bad, unknown, waited_for_in_vain };

void uloop_init_wan_detect_all(uloop_timeout *)
{
    LOG_ENTER();
    if (cycle_is_running()) {
        LOG(Info, "Aleady has a instace is running wan detect! Multi instance not allowed, auto retry in 500ms!\n");
        engine.restart_requested = 1;
        return open_cycle_over_all_in(CYCLE_RETRY_MS);
    }
    if (port_model.proto_detect_running) {
        LOG(Info,
            "Aleady has a instace is running protocol detection! Multi instance not allowed, auto retry in 500ms!\n");
        wait_behind_request();
        return open_cycle_over_all_in(CYCLE_RETRY_MS);
    }
    engine.result_dev = nullptr;
    engine.possible_wan_dev_list.clear();
    refresh_reserved_ports();
    update_eth_link_status(port_model.dev_hashmap_head);
    update_banned_device_list(&port_model.banned_list);
    open_cycle(); // before the list is made: a port that comes up meanwhile is in the one or among the parked ones
    generate_possible_wan_dev_list();
    stop_looking_again(); // this is the look
}

// Every pass reads the connection type anew, the first one of a cycle the port as well.
static void open_pass()
{
    if (begin_pass()) {
        note_cycle_begins();
        announce_cycle(true);
        count_looks_anew();
        delete_file(WAN_RESULT_FILE);
        const t_device *former_wan = port_model.wan_dev;
        read_role_anew();
        if (port_model.wan_dev != former_wan) {
            drop_swap_of_moved_role();
            begin_retries_anew();
        }
    }
    update_wan_ipv4_protocol(&port_model);
}

// Why a pass ends its cycle at once; none for one that goes on.
static t_decision look_for_an_end()
{
    if (!port_model.enable) {
        LOG_AS(PASS, Info, "exiting detecting due to switch off!\n");
        return t_decision::switched_off;
    }
    if (engine.restart_requested) {
        LOG_AS(PASS, Info, "exiting this cycle of detecting, waiting for detect all!\n");
        return t_decision::gave_up;
    }
    if (port_model.role_is_away) {
        LOG_AS(PASS, Info, "The wan role is at %s, none of the ports, and stays there!\n", port_model.wan_role);
        return t_decision::role_is_foreign;
    }
    if (!port_model.wan_proto) {
        LOG_AS(PASS, Error, "Failed to get now protocol! Should not happen!\n");
        return t_decision::not_detectable;
    }
    return t_decision::none;
}

static bool may_be_good(const t_device *now_wan)
{
    return now_wan && now_wan->link_active && !is_banned_device(&port_model.banned_list, now_wan);
}

bool ask_whether_wan_works()
{
    update_banned_device_list(&port_model.banned_list); // nobody else does while there is no candidate
    const bool is_fixed = connection_kind() == t_connection::fixed;
    if (!may_be_good(port_model.wan_dev))
        return false;
    const bool works = get_network_status(0, is_fixed) == NETWORK_CONNECTED;
    if (!network_manager_is_away()) {
        engine.bus_waits = 0;
        forget_doubts();
    }
    return works;
}

// One wait for each pass. An absence that passes keep seeing is the same one, also from cycle to cycle.
static bool may_wait_for_manager()
{
    const uint32_t now = monotonic_ms();
    if (now - engine.manager_missed_ms > ANOTHER_ABSENCE_MS)
        engine.bus_waits = 0; // it may have been back meanwhile
    engine.manager_missed_ms = now;
    if (engine.bus_waits >= MAX_BUS_WAITS)
        return false;
    engine.bus_waits++;
    return true;
}

// A bus or a network manager that is away says nothing about the network; for a while it is waited for.
static t_wan_state look_at_current_wan()
{
    if (ask_whether_wan_works())
        return t_wan_state::good;
    if (!may_be_good(port_model.wan_dev) || !network_manager_is_away())
        return t_wan_state::bad; // also when nobody was asked
    return may_wait_for_manager() ? t_wan_state::unknown : t_wan_state::waited_for_in_vain;
}

static void confirm_by_probes()
{
    const t_protocol *type = port_model.wan_proto;
    if (!is_probed(connection_kind())) { // never, where only the kinds that are probed lead here
        LOG_AS(PASS, Error,
               "wan protocol detect only support dhcp/pppoe/xxtp+dhcp! detecting protocol %s(sed_conn:%s) is not "
               "supported!\n",
               type->name, type->snd_conn);
        return end_cycle_with(nullptr, t_decision::not_detectable);
    }
    LOG_AS(PASS, Info, "Start to detect in %d device(s) using protocol detect\n", engine.possible_wan_dev_list.count);
    start_cycle_proto_stage();
}

static void confirm_candidates()
{
    const t_protocol *type = port_model.wan_proto;
    switch (connection_kind()) {
    case t_connection::fixed:
    case t_connection::tunnel_fixed:
        LOG_AS(PASS, Info, "Start to detect in %d device(s) using arp\n", engine.possible_wan_dev_list.count);
        return ask_by_arp();
    case t_connection::dhcp:
    case t_connection::pppoe:
    case t_connection::tunnel_dynamic:
        return confirm_by_probes();
    case t_connection::other:
        break;
    }
    LOG_AS(PASS, Warning, "detecting protocol %s(sed_conn:%s) is not supported!, exit!\n", type->name, type->snd_conn);
    stop_looking_again(); // the end plans the next look
    end_cycle_with(nullptr, t_decision::not_detectable);
}

// Where somebody moved the role in the middle of the cycle, the port that was listed as the WAN port only leaves. False
// when the role is at a port that is none of the table.
static bool follow_role(const t_device *listed_as_wan)
{
    switch (look_where_role_is()) {
    case t_role::unmoved:
        break;
    case t_role::moved:
        engine.possible_wan_dev_list.remove(listed_as_wan);
        break;
    case t_role::foreign:
        return false;
    }
    return true;
}

// The port that was listed to be looked at only, without a word: the role may have moved by the next pass.
static void unlist(const t_device *listed_as_wan)
{
    engine.possible_wan_dev_list.drop_if([=](const t_device_list &node) { return node.dev == listed_as_wan; });
}

// True when the pass is through with what the WAN port says: it works, or nobody can tell.
static bool wan_port_decides(const t_device *listed_as_wan)
{
    switch (look_at_current_wan()) {
    case t_wan_state::good:
        unlist(listed_as_wan);
        note_wan_port(true);
        test_swap(true);
        end_cycle_with(port_model.wan_dev, t_decision::wan_works);
        return true;
    case t_wan_state::unknown:
        LOG_AS(PASS, Info, "The network manager is away, asking again in %dms!\n", CYCLE_POLL_MS);
        unlist(listed_as_wan);
        look_in(CYCLE_POLL_MS);
        return true;
    case t_wan_state::bad:
        note_wan_port(false);
        test_swap(false);
        break;
    case t_wan_state::waited_for_in_vain:
        note_wan_port(false);
        put_next_test_off();
        break;
    }
    return false;
}

// Where ports come up in turns there is always one left to ask, and nobody ever waits for the next look: it comes with
// the one that joins now, or its pause begins with it.
static void look_in_passing()
{
    if (!begin_look_in_passing())
        return;
    generate_possible_wan_dev_list(true);
    engine.possible_wan_dev_list.remove(port_model.wan_dev);
    remove_brlan_dev_from_list();
}

static void ask_candidates()
{
    engine.possible_wan_dev_list.remove(port_model.wan_dev); // it does not work
    filter_candidates();
    look_in_passing();
    note_ports_left_out();
    if (engine.possible_wan_dev_list.count > 0)
        return confirm_candidates();
    LOG_AS(PASS, Debug, "Zero device need to detect after filter! waiting for other devices plug in trigger!\n");
    poll_for_candidates();
    look_for_hints_of_nobody();
    look_again_later();
}

void uloop_start_wan_detect(uloop_timeout *)
{
    LOG_ENTER();
    if (pass_yields())
        return;
    open_pass();
    if (const t_decision end = look_for_an_end(); end != t_decision::none)
        return end_cycle_with(nullptr, end);
    if (request_is_under_way()) {
        LOG(Info,
            "Aleady has a instace is running protocol detection! Multi instance not allowed, auto retry in 500ms!\n");
        wait_behind_request();
        return look_in(CYCLE_RETRY_MS);
    }
    const t_device *listed_as_wan = gather_candidates();
    update_eth_link_status(port_model.dev_hashmap_head);
    if (!follow_role(listed_as_wan))
        return end_cycle_with(nullptr, t_decision::role_is_foreign);
    if (!wan_port_decides(listed_as_wan))
        ask_candidates();
}
