// SPDX-License-Identifier: MIT
// The LAN ARP table and the reader of the kernel's ARP cache.
#include "probes/lan/arp_table.h"

#include <arpa/inet.h>
#include <cstdio>
#include <cstdlib>

#include "platform/file_guard.h"
#include "platform/log.h"
#include "platform/result_codes.h"

constexpr size_t CACHE_LINE_SIZE = 257; // 256 characters are read at a time
constexpr size_t CACHE_ADDRESS_SIZE = 16;
constexpr int CACHE_FIELDS = 9;
constexpr unsigned int CACHE_FLAG_COMPLETE = 0x2;

namespace {

struct t_cache_line {
    uint32_t address_be;
    unsigned int hardware_type;
    unsigned int flags;
    t_mac mac;
};

} // namespace

static void skip_cache_header(FILE *cache)
{
    for (int c = fgetc(cache); c != EOF && c != '\n';)
        c = fgetc(cache);
}

// False at the end of the file. A line without any text comes out empty.
static bool read_cache_line(FILE *cache, char (&text)[CACHE_LINE_SIZE])
{
    text[0] = '\0';
    const int converted = fscanf(cache, "%256[^\n]\n", text);
    if (converted == 0)
        fgetc(cache);
    return converted != EOF;
}

static bool parse_cache_line(const char *text, t_cache_line *line)
{
    char address[CACHE_ADDRESS_SIZE];
    uint8_t *mac = line->mac.bytes;
    const int converted =
        sscanf(text, "%15s 0x%8X 0x%8X %2hhx:%2hhx:%2hhx:%2hhx:%2hhx:%2hhx", address, &line->hardware_type,
               &line->flags, &mac[0], &mac[1], &mac[2], &mac[3], &mac[4], &mac[5]);
    return converted == CACHE_FIELDS && inet_pton(AF_INET, address, &line->address_be) == 1;
}

int update_filtered_arp_table(t_arp_entry **arp_table_hashmap_head, uint32_t lan_ip_be, uint32_t lan_netmask_be,
                              const char *cache_path)
{
    LOG_ENTER();
    const t_file_guard cache(fopen(cache_path, "re"));
    if (!cache) {
        LOG(Error, "Couldn't open /proc/net/arp!\n");
        return ARP_TABLE_ERR_OPEN;
    }
    skip_cache_header(cache.get());
    char text[CACHE_LINE_SIZE];
    t_cache_line line = {};
    while (read_cache_line(cache.get(), text)) {
        if (!parse_cache_line(text, &line)) {
            LOG(Error, "Couldn't parse ARP table!\n");
            continue;
        }
        if (((line.address_be ^ lan_ip_be) & lan_netmask_be) || !(line.flags & CACHE_FLAG_COMPLETE))
            continue;
        t_arp_entry *entry = create_new_arp_entry(line.mac, line.hardware_type, line.address_be);
        if (!entry) {
            LOG(Error, "Create new arp_entry for %02X-%02X-%02X-%02X-%02X-%02X failed, continue!\n",
                MAC_ARGS(line.mac));
            continue;
        }
        if (!add_arp_entry(arp_table_hashmap_head, entry))
            free(entry);
        LOG(Debug, "Detect new arp entry for %02X-%02X-%02X-%02X-%02X-%02X, flags=%u\n", MAC_ARGS(line.mac),
            line.flags);
    }
    return OK;
}

t_arp_entry *create_new_arp_entry(const t_mac &mac, uint32_t hardware_type, uint32_t address_be)
{
    auto *entry = static_cast<t_arp_entry *>(calloc(1, sizeof(t_arp_entry)));
    if (!entry) {
        LOG(Error, "Create new arp_entry for %02X-%02X-%02X-%02X-%02X-%02X failed!\n", MAC_ARGS(mac));
        return nullptr;
    }
    entry->hardware_type = hardware_type;
    entry->hardware_type_again = hardware_type;
    entry->address_be = address_be;
    entry->mac = mac;
    return entry;
}

bool check_arp_already_add(t_arp_entry *arp_table_hashmap_head, const t_mac *mac)
{
    if (!arp_table_hashmap_head) {
        LOG(Info, "arp_table_hashmap_head input is NULL!\n");
        return false;
    }
    return find_arp_entry(arp_table_hashmap_head, mac) != nullptr;
}

bool add_arp_entry(t_arp_entry **arp_table_hashmap_head, t_arp_entry *entry)
{
    if (check_arp_already_add(*arp_table_hashmap_head, &entry->mac)) {
        LOG(Error, "Arp entry:%02X-%02X-%02X-%02X-%02X-%02X already existed!\n", MAC_ARGS(entry->mac));
        return false;
    }
    HASH_ADD(hh, *arp_table_hashmap_head, mac, sizeof entry->mac, entry);
    if (entry->hh.tbl)
        return true;
    LOG(Error, "No memory to add %02X-%02X-%02X-%02X-%02X-%02X!\n", MAC_ARGS(entry->mac));
    return false;
}

t_arp_entry *find_arp_entry(t_arp_entry *arp_table_hashmap_head, const t_mac *mac)
{
    if (!arp_table_hashmap_head) {
        LOG(Info, "arp_table_hashmap_head input is NULL!\n");
        return nullptr;
    }
    if (!mac) {
        LOG(Error, "Invalid mac input!\n");
        return nullptr;
    }
    t_arp_entry *found = nullptr;
    HASH_FIND(hh, arp_table_hashmap_head, mac, sizeof *mac, found);
    return found;
}

int remove_arp_entry(t_arp_entry **arp_table_hashmap_head, const t_mac *mac)
{
    if (!arp_table_hashmap_head || !*arp_table_hashmap_head) {
        LOG(Error, "Invalid arp_table_hashmap_head input!\n");
        return ERR_INVALID_INPUT;
    }
    if (!mac) {
        LOG(Error, "Invalid mac input!\n");
        return ERR_INVALID_INPUT;
    }
    t_arp_entry *entry = find_arp_entry(*arp_table_hashmap_head, mac);
    if (!entry) {
        LOG(Error, "Arp entry:%02X-%02X-%02X-%02X-%02X-%02X doesn't existed!\n", MAC_ARGS(*mac));
        return ERR_NOTHING_DONE;
    }
    HASH_DEL(*arp_table_hashmap_head, entry);
    free(entry);
    return OK;
}

void release_arp_table(t_arp_entry **arp_table_hashmap_head)
{
    if (!arp_table_hashmap_head || !*arp_table_hashmap_head) {
        LOG(Error, "Invalid arp_table_hashmap_head input!\n");
        return;
    }
    t_arp_entry *entry, *next;
    HASH_ITER(hh, *arp_table_hashmap_head, entry, next)
    {
        HASH_DEL(*arp_table_hashmap_head, entry);
        free(entry);
    }
}

unsigned int arp_table_count(t_arp_entry *arp_table_hashmap_head)
{
    return HASH_COUNT(arp_table_hashmap_head);
}
