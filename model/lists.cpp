// SPDX-License-Identifier: MIT
// Lists of devices, ordered by priority.
#include "model/lists.h"

#include <cstdlib>

#include "platform/log.h"
#include "platform/result_codes.h"

int link_unique_device_inorder(t_device_list *head, t_device *device)
{
    if (!head || !device)
        return ERR_INVALID_INPUT;
    t_device_list *place = head;
    for (;; place = place->next) {
        if (place->dev == device) {
            place->retry_count = 0;
            return ERR_ALREADY_PRESENT;
        }
        const t_device_list *next = place->next;
        if (!next || (next->dev && next->dev->priority > device->priority))
            break;
    }
    return insert_list_node(place, device) ? OK : ERR_NO_MEMORY;
}

void add_unique_device_inorder_to_list(const t_device *device, int result)
{
    if (result == ERR_ALREADY_PRESENT)
        LOG(Info, "dev:%s already in list, Reset its retry count!\n", device->name);
    else if (result == ERR_NO_MEMORY)
        LOG(Error, "malloc new t_device_list for dev:%s failed!\n", device->name);
}

int add_unique_device_inorder_to_list(t_device_list *head, t_device *device)
{
    const int result = link_unique_device_inorder(head, device);
    add_unique_device_inorder_to_list(device, result);
    return result;
}

int remove_unique_device_from_list(t_device_list *head, const t_device *device)
{
    if (!head || !device)
        return ERR_INVALID_INPUT;
    t_device_list *node = head->next;
    while (node && node->dev != device)
        node = node->next;
    if (!node)
        return ERR_NOTHING_DONE;
    unlink_list_node(node);
    LOG(Debug, "Success remove dev:%s from list!\n", device->name);
    return OK;
}

int check_device_in_list(const t_device_list *head, const t_device *device)
{
    if (!head || !device)
        return 0;
    const t_device_list *node = head->next;
    while (node && node->dev != device)
        node = node->next;
    return node ? 1 : 0;
}

int merge_two_list(t_device_list_head *main_list, t_device_list_head *cache_list)
{
    if (!main_list || !cache_list)
        return ERR_INVALID_INPUT;
    for (const t_device_list *node = cache_list->head.next; node; node = node->next) {
        LOG(Debug, "Move deivce %s to main list\n", device_name(node->dev));
        add_unique_device_inorder_to_list(&main_list->head, node->dev);
        main_list->count++;
    }
    free_device_list(&cache_list->head);
    cache_list->count = 0;
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
        t_device_list *copy = insert_list_node(tail, node->dev);
        if (!copy) {
            LOG(Error, "malloc new t_device_list for dev:%s failed!\n", device_name(node->dev));
            result = ERR_NO_MEMORY;
            break;
        }
        if (tail == &destination->head)
            dropped.next = copy->next;
        copy->next = nullptr;
        tail = copy;
        destination->count++;
    }
    free_device_list(&dropped);
    return result;
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

t_device_list *unlink_list_node(t_device_list *node)
{
    t_device_list *next = node->next;
    if (node->prev)
        node->prev->next = next;
    if (next)
        next->prev = node->prev;
    free(node);
    return next;
}

t_device_list *insert_list_node(t_device_list *place, t_device *device)
{
    auto *node = static_cast<t_device_list *>(calloc(1, sizeof(t_device_list)));
    if (!node)
        return nullptr;
    node->dev = device;
    node->prev = place;
    node->next = place->next;
    if (node->next)
        node->next->prev = node;
    place->next = node;
    return node;
}
