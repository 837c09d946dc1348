// SPDX-License-Identifier: MIT
// The leveled log printer and its destination. Any thread may log; the destination is changed on the main thread only.
#pragma once

#include <cstdint>

constexpr int LOG_WAIT_LIMIT_MS = 1000;
constexpr int LOG_LINE_SIZE = 512; // longer lines take memory, and are cut where there is none

// Syslog numbering. The enumerator's name is the word in a line's prefix.
enum t_log_level : int {
    LOG_LEVEL_NONE = 0,
    LOG_LEVEL_Critical = 2,
    LOG_LEVEL_Error = 3,
    LOG_LEVEL_Warning = 4,
    LOG_LEVEL_Notice = 5,
    LOG_LEVEL_Info = 6,
    LOG_LEVEL_Debug = 7,
};

// LOG(Error, "body\n", args...) writes "[wan_detect][Error][uptime][function:line]: body" when the level lets it
// through. LOG_AS(name, ...) speaks in the name of the step that a function is a part of. Arguments that call
// something are made only for a line that is written; where they are but read, the printer alone looks at the level,
// which takes less of the program.
#define LOG(level, format, ...) LOG_AS(__func__, level, format, ##__VA_ARGS__)
#define LOG_AS(function, level, format, ...)                                                           \
    do {                                                                                               \
        if (constexpr bool at_hand = log_reads_only(#__VA_ARGS__); at_hand || LOG_LETS_THROUGH(level)) \
            log_say({LOG_LEVEL_##level, __LINE__}, function, format, ##__VA_ARGS__);                   \
    } while (0)

// Of arguments as they stand in the source: no call, no temporary, no subscript and no change can be seen in them. What
// stands behind a macro or an operator is not seen.
constexpr bool log_reads_only(const char *arguments)
{
    for (const char *at = arguments; *at != '\0'; at++) {
        const bool makes_something = *at == '(' || *at == '{' || *at == '[';
        const bool changes_something = *at == '=' || *at == '+' || (at[0] == '-' && at[1] == '-');
        if (makes_something || changes_something)
            return false;
    }
    return true;
}

// First statement of the functions that announce themselves.
#define LOG_ENTER() log_enter(__LINE__, __func__)

// Every line would double the paths that a static analyser follows, until it gives up.
#ifdef __clang_analyzer__
#define LOG_LETS_THROUGH(level) true
#else
#define LOG_LETS_THROUGH(level) (log_get_level() >= LOG_LEVEL_##level)
#endif

// Touched by the two functions below only. The compilers' own functions: <atomic> would add 36,000 lines to every
// source.
extern int log_level;

inline int log_get_level()
{
    return __atomic_load_n(&log_level, __ATOMIC_RELAXED);
}
inline void log_set_level(int level)
{
    __atomic_store_n(&log_level, level, __ATOMIC_RELAXED);
}

// Small enough for a register: the program holds some 600 of these.
struct t_log_place {
    uint16_t level;
    uint16_t line;
};

// Writes one line with its prefix to standard output when the level lets it through; no line of another thread comes
// between. Once nobody has read for LOG_WAIT_LIMIT_MS, lines are lost until there is room again.
void log_say(t_log_place place, const char *function, const char *format, ...) __attribute__((format(printf, 3, 4)));

// The line of a function that announces itself.
void log_enter(uint16_t line, const char *function);

// Writes a line without a prefix to standard output whatever the level, or to standard error. For the few lines that
// bypass it.
void log_print_always(const char *format, ...) __attribute__((format(printf, 1, 2)));
void log_complain(const char *format, ...) __attribute__((format(printf, 1, 2)));

// System uptime in whole seconds; -1 when the kernel does not tell.
long log_uptime();

// Shall be done with the first line, or by a call if that comes first. For a start that must not touch what may be
// another daemon's.
void log_open_with_first_line();

// Descriptors 0 to 2 stay where the starter led them, whoever asks for the log to be opened.
void log_stay_on_standard_output();

// Redirects descriptors 0 to 2 to /tmp/wan_detect.log if that is a plain file of our own with no other name, else to
// /dev/console. Nothing if already open.
void log_open();

// Sets the level to 0, gives descriptors 0 to 2 back and closes the destination.
void log_close();

// Shutdown: log_close, once.
void log_done();
