// SPDX-License-Identifier: MIT
#include "status/json_text.h"

#include <string>
#include <vector>

#include <gtest/gtest.h>
#include <json-c/json.h>

#include "tests/unit/status/replies.h"

namespace {

std::string json_of(blob_attr *reply)
{
    return printed([&](FILE *out) { print_json(out, reply); });
}

std::string json_of_text(const char *text)
{
    blob_buf buffer = {};
    blob_buf_init(&buffer, 0);
    blobmsg_add_string(&buffer, "t", text);
    const std::string json = json_of(buffer.head);
    blob_buf_free(&buffer);
    return json;
}

// holds: status-json
TEST(status_json, is_the_reply_on_one_line)
{
    const std::string json =
        R"({"text": "a", "number": -7, "large": 4294967296, "yes": true, "no": false, "none": [], "list": [1, "b", {"c": []}]})";
    EXPECT_EQ(json_of(t_reply(json).blob()), json + "\n");
    EXPECT_EQ(json_of(t_reply("{}").blob()), "{}\n");
    EXPECT_EQ(json_of(nullptr), "{}\n");
}

// holds: status-json
TEST(status_json, of_what_the_daemon_answers_is_what_it_answers)
{
    for (const char *name : {"2_ports", "5_ports", "8_ports", "16_ports"}) {
        const std::string reply = kept_reply(name, "status");
        json_object *wanted = json_tokener_parse(reply.c_str());
        json_object *found = json_tokener_parse(json_of(t_reply(reply).blob()).c_str());
        EXPECT_TRUE(json_object_equal(wanted, found)) << name;
        json_object_put(wanted);
        json_object_put(found);
    }
}

// holds: status-json
TEST(status_json, is_printable_ascii_whatever_the_bytes_are)
{
    EXPECT_EQ(json_of_text("a\"\\/ ~"), R"({"t": "a\"\\/ ~"})"
                                        "\n");
    EXPECT_EQ(json_of_text("(\n\x1b\x7f\x80\xc3\xa4\xff"), "{\"t\": \"(???????\"}\n");
}

// holds: status-hostile-replies
TEST(status_json, of_a_reply_of_any_depth_comes_to_an_end)
{
    blob_buf buffer = {};
    blob_buf_init(&buffer, 0);
    std::vector<void *> open;
    for (int depth = 0; depth < 2000; depth++)
        open.push_back(blobmsg_open_array(&buffer, depth == 0 ? "t" : nullptr));
    for (; !open.empty(); open.pop_back())
        blobmsg_close_array(&buffer, open.back());
    EXPECT_EQ(json_of(buffer.head), "{\"t\": [[[[[[[[null]]]]]]]]}\n");
    blob_buf_free(&buffer);
}

} // namespace
