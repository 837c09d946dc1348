// SPDX-License-Identifier: MIT
// `ubus call` and `ubus send`: a method of an object, or an event, with arguments given as JSON.
#include "commands.h"

#include <cstdio>
#include <cstdlib>
#include <unistd.h>

#pragma GCC visibility push(default)
extern "C" {
#include <libubox/blobmsg_json.h>
}
#pragma GCC visibility pop

namespace ubus_cli {
namespace {

constexpr int ONE_LINE = -1; // indent argument of the JSON writer

blob_buf message;

// No text is an empty message.
bool read_message(const char *json)
{
    return blob_buf_init(&message, 0) == 0 && (!json || blobmsg_add_json_from_string(&message, json));
}

void print_data(ubus_request *req, int, blob_attr *msg)
{
    const auto *wanted = static_cast<const options *>(req->priv);
    char *text = blobmsg_format_json_indent(msg, true, wanted->is_simple ? ONE_LINE : 0);
    if (text) {
        printf("%s\n", text);
        free(text);
    }
}

int negated(int status)
{
    return static_cast<int>(0U - static_cast<unsigned int>(status)); // a service may answer INT_MIN
}

void explain(const arguments &args, int status)
{
    fprintf(stderr, "Command failed: ubus call");
    for (int i = 0; i < args.count; i++) {
        fprintf(stderr, " %s", args.text[i]);
    }
    fprintf(stderr, " (%s)\n", ubus_strerror(status));
}

} // namespace

// A person at the terminal gets the plain status code; a script's log gets the whole command and the code's negative.
// An object that is not there is no failed call.
int call(bus_link &bus, const arguments &args)
{
    if (args.count < 2 || args.count > 3) {
        return WRONG_USAGE;
    }
    int status = UBUS_STATUS_PARSE_ERROR;
    if (read_message(args.count > 2 ? args.text[2] : nullptr)) {
        uint32_t id = 0; // stays so when the object is hidden from us, and no object has this id
        int found = ubus_lookup_id(bus.ctx, args.text[0], &id);
        if (found != UBUS_STATUS_OK) {
            return found;
        }
        int timeout = timeout_ms(bus.wanted.timeout_s.value_or(DEFAULT_TIMEOUT_S));
        status = ubus_invoke(bus.ctx, id, args.text[1], message.head, print_data, &bus.wanted, timeout);
    }
    if (status == UBUS_STATUS_OK || bus.wanted.is_simple || isatty(STDERR_FILENO)) {
        return status;
    }
    explain(args, status);
    return negated(status);
}

int send(bus_link &bus, const arguments &args)
{
    if (args.count < 1 || args.count > 2) {
        return WRONG_USAGE;
    }
    if (!read_message(args.count > 1 ? args.text[1] : nullptr)) {
        return UBUS_STATUS_PARSE_ERROR;
    }
    return ubus_send_event(bus.ctx, args.text[0], message.head);
}

} // namespace ubus_cli
