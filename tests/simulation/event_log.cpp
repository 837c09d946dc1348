// SPDX-License-Identifier: MIT
#include "tests/simulation/event_log.h"

#include <charconv>
#include <cstdarg>
#include <cstdio>
#include <cstring>
#include <iterator>

#include "tests/simulation/real.h"
#include "tests/simulation/scheduler.h"
#include "tests/simulation/timeline.h"

namespace sim {

t_event_log event_log;

constexpr size_t LINE_SIZE = 1024;
constexpr double MICROSECONDS_PER_SECOND_REAL = 1e6;

static void write_out(const char *text, int length)
{
    if (length > 0 && __real_write(1, text, static_cast<size_t>(length)) < 0)
        return; // nobody listens
}

void say(const char *format, ...)
{
    char line[LINE_SIZE];
    va_list arguments;
    va_start(arguments, format);
    const int length = vsnprintf(line, sizeof line, format, arguments);
    va_end(arguments);
    write_out(line, length < static_cast<int>(sizeof line) ? length : static_cast<int>(sizeof line) - 1);
}

static void note(const char *who, const char *text)
{
    event_log.entries++;
    log_number(static_cast<uint64_t>(now()));
    for (const char *at = text; *at; at++)
        log_number(static_cast<unsigned char>(*at));
    if (event_log.tells && !event_log.is_raw)
        tell_entry(who, text);
    if (event_log.tells && event_log.is_raw) {
        const size_t length = strlen(text);
        const bool ends = length > 0 && text[length - 1] == '\n';
        say("%12.6f s  %-8s %s%s", static_cast<double>(now()) / MICROSECONDS_PER_SECOND_REAL, who, text,
            ends ? "" : "\n");
    }
}

void log_line(const char *who, const char *format, ...)
{
    char text[LINE_SIZE];
    va_list arguments;
    va_start(arguments, format);
    vsnprintf(text, sizeof text, format, arguments);
    va_end(arguments);
    note(who, text);
}

void log_deed(const char *who, const char *text, int port, int64_t number)
{
    char line[LINE_SIZE + 64];
    const size_t length = strnlen(text, LINE_SIZE - 1);
    char *end = static_cast<char *>(mempcpy(line, text, length));
    end = std::to_chars(stpcpy(end, " [port "), std::end(line), port).ptr;
    end = std::to_chars(stpcpy(end, ", number "), std::end(line), number).ptr;
    strcpy(end, "]");
    line[LINE_SIZE - 1] = '\0';
    note(who, line);
}

} // namespace sim
