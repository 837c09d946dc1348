// SPDX-License-Identifier: MIT
// Readers of the bridge's forwarding records and port numbers.
#include "probes/lan/bridge_table.h"

#include <cerrno>
#include <climits>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <linux/if_bridge.h>
#include <linux/sockios.h>
#include <net/if.h>
#include <sys/ioctl.h>
#include <sys/socket.h>
#include <unistd.h>

#include "platform/clock.h"
#include "platform/file_guard.h"
#include "platform/guards.h"
#include "platform/log.h"
#include "platform/result_codes.h"
#include "platform/text.h"
#include "probes/wire/packet_socket.h"

constexpr size_t SYSFS_DIR_SIZE = 128;
constexpr size_t SYSFS_PATH_SIZE = 256;
constexpr int IOCTL_ATTEMPTS = 10;

static int read_chunk_by_sysfs(FILE *forwarding, int offset, t_bridge_record *chunk)
{
    if (fseek(forwarding, static_cast<long>(offset) * static_cast<long>(sizeof *chunk), SEEK_SET) != 0)
        return 0;
    return static_cast<int>(fread(chunk, sizeof *chunk, BRIDGE_CHUNK_RECORDS, forwarding));
}

static int read_chunk_by_ioctl(int fd, const char *bridge_name, int offset, t_bridge_record *chunk)
{
    unsigned long words[] = {BRCTL_GET_FDB_ENTRIES, reinterpret_cast<unsigned long>(chunk), BRIDGE_CHUNK_RECORDS,
                             static_cast<unsigned long>(offset)};
    ifreq request = {};
    bounded_copy(request.ifr_name, bridge_name, IFNAMSIZ);
    request.ifr_data = reinterpret_cast<char *>(words);
    for (int attempt = 1;; attempt++) {
        const int got = ioctl(fd, SIOCDEVPRIVATE, &request);
        if (got >= 0 || errno != EAGAIN || attempt == IOCTL_ATTEMPTS)
            return got;
        sleep_ms(0);
    }
}

// At most BRIDGE_CHUNK_RECORDS records from record `offset` on; negative with errno set.
static int read_chunk(int fd, const char *bridge_name, int offset, t_bridge_record *chunk)
{
    char path[SYSFS_PATH_SIZE];
    snprintf(path, sizeof path, "/sys/class/net/%s/brforward", bridge_name);
    const t_file_guard forwarding(fopen(path, "re"));
    return forwarding ? read_chunk_by_sysfs(forwarding.get(), offset, chunk)
                      : read_chunk_by_ioctl(fd, bridge_name, offset, chunk);
}

// The kernel numbers the ports of each bridge on their own. Where it does not say whose the port is, it counts as ours.
static bool is_port_of_other_bridge(const char *port_dir)
{
    char path[SYSFS_PATH_SIZE], target[PATH_MAX];
    snprintf(path, sizeof path, "%s/bridge", port_dir);
    const ssize_t length = readlink(path, target, sizeof target - 1);
    if (length <= 0)
        return false;
    target[length] = '\0';
    const char *last = strrchr(target, '/');
    return strcmp(last ? last + 1 : target, LAN_BRIDGE) != 0;
}

int br_get_fdb(int fd, const char *bridge_name, t_bridge_record **records)
{
    LOG_ENTER();
    int count = 0, capacity = 0;
    while (count < BRIDGE_MAX_RECORDS) {
        if (count + BRIDGE_CHUNK_RECORDS - 1 >= capacity) {
            const int wanted = count + BRIDGE_CHUNK_RECORDS;
            void *grown = realloc(*records, static_cast<size_t>(wanted) * sizeof **records);
            if (!grown) {
                LOG(Error, "Out of memory\n");
                return ERR_NO_MEMORY;
            }
            *records = static_cast<t_bridge_record *>(grown);
            capacity = wanted;
        }
        t_bridge_record chunk[BRIDGE_CHUNK_RECORDS];
        const int got = read_chunk(fd, bridge_name, count, chunk);
        if (got == 0)
            break;
        if (got < 0) {
            LOG(Error, "read of forward table failed: %s\n", strerror(errno));
            return BRIDGE_ERR_READ;
        }
        memcpy(*records + count, chunk, static_cast<size_t>(got) * sizeof *chunk);
        count += got;
    }
    return count;
}

int get_bridge_table(const char *bridge_name, t_bridge_record **records)
{
    LOG_ENTER();
    const t_fd_guard channel(socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0));
    if (channel.fd <= 0) {
        LOG(Error, "br_init fail: %s\n", strerror(errno));
        return BRIDGE_ERR_READ;
    }
    const int result = br_get_fdb(channel.fd, bridge_name, records);
    LOG(Debug, "get br:%s, overall %d entry in fdb table\n", bridge_name, result);
    return result;
}

int fetch_int(const char *dir, const char *file)
{
    char path[SYSFS_PATH_SIZE];
    snprintf(path, sizeof path, "%s/%s", dir, file);
    const t_file_guard source(fopen(path, "re"));
    if (!source) {
        LOG(Info, "Failed to open %s/%s, not a br-lan deive\n", dir, file);
        return -1;
    }
    int value;
    return fscanf(source.get(), "%i", &value) == 1 ? value : -1;
}

int update_brlan_dev_index(t_device *dev_hashmap_head)
{
    LOG_ENTER();
    for (t_device *dev = dev_hashmap_head; dev; dev = static_cast<t_device *>(dev->hh.next)) {
        char dir[SYSFS_DIR_SIZE];
        snprintf(dir, sizeof dir, "/sys/class/net/%s/brport", dev->name);
        const int number = fetch_int(dir, "port_no");
        dev->brlan_index = is_port_of_other_bridge(dir) ? int8_t{-1} : static_cast<int8_t>(number);
        if (dev->brlan_index >= 0)
            LOG(Debug, "success get dev:%s index:%d\n", dev->name, dev->brlan_index);
    }
    return OK;
}
