// SPDX-License-Identifier: MIT
// Replies of the daemon's object, as tests make them, and what is printed of them.
#pragma once

#include <functional>
#include <string>

extern "C" {
#include <libubox/blobmsg.h>
}

// A reply as the bus library hands it over, from JSON.
class t_reply {
public:
    explicit t_reply(const std::string &json);
    ~t_reply() { blob_buf_free(&buffer_); }
    t_reply(const t_reply &) = delete;
    t_reply &operator=(const t_reply &) = delete;

    blob_attr *blob() { return buffer_.head; }

private:
    blob_buf buffer_ = {};
};

// The same of a kept reply: the member `method` of tests/golden/status/<name>.json.
std::string kept_reply(const std::string &name, const std::string &method);

// What is written by the body.
std::string printed(const std::function<void(FILE *)> &body);
