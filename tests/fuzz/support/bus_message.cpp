// SPDX-License-Identifier: MIT
#include "tests/fuzz/support/bus_message.h"

#include <arpa/inet.h>
#include <cstdlib>
#include <cstring>

extern "C" {
#include <libubox/blobmsg_json.h>
}

t_fuzz_message::t_fuzz_message(t_octets octets, bool is_json)
{
    if (is_json) {
        blob_buf_init(&buffer_, 0);
        blobmsg_add_json_from_string(&buffer_, text_of(octets).c_str());
        octets = {static_cast<const uint8_t *>(blob_data(buffer_.head)), blob_len(buffer_.head)};
    }
    attribute_ = static_cast<blob_attr *>(malloc(sizeof(blob_attr) + octets.size()));
    REQUIRE(attribute_ && octets.size() <= BLOB_ATTR_LEN_MASK - sizeof(blob_attr));
    attribute_->id_len = htonl(static_cast<uint32_t>(sizeof(blob_attr) + octets.size()));
    if (!octets.empty())
        memcpy(attribute_->data, octets.data(), octets.size());
}

t_fuzz_message::~t_fuzz_message()
{
    free(attribute_);
    blob_buf_free(&buffer_);
}
