// SPDX-License-Identifier: MIT
// The one work buffer messages are built in, and what has to fit into it.
#include "message.h"

namespace ubus_frame {
namespace {

blob_buf work_buffer;

} // namespace

message::message() : is_complete_(blob_buf_init(&work_buffer, 0) == 0) {}

message &message::add(ubus_msg_attr id, uint32_t value)
{
    is_complete_ = is_complete_ && blob_put_u32(&work_buffer, id, value);
    return *this;
}

message &message::add(ubus_msg_attr id, const char *text)
{
    is_complete_ = is_complete_ && blob_put_string(&work_buffer, id, text);
    return *this;
}

message &message::add_flag(ubus_msg_attr id, bool value)
{
    is_complete_ = is_complete_ && blob_put_u8(&work_buffer, id, value ? 1 : 0);
    return *this;
}

message &message::add_fields(ubus_msg_attr id, const blob_attr *fields)
{
    return fields ? add_fields(id, blob_data(fields), blob_len(fields)) : add_fields(id, nullptr, 0);
}

message &message::add_fields(ubus_msg_attr id, const void *fields, size_t length)
{
    is_complete_ = is_complete_ && blob_put(&work_buffer, id, fields, static_cast<unsigned int>(length));
    return *this;
}

blob_buf *message::open(ubus_msg_attr id)
{
    nest_ = is_complete_ ? blob_nest_start(&work_buffer, id) : nullptr;
    is_complete_ = nest_ != nullptr;
    return is_complete_ ? &work_buffer : nullptr;
}

message &message::finish(bool is_complete)
{
    if (nest_) {
        blob_nest_end(&work_buffer, nest_);
    }
    is_complete_ = is_complete_ && is_complete;
    return *this;
}

const blob_attr *message::bytes() const
{
    bool fits = is_complete_ && blob_raw_len(work_buffer.head) <= LARGEST_BLOB_BYTES;
    return fits ? work_buffer.head : nullptr;
}

void give_back_work_buffer()
{
    blob_buf_free(&work_buffer);
}

} // namespace ubus_frame
