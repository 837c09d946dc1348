// SPDX-License-Identifier: MIT
// The program: plays one life, or many, and says how they ended.
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <sstream>
#include <string>

#include "tests/simulation/event_log.h"
#include "tests/simulation/play.h"

using namespace sim;

namespace {

struct t_wishes {
    uint64_t seed = 1;
    uint64_t lives = 1;
    std::string file; // a life to be read
    bool tells = false;
    bool shows = false; // the life itself, which is not played
    bool twice = false; // each life, whose hashes must be the same
    std::string log_level;
};

[[noreturn]] void show_usage()
{
    say("simulate --seed N [--timeline] [--log LEVEL]   one life\n"
        "simulate --lives COUNT [--from SEED]           several, each failure with its seed\n"
        "simulate --life FILE [--timeline]              one that was written down\n"
        "simulate --seed N --show                       prints the life instead of playing it\n"
        "--twice with any of them plays each life twice: it fails when the two differ\n");
    exit(EXIT_FAILURE);
}

t_wishes read_wishes(int argc, char **argv)
{
    t_wishes wishes;
    for (int i = 1; i < argc; i++) {
        const std::string word = argv[i];
        const auto value = [&] { return i + 1 < argc ? argv[++i] : (show_usage(), nullptr); };
        if (word == "--seed" || word == "--from")
            wishes.seed = strtoull(value(), nullptr, 10);
        else if (word == "--lives")
            wishes.lives = strtoull(value(), nullptr, 10);
        else if (word == "--life")
            wishes.file = value();
        else if (word == "--log")
            wishes.log_level = value();
        else if (word == "--timeline")
            wishes.tells = true;
        else if (word == "--show")
            wishes.shows = true;
        else if (word == "--twice")
            wishes.twice = true;
        else
            show_usage();
    }
    return wishes;
}

t_life life_from_file(const std::string &path)
{
    std::ifstream file(path);
    std::stringstream text;
    text << file.rdbuf();
    t_life life;
    if (!file || !read_life(text.str(), &life)) {
        say("%s is no life\n", path.c_str());
        exit(EXIT_FAILURE);
    }
    return life;
}

void tell_outcome(const t_life &life, const t_outcome &ended)
{
    say("seed %llu: %s%s, hash %016llx, %.1f s of the daemon, %llu doors, %llu entries, %u events, %u swaps\n",
        static_cast<unsigned long long>(life.seed),
        ended.verdict == t_verdict::passed ? "passed" : "FAILED: ", ended.text,
        static_cast<unsigned long long>(ended.hash), static_cast<double>(ended.virtual_us) / 1e6,
        static_cast<unsigned long long>(ended.doors), static_cast<unsigned long long>(ended.entries), ended.events,
        ended.swaps);
}

t_outcome play_as_wished(const t_life &life, const t_wishes &wishes)
{
    t_outcome ended = play(life, wishes.tells);
    if (wishes.twice && ended.verdict == t_verdict::passed && play(life, false).hash != ended.hash) {
        ended.verdict = t_verdict::failed;
        strcpy(ended.text, "replay: two runs of this life differ");
    }
    return ended;
}

// Every seed's life; those that fail are told. How many did.
uint64_t play_many(const t_wishes &wishes)
{
    uint64_t failed = 0;
    for (uint64_t i = 0; i < wishes.lives; i++) {
        const t_life life = draw_life(wishes.seed + i);
        const t_outcome ended = play_as_wished(life, wishes);
        if (ended.verdict == t_verdict::passed)
            continue;
        failed++;
        tell_outcome(life, ended);
    }
    say("%llu lives, %llu failed\n", static_cast<unsigned long long>(wishes.lives),
        static_cast<unsigned long long>(failed));
    return failed;
}

bool play_one(const t_wishes &wishes)
{
    t_life life = wishes.file.empty() ? draw_life(wishes.seed) : life_from_file(wishes.file);
    if (!wishes.log_level.empty())
        life.settings[LOG_LEVEL] = wishes.log_level;
    if (wishes.shows) {
        say("%s", text_of_life(life).c_str());
        return true;
    }
    const t_outcome ended = play_as_wished(life, wishes);
    tell_outcome(life, ended);
    return ended.verdict == t_verdict::passed;
}

} // namespace

int main(int argc, char **argv)
{
    const t_wishes wishes = read_wishes(argc, argv);
    const bool good = wishes.lives > 1 ? play_many(wishes) == 0 : play_one(wishes);
    return good ? EXIT_SUCCESS : EXIT_FAILURE;
}
