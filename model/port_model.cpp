// SPDX-License-Identifier: MIT
// The one model record and its release.
#include "model/port_model.h"

#include <cstdlib>

#include "model/tables.h"

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
