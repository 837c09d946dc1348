// SPDX-License-Identifier: MIT
// Processes, sockets and the daemon under test.
#include "bus_fixture.h"
#include "tests/unit/support/this_build.h"

#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <filesystem>
#include <grp.h>
#include <poll.h>
#include <pty.h>
#include <stdexcept>
#include <sys/prctl.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <sys/wait.h>
#include <termios.h>
#include <unistd.h>

namespace {

using t_clock = std::chrono::steady_clock;

constexpr size_t START_BYTES = 12;
constexpr uint32_t LENGTH_MASK = 0xffffff;

int milliseconds_until(t_clock::time_point deadline)
{
    auto left = std::chrono::duration_cast<std::chrono::milliseconds>(deadline - t_clock::now()).count();
    return left < 0 ? 0 : static_cast<int>(left);
}

// As poll(), but signals do not count.
int poll_until(pollfd *sockets, nfds_t count, t_clock::time_point deadline)
{
    int ready;
    do {
        ready = poll(sockets, count, milliseconds_until(deadline));
    } while (ready < 0 && errno == EINTR);
    return ready;
}

bool is_readable(int fd, t_clock::time_point deadline)
{
    pollfd readable = {.fd = fd, .events = POLLIN, .revents = 0};
    return poll_until(&readable, 1, deadline) > 0;
}

// False at the end of the stream.
bool read_more(int fd, std::string &into)
{
    char buffer[4096];
    ssize_t count = read(fd, buffer, sizeof(buffer));
    if (count > 0) {
        into.append(buffer, static_cast<size_t>(count));
    }
    return count > 0;
}

void make_channel(int ends[2], t_process::t_stderr kind)
{
    if (kind == t_process::to_pipe) {
        ASSERT_EQ(pipe2(ends, O_CLOEXEC), 0);
        return;
    }
    ASSERT_EQ(openpty(&ends[0], &ends[1], nullptr, nullptr, nullptr), 0);
    termios settings = {};
    tcgetattr(ends[1], &settings);
    settings.c_oflag &= ~static_cast<tcflag_t>(OPOST);
    tcsetattr(ends[1], TCSANOW, &settings);
}

int execute(const std::string &program, const std::vector<std::string> &arguments, uid_t user)
{
    if (user != 0 && (setgroups(0, nullptr) != 0 || setgid(user) != 0 || setuid(user) != 0)) {
        return 126;
    }
    std::vector<char *> argv = {const_cast<char *>(program.c_str())};
    for (const std::string &argument : arguments) {
        argv.push_back(const_cast<char *>(argument.c_str()));
    }
    argv.push_back(nullptr);
    std::string path = BIN_FOLDER + "/" + program;
    execv(path.c_str(), argv.data());
    return 127;
}

int connect_to(const std::string &path)
{
    sockaddr_un address = {};
    address.sun_family = AF_UNIX;
    strncpy(address.sun_path, path.c_str(), sizeof(address.sun_path) - 1);
    int fd = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
    if (connect(fd, reinterpret_cast<sockaddr *>(&address), sizeof(address)) != 0) {
        ::close(fd);
        return -1;
    }
    return fd;
}

// Whoever listens at the other end of a connection.
pid_t peer_of(int fd)
{
    ucred credentials = {};
    socklen_t length = sizeof(credentials);
    getsockopt(fd, SOL_SOCKET, SO_PEERCRED, &credentials, &length);
    return credentials.pid;
}

} // namespace

t_private_folder::t_private_folder()
{
    std::string name = std::filesystem::temp_directory_path() / "bus-test-XXXXXX";
    if (!mkdtemp(name.data())) {
        throw std::runtime_error("no private folder");
    }
    folder_ = name;
    chmod(folder_.c_str(), 0755);
}

t_private_folder::~t_private_folder()
{
    std::filesystem::remove_all(folder_);
}

t_process::t_process(const std::string &program, const std::vector<std::string> &arguments, t_stderr kind, uid_t user)
{
    start(kind, [&] { return execute(program, arguments, user); });
}

t_process::t_process(const std::function<int()> &body)
{
    start(to_pipe, body);
}

void t_process::start(t_stderr kind, const std::function<int()> &body)
{
    int output[2] = {-1, -1}, errors[2] = {-1, -1};
    make_channel(output, to_pipe);
    make_channel(errors, kind);
    fflush(nullptr);
    pid_ = fork();
    if (pid_ == 0) {
        prctl(PR_SET_PDEATHSIG, SIGKILL); // should the test crash
        dup2(output[1], STDOUT_FILENO);
        dup2(errors[1], STDERR_FILENO);
        int result = body();
        fflush(nullptr);
        _exit(result);
    }
    ::close(output[1]);
    ::close(errors[1]);
    output_fd_ = output[0];
    errors_fd_ = errors[0];
}

t_process::~t_process()
{
    if (!result_ && pid_ > 0) {
        ::kill(pid_, SIGKILL);
        wait();
    }
    ::close(output_fd_);
    ::close(errors_fd_);
}

void t_process::signal(int number) const
{
    kill(pid_, number);
}

// A terminal reports an error in place of the end once its other side is closed.
void t_process::read_until_end()
{
    auto deadline = t_clock::now() + PATIENCE;
    bool has_output = true, has_errors = true;
    while (has_output || has_errors) {
        pollfd ends[] = {{.fd = has_output ? output_fd_ : -1, .events = POLLIN, .revents = 0},
                         {.fd = has_errors ? errors_fd_ : -1, .events = POLLIN, .revents = 0}};
        if (poll_until(ends, 2, deadline) <= 0) {
            ADD_FAILURE() << "process " << pid_ << " does not end";
            kill(pid_, SIGKILL);
            deadline = t_clock::now() + PATIENCE;
            continue;
        }
        has_output = has_output && (!ends[0].revents || read_more(output_fd_, output_));
        has_errors = has_errors && (!ends[1].revents || read_more(errors_fd_, errors_));
    }
}

int t_process::wait()
{
    if (!result_) {
        read_until_end();
        int status = 0;
        waitpid(pid_, &status, 0);
        result_ = WIFEXITED(status) ? WEXITSTATUS(status) : -WTERMSIG(status);
    }
    return *result_;
}

const std::string &t_process::first_output()
{
    auto deadline = t_clock::now() + PATIENCE;
    while (output_.empty() && is_readable(output_fd_, deadline) && read_more(output_fd_, output_)) {
    }
    return output_;
}

bool wait_until_it_serves(const t_process &bus, const std::string &socket)
{
    auto deadline = t_clock::now() + PATIENCE;
    while (t_clock::now() < deadline) {
        t_connection probe(socket);
        if (probe.is_open() && peer_of(probe.fd()) == bus.pid() && probe.receive()) {
            return true;
        }
        usleep(1000);
    }
    return false;
}

t_daemon::t_daemon(const std::string &socket, const std::string &access_folder)
{
    process_.emplace("ubusd", std::vector<std::string>{"-s", socket, "-A", access_folder});
    EXPECT_TRUE(wait_until_it_serves(*process_, socket));
}

t_daemon::~t_daemon()
{
    stop();
}

int t_daemon::stop()
{
    process_->signal(SIGTERM);
    int result = process_->wait();
    EXPECT_EQ(process_->errors(), "");
    return result;
}

void t_daemon::kill()
{
    process_->signal(SIGKILL);
    EXPECT_EQ(process_->wait(), -SIGKILL);
}

// The peer's credentials are those of the moment of connecting.
t_connection::t_connection(const std::string &socket, uid_t user)
{
    if (user != 0 && (setegid(user) != 0 || seteuid(user) != 0)) {
        throw std::runtime_error("cannot become another user");
    }
    fd_ = connect_to(socket);
    if (user != 0 && (seteuid(0) != 0 || setegid(0) != 0)) {
        throw std::runtime_error("cannot become root again");
    }
}

bool t_connection::send(const t_bytes &bytes)
{
    size_t sent = 0;
    while (sent < bytes.size()) {
        ssize_t count = ::send(fd_, bytes.data() + sent, bytes.size() - sent, MSG_NOSIGNAL);
        if (count < 0) {
            return false;
        }
        sent += static_cast<size_t>(count);
    }
    return true;
}

bool t_connection::read_exactly(t_bytes &into, size_t count, t_clock::time_point deadline)
{
    size_t have = into.size();
    into.resize(have + count);
    while (count > 0) {
        ssize_t got = is_readable(fd_, deadline) ? recv(fd_, into.data() + have, count, 0) : -1;
        if (got <= 0) {
            return false;
        }
        have += static_cast<size_t>(got);
        count -= static_cast<size_t>(got);
    }
    return true;
}

std::optional<t_bytes> t_connection::receive(std::chrono::milliseconds limit)
{
    auto deadline = t_clock::now() + limit;
    t_bytes frame;
    if (!read_exactly(frame, START_BYTES, deadline)) {
        return std::nullopt;
    }
    size_t blob_length = word_at(frame, START_BYTES - 4) & LENGTH_MASK;
    if (blob_length < 4 || !read_exactly(frame, blob_length - 4, deadline)) {
        return std::nullopt;
    }
    return frame;
}

bool t_connection::is_closed_by_peer()
{
    char byte;
    return is_readable(fd_, t_clock::now() + PATIENCE) && recv(fd_, &byte, 1, MSG_PEEK) <= 0;
}

void t_connection::close()
{
    if (fd_ >= 0) {
        ::close(fd_);
    }
    fd_ = -1;
}

t_bytes frame_header(uint8_t type, uint16_t seq, uint32_t peer, uint32_t blob_word)
{
    t_bytes frame(START_BYTES, '\0');
    set_word_at(frame, 0, static_cast<uint32_t>(type) << 16 | seq);
    set_word_at(frame, 4, peer);
    set_word_at(frame, 8, blob_word);
    return frame;
}

void t_bus_test::TearDown()
{
    if (daemon_) {
        EXPECT_EQ(daemon_->stop(), 0);
    }
}

t_connection t_bus_test::connect(uid_t user)
{
    t_connection connection(socket_, user);
    EXPECT_TRUE(connection.receive()) << "no greeting";
    return connection;
}

void t_bus_test::expect_alive()
{
    t_connection connection = connect();
    connection.send(from_hex("000300010000000000000004"));
    std::optional<t_bytes> answer = connection.receive();
    ASSERT_TRUE(answer) << "the bus does not answer";
    EXPECT_EQ(to_hex(*answer), "000200010000000000000004");
}
