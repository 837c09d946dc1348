// SPDX-License-Identifier: MIT
// The text of the kernel's ARP cache.
#include <arpa/inet.h>
#include <cstdio>
#include <sys/mman.h>
#include <unistd.h>

#include "platform/log.h"
#include "platform/result_codes.h"
#include "probes/lan/arp_table.h"
#include "tests/fuzz/support/fuzz.h"

namespace {

int cache = -1;
char cache_path[sizeof "/proc/self/fd/2147483647"];

} // namespace

void prepare()
{
    log_set_level(LOG_LEVEL_Debug);
    cache = memfd_create("arp", MFD_CLOEXEC);
    snprintf(cache_path, sizeof cache_path, "/proc/self/fd/%d", cache);
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    REQUIRE(ftruncate(cache, 0) == 0 && pwrite(cache, data, size, 0) == static_cast<ssize_t>(size));
    const uint32_t address_be = inet_addr("192.168.1.1"), netmask_be = inet_addr("255.255.255.0");
    t_arp_entry *table = nullptr;
    REQUIRE(update_filtered_arp_table(&table, address_be, netmask_be, cache_path) == OK);
    unsigned count = 0;
    for (t_arp_entry *entry = table; entry; entry = static_cast<t_arp_entry *>(entry->hh.next), count++) {
        REQUIRE(((entry->address_be ^ address_be) & netmask_be) == 0);
        REQUIRE(find_arp_entry(table, &entry->mac) == entry);
    }
    REQUIRE(arp_table_count(table) == count);
    if (table)
        release_arp_table(&table);
    return 0;
}
