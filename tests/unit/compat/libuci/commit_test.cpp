// SPDX-License-Identifier: MIT
// Commits: what is written, how, and what stays when they cannot be carried out.
#include "place.h"

#include <fcntl.h>
#include <filesystem>
#include <fstream>
#include <sys/mount.h>
#include <sys/stat.h>
#include <unistd.h>

namespace fs = std::filesystem;

namespace {

const std::string before = "# comment\nconfig t 'a'\n\toption x 1\n";
const std::string after = "\nconfig t 'a'\n\toption x '2'\n\n";

class committing : public place {
protected:
    committing()
    {
        write_conf("net", before);
        ctx_ = open();
    }

    int set(const std::string &str) { return edit(ctx_.get(), uci_set, str); }

    int commit(bool overwrite = false)
    {
        tuple net(ctx_.get(), "net");
        EXPECT_EQ(net.rc, UCI_OK);
        return uci_commit(ctx_.get(), &net.ptr.p, overwrite);
    }

    ino_t inode() const
    {
        struct stat file = {};
        EXPECT_EQ(stat(conf("net").c_str(), &file), 0);
        return file.st_ino;
    }

    context ctx_;
};

TEST_F(committing, writes_the_file_anew_and_empties_the_waiting_changes)
{
    EXPECT_EQ(set("net.a.x=2"), UCI_OK);
    EXPECT_EQ(commit(), UCI_OK);
    EXPECT_EQ(read_text(conf("net")), after);
    EXPECT_TRUE(exists(save("net")));
    EXPECT_EQ(read_text(save("net")), "");
    EXPECT_EQ(files_of(conf()).size(), 1u) << "no temporary file stays";
}

TEST_F(committing, leaves_the_file_alone_without_a_change)
{
    ino_t old = inode();
    EXPECT_EQ(set("net.a.x=1"), UCI_OK);
    EXPECT_EQ(commit(), UCI_OK);
    EXPECT_EQ(read_text(conf("net")), before);
    EXPECT_EQ(inode(), old);
}

TEST_F(committing, hands_out_the_package_as_it_is_now)
{
    tuple x(ctx_.get(), "net.a.x=2");
    EXPECT_EQ(uci_set(ctx_.get(), &x.ptr), UCI_OK);
    // Someone else changes the file and saves a change of his own meanwhile.
    write_conf("net", "config t 'a'\n\toption x 1\n\toption y 1\n");
    EXPECT_EQ(uci("set net.a.z=3").status, 0);
    uci_package *package = x.ptr.p;
    EXPECT_EQ(uci_commit(ctx_.get(), &package, false), UCI_OK);
    EXPECT_EQ(read_text(conf("net")), "\nconfig t 'a'\n\toption x '2'\n\toption y '1'\n\toption z '3'\n\n");
    EXPECT_EQ(value_of(ctx_.get(), "net.a.z"), "3");
    tuple net(ctx_.get(), "net");
    EXPECT_EQ(net.ptr.p, package);
    EXPECT_EQ(ctx_->root.next, ctx_->root.prev) << "once in the context";
}

TEST_F(committing, with_overwrite_writes_saved_changes_only)
{
    EXPECT_EQ(set("net.a.x=2"), UCI_OK);
    EXPECT_EQ(commit(true), UCI_OK);
    EXPECT_EQ(read_text(conf("net")), before);
    tuple net(ctx_.get(), "net");
    EXPECT_EQ(uci_save(ctx_.get(), net.ptr.p), UCI_OK);
    EXPECT_EQ(commit(true), UCI_OK);
    EXPECT_EQ(read_text(conf("net")), after);
    EXPECT_EQ(read_text(save("net")), "") << "or they would be made twice";
}

TEST_F(committing, keeps_the_mode_of_the_file)
{
    for (mode_t mode : {0600u, 0644u, 0440u}) {
        ASSERT_EQ(chmod(conf("net").c_str(), mode), 0);
        EXPECT_EQ(set("net.a.x=mode" + std::to_string(mode)), UCI_OK);
        EXPECT_EQ(commit(), UCI_OK);
        struct stat file = {};
        ASSERT_EQ(stat(conf("net").c_str(), &file), 0);
        EXPECT_EQ(file.st_mode & 07777, mode);
    }
}

TEST_F(committing, follows_a_symbolic_link)
{
    fs::create_directory(root() + "/real");
    fs::rename(conf("net"), root() + "/real/file");
    fs::create_symlink("../real/file", conf("net"));
    EXPECT_EQ(set("net.a.x=2"), UCI_OK);
    EXPECT_EQ(commit(), UCI_OK);
    EXPECT_TRUE(fs::is_symlink(conf("net")));
    EXPECT_EQ(read_text(root() + "/real/file"), after);
    EXPECT_EQ(files_of(root() + "/real").size(), 1u);
}

TEST_F(committing, makes_a_missing_file_for_its_owner_only)
{
    std::string text = "config t a\n";
    FILE *stream = fmemopen(text.data(), text.size(), "r");
    uci_package *package = nullptr;
    ASSERT_EQ(uci_import(ctx_.get(), stream, "fresh", &package, true), UCI_OK);
    fclose(stream);
    EXPECT_EQ(uci_commit(ctx_.get(), &package, true), UCI_OK);
    struct stat file = {};
    ASSERT_EQ(stat(conf("fresh").c_str(), &file), 0);
    EXPECT_EQ(file.st_mode & 07777, static_cast<mode_t>(UCI_FILEMODE));
    EXPECT_EQ(read_text(conf("fresh")), "\nconfig t 'a'\n\n");
}

TEST_F(committing, refuses_a_file_that_became_malformed_and_changes_nothing)
{
    EXPECT_EQ(set("net.a.x=2"), UCI_OK);
    write_conf("net", "config t 'a\n");
    EXPECT_EQ(commit(), UCI_ERR_PARSE);
    EXPECT_EQ(error_text(ctx_.get()), "Parse error (EOF with unterminated ') at line 1, byte 12");
    EXPECT_EQ(read_text(conf("net")), "config t 'a\n");
    EXPECT_EQ(read_text(save("net")), "net.a.x='2'\n");
    EXPECT_EQ(value_of(ctx_.get(), "net.a.x"), "2") << "the package in memory is still good";
    write_conf("net", before);
    EXPECT_EQ(commit(), UCI_OK);
    EXPECT_EQ(read_text(conf("net")), after);
}

// A tmpfs of a few pages in the place of the configuration directory.
class on_a_small_disk : public committing {
protected:
    on_a_small_disk()
    {
        EXPECT_EQ(mount("tmpfs", conf().c_str(), "tmpfs", 0, "size=64k"), 0);
        write_conf("net", before);
    }
    ~on_a_small_disk() override { EXPECT_EQ(umount(conf().c_str()), 0); }

    void fill() const
    {
        std::ofstream file(conf("ballast"), std::ios::binary);
        const std::string page(4096, 'x');
        while (file << page << std::flush) {
        }
    }
};

TEST_F(on_a_small_disk, a_full_disk_keeps_file_and_changes)
{
    EXPECT_EQ(set("net.a.x=2"), UCI_OK);
    fill();
    EXPECT_EQ(commit(), UCI_ERR_IO);
    EXPECT_EQ(error_text(ctx_.get()), "I/O error");
    EXPECT_EQ(read_text(conf("net")), before);
    EXPECT_EQ(read_text(save("net")), "net.a.x='2'\n");
    EXPECT_EQ(files_of(conf()).size(), 2u) << "no temporary file stays";
    fs::remove(conf("ballast"));
    EXPECT_EQ(commit(), UCI_OK);
    EXPECT_EQ(read_text(conf("net")), after);
}

TEST_F(on_a_small_disk, a_package_that_cannot_be_written_leaves_no_file)
{
    fill();
    std::string text = "config t a\n\toption x '" + std::string(100000, 'y') + "'\n";
    FILE *stream = fmemopen(text.data(), text.size(), "r");
    uci_package *package = nullptr;
    ASSERT_EQ(uci_import(ctx_.get(), stream, "fresh", &package, true), UCI_OK);
    fclose(stream);
    EXPECT_EQ(uci_commit(ctx_.get(), &package, true), UCI_ERR_IO);
    EXPECT_FALSE(exists(conf("fresh")));
}

TEST_F(on_a_small_disk, a_full_save_directory_takes_no_half_change)
{
    uci_set_savedir(ctx_.get(), conf().c_str());
    write_conf("other", "config t 'a'\n");
    uci_set_confdir(ctx_.get(), root().c_str());
    write_text(root() + "/net", before);
    write_conf("net", "net.a.y='1'\n");
    fill();
    EXPECT_EQ(set("net.a.x=" + std::string(10000, 'v')), UCI_OK);
    tuple net(ctx_.get(), "net");
    EXPECT_EQ(uci_save(ctx_.get(), net.ptr.p), UCI_ERR_IO);
    EXPECT_EQ(read_text(conf("net")), "net.a.y='1'\n");
    fs::remove(conf("ballast"));
    EXPECT_EQ(uci_save(ctx_.get(), net.ptr.p), UCI_OK);
    EXPECT_EQ(read_text(conf("net")).size(), 10000u + 12 + 11);
}

TEST_F(on_a_small_disk, a_read_only_disk_keeps_everything)
{
    EXPECT_EQ(set("net.a.x=2"), UCI_OK);
    ASSERT_EQ(mount(nullptr, conf().c_str(), nullptr, MS_REMOUNT | MS_RDONLY, nullptr), 0);
    EXPECT_EQ(commit(), UCI_ERR_IO);
    EXPECT_EQ(uci("commit net").err, "uci: I/O error\n");
    ASSERT_EQ(mount(nullptr, conf().c_str(), nullptr, MS_REMOUNT, nullptr), 0);
    EXPECT_EQ(read_text(conf("net")), before);
    EXPECT_EQ(commit(), UCI_OK);
    EXPECT_EQ(read_text(conf("net")), after);
}

} // namespace
