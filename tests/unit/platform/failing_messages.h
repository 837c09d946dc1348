// SPDX-License-Identifier: MIT
// Refuses memory to message buffers. Needs failing_messages.cpp among the sources, and the linker options
// -Wl,--wrap=blob_buf_init and -Wl,--wrap=blobmsg_add_field.
#pragma once

enum class t_refusal { none, of_buffers, of_fields };

// While it lives, no message buffer can be prepared, or none takes a field.
struct t_message_shortage {
    explicit t_message_shortage(t_refusal what);
    ~t_message_shortage();
    t_message_shortage(const t_message_shortage &) = delete;
    t_message_shortage &operator=(const t_message_shortage &) = delete;
};
