// SPDX-License-Identifier: MIT
// The table of commands, and how errors are told.
#include "session.h"

#include "error_text.h"

#include <cstdio>
#include <cstdlib>
#include <cstring>

namespace uci_cli {

namespace {

const command commands[] = {
    {"show", 0, 1, show},         {"get", 1, 1, get},
    {"changes", 0, 1, changes},   {"export", 0, 1, export_packages},
    {"set", 1, 1, set},           {"add", 2, 2, add},
    {"delete", 1, 1, remove},     {"del", 1, 1, remove},
    {"rename", 1, 1, rename},     {"ren", 1, 1, rename},
    {"reorder", 1, 1, reorder},   {"add_list", 1, 1, add_list},
    {"del_list", 1, 1, del_list}, {"revert", 1, 1, revert},
    {"commit", 0, 1, commit},     {"import", 0, 1, import},
    {"batch", 0, 0, batch},
};

} // namespace

int fail(const session &s)
{
    if (s.quiet)
        return EXIT_FAILURE;
    uci_impl::heap<char> text = uci_impl::describe_error(s.ctx, s.program);
    fprintf(stderr, "%s\n", text != nullptr ? text.get() : "Out of memory");
    return EXIT_FAILURE;
}

int fail(const session &s, int code)
{
    s.ctx->err = code;
    return fail(s);
}

const command *find_command(const char *name, int argument_count)
{
    for (const command &candidate : commands) {
        if (strcmp(candidate.name, name) == 0)
            return argument_count >= candidate.least && argument_count <= candidate.most ? &candidate : nullptr;
    }
    return nullptr;
}

bool look_up(const session &s, char *tuple, uci_ptr *ptr)
{
    if (uci_lookup_ptr(s.ctx, ptr, tuple, true) == UCI_OK)
        return true;
    fail(s);
    return false;
}

} // namespace uci_cli
