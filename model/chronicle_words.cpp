// SPDX-License-Identifier: MIT
#include "model/chronicle_words.h"

const char *opener_word(t_opener opener)
{
    switch (opener) {
    case t_opener::start_up:
        return "start_up";
    case t_opener::wan_loss:
        return "wan_loss";
    case t_opener::bus_call:
        return "bus_call";
    case t_opener::switched_on:
        return "switched_on";
    case t_opener::after_swap:
        return "after_swap";
    case t_opener::look_again:
        return "look_again";
    }
    return nullptr;
}

const char *fate_word(t_fate fate)
{
    switch (fate) {
    case t_fate::not_looked_at:
        return nullptr;
    case t_fate::works:
        return "works";
    case t_fate::not_connected:
        return "not_connected";
    case t_fate::no_link:
        return "no_link";
    case t_fate::not_in_pool:
        return "not_in_pool";
    case t_fate::reserved:
        return "reserved";
    case t_fate::banned:
        return "banned";
    case t_fate::lan_hosts:
        return "lan_hosts";
    case t_fate::not_listed_yet:
        return "not_listed_yet";
    case t_fate::asked:
        return "asked";
    case t_fate::silent:
        return "silent";
    case t_fate::other_answered:
        return "other_answered";
    case t_fate::no_gateway:
        return "no_gateway";
    case t_fate::no_name_server:
        return "no_name_server";
    case t_fate::lower_priority:
        return "lower_priority";
    case t_fate::won:
        return "won";
    }
    return nullptr;
}

const char *decision_word(t_decision decision)
{
    switch (decision) {
    case t_decision::none:
        return "open";
    case t_decision::wan_works:
        return "wan_works";
    case t_decision::only_answer:
        return "only_answer";
    case t_decision::only_gateway:
        return "only_gateway";
    case t_decision::name_server:
        return "name_server";
    case t_decision::priority:
        return "priority";
    case t_decision::gave_up:
        return "gave_up";
    case t_decision::switched_off:
        return "switched_off";
    case t_decision::role_is_foreign:
        return "role_is_foreign";
    case t_decision::not_detectable:
        return "not_detectable";
    case t_decision::nobody:
        return "nobody";
    }
    return nullptr;
}

const char *swap_word(t_swap swap)
{
    switch (swap) {
    case t_swap::not_needed:
        return "not_needed";
    case t_swap::done:
        return "done";
    case t_swap::failed:
        return "failed";
    }
    return nullptr;
}

const char *hint_word(t_hint hint)
{
    switch (hint) {
    case HINT_VLAN:
        return "vlan";
    case HINT_ONLY_BANNED:
        return "only_banned";
    case HINT_ONLY_RESERVED:
        return "only_reserved";
    case HINT_POOL:
        return "pool";
    case HINT_SEVERAL:
        return "several";
    }
    return nullptr;
}
