// SPDX-License-Identifier: MIT
// A discovery asks many ports at once who serves addresses behind them: one frame leaves each port, and the first valid
// answer marks it. Which ports are asked, and what DHCP and PPPoE do alike, stands here once; each brings a
// description. Loop thread only.
#pragma once

#include <cstdint>
#include <span>

#include "model/port_model.h"
#include "probes/discovery/discovery_text.h"
#include "probes/wire/frame_lines.h"
#include "probes/wire/packet_socket.h"

struct t_discovery;

// One asked port.
struct t_discovery_port {
    uint8_t answered;
    uint32_t identifier; // host order by design: written and compared as drawn
    t_device *dev;       // borrowed; null when the port could not be used
    t_detect_result result;
    const t_discovery *kind; // lives as long as the program
    t_port_socket socket;
};

struct t_discovery_batch {
    uint8_t finished;
    uint8_t device_num;
    t_discovery_port *contexts; // owned; null when no batch is open
    t_mac lan_mac;              // of the LAN bridge, for those who must know it
    int filter_level;           // the log level that the sockets' filters are made for
    t_frame_lines lines;
};

// The functions in whose names the common steps speak.
struct t_discovery_speakers {
    t_speaker send_all, open, send_packet, receive, process, release;
    t_speaker ask_linked, ask_one;
};

// What the common steps say about a port (%s) or a number of ports (%d).
struct t_discovery_texts {
    t_text<34> bad_list;
    t_text<39> no_lan_bridge;
    t_text<41, 'd'> no_memory;
    t_text<30> no_port;
    t_text<56> no_rights;
    t_text<37> no_socket;
    t_text<39, 's'> not_opened;
    t_text<54, 's'> opened;
    t_text<49, 's'> sending;
    t_text<40, 's'> not_sent;
    t_text<48, 's'> sent;
    t_text<57> not_open;
    t_text<58, 's'> not_built;
    t_text<64, 's'> not_written;
    t_text<53, 's'> heard;
    t_text<60, 's'> understood;
    t_text<71> nothing_sent;
    t_text<72> impossible;
    t_text<34, 's'> looking;
    t_text<30, 's'> found;
    t_text<40, 's'> silent;
    t_text<40> nothing_open;
    t_text<78> count_lost;
    t_text<39> released;
    t_text<46, 'd'> ports_ready;
    t_text<52> no_ports;
    t_text<50, 'd'> ports_asked;
    t_text<38> ports_not_asked;
    t_text<37, 's'> port_ready;
    t_text<48, 's'> port_not_asked;
    t_text<41, 's'> port_asked;
};

// A protocol's description.
struct t_discovery {
    t_discovery_batch &batch;
    const char *protocol; // that an answer means; in sums of lines the probe's name
    size_t frame_size;    // no more of a received frame is read
    int error_without_socket;
    bool may_broadcast;     // the socket is told so
    bool must_know_lan_mac; // the LAN bridge may answer as well; without its MAC nobody is asked
    t_discovery_speakers speakers;
    t_discovery_texts texts;

    size_t (*build)(std::span<uint8_t> buffer, const t_mac &mac, uint32_t identifier); // 0 when it could not
    t_frame_filter (*filter)(uint32_t identifier, const t_mac &lan_mac, int level);
    bool (*is_answer)(t_discovery_port *port, std::span<const uint8_t> frame); // says why not
    void (*tell_result)(const t_device &dev); // what the port's record keeps of the answer; null when it keeps nothing
};

constexpr size_t DISCOVERY_BUFFER_SIZE = 1520; // for every protocol's frames

// Result codes of one port.
constexpr int DISCOVERY_ERR_NOT_OPEN = -91;
constexpr int DISCOVERY_ERR_FRAME = -90;
constexpr int DISCOVERY_ERR_BIND = -89;
constexpr int DISCOVERY_ERR_SEND = -88;
constexpr int DISCOVERY_ERR_LAN_BRIDGE = -87; // of the batch

// Asks every linked port that no LAN host is behind and no table reserves. Always 0; failures are logged.
int ask_linked_ports(const t_discovery &kind, t_port_model *model);

// ERR_INVALID_INPUT for a null port, DEVICE_WITHOUT_LINK, else 0, also when sending failed.
int ask_one_port(const t_discovery &kind, t_device *dev);

// Opens a batch: 0 (single ports may have failed), ERR_INVALID_INPUT for an empty list, DISCOVERY_ERR_LAN_BRIDGE or
// ERR_NO_MEMORY.
int send_batch(const t_discovery &kind, t_device_list_head *list);

// PROBE_NO_BATCH, ERR_INVALID_INPUT, PROBE_WAITING (the batch stays open), PROBE_ALL_ANSWERED or PROBE_SOME_SILENT
// (every answering port is marked and the batch is closed). `final` says that the time is over.
int collect_batch(const t_discovery &kind, t_device *dev_hashmap_head, t_protocol *proto_hashmap_head, bool final);

// Closes the batch without looking at it.
void release_batch(const t_discovery &kind);

// The identifier a probe carries, from two random values: their product in 32 bits. All ones becomes 0.
constexpr uint32_t probe_identifier(int first, int second)
{
    const uint32_t product = static_cast<uint32_t>(first) * static_cast<uint32_t>(second);
    return product == UINT32_MAX ? 0 : product;
}

// Begins a port's exchange: a new identifier, and a socket whose frames go to receive_on_port. 0 or the description's
// code.
int open_on_port(const t_discovery &kind, t_discovery_port *port);

// 0 or one of the codes above; the socket is closed then.
int send_on_port(const t_discovery &kind, t_discovery_port *port);

// The loop's callback: takes one frame.
void receive_on_port(uloop_fd *watcher, unsigned int events);
