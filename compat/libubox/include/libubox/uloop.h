/* SPDX-License-Identifier: MIT */
/* The event loop: timers, descriptors, children and signals of one thread. Nothing here may be called from another
 * thread while the loop runs. All records must be zeroed before first use. */
#ifndef LIBUBOX_ULOOP_H
#define LIBUBOX_ULOOP_H

#include <signal.h>
#include <stdbool.h>
#include <stdint.h>
#include <sys/time.h>
#include <sys/types.h>

#include "list.h"

#define ULOOP_READ (1 << 0)
#define ULOOP_WRITE (1 << 1)
#define ULOOP_EDGE_TRIGGER (1 << 2)
/* Leave the descriptor blocking. */
#define ULOOP_BLOCKING (1 << 3)
#define ULOOP_EVENT_MASK (ULOOP_READ | ULOOP_WRITE)
/* Internal. */
#define ULOOP_EVENT_BUFFERED (1 << 4)
/* Keep the descriptor registered after an error or hang-up. */
#define ULOOP_ERROR_CB (1 << 6)

struct uloop_fd;
struct uloop_timeout;
struct uloop_process;
struct uloop_signal;
struct uloop_interval;

typedef void (*uloop_fd_handler)(struct uloop_fd *u, unsigned int events);
typedef void (*uloop_timeout_handler)(struct uloop_timeout *t);
typedef void (*uloop_process_handler)(struct uloop_process *c, int status);
typedef void (*uloop_signal_handler)(struct uloop_signal *s);
typedef void (*uloop_interval_handler)(struct uloop_interval *t);

struct uloop_fd {
    uloop_fd_handler cb;
    int fd;
    bool eof;
    bool error;
    bool registered;
    uint8_t flags;
};

struct uloop_timeout {
    struct list_head list;
    bool pending;
    uloop_timeout_handler cb;
    /* CLOCK_MONOTONIC. */
    struct timeval time;
};

struct uloop_process {
    struct list_head list;
    bool pending;
    uloop_process_handler cb;
    pid_t pid;
};

struct uloop_signal {
    struct list_head list;
    struct sigaction orig;
    bool pending;
    uloop_signal_handler cb;
    int signo;
};

struct uloop_interval {
    uloop_interval_handler cb;
    uint64_t expirations;
    /* Private. */
    union {
        struct uloop_fd ufd;
    } priv;
};

extern bool uloop_cancelled;
/* Cleared before the first uloop_init: children are left to the application. */
extern bool uloop_handle_sigchld;
/* If set, told of every successful add (flags) and delete (0). */
extern uloop_fd_handler uloop_fd_set_cb;

/* 0, or -1 if the loop's own descriptors cannot be made. */
int uloop_init(void);
void uloop_done(void);
/* Runs until uloop_end (0) or SIGINT or SIGTERM (the signal's number). timeout >= 0: one turn that waits at most this
 * many ms. */
int uloop_run_timeout(int timeout);

static inline int uloop_run(void)
{
    return uloop_run_timeout(-1);
}

static inline void uloop_end(void)
{
    uloop_cancelled = true;
}

/* Whether a running loop is about to end. */
bool uloop_cancelling(void);

/* flags: ULOOP_ bits; without READ and WRITE it is a delete. 0, or -1 with errno. */
int uloop_fd_add(struct uloop_fd *sock, unsigned int flags);
int uloop_fd_delete(struct uloop_fd *sock);

/* Arms for timeout->time. -1 if armed already. */
int uloop_timeout_add(struct uloop_timeout *timeout);
/* Arms, or arms anew, for now + msecs. */
int uloop_timeout_set(struct uloop_timeout *timeout, int msecs);
/* -1 if not armed. */
int uloop_timeout_cancel(struct uloop_timeout *timeout);
/* Milliseconds, negative when overdue; -1 if not armed. */
int uloop_timeout_remaining(struct uloop_timeout *timeout) __attribute__((deprecated("use uloop_timeout_remaining64")));
int64_t uloop_timeout_remaining64(struct uloop_timeout *timeout);
/* Milliseconds until the first timer, -1 without timers. */
int uloop_get_next_timeout(void);

/* cb gets the wait status of the child `pid`. Add -1 if pending already, delete -1 if not pending. */
int uloop_process_add(struct uloop_process *p);
int uloop_process_delete(struct uloop_process *p);

/* cb runs in the loop after the signal `signo`. Add -1 if pending already, delete -1 if not pending. */
int uloop_signal_add(struct uloop_signal *s);
int uloop_signal_delete(struct uloop_signal *s);

/* Periodic timer. 0 or -1 with errno. */
int uloop_interval_set(struct uloop_interval *timer, unsigned int msecs);
/* -1 if not armed. */
int uloop_interval_cancel(struct uloop_interval *timer);
/* Milliseconds, -1 if not armed. */
int64_t uloop_interval_remaining(struct uloop_interval *timer);

#endif
