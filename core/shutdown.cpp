// SPDX-License-Identifier: MIT
#include "core/shutdown.h"

#include <atomic>
#include <csignal>
#include <cstdlib>
#include <initializer_list>
#include <pthread.h>
#include <sys/time.h>
#include <unistd.h>

#include "adapters/bus_object.h"
#include "core/background.h"
#include "core/cycle.h"
#include "core/engine_life.h"
#include "core/hangup.h"
#include "core/wishes.h"
#include "platform/log.h"

t_worker combo_worker;
t_worker link_worker;

static pid_t daemon_process; // as the first process knows it
static int status_of_giving_up = EXIT_SUCCESS;
static std::atomic<int> exit_status = EXIT_SUCCESS;

static void pass_on(int signal_number)
{
    kill(daemon_process, signal_number);
}

static void end_hanging_process(int)
{
    _exit(exit_status);
}

static bool is_own(const siginfo_t *signal)
{
    return signal->si_code == SI_TKILL && signal->si_pid == getpid();
}

// Only the first signal sets the time limit, or signals that keep coming would put it off for ever. Not by alarm(): a
// preloaded fast clock shortens four seconds to none.
static void mark_stop(int signal_number, siginfo_t *signal, void *)
{
    itimerval limit = {};
    limit.it_value.tv_sec = SHUTDOWN_LIMIT_SECONDS;
    if (!begin_to_stop(signal_number))
        return;
    if (is_own(signal))
        exit_status = status_of_giving_up;
    setitimer(ITIMER_REAL, &limit, nullptr);
}

void hold_ending_signals()
{
    const sigset_t ends = ending_signals();
    pthread_sigmask(SIG_BLOCK, &ends, nullptr);
}

void pass_on_ending_signals(pid_t daemon)
{
    daemon_process = daemon;
    struct sigaction on_end = {};
    on_end.sa_handler = pass_on;
    sigset_t passed_on;
    sigemptyset(&passed_on);
    for (int signal_number : {SIGTERM, SIGINT}) {
        sigaction(signal_number, &on_end, nullptr);
        sigaddset(&passed_on, signal_number);
    }
    pthread_sigmask(SIG_UNBLOCK, &passed_on, nullptr);
}

void install_signal_handlers(int give_up_status)
{
    status_of_giving_up = give_up_status;
    exit_status = EXIT_SUCCESS;
    signal(SIGHUP, SIG_DFL); // for the programs that are started: a starter may have it ignored

    struct sigaction on_alarm = {};
    on_alarm.sa_handler = end_hanging_process;
    sigaction(SIGALRM, &on_alarm, nullptr);

    struct sigaction on_end = {};
    on_end.sa_sigaction = mark_stop;
    on_end.sa_flags = SA_RESTART | SA_SIGINFO;
    sigaction(SIGTERM, &on_end, nullptr);
    sigaction(SIGINT, &on_end, nullptr);
    sigaction(SIGKILL, &on_end, nullptr); // asked for like the others; the kernel refuses

    const sigset_t ends = ending_signals();
    pthread_sigmask(SIG_UNBLOCK, &ends, nullptr);
}

void done()
{
    close_probe_batches();
    // A thread that still sits in a command keeps what it may touch; it ends with the process.
    bool quiet = stop_background_threads();
    if (quiet)
        release_engine();
    wan_detect_ubus_done();
    wan_detect_bus_exports_release();
    detach_background_from_loop();
    detach_wishes_from_loop();
    release_hangups();
    uloop_done();
    log_done();
    if (quiet && combo_worker.started) {
        if (pthread_cancel(combo_worker.thread) != 0)
            LOG(Error, "cancel thread wan_combo_auto_switch wrong!\n");
        if (pthread_join(combo_worker.thread, nullptr) != 0)
            LOG(Error, "waiting thread wan_combo_auto_switch wrong!\n");
    }
    if (quiet && link_worker.started) {
        if (pthread_cancel(link_worker.thread) != 0)
            LOG(Error, "cancel thread update_eth_link_status_trigger wrong!\n");
        if (pthread_join(link_worker.thread, nullptr) != 0)
            LOG(Error, "waiting thread update_eth_link_status_trigger wrong!\n");
    }
    if (quiet) {
        release_background();
        release_wishes();
    }
}

void signal_kill(int signal_number)
{
    done();
    LOG(Error, "[wandetect(pid:%d)] receive signal:%d, exit\n", getpid(), signal_number);
    exit(exit_status);
}
