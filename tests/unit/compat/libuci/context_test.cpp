// SPDX-License-Identifier: MIT
// Contexts: loading, directories, errors, and independence of each other.
#include "place.h"
#include "tests/unit/support/own_place.h"

#include <atomic>
#include <filesystem>
#include <sys/stat.h>
#include <thread>
#include <unistd.h>

namespace fs = std::filesystem;

extern "C" int count_options_from_c(const char *confdir, const char *savedir, const char *name);

namespace {

class contexts : public place {
protected:
    contexts()
    {
        write_conf("net", "config t 'a'\n\toption x '1'\n");
        ctx_ = open();
    }

    int load(const std::string &name)
    {
        uci_package *const before = reinterpret_cast<uci_package *>(this);
        package_ = before;
        int rc = uci_load(ctx_.get(), name.c_str(), &package_);
        if (rc != UCI_OK) {
            EXPECT_EQ(package_, before) << "left untouched by a failure";
        }
        return rc;
    }

    context ctx_;
    uci_package *package_ = nullptr;
};

TEST_F(contexts, start_strict_with_the_usual_directories)
{
    context fresh(uci_alloc_context());
    EXPECT_EQ(fresh->flags, 9);
    EXPECT_STREQ(fresh->confdir, "/etc/config");
    EXPECT_STREQ(fresh->savedir, "/tmp/.uci");
    EXPECT_STREQ(fresh->conf2dir, "/var/run/uci");
    EXPECT_TRUE(uci_list_empty(&fresh->root));
    uci_free_context(nullptr);
}

TEST_F(contexts, copy_the_names_of_directories_and_do_not_check_them)
{
    std::string name = "/nowhere/at/all";
    EXPECT_EQ(uci_set_confdir(ctx_.get(), name.c_str()), UCI_OK);
    EXPECT_NE(ctx_->confdir, name.c_str());
    EXPECT_EQ(uci_set_conf2dir(ctx_.get(), name.c_str()), UCI_OK);
    EXPECT_EQ(uci_set_confdir(ctx_.get(), nullptr), UCI_ERR_INVAL);
    EXPECT_EQ(uci_set_savedir(nullptr, "/x"), UCI_ERR_INVAL);
    EXPECT_EQ(load("net"), UCI_ERR_NOTFOUND);
}

TEST_F(contexts, load_regular_files_only)
{
    fs::create_directory(conf("dir"));
    ASSERT_EQ(mkfifo(conf("fifo").c_str(), 0600), 0);
    fs::create_symlink(conf("net"), conf("link"));
    fs::create_symlink(conf("nosuch"), conf("dangling"));
    EXPECT_EQ(load("nosuch"), UCI_ERR_NOTFOUND);
    EXPECT_EQ(load("dir"), UCI_ERR_NOTFOUND);
    EXPECT_EQ(load("fifo"), UCI_ERR_NOTFOUND);
    EXPECT_EQ(load("dangling"), UCI_ERR_NOTFOUND);
    EXPECT_EQ(load(""), UCI_ERR_INVAL);
    EXPECT_EQ(load("a b"), UCI_ERR_INVAL);
    EXPECT_EQ(load("../conf/net"), UCI_ERR_INVAL);
    EXPECT_EQ(uci_load(ctx_.get(), nullptr, nullptr), UCI_ERR_INVAL);
    EXPECT_EQ(load("link"), UCI_OK);
    EXPECT_STREQ(package_->e.name, "link");
    EXPECT_EQ(package_->ctx, ctx_.get());
    EXPECT_TRUE(package_->has_delta);
    EXPECT_FALSE(package_->uses_conf2);
}

TEST_F(contexts, cannot_load_what_they_may_not_read)
{
    NEEDS_OTHER_USERS();
    ASSERT_EQ(chmod(root().c_str(), 0711), 0);
    ASSERT_EQ(chmod(conf("net").c_str(), 0600), 0);
    constexpr uid_t nobody = 65534;
    ASSERT_EQ(seteuid(nobody), 0);
    int rc = load("net");
    ASSERT_EQ(seteuid(0), 0);
    EXPECT_EQ(rc, UCI_ERR_IO);
}

TEST_F(contexts, load_a_package_once)
{
    EXPECT_EQ(load("net"), UCI_OK);
    uci_package *first = package_;
    EXPECT_EQ(load("net"), UCI_ERR_DUPLICATE);
    EXPECT_EQ(uci_unload(ctx_.get(), first), UCI_OK);
    EXPECT_EQ(uci_load(ctx_.get(), "net", nullptr), UCI_OK);
    EXPECT_EQ(uci_unload(ctx_.get(), nullptr), UCI_ERR_INVAL);
    EXPECT_EQ(uci_save(ctx_.get(), nullptr), UCI_ERR_INVAL);
    uci_package *none = nullptr;
    EXPECT_EQ(uci_commit(ctx_.get(), &none, false), UCI_ERR_INVAL);
    EXPECT_EQ(uci_commit(ctx_.get(), nullptr, false), UCI_ERR_INVAL);
}

TEST_F(contexts, keep_a_snapshot_until_it_is_unloaded)
{
    EXPECT_EQ(value_of(ctx_.get(), "net.a.x"), "1");
    write_conf("net", "config t 'a'\n\toption x '2'\n");
    EXPECT_EQ(value_of(ctx_.get(), "net.a.x"), "1");
    tuple net(ctx_.get(), "net");
    EXPECT_EQ(uci_unload(ctx_.get(), net.ptr.p), UCI_OK);
    EXPECT_EQ(value_of(ctx_.get(), "net.a.x"), "2");
}

TEST_F(contexts, refuse_a_malformed_file_and_leave_it_alone)
{
    const std::string text = "config t 'a'\n\toption x 'oops\n";
    write_conf("bad", text);
    EXPECT_EQ(load("bad"), UCI_ERR_PARSE);
    EXPECT_EQ(error_text(ctx_.get(), "bad"), "bad: Parse error (EOF with unterminated ') at line 2, byte 16");
    EXPECT_EQ(read_text(conf("bad")), text);
    EXPECT_EQ(load("net"), UCI_OK);
}

TEST_F(contexts, prefer_the_override_directory)
{
    fs::create_directory(root() + "/over");
    write_text(root() + "/over/net", "config t 'a'\n\toption x 'over'\n");
    EXPECT_EQ(uci_set_conf2dir(ctx_.get(), (root() + "/over").c_str()), UCI_OK);
    tuple x(ctx_.get(), "net.a.x=new");
    ASSERT_NE(x.ptr.o, nullptr);
    EXPECT_STREQ(x.ptr.o->v.string, "over");
    EXPECT_TRUE(x.ptr.p->uses_conf2);
    EXPECT_EQ(uci_set(ctx_.get(), &x.ptr), UCI_OK);
    EXPECT_EQ(uci_commit(ctx_.get(), &x.ptr.p, false), UCI_OK);
    EXPECT_TRUE(x.ptr.p->uses_conf2);
    EXPECT_EQ(read_text(root() + "/over/net"), "\nconfig t 'a'\n\toption x 'new'\n\n");
    EXPECT_EQ(read_text(conf("net")), "config t 'a'\n\toption x '1'\n");
}

TEST_F(contexts, load_a_path_and_save_straight_into_it)
{
    EXPECT_EQ(load(conf("net")), UCI_OK);
    EXPECT_FALSE(package_->has_delta);
    EXPECT_EQ(edit(ctx_.get(), uci_set, "net.a.x=direct"), UCI_OK);
    EXPECT_EQ(uci_save(ctx_.get(), package_), UCI_OK);
    EXPECT_EQ(read_text(conf("net")), "\nconfig t 'a'\n\toption x 'direct'\n\n");
    EXPECT_FALSE(exists(save()));
    EXPECT_EQ(load("/nowhere/net2"), UCI_ERR_NOTFOUND);
}

TEST_F(contexts, list_the_configurations_in_order)
{
    for (const char *name : {"z", "b-c", "has.dot", ".hidden", "sp ace", "A"})
        write_conf(name, "");
    fs::create_directory(conf("dir"));
    char **names = nullptr;
    ASSERT_EQ(uci_list_configs(ctx_.get(), &names), UCI_OK);
    std::string seen;
    for (char **name = names; *name != nullptr; ++name)
        seen += std::string(*name) + " ";
    free(names);
    EXPECT_EQ(seen, "A b-c net z ");
}

TEST_F(contexts, tell_their_last_error)
{
    EXPECT_EQ(error_text(ctx_.get()), "Success");
    EXPECT_EQ(load("nosuch"), UCI_ERR_NOTFOUND);
    EXPECT_EQ(error_text(ctx_.get()), "Entry not found");
    EXPECT_EQ(error_text(ctx_.get(), "p"), "p: Entry not found");
    EXPECT_EQ(error_text(ctx_.get(), ""), ": Entry not found");
    EXPECT_EQ(error_text(nullptr, "p"), "p: Invalid argument");
    const char *const texts[] = {"Success",   "Out of memory", "Invalid argument", "Entry not found",
                                 "I/O error", "Parse error",   "Duplicate entry",  "Unknown error"};
    for (int code = 0; code < UCI_ERR_LAST; ++code) {
        ctx_->err = code;
        EXPECT_EQ(error_text(ctx_.get()), texts[code]);
    }
    for (int code : {-1, 8, 1000}) {
        ctx_->err = code;
        EXPECT_EQ(error_text(ctx_.get()), "Unknown error");
    }
}

TEST_F(contexts, forget_the_place_of_an_error_with_the_error)
{
    write_conf("bad", "bogus\n");
    EXPECT_EQ(load("bad"), UCI_ERR_PARSE);
    EXPECT_EQ(error_text(ctx_.get()), "Parse error (invalid command) at line 1, byte 0");
    EXPECT_EQ(load("nosuch"), UCI_ERR_NOTFOUND);
    EXPECT_EQ(error_text(ctx_.get()), "Entry not found");
    EXPECT_EQ(tuple(ctx_.get(), "net.a.b.c").rc, UCI_ERR_PARSE);
    EXPECT_EQ(error_text(ctx_.get()), "Parse error") << "a tuple has no lines";
}

TEST_F(contexts, are_independent_of_each_other)
{
    context other = open();
    EXPECT_EQ(edit(ctx_.get(), uci_set, "net.a.x=mine"), UCI_OK);
    EXPECT_EQ(value_of(other.get(), "net.a.x"), "1");
    EXPECT_EQ(value_of(ctx_.get(), "net.a.x"), "mine");
}

TEST_F(contexts, serve_a_program_in_c)
{
    write_conf("net", "config t 'a'\n\toption x '1'\nconfig t\n\tlist l 'p'\n\tlist l 'q'\n\toption y '2'\n");
    EXPECT_EQ(count_options_from_c(conf().c_str(), save().c_str(), "net"), 4);
    EXPECT_EQ(count_options_from_c(conf().c_str(), save().c_str(), "nosuch"), -UCI_ERR_NOTFOUND);
}

TEST_F(contexts, serve_one_thread_each)
{
    constexpr int thread_count = 4;
    constexpr int rounds = 300;
    write_conf("bad", "bogus\n");
    std::atomic<int> good{0};
    std::vector<std::thread> threads;
    for (int i = 0; i < thread_count; ++i) {
        threads.emplace_back([this, &good] {
            for (int round = 0; round < rounds; ++round) {
                context ctx = open();
                char text[] = "net.a.x";
                char bad[] = "bad";
                uci_ptr ptr = {};
                bool found = uci_lookup_ptr(ctx.get(), &ptr, text, true) == UCI_OK && ptr.o != nullptr;
                bool told = uci_lookup_ptr(ctx.get(), &ptr, bad, true) == UCI_ERR_PARSE &&
                            error_text(ctx.get()) == "Parse error (invalid command) at line 1, byte 0";
                good += found && told ? 1 : 0;
            }
        });
    }
    for (std::thread &thread : threads)
        thread.join();
    EXPECT_EQ(good, thread_count * rounds);
}

} // namespace
