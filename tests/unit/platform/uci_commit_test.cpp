// SPDX-License-Identifier: MIT
// Commits on disks without room. The library's own is counted, and may be made to do what a full disk makes of it.
#include <algorithm>
#include <fcntl.h>
#include <filesystem>
#include <string>
#include <sys/file.h>
#include <sys/mount.h>
#include <sys/stat.h>
#include <sys/vfs.h>
#include <unistd.h>

#include <gtest/gtest.h>

#include "platform/disk_room.h"
#include "platform/tallies.h"
#include "platform/text.h"
#include "platform/uci_access.h"
#include "platform/uci_edit.h"
#include "tests/unit/support/own_place.h"
#include "tests/unit/support/sandbox.h"

extern "C" {
#include <uci.h>
}

static int commits;
static int cut_to = -1;        // bytes that the library leaves of the file, or -1
static bool is_locked;         // somebody locks the file right after the commit
static bool is_vanished;       // somebody puts a folder in its place
static bool waits_for_another; // the library comes across another file that is locked, and goes on without it
static fsblkcnt_t reserve;     // blocks of every disk that are root's alone

extern "C" {
int __real_uci_commit(uci_context *context, uci_package **package, bool overwrite);
int __wrap_uci_commit(uci_context *context, uci_package **package, bool overwrite);
int __real_statfs(const char *path, struct statfs *disk);
int __wrap_statfs(const char *path, struct statfs *disk);

int __wrap_statfs(const char *path, struct statfs *disk)
{
    const int result = __real_statfs(path, disk);
    disk->f_bavail -= std::min(static_cast<fsblkcnt_t>(disk->f_bavail), reserve);
    return result;
}

int __wrap_uci_commit(uci_context *context, uci_package **package, bool overwrite)
{
    commits++;
    const std::string path = (*package)->path;
    const int result = __real_uci_commit(context, package, overwrite);
    if (cut_to >= 0) {
        EXPECT_EQ(truncate(path.c_str(), cut_to), 0);
    }
    if (is_locked) {
        EXPECT_EQ(flock(open(path.c_str(), O_RDONLY | O_CLOEXEC), LOCK_EX | LOCK_NB), 0);
    }
    if (is_vanished) {
        EXPECT_EQ(unlink(path.c_str()), 0);
        EXPECT_EQ(mkdir(path.c_str(), 0755), 0);
    }
    if (waits_for_another) {
        const int holder = open("/etc/config/wan_detect", O_RDONLY | O_CLOEXEC);
        const int waiting = open("/etc/config/wan_detect", O_RDONLY | O_CLOEXEC);
        EXPECT_EQ(flock(holder, LOCK_EX | LOCK_NB), 0);
        EXPECT_EQ(flock(waiting, LOCK_SH), -1);
        close(holder);
        close(waiting);
    }
    return result;
}
}

namespace {

namespace fs = std::filesystem;

const std::string NETWORK =
    "\nconfig interface 'wan'\n\toption proto 'dhcp'\n\nconfig rule 'last'\n\toption on '1'\n\n";

// A small disk in a folder's place while it lives.
class t_small_disk {
public:
    explicit t_small_disk(const char *folder) : folder_(folder)
    {
        EXPECT_EQ(mount("tmpfs", folder, "tmpfs", 0, "size=64k,mode=755"), 0);
    }
    ~t_small_disk() { EXPECT_EQ(umount2(folder_.c_str(), MNT_DETACH), 0); }

    // Leaves room for so many blocks.
    void fill(int but_for_blocks = 0) const
    {
        const std::string filler = folder_ + "/filler";
        const int fd = open(filler.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0600);
        const std::string block(4096, 'x');
        while (write(fd, block.data(), block.size()) == static_cast<ssize_t>(block.size())) {
        }
        struct stat file = {};
        EXPECT_EQ(fstat(fd, &file), 0);
        EXPECT_EQ(ftruncate(fd, file.st_size - 4096 * but_for_blocks), 0);
        close(fd);
    }
    void empty() const { fs::remove(folder_ + "/filler"); }

private:
    std::string folder_;
};

class uci_commit_room : public testing::Test {
protected:
    uci_commit_room() : disk("/etc/config")
    {
        write_config("network", NETWORK);
        write_config("wan_detect", "\nconfig settings 'main'\n\toption level '2'\n\tlist port 'eth0'\n\n");
        EXPECT_EQ(chmod("/etc/config/network", 0640), 0);
        commits = 0;
        cut_to = -1;
        is_locked = is_vanished = waits_for_another = false;
    }
    ~uci_commit_room() override { fs::remove_all("/tmp/.uci"); }

    static int set(const char *path, const char *text)
    {
        char writable[UCI_PATH_SIZE];
        bounded_copy(writable, path, sizeof writable);
        return _uci_set_value_commit(writable, text);
    }
    static std::string file(const std::string &package) { return read_file("/etc/config/" + package); }
    static ino_t inode_of_network()
    {
        struct stat status = {};
        EXPECT_EQ(stat("/etc/config/network", &status), 0);
        return status.st_ino;
    }
    // Besides the two packages and what fills the disk.
    static long strange_files()
    {
        const fs::directory_iterator all("/etc/config");
        return std::distance(begin(all), end(all)) - 2 - (file_exists("/etc/config/filler") ? 1 : 0);
    }

    t_log_capture log;
    t_small_disk disk;
};

} // namespace

// holds: commit-without-room
TEST_F(uci_commit_room, without_room_nothing_is_committed)
{
    disk.fill();
    EXPECT_EQ(set("network.wan.proto", "pppoe"), -1);
    EXPECT_EQ(commits, 0);
    EXPECT_EQ(file("network"), NETWORK);
    EXPECT_EQ(strange_files(), 0);
    EXPECT_TRUE(log.has("Error", "has_disk_room",
                        "no room in /etc/config for a file of " + std::to_string(NETWORK.size() + 1) + " bytes"));
    EXPECT_TRUE(log.has("Error", "_uci_set_value_commit", "fail to commit network.wan.proto"));
}

// holds: commit-without-room
TEST_F(uci_commit_room, without_room_the_change_waits_and_counts)
{
    disk.fill();
    EXPECT_EQ(set("network.wan.proto", "pppoe"), -1);
    EXPECT_EQ(read_file("/tmp/.uci/network"), "network.wan.proto='pppoe'\n");
    char value[UCI_VALUE_SIZE] = "";
    EXPECT_EQ(_uci_get_value("network.wan.proto", value), 0);
    EXPECT_STREQ(value, "pppoe");
    disk.empty();
    EXPECT_EQ(set("network.wan.note", "x"), 0);
    EXPECT_NE(file("network").find("option proto 'pppoe'"), std::string::npos) << "along with the next commit";
}

// holds: commit-without-room
TEST_F(uci_commit_room, too_little_room_counts_as_none)
{
    disk.fill(2);
    EXPECT_EQ(set("network.wan.proto", "pppoe"), -1);
    EXPECT_EQ(commits, 0);
    disk.empty();
    disk.fill(4);
    EXPECT_EQ(set("network.wan.proto", "pppoe"), 0);
    EXPECT_EQ(commits, 1);
}

// holds: commit-without-room
TEST_F(uci_commit_room, without_room_the_other_members_commit_nothing_either)
{
    const std::string before = file("wan_detect");
    disk.fill();
    EXPECT_EQ(_uci_delete_commit("wan_detect", "main", "level"), -1);
    EXPECT_EQ(_uci_add_list_commit("wan_detect", "main", "port", "eth1"), -1);
    EXPECT_EQ(_uci_del_add_list_commit("wan_detect", "main", "port", "eth1"), -1);
    uci_context *slot = nullptr;
    EXPECT_EQ(_uci_set_value(&slot, "wan_detect", "main", "level", "7"), 0);
    EXPECT_EQ(_uci_commit(slot), -1);
    EXPECT_EQ(commits, 0);
    EXPECT_EQ(file("wan_detect"), before);
    for (const char *function :
         {"_uci_delete_commit", "_uci_add_list_commit", "_uci_del_add_list_commit", "_uci_commit"})
        EXPECT_TRUE(log.has("Error", function, "fail to commit wan_detect")) << function;
}

// holds: commit-without-room, tallies
TEST_F(uci_commit_room, with_room_again_the_commit_is_made)
{
    const uint32_t before = tallies.commits;
    disk.fill();
    EXPECT_EQ(set("network.wan.proto", "pppoe"), -1);
    EXPECT_EQ(tallies.commits, before);
    disk.empty();
    EXPECT_EQ(set("network.wan.proto", "pppoe"), 0);
    EXPECT_NE(file("network").find("option proto 'pppoe'"), std::string::npos);
    EXPECT_EQ(set("network.wan.proto", "pppoe"), 0) << "nothing to commit";
    EXPECT_EQ(tallies.commits, before + 1);
}

// holds: own-save-folder
TEST_F(uci_commit_room, without_room_where_changes_wait_they_go_through_another_place)
{
    const t_small_disk tmp("/tmp");
    EXPECT_EQ(mkdir("/tmp/.uci", 0700), 0);
    tmp.fill();
    EXPECT_EQ(set("network.wan.proto", "pppoe"), 0);
    EXPECT_EQ(commits, 1);
    EXPECT_NE(file("network").find("option proto 'pppoe'"), std::string::npos);
    EXPECT_TRUE(log.has("Error", "has_disk_room", "no room in /tmp/.uci for a file of 1 bytes"));
    for (const auto &entry : fs::directory_iterator("/var/run/"))
        EXPECT_EQ(entry.path().filename().string().rfind("wan_detect-", 0), std::string::npos) << entry.path();
}

// holds: own-save-folder
TEST_F(uci_commit_room, without_room_for_the_folder_of_waiting_changes_they_go_through_another_place)
{
    const t_small_disk tmp("/tmp");
    tmp.fill();
    EXPECT_EQ(set("network.wan.proto", "pppoe"), 0);
    EXPECT_NE(file("network").find("option proto 'pppoe'"), std::string::npos);
}

// holds: own-save-folder
TEST_F(uci_commit_room, without_room_nothing_goes_past_what_waits_already)
{
    const t_small_disk tmp("/tmp");
    write_file("/tmp/.uci/network", "network.wan.proto='l2tp'\n");
    EXPECT_EQ(chmod("/tmp/.uci", 0700), 0);
    tmp.fill();
    EXPECT_EQ(set("network.wan.proto", "pppoe"), -1);
    EXPECT_EQ(commits, 0);
    EXPECT_EQ(file("network"), NETWORK);
    EXPECT_EQ(read_file("/tmp/.uci/network"), "network.wan.proto='l2tp'\n");
}

// holds: commit-without-room, own-save-folder
TEST_F(uci_commit_room, without_room_for_the_waiting_change_anywhere_nothing_is_committed)
{
    const t_small_disk tmp("/tmp"), run("/var/run/");
    tmp.fill();
    run.fill();
    EXPECT_EQ(set("network.wan.proto", "pppoe"), -1);
    EXPECT_EQ(commits, 0);
    EXPECT_EQ(file("network"), NETWORK);
    EXPECT_TRUE(log.has("Error", "has_disk_room", "no room in /tmp for a file of 1 bytes"));
    EXPECT_FALSE(file_exists("/tmp/.uci/network")) << "half a change would wait";
}

// holds: commit-without-room
TEST_F(uci_commit_room, on_a_read_only_disk_nothing_is_committed)
{
    ASSERT_EQ(mount(nullptr, "/etc/config", nullptr, MS_REMOUNT | MS_RDONLY, nullptr), 0);
    EXPECT_EQ(set("network.wan.proto", "pppoe"), -1);
    EXPECT_EQ(commits, 0);
    EXPECT_EQ(file("network"), NETWORK);
    EXPECT_TRUE(log.has("Error", "has_disk_room", "/etc/config cannot be written"));
    EXPECT_TRUE(log.has("Error", "_uci_set_value_commit", "fail to commit network.wan.proto"));
}

// holds: commit-nothing
TEST_F(uci_commit_room, a_commit_that_would_change_nothing_is_not_made)
{
    const ino_t before = inode_of_network();
    disk.fill();
    EXPECT_EQ(set("network.wan.proto", "dhcp"), 0);
    EXPECT_EQ(commits, 0);
    EXPECT_EQ(inode_of_network(), before);
    EXPECT_TRUE(log.has("Info", "_uci_set_value_commit", "Success to set network.wan.proto = dhcp "));
}

// holds: commit-nothing
TEST_F(uci_commit_room, a_value_that_only_the_file_has_is_committed_against_what_waits)
{
    write_file("/tmp/.uci/network", "network.wan.proto='pppoe'\n");
    EXPECT_EQ(set("network.wan.proto", "dhcp"), 0);
    EXPECT_EQ(commits, 1);
    char value[UCI_VALUE_SIZE] = "";
    EXPECT_EQ(_uci_get_value("network.wan.proto", value), 0);
    EXPECT_STREQ(value, "dhcp");
}

// holds: commit-nothing
TEST_F(uci_commit_room, what_waits_is_committed_along_with_our_change)
{
    write_file("/tmp/.uci/network", "network.wan.note='kept'\n");
    EXPECT_EQ(set("network.wan.proto", "pppoe"), 0);
    EXPECT_NE(file("network").find("option note 'kept'"), std::string::npos);
    EXPECT_NE(file("network").find("option proto 'pppoe'"), std::string::npos);
}

// holds: commit-cut
TEST_F(uci_commit_room, a_file_that_a_commit_has_cut_gets_its_former_text_back)
{
    for (int bytes : {0, 20, static_cast<int>(NETWORK.size()) - 1}) {
        cut_to = bytes;
        EXPECT_EQ(set("network.wan.proto", "pppoe"), -1) << bytes;
        EXPECT_EQ(file("network"), NETWORK) << bytes;
        struct stat status = {};
        EXPECT_EQ(stat("/etc/config/network", &status), 0);
        EXPECT_EQ(status.st_mode & 07777, 0640u);
        EXPECT_EQ(strange_files(), 0);
    }
    EXPECT_EQ(
        log.count("Error", "look_after_commit", "/etc/config/network was cut by its commit, its former text is back"),
        3);
    EXPECT_EQ(log.count("Error", "_uci_set_value_commit", "fail to commit network.wan.proto"), 3);
}

// holds: commit-looked-after
TEST_F(uci_commit_room, a_cut_file_that_somebody_locks_gets_its_former_text_back)
{
    cut_to = 20;
    is_locked = true;
    EXPECT_EQ(set("network.wan.proto", "pppoe"), -1);
    EXPECT_EQ(file("network"), NETWORK);
}

// holds: commit-looked-after
TEST_F(uci_commit_room, a_cut_file_gets_its_former_text_back_also_when_a_lock_was_given_up)
{
    cut_to = 20;
    waits_for_another = true;
    EXPECT_EQ(set("network.wan.proto", "pppoe"), -1);
    EXPECT_EQ(file("network"), NETWORK);
}

// holds: commit-looked-after
TEST_F(uci_commit_room, a_commit_that_gave_up_a_lock_counts_as_failed)
{
    waits_for_another = true;
    EXPECT_EQ(set("network.wan.proto", "pppoe"), -1);
}

// holds: commit-looked-after
TEST_F(uci_commit_room, a_commit_whose_file_cannot_be_read_counts_as_failed)
{
    is_vanished = true;
    EXPECT_EQ(set("network.wan.proto", "pppoe"), -1);
    EXPECT_TRUE(log.has("Error", "look_after_commit", "/etc/config/network cannot be read after its commit"));
    EXPECT_TRUE(log.has("Error", "_uci_set_value_commit", "fail to commit network.wan.proto"));
}

// holds: commit-cut
TEST_F(uci_commit_room, a_link_to_the_file_stays_a_link)
{
    fs::rename("/etc/config/network", "/etc/config/.network");
    fs::create_symlink(".network", "/etc/config/network");
    EXPECT_EQ(set("network.wan.proto", "pppoe"), 0);
    EXPECT_TRUE(fs::is_symlink("/etc/config/network"));
    cut_to = 0;
    EXPECT_EQ(set("network.wan.proto", "l2tp"), -1);
    EXPECT_TRUE(fs::is_symlink("/etc/config/network"));
    EXPECT_NE(file(".network").find("'pppoe'"), std::string::npos);
}

// holds: commit-without-room
TEST(disk_room, a_disk_without_a_size_has_room)
{
    fs::create_directory("/run/endless");
    ASSERT_EQ(mount("ramfs", "/run/endless", "ramfs", 0, nullptr), 0);
    EXPECT_TRUE(has_disk_room("/run/endless", 1 << 30, 0));
    EXPECT_EQ(umount("/run/endless"), 0);
}

// holds: commit-without-room
TEST(disk_room, what_is_kept_free_for_root_is_room_for_root_alone)
{
    NEEDS_OTHER_USERS();
    fs::create_directories("/run/small");
    const t_small_disk disk("/run/small");
    EXPECT_EQ(chmod("/run/small", 0777), 0);
    t_log_capture log;
    reserve = 1000;
    EXPECT_TRUE(has_disk_room("/run/small", 1, 0));
    EXPECT_EQ(seteuid(65534), 0);
    EXPECT_FALSE(has_disk_room("/run/small", 1, 0));
    EXPECT_EQ(seteuid(0), 0);
    reserve = 0;
}

// holds: commit-without-room
TEST(disk_room, an_overlay_needs_room_for_a_copy_of_the_old_file_as_well)
{
    fs::create_directories("/run/small");
    const t_small_disk disk("/run/small");
    for (const char *folder : {"/run/small/upper", "/run/small/work", "/run/lower", "/run/merged"})
        fs::create_directories(folder);
    ASSERT_EQ(mount("overlay", "/run/merged", "overlay", 0,
                    "lowerdir=/run/lower,upperdir=/run/small/upper,workdir=/run/small/work"),
              0);
    t_log_capture log;
    EXPECT_TRUE(has_disk_room("/run/merged", 20000, 20000));
    EXPECT_TRUE(has_disk_room("/run/small", 40000, 40000));
    EXPECT_FALSE(has_disk_room("/run/merged", 40000, 40000));
    EXPECT_EQ(umount("/run/merged"), 0);
}
