// SPDX-License-Identifier: MIT
// The five locks of the daemon and the two flags that let the background threads pause. They live in the engine record;
// the lower floors reach them here.
//
// Order: device lock before banned lock; link block lock before combo block lock. No other two are held together.
#pragma once

#include <cstdint>
#include <pthread.h>

#include "platform/guards.h"

struct t_engine_locks {
    pthread_rwlock_t device_lock;     // link states of the device table, and walks over it
    pthread_mutex_t link_block_lock;  // link_trigger_blocked
    pthread_mutex_t combo_block_lock; // combo_switch_blocked
    pthread_spinlock_t cache_lock;    // ports parked during a cycle
    pthread_spinlock_t banned_lock;   // the banned list
};

struct t_engine_gate {
    uint8_t link_trigger_blocked; // the link scan pauses once
    uint8_t combo_switch_blocked; // the combo switch pauses once
    t_engine_locks locks;
};

// Bound to the engine record at start-up, before any use.
extern t_engine_gate *engine_gate;

// Creates the locks with default attributes, the spin locks for this process only, and clears both flags.
void init_engine_gate(t_engine_gate *gate);
void destroy_engine_gate(t_engine_gate *gate);
