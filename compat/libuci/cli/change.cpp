// SPDX-License-Identifier: MIT
// The commands that change something, one at a time. Each edit is saved at once, to be committed or reverted later.
#include "session.h"

#include <climits>
#include <cstdio>
#include <cstdlib>

namespace uci_cli {

namespace {

int save(const session &s, uci_package *package)
{
    return uci_save(s.ctx, package) == UCI_OK ? EXIT_SUCCESS : fail(s);
}

int edit(const session &s, char *tuple, int (*call)(uci_context *, uci_ptr *))
{
    uci_ptr ptr = {};
    if (!look_up(s, tuple, &ptr))
        return EXIT_FAILURE;
    return call(s.ctx, &ptr) == UCI_OK ? save(s, ptr.p) : fail(s);
}

int commit_package(const session &s, uci_package *package)
{
    return uci_commit(s.ctx, &package, false) == UCI_OK ? EXIT_SUCCESS : fail(s);
}

} // namespace

int set(session &s, const arguments &args)
{
    return edit(s, args.first, uci_set);
}

int remove(session &s, const arguments &args)
{
    return edit(s, args.first, uci_delete);
}

int rename(session &s, const arguments &args)
{
    return edit(s, args.first, uci_rename);
}

int add_list(session &s, const arguments &args)
{
    return edit(s, args.first, uci_add_list);
}

int del_list(session &s, const arguments &args)
{
    return edit(s, args.first, uci_del_list);
}

int add(session &s, const arguments &args)
{
    uci_ptr ptr = {};
    uci_section *section = nullptr;
    if (!look_up(s, args.first, &ptr) || uci_add_section(s.ctx, ptr.p, args.second, &section) != UCI_OK) {
        // Unlike the others this command hands out the code itself.
        int code = s.ctx->err;
        if (ptr.p != nullptr)
            fail(s);
        return code;
    }
    int status = save(s, ptr.p);
    if (status == EXIT_SUCCESS)
        puts(section->e.name);
    return status;
}

int reorder(session &s, const arguments &args)
{
    constexpr int decimal = 10;
    uci_ptr ptr = {};
    if (!look_up(s, args.first, &ptr))
        return EXIT_FAILURE;
    if (ptr.target != UCI_TYPE_SECTION || ptr.value == nullptr)
        return fail(s, UCI_ERR_INVAL);
    if (ptr.s == nullptr)
        return fail(s, UCI_ERR_NOTFOUND);
    char *end = nullptr;
    unsigned long position = strtoul(ptr.value, &end, decimal);
    if (end == ptr.value || *end != '\0' || position > INT_MAX)
        return fail(s, UCI_ERR_INVAL);
    int rc = uci_reorder_section(s.ctx, ptr.s, static_cast<int>(position));
    return rc == UCI_OK ? save(s, ptr.p) : fail(s);
}

int revert(session &s, const arguments &args)
{
    uci_ptr ptr = {};
    if (!look_up(s, args.first, &ptr))
        return EXIT_FAILURE;
    return uci_revert(s.ctx, &ptr) == UCI_OK ? EXIT_SUCCESS : fail(s);
}

int commit(session &s, const arguments &args)
{
    if (s.keeps_delta)
        return EXIT_SUCCESS;
    if (args.first == nullptr)
        return for_each_package(s, [&s](uci_package *package) { return commit_package(s, package); });
    uci_ptr ptr = {};
    return look_up(s, args.first, &ptr) ? commit_package(s, ptr.p) : EXIT_FAILURE;
}

} // namespace uci_cli
