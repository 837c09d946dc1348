// SPDX-License-Identifier: MIT
// The program itself, as somebody calls it, on a bus with a daemon's object that answers what the test says.
#include <algorithm>
#include <chrono>
#include <csignal>
#include <cstdlib>
#include <fcntl.h>
#include <memory>
#include <poll.h>
#include <pty.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <thread>
#include <unistd.h>

#include <gtest/gtest.h>

#include "platform/bus.h"
#include "tests/unit/platform/bus_fixture.h"
#include "tests/unit/status/replies.h"
#include "tests/unit/support/sandbox.h"
#include "tests/unit/support/this_build.h"

namespace {

constexpr int PATIENCE_MS = 15000;
constexpr int END_LIMIT_MS = 3000; // a question of one second may be under way
constexpr const char *FROM_THE_TOP = "\033[H\033[J";

int answer(ubus_context *bus, ubus_object *, ubus_request_data *request, const char *method, blob_attr *)
{
    t_reply reply(kept_reply("5_ports", method));
    return ubus_send_reply(bus, request, reply.blob());
}

int refuse(ubus_context *, ubus_object *, ubus_request_data *, const char *, blob_attr *)
{
    return UBUS_STATUS_PERMISSION_DENIED;
}

int say_nothing(ubus_context *, ubus_object *, ubus_request_data *, const char *, blob_attr *)
{
    return UBUS_STATUS_OK;
}

// A daemon's object in a process of its own.
class t_stand_in {
public:
    explicit t_stand_in(ubus_handler_t handler = answer)
    {
        int ready[2];
        EXPECT_EQ(pipe(ready), 0);
        EXPECT_EQ(pipe(orders_), 0);
        process_ = fork();
        if (process_ == 0)
            serve(handler, ready[1]);
        char done;
        EXPECT_EQ(read(ready[0], &done, 1), 1);
        close(ready[0]);
        close(ready[1]);
    }
    ~t_stand_in()
    {
        kill(process_, SIGKILL);
        waitpid(process_, nullptr, 0);
        close(orders_[0]);
        close(orders_[1]);
    }
    t_stand_in(const t_stand_in &) = delete;
    t_stand_in &operator=(const t_stand_in &) = delete;

    void notify() { EXPECT_EQ(write(orders_[1], "n", 1), 1); }
    void freeze() { kill(process_, SIGSTOP); }
    void go_on() { kill(process_, SIGCONT); }

private:
    [[noreturn]] void serve(ubus_handler_t handler, int ready)
    {
        prctl(PR_SET_PDEATHSIG, SIGKILL);
        static ubus_method methods[] = {{"status", nullptr, 0, 0, nullptr, 0}, {"history", nullptr, 0, 0, nullptr, 0}};
        static ubus_object_type type = {"wan_detect.state", 0, methods, 2};
        static ubus_object object = {};
        for (ubus_method &method : methods)
            method.handler = handler;
        object.name = type.name;
        object.type = &type;
        object.methods = methods;
        object.n_methods = 2;
        static ubus_context *bus = ubus_connect(BUS_SOCKET_PATH);
        ubus_add_uloop(bus);
        if (ubus_add_object(bus, &object) != 0)
            _exit(1);
        static uloop_fd orders = {};
        orders.fd = orders_[0];
        orders.cb = [](uloop_fd *fd, unsigned int) {
            char order;
            if (read(fd->fd, &order, 1) == 1)
                ubus_notify(bus, &object, "link", t_reply("{}").blob(), -1);
        };
        uloop_fd_add(&orders, ULOOP_READ);
        if (write(ready, "r", 1) != 1)
            _exit(1);
        uloop_run();
        _exit(0);
    }

    int orders_[2];
    pid_t process_;
};

std::string read_what_is_there(int fd, int timeout_ms)
{
    std::string text;
    for (pollfd wait = {fd, POLLIN, 0}; poll(&wait, 1, text.empty() ? timeout_ms : 0) > 0;) {
        char part[4096];
        const ssize_t size = read(fd, part, sizeof part);
        if (size <= 0)
            break;
        text.append(part, static_cast<size_t>(size));
    }
    return text;
}

// The program with these options; its output goes into pipes, or to a terminal.
class t_program {
public:
    explicit t_program(std::vector<std::string> options, bool on_terminal = false, unsigned short rows = 0)
    {
        options.insert(options.begin(), BIN_FOLDER + "/wan_detect");
        int out[2], err[2];
        const winsize size = {rows, 80, 0, 0};
        EXPECT_EQ(on_terminal ? openpty(&out[0], &out[1], nullptr, nullptr, &size) : pipe2(out, O_CLOEXEC), 0);
        EXPECT_EQ(pipe2(err, O_CLOEXEC), 0);
        process_ = fork();
        if (process_ == 0) {
            dup2(out[1], STDOUT_FILENO);
            dup2(err[1], STDERR_FILENO);
            close(out[0]);
            std::vector<char *> words;
            for (std::string &option : options)
                words.push_back(option.data());
            words.push_back(nullptr);
            setenv("LANG", "C", 1);
            setenv("TERM", "xterm", 1);
            unsetenv("LC_ALL");
            execv(words[0], words.data());
            _exit(127);
        }
        close(out[1]);
        close(err[1]);
        out_ = out[0];
        err_ = err[0];
    }
    ~t_program()
    {
        if (process_ > 0) {
            ::kill(process_, SIGKILL);
            waitpid(process_, nullptr, 0);
        }
        close_output();
        close(err_);
    }
    t_program(const t_program &) = delete;
    t_program &operator=(const t_program &) = delete;

    void signal(int number) { kill(process_, number); }
    void close_output()
    {
        if (out_ >= 0)
            close(out_);
        out_ = -1;
    }
    // Reads until the output since the last call holds the text; all of it.
    std::string read_until(const std::string &text) { return until(out_, text); }
    std::string complaint_until(const std::string &text) { return until(err_, text); }
    // The exit status, or -1 when it does not end in time, or by a signal.
    int end(int limit_ms = PATIENCE_MS)
    {
        int status = -1;
        for (int waited = 0; waitpid(process_, &status, WNOHANG) == 0; waited += 5) {
            if (waited >= limit_ms)
                return -1;
            std::this_thread::sleep_for(std::chrono::milliseconds(5));
        }
        process_ = -1;
        return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
    }
    std::string output() { return read_what_is_there(out_, 0); }
    std::string complaint() { return read_what_is_there(err_, 0); }
    pid_t process() const { return process_; }

private:
    static std::string until(int fd, const std::string &text)
    {
        std::string found;
        while (found.find(text) == found.npos) {
            const std::string part = read_what_is_there(fd, PATIENCE_MS);
            EXPECT_NE(part, "") << "no " << text << " in " << found;
            if (part.empty())
                break;
            found += part;
        }
        return found;
    }

    int out_, err_;
    pid_t process_;
};

std::string kept_text()
{
    return read_file(WAN_DETECT_TEST_DATA "/golden/status/5_ports.ascii.txt");
}

class status_client : public testing::Test {
protected:
    t_bus_daemon bus_{BUS_SOCKET_PATH};
};

// holds: status-option
TEST_F(status_client, prints_the_picture_of_what_the_daemon_answers)
{
    t_stand_in daemon;
    t_program program({"--status"});
    EXPECT_EQ(program.end(), 0);
    EXPECT_EQ(program.output(), kept_text());
    EXPECT_EQ(program.complaint(), "");
}

// holds: status-json
TEST_F(status_client, prints_the_answer_itself_as_json)
{
    t_stand_in daemon;
    t_program program({"--status", "--json"});
    EXPECT_EQ(program.end(), 0);
    const std::string text = program.output();
    EXPECT_EQ(text.find("{\"version\": \"1.0.0\", \"uptime\": 4711, \"starting\": false, "), 0u) << text;
    EXPECT_TRUE(text.ends_with("\"hints\": [\"several\", \"vlan\"]}\n")) << text;
}

// holds: status-exit
TEST_F(status_client, without_a_daemon_gives_1_and_says_so)
{
    t_program program({"--status"});
    EXPECT_EQ(program.end(), 1);
    EXPECT_EQ(program.output(), "");
    EXPECT_EQ(program.complaint(), "wan_detect: the daemon is not on the bus\n");
}

// holds: status-exit
TEST_F(status_client, without_a_bus_gives_1_and_says_so)
{
    bus_.kill();
    t_program program({"--status", "--json"});
    EXPECT_EQ(program.end(), 1);
    EXPECT_EQ(program.output(), "");
    EXPECT_EQ(program.complaint(), "wan_detect: there is no bus\n");
}

// holds: status-exit
TEST_F(status_client, of_a_bus_that_hangs_gives_1)
{
    bus_.stop();
    t_program program({"--status"});
    EXPECT_EQ(program.end(), 1);
    EXPECT_EQ(program.complaint(), "wan_detect: there is no bus\n");
    bus_.go_on();
}

// holds: status-exit
TEST_F(status_client, of_a_daemon_that_refuses_or_says_nothing_gives_1)
{
    {
        t_stand_in daemon(refuse);
        t_program program({"--status"});
        EXPECT_EQ(program.end(), 1);
        EXPECT_EQ(program.complaint(), "wan_detect: the bus does not let this user ask the daemon\n");
    }
    t_stand_in daemon(say_nothing);
    t_program program({"--status"});
    EXPECT_EQ(program.end(), 1);
    EXPECT_EQ(program.complaint(), "wan_detect: the daemon does not answer\n");
}

// holds: status-exit
TEST_F(status_client, with_an_output_that_takes_nothing_gives_1)
{
    t_stand_in daemon;
    daemon.freeze(); // or it is told all before its output is closed
    t_program program({"--status"});
    program.close_output();
    daemon.go_on();
    EXPECT_EQ(program.end(), 1);
}

// A picture is over with its last line.
constexpr const char *LAST_LINE = "is on a VLAN\n";

// holds: status-watch
TEST_F(status_client, that_watches_adds_a_picture_whenever_it_is_told_of_a_change)
{
    t_stand_in daemon;
    t_program program({"--status", "--watch"});
    EXPECT_EQ(program.read_until(LAST_LINE), kept_text());
    for (int i = 0; i < 2; i++) {
        daemon.notify();
        EXPECT_EQ(program.read_until(LAST_LINE), "\n" + kept_text());
    }
    EXPECT_EQ(program.complaint(), "");
}

// holds: status-watch
TEST_F(status_client, that_watches_adds_a_line_of_json_for_each_change)
{
    t_stand_in daemon;
    t_program program({"--status", "--watch", "--json"});
    const std::string first = program.read_until("\n");
    EXPECT_TRUE(first.starts_with("{\"version\"")) << first;
    daemon.notify();
    EXPECT_EQ(program.read_until("\n"), first);
}

// holds: status-watch
TEST_F(status_client, that_watches_ends_with_0_when_it_is_told_to)
{
    t_stand_in daemon;
    for (const int number : {SIGINT, SIGTERM}) {
        t_program program({"--status", "--watch"});
        program.read_until(LAST_LINE);
        program.signal(number);
        EXPECT_EQ(program.end(END_LIMIT_MS), 0) << number;
    }
}

// holds: status-watch
TEST_F(status_client, that_watches_ends_with_0_when_nobody_reads_on)
{
    t_stand_in daemon;
    for (const bool on_terminal : {false, true}) {
        t_program program({"--status", "--watch"}, on_terminal);
        program.read_until("VLAN");
        program.close_output();
        EXPECT_EQ(program.end(END_LIMIT_MS), 0);
    }
}

// holds: status-watch
TEST_F(status_client, that_watches_into_a_full_disk_ends_with_1)
{
    t_stand_in daemon;
    for (const char *option : {"", " --json"}) {
        const std::string command = "timeout 15 " + BIN_FOLDER + "/wan_detect --status --watch" + option;
        const int status = system((command + " >/dev/full").c_str());
        EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == EXIT_FAILURE) << command << " gave " << status;
    }
}

// holds: status-watch
TEST_F(status_client, on_a_terminal_with_few_rows_shows_fewer_verdicts_so_that_the_panel_stays)
{
    t_stand_in daemon;
    const auto shown = [](unsigned short rows) {
        t_program program({"--status", "--watch"}, true, rows);
        const std::string first = program.read_until(FROM_THE_TOP);
        const std::string text = first + program.read_until(FROM_THE_TOP);
        const size_t begin = text.find(FROM_THE_TOP);
        return text.substr(begin, text.find(FROM_THE_TOP, begin + 1) - begin);
    };
    const auto lines = [](const std::string &text) { return std::count(text.begin(), text.end(), '\n'); };
    const std::string whole = shown(50), some = shown(24), few = shown(9);
    EXPECT_EQ(lines(whole), lines(kept_text()));
    EXPECT_NE(whole.find("3 d ago"), whole.npos);
    EXPECT_LT(lines(some), 24);
    EXPECT_NE(some.find("eth4"), some.npos);
    EXPECT_NE(some.find("63 s ago"), some.npos) << "as many as fit";
    EXPECT_EQ(some.find("66 min ago"), some.npos) << some;
    EXPECT_NE(some.find("is on a VLAN"), some.npos) << some;
    EXPECT_EQ(lines(few), 8) << few;
    EXPECT_NE(few.find("eth4"), few.npos);
}

// One when the daemon is back, and one whenever it notifies.
void expect_pictures_again(t_program *program, t_stand_in *daemon)
{
    EXPECT_EQ(program->read_until(LAST_LINE), "\n" + kept_text());
    daemon->notify();
    EXPECT_EQ(program->read_until(LAST_LINE), "\n" + kept_text());
}

// holds: status-watch
TEST_F(status_client, that_watches_outlives_the_daemon)
{
    auto daemon = std::make_unique<t_stand_in>();
    t_program program({"--status", "--watch"});
    program.read_until(LAST_LINE);
    daemon.reset();
    EXPECT_EQ(program.complaint_until("\n"), "wan_detect: the daemon is not on the bus\n");
    daemon = std::make_unique<t_stand_in>();
    EXPECT_EQ(program.complaint_until("\n"), "wan_detect: the daemon answers\n");
    expect_pictures_again(&program, daemon.get());
}

// holds: status-watch
TEST_F(status_client, that_watches_outlives_the_bus)
{
    auto daemon = std::make_unique<t_stand_in>();
    t_program program({"--status", "--watch"});
    program.read_until(LAST_LINE);
    bus_.kill();
    EXPECT_EQ(program.complaint_until("\n"), "wan_detect: there is no bus\n");
    bus_.start();
    daemon = std::make_unique<t_stand_in>();
    program.complaint_until("wan_detect: the daemon answers\n");
    expect_pictures_again(&program, daemon.get());
}

// holds: status-watch
TEST_F(status_client, that_watches_waits_for_a_daemon_that_is_busy)
{
    t_stand_in daemon;
    t_program program({"--status", "--watch"});
    program.read_until(LAST_LINE);
    daemon.freeze();
    EXPECT_EQ(program.complaint_until("\n"), "wan_detect: the daemon does not answer\n");
    daemon.go_on();
    EXPECT_EQ(program.complaint_until("\n"), "wan_detect: the daemon answers\n");
}

// holds: status-watch
TEST_F(status_client, on_a_terminal_draws_the_picture_anew_and_says_in_it_what_is_wrong)
{
    auto daemon = std::make_unique<t_stand_in>();
    t_program program({"--status", "--watch"}, true);
    const std::string first = program.read_until("VLAN");
    EXPECT_TRUE(first.starts_with("\033[H\033[J")) << first;
    EXPECT_NE(first.find("\033[1;33mWAN"), first.npos) << first;
    program.read_until("\033[H\033[J"); // a second later, without a word from the daemon
    daemon.reset();
    program.read_until("the daemon is not on the bus; this goes on when it does");
    EXPECT_EQ(program.complaint(), "");
}

} // namespace
