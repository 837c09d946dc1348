// SPDX-License-Identifier: MIT
#include "core/options.h"

#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <getopt.h>

#include "platform/command.h"
#include "platform/log.h"

constexpr size_t CONSOLE_COMMAND_SIZE = 1024;
constexpr size_t QUOTED_SIZE = 512;
constexpr int LEVEL_MIN = 1;
constexpr int LEVEL_MAX = 7;

// Text from outside, made safe to stand between single quotes in the shell; cut when it is too long.
struct t_quoted {
    char text[QUOTED_SIZE];
    explicit t_quoted(const char *raw)
    {
        static constexpr char QUOTE[] = "'\\''";
        size_t used = 0;
        for (; *raw && used + sizeof QUOTE < sizeof text; raw++) {
            if (*raw != '\'') {
                text[used++] = *raw;
                continue;
            }
            memcpy(text + used, QUOTE, sizeof QUOTE - 1);
            used += sizeof QUOTE - 1;
        }
        text[used] = '\0';
    }
};

static void __attribute__((format(printf, 1, 2))) run_console_command(const char *format, ...)
{
    char command[CONSOLE_COMMAND_SIZE];
    va_list args;
    va_start(args, format);
    vsnprintf(command, sizeof command, format, args);
    va_end(args);
    run_command(command);
}

static int take_level(const char *argument, t_options *options)
{
    const int level = static_cast<int>(strtol(argument, nullptr, 10));
    if (level < LEVEL_MIN || level > LEVEL_MAX) {
        run_console_command("echo 'Invalid option -d %s, Run as default critical debug level!' > /dev/console",
                            t_quoted(argument).text);
        return OPTIONS_LEVEL;
    }
    options->log_level = level;
    options->has_level = true;
    run_console_command("echo 'Success set wan_detect debug level to %s!' > /dev/console", t_quoted(argument).text);
    return OPTIONS_LEVEL;
}

static int point_to_help(const char *program)
{
    run_console_command("echo 'Try: %s --help for more information!' > /dev/console", t_quoted(program).text);
    return OPTIONS_STOP;
}

// The client takes only its own options, and they are of use to it alone.
static int with_status(const t_options &options, int result, const char *program)
{
    const t_status_wish &wish = options.status;
    if ((!wish.wanted && !wish.watch && !wish.json) || result == OPTIONS_STOP)
        return result;
    if (!wish.wanted || result == OPTIONS_LEVEL || options.foreground)
        return point_to_help(program);
    return OPTIONS_STATUS;
}

int parse_options(int argc, char **argv, t_options *options)
{
    static const option LONG_OPTIONS[] = {
        {"debug", required_argument, nullptr, 'd'}, {"foreground", no_argument, nullptr, 'f'},
        {"help", no_argument, nullptr, 'h'},        {"json", no_argument, nullptr, 'j'},
        {"status", no_argument, nullptr, 's'},      {"version", no_argument, nullptr, 'V'},
        {"watch", no_argument, nullptr, 'w'},       {nullptr, 0, nullptr, 0}};
    *options = {LOG_LEVEL_Critical, false, false, {}};
    opterr = 0;
    int result = OPTIONS_NONE;
    for (int found; (found = getopt_long(argc, argv, "d:fhV", LONG_OPTIONS, nullptr)) != -1;) {
        switch (found) {
        case 0:
            break;
        case 'd':
            result = take_level(optarg, options);
            break;
        case 'f':
            options->foreground = true;
            break;
        case 's':
            options->status.wanted = true;
            break;
        case 'w':
            options->status.watch = true;
            break;
        case 'j':
            options->status.json = true;
            break;
        case 'V':
            puts("wan_detect " WAN_DETECT_VERSION);
            return OPTIONS_VERSION;
        case 'h':
            run_console_command(
                "echo 'Usage: %s -d/--debug [0(emergy)~7(debug)] to specify the debug level!' > /dev/console",
                t_quoted(argv[0]).text);
            result = OPTIONS_STOP;
            break;
        case ':':
        case '?':
            result = point_to_help(argv[0]);
            break;
        default:
            run_console_command("echo 'Invalid option -%c, Run as default critical debug level!' > /dev/console",
                                found);
            result = point_to_help(argv[0]);
            break;
        }
    }
    return with_status(*options, result, argv[0]);
}
