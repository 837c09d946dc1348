// SPDX-License-Identifier: MIT
// A cycle judges the answers of its probe stage.
#include "core/candidates.h"
#include "core/connection.h"
#include "core/cycle.h"
#include "core/hints.h"
#include "core/proto_stage.h"
#include "model/port_model.h"
#include "platform/log.h"

constexpr const char *VERDICT = "uloop_wan_detect_using_proto_detect";
constexpr const char *SORTING = "remove_specific_proto_dev_from_list"; // their parts speak in their names

static bool has_answered(const t_device *dev, const t_protocol *wanted)
{
    return dev->link_active && wanted && dev->proto == wanted;
}

// A port that has not answered: false when its link or its last attempt is gone.
static bool may_try_again(t_device_list *node)
{
    const char *name = node->dev->name;
    const char *type = protocol_name(port_model.wan_proto);
    if (!node->dev->link_active) {
        LOG_AS(SORTING, Debug, "Remove %s out of possible wan list due to %s down!\n", name, name);
        note_fate(node->dev, t_fate::no_link);
        return false;
    }
    if (node->retry_count >= MAX_SILENT_RETRIES) {
        LOG_AS(SORTING, Debug, "Remove %s out of possible wan list due to no %s was detected after %d times try!\n",
               name, type, static_cast<int>(MAX_SILENT_RETRIES + 1));
        note_fate(node->dev, t_fate::silent);
        return false;
    }
    node->retry_count++;
    LOG_AS(SORTING, Debug,
           "Continue keep it in possible wan list due to no %s was detected in %s, retry! retry times:%d/%d\n", type,
           name, static_cast<int>(node->retry_count), static_cast<int>(MAX_SILENT_RETRIES));
    return true;
}

int remove_specific_proto_dev_from_list()
{
    const t_protocol *wanted = wanted_protocol();
    const char *type = protocol_name(port_model.wan_proto);
    t_device_list_head &list = engine.possible_wan_dev_list;
    t_leaving_fake_wan fake_wan;
    int found = 0;
    {
        t_read_guard guard(engine.gate.locks.device_lock);
        list.drop_if([&](t_device_list &node) {
            if (!node.dev)
                return false; // the next pass audits the list
            if (has_answered(node.dev, wanted)) {
                LOG_AS(SORTING, Debug, "Detect device:%s using protocol %s!\n", node.dev->name, type);
                found++;
                return false;
            }
            if (may_try_again(&node))
                return false;
            fake_wan.note(node.dev);
            return true;
        });
        list.drop_if([&](const t_device_list &node) {
            if (found == 0 || !node.dev || has_answered(node.dev, wanted))
                return false;
            LOG_AS(SORTING, Debug, "Remove %s out of possible wan list due to other device detected success!\n",
                   node.dev->name);
            note_fate(node.dev, t_fate::other_answered);
            fake_wan.note(node.dev);
            return true;
        });
    }
    fake_wan.remove(false);
    return found;
}

static void wait_for_stage(t_connection kind)
{
    const char *type = protocol_name(port_model.wan_proto);
    if (kind == t_connection::pppoe)
        LOG_AS(VERDICT, Debug, "Protocol%s detect is still in progress, Waiting...\n", type);
    else
        LOG_AS(VERDICT, Debug, "Protocol %s detect is still in progress, Waiting...\n", type);
    judge_later();
}

static void take_first(t_connection kind, int found)
{
    const char *type = protocol_name(port_model.wan_proto);
    t_device *winner = engine.possible_wan_dev_list.first();
    if (!winner)
        LOG_AS(VERDICT, Error, "That's impossible! device is lost? treat it as null!\n");
    else if (kind == t_connection::dhcp)
        LOG_AS(VERDICT, Info, "Only one device:%s using protocol %s! treat it as wan!\n", winner->name, type);
    else
        LOG_AS(VERDICT, Info, "Overall %d device using protocol %s! Use first priority device:%s as wan!\n", found,
               type, winner->name);
    end_cycle_with(winner, found > 1 ? t_decision::priority : t_decision::only_answer);
}

void uloop_wan_detect_using_proto_detect(uloop_timeout *)
{
    LOG_ENTER();
    if (end_if_switched_off(__func__))
        return;
    const t_connection kind = connection_kind();
    if (!is_probed(kind)) {
        LOG(Error, "wan protocol detect only support dhcp/pppoe/xxtp+dhcp!\n");
        return end_cycle_with(nullptr, t_decision::not_detectable);
    }
    if (port_model.proto_detect_running)
        return wait_for_stage(kind);
    const int found = remove_specific_proto_dev_from_list();
    const char *type = protocol_name(port_model.wan_proto);
    if (found == 0) {
        LOG(Info, "No device using protocol %s! waiting for another device or retry!\n", type);
        if (engine.possible_wan_dev_list.count == 0)
            look_for_hints_of_silence();
        return look_in(CYCLE_POLL_MS);
    }
    if (kind == t_connection::dhcp && found > 1) {
        LOG(Info, "Found %d devices provide %s protocol! Next try dns detect!\n", found, type);
        return ask_by_dns();
    }
    take_first(kind, found);
}
