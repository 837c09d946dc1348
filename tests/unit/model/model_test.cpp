// SPDX-License-Identifier: MIT
#include "tests/unit/model/model_test.h"

#include <sstream>

#include "tests/unit/support/failing_memory.h"

namespace {

template <typename T> std::vector<std::string> names_of_table(const T *table)
{
    std::vector<std::string> names;
    for (const T *record = table; record; record = static_cast<const T *>(record->hh.next))
        names.push_back(record->name);
    return names;
}

} // namespace

t_model_test::t_model_test() : blocks_before(blocks_in_use())
{
    for (const char *package : {"network", "switch", "protocol"})
        remove_config(package);
    port_model = t_port_model{};
}

t_model_test::~t_model_test()
{
    release_port_model(&port_model);
    EXPECT_EQ(blocks_in_use(), blocks_before);
}

std::vector<std::string> names_of(const t_device *table)
{
    return names_of_table(table);
}

std::vector<std::string> names_of(const t_protocol *table)
{
    return names_of_table(table);
}

std::vector<std::string> names_of(const t_device_list_head &list)
{
    std::vector<std::string> names;
    const t_device_list *previous = &list.head;
    for (const t_device_list *node = list.head.next; node; previous = node, node = node->next) {
        EXPECT_EQ(node->prev, previous);
        names.push_back(device_name(node->dev));
    }
    return names;
}

std::vector<std::string> lines_of(t_log_capture &log, const std::string &level)
{
    std::vector<std::string> found;
    for (const t_log_line &line : log.lines()) {
        if (line.level == level)
            found.push_back(line.function + ": " + line.body);
    }
    return found;
}

std::string section(const std::string &type, const std::string &name, std::initializer_list<t_option> options)
{
    std::string text = "config " + type + (name.empty() ? "" : " '" + name + "'") + "\n";
    for (const t_option &option : options)
        text += "\toption " + option.name + " '" + option.value + "'\n";
    return text;
}

std::string list_option(const std::string &name, std::initializer_list<std::string> items)
{
    std::string text;
    for (const std::string &item : items)
        text += "\tlist " + name + " '" + item + "'\n";
    return text;
}

t_names lines_and_errors_of(t_log_capture &log)
{
    t_names said;
    std::stringstream all(log.text());
    for (std::string line; std::getline(all, line);) {
        const size_t place = line.rfind("]: ");
        const size_t name = line.rfind('[', place);
        const bool is_ours = place != std::string::npos && name != std::string::npos;
        said.push_back(is_ours ? line.substr(name + 1, line.find(':', name) - name - 1) + line.substr(place + 1)
                               : line);
    }
    return said;
}
