// SPDX-License-Identifier: MIT
// The router's files, in memory. The world writes them at will; the daemon reads and writes them through the doors.
#pragma once

#include <functional>
#include <map>
#include <memory>
#include <string>
#include <sys/stat.h>
#include <vector>

#include "tests/simulation/scheduler.h"

namespace sim {

struct t_file_lock {
    const void *holder; // an open file, or the world
    bool exclusive;
};

// A file, a folder or a link.
struct t_node {
    enum { file, folder, link, device } type = file;
    ino_t number = 0;
    mode_t mode = 0644;
    uid_t owner = 0;
    t_time changed = 0;
    std::string text;                  // of a file; the target of a link
    std::function<std::string()> made; // in place of the text: made anew whenever somebody opens it
    std::vector<t_file_lock> locks;
};
using t_node_ref = std::shared_ptr<t_node>;

// By path, without a last slash. An ordered map, so that folders list in the same order in every run.
extern std::map<std::string, t_node_ref, std::less<>> files;

// For the world: folders above come along.
t_node_ref put_file(const std::string &path, const std::string &text);
t_node_ref put_made_file(const std::string &path, std::function<std::string()> made);
t_node_ref put_folder(const std::string &path, mode_t mode = 0755);
t_node_ref put_link(const std::string &path, const std::string &target);
void remove_file(const std::string &path);
std::string text_of_file(const std::string &path); // empty when there is none

// The world locks a file as another program would; until it is called again with false.
void lock_by_world(const std::string &path, bool locked);

// A disk without room takes no further byte.
extern bool disk_is_full;

// flock() by the daemon, never waiting.
int lock_file(int fd, int operation);

} // namespace sim
