// SPDX-License-Identifier: MIT
// The daemon's object on the bus, as a client sees it: its answers, and when something changed. Bus and daemon may go
// away at any time, and come back.
#pragma once

struct blob_attr;

enum class t_outcome { answered, no_bus, no_daemon, not_allowed, silent };

// What there is to say of each.
const char *outcome_text(t_outcome outcome);

// The last reply of each method, owned by whoever asks; null before the first one.
struct t_answers {
    blob_attr *status;
    blob_attr *history;
};

// Asks, over a new connection where there is none. Answers of before stay where none comes.
t_outcome ask_daemon(t_answers *answers, bool with_history, int timeout_ms);

// From the next question on `changed` is called by the loop whenever the daemon tells of something.
void listen_to_daemon(void (*changed)());

// Whether it is told so; false where the bus does not let us listen.
bool hears_daemon();

void leave_daemon();
