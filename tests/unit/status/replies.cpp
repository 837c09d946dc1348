// SPDX-License-Identifier: MIT
#include "tests/unit/status/replies.h"

#include <gtest/gtest.h>
#include <json-c/json.h>

extern "C" {
#include <libubox/blobmsg_json.h>
}

#include "tests/unit/support/sandbox.h"

t_reply::t_reply(const std::string &json)
{
    blob_buf_init(&buffer_, 0);
    EXPECT_TRUE(blobmsg_add_json_from_string(&buffer_, json.c_str())) << json;
}

std::string kept_reply(const std::string &name, const std::string &method)
{
    const std::string text = read_file(WAN_DETECT_TEST_DATA "/golden/status/" + name + ".json");
    json_object *both = json_tokener_parse(text.c_str());
    json_object *one = nullptr;
    EXPECT_TRUE(json_object_object_get_ex(both, method.c_str(), &one)) << name;
    const std::string reply = json_object_to_json_string(one);
    json_object_put(both);
    return reply;
}

std::string printed(const std::function<void(FILE *)> &body)
{
    char *text = nullptr;
    size_t size = 0;
    FILE *out = open_memstream(&text, &size);
    body(out);
    fclose(out);
    const std::string result(text, size);
    free(text);
    return result;
}
