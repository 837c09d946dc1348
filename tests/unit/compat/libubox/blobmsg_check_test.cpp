// SPDX-License-Identifier: MIT
// Malformed fields, and JSON beyond the recorded cases.
#include "blob_fixture.h"

#include <cstdio>
#include <json-c/json.h>
#include <unistd.h>

namespace {

// The field of the message made from this JSON object of one member.
blob_attr *only_field(test_buf &buf, const char *json)
{
    EXPECT_TRUE(blobmsg_add_json_from_string(&buf, json));
    return static_cast<blob_attr *>(blob_data(buf.head));
}

bool is_sound(const char *hex_text, bool name = false)
{
    exact_attr attr(hex_text);
    return blobmsg_check_attr_len(attr.get(), name, attr.size());
}

} // namespace

TEST(blobmsg_check, sound_fields_pass)
{
    EXPECT_TRUE(is_sound("8500000c0001610000000001", true));
    EXPECT_TRUE(is_sound("8300000a0001730041004242"));
    EXPECT_TRUE(is_sound("8000000800000000"));
    // An attribute without header has no name.
    EXPECT_TRUE(is_sound("05000008000000ff"));
    EXPECT_FALSE(is_sound("05000008000000ff", true));
}

TEST(blobmsg_check, malformed_fields_do_not_pass)
{
    const char *malformed[] = {
        "",                         // nothing
        "850000",                   // less than a word
        "85000003",                 // length below the word itself
        "8500000c00016100",         // longer than its bytes
        "85000004",                 // no room for the name's length
        "85000005ff000000",         // half a name length
        "8500000c00ff610000000001", // name beyond the field
        "8500000cffff610000000001", // name far beyond the field
        "8500000c0001616200000001", // name without NUL
        "8500000a0001610000000000", // integer of two bytes
        "8400000c0001610000000001", // 64 bits in four bytes
        "830000080001610000000001", // string without any byte
        "8300000c0001610041424344", // string without NUL
        "890000080001610000000000", // type 9
        "8800000c0001610000000001", // double of four bytes
        "870000080001610000000001", // boolean without value
    };
    for (const char *hex_text : malformed)
        EXPECT_FALSE(is_sound(hex_text)) << hex_text;
    EXPECT_FALSE(blobmsg_check_attr(nullptr, false));
}

TEST(blobmsg_check, a_name_can_be_required)
{
    EXPECT_FALSE(is_sound("8500000c0000000000000001", true));
    EXPECT_TRUE(is_sound("8500000c0000000000000001", false));
}

TEST(blobmsg_check, members_of_a_table_need_names)
{
    test_buf named;
    EXPECT_EQ(blobmsg_check_array(only_field(named, R"({"t":{"a":1,"b":2}})"), BLOBMSG_TYPE_INT32), 2);
    test_buf unnamed;
    EXPECT_EQ(blobmsg_check_array(only_field(unnamed, R"({"t":{"":1}})"), BLOBMSG_TYPE_INT32), -1);
}

TEST(blobmsg_check, a_list_is_a_container_of_sound_elements)
{
    test_buf scalar;
    EXPECT_EQ(blobmsg_check_array(only_field(scalar, R"({"a":1})"), BLOBMSG_TYPE_UNSPEC), -1);
    test_buf empty;
    EXPECT_EQ(blobmsg_check_array(only_field(empty, R"({"l":[]})"), BLOBMSG_TYPE_STRING), 0);
    EXPECT_TRUE(blobmsg_check_attr_list(static_cast<blob_attr *>(blob_data(empty.head)), BLOBMSG_TYPE_STRING));
    EXPECT_EQ(blobmsg_check_array(nullptr, BLOBMSG_TYPE_UNSPEC), -1);
    exact_attr broken("8100001400016c008300000c0000000041424344");
    EXPECT_EQ(blobmsg_check_array_len(broken.get(), BLOBMSG_TYPE_UNSPEC, broken.size()), -1);
    exact_attr cut("8100001400016c00");
    EXPECT_FALSE(blobmsg_check_attr_list_len(cut.get(), BLOBMSG_TYPE_UNSPEC, cut.size()));
}

TEST(blobmsg_check, every_prefix_and_every_changed_byte_of_a_message_is_read_within_bounds)
{
    test_buf buf;
    ASSERT_TRUE(blobmsg_add_json_from_string(&buf, R"({"a":1,"s":"text","l":[1,"x",{"d":1.5}],"b":true,"n":null})"));
    constexpr blobmsg_policy policy[] = {{"s", BLOBMSG_TYPE_STRING}, {"l", BLOBMSG_TYPE_ARRAY}};
    std::string good = hex(buf);
    for (size_t at = 0; at + 2 <= good.size(); at += 2) {
        for (const char *byte : {"00", "01", "7f", "ff"}) {
            std::string changed = good;
            changed.replace(at, 2, byte);
            exact_attr attr(changed);
            blob_attr *out[2];
            // The outer length is what a transport checks; nothing else may be relied on.
            if (blob_raw_len(attr.get()) > attr.size())
                continue;
            blobmsg_parse_attr(policy, 2, out, attr.get());
            EXPECT_NE(to_json(attr.get()), "(null)");
        }
    }
    for (size_t len = 0; len + 8 <= good.size(); len += 2) {
        exact_attr part(good.substr(8, len));
        blob_attr *out[2];
        blobmsg_parse(policy, 2, out, part.get(), static_cast<unsigned int>(part.size()));
        EXPECT_EQ(blobmsg_parse_array(policy, 2, out, part.get(), static_cast<unsigned int>(part.size())), 0);
    }
}

TEST(blobmsg_json, a_malformed_member_prints_nothing_but_its_comma_stays)
{
    test_buf buf;
    blobmsg_add_u32(&buf, "a", 1);
    blobmsg_add_field(&buf, BLOBMSG_TYPE_INT32, "b", "x", 1);
    blobmsg_add_u32(&buf, "c", 1);
    EXPECT_EQ(to_json(buf.head), R"({"a":1,,"c":1})");
}

TEST(blobmsg_json, one_element_prints_with_its_name_and_a_value_without)
{
    test_buf buf;
    blob_attr *field = only_field(buf, R"({"l":[1,{}]})");
    EXPECT_EQ(to_json(field, false), R"("l":[1,{}])");
    EXPECT_EQ(owned(blobmsg_format_json_value(field)), "[1,{}]");
    EXPECT_EQ(to_json(field, true), "[1,{}]");
    EXPECT_EQ(to_json(buf.head, false), "null");
    EXPECT_EQ(blobmsg_format_json(nullptr, true), nullptr);
}

TEST(blobmsg_json, a_malformed_element_prints_as_an_empty_text)
{
    exact_attr attr("8500000a0001610000000000");
    EXPECT_EQ(to_json(attr.get(), false), "");
}

TEST(blobmsg_json, a_member_without_name_prints_only_its_value)
{
    test_buf buf;
    ASSERT_TRUE(blobmsg_add_json_from_string(&buf, R"({"":1})"));
    EXPECT_EQ(to_json(buf.head), "{1}");
}

TEST(blobmsg_json, the_callback_can_replace_a_value)
{
    test_buf buf;
    ASSERT_TRUE(blobmsg_add_json_from_string(&buf, R"({"a":1,"l":[true]})"));
    const char *replacement = "\"on\"";
    auto replace_bool = [](void *priv, blob_attr *attr) {
        return blobmsg_type(attr) == BLOBMSG_TYPE_BOOL ? *static_cast<const char **>(priv) : nullptr;
    };
    EXPECT_EQ(owned(blobmsg_format_json_with_cb(buf.head, true, replace_bool, &replacement, -1)),
              R"({"a":1,"l":["on"]})");
}

TEST(blobmsg_json, indentation_starts_at_the_given_depth)
{
    test_buf buf;
    ASSERT_TRUE(blobmsg_add_json_from_string(&buf, R"({"a":1})"));
    EXPECT_EQ(owned(blobmsg_format_json_indent(buf.head, true, 1)), "{\n\t\t\"a\": 1\n\t}");
    EXPECT_EQ(owned(blobmsg_format_json_indent(buf.head, true, -1)), "{\"a\":1}");
}

TEST(blobmsg_json, members_are_added_to_what_the_buffer_holds)
{
    test_buf buf;
    blobmsg_add_u32(&buf, "a", 1);
    EXPECT_TRUE(blobmsg_add_json_from_string(&buf, R"({"b":[2]})"));
    EXPECT_EQ(to_json(buf.head), R"({"a":1,"b":[2]})");
    EXPECT_FALSE(blobmsg_add_json_from_string(&buf, "[3]"));
    EXPECT_EQ(to_json(buf.head), R"({"a":1,"b":[2]})");
}

TEST(blobmsg_json, an_object_that_does_not_fit_leaves_the_buffer_as_it_was)
{
    char memory[64];
    blob_buf buf = {};
    buf.buf = memory;
    buf.buflen = sizeof(memory);
    buf.grow = [](blob_buf *, int) { return false; };
    ASSERT_EQ(blob_buf_init(&buf, 0), 0);
    blobmsg_add_u32(&buf, "a", 1);
    EXPECT_FALSE(
        blobmsg_add_json_from_string(&buf, R"({"b":1,"t":{"c":2,"s":"too long for the rest of the buffer"}})"));
    EXPECT_EQ(to_json(buf.head), R"({"a":1})");
}

TEST(blobmsg_json, a_file_is_read_as_a_text_is)
{
    char path[] = "/tmp/blobmsg_json_XXXXXX";
    int fd = mkstemp(path);
    ASSERT_GE(fd, 0);
    ASSERT_EQ(write(fd, "{\"a\":[1]}\n", 10), 10);
    close(fd);
    test_buf buf;
    EXPECT_TRUE(blobmsg_add_json_from_file(&buf, path));
    unlink(path);
    EXPECT_EQ(to_json(buf.head), R"({"a":[1]})");
    EXPECT_FALSE(blobmsg_add_json_from_file(&buf, path));
}

TEST(blobmsg_json, any_parsed_value_can_become_a_field)
{
    test_buf buf;
    json_object *array = json_tokener_parse("[1,null]");
    EXPECT_TRUE(blobmsg_add_json_element(&buf, "l", array));
    EXPECT_TRUE(blobmsg_add_json_element(&buf, "n", nullptr));
    EXPECT_FALSE(blobmsg_add_object(&buf, array));
    json_object_put(array);
    EXPECT_EQ(to_json(buf.head), R"({"l":[1,null],"n":null})");
}

TEST(blobmsg_json, nesting_from_outside_does_not_exhaust_the_stack)
{
    test_buf buf;
    constexpr int LEVELS = 20000;
    std::vector<void *> cookies;
    for (int i = 0; i < LEVELS; i++)
        cookies.push_back(blobmsg_open_array(&buf, nullptr));
    for (; !cookies.empty(); cookies.pop_back())
        blobmsg_close_array(&buf, cookies.back());
    std::string json = to_json(buf.head);
    EXPECT_GT(json.size(), 2u * 512);
    EXPECT_LT(json.size(), 2u * LEVELS);
}
