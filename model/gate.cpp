// SPDX-License-Identifier: MIT
// Life of the daemon's locks and pause flags.
#include "model/gate.h"

t_engine_gate *engine_gate;

void init_engine_gate(t_engine_gate *gate)
{
    gate->link_trigger_blocked = 0;
    gate->combo_switch_blocked = 0;
    pthread_rwlock_init(&gate->locks.device_lock, nullptr);
    pthread_mutex_init(&gate->locks.link_block_lock, nullptr);
    pthread_mutex_init(&gate->locks.combo_block_lock, nullptr);
    pthread_spin_init(&gate->locks.cache_lock, PTHREAD_PROCESS_PRIVATE);
    pthread_spin_init(&gate->locks.banned_lock, PTHREAD_PROCESS_PRIVATE);
}

void destroy_engine_gate(t_engine_gate *gate)
{
    pthread_rwlock_destroy(&gate->locks.device_lock);
    pthread_mutex_destroy(&gate->locks.link_block_lock);
    pthread_mutex_destroy(&gate->locks.combo_block_lock);
    pthread_spin_destroy(&gate->locks.cache_lock);
    pthread_spin_destroy(&gate->locks.banned_lock);
}
