// SPDX-License-Identifier: MIT
// Children watched by the event loop.
#include "uloop_internal.h"

#include <cerrno>
#include <sys/wait.h>

namespace {

constinit struct list_head processes = {&processes, &processes};

struct uloop_process *find_process(pid_t pid)
{
    struct uloop_process *watch;
    list_for_each_entry(watch, &processes, list)
    {
        if (watch->pid == pid)
            return watch;
    }
    return nullptr;
}

void forget(struct uloop_process *watch)
{
    list_del(&watch->list);
    watch->pending = false;
}

pid_t next_exited_child(int *status)
{
    pid_t pid;
    do
        pid = waitpid(-1, status, WNOHANG);
    while (pid < 0 && errno == EINTR);
    return pid;
}

} // namespace

int uloop_process_add(struct uloop_process *p)
{
    if (p->pending)
        return -1;
    list_add_tail(&p->list, &processes);
    p->pending = true;
    return 0;
}

int uloop_process_delete(struct uloop_process *p)
{
    if (!p->pending)
        return -1;
    forget(p);
    return 0;
}

// Every child of the process is collected, watched or not.
void uloop_reap_children()
{
    int status;
    pid_t pid;
    while ((pid = next_exited_child(&status)) > 0) {
        struct uloop_process *watch = find_process(pid);
        if (!watch)
            continue;
        forget(watch);
        if (watch->cb)
            watch->cb(watch, status);
    }
}

void uloop_forget_all_processes()
{
    while (!list_empty(&processes))
        forget(list_first_entry(&processes, struct uloop_process, list));
}
