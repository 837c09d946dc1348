// SPDX-License-Identifier: MIT
// The daemon from its command line to its end: options, fork, model, the wait for a link, the first cycle, the threads,
// the loop.
#include <csignal>
#include <cstdlib>
#include <ctime>
#include <fcntl.h>
#include <sys/prctl.h>
#include <sys/stat.h>
#include <unistd.h>

#include "adapters/bus_object.h"
#include "adapters/network_status.h"
#include "adapters/wan_switch.h"
#include "core/background.h"
#include "core/combo_switch.h"
#include "core/cycle.h"
#include "core/engine.h"
#include "core/engine_life.h"
#include "core/hangup.h"
#include "core/link_change.h"
#include "core/link_scan.h"
#include "core/options.h"
#include "core/retries.h"
#include "core/shutdown.h"
#include "core/start_pause.h"
#include "core/wishes.h"
#include "model/chronicle.h"
#include "model/current_wan.h"
#include "model/fake_wan.h"
#include "model/port_config.h"
#include "model/protocol_config.h"
#include "platform/command.h"
#include "platform/log.h"
#include "platform/result_codes.h"
#include "platform/uci_lock.h"
#include "status/show_status.h"

constexpr const char *MAIN = "main"; // the steps of start-up speak in its name
constexpr int LINK_WAIT_TRIES = 30;
constexpr uint32_t LINK_WAIT_INTERVAL_MS = 2000;
constexpr uint32_t START_UP_PAUSE_MS = 15000; // before the first cycle, link or no link
constexpr int DAEMON_GOES_ON = -1;            // no exit status
constexpr mode_t FILE_MASK = 022;
constexpr const char *PROGRAM_FOLDERS = "/usr/sbin:/usr/bin:/sbin:/bin"; // where none are named

// Where start-up ends when somebody, maybe the daemon itself, sent a signal.
static void stop_if_asked()
{
    if (int signal_number = stop_signal())
        signal_kill(signal_number);
}

static void give_up()
{
    if (raise(SIGTERM) != 0)
        exit(EXIT_FAILURE);
    stop_if_asked();
}

// Whoever starts the daemon without standard descriptors would have it open its own in their place, and the log takes
// their place later.
static void open_standard_descriptors()
{
    int fd;
    do
        fd = open("/dev/null", O_RDWR);
    while (fd >= 0 && fd <= STDERR_FILENO);
    if (fd >= 0)
        close(fd);
}

// Whatever the starter's own habits are: files that are nobody else's to write, the router's programs found, and no
// program that could gain more rights than the daemon has.
static void take_own_habits()
{
    umask(FILE_MASK);
    const char *path = getenv("PATH");
    if (!path || *path == '\0')
        setenv("PATH", PROGRAM_FOLDERS, 1);
    prctl(PR_SET_NO_NEW_PRIVS, 1, 0, 0, 0);
}

// A service manager that started the daemon keeps what it says, unless a level was asked for. Otherwise the destination
// is opened now if there is something to say, for it may be another daemon's, who has the bus already.
static void choose_log(const t_options &options)
{
    log_set_level(options.log_level);
    if (options.has_level)
        log_open_with_first_line();
    else if (options.foreground)
        log_stay_on_standard_output();
}

// The loop thread and all it stands on, before the first message can go out.
static void prepare_process(const t_options &options)
{
    take_own_habits();
    open_standard_descriptors();
    port_model = {};
    choose_log(options);
    bool ready = init_background();
    install_signal_handlers(options.foreground ? EXIT_FAILURE : EXIT_SUCCESS);
    srand(static_cast<unsigned>(time(nullptr)));
    uloop_handle_sigchld = false; // else the loop would reap the children of other threads' commands
    ready = uloop_init() == 0 && ready;
    ready = attach_background_to_loop() && attach_wishes_to_loop() && watch_for_hangups() && ready;
    init_engine();
    if (!ready) {
        LOG(Critical, "no descriptors for the event loop\n");
        give_up();
    }
}

static void come_onto_bus(const t_options &options)
{
    if (wan_detect_ubus_init(wan_detect_bus_exports()) != OK) {
        LOG_AS(MAIN, Critical, "ubus\n");
        give_up();
    }
    stop_if_asked();
    if (options.has_level)
        log_open();
}

// What is read here counts for a whole life, so locked configuration files are waited for longer than later on.
static void load_model()
{
    set_uci_lock_limit(UCI_LOCK_START_LIMIT_MS);
    if (init_all_protocols(&port_model) < 0) {
        LOG_AS(MAIN, Critical, "init_all_protocols failed!\n");
        give_up();
    }
    if (init_all_eth_device(&port_model) < 1) {
        LOG_AS(MAIN, Critical, "init_all_eth_device failed!\n");
        give_up();
    }
    if (init_fake_wan_device(&port_model) != OK)
        LOG_AS(MAIN, Info, "init_fake_wan_device failed!\n");
    port_model.enable = get_wan_detect_enable();
    if (!port_model.enable)
        wan_detect_remove_fake_wan();
    port_model.router_mode = get_is_router_mode();
    update_wan_device(&port_model);
    read_first_pause();
    set_uci_lock_limit(UCI_LOCK_LIMIT_MS);
}

static void pause_start_up(uint32_t milliseconds)
{
    if (pause_serving_callers(milliseconds))
        stop_if_asked();
}

static bool wan_port_has_link()
{
    update_eth_link_status(port_model.dev_hashmap_head);
    stop_if_asked();
    const t_device *now_wan = port_model.wan_dev;
    return now_wan && now_wan->link_active;
}

static void wait_for_link()
{
    int tries = 0;
    for (; tries < LINK_WAIT_TRIES && !wan_port_has_link(); tries++) {
        LOG_AS(MAIN, Debug, "No device has plugged in, Waiting & check after 2s!\n");
        pause_start_up(LINK_WAIT_INTERVAL_MS);
    }
    if (tries == LINK_WAIT_TRIES)
        LOG_AS(MAIN, Info, "No device plugged in in 60s, Waiting for another 15s before starting main!\n");
    pause_start_up(START_UP_PAUSE_MS);
}

// A working upstream needs no cycle, and no stand-in either.
static void open_first_cycle()
{
    if (!port_model.enable || !port_model.router_mode)
        return;
    update_wan_ipv4_protocol(&port_model);
    if (get_network_status(0, connection_kind() == t_connection::fixed) == NETWORK_CONNECTED) {
        wan_detect_remove_fake_wan();
        return;
    }
    note_opener(t_opener::start_up);
    open_cycle_over_all_in(0);
}

static int start_worker(t_worker *worker, t_thread_body body)
{
    int result = start_background_thread(&worker->thread, body, nullptr);
    worker->started = result == 0;
    return result;
}

static void start_workers()
{
    if (int result = start_worker(&combo_worker, wan_combo_switch_thread)) {
        LOG_AS(MAIN, Critical, "pthread_create wan_combo_auto_switch failed...%d\n", result);
        give_up();
    }
    if (int result = start_worker(&link_worker, link_scan_thread)) {
        LOG_AS(MAIN, Critical, "pthread_create update_eth_link_status_trigger failed...%d\n", result);
        give_up();
    }
}

// The exit status of the first process; the second one goes on.
static int go_to_background()
{
    pid_t child = fork();
    if (child < 0) {
        run_command("echo '[wan_detect][Error] error fork!!!' > /dev/console");
        return EXIT_FAILURE;
    }
    if (child > 0) {
        pass_on_ending_signals(child);
        return EXIT_SUCCESS;
    }
    return DAEMON_GOES_ON;
}

int main(int argc, char **argv)
{
    hold_hangups();
    t_options options;
    const int parsed = parse_options(argc, argv, &options);
    if (parsed == OPTIONS_STOP || parsed == OPTIONS_VERSION)
        return parsed == OPTIONS_VERSION ? EXIT_SUCCESS : EXIT_FAILURE;
    if (parsed == OPTIONS_STATUS)
        return show_status(options.status);
    hold_ending_signals();
    if (const int status = options.foreground ? DAEMON_GOES_ON : go_to_background(); status != DAEMON_GOES_ON)
        return status;
    prepare_process(options);
    come_onto_bus(options);
    LOG(Debug, "init over\n");
    load_model();
    wait_for_link();
    open_first_cycle();
    stop_if_asked();
    count_link_changes_anew();
    start_workers();
    LOG(Debug, "Wan detect start uloop!!!!!!\n");
    uloop_timeout_set(&engine.heartbeat, 0);
    uloop_run();
    stop_if_asked();
    done();
    return EXIT_SUCCESS;
}
