// SPDX-License-Identifier: MIT
// Configuration text: what the recordings leave open, and that no text whatsoever does harm.
#include "place.h"

#include <filesystem>
#include <random>

namespace {

class parser : public place {
protected:
    // What a file with this text holds when written again; "(error N)" if it is refused.
    std::string normalized(const std::string &text)
    {
        write_conf("p", text);
        context ctx = open();
        std::string result = exported(ctx.get(), "p");
        reason_ = error_text(ctx.get());
        return result;
    }

    std::string reason_;
};

const std::string refused = "(error 5)";

TEST_F(parser, white_space_of_every_kind_separates_words)
{
    EXPECT_EQ(normalized("config\tt\v'a'\f\n\roption\tx \t 1\r\n"), "\nconfig t 'a'\n\toption x '1'\n\n");
}

TEST_F(parser, a_word_is_glued_from_quoted_and_unquoted_pieces)
{
    EXPECT_EQ(normalized("config t a\noption x a'b c'\"d'\"\\ e\n"), "\nconfig t 'a'\n\toption x 'ab cd'\\'' e'\n\n");
}

TEST_F(parser, backslash_newline_joins_lines_between_words_too)
{
    EXPECT_EQ(normalized("config t \\\n  a\noption x \\\n\\\n1\n"), "\nconfig t 'a'\n\toption x '1'\n\n");
}

TEST_F(parser, behind_a_separator_the_line_does_not_end)
{
    for (const char *text :
         {"config t a\n\toption x 'd';\n", "config t a\n\toption x 'd' ; \n", "config t a\n\toption x d ;\n",
          "config t 'a';\r\n\toption x d\n", "config t 'a'; \\\n\toption x d\n"}) {
        EXPECT_EQ(normalized(text), refused) << text;
        EXPECT_EQ(reason_.rfind("Parse error (invalid command) at line ", 0), 0u) << reason_;
    }
    for (const char *text :
         {"config t a\n\toption x 'd';", "config t a\n\toption x 'd'; # more\n", "config t 'a'; option x d\n"})
        EXPECT_EQ(normalized(text), "\nconfig t 'a'\n\toption x 'd'\n\n") << text;
}

TEST_F(parser, a_separator_right_behind_an_unquoted_word_hides_the_rest_of_its_line_only)
{
    EXPECT_EQ(normalized("config t a;option x 1\noption y 2\n"), "\nconfig t 'a'\n\toption y '2'\n\n");
    EXPECT_EQ(normalized("config t 'a'b;option x 1\n"), "\nconfig t 'ab'\n\n");
    EXPECT_EQ(normalized("config t b'a';option x 1\n"), "\nconfig t 'ba'\n\toption x '1'\n\n");
}

TEST_F(parser, a_nul_byte_hides_the_rest_of_its_line)
{
    EXPECT_EQ(normalized(std::string("config t a\n\0option x 1\noption y 2\n", 33)),
              "\nconfig t 'a'\n\toption y '2'\n\n");
    EXPECT_EQ(normalized(std::string("config t a\noption x 1\0 bogus 2 3\noption y 2\n", 44)),
              "\nconfig t 'a'\n\toption x '1'\n\toption y '2'\n\n");
    EXPECT_EQ(normalized(std::string(4096, '\0')), "\n") << "a file that lost its blocks holds nothing";
}

TEST_F(parser, a_type_with_special_characters_survives_being_written)
{
    for (std::string type : {"a#b", "a;b", "a'b", "a\"b", "a\\b"}) {
        std::string quoted = type == "a'b" ? "\"a'b\"" : "'" + type + "'";
        std::string once = normalized("config " + quoted + " n\n");
        EXPECT_EQ(normalized(once), once);
        context ctx = open();
        tuple t(ctx.get(), "p.n");
        ASSERT_NE(t.ptr.s, nullptr) << type;
        EXPECT_EQ(t.ptr.s->type, type);
    }
}

TEST_F(parser, an_anonymous_section_never_gets_the_name_of_another_one)
{
    write_conf("p", "config b 'cfg02b606'\nconfig a\n\toption x 1\nconfig a\n");
    context ctx = open();
    EXPECT_EQ(value_of(ctx.get(), "p.@a[0].x"), "1");
    tuple first(ctx.get(), "p.@a[0]"), second(ctx.get(), "p.@a[1]");
    EXPECT_STRNE(first.ptr.s->e.name, "cfg02b606");
    EXPECT_STRNE(first.ptr.s->e.name, second.ptr.s->e.name);
}

TEST_F(parser, an_empty_list_item_counts_and_an_empty_option_does_not)
{
    EXPECT_EQ(normalized("config t a\nlist l ''\nlist l\noption x ''\noption y\n"),
              "\nconfig t 'a'\n\tlist l ''\n\tlist l ''\n\n");
}

TEST_F(parser, errors_say_where_they_are)
{
    EXPECT_EQ(normalized("config t a\n\toption x 1\n\noption\n"), refused);
    EXPECT_EQ(reason_, "Parse error (invalid command) at line 4, byte 0");
    EXPECT_EQ(normalized("config t a\n option x 'b\n c'; option y- 2\n"), refused);
    EXPECT_EQ(reason_, "Parse error (invalid character in name field) at line 3, byte 28")
        << "counted over joined lines";
    EXPECT_EQ(normalized("config ''\n"), refused);
    EXPECT_EQ(reason_, "Parse error (insufficient arguments) at line 1, byte 10");
    EXPECT_EQ(normalized("package a/../b\n"), refused);
    EXPECT_EQ(reason_, "Parse error (invalid character in name field) at line 1, byte 15");
}

const char rich_text[] =
    "# c\r\npackage p\nconfig t 'a'\n\toption x 'it'\\''s' # d\n\tlist l \"q \\\" r\"; list l two\\\nlines\n"
    "config u\n\toption m 'one\ntwo'\nc t a ; o y 2\nconfig 'w\\x' b\n\tlist e ''\n";

TEST_F(parser, every_beginning_of_a_file_is_read_or_refused_and_the_file_stays_as_it_is)
{
    std::string whole(rich_text);
    int good = 0;
    for (size_t length = 0; length <= whole.size(); ++length) {
        std::string text = whole.substr(0, length);
        std::string result = normalized(text);
        ASSERT_EQ(read_text(conf("p")), text);
        if (result == refused) {
            EXPECT_NE(reason_.find(" at line "), std::string::npos) << text;
        } else {
            EXPECT_EQ(normalized(result), result) << text;
        }
        good += result != refused ? 1 : 0;
    }
    EXPECT_GT(good, 50);
    EXPECT_LT(good, static_cast<int>(whole.size()));
}

TEST_F(parser, garbage_is_read_or_refused_but_never_harmful)
{
    std::mt19937 random(20240229);
    const char letters[] = "\0\n\r\t '\"\\#;=.cpol_aconfig option list package @[]\xff\x01";
    const std::string alphabet(letters, sizeof(letters) - 1);
    int good = 0;
    constexpr int rounds = 3000;
    for (int i = 0; i < rounds; ++i) {
        std::string text(rich_text);
        for (unsigned hits = random() % 4 + 1; hits > 0; --hits) {
            size_t at = random() % text.size();
            std::string patch(1, alphabet[random() % alphabet.size()]);
            text.replace(at, random() % 3, patch);
        }
        write_conf("p", text);
        context ctx = open();
        if (i % 2 != 0)
            ctx->flags = static_cast<uci_flags>(ctx->flags & ~UCI_FLAG_STRICT);
        testing::internal::CaptureStderr();
        std::string result = exported(ctx.get(), "p");
        testing::internal::GetCapturedStderr();
        if (result == refused)
            continue;
        good++;
        ASSERT_EQ(normalized(result), result) << text;
    }
    EXPECT_GT(good, rounds / 10);
}

TEST_F(parser, purely_random_bytes_are_harmless)
{
    std::mt19937 random(7);
    for (int i = 0; i < 500; ++i) {
        std::string text(random() % 200, '\0');
        for (char &c : text)
            c = static_cast<char>(random());
        std::string result = normalized(text);
        EXPECT_TRUE(result == refused || result == "\n") << text;
    }
}

TEST_F(parser, a_file_of_many_sections_and_long_values_is_read_whole)
{
    std::string text;
    constexpr int sections = 2000;
    for (int i = 0; i < sections; ++i)
        text += "config t\n\toption n " + std::to_string(i) + "\n";
    text += "config t last\n\toption long '" + std::string(1 << 20, 'v') + "'\n";
    write_conf("p", text);
    context ctx = open();
    EXPECT_EQ(value_of(ctx.get(), "p.@t[1999].n"), "1999");
    EXPECT_EQ(value_of(ctx.get(), "p.last.long").size(), 1u << 20);
}

TEST_F(parser, import_takes_packages_apart_and_merges_into_a_loaded_one)
{
    context ctx = open();
    std::string text = "package one\nconfig t a\npackage two\nconfig t b\n\toption x 1\n";
    FILE *stream = fmemopen(text.data(), text.size(), "r");
    uci_package *last = nullptr;
    EXPECT_EQ(uci_import(ctx.get(), stream, nullptr, &last, false), UCI_OK);
    fclose(stream);
    ASSERT_NE(last, nullptr);
    EXPECT_STREQ(last->e.name, "two");
    EXPECT_EQ(value_of(ctx.get(), "two.b.x"), "1");
    EXPECT_EQ(uci_commit(ctx.get(), &last, true), UCI_OK);
    EXPECT_EQ(read_text(conf("two")), "\nconfig t 'b'\n\toption x '1'\n\n");
    EXPECT_FALSE(exists(conf("one")));

    std::string more = "config t b\n\toption x 2\n\tlist l 3\n";
    stream = fmemopen(more.data(), more.size(), "r");
    EXPECT_EQ(uci_import(ctx.get(), stream, "two", &last, true), UCI_OK);
    fclose(stream);
    EXPECT_EQ(uci_save(ctx.get(), last), UCI_OK);
    EXPECT_EQ(read_text(save("two")), "two.b.x='2'\n|two.b.l='3'\n");
}

TEST_F(parser, an_import_without_any_package_name_is_refused)
{
    context ctx = open();
    std::string text = "config t a\n";
    FILE *stream = fmemopen(text.data(), text.size(), "r");
    uci_package *last = nullptr;
    EXPECT_EQ(uci_import(ctx.get(), stream, nullptr, &last, false), UCI_ERR_PARSE);
    fclose(stream);
    EXPECT_EQ(error_text(ctx.get()),
              "Parse error (attempting to import a file without a package name) at line 1, byte 0");
    EXPECT_EQ(last, nullptr);
    EXPECT_TRUE(uci_list_empty(&ctx->root));
}

} // namespace
