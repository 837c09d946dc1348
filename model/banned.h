// SPDX-License-Identifier: MIT
// Ports that may not act as WAN for a while. Every operation takes the banned lock for its whole walk; any thread.
#pragma once

#include "model/records.h"

constexpr int32_t BAN_FOREVER = -1; // until the port's link returns

// Removes the bans that ran out.
void update_banned_device_list(t_device_list_head *banned_list);

// Bans a port by name for `seconds`, or BAN_FOREVER; 0 lifts its ban. 0 banned; ERR_ALREADY_PRESENT (the ban was
// extended or kept); ERR_NOTHING_DONE for an unknown port; ERR_NO_MEMORY; ERR_INVALID_INPUT.
int add_unique_banned_device_to_list(t_device *dev_hashmap_head, t_device_list_head *banned_list, const char *name,
                                     int32_t seconds);

// Lifts a port's ban, whichever kind. The port is given as a record or, when that is null, by name. 0; ERR_NOTHING_DONE
// for an unknown or free port; ERR_INVALID_INPUT.
int remove_banned_device_from_list(t_device *dev_hashmap_head, t_device_list_head *banned_list, const char *name,
                                   t_device *device);

// The same for infinite bans only. Nobody calls it in this program, where the return of a link lifts any ban.
int remove_infinte_banned_device_from_list(t_device *dev_hashmap_head, t_device_list_head *banned_list,
                                           const char *name, t_device *device);

// True while the port is in the list. Bans that ran out count until the next update.
bool is_banned_device(t_device_list_head *banned_list, const t_device *device);

// When its ban ends, in seconds of the monotonic clock, INT32_MAX for never; 0 for a port that is free, also of a ban
// that ran out.
uint32_t ban_end_s(t_device_list_head *banned_list, const t_device *device);

// Seconds until its ban ends, rounded up; BAN_FOREVER, or 0 for a port that is free, also of a ban that ran out.
int32_t ban_seconds_left(t_device_list_head *banned_list, const t_device *device);
