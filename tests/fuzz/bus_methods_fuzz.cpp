// SPDX-License-Identifier: MIT
// Calls of the methods of both of the daemon's objects, and the ban event, with any arguments, and anything that the
// daemon may have lived through before. The input is a row of calls: a byte that chooses the handler and the form (from
// 0x80 on, JSON), and a block with the arguments; or, with 0x10, with a part of the daemon's life.
#include <algorithm>
#include <cstring>
#include <iterator>
#include <string>

#include <libubus.h>

extern "C" {
#include <libubox/blobmsg_json.h>
}

#include "adapters/bus_object.h"
#include "adapters/engine_handlers.h"
#include "model/chronicle.h"
#include "model/lists.h"
#include "platform/log.h"
#include "tests/fuzz/support/bus_message.h"
#include "tests/fuzz/support/private_files.h"
#include "tests/support/world.h"

namespace {

constexpr int MOST_CALLS = 16;
constexpr uint8_t JSON_FORM = 0x80;
constexpr uint8_t STATE_OBJECT = 0x08;
constexpr uint8_t LIFE = 0x10;
constexpr uint8_t HANDLER_MASK = 0x07;
constexpr int LONGEST_DELAY_MS = 60'000;

int replies;
bool state_is_told; // by the call that is made
t_progress progress;

void check_delay(int delay_ms)
{
    REQUIRE(delay_ms >= 0 && delay_ms <= LONGEST_DELAY_MS);
}

int check_request(const t_proto_detect_request *request)
{
    REQUIRE(request->timeout_ms >= PROTO_DETECT_TIMEOUT_MIN_MS && request->timeout_ms <= PROTO_DETECT_TIMEOUT_MAX_MS);
    REQUIRE(!request->dev || find_device(port_model.dev_hashmap_head, request->dev->name) == request->dev);
    REQUIRE(!request->protocol ||
            find_protocol(port_model.proto_hashmap_head, request->protocol->name) == request->protocol);
    return 0;
}

int store_link(t_device *dev, bool up)
{
    REQUIRE((dev->link_active != 0) != up);
    dev->link_active = up;
    return 0;
}

void build_router()
{
    port_model = {};
    progress = {};
    begin_chronicle();
    for (const char *name : {"eth0", "eth1", "eth2"})
        add_port_to(port_model, name);
    for (const char *name : {"dhcp", "pppoe"})
        add_protocol_to(port_model, name);
    port_model.fake_wan = find_device(port_model.dev_hashmap_head, "eth1");
    write_private_file("/etc/config/network", "config auto_wan_detect 'auto_wan_detect'\n\toption fake_wan_port '1'\n");
}

void release_model()
{
    uint8_t banned = 0;
    for (const t_device_list *node = port_model.banned_list.head.next; node; node = node->next)
        banned++;
    REQUIRE(banned == port_model.banned_list.count);
    free_device_list(&port_model.banned_list.head);
    release_port_model(&port_model);
}

void call(const t_bus_exports &offer, int handler, blob_attr *arguments)
{
    if (handler >= offer.object->n_methods) {
        offer.event_handler->cb(nullptr, offer.event_handler, offer.event_pattern, arguments);
        return;
    }
    const ubus_method &method = offer.object->methods[handler];
    ubus_context context = {};
    context.sock.fd = -1;
    ubus_request_data request = {};
    replies = 0;
    REQUIRE(method.handler(&context, offer.object, &request, method.name, arguments) == 0 && replies == 1);
    // The method "log" may have closed the log.
    log_close();
    log_set_level(LOG_LEVEL_Debug);
}

// What became of the ports so far, and labels of any bytes: all of it is told in text.
void call_state_object(const t_bus_exports &offer, int handler, blob_attr *arguments)
{
    const ubus_method &method = offer.beside->methods[handler % offer.beside->n_methods];
    const std::string bytes(static_cast<const char *>(blob_data(arguments)), blob_len(arguments));
    for (t_device *dev = port_model.dev_hashmap_head; dev; dev = static_cast<t_device *>(dev->hh.next))
        copy_name(dev->label, bytes.c_str());
    ubus_context context = {};
    context.sock.fd = -1;
    ubus_request_data request = {};
    replies = 0;
    state_is_told = true;
    const int status = method.handler(&context, offer.beside, &request, method.name, arguments);
    state_is_told = false;
    REQUIRE(status == 0 || status == UBUS_STATUS_INVALID_ARGUMENT || status == UBUS_STATUS_NOT_FOUND);
    REQUIRE(replies == (status == 0));
}

// One of the values up to the last one.
template <class t_value> t_value choose(t_input &life, t_value last)
{
    return static_cast<t_value>(life.byte() % (static_cast<int>(last) + 1));
}

void learn(t_input &life, t_device *dev)
{
    constexpr const char *PROTOCOLS[] = {nullptr, "dhcp", "pppoe", "arp"};
    dev->result.server_mac[0] = life.byte();
    dev->result.gateway.ipv4_be = life.word();
    note_answer(dev, PROTOCOLS[life.byte() % std::size(PROTOCOLS)], dev->result);
}

void live_through_cycle(t_input &life, uint8_t what, t_device *dev)
{
    switch (what) {
    case 0:
        note_opener(choose(life, t_opener::look_again));
        return note_cycle_over_all();
    case 1:
        return note_cycle_begins();
    case 2:
        return note_fate(dev, choose(life, t_fate::won));
    case 3:
        return note_decision(choose(life, t_decision::nobody));
    case 4:
        return note_swap(static_cast<int8_t>(life.byte()));
    case 5:
        return note_confirmation(life.byte() & 1);
    default:
        return note_cycle_ends(life.byte() & 1 ? dev : nullptr);
    }
}

void change_router(t_input &life, uint8_t what, t_device *dev)
{
    constexpr const char *NEXT[] = {nullptr, "look", "cycle", "pass"};
    switch (what) {
    case 0:
        dev->link_active = !dev->link_active;
        break;
    case 1:
        keep_device(life.byte() & 1 ? &port_model.wan_port_pool : &port_model.gaming, create_new_device(dev->name));
        break;
    case 2:
        port_model.wan_dev = dev;
        port_model.role_is_away = life.byte() & 1;
        memset(port_model.wan_role, life.byte(), sizeof port_model.wan_role - 1);
        break;
    case 3:
        chronicle.hints = life.byte();
        port_model.enable = port_model.router_mode = life.byte() & 1;
        break;
    default:
        progress = {"looking", NEXT[life.byte() % std::size(NEXT)], life.word(), life.byte(), 21, life.byte() > 0x7f};
    }
}

// What the daemon may have lived through: of each step the upper half of a byte tells the port, the lower one what.
void live_through(t_input life)
{
    constexpr uint8_t CYCLE = 7, WIRE = 10;
    while (!life.empty()) {
        const uint8_t step = life.byte(), what = step & 0x0f;
        t_device *dev = port_model.dev_hashmap_head;
        for (int place = step >> 4; place > 0 && dev->hh.next; place--)
            dev = static_cast<t_device *>(dev->hh.next);
        if (what < CYCLE)
            live_through_cycle(life, what, dev);
        else if (what >= WIRE)
            change_router(life, static_cast<uint8_t>(what - WIRE), dev);
        else if (what == CYCLE)
            note_question(dev);
        else if (what == CYCLE + 1)
            learn(life, dev);
        else
            note_lan_host(dev);
    }
}

void check_text(blob_attr *message)
{
    char *json = blobmsg_format_json(message, true);
    REQUIRE(json);
    const std::string text = json;
    free(json);
    REQUIRE(std::all_of(text.begin(), text.end(), [](char byte) { return byte >= ' ' && byte <= '~'; }));
}

} // namespace

extern "C" int __wrap_ubus_send_reply(ubus_context *, ubus_request_data *, blob_attr *message)
{
    replies++;
    if (state_is_told) {
        check_text(message);
        return 0;
    }
    const blobmsg_policy policy = {"err_code", BLOBMSG_TYPE_INT32};
    blob_attr *code = nullptr;
    REQUIRE(blobmsg_parse(&policy, 1, &code, blob_data(message), static_cast<unsigned>(blob_len(message))) == 0 &&
            code);
    return 0;
}

void prepare()
{
    enter_private_files();
    write_private_file("/tmp/wan_detect.log", ""); // where the log goes once it is opened
    log_set_level(LOG_LEVEL_Debug);
    static t_bound_gate gate;
    engine_handlers = {check_delay, check_request, store_link, nullptr};
    engine_handlers.tell_progress = [](t_progress *told) { *told = progress; };
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    t_input input(data, size);
    build_router();
    const t_bus_exports *offer = wan_detect_bus_exports();
    for (int calls = 0; !input.empty() && calls < MOST_CALLS; calls++) {
        const uint8_t choice = input.byte();
        const t_octets block = input.block();
        if (choice & LIFE) {
            live_through({block.data(), block.size()});
            continue;
        }
        t_fuzz_message message(block, choice >= JSON_FORM);
        if (choice & STATE_OBJECT)
            call_state_object(*offer, choice & HANDLER_MASK, message.attribute());
        else
            call(*offer, choice & HANDLER_MASK, message.attribute());
    }
    release_model();
    wan_detect_bus_exports_release();
    return 0;
}
