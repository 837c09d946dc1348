// SPDX-License-Identifier: MIT
#include "status/words.h"

#include <cinttypes>
#include <cstdio>
#include <cstring>

#include "platform/text.h"

constexpr int MINUTE_S = 60;
constexpr int HOUR_S = 60 * MINUTE_S;
constexpr int DAY_S = 24 * HOUR_S;
constexpr int SECOND_MS = 1000;
constexpr int TENTH_MS = 100;
constexpr int LONG_WAIT_MS = 10 * SECOND_MS; // from here on whole seconds are enough

// Pairs of a word and its text, each ended by a NUL, and an empty word: a table of pointers would be twice as long.
static const char WORDS[] =
    // why a port is not the WAN port, below the panel, where the link is told already
    "not_connected\0no connection\0"
    "no_link\0\0"
    "no_name_server\0slower in DNS\0"
    // who answers by a protocol
    "dhcp\0DHCP server\0"
    "pppoe\0PPPoE server\0"
    "arp\0gateway\0"
    // what the cycle is about, and what comes next
    "resting\0at rest\0"
    "probing\0asking for servers\0"
    "asking_arp\0asking for the gateway\0"
    "asking_dns\0asking name servers\0"
    "pass\0a look\0"
    "cycle\0a cycle over all ports\0"
    "look\0a look at all ports\0"
    // what ended it
    "wan_works\0it works\0"
    "only_answer\0the only one that answered\0"
    "only_gateway\0the only one with the gateway\0"
    "name_server\0the first whose name server answered\0"
    "priority\0the first by priority\0"
    "nobody\0nobody answered\0"
    "not_needed\0\0"
    "done\0; swapped\0"
    "failed\0; the swap failed\0"
    "called_off\0; the swap was called off\0"
    // what to set right
    "vlan\0asked untagged, but the WAN interface is on a VLAN\0"
    "only_banned\0the only port that answered is banned\0"
    "only_reserved\0the only port that answered is reserved\0"
    "pool\0the pool names ports that do not exist\0"
    "several\0more than one line answers\0";

static char told[64];

static const char *find_text(const char *word)
{
    for (const char *key = WORDS; *key != '\0';) {
        const char *text = key + strlen(key) + 1;
        if (strcmp(key, word) == 0)
            return text;
        key = text + strlen(text) + 1;
    }
    return word;
}

const char *text_for(const char *word)
{
    bounded_copy(told, find_text(word), sizeof told);
    for (char *letter = told; *letter != '\0'; letter++)
        if (*letter == '_')
            *letter = ' ';
    return told;
}

const char *time_text(int64_t seconds)
{
    static constexpr struct {
        int length_s;
        char name[4];
    } UNITS[] = {{DAY_S, "d"}, {HOUR_S, "h"}, {MINUTE_S, "min"}, {1, "s"}};
    if (seconds < 0)
        return "ever";
    const auto *unit = UNITS;
    while (unit->length_s > 1 && seconds / 2 < unit->length_s)
        unit++;
    snprintf(told, sizeof told, "%" PRId64 " %s", seconds / unit->length_s, unit->name);
    return told;
}

const char *wait_text(int64_t milliseconds)
{
    if (milliseconds < 0 || milliseconds >= LONG_WAIT_MS)
        return time_text(milliseconds / SECOND_MS + (milliseconds % SECOND_MS >= SECOND_MS / 2 ? 1 : 0));
    const int wait_ms = static_cast<int>(milliseconds);
    snprintf(told, sizeof told, "%d.%d s", wait_ms / SECOND_MS, wait_ms % SECOND_MS / TENTH_MS);
    return told;
}
