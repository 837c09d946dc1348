// SPDX-License-Identifier: MIT
// A wire made of byte arrays: replaces probes/wire/packet_socket.cpp in a test program that names fake_wire.cpp among
// its sources.
#pragma once

#include <cstdint>
#include <deque>
#include <functional>
#include <map>
#include <string>
#include <vector>

#include <linux/if_packet.h>

#include "probes/wire/mac.h"
#include "tests/unit/probes/bytes.h"

struct uloop_fd;

enum class t_wire_call {
    OPEN,
    BIND,
    BIND_TO_DEVICE,
    SET_OPTION,
    SET_NONBLOCKING,
    FILTER,
    SEND,
    RECEIVE,
    WAIT,
    QUERY_INTERFACE,
    QUERY_PORT,
};

struct t_fake_interface {
    int ifindex = 0;
    t_mac mac = UNKNOWN_MAC;
    uint32_t address_be = 0; // 0: query_interface fails, as for an interface without an address
    uint32_t netmask_be = 0;
};

struct t_sent_frame {
    int fd;
    std::string port; // by the index it was sent to; empty for an unknown one
    t_bytes bytes;
    sockaddr_ll address;
};

struct t_fake_option {
    int option;
    t_bytes value;
};

struct t_arrived_frame {
    t_bytes bytes;
    sockaddr_ll from;
};

struct t_fake_socket {
    uint16_t ether_type = 0;
    bool open = true;
    bool bound = false;
    bool nonblocking = false;
    sockaddr_ll address = {};            // of the last bind
    std::string device;                  // of bind_to_device
    uloop_fd *watcher = nullptr;         // while it is in the loop
    bool error_pending = false;          // what packet_socket_settle_error finds and clears
    std::deque<t_arrived_frame> arrived; // frames that wait to be received
    std::vector<t_fake_option> options;
    size_t filter_length = 0; // of a filter, which is not run: every frame gets through
    bool filtered_before_bound = false;
};

class t_fake_wire {
public:
    static constexpr int FIRST_FD = 1000; // far from the process's own descriptors

    // Forgets everything; call it in SetUp.
    void reset();

    void add_interface(const std::string &name, const t_fake_interface &interface);

    // Lets `times` calls fail with `error` after `skip` calls that work. With a port named, only calls for that port
    // count: by its bind, its device name or, for SEND, the index in the address.
    void fail(t_wire_call call, int error, int skip = 0, int times = 1, const std::string &port = "");

    // Runs inside every successful send: the peer. It may call arrive().
    std::function<void(const t_sent_frame &)> on_send;
    // Runs inside every wait for readability, before the queue is looked at; a wait for several has the descriptor -1.
    std::function<void(int fd, int timeout_ms)> on_wait;

    // Queues a frame for one socket, or for all open sockets bound to a port.
    void arrive(int fd, const t_bytes &frame);
    void arrive(const std::string &port, const t_bytes &frame);
    // The same with a source of its own: another interface, or the port's own sending.
    void arrive(int fd, const t_bytes &frame, const sockaddr_ll &from);

    // Calls the callbacks of watched sockets that have frames until none is left, as the loop would; the number of
    // calls.
    int run_loop();

    int received = 0; // frames that were taken from sockets
    const std::vector<t_sent_frame> &sent() const { return sent_; }
    std::vector<t_sent_frame> sent_on(const std::string &port) const;
    // The descriptor of the port's open socket, -1 when there is none.
    int socket_of(const std::string &port) const;
    t_fake_socket &socket(int fd) { return sockets_.at(fd); }
    const std::map<int, t_fake_socket> &sockets() const { return sockets_; }
    int open_sockets() const;
    int watched_sockets() const;

    // For the replaced functions.
    bool fails(t_wire_call call, const std::string &port = "");
    t_fake_socket *find(int fd); // null (and errno) when it is not open
    t_fake_interface *find_interface(const std::string &name);
    std::string port_of(int ifindex) const;
    std::string port_of(const t_fake_socket &socket) const;
    int add_socket(uint16_t ether_type);
    void record(const t_sent_frame &frame);
    void close_socket(int fd);

private:
    struct t_failure {
        t_wire_call call;
        int error;
        int skip;
        int times;
        std::string port;
    };
    std::map<std::string, t_fake_interface> interfaces_;
    std::map<int, t_fake_socket> sockets_;
    std::vector<t_sent_frame> sent_;
    std::vector<t_failure> failures_;
    int next_fd_ = FIRST_FD;
};

extern t_fake_wire fake_wire;
