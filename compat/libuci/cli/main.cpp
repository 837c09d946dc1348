// SPDX-License-Identifier: MIT
// The program uci: reads its command line and runs one command on the configuration.
#include "session.h"

#include <cstdio>
#include <cstdlib>
#include <unistd.h>

namespace {

using namespace uci_cli;

constexpr char usage_text[] = "usage: %s [options] command [arguments]\n"
                              "\n"
                              "  show [config[.section[.option]]]         print everything below\n"
                              "  get config.section[.option]              print one value\n"
                              "  set config.section[.option]=value\n"
                              "  add config type                          add an unnamed section, print its name\n"
                              "  delete config.section[.option[=index]]\n"
                              "  rename config.section[.option]=name\n"
                              "  reorder config.section=position\n"
                              "  add_list config.section.option=item\n"
                              "  del_list config.section.option=item\n"
                              "  changes [config]                         print what was not committed yet\n"
                              "  revert config[.section[.option]]         forget what was not committed yet\n"
                              "  commit [config]\n"
                              "  export [config]\n"
                              "  import [config]                          read a configuration from the input\n"
                              "  batch                                    read commands from the input\n"
                              "\n"
                              "  -c DIR  configuration files (" UCI_CONFDIR ")\n"
                              "  -C DIR  files used instead, where they exist (" UCI_CONF2DIR ")\n"
                              "  -t DIR  where changes wait (" UCI_SAVEDIR ")\n"
                              "  -P DIR  like -t, and commit does nothing\n"
                              "  -p DIR  read waiting changes from here too\n"
                              "  -f FILE use FILE as the input\n"
                              "  -d TEXT between the items of a list\n"
                              "  -m      import into a configuration instead of over it\n"
                              "  -n, -N  export the names of unnamed sections, or not\n"
                              "  -s, -S  refuse malformed lines, or skip them\n"
                              "  -X      show the names of unnamed sections instead of @type[index]\n"
                              "  -q      no error messages\n";

int usage(const char *program, int status)
{
    fprintf(stderr, usage_text, program);
    return status;
}

void set_flag(uci_context *ctx, uci_flags flag, bool on)
{
    int flags = on ? ctx->flags | flag : ctx->flags & ~flag;
    ctx->flags = static_cast<uci_flags>(flags);
}

// One option with its value. False: unknown, or no memory.
bool take_option(session &s, int option, const char *value)
{
    uci_context *ctx = s.ctx;
    switch (option) {
    case 'c':
        return uci_set_confdir(ctx, value) == UCI_OK;
    case 'C':
        return uci_set_conf2dir(ctx, value) == UCI_OK;
    case 'P':
        s.keeps_delta = true;
        return uci_set_savedir(ctx, value) == UCI_OK;
    case 't':
        return uci_set_savedir(ctx, value) == UCI_OK;
    case 'p':
        return uci_add_delta_path(ctx, value) == UCI_OK;
    case 'f':
        s.input_path = value;
        return true;
    case 'd':
        s.delimiter = value;
        return true;
    case 'm':
        s.merge = true;
        return true;
    case 'n':
    case 'N':
        set_flag(ctx, UCI_FLAG_EXPORT_NAME, option == 'n');
        return true;
    case 's':
    case 'S':
        set_flag(ctx, UCI_FLAG_STRICT, option == 's');
        return true;
    case 'X':
        s.real_names = true;
        return true;
    case 'q':
        s.quiet = true;
        return true;
    default:
        return false;
    }
}

int run(session &s, int argc, char **argv)
{
    for (int option = 0; (option = getopt(argc, argv, "c:C:t:P:p:f:d:mnNsSXq")) != -1;) {
        if (!take_option(s, option, optarg))
            return usage(s.program, exit_usage);
    }
    if (optind == argc)
        return usage(s.program, EXIT_SUCCESS);

    int count = argc - optind - 1;
    const command *found = find_command(argv[optind], count);
    if (found == nullptr)
        return usage(s.program, exit_usage);
    arguments args;
    args.first = count > 0 ? argv[optind + 1] : nullptr;
    args.second = count > 1 ? argv[optind + 2] : nullptr;
    int status = found->run(s, args);
    // Output that did not arrive must not look like success.
    return fflush(stdout) == 0 || status != EXIT_SUCCESS ? status : fail(s, UCI_ERR_IO);
}

} // namespace

int main(int argc, char **argv)
{
    session s;
    s.program = argv[0];
    s.ctx = uci_alloc_context();
    if (s.ctx == nullptr) {
        fprintf(stderr, "%s: Out of memory\n", s.program);
        return EXIT_FAILURE;
    }
    int status = run(s, argc, argv);
    uci_free_context(s.ctx);
    return status;
}
