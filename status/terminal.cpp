// SPDX-License-Identifier: MIT
#include "status/terminal.h"

#include <climits>
#include <cstdlib>
#include <cstring>
#include <initializer_list>

#include <sys/ioctl.h>
#include <unistd.h>

static const char *setting(const char *name)
{
    const char *value = getenv(name);
    return value ? value : "";
}

// The first of the three that is set counts, as everywhere.
static bool locale_is_utf8()
{
    for (const char *name : {"LC_ALL", "LC_CTYPE", "LANG"})
        if (const char *locale = setting(name); *locale)
            return strcasestr(locale, "utf");
    return false;
}

t_terminal look_at_terminal(bool is_terminal)
{
    const char *type = setting("TERM");
    const bool is_plain = strcmp(type, "dumb") == 0 || (is_terminal && *type == '\0');
    const bool can_redraw = is_terminal && !is_plain;
    return {{locale_is_utf8() && !is_plain, can_redraw && *setting("NO_COLOR") == '\0'}, can_redraw};
}

int terminal_rows()
{
    winsize size = {};
    return ioctl(STDOUT_FILENO, TIOCGWINSZ, &size) == 0 && size.ws_row > 0 ? size.ws_row : INT_MAX;
}
