// SPDX-License-Identifier: MIT
// Sorting a message by a policy, against the recorded results.
#include "blob_fixture.h"

#include <functional>
#include <map>

namespace {

using build = std::function<void(blob_buf *)>;

constexpr blobmsg_policy POLICY[] = {
    {"a", BLOBMSG_TYPE_INT32},  {"s", BLOBMSG_TYPE_STRING},    {"t", BLOBMSG_TYPE_TABLE},  {"l", BLOBMSG_TYPE_ARRAY},
    {"b", BLOBMSG_TYPE_BOOL},   {"q", BLOBMSG_TYPE_INT64},     {"u", BLOBMSG_TYPE_UNSPEC}, {"c", BLOBMSG_CAST_INT64},
    {"d", BLOBMSG_TYPE_DOUBLE}, {nullptr, BLOBMSG_TYPE_INT32},
};
constexpr int ENTRIES = ARRAY_SIZE(POLICY);
constexpr size_t LABEL_COLUMNS = 61;

void add_null(blob_buf *b, const char *name)
{
    blobmsg_add_field(b, BLOBMSG_TYPE_UNSPEC, name, nullptr, 0);
}

const std::map<std::string, build> messages = {
    {"empty", [](blob_buf *) {}},
    {"int32 for a", [](blob_buf *b) { blobmsg_add_u32(b, "a", 5); }},
    {"int8 for a", [](blob_buf *b) { blobmsg_add_u8(b, "a", 5); }},
    {"int64 for a", [](blob_buf *b) { blobmsg_add_u64(b, "a", 5); }},
    {"string for a", [](blob_buf *b) { blobmsg_add_string(b, "a", "5"); }},
    {"int32 for bool b", [](blob_buf *b) { blobmsg_add_u32(b, "b", 1); }},
    {"u8 for bool b", [](blob_buf *b) { blobmsg_add_u8(b, "b", 1); }},
    {"int32 for int64 q", [](blob_buf *b) { blobmsg_add_u32(b, "q", 1); }},
    {"dup a=1,a=2",
     [](blob_buf *b) {
         blobmsg_add_u32(b, "a", 1);
         blobmsg_add_u32(b, "a", 2);
     }},
    {R"(wrong type first then right: a="x",a=2)",
     [](blob_buf *b) {
         blobmsg_add_string(b, "a", "x");
         blobmsg_add_u32(b, "a", 2);
     }},
    {"unknown field z",
     [](blob_buf *b) {
         blobmsg_add_u32(b, "z", 1);
         blobmsg_add_u32(b, "a", 2);
     }},
    {"UNSPEC policy gets string/int",
     [](blob_buf *b) {
         blobmsg_add_string(b, "u", "s");
         blobmsg_add_u32(b, "u", 1);
     }},
    {"CAST_INT64 gets u8", [](blob_buf *b) { blobmsg_add_u8(b, "c", 3); }},
    {"CAST_INT64 gets u32", [](blob_buf *b) { blobmsg_add_u32(b, "c", 3); }},
    {"CAST_INT64 gets string", [](blob_buf *b) { blobmsg_add_string(b, "c", "3"); }},
    {"CAST_INT64 gets double", [](blob_buf *b) { blobmsg_add_double(b, "c", 3); }},
    {"table given for array l", [](blob_buf *b) { blobmsg_close_table(b, blobmsg_open_table(b, "l")); }},
    {"null for s", [](blob_buf *b) { add_null(b, "s"); }},
    {"null for u", [](blob_buf *b) { add_null(b, "u"); }},
    {"int32 for double d", [](blob_buf *b) { blobmsg_add_u32(b, "d", 1); }},
    {"string without NUL in the middle of good fields",
     [](blob_buf *b) {
         blobmsg_add_u32(b, "a", 1);
         blobmsg_add_field(b, BLOBMSG_TYPE_STRING, "s", "xyz", 3);
         blobmsg_add_u8(b, "b", 1);
     }},
    {"int32 payload of 2 bytes", [](blob_buf *b) { blobmsg_add_field(b, BLOBMSG_TYPE_INT32, "a", "xy", 2); }},
    {"double payload 4 bytes", [](blob_buf *b) { blobmsg_add_field(b, BLOBMSG_TYPE_DOUBLE, "d", "wxyz", 4); }},
    {"type id 9", [](blob_buf *b) { blobmsg_add_field(b, 9, "a", "wxyz", 4); }},
    {"non-extended blob attr id 3 among fields",
     [](blob_buf *b) {
         blob_put_u32(b, 3, 7);
         blobmsg_add_u8(b, "b", 1);
     }},
};

std::string found(const blobmsg_policy *policy, blob_attr **out, int count)
{
    std::string text;
    for (int i = 0; i < count; i++) {
        if (out[i])
            text += std::string(" ") + policy[i].name + "=" + to_json(out[i], false);
    }
    return text;
}

std::string parse_result(blob_buf *buf)
{
    blob_attr *out[ENTRIES];
    int ret = blobmsg_parse_attr(POLICY, ENTRIES, out, buf->head);
    return "ret=" + std::to_string(ret) + found(POLICY, out, ENTRIES);
}

// The recorded line that begins like this.
std::string golden_line(const std::string &start)
{
    for (const std::string &line : golden_lines("policy.txt")) {
        if (line.compare(0, start.size(), start) == 0)
            return line;
    }
    return "no line begins with " + start;
}

} // namespace

TEST(blobmsg_policy, fields_are_sorted_as_recorded)
{
    size_t seen = 0;
    for (const std::string &line : golden_lines("policy.txt")) {
        if (line.size() <= LABEL_COLUMNS || line.compare(LABEL_COLUMNS, 4, "ret=") != 0)
            continue;
        std::string label = line.substr(0, line.find_last_not_of(' ', LABEL_COLUMNS - 1) + 1);
        auto message = messages.find(label);
        ASSERT_NE(message, messages.end()) << label;
        test_buf buf;
        message->second(&buf);
        EXPECT_EQ(parse_result(&buf), line.substr(LABEL_COLUMNS)) << label;
        seen++;
    }
    EXPECT_EQ(seen, messages.size());
}

TEST(blobmsg_policy, missing_data_is_an_invalid_argument)
{
    blob_attr *out[ENTRIES] = {reinterpret_cast<blob_attr *>(1)};
    char byte = 0;
    int without_data = blobmsg_parse(POLICY, ENTRIES, out, nullptr, 4);
    EXPECT_EQ(out[0], nullptr);
    int without_len = blobmsg_parse(POLICY, ENTRIES, out, &byte, 0);
    EXPECT_EQ("data NULL ret=" + std::to_string(without_data) + " len0 ret=" + std::to_string(without_len),
              golden_line("data NULL"));
}

TEST(blobmsg_policy, names_of_256_bytes_and_more_never_match)
{
    for (size_t len : {255, 256, 300}) {
        std::string name(len, 'n');
        blobmsg_policy policy = {name.c_str(), BLOBMSG_TYPE_INT32};
        blob_attr *out;
        test_buf buf;
        blobmsg_add_u32(&buf, name.c_str(), 1);
        int ret = blobmsg_parse_attr(&policy, 1, &out, buf.head);
        std::string start = "name length " + std::to_string(len) + ": ";
        EXPECT_EQ(start + "ret=" + std::to_string(ret) + " found=" + (out ? "1" : "0"), golden_line(start));
    }
}

TEST(blobmsg_policy, an_array_is_sorted_by_position)
{
    constexpr blobmsg_policy policy[] = {{nullptr, BLOBMSG_TYPE_STRING}, {nullptr, BLOBMSG_TYPE_INT32}};
    test_buf buf;
    void *array = blobmsg_open_array(&buf, "l");
    blobmsg_add_u32(&buf, nullptr, 7);
    blobmsg_add_string(&buf, nullptr, "x");
    blobmsg_add_string(&buf, nullptr, "y");
    blobmsg_add_u32(&buf, nullptr, 9);
    blobmsg_close_array(&buf, array);
    auto *list = static_cast<blob_attr *>(blob_data(buf.head));
    blob_attr *out[2];
    std::string ret = std::to_string(blobmsg_parse_array_attr(policy, 2, out, list));
    ASSERT_TRUE(out[0] && out[1]);
    std::string start = R"(parse_array {STRING,INT32} on [7,"x","y",9]: ret=)";
    EXPECT_EQ(start + ret + " " + to_json(out[0], false) + " " + to_json(out[1], false), golden_line(start));
}

TEST(blobmsg_policy, one_field_fills_every_entry_of_its_name_and_type)
{
    constexpr blobmsg_policy policy[] = {
        {"a", BLOBMSG_TYPE_INT32}, {"a", BLOBMSG_TYPE_STRING}, {"a", BLOBMSG_TYPE_INT32}};
    test_buf buf;
    blobmsg_add_u32(&buf, "a", 1);
    blobmsg_add_string(&buf, "a", "x");
    blob_attr *out[3];
    std::string line = "policy naming a three times (INT32,STRING,INT32) on a=1,a=\"x\": ret=";
    line += std::to_string(blobmsg_parse_attr(policy, 3, out, buf.head));
    for (blob_attr *attr : out)
        line += " " + to_json(attr, false);
    EXPECT_EQ(line, golden_line("policy naming"));
}

TEST(blobmsg_policy, a_message_cut_short_ends_before_the_cut_field)
{
    test_buf buf;
    blobmsg_add_u32(&buf, "a", 1);
    blobmsg_add_string(&buf, "s", "abcd");
    size_t whole = blob_len(buf.head);
    ASSERT_EQ(whole, 28u);
    for (size_t cut = 1; cut <= 12; cut++) {
        exact_attr part(hex(blob_data(buf.head), whole - cut));
        blob_attr *out[ENTRIES];
        int ret = blobmsg_parse(POLICY, ENTRIES, out, part.get(), static_cast<unsigned int>(part.size()));
        std::string start = "truncate by " + std::to_string(cut) + " of 28: ";
        EXPECT_EQ(start + "ret=" + std::to_string(ret) + " a=" + (out[0] ? "1" : "0") + " s=" + (out[1] ? "1" : "0"),
                  golden_line(start));
    }
}

TEST(blobmsg_policy, elements_of_a_list_are_counted_only_if_all_have_the_type)
{
    test_buf buf;
    void *array = blobmsg_open_array(&buf, "l");
    blobmsg_add_string(&buf, nullptr, "x");
    blobmsg_add_u32(&buf, nullptr, 1);
    blobmsg_close_array(&buf, array);
    auto *list = static_cast<blob_attr *>(blob_data(buf.head));
    EXPECT_EQ("check_array UNSPEC=" + std::to_string(blobmsg_check_array(list, BLOBMSG_TYPE_UNSPEC)) +
                  " STRING=" + std::to_string(blobmsg_check_array(list, BLOBMSG_TYPE_STRING)) +
                  " check_attr_list(STRING)=" + std::to_string(blobmsg_check_attr_list(list, BLOBMSG_TYPE_STRING)),
              golden_line("check_array"));
}

TEST(blobmsg_policy, getters_give_the_recorded_values)
{
    test_buf buf;
    blobmsg_add_u32(&buf, "v", 0xfffffff6);
    auto *v = static_cast<blob_attr *>(blob_data(buf.head));
    std::ostringstream line;
    line << "u32 0xfffffff6: get_u32=" << blobmsg_get_u32(v) << " cast_u64=" << blobmsg_cast_u64(v)
         << " cast_s64=" << blobmsg_cast_s64(v) << " len=" << blobmsg_len(v) << " data_len=" << blobmsg_data_len(v)
         << " name=" << blobmsg_name(v) << " type=" << blobmsg_type(v) << " hdrlen=" << blobmsg_hdrlen(1);
    EXPECT_EQ(line.str(), golden_line("u32"));
    EXPECT_EQ(std::string("get_string(null attr)=") + (blobmsg_get_string(nullptr) ? "text" : "NULL"),
              golden_line("get_string"));
    EXPECT_EQ(blobmsg_data(nullptr), nullptr);
    EXPECT_EQ(blobmsg_data_len(nullptr), 0u);
}
