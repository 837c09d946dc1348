// SPDX-License-Identifier: MIT
// Plain attributes: the growing buffer, its limits, and the parser.
#include "blob_fixture.h"

namespace {

constexpr size_t MIB = 1024 * 1024;

// out[] of a parse over ids 0..3.
struct parsed {
    blob_attr *out[4];
    int found;
};

parsed parse(blob_buf &buf, const blob_attr_info *info = nullptr)
{
    parsed result;
    result.found = blob_parse(buf.head, result.out, info, 4);
    return result;
}

} // namespace

TEST(blob_builder, the_buffer_grows_in_steps_of_256_bytes)
{
    test_buf buf;
    EXPECT_EQ(buf.buflen, 256);
    for (int i = 0; i < 100; i++)
        EXPECT_EQ(blobmsg_add_u32(&buf, "name", 1), 0);
    EXPECT_EQ(blob_raw_len(buf.head), 1604u);
    EXPECT_EQ(buf.buflen, 1792);
}

TEST(blob_builder, a_second_init_empties_the_buffer_and_keeps_its_memory)
{
    test_buf buf;
    std::string long_text(1000, 'x');
    blobmsg_add_string(&buf, "s", long_text.c_str());
    int buflen = buf.buflen;
    EXPECT_EQ(blob_buf_init(&buf, 0), 0);
    EXPECT_EQ(hex(buf), "00000004");
    EXPECT_EQ(buf.buflen, buflen);
}

TEST(blob_builder, a_freed_buffer_keeps_only_its_grow_function)
{
    test_buf buf;
    blob_buf_free(&buf);
    EXPECT_EQ(buf.buf, nullptr);
    EXPECT_EQ(buf.head, nullptr);
    EXPECT_EQ(buf.buflen, 0);
    EXPECT_EQ(buf.grow, blob_buf_grow);
    blob_buf_free(&buf);
    EXPECT_EQ(blobmsg_buf_init(&buf), 0);
    EXPECT_EQ(hex(buf), "02000004");
}

TEST(blob_builder, a_buffer_without_memory_is_not_set_up_and_has_no_head)
{
    test_buf buf;
    EXPECT_EQ(blobmsg_add_u32(&buf, "a", 1), 0);
    blob_buf_free(&buf);
    buf.grow = [](blob_buf *, int) { return false; };
    EXPECT_EQ(blob_buf_init(&buf, 0), -ENOMEM);
    EXPECT_EQ(buf.head, nullptr);
}

TEST(blob_builder_death, whoever_adds_to_a_buffer_that_was_not_set_up_dies)
{
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    blob_buf buf = {};
    buf.grow = [](blob_buf *, int) { return false; };
    ASSERT_EQ(blob_buf_init(&buf, 0), -ENOMEM);
    EXPECT_DEATH(blobmsg_add_u32(&buf, "a", 1), "");
    EXPECT_DEATH(blob_put_u32(&buf, 1, 1), "");
    EXPECT_DEATH(blobmsg_open_table(&buf, "t"), "");
    EXPECT_DEATH(blobmsg_add_json_from_string(&buf, "{\"a\":1}"), "");
}

TEST(blob_builder, fifteen_strings_of_a_mebibyte_fit_and_the_sixteenth_leaves_the_buffer_usable)
{
    test_buf buf;
    std::string text(MIB, 'x');
    for (int i = 0; i < 15; i++)
        EXPECT_EQ(blobmsg_add_string(&buf, "s", text.c_str()), 0);
    EXPECT_EQ(blobmsg_add_string(&buf, "s", text.c_str()), -1);
    EXPECT_EQ(blobmsg_printf(&buf, "p", "%s", text.c_str()), -1);
    EXPECT_EQ(blobmsg_alloc_string_buffer(&buf, "p", MIB), nullptr);
    blobmsg_add_string_buffer(&buf);
    size_t before = blob_raw_len(buf.head);
    EXPECT_EQ(blobmsg_add_u32(&buf, "a", 1), 0);
    EXPECT_EQ(blob_raw_len(buf.head), before + 12);
}

TEST(blob_builder, nothing_fits_behind_the_longest_length)
{
    constexpr size_t LONGEST = BLOB_ATTR_LEN_MASK & ~3u;
    test_buf buf;
    std::string payload(LONGEST - 8, 'x');
    ASSERT_NE(blob_put(&buf, 1, payload.data(), static_cast<unsigned int>(payload.size())), nullptr);
    EXPECT_EQ(blob_raw_len(buf.head), LONGEST);
    EXPECT_EQ(blob_put(&buf, 2, nullptr, 0), nullptr);
    EXPECT_EQ(blob_nest_start(&buf, 2), nullptr);
    EXPECT_EQ(blob_raw_len(buf.head), LONGEST);
}

TEST(blob_builder, a_buffer_that_may_not_grow_refuses_what_does_not_fit)
{
    char memory[64];
    blob_buf buf = {};
    buf.buf = memory;
    buf.buflen = sizeof(memory);
    buf.grow = [](blob_buf *, int) { return false; };
    ASSERT_EQ(blob_buf_init(&buf, 0), 0);
    for (int i = 0; i < 5; i++)
        EXPECT_EQ(blobmsg_add_u32(&buf, "a", 1), 0);
    EXPECT_EQ(blobmsg_add_u32(&buf, "a", 1), -1);
    EXPECT_EQ(blob_raw_len(buf.head), 64u);
}

TEST(blob_builder, cookies_outlive_a_move_of_the_buffer)
{
    test_buf buf;
    std::string long_text(5000, 'x');
    void *outer = blobmsg_open_table(&buf, "o");
    void *inner = blobmsg_open_array(&buf, "i");
    ASSERT_TRUE(outer && inner);
    blobmsg_add_string(&buf, nullptr, long_text.c_str());
    blobmsg_close_array(&buf, inner);
    blobmsg_close_table(&buf, outer);
    EXPECT_EQ(to_json(buf.head), R"({"o":{"i":[")" + long_text + "\"]}}");
}

TEST(blob_builder, closing_what_could_not_be_opened_changes_nothing)
{
    test_buf buf;
    blobmsg_add_u32(&buf, "a", 1);
    std::string before = hex(buf);
    blobmsg_close_table(&buf, nullptr);
    EXPECT_EQ(hex(buf), before);
}

TEST(blob_builder, a_name_longer_than_its_length_field_is_refused)
{
    test_buf buf;
    std::string name(UINT16_MAX, 'n');
    EXPECT_EQ(blobmsg_add_u32(&buf, name.c_str(), 1), 0);
    name += 'n';
    EXPECT_EQ(blobmsg_add_u32(&buf, name.c_str(), 1), -1);
}

TEST(blob_builder, ready_made_attributes_are_appended_as_they_are)
{
    test_buf source;
    blobmsg_add_u32(&source, "a", 1);
    blobmsg_add_string(&source, "s", "x");
    test_buf buf;
    EXPECT_NE(blob_put_raw(&buf, blob_data(source.head), static_cast<unsigned int>(blob_len(source.head))), nullptr);
    EXPECT_EQ(hex(buf), hex(source));
    EXPECT_EQ(blob_put_raw(&buf, nullptr, 8), nullptr);
    EXPECT_EQ(blob_put_raw(&buf, "abc", 3), nullptr);
}

TEST(blob_builder, add_blob_copies_type_name_and_value)
{
    test_buf source;
    ASSERT_TRUE(blobmsg_add_json_from_string(&source, R"({"t":{"a":1,"b":"x"},"d":1.5,"n":null})"));
    test_buf copy;
    blob_attr *field;
    size_t rem;
    blobmsg_for_each_attr(field, source.head, rem)
    {
        EXPECT_EQ(blobmsg_add_blob(&copy, field), 0);
    }
    EXPECT_EQ(hex(copy), hex(source));
}

TEST(blob_builder, a_string_can_be_written_in_place)
{
    test_buf buf;
    auto *text = static_cast<char *>(blobmsg_alloc_string_buffer(&buf, "s", 10));
    ASSERT_NE(text, nullptr);
    EXPECT_EQ(hex(buf), "00000004");
    strcpy(text, "abc");
    text = static_cast<char *>(blobmsg_realloc_string_buffer(&buf, 4000));
    ASSERT_NE(text, nullptr);
    EXPECT_STREQ(text, "abc");
    memset(text, 'y', 4000);
    text[4000] = '\0';
    blobmsg_add_string_buffer(&buf);
    blobmsg_add_u8(&buf, "b", 1);
    EXPECT_EQ(to_json(buf.head), R"({"s":")" + std::string(4000, 'y') + R"(","b":true})");
}

TEST(blob_builder, a_string_written_in_place_takes_no_more_than_its_text)
{
    test_buf buf;
    strcpy(static_cast<char *>(blobmsg_alloc_string_buffer(&buf, "s", 100)), "abc");
    blobmsg_add_string_buffer(&buf);
    EXPECT_EQ(hex(buf), "000000108300000c0001730061626300");
}

TEST(blob_parser, the_last_fitting_attribute_of_an_id_counts)
{
    test_buf buf;
    blob_put_u32(&buf, 1, 10);
    blob_put_u32(&buf, 1, 20);
    blob_put_string(&buf, 2, "x");
    blob_put_u32(&buf, 4, 1);
    parsed plain = parse(buf);
    EXPECT_EQ(plain.found, 2);
    EXPECT_EQ(blob_get_u32(plain.out[1]), 20u);
    EXPECT_STREQ(blob_get_string(plain.out[2]), "x");
    EXPECT_EQ(plain.out[0], nullptr);
    EXPECT_EQ(plain.out[3], nullptr);
}

TEST(blob_parser, an_attribute_that_fails_its_check_is_as_good_as_absent)
{
    blob_attr_info info[4] = {};
    info[1].type = BLOB_ATTR_INT32;
    info[2].type = BLOB_ATTR_STRING;
    info[3].type = BLOB_ATTR_BINARY;
    info[3].minlen = 2;
    info[3].maxlen = 3;
    test_buf buf;
    blob_put_u32(&buf, 1, 10);
    blob_put_u16(&buf, 1, 20);
    blob_put(&buf, 2, "abc", 3);
    blob_put(&buf, 3, "abcd", 4);
    blob_put(&buf, 3, "a", 1);
    parsed result = parse(buf, info);
    EXPECT_EQ(result.found, 1);
    EXPECT_EQ(blob_get_u32(result.out[1]), 10u);
    info[1].validate = [](const blob_attr_info *, blob_attr *attr) { return blob_get_u32(attr) != 10; };
    EXPECT_EQ(parse(buf, info).found, 0);
}

TEST(blob_parser, types_ask_for_their_exact_length)
{
    const int types[] = {BLOB_ATTR_INT8, BLOB_ATTR_INT16, BLOB_ATTR_INT32, BLOB_ATTR_INT64, BLOB_ATTR_DOUBLE};
    const unsigned int lengths[] = {1, 2, 4, 8, 8};
    for (size_t i = 0; i < ARRAY_SIZE(types); i++) {
        EXPECT_TRUE(blob_check_type("12345678", lengths[i], types[i]));
        EXPECT_FALSE(blob_check_type("12345678", lengths[i] - 1, types[i]));
        EXPECT_FALSE(blob_check_type("123456789", lengths[i] + 1, types[i]));
    }
    EXPECT_TRUE(blob_check_type("", 1, BLOB_ATTR_STRING));
    EXPECT_FALSE(blob_check_type("", 0, BLOB_ATTR_STRING));
    EXPECT_FALSE(blob_check_type("ab", 2, BLOB_ATTR_STRING));
    EXPECT_TRUE(blob_check_type("ab", 2, BLOB_ATTR_BINARY));
    EXPECT_TRUE(blob_check_type("", 0, BLOB_ATTR_NESTED));
    EXPECT_FALSE(blob_check_type("", 0, BLOB_ATTR_LAST));
}

TEST(blob_parser, untrusted_bytes_are_read_only_as_far_as_they_go)
{
    blob_attr *out[4];
    exact_attr longer_than_its_bytes("00000020010000080000000a");
    EXPECT_EQ(blob_parse_untrusted(longer_than_its_bytes.get(), 12, out, nullptr, 4), 0);
    exact_attr shorter_than_a_word("000000");
    EXPECT_EQ(blob_parse_untrusted(shorter_than_a_word.get(), 3, out, nullptr, 4), 0);
    exact_attr without_length("00000000");
    EXPECT_EQ(blob_parse_untrusted(without_length.get(), 4, out, nullptr, 4), 0);
    exact_attr child_too_long("0000000c0100ffff0000000a");
    EXPECT_EQ(blob_parse_untrusted(child_too_long.get(), 12, out, nullptr, 4), 0);
    exact_attr child_without_length("0000000c010000000000000a");
    EXPECT_EQ(blob_parse_untrusted(child_without_length.get(), 12, out, nullptr, 4), 0);
    exact_attr child_unpadded("0000000d010000080000000a02");
    EXPECT_EQ(blob_parse_untrusted(child_unpadded.get(), 13, out, nullptr, 4), 1);
    EXPECT_EQ(blob_get_u32(out[1]), 10u);
}

TEST(blob_attribute, copies_are_equal_and_end_in_their_own_padding)
{
    // Nine bytes without the padding behind them.
    exact_attr attr("830000090001730041");
    blob_attr *copy = blob_memdup(attr.get());
    ASSERT_NE(copy, nullptr);
    EXPECT_EQ(hex(copy, 12), "830000090001730041000000");
    EXPECT_TRUE(blob_attr_equal(attr.get(), copy));
    copy->data[4] = 'B';
    EXPECT_FALSE(blob_attr_equal(attr.get(), copy));
    EXPECT_FALSE(blob_attr_equal(attr.get(), nullptr));
    EXPECT_TRUE(blob_attr_equal(nullptr, nullptr));
    free(copy);
}

TEST(blob_attribute, a_length_is_set_without_touching_id_and_flag)
{
    exact_attr attr("83000009000173004142ffff");
    blob_set_raw_len(attr.get(), 10);
    blob_fill_pad(attr.get());
    EXPECT_EQ(hex(attr.get(), 12), "8300000a0001730041420000");
}

TEST(blob_attribute, signed_getters_keep_the_sign)
{
    test_buf buf;
    blob_put_int8(&buf, 0, static_cast<uint8_t>(-2));
    blob_put_int16(&buf, 1, static_cast<uint16_t>(-3));
    blob_put_int32(&buf, 2, static_cast<uint32_t>(-4));
    blob_put_int64(&buf, 3, static_cast<uint64_t>(-5));
    parsed result = parse(buf);
    ASSERT_EQ(result.found, 4);
    EXPECT_EQ(blob_get_int8(result.out[0]), -2);
    EXPECT_EQ(blob_get_int16(result.out[1]), -3);
    EXPECT_EQ(blob_get_int32(result.out[2]), -4);
    EXPECT_EQ(blob_get_int64(result.out[3]), -5);
}

TEST(blob_attribute, nothing_is_iterated_without_attribute)
{
    blob_attr *pos;
    size_t rem;
    int count = 0;
    blob_attr *none = nullptr;
    blob_for_each_attr(pos, none, rem)
    {
        count++;
    }
    blobmsg_for_each_attr(pos, none, rem)
    {
        count++;
    }
    EXPECT_EQ(count, 0);
}
