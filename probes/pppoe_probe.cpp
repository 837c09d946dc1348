// SPDX-License-Identifier: MIT
// The PPPoE batch: opened over a list of ports, collected, released. Each port's own exchange is in pppoe_port.cpp.
#include "probes/pppoe_probe.h"

#include <cstdlib>
#include <span>

#include "model/current_wan.h"
#include "platform/log.h"
#include "platform/result_codes.h"
#include "probes/probe_batch.h"

t_pppoe_detect_handle pppoe_detect_handle;

static std::span<t_pppoe_detect_ctx> contexts_of_batch()
{
    const size_t count = pppoe_detect_handle.contexts ? pppoe_detect_handle.device_num : 0;
    return {pppoe_detect_handle.contexts, count};
}

// Somebody may want to see more, or less, while the probe runs.
static void follow_log_level()
{
    const int level = log_get_level();
    if (level == pppoe_detect_handle.filter_level)
        return;
    pppoe_detect_handle.filter_level = level;
    for (const t_pppoe_detect_ctx &ctx : contexts_of_batch())
        filter_pados(ctx);
}

int send_pppoe_discovery_all(t_device_list_head *list)
{
    LOG_ENTER();
    if (!list || list->count == 0) {
        LOG(Error, "Invalid parameters! Send failed!\n");
        return ERR_INVALID_INPUT;
    }
    if (pppoe_detect_handle.contexts) {
        LOG(Notice, "Last time handle not release, release it before resend!\n");
        release_pppoe_detect_handle();
    }
    pppoe_detect_handle.contexts = static_cast<t_pppoe_detect_ctx *>(calloc(list->count, sizeof(t_pppoe_detect_ctx)));
    if (!pppoe_detect_handle.contexts) {
        LOG(Error, "Failed to malloc %d pppoe_detect struct\n", list->count);
        return ERR_NO_MEMORY;
    }
    pppoe_detect_handle.device_num = list->count;
    pppoe_detect_handle.finished = 0;
    pppoe_detect_handle.filter_level = log_get_level();
    pppoe_detect_handle.lines.probe = "pppoe";

    const t_device_list *node = list->head.next;
    for (t_pppoe_detect_ctx &ctx : contexts_of_batch()) {
        t_device *dev = node ? node->dev : nullptr;
        node = node ? node->next : nullptr;
        ctx.watcher.fd = -1;
        if (!dev) {
            LOG(Error, "Failed to load pppoe device!\n");
        } else if (init_pppoe_sockfd(&ctx) != OK) {
            LOG(Error, "Failed to init pppoe socket in dev:%s\n", dev->name);
        } else {
            ctx.dev = dev;
            LOG(Debug, "pppoe Discovery packet sockfd init success in dev:%s\n", dev->name);
        }
    }
    for (t_pppoe_detect_ctx &ctx : contexts_of_batch()) {
        LOG(Debug, "Ready to send pppoe Discovery packet via dev:%s\n", device_name(ctx.dev));
        if (send_pppoe_discovery_packet(&ctx) != OK)
            LOG(Error, "Failed to send pppoe socket via dev:%s\n", device_name(ctx.dev));
        else
            LOG(Debug, "Send pppoe Discovery packet success via dev:%s\n", device_name(ctx.dev));
    }
    return OK;
}

int process_pppoe_discovery_all(t_device *dev_hashmap_head, t_protocol *proto_hashmap_head, bool final)
{
    LOG_ENTER();
    int result;
    if (!pppoe_detect_handle.contexts) {
        LOG(Info, "pppoe detect array is null, no packet sent yet, treat as detect over!\n");
        result = PROBE_NO_BATCH;
    } else if (pppoe_detect_handle.device_num == 0) {
        LOG(Error, "Should never happen, valid pppoe detect array while device count is 0!\n");
        result = ERR_INVALID_INPUT;
    } else {
        result = probe_batch_result(contexts_of_batch(), &t_pppoe_detect_ctx::pado_received, final);
    }
    if (result == PROBE_WAITING) {
        follow_log_level();
        return result;
    }

    pppoe_detect_handle.finished = 1;
    for (t_pppoe_detect_ctx &ctx : contexts_of_batch()) {
        LOG(Debug, "Processing pppoe offer in eth:%s\n", device_name(ctx.dev));
        if (ctx.pado_received && ctx.dev) {
            LOG(Info, "dev:%s detect pppoe Service!\n", ctx.dev->name);
            set_dev_using_specific_proto(dev_hashmap_head, proto_hashmap_head, nullptr, nullptr, ctx.dev->name,
                                         "pppoe");
        } else {
            LOG(Debug, "No pppoe Service detect in dev:%s yet!\n", device_name(ctx.dev));
        }
    }
    release_pppoe_detect_handle();
    return result;
}

void release_pppoe_detect_handle()
{
    LOG_ENTER();
    if (!pppoe_detect_handle.contexts) {
        LOG(Info, "Release null pppoe_detect_handle fail!\n");
        return;
    }
    if (pppoe_detect_handle.device_num == 0)
        LOG(Error, "pppoe_detect_handle not null but device_num=0, may cause unclosed socket fd \n");
    close_probe_sockets(contexts_of_batch());
    tell_lines_left_out(&pppoe_detect_handle.lines);
    free(pppoe_detect_handle.contexts);
    LOG(Debug, "release pppoe_detect_handler success!\n");
    pppoe_detect_handle = {};
}
