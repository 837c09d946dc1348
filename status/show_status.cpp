// SPDX-License-Identifier: MIT
#include "status/show_status.h"

#include <algorithm>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <poll.h>
#include <unistd.h>

extern "C" {
#include <libubox/uloop.h>
}

#include "status/daemon_object.h"
#include "status/json_text.h"
#include "status/picture.h"
#include "status/terminal.h"

constexpr int ONCE_TIMEOUT_MS = 10000; // the daemon may be in one of its longer waits
constexpr int WATCH_TIMEOUT_MS = 1000;
constexpr int LOOK_INTERVAL_MS = 1000;
constexpr int SETTLE_MS = 50; // changes come in company
constexpr const char *FROM_THE_TOP = "\033[H\033[J";

namespace {

struct t_watch {
    t_status_wish wish;
    t_terminal terminal;
    t_answers answers;
    t_outcome outcome; // of the last question
    bool has_begun;    // something was printed
    bool changed;      // since then
    bool failed;       // the output took no more
    uloop_timeout next_look;
};

} // namespace

static t_watch watch;

static void print_answers()
{
    if (watch.wish.json)
        print_json(stdout, watch.answers.status);
    else
        draw_picture(stdout, watch.answers.status, watch.answers.history, watch.terminal.look);
}

static void complain()
{
    fprintf(stderr, "wan_detect: %s\n", outcome_text(watch.outcome));
}

static void ask(int timeout_ms)
{
    watch.outcome = ask_daemon(&watch.answers, !watch.wish.json, timeout_ms);
}

static bool output_took_all()
{
    return fflush(stdout) == 0 && !ferror(stdout);
}

static int show_once()
{
    ask(ONCE_TIMEOUT_MS);
    leave_daemon();
    if (watch.outcome != t_outcome::answered) {
        complain();
        return EXIT_FAILURE;
    }
    print_answers();
    return output_took_all() ? EXIT_SUCCESS : EXIT_FAILURE;
}

// The picture with so many verdicts at most, to be freed; null without memory.
static char *picture_with(int verdicts)
{
    char *text = nullptr;
    size_t size = 0;
    FILE *out = open_memstream(&text, &size);
    if (!out)
        return nullptr;
    draw_picture(out, watch.answers.status, watch.answers.history, watch.terminal.look, verdicts);
    fclose(out);
    return text;
}

// The panel stays in sight: verdicts that have no room are left out, and what has none even so is cut.
static void print_within(int rows)
{
    for (int verdicts = MOST_VERDICTS; verdicts >= 0; verdicts--) {
        char *text = picture_with(verdicts);
        char *end = text;
        for (int lines = 0; end && *end != '\0' && lines < rows; lines++) {
            end += strcspn(end, "\n");
            end += *end == '\n';
        }
        const bool is_last = end && (*end == '\0' || verdicts == 0);
        if (is_last)
            fwrite(text, 1, static_cast<size_t>(end - text), stdout);
        free(text);
        if (is_last)
            break;
    }
}

// What was the last one stays in sight while the daemon is busy.
static void redraw()
{
    int rows = terminal_rows() - 1; // the cursor stands in the last one
    fputs(FROM_THE_TOP, stdout);
    if (watch.outcome != t_outcome::answered) {
        printf("  %s; this goes on when it does\n\n", outcome_text(watch.outcome));
        rows -= 2;
    }
    if (watch.answers.status && (watch.outcome == t_outcome::answered || watch.outcome == t_outcome::silent))
        print_within(rows);
}

// One picture after the other, for a file, a pipe or a terminal that can do no better.
static void add_picture(t_outcome before)
{
    if (watch.outcome != before)
        complain();
    const bool is_new = !watch.has_begun || watch.changed || watch.outcome != before || !hears_daemon();
    if (watch.outcome != t_outcome::answered || !is_new)
        return;
    if (watch.has_begun && !watch.wish.json)
        fputc('\n', stdout);
    print_answers();
    watch.has_begun = true;
}

// A reader who is gone is seen at once, not only when there is something to write.
static bool reader_is_gone()
{
    pollfd output = {STDOUT_FILENO, 0, 0};
    return poll(&output, 1, 0) > 0;
}

static void look(uloop_timeout *)
{
    const t_outcome before = watch.outcome;
    ask(WATCH_TIMEOUT_MS);
    if (watch.terminal.can_redraw && !watch.wish.json)
        redraw();
    else
        add_picture(before);
    watch.changed = false;
    uloop_timeout_set(&watch.next_look, LOOK_INTERVAL_MS);
    const bool took_all = output_took_all(), is_gone = reader_is_gone();
    watch.failed = !took_all && !is_gone;
    if (!took_all || is_gone)
        uloop_end();
}

static void look_soon()
{
    if (watch.changed)
        return;
    watch.changed = true;
    uloop_timeout_set(&watch.next_look, SETTLE_MS);
}

// The loop ends by itself when it is told to by a signal.
static int keep_showing()
{
    if (uloop_init() != 0)
        return EXIT_FAILURE;
    watch.next_look.cb = look;
    listen_to_daemon(look_soon);
    uloop_timeout_set(&watch.next_look, 0);
    uloop_run();
    leave_daemon();
    uloop_done();
    return watch.failed ? EXIT_FAILURE : EXIT_SUCCESS;
}

int show_status(const t_status_wish &wish)
{
    sigset_t none; // is to be held back, as SIGHUP was, or whatever the starter held back
    sigemptyset(&none);
    pthread_sigmask(SIG_SETMASK, &none, nullptr);
    signal(SIGPIPE, SIG_IGN);
    watch.wish = wish;
    watch.terminal = look_at_terminal(isatty(STDOUT_FILENO));
    return wish.watch ? keep_showing() : show_once();
}
