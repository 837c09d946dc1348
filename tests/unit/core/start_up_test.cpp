// SPDX-License-Identifier: MIT
// Start-up from the command line to the loop: the program's own main, called as a function, in a process that neither
// forks nor sleeps and whose loop returns at once.
#include <chrono>
#include <csignal>
#include <cstdlib>
#include <ctime>
#include <fcntl.h>
#include <filesystem>
#include <poll.h>
#include <sstream>
#include <sys/file.h>
#include <thread>

#include <getopt.h>
#include <sys/prctl.h>
#include <sys/stat.h>
#include <sys/types.h>
#include <sys/wait.h>
#include <unistd.h>

#include "core/background.h"
#include "core/hangup.h"
#include "core/retries.h"
#include "core/shutdown.h"
#include "model/chronicle.h"
#include "platform/bus.h"
#include "platform/log.h"
#include "platform/uci_lock.h"
#include "probes/discovery/dhcp_discovery.h"
#include "probes/discovery/pppoe_discovery.h"
#include "probes/lan/arp_table.h"
#include "tests/unit/core/engine_fixture.h"
#include "tests/unit/core/recorded_pauses.h"

int wan_detect_main(int argc, char **argv);

namespace {

constexpr pid_t FORK_FOR_REAL = -2;

pid_t fork_result = FORK_FOR_REAL;
std::function<void()> before_fork;
int forks;
int bus_inits;
int bus_result;
bool raise_fails;
int failing_eventfd; // the number of the call, from 1
std::function<void()> on_bus_init;
std::function<void(int timeout)> on_loop;

} // namespace

// The replaced calls.
extern "C" {
pid_t __real_fork();
pid_t __wrap_fork();
int __real_raise(int signal);
int __wrap_raise(int signal);
int __wrap_uloop_run_timeout(int timeout);
int __real_eventfd(unsigned count, int flags);
int __wrap_eventfd(unsigned count, int flags);

int __wrap_eventfd(unsigned count, int flags)
{
    return failing_eventfd > 0 && --failing_eventfd == 0 ? -1 : __real_eventfd(count, flags);
}

pid_t __wrap_fork()
{
    if (fork_result == FORK_FOR_REAL)
        return __real_fork();
    forks++;
    if (before_fork)
        before_fork();
    return fork_result;
}

int __wrap_raise(int signal)
{
    return raise_fails ? -1 : __real_raise(signal);
}

int __wrap_uloop_run_timeout(int timeout)
{
    if (on_loop)
        on_loop(timeout);
    return 0;
}
}

// What main calls as wan_detect_ubus_init.
decltype(wan_detect_ubus_init) offer_to_no_bus;

int offer_to_no_bus(const t_bus_exports *)
{
    bus_inits++;
    if (on_bus_init)
        on_bus_init();
    return bus_result;
}

namespace {

using t_pauses = std::vector<uint32_t>;
constexpr const char *LOG_FILE = "/tmp/wan_detect.log";
constexpr const char *RELOAD = "/sbin/wanlan_port_reload";
constexpr int NEVER_IN_THE_LOOP = -2;

// What the daemon is started with; what the tests had comes back.
class t_starter {
public:
    t_starter(mode_t mask, const char *path) : mask_(umask(mask)), path_(getenv("PATH"))
    {
        if (path)
            setenv("PATH", path, 1);
        else
            unsetenv("PATH");
    }
    ~t_starter()
    {
        umask(mask_);
        setenv("PATH", path_.c_str(), 1);
    }

private:
    mode_t mask_;
    std::string path_;
};

class start_up : public t_engine_test {
protected:
    void SetUp() override
    {
        fake_probes = {};
        fake_router = {};
        for (int i = 0; i < 5; i++)
            fake_router.links["eth" + std::to_string(i)] = false;
        fork_result = FORK_FOR_REAL;
        forks = bus_inits = bus_result = 0;
        raise_fails = false;
        recorded_pauses.reset();
        write_file(LOG_FILE, "");
        write_router_config();
        on_loop = [this](int) {
            first_cycle = armed(engine.init_wan_detect_all);
            heartbeat = armed(engine.heartbeat);
        };
    }
    void TearDown() override
    {
        on_loop = nullptr;
        before_fork = on_bus_init = nullptr;
        log_done();
        remove(LOG_FILE);
        engine = {};
        port_model = {};
        combo_worker = link_worker = {};
        // What the first process passes on, or holds back for the second one.
        signal(SIGTERM, SIG_DFL);
        signal(SIGINT, SIG_DFL);
        signal(SIGHUP, SIG_DFL);
        sigset_t none;
        sigemptyset(&none);
        pthread_sigmask(SIG_SETMASK, &none, nullptr);
    }

    // The exit status; fork gives `forked`, which is 0 for the second process.
    static int start(std::vector<std::string> words = {"-d", "7"}, pid_t forked = 0)
    {
        fork_result = forked;
        words.insert(words.begin(), "/usr/sbin/wan_detect");
        std::vector<char *> argv;
        for (std::string &word : words)
            argv.push_back(word.data());
        argv.push_back(nullptr);
        optind = 0;
        const int status = wan_detect_main(static_cast<int>(words.size()), argv.data());
        fork_result = FORK_FOR_REAL;
        return status;
    }
    static void change(const std::string &package, const std::string &from, const std::string &to)
    {
        std::string text = read_file("/etc/config/" + package);
        ASSERT_NE(text.find(from), std::string::npos);
        write_config(package, text.replace(text.find(from), from.size(), to));
    }
    // How often it was said.
    static int said(const std::string &level, const std::string &body)
    {
        std::stringstream log(read_file(LOG_FILE));
        int found = 0;
        for (std::string line; std::getline(log, line);)
            found += line.starts_with("[wan_detect][" + level + "][") && line.ends_with("]: " + body);
        return found;
    }

    int first_cycle = NEVER_IN_THE_LOOP; // due so many milliseconds after the loop began
    int heartbeat = NEVER_IN_THE_LOOP;
};

// holds: help
TEST_F(start_up, a_wrong_command_line_gives_status_1_before_any_fork)
{
    EXPECT_EQ(start({"-h"}), 1);
    EXPECT_EQ(start({"-x"}), 1);
    EXPECT_EQ(forks, 0);
    EXPECT_EQ(bus_inits, 0);
}

// holds: failed-fork
TEST_F(start_up, a_failed_fork_is_told_on_the_console_and_gives_status_1)
{
    EXPECT_EQ(start({}, -1), 1);
    EXPECT_EQ(fake_router.commands,
              (std::vector<std::string>{"echo '[wan_detect][Error] error fork!!!' > /dev/console"}));
    EXPECT_EQ(bus_inits, 0);
}

// A second process with its signals held; it ends with status 0 if the wish reaches it.
pid_t daemon_that_waits_for(int wish)
{
    const pid_t daemon = __real_fork();
    if (daemon == 0) {
        sigset_t wishes;
        sigemptyset(&wishes);
        sigaddset(&wishes, wish);
        const timespec limit = {30, 0};
        _exit(sigtimedwait(&wishes, nullptr, &limit) == wish ? EXIT_SUCCESS : EXIT_FAILURE);
    }
    return daemon;
}

int status_of(pid_t process)
{
    int status = -1;
    EXPECT_EQ(waitpid(process, &status, 0), process);
    return status;
}

// holds: signal-around-fork
TEST_F(start_up, a_wish_to_end_that_comes_just_before_the_fork_reaches_the_daemon)
{
    for (int wish : {SIGTERM, SIGINT}) {
        hold_ending_signals();
        const pid_t daemon = daemon_that_waits_for(wish);
        sigset_t none;
        sigemptyset(&none);
        pthread_sigmask(SIG_SETMASK, &none, nullptr); // it is the program that holds them back
        before_fork = [wish] { kill(getpid(), wish); };
        EXPECT_EQ(start({}, daemon), 0);
        EXPECT_EQ(status_of(daemon), 0);
    }
}

// holds: signal-around-fork
TEST_F(start_up, a_wish_to_end_in_the_last_moment_of_the_first_process_reaches_the_daemon)
{
    for (int wish : {SIGTERM, SIGINT}) {
        hold_ending_signals();
        const pid_t daemon = daemon_that_waits_for(wish);
        EXPECT_EQ(start({}, daemon), 0);
        raise(wish);
        EXPECT_EQ(status_of(daemon), 0);
    }
}

// holds: first-process-ends
TEST_F(start_up, the_first_process_ends_with_status_0_and_does_nothing_more)
{
    EXPECT_EQ(start({}, 4711), 0);
    EXPECT_EQ(forks, 1);
    EXPECT_EQ(bus_inits, 0);
    EXPECT_EQ(heartbeat, NEVER_IN_THE_LOOP);
}

// holds: loop-returns
TEST_F(start_up, the_second_process_reaches_the_loop_and_ends_with_status_0_when_that_returns)
{
    EXPECT_EQ(start(), 0);
    EXPECT_EQ(bus_inits, 1);
    EXPECT_EQ(said("Debug", "init over"), 1);
    EXPECT_EQ(said("Debug", "Wan detect start uloop!!!!!!"), 1);
    EXPECT_TRUE(combo_worker.started);
    EXPECT_TRUE(link_worker.started);
}

// holds: version
TEST_F(start_up, the_version_gives_status_0_and_no_daemon)
{
    EXPECT_EQ(start({"-V"}), 0);
    EXPECT_EQ(start({"-f", "--version"}), 0);
    EXPECT_EQ(forks, 0);
    EXPECT_EQ(bus_inits, 0);
}

// holds: status-option
TEST_F(start_up, the_status_is_the_clients_and_no_daemon_is_started)
{
    testing::internal::CaptureStderr();
    EXPECT_EQ(start({"--status"}), 1) << "there is no bus";
    EXPECT_NE(testing::internal::GetCapturedStderr(), "");
    EXPECT_EQ(forks, 0);
    EXPECT_EQ(bus_inits, 0);
}

// holds: foreground
TEST_F(start_up, in_the_foreground_the_process_that_was_started_reaches_the_loop_as_in_the_background)
{
    start();
    const int first_cycle_in_background = first_cycle;
    EXPECT_EQ(start({"-f", "-d", "7"}, -1), 0);
    EXPECT_EQ(forks, 1) << "by the start before";
    EXPECT_EQ(bus_inits, 2);
    EXPECT_EQ(first_cycle, first_cycle_in_background);
    EXPECT_EQ(said("Debug", "Wan detect start uloop!!!!!!"), 1);
    EXPECT_EQ(umask(0), 022u);
}

// holds: foreground-log
TEST_F(start_up, in_the_foreground_without_a_level_the_log_stays_on_standard_output)
{
    t_log_capture output;
    on_loop = [](int) {
        log_open(); // as the method "log" does
        log_set_level(LOG_LEVEL_Debug);
        LOG(Info, "heard by who started it\n");
    };
    EXPECT_EQ(start({"-f"}), 0);
    EXPECT_TRUE(output.has_body("heard by who started it"));
    EXPECT_EQ(read_file(LOG_FILE), "");
}

// holds: foreground-log
TEST_F(start_up, a_level_opens_the_log_by_the_time_of_the_loop_in_the_foreground_too)
{
    for (const auto &words : {std::vector<std::string>{"-d", "2"}, {"-f", "-d", "2"}}) {
        write_file(LOG_FILE, "");
        on_loop = [](int) { log_print_always("heard in the file\n"); };
        EXPECT_EQ(start(words), 0);
        EXPECT_EQ(read_file(LOG_FILE), "heard in the file\n");
    }
}

// holds: second-instance
TEST_F(start_up, the_log_file_is_not_touched_before_the_bus_has_taken_the_daemon)
{
    std::string led_to;
    on_bus_init = [&led_to] { led_to = std::filesystem::read_symlink("/proc/self/fd/1"); };
    start();
    EXPECT_NE(led_to, LOG_FILE);
}

// holds: hangup-ignored
TEST_F(start_up, a_hangup_is_told_of_and_ends_nothing_whatever_the_starter_did_with_it)
{
    for (auto disposition : {SIG_DFL, SIG_IGN}) {
        write_file(LOG_FILE, "");
        signal(SIGHUP, disposition);
        before_fork = [] { kill(getpid(), SIGHUP); };
        on_loop = [](int) {
            kill(getpid(), SIGHUP);
            pollfd waiting = {hangup_fd(), POLLIN, 0};
            EXPECT_EQ(poll(&waiting, 1, 0), 1);
            tell_of_hangup();
            EXPECT_EQ(poll(&waiting, 1, 0), 0);
        };
        EXPECT_EQ(start(), 0);
        EXPECT_EQ(said("Info", "SIGHUP is ignored"), 1); // the two became one while they waited
    }
}

// holds: hangup-ignored
TEST_F(start_up, programs_find_the_default_reaction_to_a_hangup)
{
    signal(SIGHUP, SIG_IGN);
    struct sigaction found = {};
    on_loop = [&found](int) { sigaction(SIGHUP, nullptr, &found); };
    start();
    EXPECT_EQ(found.sa_handler, SIG_DFL);
}

// holds: heartbeat
TEST_F(start_up, the_loop_runs_without_end_and_begins_with_a_heartbeat)
{
    int loop_timeout = 0;
    const auto look = on_loop;
    on_loop = [&](int timeout) {
        loop_timeout = timeout;
        look(timeout);
    };
    start();
    EXPECT_EQ(loop_timeout, -1);
    EXPECT_EQ(heartbeat, 0);
}

// holds: own-habits
TEST_F(start_up, only_the_second_process_gives_up_what_it_was_started_with)
{
    const t_starter starter(0, nullptr);
    start({}, 4711);
    EXPECT_EQ(umask(0), 0u);
    EXPECT_EQ(getenv("PATH"), nullptr);
    EXPECT_EQ(start(), 0);
    EXPECT_EQ(umask(0), 022u);
    EXPECT_STREQ(getenv("PATH"), "/usr/sbin:/usr/bin:/sbin:/bin");
    EXPECT_EQ(prctl(PR_GET_NO_NEW_PRIVS, 0, 0, 0, 0), 1);
}

// holds: path-that-was-given
TEST_F(start_up, a_path_that_was_given_stays_and_an_empty_one_is_none)
{
    const t_starter starter(077, "/opt/bin:/bin");
    start();
    EXPECT_STREQ(getenv("PATH"), "/opt/bin:/bin");
    EXPECT_EQ(umask(0), 022u);
    setenv("PATH", "", 1);
    start();
    EXPECT_STREQ(getenv("PATH"), "/usr/sbin:/usr/bin:/sbin:/bin");
}

// holds: no-options, level-out-of-range
TEST_F(start_up, without_options_or_with_a_wrong_level_the_loop_runs_at_level_critical_and_no_log_is_opened)
{
    for (const auto &words : {std::vector<std::string>{}, {"-d", "0"}, {"-d", "8"}}) {
        int level = -1;
        log_set_level(LOG_LEVEL_Error);
        on_loop = [&](int) { level = log_get_level(); };
        EXPECT_EQ(start(words), 0);
        EXPECT_EQ(level, LOG_LEVEL_Critical);
        EXPECT_EQ(read_file(LOG_FILE), "");
    }
}

// holds: timers-bound
TEST_F(start_up, every_timer_has_its_callback_before_the_loop)
{
    int bound = 0;
    on_loop = [&](int) {
        for (const uloop_timeout *timer :
             {&engine.init_wan_detect_all, &engine.start_wan_detect, &engine.using_proto_detect, &engine.using_arp,
              &engine.using_dns, &engine.try_each, &engine.end, &engine.heartbeat, &engine.proto_detect_start,
              &engine.proto_detect_end})
            bound += timer->cb != nullptr;
    };
    start();
    EXPECT_EQ(bound, 10);
}

// holds: wait-for-link
TEST_F(start_up, without_a_link_it_waits_30_times_2_s_and_then_15_s)
{
    start();
    t_pauses expected(30, 2000);
    expected.push_back(15000);
    EXPECT_EQ(recorded_pauses.of_main_thread(), expected);
    EXPECT_EQ(said("Debug", "No device has plugged in, Waiting & check after 2s!"), 30);
    EXPECT_EQ(said("Info", "No device plugged in in 60s, Waiting for another 15s before starting main!"), 1);
}

// holds: wait-for-link
TEST_F(start_up, with_a_link_at_the_first_look_it_waits_15_s)
{
    fake_router.links["eth0"] = true;
    start();
    EXPECT_EQ(recorded_pauses.of_main_thread(), t_pauses{15000});
    EXPECT_EQ(said("Debug", "No device has plugged in, Waiting & check after 2s!"), 0);
    EXPECT_EQ(said("Info", "No device plugged in in 60s, Waiting for another 15s before starting main!"), 0);
}

// holds: wait-for-link
TEST_F(start_up, a_link_that_comes_meanwhile_ends_the_wait_but_not_the_15_s)
{
    recorded_pauses.on_main_thread = [](uint32_t) {
        if (recorded_pauses.of_main_thread().size() == 3)
            fake_router.links["eth0"] = true;
    };
    start();
    EXPECT_EQ(recorded_pauses.of_main_thread(), (t_pauses{2000, 2000, 2000, 15000}));
    EXPECT_EQ(said("Info", "No device plugged in in 60s, Waiting for another 15s before starting main!"), 0);
}

// holds: wait-for-link
TEST_F(start_up, the_link_of_another_port_is_not_waited_for)
{
    fake_router.links["eth1"] = true;
    start();
    EXPECT_EQ(recorded_pauses.of_main_thread().size(), 31u);
}

// holds: first-cycle, chronicle-openers
TEST_F(start_up, opens_a_cycle_at_once_when_the_upstream_does_not_work)
{
    for (int state : {-1, 1}) {
        fake_router.network_state = state;
        start();
        EXPECT_EQ(first_cycle, 0) << state;
        EXPECT_EQ(chronicle.asked_opener, t_opener::start_up) << state;
    }
    EXPECT_EQ(fake_router.count("online-test"), 0);
}

// holds: link-counts
TEST_F(start_up, links_that_are_there_before_the_loop_are_no_changes)
{
    fake_router.links["eth0"] = fake_router.links["eth2"] = true;
    std::vector<uint32_t> changes;
    on_loop = [&](int) {
        for (const char *port : {"eth0", "eth1", "eth2"})
            changes.push_back(dev(port)->notes.link_changes);
        EXPECT_TRUE(dev("eth2")->link_active);
    };
    start();
    EXPECT_EQ(changes, (std::vector<uint32_t>{0, 0, 0}));
}

// holds: progress
TEST_F(start_up, the_pause_before_the_first_look_is_known_in_the_loop)
{
    const std::string network = read_file("/etc/config/network");
    std::vector<int> pauses;
    on_loop = [&](int) { pauses.push_back(retry_pause_s()); };
    for (const char *value : {"0", "45", "1"}) {
        write_config("network",
                     network + "config auto_wan_detect 'auto_wan_detect'\n\toption retry_interval '" + value + "'\n");
        start();
    }
    EXPECT_EQ(pauses, (std::vector<int>{0, 45, 30}));
}

// holds: first-cycle
TEST_F(start_up, a_working_upstream_needs_no_cycle_and_no_fake_wan_port)
{
    change("network", "fake_wan_port '-1'", "fake_wan_port '2'");
    fake_router.network_state = 0;
    start();
    EXPECT_EQ(first_cycle, NOT_ARMED);
    EXPECT_EQ(fake_router.count(RELOAD), 1);
    EXPECT_NE(read_file("/etc/config/network").find("fake_wan_port '-1'"), std::string::npos);
}

// holds: first-cycle
TEST_F(start_up, a_static_upstream_works_only_when_the_online_test_says_so)
{
    write_router_config("static");
    fake_router.network_state = 0;
    fake_router.online_test_status = 1;
    start();
    EXPECT_EQ(first_cycle, 0);
    fake_router.online_test_status = 0;
    start();
    EXPECT_EQ(first_cycle, NOT_ARMED);
    EXPECT_EQ(fake_router.count("online-test"), 2);
}

// holds: off-at-start, enabling-words
TEST_F(start_up, with_detection_off_no_cycle_opens_the_network_is_not_asked_and_the_fake_wan_port_goes)
{
    change("network", "fake_wan_port '-1'", "fake_wan_port '2'");
    change("network", "enable 'on'", "enable 'off'");
    start();
    EXPECT_EQ(first_cycle, NOT_ARMED);
    EXPECT_TRUE(fake_router.bus_calls.empty());
    EXPECT_EQ(heartbeat, 0);
    EXPECT_EQ(fake_router.count(RELOAD), 1);
    EXPECT_NE(read_file("/etc/config/network").find("fake_wan_port '-1'"), std::string::npos);
}

// holds: no-router-at-start
TEST_F(start_up, outside_router_mode_no_cycle_opens_and_the_fake_wan_port_stays)
{
    change("network", "fake_wan_port '-1'", "fake_wan_port '2'");
    change("sysmode", "mode 'router'", "mode 'ap'");
    fake_router.network_state = 0;
    start();
    EXPECT_EQ(first_cycle, NOT_ARMED);
    EXPECT_TRUE(fake_router.bus_calls.empty());
    EXPECT_EQ(fake_router.count(RELOAD), 0);
    EXPECT_NE(read_file("/etc/config/network").find("fake_wan_port '2'"), std::string::npos);
}

// holds: fake-wan-set-up-fails
TEST_F(start_up, a_fake_wan_port_that_cannot_be_set_up_is_told_and_start_up_goes_on)
{
    change("network", "fake_wan_port '-1'", "fake_wan_port '77'");
    EXPECT_EQ(start(), 0);
    EXPECT_EQ(said("Info", "init_fake_wan_device failed!"), 1);
    EXPECT_EQ(heartbeat, 0);
}

// holds: locked-read
TEST_F(start_up, a_file_that_is_locked_for_longer_than_a_second_is_waited_for)
{
    const int fd = open("/etc/config/sysmode", O_RDONLY | O_CLOEXEC);
    ASSERT_EQ(flock(fd, LOCK_EX | LOCK_NB), 0);
    std::thread writer([fd] {
        std::this_thread::sleep_for(std::chrono::milliseconds(1500));
        close(fd);
    });
    EXPECT_EQ(start(), 0);
    writer.join();
    EXPECT_EQ(said("Error", "Unable to get sysmode.sysmode.mode, treat it as router!"), 0);
    EXPECT_EQ(uci_lock_limit(), UCI_LOCK_LIMIT_MS);
}

// What cannot be done without ends the process by a signal that it sends to itself: a copy of it, for these tests.
using start_up_death = start_up;

// holds: start-up-fails
TEST_F(start_up_death, without_a_bus_the_process_ends_with_status_0)
{
    bus_result = -1;
    EXPECT_EXIT(start(), testing::ExitedWithCode(0), "");
    EXPECT_EQ(said("Critical", "ubus"), 1);
    EXPECT_EQ(said("Debug", "init over"), 0);
}

// holds: signal-cannot-be-raised
TEST_F(start_up_death, a_signal_that_cannot_be_sent_gives_status_1)
{
    bus_result = -1;
    raise_fails = true;
    EXPECT_EXIT(start(), testing::ExitedWithCode(1), "");
    EXPECT_EQ(said("Critical", "ubus"), 1);
}

// holds: start-up-fails
TEST_F(start_up_death, without_the_protocols_the_process_ends_with_status_0)
{
    remove_config("protocol");
    EXPECT_EXIT(start(), testing::ExitedWithCode(0), "");
    EXPECT_EQ(said("Critical", "init_all_protocols failed!"), 1);
    EXPECT_EQ(read_file(LOG_FILE).find("generate_eth_device"), std::string::npos) << "it ends there";
}

// holds: start-up-fails
TEST_F(start_up_death, without_any_port_the_process_ends_with_status_0)
{
    write_config("switch", "");
    EXPECT_EXIT(start(), testing::ExitedWithCode(0), "");
    EXPECT_EQ(said("Critical", "init_all_eth_device failed!"), 1);
}

TEST_F(start_up_death, standard_descriptors_that_the_starter_closed_lead_nowhere)
{
    on_loop = [](int) {
        for (const char *fd : {"0", "1", "2"})
            if (std::filesystem::read_symlink(std::string("/proc/self/fd/") + fd) != "/dev/null")
                _exit(EXIT_FAILURE);
        _exit(EXIT_SUCCESS);
    };
    EXPECT_EXIT(
        {
            for (int fd : {STDIN_FILENO, STDOUT_FILENO, STDERR_FILENO})
                close(fd);
            start({"-f"});
        },
        testing::ExitedWithCode(EXIT_SUCCESS), "");
}

// holds: foreground-gives-up
TEST_F(start_up_death, in_the_foreground_a_start_that_gives_up_gives_status_1)
{
    bus_result = -1;
    EXPECT_EXIT(start({"-f"}), testing::ExitedWithCode(1), "");
    bus_result = 0;
    EXPECT_EXIT(
        {
            remove_config("protocol");
            start({"--foreground"});
        },
        testing::ExitedWithCode(1), "");
    EXPECT_EXIT(
        {
            write_config("switch", "");
            start({"-f", "-d", "7"});
        },
        testing::ExitedWithCode(1), "");
}

// holds: foreground-gives-up
TEST_F(start_up_death, in_the_foreground_a_start_that_is_told_to_end_gives_status_0_even_if_it_then_fails)
{
    for (int wish : {SIGTERM, SIGINT}) {
        on_bus_init = [wish] { kill(getpid(), wish); };
        EXPECT_EXIT(start({"-f"}), testing::ExitedWithCode(0), "");
    }
    bus_result = -1;
    EXPECT_EXIT(start({"-f"}), testing::ExitedWithCode(0), "");
}

void *sleep_until_stopped(void *)
{
    sleep_unless_stopped(60'000);
    leave_background();
    return nullptr;
}

void leave_room_for(int workers)
{
    for (int i = workers; i < MAX_BACKGROUND_THREADS; i++) {
        pthread_t thread;
        if (start_background_thread(&thread, sleep_until_stopped, nullptr) == 0)
            pthread_detach(thread);
    }
}

// holds: start-up-fails
TEST_F(start_up_death, without_a_descriptor_for_the_loop_the_process_ends_with_status_0)
{
    for (int failing : {1, 2, 3}) {
        write_file(LOG_FILE, "");
        EXPECT_EXIT((failing_eventfd = failing, start()), testing::ExitedWithCode(0), "");
        EXPECT_EQ(said("Critical", "no descriptors for the event loop"), 1) << failing;
        EXPECT_EQ(said("Debug", "init over"), 0) << failing;
    }
}

// holds: start-up-fails
TEST_F(start_up_death, without_one_of_the_two_threads_the_process_ends_with_status_0)
{
    constexpr const char *FIRST = "pthread_create wan_combo_auto_switch failed...11";
    constexpr const char *SECOND = "pthread_create update_eth_link_status_trigger failed...11";
    on_bus_init = [] { leave_room_for(0); };
    EXPECT_EXIT(start(), testing::ExitedWithCode(0), "");
    EXPECT_EQ(said("Critical", FIRST), 1);
    EXPECT_EQ(said("Critical", SECOND), 0);
    write_file(LOG_FILE, "");
    on_bus_init = [] { leave_room_for(1); };
    EXPECT_EXIT(start(), testing::ExitedWithCode(0), "");
    EXPECT_EQ(said("Critical", FIRST), 0);
    EXPECT_EQ(said("Critical", SECOND), 1);
}

TEST_F(start_up, the_loop_leaves_the_ends_of_commands_to_the_threads_that_run_them)
{
    uloop_handle_sigchld = true;
    on_loop = [](int) { EXPECT_FALSE(uloop_handle_sigchld); };
    EXPECT_EQ(start(), 0);
    EXPECT_FALSE(uloop_handle_sigchld);
}

// holds: shutdown-releases
TEST_F(start_up, shutdown_closes_every_descriptor)
{
    const auto open_descriptors = [] {
        const std::filesystem::directory_iterator all("/proc/self/fd");
        return std::distance(begin(all), end(all));
    };
    const auto before = open_descriptors();
    EXPECT_EQ(start(), 0);
    EXPECT_EQ(open_descriptors(), before);
}

// holds: shutdown-releases
TEST_F(start_up, shutdown_releases_what_a_cycle_left_open)
{
    static t_discovery_port dhcp_batch;
    static t_discovery_port pppoe_batch;
    const t_mac mac = {{2, 0, 0, 0, 0, 9}};
    on_loop = [&](int) {
        dhcp_detect_handle.contexts = &dhcp_batch;
        pppoe_detect_handle.contexts = &pppoe_batch;
        add_arp_entry(&port_model.arp_table_hashmap_head, create_new_arp_entry(mac, 1, 1));
        engine.possible_wan_dev_list.add(dev("eth1"));
        engine.possible_wan_dev_list_cache.add(dev("eth2"));
    };
    EXPECT_EQ(start(), 0);
    EXPECT_EQ(fake_probes.count("release dhcp"), 1);
    EXPECT_EQ(fake_probes.count("release pppoe"), 1);
    EXPECT_EQ(port_model.arp_table_hashmap_head, nullptr);
    EXPECT_EQ(engine.possible_wan_dev_list.head.next, nullptr);
    EXPECT_EQ(engine.possible_wan_dev_list_cache.head.next, nullptr);
    EXPECT_EQ(port_model.dev_hashmap_head, nullptr);
}

} // namespace
