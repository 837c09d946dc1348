// SPDX-License-Identifier: MIT
// The candidate list of a cycle: who gets in, who is filtered out. Loop thread only.
#pragma once

#include <cstddef>

#include "model/chronicle.h"
#include "model/records.h"

constexpr size_t JOINED_NAMES_SIZE = 512;

// What keeps a port from being WAN, whoever answers behind it; not_looked_at for one that may be. The device lock is
// held.
t_fate bar_against(const t_device *dev);

// Reads anew which ports are reserved for LAN aggregation and gaming.
void refresh_reserved_ports();

// Lists every linked port of the pool that is neither reserved nor banned. The list is empty; or with `beside_others`
// who is in it goes on where it was.
void generate_possible_wan_dev_list(bool beside_others = false);

// At the head of a pass: the ports that were parked during the cycle join, the WAN port is listed to be looked at
// first, and the list is set right where it is not. The WAN port if it was not listed before, else null.
const t_device *gather_candidates();

// Writes every candidate's name, each followed by an ideographic comma, and returns how many candidates there are.
// Names that do not fit whole are left out of the text.
int join_candidate_names(char (&names)[JOINED_NAMES_SIZE]);

// Of those listed the ports leave that may not be WAN, have no link, or LAN hosts behind them; all of that is looked at
// anew, unless the list is empty.
void filter_candidates();

// A part of it: ports with LAN hosts behind them leave, as far as that was looked at before.
void remove_brlan_dev_from_list();

// Forgets the cycle's findings on every device of a list. Nobody calls it in this program.
void clear_dev_list_volatile_attribute(t_device_list_head *list);

// Candidates leave the list while the device lock is held, but removing the fake WAN port runs a command. So a walk
// notes the fake WAN port among the leavers, and it is removed when the lock is free again.
class t_leaving_fake_wan {
public:
    void note(const t_device *leaver);
    bool remove(bool need_link) const; // true when it was removed

private:
    const t_device *dev_ = nullptr;
};
