// SPDX-License-Identifier: MIT
// Several processes on one configuration: no change is lost, no reader sees half of one.
#include "faults.h"
#include "place.h"
#include "tests/unit/support/this_build.h"

#include <csignal>
#include <fcntl.h>
#include <filesystem>
#include <functional>
#include <poll.h>
#include <set>
#include <sys/file.h>
#include <sys/time.h>
#include <sys/wait.h>
#include <unistd.h>

namespace {

class sharing : public place {
protected:
    sharing() { write_conf("net", "config t 'a'\n\toption first 'yes'\n"); }

    // A process that ends with the result of its body.
    static pid_t start(const std::function<bool()> &body)
    {
        pid_t child = fork();
        if (child == 0)
            _exit(body() ? 0 : 1);
        return child;
    }

    static void expect_success(pid_t child)
    {
        int status = 0;
        ASSERT_EQ(waitpid(child, &status, 0), child);
        EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0) << status;
    }

    // Sets and commits options of its own, one commit each.
    bool commit_many(const std::string &prefix, const std::string &save_directory, int count) const
    {
        context ctx = open();
        uci_set_savedir(ctx.get(), save_directory.c_str());
        for (int i = 0; i < count; ++i) {
            tuple t(ctx.get(), "net.a." + prefix + std::to_string(i) + "=" + std::to_string(i));
            if (t.rc != UCI_OK || uci_set(ctx.get(), &t.ptr) != UCI_OK ||
                uci_commit(ctx.get(), &t.ptr.p, false) != UCI_OK)
                return false;
        }
        return true;
    }

    int options_in_file() const
    {
        std::string text = read_text(conf("net"));
        int count = 0;
        for (size_t at = text.find("\toption "); at != std::string::npos; at = text.find("\toption ", at + 1))
            count++;
        return count;
    }
};

constexpr int writers = 3;
constexpr int commits = 100;

// Lets one process wait for another.
class gate {
public:
    gate() { EXPECT_EQ(pipe(ends_), 0); }
    ~gate()
    {
        close(ends_[0]);
        close(ends_[1]);
    }
    void open() { EXPECT_EQ(write(ends_[1], "", 1), 1); }
    void wait()
    {
        char byte = 0;
        EXPECT_EQ(read(ends_[0], &byte, 1), 1);
    }
    bool opens_within(int milliseconds)
    {
        pollfd event = {ends_[0], POLLIN, 0};
        return poll(&event, 1, milliseconds) == 1;
    }

private:
    int ends_[2];
};

constexpr int long_enough_to_go_wrong_ms = 100;

// A commit that stands still just before one of its steps, while someone else has his turn.
class halfway : public sharing {
protected:
    halfway() { write_save("net", "|net.a.l='item'\n"); }

    // True if the other one had to wait for the commit to go on.
    bool with_commit_stopped_before(const std::string &step, const std::function<bool()> &other)
    {
        gate stopped, go_on, done;
        pid_t committer = start([&] {
            stop_before(step, [&] {
                stopped.open();
                go_on.wait();
            });
            context ctx = open();
            tuple t(ctx.get(), "net");
            return uci_commit(ctx.get(), &t.ptr.p, false) == UCI_OK;
        });
        stopped.wait();
        pid_t second = start([&] {
            bool good = other();
            done.open();
            return good;
        });
        bool waited = !done.opens_within(long_enough_to_go_wrong_ms);
        go_on.open();
        expect_success(committer);
        expect_success(second);
        return waited;
    }
};

TEST_F(halfway, a_reader_never_finds_a_change_twice)
{
    EXPECT_TRUE(with_commit_stopped_before("ftruncate", [&] {
        context ctx = open();
        return value_of(ctx.get(), "net.a.l") == "item|";
    }));
}

TEST_F(halfway, a_reader_never_misses_a_change)
{
    EXPECT_TRUE(with_commit_stopped_before("rename", [&] {
        context ctx = open();
        return value_of(ctx.get(), "net.a.l") == "item|";
    }));
}

TEST_F(halfway, a_second_commit_builds_on_the_file_the_first_one_wrote)
{
    // Loaded already, so that it is the commit that has to wait.
    context ctx = open();
    uci_set_savedir(ctx.get(), (root() + "/save2").c_str());
    ASSERT_EQ(edit(ctx.get(), uci_set, "net.a.other=1"), UCI_OK);
    EXPECT_TRUE(with_commit_stopped_before("rename", [&] {
        tuple t(ctx.get(), "net");
        return uci_commit(ctx.get(), &t.ptr.p, false) == UCI_OK;
    }));
    EXPECT_EQ(read_text(conf("net")), "\nconfig t 'a'\n\toption first 'yes'\n\tlist l 'item'\n\toption other '1'\n\n");
}

TEST_F(halfway, a_change_saved_meanwhile_is_kept)
{
    EXPECT_TRUE(with_commit_stopped_before("ftruncate", [&] { return uci("set net.a.late=1").status == 0; }));
    EXPECT_EQ(read_text(save("net")), "net.a.late='1'\n");
    EXPECT_EQ(value_of(open().get(), "net.a.l"), "item|");
}

TEST_F(sharing, commits_through_one_save_directory_are_all_kept)
{
    std::vector<pid_t> children;
    for (int i = 0; i < writers; ++i)
        children.push_back(
            start([&] { return commit_many(std::string(1, static_cast<char>('p' + i)), save(), commits); }));
    for (pid_t child : children)
        expect_success(child);
    EXPECT_EQ(options_in_file(), 1 + writers * commits);
    EXPECT_EQ(read_text(save("net")), "");
}

// A writer that waited for a file which was replaced meanwhile looks at the new one.
TEST_F(sharing, commits_through_separate_save_directories_are_all_kept)
{
    std::vector<pid_t> children;
    for (int i = 0; i < writers; ++i)
        children.push_back(start([&] {
            return commit_many(std::string(1, static_cast<char>('p' + i)), save() + std::to_string(i), commits);
        }));
    for (pid_t child : children)
        expect_success(child);
    EXPECT_EQ(options_in_file(), 1 + writers * commits);
}

TEST_F(sharing, a_list_grows_by_each_item_exactly_once)
{
    auto append = [&](int writer) {
        context ctx = open();
        for (int i = 0; i < commits; ++i) {
            tuple t(ctx.get(), "net.a.l=" + std::to_string(writer) + "-" + std::to_string(i));
            if (uci_add_list(ctx.get(), &t.ptr) != UCI_OK || uci_commit(ctx.get(), &t.ptr.p, false) != UCI_OK)
                return false;
        }
        return true;
    };
    // A change is either still waiting or already in the file, never both, whenever one looks.
    auto watch = [&] {
        size_t seen = 0;
        while (seen < 2 * commits) {
            context ctx = open();
            tuple t(ctx.get(), "net.a.l");
            size_t count = 0;
            uci_element *e = nullptr;
            if (t.rc != UCI_OK)
                return false;
            if (t.ptr.o != nullptr) {
                uci_foreach_element(&t.ptr.o->v.list, e) count++;
            }
            if (count < seen || count > 2 * commits)
                return false;
            seen = count;
        }
        return true;
    };
    pid_t reader = start(watch);
    pid_t one = start([&] { return append(1); });
    pid_t two = start([&] { return append(2); });
    expect_success(one);
    expect_success(two);
    expect_success(reader);
    std::set<std::string> items;
    context ctx = open();
    tuple t(ctx.get(), "net.a.l");
    uci_element *e = nullptr;
    size_t count = 0;
    uci_foreach_element(&t.ptr.o->v.list, e)
    {
        items.insert(e->name);
        count++;
    }
    EXPECT_EQ(items.size(), 2u * commits);
    EXPECT_EQ(count, 2u * commits);
}

TEST_F(sharing, programs_side_by_side_lose_nothing)
{
    auto run = [&](const std::string &prefix) {
        std::string uci = "uci -c '" + conf() + "' -t '" + save() + "' ";
        std::string script = "PATH='" + BIN_FOLDER + "':\"$PATH\"; i=0; while [ $i -lt 25 ]; do " + uci + "set net.a." +
                             prefix + "$i=1 && " + uci + "commit net || exit 1; i=$((i+1)); done";
        return system(script.c_str()) == 0;
    };
    pid_t one = start([&] { return run("p"); });
    pid_t two = start([&] { return run("q"); });
    expect_success(one);
    expect_success(two);
    EXPECT_EQ(options_in_file(), 1 + 2 * 25);
}

// A signal every 10 ms for this thread while it lives, as a limit of time would send one.
class interruptions {
public:
    interruptions()
    {
        struct sigaction action = {};
        action.sa_handler = [](int) {};
        sigaction(SIGALRM, &action, &former_);
        itimerval often = {{0, 10000}, {0, 10000}};
        setitimer(ITIMER_REAL, &often, nullptr);
    }
    ~interruptions()
    {
        itimerval never = {};
        setitimer(ITIMER_REAL, &never, nullptr);
        sigaction(SIGALRM, &former_, nullptr);
    }

private:
    struct sigaction former_ = {};
};

TEST_F(sharing, a_signal_ends_the_wait_for_a_lock_and_the_call_has_failed)
{
    write_conf("other", "config t 'a'\n");
    context ctx = open();
    EXPECT_EQ(edit(ctx.get(), uci_set, "other.a.x=1"), UCI_OK);
    tuple other(ctx.get(), "other");
    ASSERT_EQ(uci_save(ctx.get(), other.ptr.p), UCI_OK);
    EXPECT_EQ(edit(ctx.get(), uci_set, "other.a.x=2"), UCI_OK);
    for (const std::string &locked : {conf("other"), save("other")}) {
        int fd = ::open(locked.c_str(), O_RDONLY | O_CLOEXEC);
        ASSERT_EQ(flock(fd, LOCK_EX), 0);
        interruptions often;
        context reader = open();
        uci_package *package = nullptr;
        EXPECT_EQ(uci_load(reader.get(), "other", &package), UCI_ERR_IO) << locked;
        EXPECT_EQ(uci_commit(ctx.get(), &other.ptr.p, false), UCI_ERR_IO) << locked;
        close(fd);
    }
    EXPECT_EQ(read_text(conf("other")), "config t 'a'\n");
}

} // namespace
