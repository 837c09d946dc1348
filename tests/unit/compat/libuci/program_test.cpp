// SPDX-License-Identifier: MIT
// The program uci, where the recorded sessions leave it open.
#include "place.h"
#include "tests/unit/support/this_build.h"

#include <filesystem>

namespace {

class program : public place {
protected:
    program() { write_conf("net", "config t 'a'\n\toption x 'one two'\n\tlist l 'p q'\n\tlist l 'r'\n"); }
};

TEST_F(program, without_a_command_it_tells_how_it_is_used)
{
    outcome got = uci("");
    EXPECT_EQ(got.status, 0);
    EXPECT_EQ(got.out, "");
    EXPECT_EQ(got.err.find("usage: uci "), 0u);
}

TEST_F(program, a_wrong_number_of_arguments_is_told)
{
    for (const char *arguments : {"get", "get a b", "set", "add net", "delete", "add_list", "del_list", "revert",
                                  "rename", "reorder", "show a b", "commit a b", "batch a", "bogus", "-Z show"}) {
        outcome got = uci(arguments);
        EXPECT_EQ(got.status, 255) << arguments;
        EXPECT_NE(got.err.find("usage: "), std::string::npos) << arguments;
    }
}

TEST_F(program, items_with_white_space_are_quoted_when_a_list_is_read)
{
    EXPECT_EQ(uci("get net.a.l").out, "'p q' r\n");
    EXPECT_EQ(uci("get net.a.x").out, "one two\n");
}

TEST_F(program, the_short_names_of_commands_work)
{
    EXPECT_EQ(uci("ren net.a.x=y").status, 0);
    EXPECT_EQ(uci("del net.a.l").status, 0);
    EXPECT_EQ(uci("changes").out, "net.a.x='y'\n-net.a.l\n");
}

TEST_F(program, quiet_means_no_message)
{
    outcome got = uci("-q get net.a.nosuch");
    EXPECT_EQ(got.status, 1);
    EXPECT_EQ(got.err, "");
}

TEST_F(program, a_save_directory_given_as_private_is_not_committed)
{
    EXPECT_EQ(uci("-P " + root() + "/private set net.a.x=2").status, 0);
    EXPECT_EQ(uci("-P " + root() + "/private get net.a.x").out, "2\n");
    outcome got = uci("-P " + root() + "/private commit");
    EXPECT_EQ(got.status, 0);
    EXPECT_EQ(read_text(root() + "/private/net"), "net.a.x='2'\n");
    EXPECT_EQ(uci("get net.a.x").out, "one two\n");
    EXPECT_EQ(uci("-p " + root() + "/private get net.a.x").out, "2\n");
}

TEST_F(program, the_override_directory_is_taken_from_the_command_line)
{
    std::filesystem::create_directory(root() + "/over");
    write_text(root() + "/over/net", "config t 'b'\n");
    EXPECT_EQ(uci("-C " + root() + "/over show").out, "net.b=t\n");
}

TEST_F(program, input_comes_from_a_file_if_one_is_named)
{
    write_text(root() + "/in", "package fresh\nconfig u 'b'\npackage more\nconfig v\n");
    EXPECT_EQ(uci("-f " + root() + "/in import").status, 0);
    EXPECT_EQ(uci("show").out, "fresh.b=u\nmore.@v[0]=v\nnet.a=t\nnet.a.x='one two'\nnet.a.l='p q' 'r'\n");
    write_text(root() + "/batch", "set net.a.x=2 # two\n\nget net.a.x\nset net.a.x='open\n");
    outcome got = uci("-f " + root() + "/batch batch");
    EXPECT_EQ(got.status, 0);
    EXPECT_EQ(got.out, "2\n");
    EXPECT_EQ(got.err, "uci: Parse error\n");
    EXPECT_EQ(uci("-f /nosuch batch").err, "uci: I/O error\n");
}

TEST_F(program, a_batch_does_not_run_itself)
{
    write_text(root() + "/batch", "batch\nget net.a.x\n");
    outcome got = uci("-f " + root() + "/batch batch");
    EXPECT_EQ(got.status, 0);
    EXPECT_EQ(got.out, "one two\n");
    EXPECT_EQ(got.err, "Unknown command\n");
}

TEST_F(program, an_import_that_fails_changes_no_file)
{
    auto before = files_of(conf());
    write_text(root() + "/in", "package fresh\nconfig u 'b'\npackage net\nconfig v 'open\n");
    outcome got = uci("-f " + root() + "/in import");
    EXPECT_EQ(got.status, 1);
    EXPECT_EQ(got.err, "uci: Parse error (EOF with unterminated ') at line 4, byte 15\n");
    EXPECT_EQ(files_of(conf()), before);
}

TEST_F(program, output_that_does_not_arrive_is_an_error)
{
    EXPECT_EQ(uci("show net >/dev/full").status, 1);
}

TEST_F(program, a_section_is_moved_to_a_whole_number_only)
{
    for (const char *arguments :
         {"reorder net.a=x", "reorder net.a", "reorder net.a.x=1", "reorder net=1", "reorder net.a="}) {
        outcome got = uci(arguments);
        EXPECT_EQ(got.status, 1) << arguments;
        EXPECT_EQ(got.err, "uci: Invalid argument\n") << arguments;
    }
}

TEST_F(program, every_exported_configuration_can_be_imported_again)
{
    std::string text = uci("export net").out;
    write_text(root() + "/in", text);
    EXPECT_EQ(uci("-f " + root() + "/in import").status, 0);
    EXPECT_EQ(uci("export net").out, text);
}

TEST_F(program, asks_for_no_runtime_library_but_the_c_one)
{
    std::string elf = read_text(BIN_FOLDER + "/uci");
    ASSERT_FALSE(elf.empty());
    if (!product_has_asan() && !product_has_tsan()) {
        EXPECT_EQ(elf.find("libstdc++"), std::string::npos);
    }
}

} // namespace
