// SPDX-License-Identifier: MIT
#include "status/fields.h"

#include <cstring>
#include <vector>

#include <gtest/gtest.h>

#include "tests/unit/status/replies.h"

namespace {

// holds: status-hostile-replies
TEST(status_fields, are_found_by_name_and_type)
{
    t_reply reply(
        R"({"text": "t", "number": -7, "large": 4294967296, "flag": true, "table": {"a": 1}, "list": [1, 2, 3]})");
    EXPECT_STREQ(text_of(find_field(reply.blob(), "text")), "t");
    EXPECT_EQ(number_of(find_field(reply.blob(), "number")), -7);
    EXPECT_EQ(number_of(find_field(reply.blob(), "large")), 4294967296);
    EXPECT_EQ(number_of(find_field(reply.blob(), "flag")), 1);
    EXPECT_EQ(number_of(find_field(find_field(reply.blob(), "table"), "a")), 1);
    EXPECT_EQ(count_elements(find_field(reply.blob(), "list")), 3);
}

// holds: status-hostile-replies
TEST(status_fields, of_another_type_or_none_have_no_value)
{
    t_reply reply(R"({"text": 1, "number": "1", "flag": "yes", "table": 4})");
    for (blob_attr *table : {reply.blob(), find_field(reply.blob(), "table"), static_cast<blob_attr *>(nullptr)}) {
        EXPECT_STREQ(text_of(find_field(table, "text")), "");
        EXPECT_EQ(number_of(find_field(table, "number")), NO_NUMBER);
        EXPECT_EQ(number_of(find_field(table, "flag")), NO_NUMBER);
        EXPECT_EQ(count_elements(find_field(table, "text")), 0);
        EXPECT_EQ(find_field(table, "other"), nullptr);
    }
    EXPECT_EQ(count_elements(nullptr), 0);
}

// holds: status-hostile-replies
TEST(status_fields, behind_a_length_that_cannot_be_true_are_not_read)
{
    t_reply reply(R"({"first": 1, "second": 2, "third": 3})");
    const size_t size = blob_raw_len(reply.blob());
    for (size_t cut = sizeof(blob_attr); cut <= size; cut++) {
        std::vector<char> bytes(cut); // of its own, so that a sanitizer sees what is read behind it
        memcpy(bytes.data(), reply.blob(), cut);
        blob_attr *message = reinterpret_cast<blob_attr *>(bytes.data());
        message->id_len = cpu_to_be32(static_cast<uint32_t>(cut));
        EXPECT_EQ(number_of(find_field(message, "third")), cut == size ? 3 : NO_NUMBER) << cut;
    }
}

} // namespace
