// SPDX-License-Identifier: MIT
// The `ubus` program: options, connection, choice of the command, exit code.
#include "commands.h"

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <unistd.h>

namespace ubus_cli {
namespace {

constexpr int EXIT_NO_COMMAND = 1;

struct command {
    const char *name;
    int (*run)(bus_link &bus, const arguments &args);
};

constexpr command COMMANDS[] = {
    {"list", list},     {"call", call},           {"send", send},
    {"listen", listen}, {"subscribe", subscribe}, {"wait_for", wait_for},
};

void usage(const char *program)
{
    fprintf(stderr,
            "Usage: %s [<options>] <command> [<arguments>]\n"
            "Options:\n"
            "  -s <socket>   the bus to talk to\n"
            "  -t <seconds>  how long call, listen, subscribe and wait_for may take\n"
            "  -S            brief output, no error messages\n"
            "  -v            list: show methods and their arguments, too\n"
            "Commands:\n"
            "  list [<path>]                       objects; a final star in <path> stands for any ending\n"
            "  call <path> <method> [<message>]    call a method; <message> is a JSON object\n"
            "  send <event> [<message>]            send an event\n"
            "  listen [<event>...]                 print events as they come\n"
            "  subscribe <path>...                 print notifications of these objects as they come\n"
            "  wait_for <path>...                  wait until all these objects are there\n",
            program);
}

const command *find_command(const char *name)
{
    for (const command &known : COMMANDS) {
        if (strcmp(known.name, name) == 0) {
            return &known;
        }
    }
    return nullptr;
}

bool read_options(int argc, char **argv, options &wanted)
{
    int option;
    while ((option = getopt(argc, argv, "s:t:Sv")) != -1) {
        switch (option) {
        case 's':
            wanted.socket = optarg;
            break;
        case 't':
            wanted.timeout_s = atoi(optarg);
            break;
        case 'S':
            wanted.is_simple = true;
            break;
        case 'v':
            wanted.is_verbose = true;
            break;
        default:
            return false;
        }
    }
    return true;
}

int run_command(bus_link &bus, const char *name, const arguments &args, const char *program)
{
    const command *wanted = find_command(name);
    int result = wanted ? wanted->run(bus, args) : WRONG_USAGE;
    if (result > 0 && !bus.wanted.is_simple) {
        fprintf(stderr, "Command failed: %s\n", ubus_strerror(result));
    } else if (result == WRONG_USAGE) {
        usage(program);
    }
    return result;
}

int run(int argc, char **argv)
{
    bus_link bus = {};
    if (!read_options(argc, argv, bus.wanted) || optind >= argc) {
        usage(argv[0]);
        return EXIT_NO_COMMAND;
    }
    bus.ctx = ubus_connect(bus.wanted.socket);
    if (!bus.ctx) {
        if (!bus.wanted.is_simple) {
            fprintf(stderr, "Failed to connect to ubus\n");
        }
        return FAILED;
    }
    arguments args = {.count = argc - optind - 1, .text = argv + optind + 1};
    int result = run_command(bus, argv[optind], args, argv[0]);
    ubus_free(bus.ctx);
    uloop_done();
    return result;
}

} // namespace
} // namespace ubus_cli

int main(int argc, char **argv)
{
    return ubus_cli::run(argc, argv);
}
