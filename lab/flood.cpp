// SPDX-License-Identifier: MIT
// Floods a cable: lab_flood INTERFACE KIND FRAMES-PER-SECOND SEED. Sends until it is asked to end, then prints what it
// achieved as JSON. It listens for the daemon's questions, so that near misses are as near as they can be.
#include <arpa/inet.h>
#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <linux/if_packet.h>
#include <net/ethernet.h>
#include <net/if.h>
#include <sys/socket.h>
#include <unistd.h>

#include "lab/flood_frames.h"

namespace {

constexpr unsigned BATCH = 64;
constexpr unsigned QUESTIONS_PER_BATCH = 32;
constexpr int64_t NS_PER_S = 1'000'000'000;
constexpr int64_t LONGEST_DEBT_NS = 200'000'000; // more than that a busy machine need not make up for
constexpr int64_t DOWN_PAUSE_NS = 5'000'000;
constexpr int ARGUMENTS = 5;

volatile sig_atomic_t ended;
t_flood_pool pool;
t_questions questions;

int64_t now_ns()
{
    timespec time = {};
    clock_gettime(CLOCK_MONOTONIC, &time);
    return time.tv_sec * NS_PER_S + time.tv_nsec;
}

void pause_ns(int64_t nanoseconds)
{
    const timespec time = {.tv_sec = static_cast<time_t>(nanoseconds / NS_PER_S),
                           .tv_nsec = static_cast<long>(nanoseconds % NS_PER_S)};
    nanosleep(&time, nullptr);
}

// The kernel's queues are passed by, and with them the listeners at this end of the cable. -1 with errno set.
int open_line(const char *name)
{
    const int fd = socket(AF_PACKET, SOCK_RAW | SOCK_CLOEXEC | SOCK_NONBLOCK, 0);
    const int on = 1;
    sockaddr_ll address = {};
    address.sll_family = AF_PACKET;
    address.sll_protocol = htons(ETH_P_ALL);
    address.sll_ifindex = static_cast<int>(if_nametoindex(name));
    if (fd < 0 || address.sll_ifindex == 0 || setsockopt(fd, SOL_PACKET, PACKET_QDISC_BYPASS, &on, sizeof on) != 0 ||
        bind(fd, reinterpret_cast<sockaddr *>(&address), sizeof address) != 0)
        return -1;
    return fd;
}

// True when a question was heard that was not known.
bool listen_for_questions(int fd)
{
    bool fresh = false;
    uint8_t bytes[FLOOD_FRAME_SIZE];
    for (unsigned i = 0; i < QUESTIONS_PER_BATCH; i++) {
        sockaddr_ll from = {};
        socklen_t from_size = sizeof from;
        const ssize_t got = recvfrom(fd, bytes, sizeof bytes, 0, reinterpret_cast<sockaddr *>(&from), &from_size);
        if (got <= 0)
            break;
        if (from.sll_pkttype != PACKET_OUTGOING)
            fresh = take_question(&questions, bytes, static_cast<size_t>(got)) || fresh;
    }
    return fresh;
}

// Frames of the pool from `next` on; how many went out.
unsigned send_batch(int fd, uint64_t next)
{
    iovec parts[BATCH];
    mmsghdr messages[BATCH] = {};
    for (unsigned i = 0; i < BATCH; i++) {
        t_flood_frame &frame = pool.frames[(next + i) % pool.count];
        parts[i] = {.iov_base = frame.bytes, .iov_len = frame.size};
        messages[i].msg_hdr.msg_iov = &parts[i];
        messages[i].msg_hdr.msg_iovlen = 1;
    }
    const int sent = sendmmsg(fd, messages, BATCH, 0);
    return sent > 0 ? static_cast<unsigned>(sent) : 0;
}

// Sends until the signal; the number of frames.
uint64_t flood(int fd, const char *kind, int64_t rate, t_dice *dice)
{
    uint64_t sent = 0, asked = 0;
    for (int64_t due = now_ns(); !ended;) {
        if (listen_for_questions(fd)) {
            asked++;
            fill_pool(&pool, kind, questions, dice);
        }
        const int64_t now = now_ns();
        if (due > now) {
            pause_ns(due - now);
            continue;
        }
        if (now - due > LONGEST_DEBT_NS)
            due = now - LONGEST_DEBT_NS;
        const unsigned went = send_batch(fd, sent);
        sent += went;
        due += went * NS_PER_S / rate;
        if (went == 0)
            pause_ns(DOWN_PAUSE_NS);
    }
    fprintf(stderr, "%llu questions heard\n", static_cast<unsigned long long>(asked));
    return sent;
}

} // namespace

int main(int argc, char **argv)
{
    if (argc != ARGUMENTS || atoll(argv[3]) <= 0) {
        fprintf(stderr, "lab_flood INTERFACE KIND FRAMES-PER-SECOND SEED\n");
        return EXIT_FAILURE;
    }
    t_dice dice(strtoull(argv[4], nullptr, 0));
    make_up_questions(&questions, &dice);
    const int fd = open_line(argv[1]);
    if (fd < 0) {
        perror(argv[1]);
        return EXIT_FAILURE;
    }
    if (!fill_pool(&pool, argv[2], questions, &dice)) {
        fprintf(stderr, "no such kind: %s\n", argv[2]);
        return EXIT_FAILURE;
    }
    signal(SIGTERM, [](int) { ended = 1; });
    signal(SIGINT, [](int) { ended = 1; });
    const int64_t start = now_ns();
    const uint64_t sent = flood(fd, argv[2], atoll(argv[3]), &dice);
    const double seconds = static_cast<double>(now_ns() - start) / static_cast<double>(NS_PER_S);
    printf("{\"frames\": %llu, \"seconds\": %.3f}\n", static_cast<unsigned long long>(sent), seconds);
    return EXIT_SUCCESS;
}
