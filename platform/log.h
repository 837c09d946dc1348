// SPDX-License-Identifier: MIT
// The leveled log printer and its destination. Any thread may log; the destination is changed on the main thread only.
#pragma once

#include "platform/shared.h"

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
// through. LOG_AS(name, ...) speaks in the name of the step that a function is a part of.
#define LOG(level, format, ...) LOG_AS(__func__, level, format, ##__VA_ARGS__)
#define LOG_AS(function, level, format, ...)                            \
    do {                                                                \
        if (log_get_level() >= LOG_LEVEL_##level)                       \
            log_say(#level, function, __LINE__, format, ##__VA_ARGS__); \
    } while (0)

// First statement of the functions that announce themselves.
#define LOG_ENTER() LOG(Debug, "Entering function: %s!\n", __func__)

extern t_shared<int> log_level;

inline int log_get_level()
{
    return log_level;
}
inline void log_set_level(int level)
{
    log_level = level;
}

// Writes one line with its prefix to standard output, whatever the level; no line of another thread comes between.
void log_say(const char *level_word, const char *function, int line, const char *format, ...)
    __attribute__((format(printf, 4, 5)));

// Writes to standard output when the current level is at or above `level`; adds nothing to the text.
void log_print(int level, const char *format, ...) __attribute__((format(printf, 2, 3)));

// Writes to standard output whatever the level, and flushes. For the few lines that bypass it.
void log_print_always(const char *format, ...) __attribute__((format(printf, 1, 2)));

// System uptime in whole seconds; -1 when the kernel does not tell.
long log_uptime();

// Redirects descriptors 0 to 2 to /tmp/wan_detect.log if that is a plain file of our own with no other name, else to
// /dev/console. Nothing if already open.
void log_open();

// Sets the level to 0, gives descriptors 0 to 2 back and closes the destination.
void log_close();

// Shutdown: log_close, once.
void log_done();
