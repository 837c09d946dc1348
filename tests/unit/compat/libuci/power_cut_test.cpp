// SPDX-License-Identifier: MIT
// A commit that ends at any of its steps: the file is the old or the new one, and no change is lost.
#include "faults.h"
#include "place.h"

#include <algorithm>
#include <filesystem>
#include <sys/wait.h>
#include <unistd.h>

namespace {

const std::string before = "config t 'a'\n\toption x '1'\n";
const std::string after = "\nconfig t 'a'\n\toption x '2'\n\toption y '3'\n\n";

class interrupted : public place {
protected:
    // A saved change and one in memory only, about to be committed.
    void prepare()
    {
        write_conf("net", before);
        write_save("net", "net.a.y='3'\n");
        ctx_ = open();
        ASSERT_EQ(edit(ctx_.get(), uci_set, "net.a.x=2"), UCI_OK);
    }

    int commit()
    {
        tuple net(ctx_.get(), "net");
        return uci_commit(ctx_.get(), &net.ptr.p, false);
    }

    // What a start after the interruption finds.
    std::string found_again() const
    {
        context ctx = open();
        return exported(ctx.get(), "net");
    }

    context ctx_;
};

int first(const std::vector<std::string> &calls, const std::string &name)
{
    return static_cast<int>(std::find(calls.begin(), calls.end(), name) - calls.begin());
}

int last(const std::vector<std::string> &calls, const std::string &name)
{
    return static_cast<int>(calls.size()) - 1 -
           static_cast<int>(std::find(calls.rbegin(), calls.rend(), name) - calls.rbegin());
}

TEST_F(interrupted, the_new_file_is_on_the_disk_before_it_takes_the_place_and_before_the_changes_go)
{
    prepare();
    watch_calls();
    EXPECT_EQ(commit(), UCI_OK);
    std::vector<std::string> calls = watched_calls();
    const std::vector<std::string> expected = {"write", "mkostemp", "write", "fchmod",
                                               "fsync", "rename",   "fsync", "ftruncate"};
    EXPECT_EQ(calls, expected);
    EXPECT_LT(first(calls, "fsync"), first(calls, "rename"));
    EXPECT_LT(first(calls, "rename"), last(calls, "fsync")) << "the directory, so that the rename itself lasts";
    EXPECT_LT(last(calls, "fsync"), first(calls, "ftruncate"));
}

TEST_F(interrupted, no_power_cut_loses_a_change)
{
    int cuts = 0;
    for (int step = 0;; ++step) {
        prepare();
        pid_t child = fork();
        ASSERT_GE(child, 0);
        if (child == 0) {
            watch_calls(fault::power_cut, step);
            _exit(commit());
        }
        int status = 0;
        ASSERT_EQ(waitpid(child, &status, 0), child);
        ASSERT_TRUE(WIFEXITED(status));
        std::string file = read_text(conf("net"));
        EXPECT_TRUE(file == before || file == after) << "step " << step << ": " << file;
        EXPECT_NE(found_again().find("option y '3'"), std::string::npos) << "step " << step;
        // The change in memory is waiting, or in the file, once its line was written.
        if (step > 0) {
            EXPECT_EQ(found_again(), after) << "step " << step;
        }
        EXPECT_EQ(uci("commit").status, 0);
        EXPECT_EQ(found_again(), step > 0 ? after : "\nconfig t 'a'\n\toption x '1'\n\toption y '3'\n\n");
        if (WEXITSTATUS(status) != power_cut_status) {
            EXPECT_EQ(WEXITSTATUS(status), UCI_OK);
            break;
        }
        cuts++;
    }
    EXPECT_EQ(cuts, 8);
}

TEST_F(interrupted, a_leftover_of_a_power_cut_is_no_configuration)
{
    prepare();
    pid_t child = fork();
    ASSERT_GE(child, 0);
    if (child == 0) {
        watch_calls(fault::power_cut, 5);
        _exit(commit());
    }
    int status = 0;
    ASSERT_EQ(waitpid(child, &status, 0), child);
    ASSERT_EQ(files_of(conf()).size(), 2u);
    EXPECT_EQ(uci("show").out, "net.a=t\nnet.a.x='2'\nnet.a.y='3'\n");
}

TEST_F(interrupted, a_failing_step_is_told_and_loses_nothing)
{
    int failures = 0;
    for (int step = 0;; ++step) {
        prepare();
        watch_calls(fault::failure, step);
        int rc = commit();
        std::vector<std::string> calls = watched_calls();
        if (static_cast<int>(calls.size()) <= step) {
            EXPECT_EQ(rc, UCI_OK);
            break;
        }
        failures++;
        EXPECT_EQ(rc, UCI_ERR_IO) << calls[step];
        std::string file = read_text(conf("net"));
        EXPECT_TRUE(file == before || file == after) << calls[step] << ": " << file;
        EXPECT_EQ(files_of(conf()).size(), 1u) << "temporary file after a failing " << calls[step];
        // The same context carries on where it was stopped.
        EXPECT_EQ(commit(), UCI_OK) << calls[step];
        EXPECT_EQ(read_text(conf("net")), after) << calls[step];
        EXPECT_EQ(read_text(save("net")), "");
    }
    EXPECT_EQ(failures, 8);
}

} // namespace
