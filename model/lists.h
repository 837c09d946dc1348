// SPDX-License-Identifier: MIT
// Lists of devices, ordered by priority, ties in insertion order. Whoever shares a list between threads guards it.
//
// Insertion and removal link and unlink nodes only: their callers adjust the list's count when they return 0.
#pragma once

#include "model/records.h"

// 0 inserted; ERR_ALREADY_PRESENT (its retry count is reset); ERR_NO_MEMORY; ERR_INVALID_INPUT for a null argument.
int add_unique_device_inorder_to_list(t_device_list *head, t_device *device);

// The same without a word, for whoever holds a spin lock: nobody should spin while a console is written. The second one
// writes, once the lock is free, what there is to say of such a result.
int link_unique_device_inorder(t_device_list *head, t_device *device);
void add_unique_device_inorder_to_list(const t_device *device, int result);

// 0 removed; ERR_NOTHING_DONE when it is no member; ERR_INVALID_INPUT for a null argument.
int remove_unique_device_from_list(t_device_list *head, const t_device *device);

// 1 when it is a member, else 0.
int check_device_in_list(const t_device_list *head, const t_device *device);

// Moves every device of the cache into the main list, raising the main count once for each, present before or not.
// Empties the cache. ERR_NOTHING_DONE after merging, ERR_INVALID_INPUT for a null argument.
int merge_two_list(t_device_list_head *main_list, t_device_list_head *cache_list);

// Copies into an empty list. 0; ERR_NO_MEMORY (what was copied stays); ERR_INVALID_INPUT for a null argument.
int copy_list(t_device_list_head *destination, const t_device_list_head *source);

// Frees every node; the caller zeroes the count.
void free_device_list(t_device_list *head);

// Unlinks and frees one node of a list; the next node's address is returned so that a walk keeps its place.
t_device_list *unlink_list_node(t_device_list *node);

// Links a new node for the device behind `place`; null when memory is short.
t_device_list *insert_list_node(t_device_list *place, t_device *device);
