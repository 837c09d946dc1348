// SPDX-License-Identifier: MIT
// Descriptors of the loop.
#include "uloop_fixture.h"

#include <optional>
#include <vector>

namespace {

using uloop_descriptors = loop_test;

// What a callback saw, and what became of the watch when it ran.
struct seen {
    unsigned int events;
    bool eof;
    bool error;
    bool registered;
};

bool operator==(const seen &a, const seen &b)
{
    return a.events == b.events && a.eof == b.eof && a.error == b.error && a.registered == b.registered;
}

std::ostream &operator<<(std::ostream &out, const seen &s)
{
    return out << "events " << s.events << " eof " << s.eof << " error " << s.error << " registered " << s.registered;
}

// The first call, and how many there are up to three.
struct calls_seen {
    std::optional<seen> first;
    int count = 0;
};

calls_seen watch_calls(int fd, unsigned int flags)
{
    calls_seen result;
    watch w(fd);
    w.run = [&](unsigned int events) {
        if (!result.first)
            result.first = seen{events, w.eof, w.error, w.registered};
        if (++result.count == 3)
            uloop_end();
    };
    EXPECT_EQ(uloop_fd_add(&w, flags), 0);
    run_for(5);
    return result;
}

void expect_one_call(int fd, unsigned int flags, seen expected)
{
    calls_seen result = watch_calls(fd, flags);
    EXPECT_EQ(result.first, expected);
    EXPECT_EQ(result.count, 1);
}

void expect_repeated_calls(int fd, unsigned int flags, seen expected)
{
    calls_seen result = watch_calls(fd, flags);
    EXPECT_EQ(result.first, expected);
    EXPECT_EQ(result.count, 3);
}

bool is_non_blocking(int fd)
{
    return fcntl(fd, F_GETFL) & O_NONBLOCK;
}

} // namespace

TEST_F(uloop_descriptors, a_closed_peer_is_eof_and_error)
{
    socket_pair pair;
    pair.close_end(1);
    expect_one_call(pair.fds[0], ULOOP_READ, {ULOOP_READ, true, true, false});
    expect_repeated_calls(pair.fds[0], ULOOP_READ | ULOOP_ERROR_CB, {ULOOP_READ, true, true, true});
}

TEST_F(uloop_descriptors, a_pipe_whose_writer_closed_has_no_event_but_an_error)
{
    pipe_pair ends;
    ends.close_end(1);
    expect_one_call(ends.reader(), ULOOP_READ, {0, false, true, false});
    expect_repeated_calls(ends.reader(), ULOOP_READ | ULOOP_ERROR_CB, {0, false, true, true});
}

TEST_F(uloop_descriptors, unread_bytes_of_a_closed_writer_come_with_the_error)
{
    pipe_pair ends;
    ends.fill("abc");
    ends.close_end(1);
    expect_one_call(ends.reader(), ULOOP_READ, {ULOOP_READ, false, true, false});
    expect_repeated_calls(ends.reader(), ULOOP_READ | ULOOP_ERROR_CB, {ULOOP_READ, false, true, true});
}

TEST_F(uloop_descriptors, a_peer_that_only_stops_sending_is_eof_without_error)
{
    socket_pair pair;
    shutdown(pair.fds[1], SHUT_WR);
    expect_repeated_calls(pair.fds[0], ULOOP_READ, {ULOOP_READ, true, false, true});
    expect_repeated_calls(pair.fds[0], ULOOP_READ | ULOOP_ERROR_CB, {ULOOP_READ, true, false, true});
}

TEST_F(uloop_descriptors, a_pipe_whose_reader_closed_is_writable_with_an_error)
{
    pipe_pair ends;
    ends.close_end(0);
    expect_one_call(ends.writer(), ULOOP_WRITE, {ULOOP_WRITE, false, true, false});
    expect_repeated_calls(ends.writer(), ULOOP_WRITE | ULOOP_ERROR_CB, {ULOOP_WRITE, false, true, true});
}

TEST_F(uloop_descriptors, edge_triggered_data_is_told_once)
{
    pipe_pair ends;
    ends.fill();
    expect_one_call(ends.reader(), ULOOP_READ | ULOOP_EDGE_TRIGGER, {ULOOP_READ, false, false, true});
    expect_repeated_calls(ends.reader(), ULOOP_READ, {ULOOP_READ, false, false, true});
}

TEST_F(uloop_descriptors, are_made_non_blocking_unless_told_otherwise)
{
    pipe_pair a, b;
    watch plain(a.reader());
    watch blocking(b.reader());
    uloop_fd_add(&plain, ULOOP_READ);
    uloop_fd_add(&blocking, ULOOP_READ | ULOOP_BLOCKING);
    EXPECT_TRUE(is_non_blocking(a.reader()));
    EXPECT_FALSE(is_non_blocking(b.reader()));
    // Only the first add looks at it, and a delete does not undo it.
    uloop_fd_add(&blocking, ULOOP_READ);
    EXPECT_FALSE(is_non_blocking(b.reader()));
    uloop_fd_delete(&plain);
    EXPECT_TRUE(is_non_blocking(a.reader()));
}

TEST_F(uloop_descriptors, adding_again_replaces_the_flags_and_clears_the_marks)
{
    socket_pair pair;
    watch w(pair.fds[0]);
    EXPECT_EQ(uloop_fd_add(&w, ULOOP_READ), 0);
    EXPECT_EQ(w.flags, ULOOP_READ);
    w.eof = w.error = true;
    EXPECT_EQ(uloop_fd_add(&w, ULOOP_WRITE | ULOOP_ERROR_CB), 0);
    EXPECT_EQ(w.flags, ULOOP_WRITE | ULOOP_ERROR_CB);
    EXPECT_FALSE(w.eof);
    EXPECT_FALSE(w.error);
}

TEST_F(uloop_descriptors, failures_leave_the_watch_unregistered)
{
    watch bad(-1);
    EXPECT_EQ(uloop_fd_add(&bad, ULOOP_READ), -1);
    EXPECT_EQ(errno, EBADF);
    EXPECT_FALSE(bad.registered);

    int file = open("/proc/self/exe", O_RDONLY | O_CLOEXEC);
    watch regular(file);
    EXPECT_EQ(uloop_fd_add(&regular, ULOOP_READ), -1);
    EXPECT_EQ(errno, EPERM);
    EXPECT_FALSE(regular.registered);
    close(file);

    pipe_pair ends;
    watch first(ends.reader());
    watch second(ends.reader());
    EXPECT_EQ(uloop_fd_add(&first, ULOOP_READ), 0);
    EXPECT_EQ(uloop_fd_add(&second, ULOOP_READ), -1);
    EXPECT_EQ(errno, EEXIST);
    EXPECT_FALSE(second.registered);
}

TEST_F(uloop_descriptors, without_read_and_write_an_add_is_a_delete)
{
    pipe_pair ends;
    watch w(ends.reader());
    uloop_fd_add(&w, ULOOP_READ);
    EXPECT_EQ(uloop_fd_add(&w, ULOOP_ERROR_CB), 0);
    EXPECT_FALSE(w.registered);
    EXPECT_EQ(w.flags, 0);
    EXPECT_EQ(uloop_fd_delete(&w), 0);
}

TEST_F(uloop_descriptors, one_deleted_by_another_callback_of_its_batch_is_not_called)
{
    pipe_pair a, b;
    int calls = 0;
    watch first(a.reader());
    watch second(b.reader());
    auto delete_both = [&](unsigned int) {
        calls++;
        EXPECT_EQ(uloop_fd_delete(&first), 0);
        EXPECT_EQ(uloop_fd_delete(&second), 0);
    };
    first.run = second.run = delete_both;
    uloop_fd_add(&first, ULOOP_READ);
    uloop_fd_add(&second, ULOOP_READ);
    a.fill();
    b.fill();
    run_for(3);
    EXPECT_EQ(calls, 1);
}

TEST_F(uloop_descriptors, one_in_error_deleted_by_another_callback_of_its_batch_is_not_called)
{
    pipe_pair a, b;
    int calls = 0;
    watch first(a.reader());
    watch second(b.reader());
    first.run = second.run = [&](unsigned int) {
        calls++;
        uloop_fd_delete(&first);
        uloop_fd_delete(&second);
    };
    uloop_fd_add(&first, ULOOP_READ);
    uloop_fd_add(&second, ULOOP_READ);
    a.close_end(1);
    b.close_end(1);
    run_for(3);
    EXPECT_EQ(calls, 1);
}

TEST_F(uloop_descriptors, may_delete_and_free_themselves_in_their_callback)
{
    pipe_pair ends;
    auto *w = new watch(ends.reader());
    w->run = [w](unsigned int) { delete w; };
    uloop_fd_add(w, ULOOP_READ);
    ends.fill();
    run_for(2);
}

TEST_F(uloop_descriptors, closed_without_delete_fall_silent_but_stay_registered)
{
    pipe_pair ends;
    int calls = 0;
    watch w(ends.reader());
    w.run = [&](unsigned int) {
        calls++;
        ends.close_end(0);
    };
    uloop_fd_add(&w, ULOOP_READ);
    ends.fill();
    run_for(3);
    EXPECT_EQ(calls, 1);
    EXPECT_TRUE(w.registered);
    pipe_pair fresh;
    w.fd = fresh.writer();
    EXPECT_EQ(uloop_fd_add(&w, ULOOP_WRITE), -1);
    EXPECT_EQ(errno, ENOENT);
    w.fd = -1;
    EXPECT_EQ(uloop_fd_delete(&w), -1);
    EXPECT_EQ(errno, EBADF);
    EXPECT_FALSE(w.registered);
}

TEST_F(uloop_descriptors, without_callback_are_skipped)
{
    pipe_pair ends;
    uloop_fd silent = {};
    silent.fd = ends.reader();
    uloop_fd_add(&silent, ULOOP_READ);
    ends.fill();
    EXPECT_EQ(run_for(2), 0);
    uloop_fd_delete(&silent);
}

TEST_F(uloop_descriptors, more_than_a_batch_are_all_served)
{
    constexpr int COUNT = 25;
    std::vector<std::unique_ptr<pipe_pair>> pipes;
    std::vector<std::unique_ptr<watch>> watches;
    int calls = 0;
    for (int i = 0; i < COUNT; i++) {
        pipes.push_back(std::make_unique<pipe_pair>());
        watches.push_back(std::make_unique<watch>(pipes.back()->reader(), [&](unsigned int) { calls++; }));
        uloop_fd_add(watches.back().get(), ULOOP_READ | ULOOP_EDGE_TRIGGER);
        pipes.back()->fill();
    }
    run_for(5);
    EXPECT_EQ(calls, COUNT);
}

TEST_F(uloop_descriptors, the_observer_is_told_of_adds_and_deletes)
{
    static std::vector<unsigned int> told;
    told.clear();
    uloop_fd_set_cb = [](uloop_fd *, unsigned int flags) { told.push_back(flags); };
    pipe_pair ends;
    watch w(ends.reader());
    watch bad(-1);
    uloop_fd_add(&bad, ULOOP_READ);
    uloop_fd_delete(&w);
    uloop_fd_add(&w, ULOOP_READ | ULOOP_BLOCKING);
    uloop_fd_delete(&w);
    EXPECT_EQ(told, (std::vector<unsigned int>{ULOOP_READ | ULOOP_BLOCKING, 0}));
}
