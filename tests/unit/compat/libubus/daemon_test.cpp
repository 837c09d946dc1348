// SPDX-License-Identifier: MIT
// The daemon itself: its socket, its start and end, the bounds on frames, and clients that misbehave.
#include "frames.h"
#include "tests/unit/support/own_place.h"
#include "tests/unit/support/this_build.h"

#include <csignal>
#include <cstring>
#include <dirent.h>
#include <filesystem>
#include <sched.h>
#include <set>
#include <sys/mount.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <unistd.h>

namespace {

constexpr uid_t NOBODY = 65534;
constexpr uid_t UNKNOWN_USER = 54321;
constexpr uint32_t LARGEST_BLOB = 1048576;

size_t open_descriptors(pid_t process)
{
    size_t count = 0;
    DIR *folder = opendir(("/proc/" + std::to_string(process) + "/fd").c_str());
    while (folder && readdir(folder)) {
        count++;
    }
    if (folder) {
        closedir(folder);
    }
    return count;
}

mode_t mode_of(const std::string &path)
{
    struct stat info = {};
    EXPECT_EQ(stat(path.c_str(), &info), 0) << path;
    return info.st_mode & 0777;
}

class daemon_options : public testing::Test {
protected:
    t_private_folder folder_;
};

TEST_F(daemon_options, an_unknown_option_shows_the_usage)
{
    t_process process("ubusd", {"-x"});
    EXPECT_EQ(process.wait(), 1);
    EXPECT_NE(process.errors().find("Usage: "), std::string::npos);
}

TEST_F(daemon_options, a_missing_folder_is_told)
{
    t_process process("ubusd", {"-s", folder_.path("missing/bus")});
    EXPECT_EQ(process.wait(), 255);
    EXPECT_EQ(process.errors(), "usock: No such file or directory\n");
}

TEST_F(daemon_options, a_path_too_long_for_a_socket_is_refused)
{
    t_process process("ubusd", {"-s", folder_.path(std::string(108, 'p'))});
    EXPECT_EQ(process.wait(), 255);
    EXPECT_EQ(process.errors(), "usock: File name too long\n");
}

TEST_F(daemon_options, access_lists_may_be_named)
{
    std::string socket = folder_.path("bus");
    t_process process("ubusd", {"-A", folder_.path("acl"), "-s", socket});
    EXPECT_TRUE(wait_until_it_serves(process, socket));
    process.signal(SIGTERM);
    EXPECT_EQ(process.wait(), 0);
}

TEST_F(daemon_options, a_signal_that_comes_before_it_serves_ends_it_cleanly)
{
    if (product_has_tsan())
        GTEST_SKIP() << "the sanitizer's runtime loses a signal that comes while it prepares its first blocking call";
    std::string socket = folder_.path("bus");
    t_process process("ubusd", {"-s", socket});
    const auto deadline = std::chrono::steady_clock::now() + PATIENCE;
    while (access(socket.c_str(), F_OK) != 0 && std::chrono::steady_clock::now() < deadline) {
    }
    ASSERT_EQ(access(socket.c_str(), F_OK), 0);
    process.signal(SIGTERM);
    EXPECT_EQ(process.wait(), 0);
    EXPECT_NE(access(socket.c_str(), F_OK), 0);
}

// Runs ubusd with a /run of its own, for its default path is there; the exit code when it cannot.
int run_with_private_run_folder(const std::vector<const char *> &arguments)
{
    enter_namespaces();
    if (mount("tmpfs", "/run", "tmpfs", 0, nullptr) != 0)
        return 1;
    std::vector<char *> argv = {const_cast<char *>("ubusd")};
    for (const char *argument : arguments)
        argv.push_back(const_cast<char *>(argument));
    argv.push_back(nullptr);
    execv((BIN_FOLDER + "/ubusd").c_str(), argv.data());
    return 1;
}

// The /run of a process, seen from outside.
std::string run_folder_of(const t_process &process)
{
    return "/proc/" + std::to_string(process.pid()) + "/root/run/";
}

TEST_F(daemon_options, without_a_path_it_makes_the_default_folder_and_listens_there)
{
    t_process process([] { return run_with_private_run_folder({}); });
    EXPECT_TRUE(wait_until_it_serves(process, run_folder_of(process) + "ubus/ubus.sock"));
    process.signal(SIGTERM);
    EXPECT_EQ(process.wait(), 0) << process.errors();
}

TEST_F(daemon_options, with_a_path_of_its_own_it_makes_no_folder)
{
    t_process process([] { return run_with_private_run_folder({"-s", "/run/bus"}); });
    EXPECT_TRUE(wait_until_it_serves(process, run_folder_of(process) + "bus"));
    EXPECT_FALSE(std::filesystem::exists(run_folder_of(process) + "ubus"));
    process.signal(SIGTERM);
    EXPECT_EQ(process.wait(), 0) << process.errors();
}

class daemon : public t_bus_test {};

TEST_F(daemon, everybody_may_connect)
{
    EXPECT_EQ(mode_of(socket_), 0666U);
}

TEST_F(daemon, the_socket_goes_away_with_it)
{
    EXPECT_EQ(daemon_->stop(), 0);
    EXPECT_NE(access(socket_.c_str(), F_OK), 0);
}

TEST_F(daemon, an_interrupt_ends_it_as_well)
{
    kill(daemon_->pid(), SIGINT);
    EXPECT_EQ(daemon_->stop(), 0);
    EXPECT_NE(access(socket_.c_str(), F_OK), 0);
}

TEST_F(daemon, a_hang_up_signal_does_not_end_it)
{
    kill(daemon_->pid(), SIGHUP);
    expect_alive();
}

TEST_F(daemon, a_second_one_takes_the_path_over_and_both_live)
{
    t_connection to_first = connect(), also_to_first = connect();
    t_daemon second(socket_);
    t_connection to_second = connect();
    add_object(to_first, "o");
    t_bytes question = frame(TYPE_LOOKUP, 2, 0, text(2, "o"));
    also_to_first.send(question);
    EXPECT_EQ(receive_status(also_to_first), 0);
    to_second.send(question);
    EXPECT_EQ(receive_status(to_second), 4);
}

TEST_F(daemon, a_socket_left_by_a_killed_one_is_no_obstacle)
{
    daemon_->kill();
    ASSERT_EQ(access(socket_.c_str(), F_OK), 0);
    daemon_.emplace(socket_);
    expect_alive();
}

TEST_F(daemon, ids_differ_and_stay_clear_of_its_own)
{
    std::set<uint32_t> ids;
    constexpr int CLIENTS = 50;
    std::vector<t_connection> connections;
    for (int i = 0; i < CLIENTS; i++) {
        connections.emplace_back(socket_);
        std::optional<t_bytes> greeting = connections.back().receive();
        ASSERT_TRUE(greeting);
        EXPECT_EQ(frame_type(*greeting), TYPE_HELLO);
        EXPECT_EQ(frame_seq(*greeting), 0);
        EXPECT_GE(frame_peer(*greeting), 1024U);
        ids.insert(frame_peer(*greeting));
    }
    EXPECT_EQ(ids.size(), CLIENTS);
}

TEST_F(daemon, a_user_without_a_name_is_not_greeted)
{
    NEEDS_OTHER_USERS();
    t_connection connection(socket_, UNKNOWN_USER);
    EXPECT_TRUE(connection.is_closed_by_peer());
    expect_alive();
}

// Frames

class frame_length : public t_bus_test, public testing::WithParamInterface<uint32_t> {};

TEST_P(frame_length, out_of_bounds_ends_the_connection)
{
    t_connection connection = connect();
    connection.send(frame_header(TYPE_PING, 1, 0, GetParam()));
    EXPECT_TRUE(connection.is_closed_by_peer());
    expect_alive();
}

INSTANTIATE_TEST_SUITE_P(blob, frame_length, testing::Values(0, 3, LARGEST_BLOB + 1, 0xffffff));

TEST_F(daemon, a_frame_in_pieces_is_put_together)
{
    t_connection connection = connect();
    for (char byte : PING) {
        connection.send(t_bytes(1, byte));
        usleep(500);
    }
    expect_pong(connection);
}

TEST_F(daemon, two_frames_in_one_piece_are_taken_apart)
{
    t_connection connection = connect();
    connection.send(PING + PING);
    expect_pong(connection);
    expect_pong(connection);
}

TEST_F(daemon, a_length_need_not_be_padded)
{
    t_connection connection = connect();
    connection.send(from_hex("00030001000000000000000b02000007616263"));
    EXPECT_EQ(to_hex(connection.receive().value_or("")), "00020001000000000000000b02000007616263");
    EXPECT_EQ(receive_status(connection), 0);
}

TEST_F(daemon, the_largest_frame_is_served)
{
    t_connection connection = connect();
    t_bytes large = frame(TYPE_PING, 9, 0, t_bytes(LARGEST_BLOB - 4, 'x'));
    connection.send(large);
    std::optional<t_bytes> answer = connection.receive();
    ASSERT_TRUE(answer);
    EXPECT_EQ(answer->size(), large.size());
    EXPECT_EQ(receive_status(connection), 0);
}

TEST_F(daemon, an_announced_frame_that_never_comes_harms_nobody)
{
    t_connection connection = connect();
    connection.send(frame_header(TYPE_PING, 1, 0, LARGEST_BLOB));
    expect_alive();
    connection.close();
    expect_alive();
}

TEST_F(daemon, the_last_words_of_a_client_are_heard)
{
    t_connection owner = connect(), caller = connect();
    uint32_t object = add_object(owner, "o");
    caller.send(call_of(object, 5));
    std::optional<t_bytes> call = owner.receive();
    ASSERT_TRUE(call);
    t_bytes answers;
    constexpr int PARTS = 100; // more than are served in one turn
    for (int i = 0; i < PARTS; i++) {
        answers += frame(TYPE_DATA, 5, frame_peer(*call), attribute(3, word(object)) + attribute(7, ""));
    }
    owner.send(answers + frame(TYPE_STATUS, 5, frame_peer(*call), attribute(1, word(0)) + attribute(3, word(object))));
    owner.close();
    EXPECT_EQ(receive_status(caller), 0);
}

// Calls

TEST_F(daemon, a_call_that_grows_too_long_is_refused_and_the_owner_stays)
{
    t_connection owner = connect(), caller = connect();
    uint32_t object = add_object(owner, "o");
    size_t rest = LARGEST_BLOB - 4 - 8 - 8 - 4; // OBJID, METHOD, word of DATA
    caller.send(call_of(object, 1, t_bytes(rest, 'd')));
    EXPECT_EQ(receive_status(caller), 2);
    size_t names = 24; // USER and GROUP
    caller.send(call_of(object, 2, t_bytes(rest - names, 'd')));
    std::optional<t_bytes> call = owner.receive();
    ASSERT_TRUE(call);
    EXPECT_EQ(call->size(), 8 + LARGEST_BLOB);
}

TEST_F(daemon, a_stranger_cannot_answer_for_an_object)
{
    t_connection owner = connect(), caller = connect(), stranger = connect();
    uint32_t object = add_object(owner, "o");
    caller.send(call_of(object, 5));
    std::optional<t_bytes> call = owner.receive();
    ASSERT_TRUE(call);
    stranger.send(frame(TYPE_STATUS, 5, frame_peer(*call), attribute(1, word(0)) + attribute(3, word(object))) + PING);
    expect_pong(stranger);
    owner.send(frame(TYPE_STATUS, 5, frame_peer(*call), attribute(1, word(7)) + attribute(3, word(object))));
    EXPECT_EQ(receive_status(caller), 7);
}

TEST_F(daemon, a_call_of_an_owner_that_died_is_not_found)
{
    t_connection caller = connect();
    uint32_t object;
    {
        t_connection owner = connect();
        object = add_object(owner, "o");
        caller.send(call_of(object, 1));
        ASSERT_TRUE(owner.receive());
    }
    expect_alive(); // by now the owner's end is noticed
    caller.send(call_of(object, 2));
    std::optional<t_bytes> answer = caller.receive();
    ASSERT_TRUE(answer);
    EXPECT_EQ(frame_seq(*answer), 2) << "the call that was under way is left to the caller's own patience";
    EXPECT_EQ(word_at(*answer, 16), 4U);
}

TEST_F(daemon, a_caller_that_died_is_nobodys_concern)
{
    t_connection owner = connect();
    uint32_t object = add_object(owner, "o");
    {
        t_connection caller = connect();
        caller.send(call_of(object, 5));
    }
    std::optional<t_bytes> call = owner.receive();
    ASSERT_TRUE(call);
    owner.send(frame(TYPE_STATUS, 5, frame_peer(*call), attribute(1, word(0)) + attribute(3, word(object))) + PING);
    expect_pong(owner);
}

TEST_F(daemon, others_than_root_may_not_call_publish_or_listen)
{
    NEEDS_OTHER_USERS();
    t_connection owner = connect(), nobody = connect(NOBODY);
    uint32_t object = add_object(owner, "o");
    nobody.send(call_of(object, 1));
    EXPECT_EQ(receive_status(nobody), 6);
    nobody.send(frame(TYPE_ADD_OBJECT, 2, 0, text(2, "mine") + attribute(6, "")));
    EXPECT_EQ(receive_status(nobody), 2);
    nobody.send(PING);
    expect_pong(nobody);
}

TEST_F(daemon, a_damaged_signature_is_refused)
{
    t_connection owner = connect();
    owner.send(frame(TYPE_ADD_OBJECT, 1, 0, text(2, "o") + attribute(6, word(0x820000ff))));
    EXPECT_EQ(receive_status(owner), 2);
    owner.send(frame(TYPE_LOOKUP, 2, 0, text(2, "o")));
    EXPECT_EQ(receive_status(owner), 4);
}

// Clients that do not read

TEST_F(daemon, a_client_that_does_not_read_loses_large_answers_but_nobody_else_waits)
{
    constexpr int PINGS = 40;
    t_connection deaf = connect();
    t_bytes large = frame(TYPE_PING, 1, 0, t_bytes(100000, 'x'));
    for (int i = 0; i < PINGS; i++) {
        ASSERT_TRUE(deaf.send(large));
    }
    expect_alive();
    int data = 0, statuses = 0;
    while (std::optional<t_bytes> answer = deaf.receive(std::chrono::milliseconds(statuses < PINGS ? 5000 : 0))) {
        data += frame_type(*answer) == TYPE_DATA;
        statuses += frame_type(*answer) == TYPE_STATUS;
    }
    EXPECT_EQ(statuses, PINGS);
    EXPECT_GE(data, 10); // a megabyte is queued in any case
    EXPECT_LT(data, PINGS);
}

TEST_F(daemon, no_descriptor_is_left_behind)
{
    expect_alive();
    size_t before = open_descriptors(daemon_->pid());
    for (int i = 0; i < 100; i++) {
        t_connection connection = connect();
        connection.send(frame_header(TYPE_PING, 1, 0, 100));
    }
    expect_alive();
    EXPECT_LE(open_descriptors(daemon_->pid()), before + 1);
}

// Descriptors sent along are not wanted, and must not pile up.
TEST_F(daemon, passed_descriptors_are_dropped)
{
    t_connection connection = connect();
    size_t before = open_descriptors(daemon_->pid());
    t_bytes bytes = PING;
    for (int i = 0; i < 20; i++) {
        iovec part = {.iov_base = bytes.data(), .iov_len = bytes.size()};
        alignas(cmsghdr) char control[CMSG_SPACE(sizeof(int))] = {};
        msghdr message = {};
        message.msg_iov = &part;
        message.msg_iovlen = 1;
        message.msg_control = control;
        message.msg_controllen = sizeof(control);
        cmsghdr *head = CMSG_FIRSTHDR(&message);
        head->cmsg_level = SOL_SOCKET;
        head->cmsg_type = SCM_RIGHTS;
        head->cmsg_len = CMSG_LEN(sizeof(int));
        int fd = connection.fd();
        memcpy(CMSG_DATA(head), &fd, sizeof(fd));
        ASSERT_EQ(sendmsg(connection.fd(), &message, MSG_NOSIGNAL), static_cast<ssize_t>(bytes.size()));
        expect_pong(connection);
    }
    EXPECT_LE(open_descriptors(daemon_->pid()), before);
}

} // namespace
