// SPDX-License-Identifier: MIT
// The network manager on the bus, which tells whether the connection works: the truth, or something else.
#include <iterator>
#include <libubus.h>

#include "tests/simulation/bus.h"
#include "tests/simulation/router.h"

namespace sim {

constexpr t_time NEEDS = 2 * SECOND; // from the cable to a connection that works

static const char *const WORDS[] = {"honest",  "flags",      "away",  "hangs",  "says_yes",
                                    "says_no", "connecting", "empty", "refuses"};
static t_manager manager = t_manager::honest;

bool is_manager_word(const std::string &word)
{
    for (const char *one : WORDS)
        if (word == one)
            return true;
    return false;
}

void set_manager(const std::string &word)
{
    for (size_t i = 0; i < std::size(WORDS); i++)
        if (word == WORDS[i]) {
            manager = static_cast<t_manager>(i);
            return;
        }
    fail("no network manager is %s", word.c_str());
}

bool manager_is_well()
{
    return manager == t_manager::honest || manager == t_manager::flags;
}

bool upstream_works()
{
    const int holder = holder_of_role();
    if (!is_port(holder))
        return false;
    const t_port &port = port_at(holder);
    return port.truth.serves && now() - std::max({port.link_since, port.upstream_since, world.role_since}) >= NEEDS;
}

bool service_is_there(const std::string &object)
{
    return object == "network.interface" && manager != t_manager::away;
}

static void tell_flags(blob_buf *message, bool works)
{
    blobmsg_add_u8(message, "up", works);
    blobmsg_add_u8(message, "pending", false);
    blobmsg_add_u8(message, "available", true);
}

t_service_answer ask_service(const std::string &, const std::string &, blob_attr *)
{
    const t_time after = 2 * MILLISECOND;
    const bool works = manager == t_manager::says_yes || (manager_is_well() && upstream_works());
    switch (manager) {
    case t_manager::hangs:
        return {.after = NEVER, .status = 0, .data = nullptr};
    case t_manager::refuses:
        return {.after = after, .status = UBUS_STATUS_PERMISSION_DENIED, .data = nullptr};
    case t_manager::flags:
        return {.after = after, .status = 0, .data = [works](blob_buf *message) { tell_flags(message, works); }};
    case t_manager::empty:
        return {.after = after, .status = 0, .data = [](blob_buf *message) { blobmsg_add_u32(message, "uptime", 7); }};
    case t_manager::honest:
    case t_manager::away:
    case t_manager::says_yes:
    case t_manager::says_no:
    case t_manager::connecting:
        break;
    }
    const char *state = works ? "connected" : manager == t_manager::connecting ? "connecting" : "disconnected";
    return {.after = after, .status = 0, .data = [state](blob_buf *message) {
                blobmsg_add_string(message, "state", state);
            }};
}

} // namespace sim
