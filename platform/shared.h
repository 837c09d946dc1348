// SPDX-License-Identifier: MIT
// A value that several threads read and write without a lock.
#pragma once

#include <cstdint>

// Trivial and as large as its value, so that records holding it keep their layout and may be zero-filled; every access
// is one atomic load or store.
template <typename T> struct t_shared {
    T value;

    T load() const { return __atomic_load_n(&value, __ATOMIC_ACQUIRE); }
    void store(T wanted) { __atomic_store_n(&value, wanted, __ATOMIC_RELEASE); }

    operator T() const { return load(); }
    T operator->() const { return load(); }
    T operator=(T wanted)
    {
        store(wanted);
        return wanted;
    }
};

using t_flag = t_shared<uint8_t>;
