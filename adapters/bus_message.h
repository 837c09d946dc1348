// SPDX-License-Identifier: MIT
// Reading the fields of a bus message.
#pragma once

#include <cstddef>

extern "C" {
#include <libubox/blobmsg.h>
}

// Fills `fields` by `policy`; a field that is missing or has another type stays null. False when the message is
// malformed. An empty message has no fields and is fine, although the library calls it an error.
template <size_t count>
bool parse_bus_message(const blobmsg_policy (&policy)[count], blob_attr *(&fields)[count], blob_attr *message)
{
    for (blob_attr *&field : fields)
        field = nullptr;
    if (!message || blob_len(message) == 0)
        return true;
    return blobmsg_parse(policy, static_cast<int>(count), fields, blob_data(message),
                         static_cast<unsigned>(blob_len(message))) == 0;
}
