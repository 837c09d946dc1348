// SPDX-License-Identifier: MIT
// Lists of devices: the nodes, their order, and the count.
#include "model/lists.h"

#include <cstdlib>

#include "platform/log.h"
#include "platform/result_codes.h"

// The node behind which a device belongs, or its own node when it is a member.
static t_device_list *find_place(t_device_list *head, const t_device *device)
{
    t_device_list *place = head;
    while (place->dev != device) {
        t_device_list *next = place->next;
        if (!next || (next->dev && next->dev->priority > device->priority))
            break;
        place = next;
    }
    return place;
}

static t_device_list *find_node(const t_device_list *head, const t_device *device)
{
    t_device_list *node = head->next;
    while (node && node->dev != device)
        node = node->next;
    return node;
}

static void link_node(t_device_list *place, t_device_list *node)
{
    node->prev = place;
    node->next = place->next;
    if (node->next)
        node->next->prev = node;
    place->next = node;
}

static void unlink_node(t_device_list *node)
{
    if (node->prev)
        node->prev->next = node->next;
    if (node->next)
        node->next->prev = node->prev;
}

static t_device_list *insert_node(t_device_list *place, t_device *device)
{
    auto *node = static_cast<t_device_list *>(calloc(1, sizeof(t_device_list)));
    if (!node)
        return nullptr;
    node->dev = device;
    link_node(place, node);
    return node;
}

static int add_in_order(t_device_list *head, t_device *device)
{
    if (!head || !device)
        return ERR_INVALID_INPUT;
    t_device_list *place = find_place(head, device);
    if (place->dev == device) {
        place->retry_count = 0;
        return ERR_ALREADY_PRESENT;
    }
    return insert_node(place, device) ? OK : ERR_NO_MEMORY;
}

int add_unique_device_inorder_to_list(t_device_list *head, t_device *device)
{
    const int result = add_in_order(head, device);
    if (result == ERR_ALREADY_PRESENT)
        LOG(Info, "dev:%s already in list, Reset its retry count!\n", device->name);
    else if (result == ERR_NO_MEMORY)
        LOG(Error, "malloc new t_device_list for dev:%s failed!\n", device->name);
    return result;
}

int remove_unique_device_from_list(t_device_list *head, const t_device *device)
{
    if (!head || !device)
        return ERR_INVALID_INPUT;
    t_device_list *node = find_node(head, device);
    if (!node)
        return ERR_NOTHING_DONE;
    unlink_node(node);
    free(node);
    LOG(Debug, "Success remove dev:%s from list!\n", device->name);
    return OK;
}

bool check_device_in_list(const t_device_list *head, const t_device *device)
{
    return head && device && find_node(head, device);
}

void free_device_list(t_device_list *head)
{
    if (!head)
        return;
    while (t_device_list *node = head->next) {
        head->next = node->next;
        free(node);
    }
}

int t_device_list_head::add(t_device *device)
{
    const int result = add_unique_device_inorder_to_list(&head, device);
    count = static_cast<uint8_t>(count + (result == OK));
    return result;
}

int t_device_list_head::add_silently(t_device *device)
{
    const int result = add_in_order(&head, device);
    count = static_cast<uint8_t>(count + (result == OK));
    return result;
}

int t_device_list_head::remove(const t_device *device)
{
    const int result = remove_unique_device_from_list(&head, device);
    count = static_cast<uint8_t>(count - (result == OK));
    return result;
}

void t_device_list_head::clear()
{
    free_device_list(&head);
    count = 0;
}

t_device_list *t_device_list_head::find(const t_device *device) const
{
    return find_node(&head, device);
}

void t_device_list_head::drop(t_device_list *node)
{
    unlink(node);
    free(node);
}

t_device_list *t_device_list_head::insert(t_device_list *place, t_device *device)
{
    t_device_list *node = insert_node(place, device);
    if (node)
        count++;
    return node;
}

void t_device_list_head::unlink(t_device_list *node)
{
    unlink_node(node);
    count--;
}

void t_device_list_head::link(t_device_list *place, t_device_list *node)
{
    link_node(place, node);
    count++;
}

int merge_two_list(t_device_list_head *main_list, t_device_list_head *cache_list)
{
    if (!main_list || !cache_list)
        return ERR_INVALID_INPUT;
    for (const t_device_list *node = cache_list->head.next; node; node = node->next) {
        LOG(Debug, "Move deivce %s to main list\n", device_name(node->dev));
        if (main_list->add(node->dev) != OK)
            main_list->count++; // the cycle's next pass finds the difference, and tells of it
    }
    cache_list->clear();
    return ERR_NOTHING_DONE;
}

int copy_list(t_device_list_head *destination, const t_device_list_head *source)
{
    if (!destination || !source)
        return ERR_INVALID_INPUT;
    int result = OK;
    t_device_list dropped = {}; // a destination that was not empty loses its members to the first copy
    t_device_list *tail = &destination->head;
    for (const t_device_list *node = source->head.next; node; node = node->next) {
        LOG(Debug, "Copy deivce %s to list\n", device_name(node->dev));
        t_device_list *copy = destination->insert(tail, node->dev);
        if (!copy) {
            LOG(Error, "malloc new t_device_list for dev:%s failed!\n", device_name(node->dev));
            result = ERR_NO_MEMORY;
            break;
        }
        if (tail == &destination->head)
            dropped.next = copy->next;
        copy->next = nullptr;
        tail = copy;
    }
    free_device_list(&dropped);
    return result;
}
