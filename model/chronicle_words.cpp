// SPDX-License-Identifier: MIT
#include "model/chronicle_words.h"

#include <bit>

#include "platform/text.h"

// In the order of the values.
constexpr char OPENERS[] = "start_up\0"
                           "wan_loss\0"
                           "bus_call\0"
                           "switched_on\0"
                           "after_swap\0"
                           "look_again\0";
static_assert(count_of_texts(OPENERS) == static_cast<size_t>(t_opener::look_again) + 1);

constexpr char FATES[] = "\0"
                         "works\0"
                         "not_connected\0"
                         "no_link\0"
                         "not_in_pool\0"
                         "reserved\0"
                         "banned\0"
                         "lan_hosts\0"
                         "not_listed_yet\0"
                         "asked\0"
                         "silent\0"
                         "other_answered\0"
                         "no_gateway\0"
                         "no_name_server\0"
                         "lower_priority\0"
                         "won\0";
static_assert(count_of_texts(FATES) == static_cast<size_t>(t_fate::won) + 1);

constexpr char DECISIONS[] = "open\0"
                             "wan_works\0"
                             "only_answer\0"
                             "only_gateway\0"
                             "name_server\0"
                             "priority\0"
                             "gave_up\0"
                             "switched_off\0"
                             "role_is_foreign\0"
                             "not_detectable\0"
                             "nobody\0";
static_assert(count_of_texts(DECISIONS) == static_cast<size_t>(t_decision::nobody) + 1);

constexpr char SWAPS[] = "not_needed\0"
                         "done\0"
                         "failed\0"
                         "called_off\0";
static_assert(count_of_texts(SWAPS) == static_cast<size_t>(t_swap::called_off) + 1);

constexpr char HINT_WORDS[] = "vlan\0"
                              "only_banned\0"
                              "only_reserved\0"
                              "pool\0"
                              "several\0";
static_assert(1U << (count_of_texts(HINT_WORDS) - 1) == HINT_SEVERAL);

const char *opener_word(t_opener opener)
{
    return text_at(OPENERS, static_cast<int>(opener));
}

const char *fate_word(t_fate fate)
{
    return fate == t_fate::not_looked_at ? nullptr : text_at(FATES, static_cast<int>(fate));
}

const char *decision_word(t_decision decision)
{
    return text_at(DECISIONS, static_cast<int>(decision));
}

const char *swap_word(t_swap swap)
{
    return text_at(SWAPS, static_cast<int>(swap));
}

const char *hint_word(t_hint hint)
{
    return text_at(HINT_WORDS, std::countr_zero(static_cast<unsigned>(hint)));
}
