/* SPDX-License-Identifier: MIT */
/*
 * Configuration library: a package is a file of named or anonymous sections, each with options and lists.
 * Changes wait in a save directory until they are committed. A context belongs to one thread at a time; contexts are
 * independent of each other. Unless said otherwise a function returns one of the UCI_ERR_ codes, 0 for success.
 */
#ifndef UCI_H
#define UCI_H

#include <setjmp.h>
#include <stdbool.h>
#include <stddef.h>
#include <stdint.h>
#include <stdio.h>

#ifdef __cplusplus
extern "C" {
#endif

#pragma GCC visibility push(default)

#define UCI_CONFDIR "/etc/config"
#define UCI_SAVEDIR "/tmp/.uci"
#define UCI_CONF2DIR "/var/run/uci"
#define UCI_DIRMODE 0700
#define UCI_FILEMODE 0600

enum {
    UCI_OK = 0,
    UCI_ERR_MEM,
    UCI_ERR_INVAL,
    UCI_ERR_NOTFOUND,
    UCI_ERR_IO,
    UCI_ERR_PARSE,
    UCI_ERR_DUPLICATE,
    UCI_ERR_UNKNOWN,
    UCI_ERR_LAST
};

enum uci_type {
    UCI_TYPE_UNSPEC = 0,
    UCI_TYPE_DELTA = 1,
    UCI_TYPE_PACKAGE = 2,
    UCI_TYPE_SECTION = 3,
    UCI_TYPE_OPTION = 4,
    UCI_TYPE_PATH = 5,
    UCI_TYPE_BACKEND = 6,
    UCI_TYPE_ITEM = 7,
    UCI_TYPE_HOOK = 8
};

enum uci_option_type { UCI_TYPE_STRING = 0, UCI_TYPE_LIST = 1 };

enum uci_flags { UCI_FLAG_STRICT = 1, UCI_FLAG_PERROR = 2, UCI_FLAG_EXPORT_NAME = 4, UCI_FLAG_SAVED_DELTA = 8 };

enum uci_command {
    UCI_CMD_ADD = 0,
    UCI_CMD_REMOVE = 1,
    UCI_CMD_CHANGE = 2,
    UCI_CMD_RENAME = 3,
    UCI_CMD_REORDER = 4,
    UCI_CMD_LIST_ADD = 5,
    UCI_CMD_LIST_DEL = 6
};

/* First character of a line of a delta file, by enum uci_command; 0: the line starts with the package name. */
extern const char uci_command_char[7];

struct uci_list {
    struct uci_list *next;
    struct uci_list *prev;
};

struct uci_element {
    struct uci_list list;
    enum uci_type type;
    char *name;
};

struct uci_backend;
struct uci_parse_context;
struct uci_context;
struct uci_section;

struct uci_package {
    struct uci_element e;
    struct uci_list sections;
    struct uci_context *ctx;
    bool has_delta;
    bool uses_conf2;
    char *path;

    /* private */
    struct uci_backend *backend;
    void *priv;
    int n_section;
    struct uci_list delta;
    struct uci_list saved_delta;
};

struct uci_section {
    struct uci_element e;
    struct uci_list options;
    struct uci_package *package;
    bool anonymous;
    char *type;
};

struct uci_option {
    struct uci_element e;
    struct uci_section *section;
    enum uci_option_type type;
    union {
        struct uci_list list;
        char *string;
    } v;
};

/* One change; e.name is the option, or NULL for a change of the section. */
struct uci_delta {
    struct uci_element e;
    enum uci_command cmd;
    char *section;
    char *value;
};

struct uci_ptr {
    enum uci_type target;
    enum { UCI_LOOKUP_DONE = 1, UCI_LOOKUP_COMPLETE = 2, UCI_LOOKUP_EXTENDED = 4 } flags;

    struct uci_package *p;
    struct uci_section *s;
    struct uci_option *o;
    struct uci_element *last;

    const char *package;
    const char *section;
    const char *option;
    const char *value;
};

struct uci_context {
    struct uci_list root; /* loaded packages */
    struct uci_parse_context *pctx;
    struct uci_backend *backend;
    struct uci_list backends;
    enum uci_flags flags;
    char *confdir;
    char *savedir;
    char *conf2dir;
    struct uci_list delta_path;

    /* private */
    int err;
    const char *func;
    jmp_buf trap;
    bool internal;
    bool nested;
    char *buf;
    int bufsz;
};

struct uci_parse_option {
    const char *name;
    enum uci_option_type type;
};

/* Contexts. The directories are copied; that they exist is not checked. */
struct uci_context *uci_alloc_context(void);
void uci_free_context(struct uci_context *ctx);
int uci_set_confdir(struct uci_context *ctx, const char *dir);
int uci_set_savedir(struct uci_context *ctx, const char *dir);
int uci_set_conf2dir(struct uci_context *ctx, const char *dir);
int uci_add_delta_path(struct uci_context *ctx, const char *dir);

/* Packages. A loaded package is a snapshot; a name that starts with "/" or "./" is a path. */
int uci_load(struct uci_context *ctx, const char *name, struct uci_package **package);
int uci_unload(struct uci_context *ctx, struct uci_package *p);
int uci_save(struct uci_context *ctx, struct uci_package *p);
/* Replaces *package: earlier pointers into it are void afterwards. */
int uci_commit(struct uci_context *ctx, struct uci_package **package, bool overwrite);
int uci_import(struct uci_context *ctx, FILE *stream, const char *name, struct uci_package **package, bool single);
int uci_export(struct uci_context *ctx, FILE *stream, struct uci_package *package, bool header);
/* *list ends with NULL and is released with one free(). */
int uci_list_configs(struct uci_context *ctx, char ***list);

/*
 * Looking up "package[.section[.option]][=value]". str is cut in place and referenced by ptr. A missing section or
 * option is no error: test UCI_LOOKUP_COMPLETE. extended allows "@type[index]" as section. str NULL: the names are
 * already in ptr.
 */
int uci_lookup_ptr(struct uci_context *ctx, struct uci_ptr *ptr, char *str, bool extended);
int uci_parse_ptr(struct uci_context *ctx, struct uci_ptr *ptr, char *str);
int uci_lookup_next(struct uci_context *ctx, struct uci_element **e, struct uci_list *list, const char *name);
void uci_parse_section(struct uci_section *s, const struct uci_parse_option *opts, int n_opts, struct uci_option **tb);

/* Editing in memory; uci_save or uci_commit keeps it. */
int uci_set(struct uci_context *ctx, struct uci_ptr *ptr);
int uci_delete(struct uci_context *ctx, struct uci_ptr *ptr);
int uci_rename(struct uci_context *ctx, struct uci_ptr *ptr);
int uci_add_list(struct uci_context *ctx, struct uci_ptr *ptr);
int uci_del_list(struct uci_context *ctx, struct uci_ptr *ptr);
int uci_add_section(struct uci_context *ctx, struct uci_package *p, const char *type, struct uci_section **res);
int uci_reorder_section(struct uci_context *ctx, struct uci_section *s, int pos);
/* Drops the waiting changes of a package, section or option and reloads the package into ptr. */
int uci_revert(struct uci_context *ctx, struct uci_ptr *ptr);

bool uci_validate_text(const char *str);

#pragma GCC visibility pop

#define uci_list_empty(list) ((list)->next == (list))

/* ptr must be a pointer to what the member is. */
#define uci_container(ptr, type, member)                                                  \
    __extension__({                                                                       \
        const __typeof__(((type *)(void *)(ptr))->member) *uci_container_member_ = (ptr); \
        (type *)(void *)((char *)uci_container_member_ - offsetof(type, member));         \
    })
#define list_to_element(ptr) uci_container(ptr, struct uci_element, list)
#define uci_to_package(ptr) uci_container(ptr, struct uci_package, e)
#define uci_to_section(ptr) uci_container(ptr, struct uci_section, e)
#define uci_to_option(ptr) uci_container(ptr, struct uci_option, e)
#define uci_to_delta(ptr) uci_container(ptr, struct uci_delta, e)
/* The element is a backend's first member. */
#define uci_to_backend(ptr) ((struct uci_backend *)(void *)uci_container(&(ptr)->list, struct uci_element, list))
#define uci_dataptr(ptr) (((char *)(ptr)) + sizeof(*(ptr)))

#define uci_foreach_element(_list, _ptr) \
    for (_ptr = list_to_element((_list)->next); &_ptr->list != (_list); _ptr = list_to_element(_ptr->list.next))

#define uci_foreach_element_safe(_list, _tmp, _ptr)                                                              \
    for (_ptr = list_to_element((_list)->next), _tmp = list_to_element(_ptr->list.next); &_ptr->list != (_list); \
         _ptr = _tmp, _tmp = list_to_element(_ptr->list.next))

#ifdef __cplusplus
}
#endif

#endif
