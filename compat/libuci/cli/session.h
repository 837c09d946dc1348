// SPDX-License-Identifier: MIT
// What the commands of the program share: the context, the options of the command line, and how errors are told.
#pragma once

#include <uci.h>

#include <cstdlib>

namespace uci_cli {

constexpr int exit_usage = 255; // unknown command or wrong number of arguments

struct session {
    uci_context *ctx = nullptr;
    const char *program = "";
    const char *delimiter = " "; // between the items of a list
    const char *input_path = nullptr;
    bool quiet = false;
    bool merge = false;       // import: into the package, not over it
    bool real_names = false;  // show: no "@type[index]"
    bool keeps_delta = false; // commit does nothing
};

// Tells the last error of the context, unless we are quiet. Returns EXIT_FAILURE.
int fail(const session &s);
// The same for an error the library had no part in.
int fail(const session &s, int code);

// The arguments after the name of a command; null where there are none.
struct arguments {
    char *first = nullptr;
    char *second = nullptr;
};

struct command {
    const char *name;
    int least; // number of arguments
    int most;
    int (*run)(session &s, const arguments &args); // returns the exit status
};

// Null: there is no such command, or not with that number of arguments.
const command *find_command(const char *name, int argument_count);

// Looks a tuple up; cuts its text. False: the error was told.
bool look_up(const session &s, char *tuple, uci_ptr *ptr);

// Calls each(package) for every configuration that loads; tells the error of those that do not. Exit status.
template <typename each_type> int for_each_package(const session &s, each_type each)
{
    char **names = nullptr;
    if (uci_list_configs(s.ctx, &names) != UCI_OK)
        return fail(s);
    if (names[0] == nullptr) {
        free(names);
        return fail(s, UCI_ERR_NOTFOUND);
    }
    int status = EXIT_SUCCESS;
    for (char **name = names; *name != nullptr; ++name) {
        uci_ptr ptr = {};
        if (look_up(s, *name, &ptr) && each(ptr.p) != EXIT_SUCCESS)
            status = EXIT_FAILURE;
    }
    free(names);
    return status;
}

int show(session &s, const arguments &args);
int get(session &s, const arguments &args);
int changes(session &s, const arguments &args);
int export_packages(session &s, const arguments &args);
int set(session &s, const arguments &args);
int add(session &s, const arguments &args);
int remove(session &s, const arguments &args);
int rename(session &s, const arguments &args);
int reorder(session &s, const arguments &args);
int add_list(session &s, const arguments &args);
int del_list(session &s, const arguments &args);
int revert(session &s, const arguments &args);
int commit(session &s, const arguments &args);
int import(session &s, const arguments &args);
int batch(session &s, const arguments &args);

} // namespace uci_cli
