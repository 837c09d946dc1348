// SPDX-License-Identifier: MIT
// What the tests of the model share: a gate, an empty model, no configuration, and short ways to fill both.
#pragma once

#include <initializer_list>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "model/port_model.h"
#include "tests/support/world.h"
#include "tests/unit/support/sandbox.h"

class t_model_test : public testing::Test {
protected:
    t_model_test();
    ~t_model_test() override;

    // A port of the main table with a priority.
    static t_device *add_port(const std::string &name, int priority = 0)
    {
        return add_port_to(port_model, name, priority);
    }
    static t_protocol *add_proto(const std::string &name, int priority = 0)
    {
        return add_protocol_to(port_model, name, priority);
    }

    t_bound_gate gate;

private:
    size_t blocks_before; // each test frees what it takes
};

// Names in the order of the table or list.
std::vector<std::string> names_of(const t_device *table);
std::vector<std::string> names_of(const t_protocol *table);
std::vector<std::string> names_of(const t_device_list_head &list);

using t_names = std::vector<std::string>;

// The log lines of one level, as "function: body".
std::vector<std::string> lines_of(t_log_capture &log, const std::string &level);

// Everything that was said, the daemon's lines as "function: body" without their prefixes, line by line.
t_names lines_and_errors_of(t_log_capture &log);

// Text of a section: "config TYPE 'NAME'" and its lines "option NAME 'VALUE'"; an empty name makes it anonymous.
struct t_option {
    std::string name;
    std::string value;
};
std::string section(const std::string &type, const std::string &name, std::initializer_list<t_option> options);

// The same for a list option.
std::string list_option(const std::string &name, std::initializer_list<std::string> items);
