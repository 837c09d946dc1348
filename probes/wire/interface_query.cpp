// SPDX-License-Identifier: MIT
// Interface attributes, asked through the interface ioctls.
#include "probes/wire/interface_query.h"

#include <cstring>
#include <net/if.h>
#include <netinet/in.h>
#include <sys/ioctl.h>
#include <sys/socket.h>

#include "platform/guards.h"

// Asks for one attribute. False also for a name that no interface can have: cut, it could be another interface's.
static bool ask(int fd, unsigned attribute, const char *name, ifreq *request)
{
    *request = {};
    if (!name || strlen(name) >= IFNAMSIZ)
        return false;
    memcpy(request->ifr_name, name, strlen(name));
    return ioctl(fd, attribute, request) == 0;
}

static bool ask_mac(int fd, const char *name, t_mac *mac)
{
    ifreq request;
    if (!ask(fd, SIOCGIFHWADDR, name, &request))
        return false;
    *mac = mac_at(request.ifr_hwaddr.sa_data);
    return true;
}

static bool ask_address(int fd, unsigned attribute, const char *name, uint32_t *address_be)
{
    ifreq request;
    if (!ask(fd, attribute, name, &request))
        return false;
    sockaddr_in address;
    memcpy(&address, &request.ifr_addr, sizeof address);
    *address_be = address.sin_addr.s_addr;
    return true;
}

int query_interface(const char *name, t_interface_info *info)
{
    *info = {};
    const t_fd_guard channel(socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0));
    if (channel.fd < 0)
        return -1;
    ifreq flags;
    const bool known = ask(channel.fd, SIOCGIFFLAGS, name, &flags) && ask_mac(channel.fd, name, &info->mac) &&
                       ask_address(channel.fd, SIOCGIFADDR, name, &info->address_be) &&
                       ask_address(channel.fd, SIOCGIFNETMASK, name, &info->netmask_be);
    return known ? 0 : -1;
}

int query_port(int fd, const char *name, int *ifindex, t_mac *mac)
{
    *ifindex = 0;
    *mac = {};
    ifreq request;
    if (!ask(fd, SIOCGIFINDEX, name, &request))
        return -1;
    *ifindex = request.ifr_ifindex;
    return ask_mac(fd, name, mac) ? 0 : -1;
}
