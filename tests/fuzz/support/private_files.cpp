// SPDX-License-Identifier: MIT
#include "tests/fuzz/support/private_files.h"

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <fcntl.h>
#include <sched.h>
#include <sys/mount.h>
#include <sys/stat.h>
#include <unistd.h>

#include "tests/fuzz/support/fuzz.h"

namespace {

constexpr char SCRATCH[] = "/run/fuzz";

void must(bool done, const char *what)
{
    if (done)
        return;
    fprintf(stderr, "private files: %s: %s (this target needs root)\n", what, strerror(errno));
    _exit(1);
}

void mount_memory(const char *path)
{
    must(mount("tmpfs", path, "tmpfs", 0, "mode=755") == 0, path);
}

void make_folder(const std::string &path)
{
    must(mkdir(path.c_str(), 0755) == 0 || errno == EEXIST, path.c_str());
}

// Users and groups are still looked up in the host's /etc, so it is only covered by a layer.
void cover_etc()
{
    const std::string scratch = SCRATCH;
    for (const char *folder : {"", "/upper", "/work"})
        make_folder(scratch + folder);
    const std::string options = "lowerdir=/etc,upperdir=" + scratch + "/upper,workdir=" + scratch + "/work";
    must(mount("overlay", "/etc", "overlay", 0, options.c_str()) == 0, "overlay on /etc");
    make_folder("/etc/config");
    mount_memory("/etc/config");
}

} // namespace

void enter_private_files()
{
    must(unshare(CLONE_NEWNS) == 0, "unshare");
    must(mount(nullptr, "/", nullptr, MS_REC | MS_PRIVATE, nullptr) == 0, "private mounts");
    mount_memory("/run");
    cover_etc();
    mount_memory("/tmp");
    mount_memory("/var");
}

void write_private_file(const std::string &path, std::string_view text)
{
    const int fd = open(path.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0644);
    REQUIRE(fd >= 0 && write(fd, text.data(), text.size()) == static_cast<ssize_t>(text.size()));
    close(fd);
}

std::string read_private_file(const std::string &path)
{
    std::string text;
    const int fd = open(path.c_str(), O_RDONLY | O_CLOEXEC);
    char chunk[4096];
    for (ssize_t got; fd >= 0 && (got = read(fd, chunk, sizeof chunk)) > 0;)
        text.append(chunk, static_cast<size_t>(got));
    if (fd >= 0)
        close(fd);
    return text;
}
