// SPDX-License-Identifier: MIT
// A place of its own for every test program of the daemon: private /etc/config, /etc/wan_detect, /tmp, /run, /sbin,
// /var, a file as /dev/console, and a network namespace, so that the daemon's absolute paths are the real ones and the
// host stays untouched.
#pragma once

#include <string>
#include <vector>

// Called by the test program's main before any test.
void enter_sandbox();

// Writes /etc/config/<package>.
void write_config(const std::string &package, const std::string &text);
void remove_config(const std::string &package);

// Writes a file, creating its folder; write_program makes it executable.
void write_file(const std::string &path, const std::string &text);
void write_program(const std::string &path, const std::string &text);
std::string read_file(const std::string &path); // empty when it is missing
bool file_exists(const std::string &path);

struct t_log_line {
    std::string level;    // "Error"
    std::string function; // the function that said it
    std::string body;     // without the newline
};

// Catches what the daemon writes to standard output while it lives, at the given log level (7 shows all); the former
// level comes back at the end. What was caught in a test that failed is shown then.
class t_log_capture {
public:
    explicit t_log_capture(int level = 7);
    ~t_log_capture();
    t_log_capture(const t_log_capture &) = delete;
    t_log_capture &operator=(const t_log_capture &) = delete;

    std::string text();              // everything so far, raw
    std::vector<t_log_line> lines(); // the leveled lines so far
    // How often a line was said; an empty level or function matches any.
    int count(const std::string &level, const std::string &function, const std::string &body);
    bool has(const std::string &level, const std::string &function, const std::string &body)
    {
        return count(level, function, body) > 0;
    }
    bool has_body(const std::string &body) { return count("", "", body) > 0; }

private:
    int file_;
    int saved_stdout_;
    int saved_level_;
};

// While it lives, standard error goes where standard output goes, into a log capture for example.
class t_joined_errors {
public:
    t_joined_errors();
    ~t_joined_errors();
    t_joined_errors(const t_joined_errors &) = delete;
    t_joined_errors &operator=(const t_joined_errors &) = delete;

private:
    int saved_stderr_;
};
