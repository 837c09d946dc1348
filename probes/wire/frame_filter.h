// SPDX-License-Identifier: MIT
// Filters that the kernel runs over the frames of a packet socket (classic BPF), so that a flood does not fill its
// queue and take the answer's place. A filter may only drop what the probe would pass over without a word in the log,
// at the level of the moment when it is made; reading beyond a frame's end drops it. Any thread.
//
// In the comments beside instructions A is the accumulator and X the index; a jump ends with how many instructions it
// goes over, first when it is true and then when it is not.
#pragma once

#include <cstddef>
#include <cstdint>
#include <initializer_list>
#include <linux/filter.h>

#include "probes/wire/mac.h"

constexpr size_t FRAME_FILTER_SIZE = 512;

// Without instructions it is no filter: every frame is heard.
struct t_frame_filter {
    uint16_t length;
    sock_filter code[FRAME_FILTER_SIZE];
};

// Adds instructions. What does not fit is left out; the kernel then refuses the filter as one that never ends.
void filter_add(t_frame_filter *filter, std::initializer_list<sock_filter> instructions);

// Drops the frame unless the field at `offset` has that value, in host order.
void filter_require_byte(t_frame_filter *filter, size_t offset, uint8_t value);
void filter_require_half(t_frame_filter *filter, size_t offset, uint16_t value);
void filter_require_word(t_frame_filter *filter, size_t offset, uint32_t value);
void filter_require_mac(t_frame_filter *filter, size_t offset, const t_mac &mac);

// Drops the frame if a MAC stands at `offset`, or if the port sent the frame itself.
void filter_refuse_mac(t_frame_filter *filter, size_t offset, const t_mac &mac);
void filter_refuse_own(t_frame_filter *filter);

// Ends the program for the frames that get here: they are kept, or dropped.
void filter_keep(t_frame_filter *filter);
void filter_drop(t_frame_filter *filter);
