// SPDX-License-Identifier: MIT
#include "core/engine.h"

#include "model/port_model.h"

t_wan_detect_engine engine;

bool connection_is(const char *keyword)
{
    return port_model.wan_proto && has_prefix(port_model.wan_proto->name, keyword);
}

bool tunnel_over(const char *secondary)
{
    return (connection_is("l2tp") || connection_is("pptp")) && has_prefix(port_model.wan_proto->snd_conn, secondary);
}
