// SPDX-License-Identifier: MIT
// Hash tables of devices and protocols: creating, adding, looking up and releasing their records.
#include "model/tables.h"

#include <cstdlib>
#include <cstring>

#include "platform/log.h"

namespace {

// What the two tables say differently.
template <typename Record> struct t_words;

template <> struct t_words<t_device> {
    static constexpr const char *ADDING = "add_device";
    static constexpr const char *CHECKING = "check_dev_already_add";
    static constexpr char NO_TABLE[] = "Invalid dev_hashmap_head input!\n";
    static constexpr char NO_RECORD[] = "Invalid device input!\n";
    static constexpr char NO_NAME[] = "Invalid dev_name!\n";
    static constexpr char EMPTY[] = "dev_hashmap_head input is NULL!\n";
    static constexpr char PRESENT[] = "Device already existed!\n";
};

template <> struct t_words<t_protocol> {
    static constexpr const char *ADDING = "add_protocol";
    static constexpr const char *CHECKING = "check_proto_already_add";
    static constexpr char NO_TABLE[] = "Invalid proto_hashmap_head input!\n";
    static constexpr char NO_RECORD[] = "Invalid protocol input!\n";
    static constexpr char NO_NAME[] = "Invalid proto_name!\n";
    static constexpr char EMPTY[] = "proto_hashmap_head input is NULL!\n";
    static constexpr char PRESENT[] = "Protocol already existed!\n";
};

} // namespace

// A zero-filled record of this name; null when memory is short.
template <typename Record> static Record *new_record(const char *name)
{
    auto *record = static_cast<Record *>(calloc(1, sizeof(Record)));
    if (record)
        copy_name(record->name, name);
    return record;
}

template <typename Record> static Record *find_record(Record *table, const char *name)
{
    Record *found = nullptr;
    HASH_FIND_STR(table, name, found);
    return found;
}

template <typename Record> static bool is_present(Record *table, const char *name)
{
    if (!table)
        LOG_AS(t_words<Record>::CHECKING, Info, t_words<Record>::EMPTY);
    return find_record(table, name) != nullptr;
}

// Why a record is refused is said in the name of the table's own adding function.
template <typename Record> static bool may_be_added(Record *const *table, const Record *record)
{
    using words = t_words<Record>;
    if (!table)
        LOG_AS(words::ADDING, Error, words::NO_TABLE);
    else if (!record)
        LOG_AS(words::ADDING, Error, words::NO_RECORD);
    else if (!record->name[0])
        LOG_AS(words::ADDING, Error, words::NO_NAME);
    else if (is_present(*table, record->name))
        LOG_AS(words::ADDING, Error, words::PRESENT);
    else
        return true;
    return false;
}

template <typename Record> static bool add_record(Record **table, Record *record)
{
    if (!may_be_added(table, record))
        return false;
    HASH_ADD_STR(*table, name, record);
    return true;
}

t_device *create_new_device(const char *name)
{
    auto *device = new_record<t_device>(name);
    if (!device) {
        LOG(Error, "Malloc new device failed!\n");
        return nullptr;
    }
    device->port_num = -1;
    device->priority = -1;
    return device;
}

t_protocol *create_new_protocol(const char *name)
{
    auto *protocol = new_record<t_protocol>(name);
    if (!protocol)
        LOG(Error, "Create new protocol failed!\n");
    return protocol;
}

bool add_device(t_device **dev_hashmap_head, t_device *device)
{
    return add_record(dev_hashmap_head, device);
}

bool add_protocol(t_protocol **proto_hashmap_head, t_protocol *protocol)
{
    return add_record(proto_hashmap_head, protocol);
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
    if (!dev_hashmap_head) // before the ports are loaded this is the normal state, unlike a missing protocol table
        LOG(Info, "Invalid dev_hashmap_head input!\n");
    return find_record(dev_hashmap_head, name);
}

t_protocol *find_protocol(t_protocol *proto_hashmap_head, const char *name)
{
    if (!name || !name[0]) {
        LOG(Error, "Invalid proto_name!\n");
        return nullptr;
    }
    if (!proto_hashmap_head)
        LOG(Error, "Invalid proto_hashmap_head input!\n");
    return find_record(proto_hashmap_head, name);
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
