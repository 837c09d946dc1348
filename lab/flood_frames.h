// SPDX-License-Identifier: MIT
// What a flood is made of: garbage, what other hosts say to each other, and answers to the daemon's own questions with
// one flaw each. All of it follows from a seed.
#pragma once

#include <cstddef>
#include <cstdint>

constexpr size_t FLOOD_FRAME_SIZE = 1514;
constexpr size_t FLOOD_POOL_SIZE = 1024;

struct t_flood_frame {
    uint16_t size;
    uint8_t bytes[FLOOD_FRAME_SIZE];
};

struct t_flood_pool {
    size_t count;
    t_flood_frame frames[FLOOD_POOL_SIZE];
};

// xorshift64*; the seed may be anything.
class t_dice {
public:
    explicit t_dice(uint64_t seed) : state_(seed * 2 + 1) {}
    uint64_t next();
    uint32_t below(uint32_t limit) { return static_cast<uint32_t>((next() >> 32) % limit); }
    void fill(void *bytes, size_t size);

private:
    uint64_t state_;
};

// The questions that the flaws are put into, each as it was last heard; made up until then.
struct t_questions {
    t_flood_frame discover, padi, arp, dns;
};
void make_up_questions(t_questions *questions, t_dice *dice);

// Keeps a heard frame when it is a question of the daemon's. True when it is, and was not known.
bool take_question(t_questions *questions, const uint8_t *bytes, size_t size);

// Fills the pool with frames of a kind: "garbage", "dhcp", "pppoe", "arp", "dns", "near", or "mix" of all. False for
// any other word.
bool fill_pool(t_flood_pool *pool, const char *kind, const t_questions &questions, t_dice *dice);
