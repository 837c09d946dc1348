// SPDX-License-Identifier: MIT
// Hash tables of devices and protocols: creating, adding, looking up and releasing their records.
#include "model/tables.h"

#include <cstdlib>
#include <cstring>

#include "platform/log.h"

namespace {

bool check_dev_already_add(t_device *dev_hashmap_head, const char *name)
{
    if (!dev_hashmap_head) {
        LOG(Info, "dev_hashmap_head input is NULL!\n");
        return false;
    }
    t_device *present = nullptr;
    HASH_FIND_STR(dev_hashmap_head, name, present);
    return present != nullptr;
}

bool check_proto_already_add(t_protocol *proto_hashmap_head, const char *name)
{
    if (!proto_hashmap_head) {
        LOG(Info, "proto_hashmap_head input is NULL!\n");
        return false;
    }
    t_protocol *present = nullptr;
    HASH_FIND_STR(proto_hashmap_head, name, present);
    return present != nullptr;
}

} // namespace

t_device *create_new_device(const char *name)
{
    auto *device = static_cast<t_device *>(calloc(1, sizeof(t_device)));
    if (!device) {
        LOG(Error, "Malloc new device failed!\n");
        return nullptr;
    }
    copy_name(device->name, name);
    device->port_num = -1;
    device->priority = -1;
    return device;
}

t_protocol *create_new_protocol(const char *name)
{
    auto *protocol = static_cast<t_protocol *>(calloc(1, sizeof(t_protocol)));
    if (!protocol) {
        LOG(Error, "Create new protocol failed!\n");
        return nullptr;
    }
    copy_name(protocol->name, name);
    return protocol;
}

bool add_device(t_device **dev_hashmap_head, t_device *device)
{
    if (!dev_hashmap_head) {
        LOG(Error, "Invalid dev_hashmap_head input!\n");
        return false;
    }
    if (!device) {
        LOG(Error, "Invalid device input!\n");
        return false;
    }
    if (!device->name[0]) {
        LOG(Error, "Invalid dev_name!\n");
        return false;
    }
    if (check_dev_already_add(*dev_hashmap_head, device->name)) {
        LOG(Error, "Device already existed!\n");
        return false;
    }
    HASH_ADD_STR(*dev_hashmap_head, name, device);
    return true;
}

bool add_protocol(t_protocol **proto_hashmap_head, t_protocol *protocol)
{
    if (!proto_hashmap_head) {
        LOG(Error, "Invalid proto_hashmap_head input!\n");
        return false;
    }
    if (!protocol) {
        LOG(Error, "Invalid protocol input!\n");
        return false;
    }
    if (!protocol->name[0]) {
        LOG(Error, "Invalid proto_name!\n");
        return false;
    }
    if (check_proto_already_add(*proto_hashmap_head, protocol->name)) {
        LOG(Error, "Protocol already existed!\n");
        return false;
    }
    HASH_ADD_STR(*proto_hashmap_head, name, protocol);
    return true;
}

void keep_device(t_device **dev_hashmap_head, t_device *device)
{
    if (!add_device(dev_hashmap_head, device))
        free(device);
}

void keep_protocol(t_protocol **proto_hashmap_head, t_protocol *protocol)
{
    if (!add_protocol(proto_hashmap_head, protocol))
        free(protocol);
}

t_device *find_device(t_device *dev_hashmap_head, const char *name)
{
    if (!name || !name[0]) {
        LOG(Error, "Invalid dev_name!\n");
        return nullptr;
    }
    if (!dev_hashmap_head) {
        // Before the ports are loaded this is the normal state, unlike a missing protocol table.
        LOG(Info, "Invalid dev_hashmap_head input!\n");
        return nullptr;
    }
    t_device *device = nullptr;
    HASH_FIND_STR(dev_hashmap_head, name, device);
    return device;
}

t_protocol *find_protocol(t_protocol *proto_hashmap_head, const char *name)
{
    if (!name || !name[0]) {
        LOG(Error, "Invalid proto_name!\n");
        return nullptr;
    }
    if (!proto_hashmap_head) {
        LOG(Error, "Invalid proto_hashmap_head input!\n");
        return nullptr;
    }
    t_protocol *protocol = nullptr;
    HASH_FIND_STR(proto_hashmap_head, name, protocol);
    return protocol;
}

void release_all_device(t_device **dev_hashmap_head)
{
    if (!dev_hashmap_head || !*dev_hashmap_head) {
        LOG(Error, "Invalid dev_hashmap_head input!\n");
        return;
    }
    while (t_device *device = *dev_hashmap_head) {
        HASH_DEL(*dev_hashmap_head, device);
        free(device);
    }
}

void release_any_device(t_device **dev_hashmap_head)
{
    if (*dev_hashmap_head)
        release_all_device(dev_hashmap_head);
}
