// SPDX-License-Identifier: MIT
#include "platform/disk_room.h"

#include <cstdint>
#include <linux/magic.h>
#include <sys/vfs.h>
#include <unistd.h>

#include "platform/log.h"

// For what the disk keeps of a file besides its text: its name, its record, the heads of its pieces.
constexpr uint64_t SPARE_BLOCKS = 2;

static uint64_t blocks_of(size_t bytes, uint64_t block_size)
{
    return (bytes + block_size - 1) / block_size;
}

// Some blocks of a disk are kept free for root.
static uint64_t free_blocks(const struct statfs &disk)
{
    return static_cast<uint64_t>(geteuid() == 0 ? disk.f_bfree : disk.f_bavail);
}

// An overlay copies a file that was delivered with the firmware as soon as it is opened for writing.
static uint64_t needed_blocks(const struct statfs &disk, size_t bytes, size_t beside)
{
    const auto block_size = static_cast<uint64_t>(disk.f_bsize);
    const bool copies = static_cast<uint64_t>(disk.f_type) == OVERLAYFS_SUPER_MAGIC;
    return blocks_of(bytes, block_size) + (copies ? blocks_of(beside, block_size) : 0) + SPARE_BLOCKS;
}

bool has_disk_room(const char *folder, size_t bytes, size_t beside)
{
    if (access(folder, W_OK) != 0) {
        LOG(Error, "%s cannot be written\n", folder);
        return false;
    }
    struct statfs disk = {};
    // Disks without a size, such as a RAM disk that may grow, give no blocks at all.
    if (statfs(folder, &disk) != 0 || disk.f_blocks == 0 || disk.f_bsize == 0)
        return true;
    const bool has_blocks = free_blocks(disk) >= needed_blocks(disk, bytes, beside);
    if (has_blocks && (disk.f_files == 0 || disk.f_ffree > 0))
        return true;
    LOG(Error, "no room in %s for a file of %zu bytes\n", folder, bytes);
    return false;
}
