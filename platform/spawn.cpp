// SPDX-License-Identifier: MIT
// The child lives in the daemon's own memory until another program takes over, while the thread that started it stands
// still and the others run. So it makes system calls and nothing else: what the C library, or a library before it,
// would note down, it would note down in the daemon.
#include "platform/spawn.h"

#include <cerrno>
#include <csignal>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <fcntl.h>
#include <sched.h>
#include <span>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include "platform/text.h"

#if defined(__has_attribute) && __has_attribute(no_sanitize_thread) && __has_attribute(no_sanitize_address)
#define IN_FOREIGN_MEMORY __attribute__((no_sanitize_thread, no_sanitize_address))
#else
#define IN_FOREIGN_MEMORY
#endif

// The thread sanitizer takes every child of `clone` for one that has a memory of its own.
#ifdef __SANITIZE_THREAD__
extern "C" int __clone(int (*body)(void *), void *stack, int flags, void *argument, ...);
#define clone __clone
#endif

constexpr const char *SHELL = "/bin/sh";
constexpr const char *OPEN_DESCRIPTORS = "/proc/self/fd";
constexpr unsigned FIRST_FOREIGN_FD = STDERR_FILENO + 1;
constexpr size_t CHILD_STACK_SIZE = 8192;
constexpr size_t STACK_ALIGNMENT = 64;
constexpr int NOT_STARTED_STATUS = 127;
constexpr size_t MOST_WORDS = 8; // of a command that needs no shell, and the size of its text
constexpr size_t PLAIN_SIZE = 128;
constexpr const char *PLAIN_CHARACTERS = "abcdefghijklmnopqrstuvwxyzABCDEFGHIJKLMNOPQRSTUVWXYZ0123456789/._-";

// As the kernel has them, whatever the C library makes of them: a set has a bit for each signal, and an action of zeros
// is the default one.
constexpr size_t SIGNAL_SET_SIZE = NSIG / 8;
constexpr uint64_t NO_SIGNALS[2] = {};
constexpr uint64_t DEFAULT_ACTION[16] = {};

namespace {

struct t_start {
    char *const *words; // to be tried without a shell; null when it takes one
    char *const *shell_words;
    char *const *environment;
    int output;
    bool resets[NSIG]; // whether a signal shall have its default action
    int error;         // the child's answer
};

// A record of a folder as the kernel writes it.
struct t_folder_entry {
    uint64_t inode;
    int64_t position;
    uint16_t size;
    uint8_t type;
    char name[1];
};

// A command that means the same without a shell: the path of a program and words, with no character that a shell would
// read anything into.
class t_plain_command {
public:
    explicit t_plain_command(const char *command) : is_plain_(command[0] == '/' && split(command)) {}
    char *const *words() const { return is_plain_ ? words_ : nullptr; }

private:
    bool split(const char *command);

    char text_[PLAIN_SIZE] = "";
    char *words_[MOST_WORDS + 1] = {};
    bool is_plain_;
};

} // namespace

// The descriptor that an entry of the folder stands for; 0 for the folder itself and the one above it.
IN_FOREIGN_MEMORY static unsigned listed_descriptor(const char *name)
{
    unsigned fd = 0;
    for (; *name >= '0' && *name <= '9'; name++)
        fd = fd * 10 + static_cast<unsigned>(*name - '0');
    return fd;
}

// The kernel shows the entries in the order of their numbers, so closing some on the way hides none.
IN_FOREIGN_MEMORY static void close_listed(long folder)
{
    alignas(t_folder_entry) char entries[1024];
    for (;;) {
        const long size = syscall(SYS_getdents64, folder, entries, sizeof entries);
        if (size <= 0)
            return;
        for (long at = 0; at < size;) {
            const auto *entry = reinterpret_cast<const t_folder_entry *>(entries + at);
            const unsigned fd = listed_descriptor(entry->name);
            if (fd >= FIRST_FOREIGN_FD && fd != static_cast<unsigned>(folder))
                syscall(SYS_close, fd);
            at += entry->size;
        }
    }
}

// Not all that the libraries open is close-on-exec. A program that inherited a configuration file while another thread
// had it locked would hold that lock, and wait for it itself. Not every kernel has one call for it.
IN_FOREIGN_MEMORY static void close_what_another_thread_opened()
{
#ifdef SYS_close_range
    if (syscall(SYS_close_range, FIRST_FOREIGN_FD, ~0U, 0) == 0)
        return;
#endif
    const long folder = syscall(SYS_openat, AT_FDCWD, OPEN_DESCRIPTORS, O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    if (folder < 0)
        return;
    close_listed(folder);
    syscall(SYS_close, folder);
}

// Standard input goes first: a program in the background that reads from a terminal is stopped by it, and the
// descriptor is the one that surely is free meanwhile.
IN_FOREIGN_MEMORY static void arrange_descriptors(int output)
{
    if (output == STDOUT_FILENO)
        syscall(SYS_fcntl, output, F_SETFD, 0); // the shell would not get it, and no copy onto itself clears that
    else if (output >= 0)
        syscall(SYS_dup3, output, STDOUT_FILENO, 0);
    syscall(SYS_close, STDIN_FILENO);
    close_what_another_thread_opened();
    syscall(SYS_openat, AT_FDCWD, "/dev/null", O_RDONLY);
}

// The daemon's handlers would run in the daemon's memory, so they go before the signals come.
IN_FOREIGN_MEMORY static void let_signals_come(const bool (&resets)[NSIG])
{
    for (int number = 1; number < NSIG; number++)
        if (resets[number])
            syscall(SYS_rt_sigaction, number, DEFAULT_ACTION, nullptr, SIGNAL_SET_SIZE);
    syscall(SYS_rt_sigprocmask, SIG_SETMASK, NO_SIGNALS, nullptr, SIGNAL_SET_SIZE);
}

// What the kernel does not start is left to the shell, which says why, or runs a script that names no interpreter.
IN_FOREIGN_MEMORY static int become_program(void *argument)
{
    t_start &start = *static_cast<t_start *>(argument);
    syscall(SYS_setpgid, 0, 0);
    arrange_descriptors(start.output);
    let_signals_come(start.resets);
    if (start.words)
        syscall(SYS_execve, start.words[0], start.words, start.environment);
    syscall(SYS_execve, SHELL, start.shell_words, start.environment);
    start.error = errno;
    return NOT_STARTED_STATUS;
}

// Those with a handler, and the one that the event loop ignores.
static void choose_resets(bool (&resets)[NSIG])
{
    for (int number = 1; number < NSIG; number++) {
        struct sigaction action = {};
        resets[number] =
            sigaction(number, nullptr, &action) == 0 && action.sa_handler != SIG_DFL && action.sa_handler != SIG_IGN;
    }
    resets[SIGPIPE] = true;
}

// Returns once the child runs a program, or has ended without one.
static int start_child(t_start &start, pid_t *child)
{
    alignas(STACK_ALIGNMENT) char stack[CHILD_STACK_SIZE];
    *child = clone(become_program, stack + sizeof stack, CLONE_VM | CLONE_VFORK | SIGCHLD, &start);
    if (*child == -1)
        return errno;
    if (start.error != 0)
        waitpid(*child, nullptr, 0);
    return start.error;
}

bool t_plain_command::split(const char *command)
{
    if (bounded_copy(text_, command, sizeof text_) >= sizeof text_)
        return false;
    char *at = text_;
    for (char *&word : std::span(words_).first<MOST_WORDS>()) {
        word = at;
        at += strspn(at, PLAIN_CHARACTERS);
        if (at == word || (*at != ' ' && *at != '\0'))
            return false;
        if (*at == '\0')
            return true;
        *at++ = '\0';
    }
    return false;
}

int spawn_command(const char *command, int output, pid_t *child)
{
    const t_plain_command plain(command);
    char name[] = "sh";
    char option[] = "-c";
    char *shell_words[] = {name, option, const_cast<char *>(command), nullptr};
    t_start start = {plain.words(), shell_words, environ, output, {}, 0};
    choose_resets(start.resets);
    sigset_t all, saved;
    sigfillset(&all);
    pthread_sigmask(SIG_SETMASK, &all, &saved);
    const int error = start_child(start, child);
    pthread_sigmask(SIG_SETMASK, &saved, nullptr);
    return error;
}
