// SPDX-License-Identifier: MIT
// Lists of devices that keep their count. Whoever shares a list between threads guards it.
#pragma once

#include <cstddef>
#include <cstdint>
#include <type_traits>

#include "model/device.h"
#include "platform/clock.h"

// Member of a list; the list owns the node, never the device.
struct t_device_list {
    uint32_t retry_count;
    t_time_stamp aging_time; // end of a ban, monotonic; {0, INT32_MAX} never ends
    t_device *dev;           // null in the head only
    t_device_list *prev;
    t_device_list *next;
};
static_assert(offsetof(t_device_list, aging_time) == 4 && sizeof(t_time_stamp) == 8);

// Zero-filled it is empty. The head node carries no device; its `next` is the first member.
struct t_device_list_head {
    uint8_t count;
    t_device_list head;

    // add_unique_device_inorder_to_list and remove_unique_device_from_list, which the count follows.
    int add(t_device *device);
    int remove(const t_device *device);

    // The same as add, without a word: for whoever holds a spin lock, as nobody should spin while a console is written.
    int add_silently(t_device *device);

    void clear();

    // Null for an empty list.
    t_device *first() const { return head.next ? head.next->dev : nullptr; }

    // The member node of a device, or null.
    t_device_list *find(const t_device *device) const;

    // Drops every member for which `leaves(node)` holds, asking each once and in order; returns how many there were.
    template <typename Leaves> int drop_if(Leaves leaves)
    {
        int dropped = 0;
        for (t_device_list *node = head.next, *next; node; node = next) {
            next = node->next;
            if (!leaves(*node))
                continue;
            drop(node);
            dropped++;
        }
        return dropped;
    }

    // Frees a member.
    void drop(t_device_list *node);

    // A new member behind `place`, whatever the order; null when memory is short.
    t_device_list *insert(t_device_list *place, t_device *device);

    // Take a member out of this list, and a node without a list into it behind `place`.
    void unlink(t_device_list *node);
    void link(t_device_list *place, t_device_list *node);
};
static_assert(std::is_trivial_v<t_device_list_head> && offsetof(t_device_list_head, count) == 0);

// The next three work on the nodes alone, and leave the count to their callers.
//
// Adds by ascending priority, ties in insertion order. 0 inserted; ERR_ALREADY_PRESENT (its retry count is reset);
// ERR_NO_MEMORY; ERR_INVALID_INPUT for a null argument.
int add_unique_device_inorder_to_list(t_device_list *head, t_device *device);

// 0 removed; ERR_NOTHING_DONE when it is no member; ERR_INVALID_INPUT for a null argument.
int remove_unique_device_from_list(t_device_list *head, const t_device *device);

// Frees every node.
void free_device_list(t_device_list *head);

// True when it is a member.
bool check_device_in_list(const t_device_list *head, const t_device *device);

// Moves every device of the cache into the main list, raising the main count once for each, present before or not.
// Empties the cache. ERR_NOTHING_DONE after merging, ERR_INVALID_INPUT for a null argument.
int merge_two_list(t_device_list_head *main_list, t_device_list_head *cache_list);

// Copies into an empty list. 0; ERR_NO_MEMORY (what was copied stays); ERR_INVALID_INPUT for a null argument. Nobody
// calls it in this program; it belongs to what the lists offer.
int copy_list(t_device_list_head *destination, const t_device_list_head *source);
