// SPDX-License-Identifier: MIT
// The log printer: levels, the form of a line, and where the lines go.
#include <atomic>
#include <chrono>
#include <csignal>
#include <filesystem>
#include <functional>
#include <regex>
#include <thread>
#include <vector>

#include <fcntl.h>
#include <gtest/gtest.h>
#include <poll.h>
#include <pty.h>
#include <sys/mman.h>
#include <sys/mount.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <sys/sysinfo.h>
#include <sys/sysmacros.h>
#include <sys/time.h>
#include <unistd.h>

#include "platform/clock.h"
#include "platform/guards.h"
#include "platform/log.h"
#include "tests/unit/support/failing_memory.h"
#include "tests/unit/support/own_place.h"
#include "tests/unit/support/sandbox.h"

namespace {

bool sysinfo_fails;

}

extern "C" int sysinfo(struct sysinfo *info) noexcept
{
    if (sysinfo_fails) {
        errno = EFAULT;
        return -1;
    }
    return static_cast<int>(syscall(SYS_sysinfo, info));
}

namespace {

const std::string LOG_FILE = "/tmp/wan_detect.log";
constexpr uid_t NOBODY = 65534;

size_t open_descriptors()
{
    size_t count = 0;
    for ([[maybe_unused]] const auto &entry : std::filesystem::directory_iterator("/proc/self/fd"))
        count++;
    return count;
}

// What lies behind a descriptor.
std::pair<dev_t, ino_t> behind(int fd)
{
    struct stat status = {};
    fstat(fd, &status);
    return {status.st_dev, status.st_ino};
}

std::pair<dev_t, ino_t> behind(const std::string &path)
{
    struct stat status = {};
    stat(path.c_str(), &status);
    return {status.st_dev, status.st_ino};
}

// A /dev of the test's own, with a plain file as the console unless there shall be none.
class t_own_dev {
public:
    explicit t_own_dev(bool with_console)
    {
        mounted_ = mount("tmpfs", "/dev", "tmpfs", 0, nullptr) == 0;
        if (with_console)
            write_file("/dev/console", "");
    }
    ~t_own_dev()
    {
        if (mounted_)
            umount2("/dev", MNT_DETACH);
    }
    bool mounted() const { return mounted_; }

private:
    bool mounted_;
};

// One line of each level.
void say_everything()
{
    LOG(Critical, "critical\n");
    LOG(Error, "error\n");
    LOG(Warning, "warning\n");
    LOG(Notice, "notice\n");
    LOG(Info, "info\n");
    LOG(Debug, "debug\n");
}

constexpr int LINES_OF_A_THREAD = 200;
constexpr const char *LONG_LINE = "a line that is long enough to be cut in the middle if it can be";

void say_many_lines()
{
    for (int i = 0; i < LINES_OF_A_THREAD; i++)
        LOG(Info, "%s\n", LONG_LINE);
}

std::vector<std::string> levels_said_at(int level)
{
    t_log_capture log(level);
    say_everything();
    std::vector<std::string> levels;
    for (const t_log_line &line : log.lines())
        levels.push_back(line.level);
    return levels;
}

class log_destination : public testing::Test {
protected:
    ~log_destination() override
    {
        log_done();
        std::filesystem::remove(LOG_FILE);
    }
    t_log_capture capture{LOG_LEVEL_Debug};
};

// What anybody may have put where the log file would be.
class log_destination_in_foreign_hands : public log_destination {
protected:
    ~log_destination_in_foreign_hands() override { std::filesystem::remove("/tmp/precious"); }

    static void expect_the_console()
    {
        t_own_dev dev(true);
        ASSERT_TRUE(dev.mounted());
        const size_t descriptors = open_descriptors();
        log_open();
        const std::vector<std::pair<dev_t, ino_t>> led_to = {behind(0), behind(1), behind(2)};
        LOG(Error, "on the console\n");
        log_close();
        EXPECT_EQ(led_to, std::vector(3, behind("/dev/console")));
        EXPECT_EQ(open_descriptors(), descriptors);
        EXPECT_NE(read_file("/dev/console").find("]: on the console\n"), std::string::npos);
    }
};

} // namespace

TEST(log, starts_at_level_error)
{
    EXPECT_EQ(log_get_level(), LOG_LEVEL_Error);
}

// holds: log-level-2
TEST(log, at_level_critical_only_critical_lines_appear)
{
    EXPECT_EQ(levels_said_at(LOG_LEVEL_Critical), std::vector<std::string>({"Critical"}));
}

// holds: log-level-7
TEST(log, each_level_adds_its_own_lines)
{
    EXPECT_EQ(levels_said_at(LOG_LEVEL_Error), std::vector<std::string>({"Critical", "Error"}));
    EXPECT_EQ(levels_said_at(LOG_LEVEL_Warning), std::vector<std::string>({"Critical", "Error", "Warning"}));
    EXPECT_EQ(levels_said_at(LOG_LEVEL_Notice), std::vector<std::string>({"Critical", "Error", "Warning", "Notice"}));
    EXPECT_EQ(levels_said_at(LOG_LEVEL_Info).size(), 5u);
}

// holds: log-level-7
TEST(log, level_debug_prints_every_line)
{
    EXPECT_EQ(levels_said_at(LOG_LEVEL_Debug),
              std::vector<std::string>({"Critical", "Error", "Warning", "Notice", "Info", "Debug"}));
}

// holds: log-level-7
TEST(log, level_0_prints_none)
{
    t_log_capture log(LOG_LEVEL_NONE);
    say_everything();
    EXPECT_EQ(log.text(), "");
}

// holds: log-prefix
TEST(log, a_line_carries_its_level_the_uptime_the_function_and_the_source_line)
{
    t_log_capture log;
    long before = log_uptime();
    LOG(Warning, "%s has %d ports\n", "router", 5);
    int line = __LINE__ - 1;
    long after = log_uptime();
    std::smatch match;
    std::string text = log.text();
    ASSERT_TRUE(std::regex_match(
        text, match, std::regex(R"(\[wan_detect\]\[Warning\]\[(\d+)\]\[(\w+):(\d+)\]: router has 5 ports\n)")))
        << text;
    EXPECT_GE(std::stol(match[1]), before);
    EXPECT_LE(std::stol(match[1]), after);
    EXPECT_EQ(match[2], "TestBody");
    EXPECT_EQ(std::stoi(match[3]), line);
}

TEST(log, entering_a_function_is_said_at_level_debug)
{
    t_log_capture log;
    LOG_ENTER();
    EXPECT_TRUE(log.has("Debug", "TestBody", "Entering function: TestBody!"));
}

TEST(log, a_line_above_the_level_does_not_evaluate_its_arguments)
{
    t_log_capture log(LOG_LEVEL_Error);
    int evaluated = 0;
    LOG(Debug, "%d\n", ++evaluated);
    EXPECT_EQ(evaluated, 0);
    const auto evaluate = [&] { return ++evaluated; };
    LOG(Debug, "%d\n", evaluate());
    EXPECT_EQ(evaluated, 0);
}

static_assert(log_reads_only("") && log_reads_only("dev->name, count - 1, a < b ? -a : b"));
static_assert(!log_reads_only("name(dev)") && !log_reads_only("t_text{1}.text") && !log_reads_only("names[i]") &&
              !log_reads_only("i++") && !log_reads_only("i--") && !log_reads_only("i = 1"));

TEST(log, a_line_is_written_out_at_once_even_into_a_file)
{
    int file = memfd_create("out", MFD_CLOEXEC);
    fflush(stdout);
    int saved = dup(STDOUT_FILENO);
    dup2(file, STDOUT_FILENO);
    LOG(Error, "now\n");
    char written[256] = {};
    ssize_t size = pread(file, written, sizeof written - 1, 0);
    fflush(stdout);
    dup2(saved, STDOUT_FILENO);
    close(saved);
    close(file);
    EXPECT_GT(size, 0);
    EXPECT_NE(std::string(written).find("]: now\n"), std::string::npos);
}

// holds: log-uptime-fails
TEST(log, a_failing_sysinfo_makes_the_uptime_minus_one_and_says_why_on_standard_error)
{
    t_log_capture log;
    testing::internal::CaptureStderr();
    sysinfo_fails = true;
    long uptime = log_uptime();
    LOG(Error, "x\n");
    sysinfo_fails = false;
    std::string said = testing::internal::GetCapturedStderr();
    EXPECT_EQ(uptime, -1);
    EXPECT_NE(log.text().find("[wan_detect][Error][-1]["), std::string::npos);
    std::string line = "Failed to get sysinfo, errno:14, reason:Bad address\n";
    EXPECT_EQ(said, line + line);
}

TEST(log, lines_of_several_threads_stay_whole)
{
    constexpr int THREADS = 4;
    t_log_capture log;
    std::vector<std::thread> threads;
    for (int i = 0; i < THREADS; i++)
        threads.emplace_back(say_many_lines);
    for (std::thread &thread : threads)
        thread.join();
    EXPECT_EQ(log.count("Info", "say_many_lines", LONG_LINE), THREADS * LINES_OF_A_THREAD);
}

// holds: log-destination
TEST_F(log_destination, is_the_file_when_somebody_created_it)
{
    write_file(LOG_FILE, "");
    log_open();
    for (int fd = 0; fd < 3; fd++)
        EXPECT_EQ(behind(fd), behind(LOG_FILE));
    LOG(Error, "into the file\n");
    log_close();
    EXPECT_NE(read_file(LOG_FILE).find("]: into the file\n"), std::string::npos);
    EXPECT_EQ(capture.text(), "");
}

TEST_F(log_destination, file_is_written_from_its_beginning_and_neither_cut_nor_appended_to)
{
    const std::string earlier(4096, 'x');
    write_file(LOG_FILE, earlier);
    log_open();
    LOG(Error, "new\n");
    log_close();
    std::string text = read_file(LOG_FILE);
    EXPECT_EQ(text.size(), earlier.size());
    EXPECT_EQ(text.rfind("[wan_detect][Error]", 0), 0u);
    EXPECT_EQ(text.back(), 'x');
}

// holds: log-destination
TEST_F(log_destination, is_the_console_without_the_file_and_the_file_only_after_the_next_close)
{
    t_own_dev dev(true);
    ASSERT_TRUE(dev.mounted());
    log_open();
    LOG(Error, "first\n");
    write_file(LOG_FILE, "");
    log_open();
    LOG(Error, "second\n");
    EXPECT_EQ(read_file(LOG_FILE), "");
    log_close();
    log_set_level(LOG_LEVEL_Debug);
    log_open();
    LOG(Error, "third\n");
    log_close();
    std::string console = read_file("/dev/console");
    EXPECT_NE(console.find("first"), std::string::npos);
    EXPECT_NE(console.find("second"), std::string::npos);
    EXPECT_EQ(console.find("third"), std::string::npos);
    EXPECT_NE(read_file(LOG_FILE).find("third"), std::string::npos);
}

// holds: log-opened-twice
TEST_F(log_destination, is_left_alone_by_a_second_open)
{
    write_file(LOG_FILE, "");
    log_open();
    size_t descriptors = open_descriptors();
    std::filesystem::rename(LOG_FILE, LOG_FILE + ".old");
    write_file(LOG_FILE, "");
    log_open();
    LOG(Error, "still the first one\n");
    EXPECT_EQ(open_descriptors(), descriptors);
    log_close();
    EXPECT_EQ(read_file(LOG_FILE), "");
    EXPECT_NE(read_file(LOG_FILE + ".old").find("still the first one"), std::string::npos);
}

TEST_F(log_destination, stays_as_it_is_when_neither_file_nor_console_can_be_opened)
{
    t_own_dev dev(false);
    ASSERT_TRUE(dev.mounted());
    size_t descriptors = open_descriptors();
    log_open();
    LOG(Error, "where it went before\n");
    EXPECT_EQ(open_descriptors(), descriptors);
    EXPECT_FALSE(file_exists(LOG_FILE));
    EXPECT_TRUE(capture.has_body("where it went before"));
}

// holds: log-file-plain
TEST_F(log_destination_in_foreign_hands, a_link_is_not_followed)
{
    write_file("/tmp/precious", "precious");
    std::filesystem::create_symlink("/tmp/precious", LOG_FILE);
    expect_the_console();
    EXPECT_EQ(read_file("/tmp/precious"), "precious");
}

// holds: log-file-plain
TEST_F(log_destination_in_foreign_hands, a_link_to_nothing_is_not_followed)
{
    std::filesystem::create_symlink("/tmp/no_such_file", LOG_FILE);
    expect_the_console();
    EXPECT_FALSE(file_exists("/tmp/no_such_file"));
}

// holds: log-file-plain
TEST_F(log_destination_in_foreign_hands, another_name_of_a_file_is_not_written_to)
{
    write_file("/tmp/precious", "precious");
    std::filesystem::create_hard_link("/tmp/precious", LOG_FILE);
    expect_the_console();
    EXPECT_EQ(read_file("/tmp/precious"), "precious");
}

// holds: log-file-plain
TEST_F(log_destination_in_foreign_hands, the_file_of_another_user_gets_no_line)
{
    NEEDS_OTHER_USERS();
    write_file(LOG_FILE, "");
    ASSERT_EQ(chown(LOG_FILE.c_str(), NOBODY, NOBODY), 0);
    expect_the_console();
    EXPECT_EQ(read_file(LOG_FILE), "");
}

// holds: log-never-waits
TEST_F(log_destination_in_foreign_hands, a_pipe_nobody_reads_holds_nobody_up)
{
    ASSERT_EQ(mkfifo(LOG_FILE.c_str(), 0666), 0);
    expect_the_console();
}

// holds: log-file-plain, log-never-waits
TEST_F(log_destination_in_foreign_hands, a_pipe_that_is_held_open_gets_no_line)
{
    ASSERT_EQ(mkfifo(LOG_FILE.c_str(), 0666), 0);
    t_fd_guard reader(open(LOG_FILE.c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC));
    ASSERT_GE(reader.fd, 0);
    expect_the_console();
    char got = 0;
    EXPECT_EQ(read(reader.fd, &got, 1), 0);
}

// holds: log-file-plain
TEST_F(log_destination_in_foreign_hands, a_folder_does_not_silence_the_log)
{
    ASSERT_EQ(mkdir(LOG_FILE.c_str(), 0777), 0);
    expect_the_console();
}

// holds: log-file-plain
TEST_F(log_destination_in_foreign_hands, a_device_is_not_written_to)
{
    NEEDS_OTHER_USERS();
    ASSERT_EQ(mknod(LOG_FILE.c_str(), S_IFCHR | 0666, makedev(1, 3)), 0);
    expect_the_console();
}

TEST_F(log_destination, is_written_to_with_patience_once_it_is_open)
{
    write_file(LOG_FILE, "");
    log_open();
    for (int fd = 0; fd < 3; fd++) {
        EXPECT_EQ(behind(fd), behind(LOG_FILE));
        EXPECT_EQ(fcntl(fd, F_GETFL) & O_NONBLOCK, 0);
    }
}

TEST_F(log_destination, closing_gives_the_descriptors_back_and_silences_the_log)
{
    std::pair<dev_t, ino_t> before[3] = {behind(0), behind(1), behind(2)};
    size_t descriptors = open_descriptors();
    write_file(LOG_FILE, "");
    log_open();
    log_close();
    EXPECT_EQ(log_get_level(), LOG_LEVEL_NONE);
    EXPECT_EQ(open_descriptors(), descriptors);
    for (int fd = 0; fd < 3; fd++)
        EXPECT_EQ(behind(fd), before[fd]);
    LOG(Critical, "not said\n");
    EXPECT_EQ(capture.text(), "");
    EXPECT_EQ(read_file(LOG_FILE), "");
}

TEST_F(log_destination, closing_what_is_not_open_only_silences_the_log)
{
    std::pair<dev_t, ino_t> before = behind(STDOUT_FILENO);
    log_close();
    EXPECT_EQ(log_get_level(), LOG_LEVEL_NONE);
    EXPECT_EQ(behind(STDOUT_FILENO), before);
}

TEST_F(log_destination, the_shutdown_closes_and_may_come_twice)
{
    size_t descriptors = open_descriptors();
    write_file(LOG_FILE, "");
    log_open();
    log_done();
    log_done();
    EXPECT_EQ(open_descriptors(), descriptors);
    EXPECT_EQ(read_file(LOG_FILE), "");
}

TEST_F(log_destination, is_not_taken_down_with_a_standard_descriptor_that_was_closed_at_start)
{
    write_file(LOG_FILE, "");
    int saved = dup(STDIN_FILENO);
    close(STDIN_FILENO);
    log_open();
    for (int fd = 0; fd < 3; fd++)
        EXPECT_EQ(behind(fd), behind(LOG_FILE));
    EXPECT_EQ(fcntl(STDIN_FILENO, F_GETFD) & FD_CLOEXEC, 0) << "programs would be started without it";
    LOG(Error, "arrives\n");
    log_close();
    dup2(saved, STDIN_FILENO);
    close(saved);
    EXPECT_NE(read_file(LOG_FILE).find("arrives"), std::string::npos);
}

TEST_F(log_destination, is_not_handed_on_to_programs_under_other_numbers)
{
    write_file(LOG_FILE, "");
    log_open();
    std::vector<int> leaking;
    for (int fd = 3; fd < 64; fd++) {
        int flags = fcntl(fd, F_GETFD);
        if (flags != -1 && !(flags & FD_CLOEXEC) && behind(fd) == behind(LOG_FILE))
            leaking.push_back(fd);
    }
    log_close();
    EXPECT_TRUE(leaking.empty());
}

TEST_F(log_destination, text_before_the_open_goes_where_it_was_said)
{
    write_file(LOG_FILE, "");
    printf("unfinished");
    log_open();
    log_close();
    EXPECT_EQ(capture.text(), "unfinished");
    EXPECT_EQ(read_file(LOG_FILE), "");
}

// holds: second-instance
TEST_F(log_destination, that_is_due_is_opened_by_the_first_line)
{
    write_file(LOG_FILE, "");
    log_open_with_first_line();
    EXPECT_NE(behind(STDOUT_FILENO), behind(LOG_FILE));
    LOG(Error, "into the file\n");
    EXPECT_EQ(behind(STDOUT_FILENO), behind(LOG_FILE));
    log_close();
    EXPECT_NE(read_file(LOG_FILE).find("]: into the file\n"), std::string::npos);
    log_set_level(LOG_LEVEL_Debug);
    LOG(Error, "where it went before\n");
    EXPECT_TRUE(capture.has_body("where it went before"));
}

// holds: foreground-log
TEST_F(log_destination, stays_where_the_starter_led_it_when_that_is_wanted)
{
    write_file(LOG_FILE, "");
    log_open_with_first_line();
    log_stay_on_standard_output();
    LOG(Error, "first\n");
    log_open();
    LOG(Error, "second\n");
    EXPECT_EQ(read_file(LOG_FILE), "");
    EXPECT_TRUE(capture.has_body("first"));
    EXPECT_TRUE(capture.has_body("second"));
    log_close();
    EXPECT_EQ(log_get_level(), LOG_LEVEL_NONE);
}

namespace {

// Standard output as a pipe that nobody reads.
class t_unread_pipe {
public:
    explicit t_unread_pipe(int place = STDOUT_FILENO) : place_(place), saved_(dup(place))
    {
        fflush(stdout);
        EXPECT_EQ(pipe2(ends_, O_CLOEXEC | O_NONBLOCK), 0);
        dup2(ends_[1], place_);
        (place == STDOUT_FILENO ? log_print_always : log_complain)("nobody is deaf yet\n");
        read_all();
    }
    ~t_unread_pipe()
    {
        fflush(stdout);
        dup2(saved_, place_);
        for (int fd : {saved_, ends_[0], ends_[1]})
            close(fd);
    }
    t_unread_pipe(const t_unread_pipe &) = delete;
    t_unread_pipe &operator=(const t_unread_pipe &) = delete;

    // Until nothing more fits in; from then on a write waits.
    void fill() const
    {
        const char text[512] = {};
        while (write(ends_[1], text, sizeof text) > 0)
            ;
        fcntl(ends_[1], F_SETFL, O_WRONLY);
    }
    void write_page() const
    {
        const char page[4096] = {};
        EXPECT_EQ(write(ends_[1], page, sizeof page), ssize_t{sizeof page});
    }
    void read_page() const
    {
        char page[4096];
        read_some(page, sizeof page);
    }
    void read_some(char *part, size_t size) const { EXPECT_GT(read(ends_[0], part, size), 0); }
    std::string read_all() const
    {
        std::string text;
        char part[4096];
        for (ssize_t got = 0; (got = read(ends_[0], part, sizeof part)) > 0;)
            text.append(part, static_cast<size_t>(got));
        return text;
    }

private:
    int place_;
    int saved_;
    int ends_[2] = {-1, -1};
};

// Standard output as a terminal whose window nobody reads.
class t_unread_terminal {
public:
    t_unread_terminal() : saved_(dup(STDOUT_FILENO))
    {
        int inner = -1;
        EXPECT_EQ(openpty(&window_, &inner, nullptr, nullptr, nullptr), 0);
        fcntl(window_, F_SETFL, O_RDWR | O_NONBLOCK);
        fflush(stdout);
        dup2(inner, STDOUT_FILENO);
        close(inner);
    }
    ~t_unread_terminal()
    {
        log_close();
        dup2(saved_, STDOUT_FILENO);
        close(saved_);
        close(window_);
    }
    t_unread_terminal(const t_unread_terminal &) = delete;
    t_unread_terminal &operator=(const t_unread_terminal &) = delete;

    // What was written comes a moment later, through the kernel's own worker.
    std::string read_all() const
    {
        std::string text;
        char part[4096];
        pollfd some = {window_, POLLIN, 0};
        while (poll(&some, 1, 200) > 0) {
            const ssize_t got = read(window_, part, sizeof part);
            if (got <= 0)
                break;
            text.append(part, static_cast<size_t>(got));
        }
        return text;
    }

private:
    int saved_;
    int window_ = -1;
};

int64_t milliseconds_of(const std::function<void()> &act)
{
    const t_time_stamp start = get_time_stamp();
    act();
    return milliseconds_since(start);
}

} // namespace

// holds: log-reader-deaf
TEST(log, a_reader_that_reads_no_more_is_waited_for_once_and_then_loses_lines_until_it_reads_on)
{
    log_set_level(LOG_LEVEL_Debug);
    t_unread_pipe pipe;
    pipe.fill();
    const int64_t first_ms = milliseconds_of([] { LOG(Error, "lost\n"); });
    EXPECT_GE(first_ms, LOG_WAIT_LIMIT_MS);
    const int64_t others_ms = milliseconds_of([] {
        for (int i = 0; i < 100; i++)
            LOG(Error, "lost, too\n");
        log_print_always("lost as well\n");
    });
    EXPECT_LT(others_ms, LOG_WAIT_LIMIT_MS);
    EXPECT_EQ(pipe.read_all().find("lost"), std::string::npos);
    LOG(Error, "heard again\n");
    EXPECT_NE(pipe.read_all().find("]: heard again\n"), std::string::npos);
}

// holds: log-reader-deaf
TEST(log, a_terminal_that_nobody_reads_holds_nobody_up_and_is_written_to_again)
{
    log_set_level(LOG_LEVEL_Debug);
    t_unread_terminal terminal;
    const std::string body(100, 'x');
    const int64_t took_ms = milliseconds_of([&body] {
        for (int i = 0; i < 5000; i++) // no terminal has room for as much
            LOG(Error, "%s\n", body.c_str());
    });
    EXPECT_LT(took_ms, 3 * LOG_WAIT_LIMIT_MS);
    EXPECT_NE(terminal.read_all().find(body), std::string::npos);
    LOG(Error, "heard again\n");
    const std::string heard = terminal.read_all();
    const size_t line = heard.find("[wan_detect]");
    ASSERT_NE(line, std::string::npos);
    EXPECT_TRUE(line == 0 || heard[line - 1] == '\n') << heard;
    EXPECT_NE(heard.find("]: heard again"), std::string::npos);
    EXPECT_EQ(fcntl(STDOUT_FILENO, F_GETFL) & O_NONBLOCK, 0) << "others share that descriptor";
}

// holds: log-shared
TEST(log, a_terminal_that_is_read_loses_no_line_while_another_program_writes_there)
{
    constexpr int LINES = 1000;
    log_set_level(LOG_LEVEL_Debug);
    t_unread_terminal terminal;
    std::atomic<bool> is_over = false;
    std::string heard;
    std::thread reader([&] {
        while (!is_over)
            heard += terminal.read_all();
    });
    std::thread other([&is_over] {
        const std::string line(200, '.');
        while (!is_over)
            EXPECT_GT(write(STDOUT_FILENO, line.data(), line.size()), 0);
    });
    for (int i = 0; i < LINES; i++)
        log_print_always("<%d>\n", i);
    is_over = true;
    other.join();
    reader.join();
    heard += terminal.read_all();
    int lost = 0;
    for (int i = 0; i < LINES; i++)
        lost += heard.find("<" + std::to_string(i) + ">") == std::string::npos;
    EXPECT_EQ(lost, 0);
}

// holds: log-shared
TEST(log, the_room_of_a_pipe_may_be_taken_by_another_program)
{
    constexpr int TIMES = 4; // who comes first is chance
    log_set_level(LOG_LEVEL_Debug);
    int waiting_still = 0;
    for (int i = 0; i < TIMES; i++) {
        t_unread_pipe pipe; // nothing may fail while this is standard output: who tells it would wait, too
        pipe.fill();
        std::thread other([&pipe] { pipe.write_page(); });
        std::atomic<bool> is_over = false;
        std::thread speaker([&is_over] {
            log_print_always("in time or lost\n");
            is_over = true;
        });
        std::this_thread::sleep_for(std::chrono::milliseconds(LOG_WAIT_LIMIT_MS / 5));
        pipe.read_page();
        std::this_thread::sleep_for(std::chrono::milliseconds(LOG_WAIT_LIMIT_MS * 3 / 2));
        waiting_still += !is_over;
        pipe.read_all();
        other.join();
        speaker.join();
    }
    EXPECT_EQ(waiting_still, 0);
}

// holds: log-shared
TEST(log, a_pipe_hears_why_there_is_no_descriptor_left_and_a_terminal_holds_nobody_up)
{
    log_set_level(LOG_LEVEL_Debug);
    rlimit former = {};
    getrlimit(RLIMIT_NOFILE, &former);
    const rlimit none = {STDERR_FILENO + 1, former.rlim_max};
    const auto say_it_often = [] {
        for (int i = 0; i < 300; i++)
            LOG(Error, "no descriptors\n");
    };
    int64_t took_ms = 0;
    {
        t_unread_terminal terminal;
        setrlimit(RLIMIT_NOFILE, &none);
        took_ms = milliseconds_of(say_it_often);
        setrlimit(RLIMIT_NOFILE, &former);
    }
    EXPECT_LT(took_ms, 3 * LOG_WAIT_LIMIT_MS);
    t_unread_pipe pipe;
    log_close();
    log_set_level(LOG_LEVEL_Debug);
    setrlimit(RLIMIT_NOFILE, &none);
    LOG(Error, "no descriptors\n");
    setrlimit(RLIMIT_NOFILE, &former);
    EXPECT_NE(pipe.read_all().find("]: no descriptors"), std::string::npos);
}

// holds: log-reader-deaf
TEST(log, a_socket_that_nobody_reads_holds_nobody_up)
{
    log_set_level(LOG_LEVEL_Debug);
    int ends[2];
    ASSERT_EQ(socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, ends), 0);
    const int saved = dup(STDOUT_FILENO);
    fflush(stdout);
    dup2(ends[1], STDOUT_FILENO);
    const std::string body(100, 'x');
    const int64_t took_ms = milliseconds_of([&body] {
        for (int i = 0; i < 5000; i++) // no socket has room for as much
            LOG(Error, "%s\n", body.c_str());
    });
    dup2(saved, STDOUT_FILENO);
    char heard[4096] = {};
    EXPECT_GT(read(ends[0], heard, sizeof heard - 1), 0);
    EXPECT_LT(took_ms, 3 * LOG_WAIT_LIMIT_MS);
    EXPECT_NE(std::string(heard).find(body), std::string::npos);
    for (int fd : {saved, ends[0], ends[1]})
        close(fd);
}

// holds: log-reader-deaf
TEST(log, a_slow_reader_holds_a_long_line_up_no_longer_than_a_short_one)
{
    log_set_level(LOG_LEVEL_Debug);
    t_unread_pipe pipe;
    pipe.fill();
    std::atomic<bool> is_over = false;
    std::thread reader([&pipe, &is_over] {
        for (char page[4096]; !is_over; std::this_thread::sleep_for(std::chrono::milliseconds(LOG_WAIT_LIMIT_MS / 2)))
            pipe.read_some(page, sizeof page);
    });
    const std::string body(20 * 4096, 'x');
    const int64_t took_ms = milliseconds_of([&body] { LOG(Error, "%s\n", body.c_str()); });
    is_over = true;
    reader.join();
    EXPECT_LT(took_ms, 3 * LOG_WAIT_LIMIT_MS);
}

// holds: log-reader-deaf
TEST(log, what_it_complains_of_in_vain_holds_nobody_up)
{
    t_unread_pipe pipe(STDERR_FILENO);
    pipe.fill();
    const int64_t first_ms = milliseconds_of([] { log_complain("lost\n"); });
    const int64_t others_ms = milliseconds_of([] {
        for (int i = 0; i < 100; i++)
            log_complain("lost, too\n");
    });
    EXPECT_GE(first_ms, LOG_WAIT_LIMIT_MS);
    EXPECT_LT(others_ms, LOG_WAIT_LIMIT_MS);
    EXPECT_EQ(pipe.read_all().find("lost"), std::string::npos);
    log_complain("heard again\n");
    EXPECT_EQ(pipe.read_all(), "heard again\n");
}

TEST(log, a_long_line_is_said_whole)
{
    log_set_level(LOG_LEVEL_Debug);
    t_unread_pipe pipe;
    const std::string body(20 * LOG_LINE_SIZE, 'x');
    LOG(Error, "%s\n", body.c_str());
    EXPECT_NE(pipe.read_all().find("]: " + body + "\n"), std::string::npos);
}

TEST(log, a_long_line_that_gets_no_memory_is_cut_and_is_a_line_all_the_same)
{
    log_set_level(LOG_LEVEL_Debug);
    t_unread_pipe pipe;
    {
        const t_memory_shortage shortage;
        log_print_always("%*s\n", 2 * LOG_LINE_SIZE, "");
    }
    const std::string line = pipe.read_all();
    EXPECT_EQ(line.size(), size_t{LOG_LINE_SIZE} - 1);
    EXPECT_EQ(line.find('\n'), line.size() - 1);
}

// holds: log-reader-deaf
TEST(log, signals_do_not_lengthen_the_wait_for_a_reader)
{
    constexpr suseconds_t BETWEEN_SIGNALS_US = 100'000;
    log_set_level(LOG_LEVEL_Debug);
    t_unread_pipe pipe;
    pipe.fill();
    struct sigaction nothing = {}, former = {};
    nothing.sa_handler = [](int) {};
    sigaction(SIGALRM, &nothing, &former);
    itimerval often = {{0, BETWEEN_SIGNALS_US}, {0, BETWEEN_SIGNALS_US}};
    setitimer(ITIMER_REAL, &often, nullptr);
    const int64_t waited_ms = milliseconds_of([] { LOG(Error, "lost\n"); });
    often = {};
    setitimer(ITIMER_REAL, &often, nullptr);
    sigaction(SIGALRM, &former, nullptr);
    EXPECT_GE(waited_ms, LOG_WAIT_LIMIT_MS);
    EXPECT_LT(waited_ms, 2 * LOG_WAIT_LIMIT_MS);
    EXPECT_EQ(pipe.read_all().find("lost"), std::string::npos);
}

// holds: log-reader-deaf
TEST(log, a_reader_that_is_only_slow_loses_no_line)
{
    log_set_level(LOG_LEVEL_Debug);
    t_unread_pipe pipe;
    pipe.fill();
    std::string heard;
    std::thread reader([&] {
        std::this_thread::sleep_for(std::chrono::milliseconds(LOG_WAIT_LIMIT_MS / 5));
        heard = pipe.read_all();
    });
    LOG(Error, "in time\n");
    reader.join();
    EXPECT_NE((heard + pipe.read_all()).find("]: in time\n"), std::string::npos);
}
