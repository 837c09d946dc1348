// SPDX-License-Identifier: MIT
#include "probes/wire/port_socket.h"

#include "probes/wire/interface_query.h"
#include "probes/wire/packet_socket.h"

bool t_port_socket::open(uint16_t ether_type)
{
    watcher.fd = packet_socket_open(ether_type);
    return is_open();
}

void t_port_socket::close()
{
    packet_socket_close(&watcher);
}

bool t_port_socket::look_up(const char *port)
{
    return query_port(watcher.fd, port, &ifindex, &mac) == 0;
}

bool t_port_socket::listen(const t_frame_filter &filter, const sockaddr_ll &address)
{
    packet_socket_filter(watcher.fd, filter);
    return packet_socket_bind(watcher.fd, address) == 0;
}

bool t_port_socket::send(std::span<const uint8_t> frame, const sockaddr_ll &to) const
{
    return packet_socket_send(watcher.fd, frame.data(), frame.size(), to) >= 0;
}

ssize_t t_port_socket::receive(std::span<uint8_t> buffer, sockaddr_ll *from) const
{
    return is_open() ? packet_socket_receive(watcher.fd, buffer.data(), buffer.size(), from) : -1;
}
