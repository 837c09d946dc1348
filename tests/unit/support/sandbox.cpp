// SPDX-License-Identifier: MIT
#include "tests/unit/support/sandbox.h"

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <sched.h>
#include <sstream>
#include <sys/mman.h>
#include <sys/mount.h>
#include <unistd.h>

#include <gtest/gtest.h>

#include "platform/log.h"
#include "tests/unit/support/own_place.h"

namespace {

namespace fs = std::filesystem;

void mount_tmpfs(const std::string &path)
{
    require(mount("tmpfs", path.c_str(), "tmpfs", 0, "mode=755") == 0, "tmpfs on " + path);
}

// What is said on the console goes to a file of our own, even where the host has no console to lay it over.
void mount_console(const std::string &scratch)
{
    if (!fs::exists("/dev/console")) {
        lay_over("/dev", scratch);
        write_file("/dev/console", "");
        return;
    }
    const std::string file = scratch + "/console";
    write_file(file, "");
    require(mount(file.c_str(), "/dev/console", nullptr, MS_BIND, nullptr) == 0, "a file over /dev/console");
}

} // namespace

void enter_sandbox()
{
    enter_namespaces(CLONE_NEWNET);
    mount_tmpfs("/run");
    const std::string scratch = "/run/scratch";
    // Without what the host has of the daemon, which a test would take for its own.
    lay_over("/etc", scratch, {"config", "wan_detect"});
    lay_over("/tmp", scratch, {"wan_detect_result", "protocol_detect_result", "wan_detect.log", ".uci"});
    lay_over("/usr/sbin", scratch);
    lay_over("/var", scratch);
    mount_console(scratch);
    require(mount("sysfs", "/sys", "sysfs", 0, nullptr) == 0, "sysfs");
    fs::create_directories("/etc/config");
    fs::create_directories("/etc/wan_detect");
}

void write_file(const std::string &path, const std::string &text)
{
    fs::create_directories(fs::path(path).parent_path());
    std::ofstream(path, std::ios::binary | std::ios::trunc) << text;
}

void write_program(const std::string &path, const std::string &text)
{
    write_file(path, text);
    fs::permissions(path, fs::perms::owner_all | fs::perms::group_exec | fs::perms::others_exec, fs::perm_options::add);
}

void write_config(const std::string &package, const std::string &text)
{
    write_file("/etc/config/" + package, text);
}

void remove_config(const std::string &package)
{
    fs::remove("/etc/config/" + package);
}

std::string read_file(const std::string &path)
{
    std::ifstream file(path, std::ios::binary);
    std::stringstream text;
    text << file.rdbuf();
    return text.str();
}

bool file_exists(const std::string &path)
{
    return fs::exists(path);
}

t_log_capture::t_log_capture(int level)
    : file_(memfd_create("log", MFD_CLOEXEC)), saved_stdout_(-1), saved_level_(log_get_level())
{
    require(file_ >= 0, "memfd");
    fflush(stdout);
    saved_stdout_ = dup(STDOUT_FILENO);
    dup2(file_, STDOUT_FILENO);
    log_set_level(level);
}

// A test that failed shows what the daemon said, and with it GoogleTest's own lines, which were caught as well.
t_log_capture::~t_log_capture()
{
    const std::string caught = testing::Test::HasFailure() ? text() : "";
    fflush(stdout);
    dup2(saved_stdout_, STDOUT_FILENO);
    close(saved_stdout_);
    close(file_);
    log_set_level(saved_level_);
    fputs(caught.c_str(), stdout);
}

std::string t_log_capture::text()
{
    fflush(stdout);
    std::string text;
    char chunk[4096];
    ssize_t got;
    while ((got = pread(file_, chunk, sizeof chunk, static_cast<off_t>(text.size()))) > 0)
        text.append(chunk, static_cast<size_t>(got));
    return text;
}

// Takes "[text]" off the front of a line; false when the line does not begin with one.
static bool take_bracket(std::string &line, std::string &text)
{
    size_t end = line.find(']');
    if (line.empty() || line[0] != '[' || end == std::string::npos)
        return false;
    text = line.substr(1, end - 1);
    line.erase(0, end + 1);
    return true;
}

std::vector<t_log_line> t_log_capture::lines()
{
    std::vector<t_log_line> found;
    std::stringstream all(text());
    for (std::string line; std::getline(all, line);) {
        std::string component, uptime, place;
        t_log_line parts;
        if (!take_bracket(line, component) || component != "wan_detect" || !take_bracket(line, parts.level) ||
            !take_bracket(line, uptime) || !take_bracket(line, place) || line.rfind(": ", 0) != 0)
            continue;
        parts.function = place.substr(0, place.find(':'));
        parts.body = line.substr(2);
        found.push_back(parts);
    }
    return found;
}

int t_log_capture::count(const std::string &level, const std::string &function, const std::string &body)
{
    int found = 0;
    for (const t_log_line &line : lines())
        found += (level.empty() || line.level == level) && (function.empty() || line.function == function) &&
                 line.body == body;
    return found;
}

t_joined_errors::t_joined_errors() : saved_stderr_(dup(STDERR_FILENO))
{
    dup2(STDOUT_FILENO, STDERR_FILENO);
}

t_joined_errors::~t_joined_errors()
{
    dup2(saved_stderr_, STDERR_FILENO);
    close(saved_stderr_);
}
