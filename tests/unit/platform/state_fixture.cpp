// SPDX-License-Identifier: MIT
#include "tests/unit/platform/state_fixture.h"

#include <cstdlib>
#include <regex>
#include <utility>

#include <unistd.h>

extern "C" {
#include <libubox/blobmsg_json.h>
}

#include "adapters/state_object.h"
#include "model/tables.h"
#include "platform/tallies.h"
#include "tests/unit/platform/bus_fixture.h"
#include "tests/unit/support/failing_memory.h"

namespace {

std::string sent; // the bytes of the reply: what makes text of it wants memory itself

std::string json_of(blob_attr *message)
{
    char *text = blobmsg_format_json(message, true);
    std::string json = text ? text : "";
    free(text);
    return json;
}

const ubus_method &method_named(const std::string &name)
{
    for (int i = 0; i < state_object.n_methods; i++)
        if (name == state_object.methods[i].name)
            return state_object.methods[i];
    abort();
}

std::string heard;

} // namespace

extern "C" int __wrap_ubus_send_reply(ubus_context *, ubus_request_data *, blob_attr *message)
{
    sent.assign(reinterpret_cast<const char *>(message), blob_raw_len(message));
    return 0;
}

extern "C" int __wrap_ubus_notify(ubus_context *, ubus_object *object, const char *what, blob_attr *message,
                                  int timeout)
{
    EXPECT_EQ(object, &state_object);
    EXPECT_LT(timeout, 0) << "somebody would be waited for";
    heard += std::string("{\"") + what + "\":" + json_of(message) + "}";
    return 0;
}

// The connection, for notifications: one that takes everything.
ubus_context *wan_detect_ubus_context()
{
    static ubus_context context;
    context.sock.fd = STDOUT_FILENO;
    return &context;
}

std::string plain_json(const std::string &json)
{
    const t_message message(json);
    return json_of(message.buffer.head);
}

t_state_test::t_state_test()
{
    fake_clock.reset();
    fake_clock.set(NOW_S);
    chronicle = {};
    tallies = {};
    progress = {};
    engine_handlers.tell_progress = [](t_progress *told) { *told = progress; };
    prepare_state_object();
}

t_state_test::~t_state_test()
{
    chronicle = {};
}

// What the method's caller gets, as bytes in `sent`.
static int status_of(const std::string &method, blob_attr *message)
{
    ubus_context context = {};
    context.sock.fd = -1;
    ubus_request_data request = {};
    return method_named(method).handler(&context, &state_object, &request, method.c_str(), message);
}

static t_answer answer_with(int status)
{
    const std::string json = sent.empty() ? "" : json_of(reinterpret_cast<blob_attr *>(sent.data()));
    return {status, json, std::exchange(sent, "").size()};
}

t_answer t_state_test::call(const std::string &method, blob_attr *message)
{
    return answer_with(status_of(method, message));
}

t_answer t_state_test::call_short_of_memory(const std::string &method, blob_attr *message, int allocations)
{
    int status;
    {
        t_memory_shortage shortage(allocations);
        status = status_of(method, message);
    }
    return answer_with(status);
}

t_answer t_state_test::call(const std::string &method, const std::string &json)
{
    const t_message message(json);
    return call(method, message.buffer.head);
}

std::string t_state_test::explain(const std::string &device)
{
    const std::string json = call("explain", R"({"device":")" + device + "\"}").json;
    std::smatch found;
    if (!std::regex_match(json, found, std::regex(R"re(\{"device":"([^"]*)","text":\[(.*)\]\})re")) ||
        found[1] != device)
        return "not an explanation: " + json;
    const std::string lines = std::regex_replace(found[2].str(), std::regex("\",\""), "\n");
    return lines.size() < 2 ? lines : lines.substr(1, lines.size() - 2);
}

std::string t_state_test::told(const std::function<void()> &happens)
{
    state_object.has_subscribers = true;
    happens();
    state_object.has_subscribers = false;
    return std::exchange(heard, "");
}

t_cycle_note &t_state_test::add_cycle(t_decision decision, const t_device *winner)
{
    note_cycle_begins();
    if (decision != t_decision::none) {
        note_decision(decision);
        note_cycle_ends(winner);
    }
    return *newest_cycle();
}

void t_state_test::add_to_pool(const t_device *dev)
{
    keep_device(&port_model.wan_port_pool, create_new_device(dev->name));
}

void t_state_test::expect_has(const std::string &text, const std::string &part)
{
    EXPECT_NE(text.find(part), std::string::npos) << part << "\nis not in\n" << text;
}

void t_state_test::expect_lacks(const std::string &text, const std::string &part)
{
    EXPECT_EQ(text.find(part), std::string::npos) << part << "\nis in\n" << text;
}
