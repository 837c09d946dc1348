// SPDX-License-Identifier: MIT
#include "tests/simulation/play.h"

#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <new>
#include <string>
#include <sys/mman.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include "tests/simulation/changed.h"
#include "tests/simulation/checks.h"
#include "tests/simulation/descriptors.h"
#include "tests/simulation/event_log.h"
#include "tests/simulation/real.h"
#include "tests/simulation/scheduler.h"
#include "tests/simulation/world.h"

int daemon_main(int argc, char **argv); // core/main.cpp

namespace sim {

// A life is over in milliseconds. One that is not runs in circles without a door, or waits for what is none.
constexpr rlim_t PROCESSOR_LIMIT_S = 20;
constexpr unsigned REAL_LIMIT_S = 600; // for a machine that has other things to do
constexpr t_time LONGEST_LIFE = 3600 * SECOND;

static t_outcome *shared_outcome()
{
    static void *const memory =
        mmap(nullptr, sizeof(t_outcome), PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0);
    return static_cast<t_outcome *>(memory);
}

static int run_daemon(const t_life &life)
{
    std::string level = std::to_string(life.setting(LOG_LEVEL, 0));
    char name[] = "wan_detect", foreground[] = "-f", option[] = "-d";
    char *plain[] = {name, foreground, nullptr};
    char *with_level[] = {name, foreground, option, level.data(), nullptr};
    const bool has_level = life.settings.count(LOG_LEVEL) != 0;
    return daemon_main(has_level ? 4 : 2, has_level ? with_level : plain);
}

[[noreturn]] static void live(const t_life &life, bool tells)
{
    const rlimit limit = {PROCESSOR_LIMIT_S, RLIM_INFINITY};
    setrlimit(RLIMIT_CPU, &limit);
    alarm(REAL_LIMIT_S);
    outcome = shared_outcome();
    event_log.tells = tells;
    life_seed = mix(life.seed);
    switch_rate = static_cast<unsigned>(life.setting(SWITCH_RATE, 0));
    life_limit = LONGEST_LIFE;
    begin_world(life);
    begin_threads();
    open_standard_descriptors();
    exit(run_daemon(life));
}

static void tell_of_crash(int status, t_outcome *ended)
{
    ended->verdict = t_verdict::failed;
    if (WIFSIGNALED(status))
        snprintf(ended->text, sizeof ended->text, "%s",
                 WTERMSIG(status) == SIGALRM || WTERMSIG(status) == SIGXCPU
                     ? "never stuck: the process runs on without a door"
                     : ("the process ended by signal " + std::to_string(WTERMSIG(status))).c_str());
    else
        snprintf(ended->text, sizeof ended->text, "the process ended with status %d and no word", WEXITSTATUS(status));
}

t_outcome play(const t_life &life, bool tells)
{
    t_outcome *ended = new (shared_outcome()) t_outcome{};
    const pid_t child = __real_fork();
    if (child == 0)
        live(life, tells);
    int status = 0;
    if (child < 0 || __real_waitpid(child, &status, 0) != child) {
        perror("fork");
        exit(EXIT_FAILURE);
    }
    if (ended->verdict == t_verdict::unfinished)
        tell_of_crash(status, ended);
    if (tells_reached)
        tell_reached(life.seed, ended->hash);
    return *ended;
}

void tell_outcome(const t_life &life, const t_outcome &ended)
{
    say("seed %llu: %s%s, hash %016llx, %.1f s of the daemon, %llu doors, %llu entries, %llu events, %llu swaps\n",
        static_cast<unsigned long long>(life.seed),
        ended.verdict == t_verdict::passed ? "passed" : "FAILED: ", ended.text,
        static_cast<unsigned long long>(ended.hash), static_cast<double>(ended.counts.virtual_us) / 1e6,
        static_cast<unsigned long long>(ended.counts.doors), static_cast<unsigned long long>(ended.entries),
        static_cast<unsigned long long>(ended.counts.events), static_cast<unsigned long long>(ended.counts.swaps));
}

} // namespace sim
