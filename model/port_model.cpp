// SPDX-License-Identifier: MIT
// The one model record: which protocol a port was found to use, and the release.
#include "model/port_model.h"

#include <cstdlib>

#include "model/tables.h"
#include "platform/log.h"
#include "platform/result_codes.h"

t_port_model port_model;

static void release_all_protocols(t_protocol **proto_hashmap_head)
{
    while (t_protocol *protocol = *proto_hashmap_head) {
        protocol->devices.clear();
        HASH_DEL(*proto_hashmap_head, protocol);
        free(protocol);
    }
}

void release_port_model(t_port_model *model)
{
    // Whatever borrows a record goes first. No lock: the other threads have ended and the locks are gone.
    model->wan_dev = nullptr;
    model->wan_proto = nullptr;
    model->fake_wan = nullptr;
    for (t_device *&entry : model->priority_order)
        entry = nullptr;
    model->banned_list.clear();

    release_all_protocols(&model->proto_hashmap_head);
    release_any_device(&model->dev_hashmap_head);
    release_any_device(&model->wan_port_pool);
    for (t_device *&table : model->lan_agg)
        release_any_device(&table);
    release_any_device(&model->gaming);
    model->device_count = 0;
    model->protocol_count = 0;
}

// --- recorded protocols

static void leave_protocol(t_device *device)
{
    t_protocol *former = device->proto;
    if (former)
        former->devices.remove(device);
}

static void join_protocol(t_device *device, t_protocol *wanted)
{
    device->proto = wanted;
    if (wanted)
        wanted->devices.add(device);
}

int set_dev_using_specific_proto(t_device *dev_hashmap_head, t_protocol *proto_hashmap_head, t_device *device,
                                 t_protocol *protocol, const char *dev_name, const char *proto_name)
{
    if (!device && !dev_name) {
        LOG(Error, "Null input parameters device\n");
        return ERR_INVALID_INPUT;
    }
    if (!device)
        device = find_device(dev_hashmap_head, dev_name);
    if (!device) {
        LOG(Error, "Can't find device %s\n", dev_name);
        return ERR_INVALID_INPUT;
    }
    if (!protocol && !proto_name)
        LOG(Debug, "Clear device:%s now protocol!\n", device->name);
    else if (!protocol)
        protocol = find_protocol(proto_hashmap_head, proto_name);
    if (!protocol && proto_name) {
        LOG(Error, "Can't find protocol %s\n", proto_name);
        return ERR_INVALID_INPUT;
    }
    const t_protocol *former = device->proto;
    if (former && protocol && protocol->priority >= former->priority) {
        LOG(Info, "Ignore change dev:%s proto from %s(prio:%d) to %s(prio:%d)\n", device->name, former->name,
            former->priority, protocol->name, protocol->priority);
        return OK;
    }
    leave_protocol(device);
    join_protocol(device, protocol);
    LOG(Info, "Success change device:%s protocol from %s to %s\n", device->name, protocol_name(former),
        protocol_name(protocol));
    return OK;
}

int clear_all_dev_proto(t_port_model *model)
{
    for (t_device *device = model->dev_hashmap_head; device; device = static_cast<t_device *>(device->hh.next))
        set_dev_using_specific_proto(model->dev_hashmap_head, model->proto_hashmap_head, device, nullptr, nullptr,
                                     nullptr);
    return OK;
}

int clear_dev_proto_by_proto(t_port_model *model, const t_protocol *protocol)
{
    for (t_device *device = model->dev_hashmap_head; device; device = static_cast<t_device *>(device->hh.next)) {
        if (device->proto == protocol)
            set_dev_using_specific_proto(model->dev_hashmap_head, model->proto_hashmap_head, device, nullptr, nullptr,
                                         nullptr);
    }
    return OK;
}
