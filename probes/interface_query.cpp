// SPDX-License-Identifier: MIT
// Interface attributes, asked through the interface ioctls.
#include "probes/interface_query.h"

#include <cstring>
#include <net/if.h>
#include <netinet/in.h>
#include <sys/ioctl.h>
#include <sys/socket.h>

#include "platform/guards.h"

namespace {

// Asks for one attribute. False also for a name that no interface can have: cut, it could be another interface's.
bool ask(int fd, unsigned long attribute, const char *name, ifreq *request)
{
    *request = {};
    if (!name || strlen(name) >= IFNAMSIZ)
        return false;
    memcpy(request->ifr_name, name, strlen(name));
    return ioctl(fd, attribute, request) == 0;
}

bool ask_mac(int fd, const char *name, uint8_t (&mac)[MAC_SIZE])
{
    ifreq request;
    if (!ask(fd, SIOCGIFHWADDR, name, &request))
        return false;
    memcpy(mac, request.ifr_hwaddr.sa_data, MAC_SIZE);
    return true;
}

bool ask_address(int fd, unsigned long attribute, const char *name, uint32_t *address_be)
{
    ifreq request;
    if (!ask(fd, attribute, name, &request))
        return false;
    sockaddr_in address;
    memcpy(&address, &request.ifr_addr, sizeof address);
    *address_be = address.sin_addr.s_addr;
    return true;
}

} // namespace

int query_interface(const char *name, t_interface_info *info)
{
    *info = {};
    const t_fd_guard channel(socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0));
    if (channel.fd < 0)
        return -1;
    ifreq flags;
    const bool known = ask(channel.fd, SIOCGIFFLAGS, name, &flags) && ask_mac(channel.fd, name, info->mac) &&
                       ask_address(channel.fd, SIOCGIFADDR, name, &info->address_be) &&
                       ask_address(channel.fd, SIOCGIFNETMASK, name, &info->netmask_be);
    return known ? 0 : -1;
}

int query_port(int fd, const char *name, int *ifindex, uint8_t (&mac)[MAC_SIZE])
{
    *ifindex = 0;
    memset(mac, 0, sizeof mac);
    ifreq request;
    if (!ask(fd, SIOCGIFINDEX, name, &request))
        return -1;
    *ifindex = request.ifr_ifindex;
    return ask_mac(fd, name, mac) ? 0 : -1;
}
