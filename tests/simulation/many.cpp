// SPDX-License-Identifier: MIT
#include "tests/simulation/many.h"

#include <algorithm>
#include <atomic>
#include <csignal>
#include <cstdlib>
#include <ctime>
#include <new>
#include <sched.h>
#include <sys/mman.h>
#include <sys/prctl.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>
#include <vector>

#include "tests/simulation/event_log.h"
#include "tests/simulation/play.h"
#include "tests/simulation/tally.h"

namespace sim {

constexpr uint64_t LIVES_THAT_TAKE_ALL_WAYS = 10'000; // so many must
constexpr double SECONDS_BETWEEN_WORDS = 60;
constexpr timespec LOOK_AGAIN = {0, 100'000'000};

namespace {

// What the players share.
struct t_table {
    std::atomic<uint64_t> lives_begun;
    std::atomic<bool> is_over;
    t_tally tallies[1]; // one for each player
};

double real_time()
{
    timespec time;
    clock_gettime(CLOCK_MONOTONIC, &time);
    return static_cast<double>(time.tv_sec) + static_cast<double>(time.tv_nsec) / 1e9;
}

double processor_time(int whose)
{
    rusage usage = {};
    getrusage(whose, &usage);
    return static_cast<double>(usage.ru_utime.tv_sec + usage.ru_stime.tv_sec) +
           static_cast<double>(usage.ru_utime.tv_usec + usage.ru_stime.tv_usec) / 1e6;
}

// Handing the baton to a thread on another processor takes three times as long.
void stay_on_one_processor(unsigned player)
{
    cpu_set_t allowed, own;
    if (sched_getaffinity(0, sizeof allowed, &allowed) != 0)
        return;
    unsigned left = player % static_cast<unsigned>(CPU_COUNT(&allowed));
    for (int processor = 0; processor < CPU_SETSIZE; processor++) {
        if (!CPU_ISSET(processor, &allowed) || left-- > 0)
            continue;
        CPU_ZERO(&own);
        CPU_SET(processor, &own);
        sched_setaffinity(0, sizeof own, &own);
        return;
    }
}

void play_next(const t_many &wanted, t_table *table, t_tally *tally, uint64_t place)
{
    const t_life life = draw_life(wanted.first_seed + place);
    if (!wanted.near.empty() && life.near != wanted.near)
        return;
    const t_outcome ended = wanted.play(life);
    add_outcome(tally, ended);
    if (ended.verdict == t_verdict::passed)
        return;
    tell_outcome(life, ended);
    if (wanted.ends_at_failure)
        table->is_over = true;
}

[[noreturn]] void be_player(const t_many &wanted, t_table *table, unsigned player)
{
    prctl(PR_SET_PDEATHSIG, SIGKILL);
    stay_on_one_processor(player);
    while (!table->is_over) {
        const uint64_t place = table->lives_begun++;
        if (place >= wanted.lives)
            break;
        play_next(wanted, table, &table->tallies[player], place);
    }
    _exit(EXIT_SUCCESS);
}

t_table *share_table(unsigned players)
{
    void *memory = mmap(nullptr, sizeof(t_table) + players * sizeof(t_tally), PROT_READ | PROT_WRITE,
                        MAP_SHARED | MAP_ANONYMOUS, -1, 0);
    if (memory != MAP_FAILED)
        return new (memory) t_table{};
    say("no memory to share\n");
    exit(EXIT_FAILURE);
}

t_tally sum_of(const t_table &table, unsigned players)
{
    t_tally sum = {};
    for (unsigned i = 0; i < players; i++)
        add_tally(&sum, table.tallies[i]);
    return sum;
}

// Until all players have ended. How many did so other than by themselves.
unsigned watch_players(const t_many &wanted, t_table *table, double start)
{
    unsigned lost = 0;
    double next_word = start + SECONDS_BETWEEN_WORDS;
    for (unsigned left = wanted.jobs; left > 0;) {
        int status = 0;
        if (waitpid(-1, &status, WNOHANG) > 0) {
            left--;
            lost += status != 0;
            continue;
        }
        nanosleep(&LOOK_AGAIN, nullptr);
        if (wanted.seconds > 0 && real_time() - start >= wanted.seconds)
            table->is_over = true;
        if (real_time() < next_word)
            continue;
        next_word += SECONDS_BETWEEN_WORDS;
        const t_tally sum = sum_of(*table, wanted.jobs);
        say("after %.0f s: %llu lives, %llu failed\n", real_time() - start, static_cast<unsigned long long>(sum.lives),
            static_cast<unsigned long long>(sum.failed));
    }
    return lost;
}

} // namespace

bool play_many(const t_many &wanted)
{
    const double start = real_time(), used_before = processor_time(RUSAGE_CHILDREN);
    t_table *const table = share_table(wanted.jobs);
    for (unsigned player = 0; player < wanted.jobs; player++) {
        const pid_t child = fork();
        if (child == 0)
            be_player(wanted, table, player);
        if (child < 0) {
            say("no process to play in\n");
            exit(EXIT_FAILURE);
        }
    }
    const unsigned lost = watch_players(wanted, table, start);
    if (lost > 0)
        say("FAILED: %u players ended early\n", lost);
    const t_tally sum = sum_of(*table, wanted.jobs);
    const int untaken = tell_tally(sum, real_time() - start, processor_time(RUSAGE_CHILDREN) - used_before);
    return lost == 0 && sum.failed == 0 && (untaken == 0 || sum.lives < LIVES_THAT_TAKE_ALL_WAYS);
}

} // namespace sim
