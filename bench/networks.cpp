// SPDX-License-Identifier: MIT
#include "bench/networks.h"

#include <cstdio>
#include <cstdlib>
#include <fcntl.h>
#include <fstream>
#include <sched.h>
#include <sys/mount.h>
#include <thread>
#include <unistd.h>

namespace {

constexpr const char *OWN_NETWORK = "/proc/thread-self/ns/net";
constexpr int CARRIER_TRIES = 1000;
constexpr std::chrono::milliseconds CARRIER_PAUSE(5);

int router_network = -1;
int peer_network = -1;

int new_network()
{
    if (unshare(CLONE_NEWNET) != 0)
        give_up("unshare (needs root)");
    const int fd = open(OWN_NETWORK, O_RDONLY | O_CLOEXEC);
    if (fd < 0)
        give_up(OWN_NETWORK);
    return fd;
}

void enter(int network)
{
    if (setns(network, CLONE_NEWNET) != 0)
        give_up("setns");
}

// Without link-local addresses nobody but the measured ones speaks.
void switch_on(const std::string &interface)
{
    must_run("ip link set " + interface + " addrgenmode none && ip link set " + interface + " up");
}

void wait_until_up(const std::string &interface)
{
    for (int i = 0; i < CARRIER_TRIES; i++) {
        std::string state;
        if (std::ifstream("/sys/class/net/" + interface + "/operstate") >> state && state == "up")
            return;
        std::this_thread::sleep_for(CARRIER_PAUSE);
    }
    give_up(interface + " never comes up");
}

} // namespace

void give_up(const std::string &what)
{
    perror(what.c_str());
    exit(EXIT_FAILURE);
}

void must_run(const std::string &command, const std::string &input)
{
    FILE *pipe = popen(command.c_str(), "w");
    if (!pipe || fputs(input.c_str(), pipe) < 0 || pclose(pipe) != 0)
        give_up(command);
}

void enter_networks()
{
    peer_network = new_network();
    router_network = new_network();
    if (unshare(CLONE_NEWNS) != 0 || mount("", "/", nullptr, MS_REC | MS_PRIVATE, nullptr) != 0 ||
        mount("sysfs", "/sys", "sysfs", 0, nullptr) != 0)
        give_up("own /sys");
}

void add_cable(const std::string &near_end, const std::string &far_end)
{
    const std::string far = "/proc/" + std::to_string(getpid()) + "/fd/" + std::to_string(peer_network);
    must_run("ip link add " + near_end + " type veth peer name " + far_end + " netns " + far);
    switch_on(near_end);
    {
        t_far_side far_side;
        switch_on(far_end);
    }
    wait_until_up(near_end);
}

t_far_side::t_far_side()
{
    enter(peer_network);
}

t_far_side::~t_far_side()
{
    enter(router_network);
}
