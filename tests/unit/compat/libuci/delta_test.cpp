// SPDX-License-Identifier: MIT
// Waiting changes: written, read, dropped, and taken from several directories.
#include "place.h"

#include <filesystem>
#include <fstream>
#include <sys/stat.h>
#include <unistd.h>

namespace {

class waiting_changes : public place {
protected:
    waiting_changes()
    {
        write_conf("net", "config t 'a'\n\toption x '1'\n\tlist l 'p'\n");
        ctx_ = open();
    }

    std::string loaded_with(const std::string &delta)
    {
        write_save("net", delta);
        context ctx = open();
        return exported(ctx.get(), "net");
    }

    context ctx_;
};

const std::string untouched = "\nconfig t 'a'\n\toption x '1'\n\tlist l 'p'\n\n";

TEST_F(waiting_changes, are_appended_with_the_mode_of_their_file_in_a_folder_with_that_of_the_configuration)
{
    ASSERT_EQ(chmod(conf().c_str(), 0711), 0);
    ASSERT_EQ(chmod(conf("net").c_str(), 0640), 0);
    EXPECT_EQ(edit(ctx_.get(), uci_set, "net.a.x=it's"), UCI_OK);
    tuple net(ctx_.get(), "net");
    EXPECT_EQ(uci_save(ctx_.get(), net.ptr.p), UCI_OK);
    EXPECT_EQ(uci_save(ctx_.get(), net.ptr.p), UCI_OK) << "saved once only";
    EXPECT_EQ(read_text(save("net")), "net.a.x='it'\\''s'\n");
    struct stat file = {}, directory = {};
    ASSERT_EQ(stat(save("net").c_str(), &file), 0);
    ASSERT_EQ(stat(save().c_str(), &directory), 0);
    EXPECT_EQ(file.st_mode & 0777, 0640u);
    EXPECT_EQ(directory.st_mode & 0777, 0711u);
}

TEST_F(waiting_changes, cannot_be_saved_where_no_directory_can_be_made)
{
    uci_set_savedir(ctx_.get(), (conf("net") + "/below").c_str());
    EXPECT_EQ(edit(ctx_.get(), uci_set, "net.a.x=2"), UCI_OK);
    tuple net(ctx_.get(), "net");
    EXPECT_EQ(uci_save(ctx_.get(), net.ptr.p), UCI_ERR_IO);
    EXPECT_EQ(uci_commit(ctx_.get(), &net.ptr.p, false), UCI_ERR_IO);
    EXPECT_EQ(read_text(conf("net")), "config t 'a'\n\toption x '1'\n\tlist l 'p'\n");
    uci_set_savedir(ctx_.get(), (root() + "/two/levels").c_str());
    EXPECT_EQ(uci_save(ctx_.get(), net.ptr.p), UCI_ERR_IO);
    uci_set_savedir(ctx_.get(), save().c_str());
    EXPECT_EQ(uci_save(ctx_.get(), net.ptr.p), UCI_OK) << "nothing was lost on the way";
    EXPECT_EQ(read_text(save("net")), "net.a.x='2'\n");
}

TEST_F(waiting_changes, are_part_of_what_is_loaded)
{
    EXPECT_EQ(loaded_with("net.a.x='two\nlines'\n|net.a.l='q'\n~net.a.l='p'\n+net.cfg02ffff='u'\n"),
              "\nconfig t 'a'\n\toption x 'two\nlines'\n\tlist l 'q'\n\nconfig u\n\n");
    EXPECT_EQ(loaded_with("-net.a.l='0'\n-net.a.x\n"), "\nconfig t 'a'\n\n");
    EXPECT_EQ(loaded_with("-net.a\nnet.b='t'\n"), "\nconfig t 'b'\n\n");
    EXPECT_EQ(loaded_with("net.b='t'\n^net.b='0'\n@net.a='c'\n"),
              "\nconfig t 'b'\n\nconfig t 'c'\n\toption x '1'\n\tlist l 'p'\n\n");
}

TEST_F(waiting_changes, that_make_no_sense_are_skipped)
{
    for (const char *line : {"bogus",
                             "net",
                             "net.a",
                             "net.a.x",
                             "other.a.x='2'",
                             "net.a.x='2' more",
                             "net.bad-name='t'",
                             "net.a.bad-name='2'",
                             "+net.b.c='t'",
                             "|net.a='x'",
                             "~net.a='x'",
                             "@net.a='bad-name'",
                             "@net.a.x",
                             "^net.a.x='1'",
                             "^net.a='first'",
                             "-net.a.l='x'",
                             "net.a.b.c='1'",
                             "=",
                             ".",
                             "-",
                             "+net.cfg02ffff='bad type'",
                             "net.b='bad type'",
                             "net.nosuch.x='1'",
                             "-net.nosuch",
                             "",
                             "# comment",
                             "+net.a='u'",
                             "@net.nosuch='x'",
                             "net.a.x='open"})
        EXPECT_EQ(loaded_with(std::string(line) + "\n"), untouched) << line;
    EXPECT_EQ(loaded_with("net.a.x='\n"), untouched);
}

TEST_F(waiting_changes, survive_every_truncation_of_their_file)
{
    std::string whole =
        "net.a.x='it'\\''s\nlong'\n-net.a.l='0'\n+net.cfg02ffff='u'\n|net.a.m='i'\n@net.a='c'\n^net.c='9'\n";
    std::string last;
    for (size_t length = 0; length <= whole.size(); ++length) {
        last = loaded_with(whole.substr(0, length));
        EXPECT_EQ(last.find("\nconfig "), 0u) << length;
    }
    EXPECT_EQ(last, "\nconfig u\n\nconfig t 'c'\n\toption x 'it'\\''s\nlong'\n\tlist m 'i'\n\n");
}

TEST_F(waiting_changes, are_not_swallowed_by_a_damaged_line_before_them)
{
    for (const char *damaged : {"net.a.x='op", "-net.a", "net.a.x", "\"", "net.a.y='9'", "net.a.y='8'\n"}) {
        write_save("net", std::string("net.a.x='early'\n") + damaged);
        context ctx = open();
        EXPECT_EQ(edit(ctx.get(), uci_add_list, "net.a.l=late"), UCI_OK);
        tuple net(ctx.get(), "net");
        EXPECT_EQ(uci_save(ctx.get(), net.ptr.p), UCI_OK);
        context again = open();
        EXPECT_EQ(value_of(again.get(), "net.a.l"), "p|late|") << damaged;
        EXPECT_EQ(value_of(again.get(), "net.a.x"), "early") << damaged;
    }
    EXPECT_EQ(loaded_with("net.a.y='9'"), "\nconfig t 'a'\n\toption x '1'\n\tlist l 'p'\n\toption y '9'\n\n");
}

TEST_F(waiting_changes, are_remembered_unless_the_context_does_not_want_them)
{
    write_save("net", "net.a.x='2'\n-net.a.l\n");
    tuple net(ctx_.get(), "net");
    std::string seen;
    uci_element *e = nullptr;
    uci_foreach_element(&net.ptr.p->saved_delta, e)
    {
        EXPECT_EQ(e->type, UCI_TYPE_DELTA);
        uci_delta *delta = uci_to_delta(e);
        seen += std::to_string(delta->cmd) + delta->section + "." + e->name + (delta->value ? delta->value : "-") + " ";
    }
    EXPECT_EQ(seen, "2a.x2 1a.l- ");

    context other = open();
    other->flags = UCI_FLAG_STRICT;
    tuple again(other.get(), "net");
    EXPECT_TRUE(uci_list_empty(&again.ptr.p->saved_delta));
    EXPECT_EQ(value_of(other.get(), "net.a.x"), "2");
}

TEST_F(waiting_changes, are_reverted_by_option_section_or_package)
{
    const std::string all = "net.a.x='2'\nbogus\nnet.b='t'\nnet.b.x='multi\nline'\n|net.a.l='q'\n";
    auto left_after = [&](const std::string &str) {
        write_save("net", all);
        context ctx = open();
        tuple t(ctx.get(), str);
        EXPECT_EQ(uci_revert(ctx.get(), &t.ptr), UCI_OK);
        EXPECT_NE(t.ptr.p, nullptr);
        return read_text(save("net"));
    };
    EXPECT_EQ(left_after("net.a.x"), "bogus\nnet.b='t'\nnet.b.x='multi\nline'\n|net.a.l='q'\n");
    EXPECT_EQ(left_after("net.b"), "net.a.x='2'\nbogus\n|net.a.l='q'\n");
    EXPECT_EQ(left_after("net"), "bogus\n");
    EXPECT_EQ(left_after("net.nosuch"), all);
}

TEST_F(waiting_changes, that_were_reverted_are_gone_from_memory_too)
{
    EXPECT_EQ(edit(ctx_.get(), uci_set, "net.a.x=2"), UCI_OK);
    EXPECT_EQ(edit(ctx_.get(), uci_add_list, "net.a.l=q"), UCI_OK);
    tuple t(ctx_.get(), "net.a.x");
    EXPECT_EQ(uci_revert(ctx_.get(), &t.ptr), UCI_OK);
    EXPECT_EQ(value_of(ctx_.get(), "net.a.x"), "1");
    EXPECT_EQ(value_of(ctx_.get(), "net.a.l"), "p|q|") << "the other change was saved meanwhile";
    EXPECT_EQ(read_text(save("net")), "|net.a.l='q'\n");
}

TEST_F(waiting_changes, in_the_default_directory_are_read_and_committed_but_not_emptied)
{
    std::filesystem::create_directory(UCI_SAVEDIR);
    write_text(UCI_SAVEDIR "/net", "net.a.x='left over'\nnet.a.y='early'\n");
    write_save("net", "net.a.y='late'\n");
    EXPECT_EQ(value_of(ctx_.get(), "net.a.x"), "left over");
    EXPECT_EQ(value_of(ctx_.get(), "net.a.y"), "late") << "the save directory comes last";
    tuple net(ctx_.get(), "net");
    EXPECT_EQ(uci_commit(ctx_.get(), &net.ptr.p, false), UCI_OK);
    EXPECT_EQ(read_text(UCI_SAVEDIR "/net"), "net.a.x='left over'\nnet.a.y='early'\n");
    EXPECT_EQ(read_text(save("net")), "");
    std::filesystem::remove_all(UCI_SAVEDIR);
    EXPECT_EQ(read_text(conf("net")), "\nconfig t 'a'\n\toption x 'left over'\n\tlist l 'p'\n\toption y 'late'\n\n");
}

TEST_F(waiting_changes, of_further_directories_come_before_those_of_the_save_directory)
{
    std::filesystem::create_directory(root() + "/more");
    write_text(root() + "/more/net", "net.a.x='more'\nnet.a.y='more'\n");
    write_save("net", "net.a.x='saved'\n");
    EXPECT_EQ(uci_add_delta_path(ctx_.get(), (root() + "/more").c_str()), UCI_OK);
    EXPECT_EQ(uci_add_delta_path(ctx_.get(), nullptr), UCI_ERR_INVAL);
    EXPECT_EQ(value_of(ctx_.get(), "net.a.x"), "saved");
    EXPECT_EQ(value_of(ctx_.get(), "net.a.y"), "more");
}

// Waiting for a lock of its own would last for ever.
TEST_F(waiting_changes, of_a_save_directory_known_by_two_names_count_once)
{
    constexpr unsigned int patience_s = 10;
    std::filesystem::create_directory(save());
    std::filesystem::create_directory_symlink(save(), root() + "/alias");
    for (const std::string &other_name : {save() + "/", root() + "/alias"}) {
        context ctx = open();
        EXPECT_EQ(uci_add_delta_path(ctx.get(), other_name.c_str()), UCI_OK);
        write_conf("net", "config t 'a'\n\tlist l 'p'\n");
        write_save("net", "|net.a.l='q'\n");
        EXPECT_EQ(value_of(ctx.get(), "net.a.l"), "p|q|") << other_name;
        tuple net(ctx.get(), "net");
        alarm(patience_s);
        EXPECT_EQ(uci_commit(ctx.get(), &net.ptr.p, false), UCI_OK);
        alarm(0);
        EXPECT_EQ(read_text(conf("net")), "\nconfig t 'a'\n\tlist l 'p'\n\tlist l 'q'\n\n") << other_name;
        EXPECT_EQ(read_text(save("net")), "");
    }
}

} // namespace
