/* SPDX-License-Identifier: MIT */
/* What a program written in C does with the library: the header and its macros are C. */
#include <uci.h>

#include <string.h>

int count_options_from_c(const char *confdir, const char *savedir, const char *name);

/* The number of list items and plain options of a package; negative: the error. */
int count_options_from_c(const char *confdir, const char *savedir, const char *name)
{
    struct uci_context *ctx = uci_alloc_context();
    struct uci_package *package = NULL;
    struct uci_element *s, *o, *item, *next;
    int count = 0;

    uci_set_confdir(ctx, confdir);
    uci_set_savedir(ctx, savedir);
    count = -uci_load(ctx, name, &package);
    if (package != NULL) {
        uci_foreach_element(&package->sections, s) {
            uci_foreach_element_safe(&uci_to_section(s)->options, next, o) {
                struct uci_option *option = uci_to_option(o);
                if (option->type == UCI_TYPE_STRING && strlen(option->v.string) > 0)
                    count++;
                if (option->type == UCI_TYPE_LIST && !uci_list_empty(&option->v.list))
                    uci_foreach_element(&option->v.list, item)
                        count++;
            }
        }
    }
    uci_free_context(ctx);
    return count;
}
