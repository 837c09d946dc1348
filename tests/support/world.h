// SPDX-License-Identifier: MIT
// The ground that tests, fuzz targets and scenes stand on: the daemon's locks, and a model with ports and protocols.
#pragma once

#include <cstdlib>
#include <string>

#include "model/gate.h"
#include "model/port_model.h"
#include "model/tables.h"

// The daemon's locks and pause flags, bound while this lives.
struct t_bound_gate : t_engine_gate {
    t_bound_gate() : t_engine_gate()
    {
        init_engine_gate(this);
        engine_gate = this;
    }
    ~t_bound_gate()
    {
        engine_gate = nullptr;
        destroy_engine_gate(this);
    }
    t_bound_gate(const t_bound_gate &) = delete;
    t_bound_gate &operator=(const t_bound_gate &) = delete;
};

// A port of the main table; its name is new there.
inline t_device *add_port_to(t_port_model &model, const std::string &name, int priority = 0, bool linked = false)
{
    t_device *dev = create_new_device(name.c_str());
    if (!dev || !add_device(&model.dev_hashmap_head, dev))
        abort();
    dev->priority = static_cast<int8_t>(priority);
    dev->link_active = linked;
    return dev;
}

inline t_protocol *add_protocol_to(t_port_model &model, const std::string &name, int priority = 0)
{
    t_protocol *protocol = create_new_protocol(name.c_str());
    if (!protocol || !add_protocol(&model.proto_hashmap_head, protocol))
        abort();
    protocol->priority = static_cast<int8_t>(priority);
    return protocol;
}
