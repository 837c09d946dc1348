// SPDX-License-Identifier: MIT
// The way up: what the bus and the switch ask of the engine. core/ fills the table in at start-up; tests fill in
// their own.
#pragma once

#include <cstdint>

struct t_device;
struct t_protocol;

constexpr int32_t PROTO_DETECT_TIMEOUT_DEFAULT_MS = 2000;
constexpr int32_t PROTO_DETECT_TIMEOUT_MIN_MS = 1000;
constexpr int32_t PROTO_DETECT_TIMEOUT_MAX_MS = 4000;

// One protocol detection as asked for over the bus. Null members mean "every linked port" and "DHCP and PPPoE both".
struct t_proto_detect_request {
    int32_t timeout_ms;
    t_device *dev;        // borrowed from the device table
    t_protocol *protocol; // borrowed from the protocol table
};

// What the engine is about, for whoever asks. Words are texts that live for ever.
struct t_progress {
    const char *state; // of the cycle, in the words of docs/architecture.md: "resting", "waiting", "looking", ...
    const char *next;  // due next: "pass", "cycle", "look", "answers", "judgement", "end"; null for nothing
    int next_ms;
    int retry_pause_s; // before the look that is due, or would be next; 0 for never
    int swap_pause_s;  // behind the next swap
    bool starting;     // the loop has not begun
};

struct t_engine_handlers {
    // Opens a cycle over all linked pool ports after a delay in milliseconds.
    void (*start_wan_detect_all)(int delay_ms);
    // 0 when the request was taken over, ERR_BUSY when a detection is running (then nothing changes).
    int (*start_proto_detect)(const t_proto_detect_request *request);
    // Stores a port's new link state and lets the engine act on it. Any thread; always 0.
    int (*process_link_change)(t_device *dev, bool up);
    // Something changed that makes another look at the ports worth while soon. Any thread.
    void (*begin_retries_anew)();
    // Where the engine is. Loop thread.
    void (*tell_progress)(t_progress *progress) = nullptr;
    // The WAN role is about to be given to this port: after how many seconds may a cycle test that? Loop thread.
    int (*begin_swap)(t_device *dev) = nullptr;
};

extern t_engine_handlers engine_handlers;
