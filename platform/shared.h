// SPDX-License-Identifier: MIT
// A value that several threads read and write without a lock.
#pragma once

#include <cstdint>

// Trivial and as large as its value, so that records holding it keep their layout and may be zero-filled; every access
// is one atomic load or store, which takes less of the program than a call.
template <typename T> struct t_shared {
    T value;

    [[gnu::always_inline]] T load() const
    {
        T seen;
        __atomic_load(&value, &seen, __ATOMIC_ACQUIRE);
        return seen;
    }
    [[gnu::always_inline]] void store(T wanted) { __atomic_store(&value, &wanted, __ATOMIC_RELEASE); }

    // Stores only where `expected` stands; true when it did.
    bool replace(T expected, T wanted)
    {
        return __atomic_compare_exchange(&value, &expected, &wanted, false, __ATOMIC_ACQ_REL, __ATOMIC_ACQUIRE);
    }

    void add(T more) { __atomic_fetch_add(&value, more, __ATOMIC_RELAXED); }

    [[gnu::always_inline]] operator T() const { return load(); }
    [[gnu::always_inline]] T operator->() const { return load(); }
    [[gnu::always_inline]] T operator=(T wanted)
    {
        store(wanted);
        return wanted;
    }
};

using t_flag = t_shared<uint8_t>;
