// SPDX-License-Identifier: MIT
// The commands of the `ubus` program.
#pragma once

#include <algorithm>
#include <climits>
#include <optional>

#pragma GCC visibility push(default)
#include <libubus.h>
#pragma GCC visibility pop

namespace ubus_cli {

constexpr int DEFAULT_TIMEOUT_S = 30;

// Besides status codes, commands return these. Both end up as exit codes, cut to eight bits.
constexpr int FAILED = -1;
constexpr int WRONG_USAGE = -2;

struct options {
    const char *socket = nullptr;
    std::optional<int> timeout_s; // the default is the command's
    bool is_simple = false;
    bool is_verbose = false;
};

// What follows the command's name.
struct arguments {
    int count;
    char **text;
};

struct bus_link {
    ubus_context *ctx;
    options wanted;
};

// Cut to what a timer can hold.
inline int timeout_ms(int seconds)
{
    constexpr int MS_PER_S = 1000;
    return std::clamp(seconds, INT_MIN / MS_PER_S, INT_MAX / MS_PER_S) * MS_PER_S;
}

// Each returns 0, a status code, its negative when the error has been told, or one of the codes above.
int list(bus_link &bus, const arguments &args);
int call(bus_link &bus, const arguments &args);
int send(bus_link &bus, const arguments &args);
int listen(bus_link &bus, const arguments &args);
int wait_for(bus_link &bus, const arguments &args);
int subscribe(bus_link &bus, const arguments &args);

} // namespace ubus_cli
