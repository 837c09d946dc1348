// SPDX-License-Identifier: MIT
// What the daemon prints: its log lines go to the event log.
#include <cstdarg>
#include <cstdio>
#include <string>

#include "tests/simulation/checks.h"
#include "tests/simulation/descriptors.h"
#include "tests/simulation/door.h"

using namespace sim;

constexpr size_t TEXT_SIZE = 2048;

static std::string line_of_thread[MOST_THREADS]; // what a thread has printed since its last line end

static bool is_output(FILE *stream)
{
    return inside && (stream == stdout || stream == stderr);
}

int sim::print(const char *text)
{
    std::string &line = line_of_thread[self().number];
    int length = 0;
    for (const char *at = text; *at; at++, length++) {
        if (*at != '\n') {
            line += *at;
            continue;
        }
        saw({.deed = t_deed::log_line, .text = line.c_str()});
        line.clear();
    }
    return length;
}

static int print_formatted(const char *format, va_list arguments)
{
    door(t_door::output);
    char text[TEXT_SIZE];
    vsnprintf(text, sizeof text, format, arguments);
    return print(text);
}

extern "C" {

int __real_vprintf(const char *format, va_list arguments);
int __real_vfprintf(FILE *stream, const char *format, va_list arguments);
int __wrap_vprintf(const char *format, va_list arguments);
int __wrap___vprintf_chk(int, const char *format, va_list arguments);
int __wrap_printf(const char *format, ...);
int __wrap___printf_chk(int, const char *format, ...);
int __wrap_vfprintf(FILE *stream, const char *format, va_list arguments);
int __wrap___vfprintf_chk(FILE *stream, int, const char *format, va_list arguments);
int __wrap_fprintf(FILE *stream, const char *format, ...);
int __wrap___fprintf_chk(FILE *stream, int, const char *format, ...);

int __wrap_vprintf(const char *format, va_list arguments)
{
    return inside ? print_formatted(format, arguments) : __real_vprintf(format, arguments);
}

int __wrap___vprintf_chk(int, const char *format, va_list arguments)
{
    return __wrap_vprintf(format, arguments);
}

int __wrap_vfprintf(FILE *stream, const char *format, va_list arguments)
{
    return is_output(stream) ? print_formatted(format, arguments) : __real_vfprintf(stream, format, arguments);
}

int __wrap___vfprintf_chk(FILE *stream, int, const char *format, va_list arguments)
{
    return __wrap_vfprintf(stream, format, arguments);
}

#define WITH_ARGUMENTS(call)     \
    va_list arguments;           \
    va_start(arguments, format); \
    const int length = call;     \
    va_end(arguments);           \
    return length;

int __wrap_printf(const char *format, ...)
{
    WITH_ARGUMENTS(__wrap_vprintf(format, arguments))
}

int __wrap___printf_chk(int, const char *format, ...)
{
    WITH_ARGUMENTS(__wrap_vprintf(format, arguments))
}

int __wrap_fprintf(FILE *stream, const char *format, ...)
{
    WITH_ARGUMENTS(__wrap_vfprintf(stream, format, arguments))
}

int __wrap___fprintf_chk(FILE *stream, int, const char *format, ...)
{
    WITH_ARGUMENTS(__wrap_vfprintf(stream, format, arguments))
}

} // extern "C"

QUIET_DOOR(int, puts, (const char *text), (text))
{
    print(text);
    return print("\n");
}

QUIET_DOOR(int, putchar, (int letter), (letter))
{
    const char text[] = {static_cast<char>(letter), '\0'};
    print(text);
    return letter;
}

QUIET_DOOR(int, fputs, (const char *text, FILE *stream), (text, stream))
{
    return is_output(stream) ? print(text) : __real_fputs(text, stream);
}

QUIET_DOOR(int, fputc, (int letter, FILE *stream), (letter, stream))
{
    return is_output(stream) ? __wrap_putchar(letter) : __real_fputc(letter, stream);
}

QUIET_DOOR(int, fflush, (FILE * stream), (stream))
{
    return is_output(stream) ? 0 : __real_fflush(stream);
}

QUIET_DOOR(int, setvbuf, (FILE * stream, char *buffer, int mode, size_t size), (stream, buffer, mode, size))
{
    return is_output(stream) ? 0 : __real_setvbuf(stream, buffer, mode, size);
}

QUIET_DOOR(int, isatty, (int fd), (fd))
{
    static_cast<void>(fd);
    return 0;
}
