// SPDX-License-Identifier: MIT
// The protocol-probe stage: questions go out on all ports at once, answers are collected every 500 ms, a cycle then
// judges them and a one-shot request leaves its file. Timer callbacks; loop thread only.
#pragma once

#include "adapters/engine_handlers.h"

extern "C" {
#include <libubox/uloop.h>
}

constexpr const char *PROTO_RESULT_FILE = "/tmp/protocol_detect_result";
constexpr int PROTO_COLLECT_INTERVAL_MS = 500;
constexpr int CYCLE_STAGE_TIMEOUT_MS = 2000;
constexpr unsigned MAX_SILENT_RETRIES = 2; // a port stays after so many silent stages and leaves after the next

// Takes a one-shot request over. 0, or ERR_BUSY when a detection is running; then nothing changes.
int start_proto_detect(const t_proto_detect_request *request);

// The same stage for a cycle: every linked port, the connection type's protocol.
void start_cycle_proto_stage();

void uloop_proto_detect_start(uloop_timeout *timer);
void uloop_proto_detect_end(uloop_timeout *timer);
void uloop_wan_detect_using_proto_detect(uloop_timeout *timer);

// Despite its name it keeps the ports with the wanted protocol. Drops the ports without link, those silent for too long
// and, once a port answered, all that did not. Returns how many candidates have the wanted protocol.
int remove_specific_proto_dev_from_list();

void write_proto_detect_result_file();
