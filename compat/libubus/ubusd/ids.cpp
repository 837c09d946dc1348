// SPDX-License-Identifier: MIT
// Random ids, so that nobody mistakes an id of an earlier daemon or client for a current one.
#include "bus.h"

#include <cerrno>
#include <fcntl.h>
#include <unistd.h>

namespace ubusd {
namespace {

int random_source = -1;

int compare(const void *left, const void *right, void *)
{
    uint32_t left_id = *static_cast<const uint32_t *>(left);
    uint32_t right_id = *static_cast<const uint32_t *>(right);
    return left_id < right_id ? -1 : left_id > right_id;
}

bool read_random(uint32_t &value)
{
    ssize_t count;
    do {
        count = read(random_source, &value, sizeof(value));
    } while (count < 0 && errno == EINTR);
    return count == sizeof(value);
}

} // namespace

int open_random_source()
{
    random_source = open("/dev/urandom", O_RDONLY | O_CLOEXEC);
    return random_source < 0 ? -1 : 0;
}

void initialise_table(avl_tree &table)
{
    avl_init(&table, compare, false, nullptr);
}

bool assign_id(avl_tree &table, id_node &node)
{
    node.avl.key = &node.id;
    do {
        if (!read_random(node.id)) {
            return false;
        }
    } while (node.id < UBUS_SYSTEM_OBJECT_MAX || avl_insert(&table, &node.avl) != 0);
    return true;
}

void release_id(avl_tree &table, id_node &node)
{
    avl_delete(&table, &node.avl);
}

id_node *find_id(avl_tree &table, uint32_t id)
{
    avl_node *found = avl_find(&table, &id);
    return found ? container_of(found, id_node, avl) : nullptr;
}

} // namespace ubusd
