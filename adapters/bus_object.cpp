// SPDX-License-Identifier: MIT
// The object "wan_detect": its method table, and what each method does with its arguments.
#include "adapters/bus_object.h"

#include <libubus.h>

#include "adapters/bus_message.h"
#include "adapters/engine_handlers.h"
#include "adapters/state_object.h"
#include "adapters/wan_switch.h"
#include "model/banned.h"
#include "model/chronicle.h"
#include "model/port_model.h"
#include "model/tables.h"
#include "platform/bus_limit.h"
#include "platform/clock.h"
#include "platform/log.h"
#include "platform/printable_text.h"
#include "platform/result_codes.h"
#include "platform/text.h"

namespace {

constexpr const char *OBJECT_NAME = "wan_detect";
constexpr const char *BAN_EVENT = "wan_detect_add_banned_dev";
constexpr size_t ARGUMENT_SIZE = 256; // a string argument with its terminator
constexpr int REPLY_MALFORMED = -1;
constexpr int LOG_LEVEL_CLOSE = -1;
constexpr int LOG_LEVEL_HIGHEST = LOG_LEVEL_Debug;
constexpr unsigned DETECT_DELAY_MAX_S = 60;

enum { LOG_LEVEL_ARGUMENT, LOG_ARGUMENTS };
constexpr blobmsg_policy LOG_POLICY[LOG_ARGUMENTS] = {{"level", BLOBMSG_TYPE_INT32}};

enum { PROTO_DEVICE, PROTO_PROTOCOL, PROTO_TIMEOUT, PROTO_ARGUMENTS };
constexpr blobmsg_policy PROTO_POLICY[PROTO_ARGUMENTS] = {
    {"device", BLOBMSG_TYPE_STRING}, {"protocol", BLOBMSG_TYPE_STRING}, {"timeout", BLOBMSG_TYPE_INT32}};

enum { SET_ENABLE, SET_ARGUMENTS };
constexpr blobmsg_policy SET_POLICY[SET_ARGUMENTS] = {{"enable", BLOBMSG_TYPE_BOOL}};

enum { HOTPLUG_NAME, HOTPLUG_STATUS, HOTPLUG_ARGUMENTS };
constexpr blobmsg_policy HOTPLUG_POLICY[HOTPLUG_ARGUMENTS] = {{"name", BLOBMSG_TYPE_STRING},
                                                              {"status", BLOBMSG_TYPE_BOOL}};

enum { DETECT_DELAY, DETECT_ARGUMENTS };
constexpr blobmsg_policy DETECT_POLICY[DETECT_ARGUMENTS] = {{"delay", BLOBMSG_TYPE_INT32}};

enum { BAN_NAME, BAN_TIME, BAN_FIELDS };
constexpr blobmsg_policy BAN_POLICY[BAN_FIELDS] = {{"name", BLOBMSG_TYPE_STRING}, {"time", BLOBMSG_TYPE_INT32}};

blob_buf reply_buffer;

// The status for the caller: 0 with a reply. Who cannot be told the code is told at least that there is none, although
// what was asked for is done.
int reply_code(ubus_context *context, ubus_request_data *request, int code)
{
    hang_up_on_deaf_bus(context);
    if (blob_buf_init(&reply_buffer, 0) != 0 ||
        blobmsg_add_u32(&reply_buffer, "err_code", static_cast<uint32_t>(code)) != 0)
        return UBUS_STATUS_NO_MEMORY;
    return ubus_send_reply(context, request, reply_buffer.head);
}

int32_t int_argument(blob_attr *argument)
{
    return static_cast<int32_t>(blobmsg_get_u32(argument));
}

void start_detection_of_all(int delay_ms)
{
    if (engine_handlers.start_wan_detect_all)
        engine_handlers.start_wan_detect_all(delay_ms);
}

void begin_retries_anew()
{
    if (engine_handlers.begin_retries_anew)
        engine_handlers.begin_retries_anew();
}

int wan_detect_set_dbg_level(ubus_context *context, ubus_object *, ubus_request_data *request, const char *,
                             blob_attr *message)
{
    blob_attr *arguments[LOG_ARGUMENTS];
    if (!parse_bus_message(LOG_POLICY, arguments, message) || !arguments[LOG_LEVEL_ARGUMENT])
        return reply_code(context, request, REPLY_MALFORMED);
    int level = int_argument(arguments[LOG_LEVEL_ARGUMENT]);
    LOG(Debug, "Ubus -debug -set rec:%d\n", level);
    if (level < LOG_LEVEL_CLOSE || level > LOG_LEVEL_HIGHEST) {
        LOG(Error, "set debug level(%d) error, should be between %d and %d, or -1 to close output\n", level,
            LOG_LEVEL_HIGHEST, LOG_LEVEL_NONE);
        return reply_code(context, request, REPLY_MALFORMED);
    }
    if (level == LOG_LEVEL_CLOSE) {
        log_close();
    } else {
        log_open();
        log_set_level(level);
    }
    log_print_always("[%ld]\033[1m[ %s ] %03d: set debug level:%d.\033[0m\n\r", log_uptime(), __func__, __LINE__,
                     level);
    return reply_code(context, request, OK);
}

int ubus_protocol_detect(ubus_context *context, ubus_object *, ubus_request_data *request, const char *,
                         blob_attr *message)
{
    t_proto_detect_request wanted = {
        .timeout_ms = PROTO_DETECT_TIMEOUT_DEFAULT_MS, .dev = nullptr, .protocol = nullptr};
    blob_attr *arguments[PROTO_ARGUMENTS];
    if (!parse_bus_message(PROTO_POLICY, arguments, message))
        return reply_code(context, request, REPLY_MALFORMED);
    char text[ARGUMENT_SIZE];
    if (arguments[PROTO_DEVICE]) {
        bounded_copy(text, blobmsg_get_string(arguments[PROTO_DEVICE]), sizeof text);
        LOG(Debug, "Ubus proto_detect.device rec:%s\n", t_printable_text(text).text);
        wanted.dev = find_device(port_model.dev_hashmap_head, text);
        if (!wanted.dev)
            LOG(Error, "Device:%s doesn't existed!\n", t_printable_text(text).text);
    }
    if (arguments[PROTO_PROTOCOL]) {
        bounded_copy(text, blobmsg_get_string(arguments[PROTO_PROTOCOL]), sizeof text);
        LOG(Debug, "Ubus proto_detect.protocol rec:%s\n", t_printable_text(text).text);
        // Only the beginning is compared here; the table then decides about the whole name.
        if (!has_prefix(text, "dhcp") && !has_prefix(text, "pppoe")) {
            LOG(Error, "Protocol:%s not supported! dhcp/pppoe only!\n", t_printable_text(text).text);
        } else {
            wanted.protocol = find_protocol(port_model.proto_hashmap_head, text);
            if (!wanted.protocol)
                LOG(Error, "Protocol:%s doesn't existed!\n", t_printable_text(text).text);
        }
    }
    if (arguments[PROTO_TIMEOUT]) {
        wanted.timeout_ms = int_argument(arguments[PROTO_TIMEOUT]);
        if (wanted.timeout_ms < PROTO_DETECT_TIMEOUT_MIN_MS || wanted.timeout_ms > PROTO_DETECT_TIMEOUT_MAX_MS) {
            LOG(Error, "timeout must in the range [%d,%d]ms, set to default %dms!\n", PROTO_DETECT_TIMEOUT_MIN_MS,
                PROTO_DETECT_TIMEOUT_MAX_MS, PROTO_DETECT_TIMEOUT_DEFAULT_MS);
            wanted.timeout_ms = PROTO_DETECT_TIMEOUT_DEFAULT_MS;
        }
    }
    int result = engine_handlers.start_proto_detect ? engine_handlers.start_proto_detect(&wanted) : ERR_NOTHING_DONE;
    return reply_code(context, request, result);
}

int wan_detect_settings(ubus_context *context, ubus_object *, ubus_request_data *request, const char *,
                        blob_attr *message)
{
    blob_attr *arguments[SET_ARGUMENTS];
    if (!parse_bus_message(SET_POLICY, arguments, message) || !arguments[SET_ENABLE])
        return reply_code(context, request, REPLY_MALFORMED);
    bool enable = blobmsg_get_bool(arguments[SET_ENABLE]);
    LOG(Info, "wan detect success turn %s!\n", enable ? "on" : "off");
    if (enable && !port_model.enable) {
        start_detection_of_all(0);
        note_opener(t_opener::switched_on);
    }
    port_model.enable = enable;
    begin_retries_anew();
    if (!enable)
        wan_detect_remove_fake_wan();
    return reply_code(context, request, OK);
}

int device_hotplug_event(ubus_context *context, ubus_object *, ubus_request_data *request, const char *,
                         blob_attr *message)
{
    blob_attr *arguments[HOTPLUG_ARGUMENTS];
    if (!parse_bus_message(HOTPLUG_POLICY, arguments, message))
        return reply_code(context, request, REPLY_MALFORMED);
    if (!arguments[HOTPLUG_NAME]) {
        LOG(Error, "Bad device name\n");
        return reply_code(context, request, ERR_INVALID_INPUT);
    }
    if (!arguments[HOTPLUG_STATUS]) {
        LOG(Error, "Bad device status\n");
        return reply_code(context, request, ERR_INVALID_INPUT);
    }
    char name[ARGUMENT_SIZE];
    bounded_copy(name, blobmsg_get_string(arguments[HOTPLUG_NAME]), sizeof name);
    t_device *dev = find_device(port_model.dev_hashmap_head, name);
    if (!dev) {
        LOG(Error, "Device %s doesn't existed!\n", t_printable_text(name).text);
        return reply_code(context, request, ERR_NOTHING_DONE);
    }
    bool up = blobmsg_get_bool(arguments[HOTPLUG_STATUS]);
    if ((dev->link_active != 0) != up) {
        LOG(Info, "Device %s link status change to %s by ubus!\n", name, up_or_down(up));
        if (engine_handlers.process_link_change)
            engine_handlers.process_link_change(dev, up);
    } else {
        LOG(Debug, "Device %s status not change!\n", name);
    }
    return reply_code(context, request, OK);
}

int ubus_wan_detect(ubus_context *context, ubus_object *, ubus_request_data *request, const char *, blob_attr *message)
{
    blob_attr *arguments[DETECT_ARGUMENTS];
    if (!parse_bus_message(DETECT_POLICY, arguments, message))
        return reply_code(context, request, REPLY_MALFORMED);
    int32_t delay_s = arguments[DETECT_DELAY] ? int_argument(arguments[DETECT_DELAY]) : 0;
    if (static_cast<uint32_t>(delay_s) > DETECT_DELAY_MAX_S) {
        LOG(Error, "start ubus_wan_detect delay_time(%d) error, should be between 0 and 60!\n", delay_s);
        return reply_code(context, request, REPLY_MALFORMED);
    }
    start_detection_of_all(delay_s * MILLISECONDS_PER_SECOND);
    return reply_code(context, request, OK);
}

void wan_detect_add_banned_dev(ubus_context *, ubus_event_handler *, const char *, blob_attr *message)
{
    t_bus_write_pause pause;
    blob_attr *fields[BAN_FIELDS];
    if (!parse_bus_message(BAN_POLICY, fields, message))
        return;
    if (!fields[BAN_NAME]) {
        LOG(Error, "Bad device name\n");
        return;
    }
    char name[ARGUMENT_SIZE];
    bounded_copy(name, blobmsg_get_string(fields[BAN_NAME]), sizeof name);
    if (!find_device(port_model.dev_hashmap_head, name))
        make_printable(name); // the lists below only tell that it is none of ours
    begin_retries_anew();
    int32_t seconds = fields[BAN_TIME] ? int_argument(fields[BAN_TIME]) : 0;
    if (seconds != 0) {
        add_unique_banned_device_to_list(port_model.dev_hashmap_head, &port_model.banned_list, name, seconds);
        return;
    }
    if (!fields[BAN_TIME])
        LOG(Info, "No device banned time, treat as remove the device from banned list!\n");
    remove_banned_device_from_list(port_model.dev_hashmap_head, &port_model.banned_list, name, nullptr);
}

// The part of a method that is the same for all.
[[gnu::noinline]] int serve(ubus_context *context, ubus_object *object, ubus_request_data *request, const char *name,
                            blob_attr *message, ubus_handler_t handler)
{
    t_bus_write_pause pause;
    return handler(context, object, request, name, message);
}

template <ubus_handler_t handler>
int at_leisure(ubus_context *context, ubus_object *object, ubus_request_data *request, const char *name,
               blob_attr *message)
{
    return serve(context, object, request, name, message, handler);
}

template <ubus_handler_t handler, size_t count>
constexpr ubus_method method(const char *name, const blobmsg_policy (&policy)[count])
{
    return {.name = name, .handler = at_leisure<handler>, .mask = 0, .tags = 0, .policy = policy, .n_policy = count};
}

constexpr ubus_method METHODS[] = {
    method<wan_detect_set_dbg_level>("log", LOG_POLICY),  method<ubus_protocol_detect>("proto_detect", PROTO_POLICY),
    method<wan_detect_settings>("set", SET_POLICY),       method<device_hotplug_event>("hotplug", HOTPLUG_POLICY),
    method<ubus_wan_detect>("wan_detect", DETECT_POLICY),
};
constexpr int METHOD_COUNT = sizeof METHODS / sizeof METHODS[0];

ubus_object_type object_type = {.name = OBJECT_NAME, .id = 0, .methods = METHODS, .n_methods = METHOD_COUNT};
ubus_object object;
ubus_event_handler ban_event_handler;
constexpr t_bus_exports OFFER = {
    .object = &object, .event_handler = &ban_event_handler, .event_pattern = BAN_EVENT, .beside = &state_object};

} // namespace

const t_bus_exports *wan_detect_bus_exports()
{
    // What an earlier connection left in the records would be taken for an object that is published already.
    object = {};
    object_type.id = 0;
    ban_event_handler = {};
    object.name = OBJECT_NAME;
    object.type = &object_type;
    object.methods = METHODS;
    object.n_methods = METHOD_COUNT;
    ban_event_handler.cb = wan_detect_add_banned_dev;
    prepare_state_object();
    return &OFFER;
}

void wan_detect_bus_exports_release()
{
    blob_buf_free(&reply_buffer);
}
