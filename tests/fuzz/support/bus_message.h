// SPDX-License-Identifier: MIT
// Messages as the bus library hands them to handlers: the attribute itself is whole, its content may be anything.
#pragma once

#include "tests/fuzz/support/fuzz.h"

extern "C" {
#include <libubox/blobmsg.h>
}

class t_fuzz_message {
public:
    // The content itself, in memory that ends with it; or JSON, for what bytes would hardly ever hit on.
    t_fuzz_message(t_octets octets, bool is_json);
    ~t_fuzz_message();
    t_fuzz_message(const t_fuzz_message &) = delete;
    t_fuzz_message &operator=(const t_fuzz_message &) = delete;

    blob_attr *attribute() { return attribute_; }

private:
    blob_buf buffer_ = {};
    blob_attr *attribute_; // owned
};
