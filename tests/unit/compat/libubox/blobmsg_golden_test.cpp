// SPDX-License-Identifier: MIT
// Recorded messages: what the builder makes, and JSON in both directions.
#include "blob_fixture.h"

#include <cmath>
#include <functional>
#include <limits>
#include <map>

namespace {

using build = std::function<void(blob_buf *)>;

void table_with_false(blob_buf *b)
{
    void *table = blobmsg_open_table(b, nullptr);
    blobmsg_add_u8(b, "b", 0);
    blobmsg_close_table(b, table);
}

const std::map<std::string, build> builders = {
    {"(empty buffer, id 0)", [](blob_buf *) {}},
    {R"(add_u8("a",1))", [](blob_buf *b) { blobmsg_add_u8(b, "a", 1); }},
    {R"(add_u8("a",200))", [](blob_buf *b) { blobmsg_add_u8(b, "a", 200); }},
    {R"(add_u16("a",0xfffe))", [](blob_buf *b) { blobmsg_add_u16(b, "a", 0xfffe); }},
    {R"(add_u32("a",0xfffffffe))", [](blob_buf *b) { blobmsg_add_u32(b, "a", 0xfffffffe); }},
    {R"(add_u32("ab",1))", [](blob_buf *b) { blobmsg_add_u32(b, "ab", 1); }},
    {R"(add_u64("a",0x0102030405060708))", [](blob_buf *b) { blobmsg_add_u64(b, "a", 0x0102030405060708); }},
    {R"(add_u64("a",0xffffffffffffffff))", [](blob_buf *b) { blobmsg_add_u64(b, "a", UINT64_MAX); }},
    {R"(add_double("d",1.5))", [](blob_buf *b) { blobmsg_add_double(b, "d", 1.5); }},
    {R"(add_double("d",-0.0))", [](blob_buf *b) { blobmsg_add_double(b, "d", -0.0); }},
    {R"(add_double("d",1e-9))", [](blob_buf *b) { blobmsg_add_double(b, "d", 1e-9); }},
    {R"(add_double("d",nan))", [](blob_buf *b) { blobmsg_add_double(b, "d", std::nan("")); }},
    {R"(add_double("d",inf))",
     [](blob_buf *b) { blobmsg_add_double(b, "d", std::numeric_limits<double>::infinity()); }},
    {R"(add_string("s",""))", [](blob_buf *b) { blobmsg_add_string(b, "s", ""); }},
    {R"(add_string("s","abc"))", [](blob_buf *b) { blobmsg_add_string(b, "s", "abc"); }},
    {R"(add_string("s","abcd"))", [](blob_buf *b) { blobmsg_add_string(b, "s", "abcd"); }},
    {R"(add_string(NULL,"x"))", [](blob_buf *b) { blobmsg_add_string(b, nullptr, "x"); }},
    {R"(add_string("","x"))", [](blob_buf *b) { blobmsg_add_string(b, "", "x"); }},
    {R"x(add_string("n","\x01\x08\t\n\f\r\"\\/\x7f"))x",
     [](blob_buf *b) { blobmsg_add_string(b, "n", "\x01\x08\t\n\f\r\"\\/\x7f"); }},
    {R"(add_string("n",invalid utf8 ff fe))", [](blob_buf *b) { blobmsg_add_string(b, "n", "\xff\xfe"); }},
    {R"(add_field(UNSPEC,"n",NULL,0))",
     [](blob_buf *b) { blobmsg_add_field(b, BLOBMSG_TYPE_UNSPEC, "n", nullptr, 0); }},
    {R"(add_field(UNSPEC,"n","abc",3))", [](blob_buf *b) { blobmsg_add_field(b, BLOBMSG_TYPE_UNSPEC, "n", "abc", 3); }},
    {R"(open_table("t"),close)", [](blob_buf *b) { blobmsg_close_table(b, blobmsg_open_table(b, "t")); }},
    {R"(open_table("t"),add_u32("x",1),close)",
     [](blob_buf *b) {
         void *table = blobmsg_open_table(b, "t");
         blobmsg_add_u32(b, "x", 1);
         blobmsg_close_table(b, table);
     }},
    {R"(open_array("l"),add_u32(NULL,1),add_string(NULL,"z"),close)",
     [](blob_buf *b) {
         void *array = blobmsg_open_array(b, "l");
         blobmsg_add_u32(b, nullptr, 1);
         blobmsg_add_string(b, nullptr, "z");
         blobmsg_close_array(b, array);
     }},
    {R"(open_array("l"),add_u32("named",1),close)",
     [](blob_buf *b) {
         void *array = blobmsg_open_array(b, "l");
         blobmsg_add_u32(b, "named", 1);
         blobmsg_close_array(b, array);
     }},
    {R"(open_array("l"),open_table(NULL),add_u8("b",0),close,close)",
     [](blob_buf *b) {
         void *array = blobmsg_open_array(b, "l");
         table_with_false(b);
         blobmsg_close_array(b, array);
     }},
    {R"(open_table(NULL),add_u8("b",0),close (unnamed member of a table))", table_with_false},
    {R"(duplicate: add_u32("a",1),add_u32("a",2))",
     [](blob_buf *b) {
         blobmsg_add_u32(b, "a", 1);
         blobmsg_add_u32(b, "a", 2);
     }},
    {R"(printf("p","%d-%s",7,"q"))", [](blob_buf *b) { EXPECT_EQ(blobmsg_printf(b, "p", "%d-%s", 7, "q"), 3); }},
    {R"(blobmsg_buf_init (id 2): add_u32("a",1))",
     [](blob_buf *b) {
         blobmsg_buf_init(b);
         blobmsg_add_u32(b, "a", 1);
     }},
    {R"(blob level: put_u32(3,0x11223344) put_string(2,"p") nest(7){blobmsg string k=v})",
     [](blob_buf *b) {
         blob_put_u32(b, 3, 0x11223344);
         blob_put_string(b, 2, "p");
         void *nest = blob_nest_start(b, 7);
         blobmsg_add_string(b, "k", "v");
         blob_nest_end(b, nest);
     }},
    {R"(blob level: put_u8(9,1) put_u16(1,0x1122) put_u64(1,0x1122334455667788))",
     [](blob_buf *b) {
         blob_put_u8(b, 9, 1);
         blob_put_u16(b, 1, 0x1122);
         blob_put_u64(b, 1, 0x1122334455667788);
     }},
};

// A newline and a tab as they stand in the golden file.
std::string visible(const std::string &text)
{
    std::string shown;
    for (char c : text)
        shown += c == '\n' ? "\\n" : c == '\t' ? "\\t" : std::string(1, c);
    return shown;
}

} // namespace

TEST(blobmsg_golden, the_builder_makes_the_recorded_bytes)
{
    size_t seen = 0;
    for (const auto &fields : golden_fields("api.txt")) {
        ASSERT_EQ(fields.size(), 3u);
        auto builder = builders.find(fields[0]);
        ASSERT_NE(builder, builders.end()) << fields[0];
        test_buf buf;
        builder->second(&buf);
        EXPECT_EQ(hex(buf), fields[1]) << fields[0];
        bool is_message = fields[2] != "-";
        EXPECT_EQ(is_message ? to_json(buf.head) : "-", fields[2]) << fields[0];
        seen++;
    }
    EXPECT_EQ(seen, builders.size());
}

TEST(blobmsg_golden, json_becomes_the_recorded_bytes)
{
    for (const auto &fields : golden_fields("json_to_blob.txt")) {
        ASSERT_EQ(fields.size(), 2u);
        test_buf buf;
        EXPECT_TRUE(blobmsg_add_json_from_string(&buf, fields[0].c_str())) << fields[0];
        EXPECT_EQ(hex(buf), fields[1]) << fields[0];
    }
}

TEST(blobmsg_golden, odd_json_is_accepted_as_recorded)
{
    for (const auto &fields : golden_fields("json_lenient.txt")) {
        ASSERT_EQ(fields.size(), 2u);
        test_buf buf;
        EXPECT_TRUE(blobmsg_add_json_from_string(&buf, fields[0].c_str())) << fields[0];
        EXPECT_EQ(hex(buf), fields[1]) << fields[0];
    }
}

TEST(blobmsg_golden, rejected_json_leaves_the_buffer_as_it_was)
{
    for (const auto &fields : golden_fields("json_rejected.txt")) {
        ASSERT_EQ(fields.size(), 3u);
        test_buf buf;
        EXPECT_FALSE(blobmsg_add_json_from_string(&buf, fields[0].c_str())) << fields[0];
        EXPECT_EQ(hex(buf), fields[2]) << fields[0];
    }
}

TEST(blobmsg_golden, messages_print_as_the_recorded_json)
{
    for (const auto &fields : golden_fields("blob_to_json.txt")) {
        ASSERT_EQ(fields.size(), 2u);
        exact_attr attr(fields[0]);
        EXPECT_EQ(to_json(attr.get()), fields[1]);
    }
}

TEST(blobmsg_golden, indented_json_is_laid_out_as_recorded)
{
    for (const auto &fields : golden_fields("indent.txt")) {
        ASSERT_EQ(fields.size(), 2u);
        test_buf buf;
        ASSERT_TRUE(blobmsg_add_json_from_string(&buf, fields[0].c_str()));
        EXPECT_EQ(visible(owned(blobmsg_format_json_indent(buf.head, true, 0))), fields[1]);
    }
}
