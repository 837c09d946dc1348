// SPDX-License-Identifier: MIT
// The program: plays one life, or many, and says how they ended.
#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <fstream>
#include <sstream>
#include <string>
#include <unistd.h>

#include "tests/simulation/changed.h"
#include "tests/simulation/event_log.h"
#include "tests/simulation/many.h"
#include "tests/simulation/play.h"
#include "tests/simulation/shrink.h"

using namespace sim;

namespace {

struct t_wishes {
    uint64_t seed = 1;
    uint64_t lives = 0; // 0: one, which is told
    double seconds = 0; // for as many as there is time for
    unsigned jobs = 1;
    bool ends_at_failure = false;
    std::string near; // a kept life
    std::string file; // a life to be read
    bool tells = false;
    bool shows = false; // the life itself, which is not played
    bool twice = false; // each life, whose hashes must be the same
    std::string log_level;
    bool shrinks = false; // a failing life
    double shrink_seconds = 60;
    std::string to;          // the file for a shrunk life
    std::string regressions; // a folder of lives, all of which are played
};

[[noreturn]] void show_usage()
{
    say("simulate --seed N [--timeline] [--log LEVEL]   one life\n"
        "simulate --lives COUNT [--from SEED]           several, each failure with its seed; and what they came to\n"
        "simulate --minutes TIME | --seconds TIME       as many as there is time for, from a fresh seed or --from "
        "SEED\n"
        "--jobs COUNT plays them in so many processes; --until-failure ends with the first failure\n"
        "--near NAME leaves out those that are not drawn near this kept life\n"
        "simulate --life FILE [--timeline]              one that was written down\n"
        "simulate --seed N --show                       prints the life instead of playing it\n"
        "simulate --seed N --shrink [--to FILE] [--within SECONDS]   cuts a failing life down and tells it\n"
        "simulate --regressions FOLDER                  each life in it, twice\n"
        "--raw in the place of --timeline prints every entry of the event log\n"
        "--changed NUMBER has one of the changes in force that are built in; --reached tells for each life which it "
        "reached\n"
        "--twice with any of them plays each life twice: it fails when the two differ\n");
    exit(EXIT_FAILURE);
}

uint64_t fresh_seed()
{
    uint64_t seed = 0;
    if (getentropy(&seed, sizeof seed) != 0)
        seed = static_cast<uint64_t>(time(nullptr)) << 20;
    return seed >> 16; // short enough to be typed
}

t_wishes read_wishes(int argc, char **argv)
{
    t_wishes wishes;
    bool has_seed = false;
    for (int i = 1; i < argc; i++) {
        const std::string word = argv[i];
        const auto value = [&] { return i + 1 < argc ? argv[++i] : (show_usage(), nullptr); };
        if (word == "--seed" || word == "--from")
            wishes.seed = strtoull(value(), nullptr, 10), has_seed = true;
        else if (word == "--lives")
            wishes.lives = strtoull(value(), nullptr, 10);
        else if (word == "--minutes" || word == "--seconds")
            wishes.seconds = strtod(value(), nullptr) * (word == "--minutes" ? 60 : 1);
        else if (word == "--jobs")
            wishes.jobs = std::max(1U, static_cast<unsigned>(strtoul(value(), nullptr, 10)));
        else if (word == "--until-failure")
            wishes.ends_at_failure = true;
        else if (word == "--near")
            wishes.near = value();
        else if (word == "--life")
            wishes.file = value();
        else if (word == "--log")
            wishes.log_level = value();
        else if (word == "--timeline")
            wishes.tells = true;
        else if (word == "--raw")
            wishes.tells = event_log.is_raw = true;
        else if (word == "--shrink")
            wishes.shrinks = true;
        else if (word == "--within")
            wishes.shrink_seconds = strtod(value(), nullptr);
        else if (word == "--to")
            wishes.to = value();
        else if (word == "--regressions")
            wishes.regressions = value();
        else if (word == "--show")
            wishes.shows = true;
        else if (word == "--twice")
            wishes.twice = true;
        else if (word == "--changed")
            change_in_force = atoi(value());
        else if (word == "--reached")
            tells_reached = true;
        else
            show_usage();
    }
    if (wishes.seconds > 0 && !has_seed)
        wishes.seed = fresh_seed();
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

t_outcome play_twice(const t_life &life)
{
    t_outcome ended = play(life, false);
    if (ended.verdict == t_verdict::passed && play(life, false).hash != ended.hash) {
        ended.verdict = t_verdict::failed;
        strcpy(ended.text, "replay: two runs of this life differ");
    }
    return ended;
}

t_outcome play_once(const t_life &life)
{
    return play(life, false);
}

bool play_several(const t_wishes &wishes)
{
    say("seeds from %llu\n", static_cast<unsigned long long>(wishes.seed));
    return play_many({.first_seed = wishes.seed,
                      .lives = wishes.seconds > 0 ? UINT64_MAX : wishes.lives,
                      .seconds = wishes.seconds,
                      .jobs = wishes.jobs,
                      .ends_at_failure = wishes.ends_at_failure,
                      .near = wishes.near,
                      .play = wishes.twice ? play_twice : play_once});
}

// False also for a life that passes, with which there is nothing to be done.
bool shrink_one(const t_life &life, const t_wishes &wishes)
{
    const t_outcome ended = play(life, false);
    tell_outcome(life, ended);
    if (ended.verdict == t_verdict::passed)
        return false;
    const t_shrunk shrunk = shrink(life, ended, wishes.shrink_seconds);
    const std::string path = wishes.to.empty() ? "seed-" + std::to_string(life.seed) + ".life" : wishes.to;
    std::ofstream file(path);
    file << file_of_shrunk(shrunk);
    file.close();
    play(shrunk.life, true);
    say("\n%zu of %zu events, %zu of %zu ports, %zu of %zu settings are left after %llu lives%s: %s\n",
        shrunk.life.events.size(), life.events.size(), shrunk.life.ports.size(), life.ports.size(),
        shrunk.life.settings.size(), life.settings.size(), static_cast<unsigned long long>(shrunk.played),
        shrunk.is_done ? "" : " (the time was over)", file ? path.c_str() : "cannot be written");
    tell_outcome(shrunk.life, shrunk.ended);
    return static_cast<bool>(file);
}

bool play_one(const t_wishes &wishes)
{
    t_life life = wishes.file.empty() ? draw_life(wishes.seed) : life_from_file(wishes.file);
    if (!wishes.log_level.empty())
        life.settings[LOG_LEVEL] = wishes.log_level;
    if (wishes.shows) {
        std::istringstream lines(text_of_life(life));
        for (std::string line; std::getline(lines, line);)
            say("%s\n", line.c_str()); // a whole life may be too long for one word
        return true;
    }
    if (wishes.shrinks)
        return shrink_one(life, wishes);
    const t_outcome ended = wishes.twice ? play_twice(life) : play(life, wishes.tells);
    tell_outcome(life, ended);
    return ended.verdict == t_verdict::passed;
}

} // namespace

int main(int argc, char **argv)
{
    const t_wishes wishes = read_wishes(argc, argv);
    setenv("TZ", "UTC", 1); // no time is read from this machine's files
    if (!wishes.regressions.empty())
        return play_regressions(wishes.regressions) ? EXIT_SUCCESS : EXIT_FAILURE;
    const bool good = wishes.lives > 0 || wishes.seconds > 0 ? play_several(wishes) : play_one(wishes);
    return good ? EXIT_SUCCESS : EXIT_FAILURE;
}
