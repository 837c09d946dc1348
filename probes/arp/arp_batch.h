// SPDX-License-Identifier: MIT
// The batch of ARP contexts that all ARP jobs share, one job at a time: sockets, sending and listening. Loop thread
// only.
#pragma once

#include "platform/ipv4_text.h"
#include "probes/arp/arp_frames.h"
#include "probes/wire/frame_lines.h"
#include "probes/wire/packet_socket.h"

struct t_arp_entry;

// One asked host, or one address asked behind one port.
struct t_arp_detect {
    uint8_t replied;
    t_device *dev;         // borrowed; null when the socket is not bound to a port
    uint32_t target_ip_be; // 0 when the context is void
    t_port_socket socket;  // never put into the loop
    t_mac target_mac;
    t_mac source_mac;
};

struct t_arp_detect_handle {
    uint8_t arp_num;
    unsigned int ifindex; // sends what is not bound to a port
    uint32_t sender_ip_be;
    uint32_t netmask_be;                  // re-check of the LAN ARP table only
    t_arp_detect *contexts;               // owned; null when no batch is open
    t_arp_entry **arp_table_hashmap_head; // borrowed; re-check of the LAN ARP table only
    t_mac sender_mac;
    int wait_left_ms;  // for all that is still to be sent
    t_port_socket ear; // re-check of the LAN ARP table only: hears what the contexts' filters keep from them
    t_frame_lines lines;
};

extern t_arp_detect_handle arp_detect_handle;

std::span<t_arp_detect> arp_contexts(); // of the open batch

// Arguments for "%s|%02X-%02X-%02X-%02X-%02X-%02X".
#define ARP_TARGET_ARGS(ctx) t_ipv4_text((ctx)->target_ip_be).text, MAC_ARGS((ctx)->target_mac)

constexpr int ARP_ERR_SOCKET = -92;
constexpr int ARP_ERR_NOT_OPEN = -91;
constexpr int ARP_ERR_BIND = -90;
constexpr int ARP_ERR_SEND = -88;
constexpr int ARP_ERR_WAIT = -87;

constexpr int ARP_WAIT_BEFORE_SEND_MS = 300;
constexpr uint32_t ARP_WAIT_FOR_REPLIES_MS = 310;
// Ten silent hosts get their whole wait each. Anyone can fill the kernel's cache with hosts that never were, and must
// not stop the loop for a minute by that.
constexpr int ARP_LONGEST_HOST_WAITS_MS = 10 * ARP_WAIT_BEFORE_SEND_MS;

// More than a socket's queue holds: whoever floods a port must not keep the loop reading.
constexpr int ARP_FRAMES_PER_READ = 4096;

// `count` void contexts, none of them open; false when memory is short. The waits before all that is sent take at most
// `longest_waits_ms` together.
bool open_arp_batch(uint8_t count, int longest_waits_ms = INT32_MAX);

// Opens a context's socket. With a port the socket hears this port only, and the port's index and MAC are stored, the
// latter as source MAC. 0, ARP_ERR_SOCKET or ARP_ERR_BIND.
int init_arp_sockfd(t_arp_detect *ctx, t_device *dev, const t_mac &target_mac, uint32_t target_ip_be);

// Opens the batch's ear where filters make the contexts' sockets deaf to other hosts. Without it they wait on their
// own.
void listen_to_all_hosts();

// Makes the descriptor non-blocking and waits until it is readable, at most `milliseconds`. 0 also when the time is
// over; ARP_ERR_WAIT.
int setTimeOut(int fd, int milliseconds);

// Sends the request of a context after a wait. 0, ARP_ERR_NOT_OPEN or ARP_ERR_SEND.
int send_arp_unicast_packet_blocked(t_arp_detect *ctx);

// True when the packet is the reply that the context waits for.
using t_arp_judge = bool (*)(t_arp_detect *ctx, const t_arp_packet &packet);

// Shows `judge` the ARP packets that a context's socket received on its port, until one is the awaited reply: the
// context has replied then, and its socket is closed. Never waits.
void read_arp_replies(t_arp_detect *ctx, t_arp_judge judge);

// Whether a line of this level about a packet that is not the reply may be said.
bool may_tell_of_packet(t_log_level level);

// A context whose set-up or sending failed must not match anything.
void void_arp_target(t_arp_detect *ctx);

void release_arp_detect_handle();
