// SPDX-License-Identifier: MIT
#include "adapters/bus_reply.h"

#include <cstdarg>
#include <cstdio>

#include <libubus.h>

#include "platform/bus.h"
#include "platform/bus_limit.h"
#include "platform/printable_text.h"

constexpr int NO_ANSWER_WANTED = -1; // to a notification

t_bus_reply::t_bus_reply() : whole_(blob_buf_init(&buffer_, 0) == 0) {}

t_bus_reply::~t_bus_reply()
{
    blob_buf_free(&buffer_);
}

void t_bus_reply::number(const char *name, uint32_t value)
{
    whole_ = whole_ && blobmsg_add_u32(&buffer_, name, value) == 0;
}

void t_bus_reply::flag(const char *name, bool value)
{
    whole_ = whole_ && blobmsg_add_u8(&buffer_, name, value) == 0;
}

void t_bus_reply::text(const char *name, const char *value)
{
    if (value && *value)
        whole_ = whole_ && blobmsg_add_string(&buffer_, name, t_printable_text(value).text) == 0;
}

void t_bus_reply::line(const char *format, ...)
{
    char text[PRINTABLE_TEXT_SIZE];
    va_list arguments;
    va_start(arguments, format);
    vsnprintf(text, sizeof text, format, arguments);
    va_end(arguments);
    element(text);
}

int t_bus_reply::send(ubus_context *context, ubus_request_data *request)
{
    if (!whole_)
        return UBUS_STATUS_NO_MEMORY;
    hang_up_on_deaf_bus(context);
    return ubus_send_reply(context, request, buffer_.head);
}

void t_bus_reply::notify(ubus_object *object, const char *what)
{
    ubus_context *context = wan_detect_ubus_context();
    if (whole_ && context && bus_takes_data(context, 0))
        ubus_notify(context, object, what, buffer_.head, NO_ANSWER_WANTED);
}

t_bus_nest::t_bus_nest(t_bus_reply &reply, const char *name, bool array) : reply_(reply)
{
    if (reply_.whole_)
        opened_ = blobmsg_open_nested(&reply_.buffer_, name, array);
    reply_.whole_ = opened_ != nullptr;
}

t_bus_nest::~t_bus_nest()
{
    if (opened_)
        blob_nest_end(&reply_.buffer_, opened_);
}
