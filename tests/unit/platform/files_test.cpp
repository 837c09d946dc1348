// SPDX-License-Identifier: MIT
// Result files.
#include <atomic>
#include <filesystem>
#include <set>
#include <thread>

#include <fcntl.h>
#include <sys/mount.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <gtest/gtest.h>

#include "platform/files.h"
#include "tests/unit/support/own_place.h"
#include "tests/unit/support/sandbox.h"

namespace {

constexpr int ENDED_BEFORE_RENAME = 42;
bool ends_before_rename;

} // namespace

extern "C" int rename(const char *from, const char *to) noexcept
{
    if (ends_before_rename)
        _exit(ENDED_BEFORE_RENAME);
    return static_cast<int>(syscall(SYS_renameat2, AT_FDCWD, from, AT_FDCWD, to, 0));
}

namespace {

const std::string PATH = "/tmp/some_result";
constexpr uid_t NOBODY = 65534;
constexpr size_t RANDOM_LETTERS = 6; // that end a draft's name

std::set<std::string> names_in(const std::string &folder)
{
    std::set<std::string> names;
    for (const auto &entry : std::filesystem::directory_iterator(folder))
        names.insert(entry.path().filename());
    return names;
}

// A result in a folder of its own.
class result_folder : public testing::Test {
protected:
    result_folder() { std::filesystem::create_directory(folder); }
    ~result_folder() override { std::filesystem::remove_all(folder); }
    std::set<std::string> names() const { return names_in(folder); }

    // Name of what a life leaves that ends between a draft and its place.
    std::string draft_left_behind() const
    {
        const pid_t life = fork();
        if (life == 0) {
            ends_before_rename = true;
            write_whole_file(path.c_str(), "eth0");
            _exit(EXIT_SUCCESS);
        }
        int status = -1;
        waitpid(life, &status, 0);
        EXPECT_EQ(WEXITSTATUS(status), ENDED_BEFORE_RENAME);
        return names().empty() ? "" : *names().begin();
    }
    const std::string folder = "/tmp/folder_of_results", path = folder + "/result";
};

} // namespace

TEST(delete_file, removes_the_file_and_says_so)
{
    write_file(PATH, "eth0");
    t_log_capture log;
    delete_file(PATH.c_str());
    EXPECT_FALSE(file_exists(PATH));
    EXPECT_TRUE(log.has("Debug", "delete_file", "file:/tmp/some_result deleted!"));
}

TEST(delete_file, of_a_missing_file_is_only_logged)
{
    t_log_capture log;
    delete_file("/tmp/no_such_file");
    EXPECT_TRUE(log.has("Info", "delete_file", "file:/tmp/no_such_file delete failed!"));
}

TEST(delete_file, leaves_a_folder_alone)
{
    std::filesystem::create_directory("/tmp/a_folder");
    t_log_capture log;
    delete_file("/tmp/a_folder");
    EXPECT_TRUE(file_exists("/tmp/a_folder"));
    EXPECT_TRUE(log.has("Info", "delete_file", "file:/tmp/a_folder delete failed!"));
    std::filesystem::remove("/tmp/a_folder");
}

TEST(write_whole_file, holds_exactly_the_text)
{
    EXPECT_TRUE(write_whole_file(PATH.c_str(), "eth1"));
    EXPECT_EQ(read_file(PATH), "eth1");
}

TEST(write_whole_file, leaves_nothing_of_a_longer_text)
{
    write_file(PATH, "a much longer text than the new one");
    EXPECT_TRUE(write_whole_file(PATH.c_str(), "eth1"));
    EXPECT_EQ(read_file(PATH), "eth1");
}

TEST(write_whole_file, of_an_empty_text_leaves_an_empty_file)
{
    EXPECT_TRUE(write_whole_file(PATH.c_str(), ""));
    EXPECT_TRUE(file_exists(PATH));
    EXPECT_EQ(read_file(PATH), "");
}

TEST(write_whole_file, fails_without_its_folder)
{
    EXPECT_FALSE(write_whole_file("/tmp/no_such_folder/result", "eth1"));
}

// holds: result-place-taken
TEST_F(result_folder, a_folder_in_the_results_place_is_moved_aside_with_what_it_holds)
{
    for (const char *held : {"first", "second"}) {
        std::filesystem::create_directory(path);
        write_file(path + "/" + held, held);
        EXPECT_TRUE(write_whole_file(path.c_str(), "eth1"));
        EXPECT_EQ(read_file(path), "eth1");
        std::filesystem::remove(path);
    }
    std::set<std::string> kept;
    for (const std::string &name : names())
        for (const char *held : {"first", "second"})
            if (file_exists(folder + "/" + name + "/" + held))
                kept.insert(held);
    EXPECT_EQ(kept, (std::set<std::string>{"first", "second"}));
    EXPECT_EQ(names().size(), 2u);
}

// holds: result-place-taken
TEST_F(result_folder, a_folder_that_cannot_be_moved_leaves_no_draft)
{
    std::filesystem::create_directory(path);
    ASSERT_EQ(mount("tmpfs", path.c_str(), "tmpfs", 0, nullptr), 0);
    EXPECT_FALSE(write_whole_file(path.c_str(), "eth1"));
    EXPECT_EQ(names(), std::set<std::string>{"result"});
    umount(path.c_str());
}

// holds: result-file-safe
TEST_F(result_folder, nobody_can_stand_in_the_way_of_a_draft)
{
    std::filesystem::create_directory(path + ".new");
    std::filesystem::create_directory(path + ".draft");
    EXPECT_TRUE(write_whole_file(path.c_str(), "eth1"));
    EXPECT_EQ(names(), (std::set<std::string>{"result", "result.draft", "result.new"}));
}

// holds: result-file-safe
TEST_F(result_folder, everybody_may_read_a_result_and_nobody_else_may_write_it)
{
    for (mode_t mask : {0000, 0077}) {
        const mode_t before = umask(mask);
        EXPECT_TRUE(write_whole_file(path.c_str(), "eth1"));
        umask(before);
        struct stat status = {};
        EXPECT_EQ(stat(path.c_str(), &status), 0);
        EXPECT_EQ(status.st_mode & 07777, 0644u) << mask;
    }
}

// holds: result-drafts
TEST_F(result_folder, drafts_of_lives_that_ended_in_the_middle_do_not_pile_up)
{
    const std::string draft = draft_left_behind();
    ASSERT_GT(draft.size(), RANDOM_LETTERS);
    for (const char *letters : {"aaaaaa", "b0B1c2"})
        write_file(folder + "/" + draft.substr(0, draft.size() - RANDOM_LETTERS) + letters, "eth0");
    ASSERT_EQ(names().size(), 3u);
    EXPECT_TRUE(write_whole_file(path.c_str(), "eth1"));
    EXPECT_EQ(names(), std::set<std::string>{"result"});
}

// holds: result-drafts
TEST_F(result_folder, what_only_looks_like_a_draft_stays)
{
    NEEDS_OTHER_USERS();
    const std::string draft = draft_left_behind();
    ASSERT_GT(draft.size(), RANDOM_LETTERS);
    const std::string strangers = draft.substr(0, draft.size() - RANDOM_LETTERS) + "NOBODY";
    std::filesystem::rename(folder + "/" + draft, folder + "/" + strangers);
    ASSERT_EQ(chown((folder + "/" + strangers).c_str(), NOBODY, NOBODY), 0);
    std::set<std::string> others = {draft + "0", draft.substr(0, draft.size() - 1), "an" + draft, "unlike"};
    for (const std::string &name : others)
        write_file(folder + "/" + name, "");
    const std::string of_a_folder = draft.substr(0, draft.size() - RANDOM_LETTERS) + "FOLDER";
    std::filesystem::create_directory(folder + "/" + of_a_folder);
    EXPECT_TRUE(write_whole_file(path.c_str(), "eth1"));
    others.insert({"result", strangers, of_a_folder});
    EXPECT_EQ(names(), others);
}

TEST(write_whole_file, of_a_path_that_leaves_no_room_for_a_draft_fails)
{
    const std::string folder = "/tmp/" + std::string(200, 'a');
    std::filesystem::create_directory(folder);
    EXPECT_FALSE(write_whole_file((folder + "/" + std::string(50, 'b')).c_str(), "eth1"));
    EXPECT_TRUE(std::filesystem::is_empty(folder));
    std::filesystem::remove(folder);
}

// holds: result-place-taken
TEST_F(result_folder, a_link_in_the_results_place_is_replaced_and_not_followed)
{
    write_file("/tmp/elsewhere", "untouched");
    for (const char *target : {"/tmp/elsewhere", "/tmp/no_such_file", "/tmp"}) {
        std::filesystem::create_symlink(target, path);
        EXPECT_TRUE(write_whole_file(path.c_str(), "eth1"));
        EXPECT_EQ(read_file(path), "eth1");
        EXPECT_FALSE(std::filesystem::is_symlink(path));
        std::filesystem::remove(path);
    }
    EXPECT_EQ(read_file("/tmp/elsewhere"), "untouched");
    std::filesystem::remove("/tmp/elsewhere");
}

TEST(write_whole_file, on_a_full_disk_fails_and_leaves_the_former_file)
{
    const std::string disk = "/tmp/small_disk";
    std::filesystem::create_directory(disk);
    ASSERT_EQ(mount("tmpfs", disk.c_str(), "tmpfs", 0, "size=4k"), 0); // one page
    EXPECT_TRUE(write_whole_file((disk + "/result").c_str(), "eth1"));
    EXPECT_FALSE(write_whole_file((disk + "/result").c_str(), "eth2"));
    EXPECT_EQ(read_file(disk + "/result"), "eth1");
    EXPECT_EQ(names_in(disk), std::set<std::string>{"result"});
    umount(disk.c_str());
    std::filesystem::remove(disk);
}

// A reader that never rests sees the one text or the other, and nothing in between.
// holds: result-file-safe
TEST(write_whole_file, is_never_seen_half_written)
{
    constexpr int ROUNDS = 2000;
    ASSERT_TRUE(write_whole_file(PATH.c_str(), "eth1"));
    std::atomic<bool> over = false;
    std::atomic<int> odd = 0;
    std::thread reader([&] {
        while (!over) {
            const std::string seen = read_file(PATH);
            odd += seen != "eth1" && seen != "eth2";
        }
    });
    for (int i = 0; i < ROUNDS; i++)
        EXPECT_TRUE(write_whole_file(PATH.c_str(), i % 2 ? "eth1" : "eth2"));
    over = true;
    reader.join();
    EXPECT_EQ(odd, 0);
}
