// SPDX-License-Identifier: MIT
// Builder of the attributes of a frame.
#pragma once

#include "frame.h"

namespace ubus_frame {

// Attributes to send, built in the one work buffer of the process: only one message exists at a time. Once
// something did not fit, the message stays incomplete.
class message {
public:
    message();

    message &add(ubus_msg_attr id, uint32_t value);
    message &add(ubus_msg_attr id, const char *text);
    message &add_flag(ubus_msg_attr id, bool value);
    // The content of another message or attribute; NULL adds an empty one.
    message &add_fields(ubus_msg_attr id, const blob_attr *fields);
    message &add_fields(ubus_msg_attr id, const void *fields, size_t length);
    // For nested attributes; NULL if the message is incomplete. How adding to it went is told to finish().
    blob_buf *open(ubus_msg_attr id);
    message &finish(bool is_complete);

    // NULL if the message is incomplete or too long for a frame.
    const blob_attr *bytes() const;

private:
    bool is_complete_;
    void *nest_ = nullptr;
};

// Frees the work buffer; the next message makes a new one.
void give_back_work_buffer();

} // namespace ubus_frame
