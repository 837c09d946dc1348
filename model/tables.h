// SPDX-License-Identifier: MIT
// Hash tables of devices and protocols: keyed by name, walked in the order of adding.
#pragma once

#include "model/records.h"

// A zero-filled record with port_num and priority -1; null (and an Error line) when memory is short.
t_device *create_new_device(const char *name);

// A zero-filled record; null (and an Error line) when memory is short.
t_protocol *create_new_protocol(const char *name);

// Hands a record to a table. A null argument, an empty name or a name that is there already is refused with an Error
// line, and the record stays the caller's: then false.
bool add_device(t_device **dev_hashmap_head, t_device *device);
bool add_protocol(t_protocol **proto_hashmap_head, t_protocol *protocol);

// The same, but a record that is refused is freed.
void keep_device(t_device **dev_hashmap_head, t_device *device);
void keep_protocol(t_protocol **proto_hashmap_head, t_protocol *protocol);

// The record of exactly this name, or null.
t_device *find_device(t_device *dev_hashmap_head, const char *name);
t_protocol *find_protocol(t_protocol *proto_hashmap_head, const char *name);

// Frees every record and leaves the head null; a table that is empty already is an error. Lists that point at the
// records must have been emptied.
void release_all_device(t_device **dev_hashmap_head);

// The same for a table that may be empty.
void release_any_device(t_device **dev_hashmap_head);
