// SPDX-License-Identifier: MIT
#include "tests/unit/platform/adapter_fixture.h"

#include <filesystem>

#include "model/banned.h"
#include "model/lists.h"

namespace {

t_recorded_engine *recorded;

void record_detection(int delay_ms)
{
    recorded->detections.push_back(delay_ms);
}

int record_proto_detection(const t_proto_detect_request *request)
{
    recorded->proto_detections.push_back(*request);
    return recorded->proto_detect_result;
}

int record_link_change(t_device *dev, bool up)
{
    recorded->link_changes.push_back({dev, up});
    dev->link_active = up;
    return 0;
}

std::string call_log(const std::string &name)
{
    return "/tmp/calls_of_" + name;
}

} // namespace

t_adapter_test::t_adapter_test()
{
    port_model = {};
    recorded = &engine;
    engine_handlers = {record_detection, record_proto_detection, record_link_change, nullptr};
}

t_adapter_test::~t_adapter_test()
{
    free_device_list(&port_model.banned_list.head);
    release_port_model(&port_model);
    port_model = {};
    engine_handlers = {};
    for (const auto &entry : std::filesystem::directory_iterator("/tmp"))
        if (entry.path().filename().string().rfind("calls_of_", 0) == 0)
            std::filesystem::remove(entry.path());
    for (const auto &entry : std::filesystem::directory_iterator("/etc/config"))
        std::filesystem::remove(entry.path());
    for (const char *program : {"/usr/sbin/online-test", "/usr/sbin/network_lanwan_swap",
                                "/etc/wan_detect/get_all_port_state.sh", "/etc/wan_detect/get_combo_state.sh"})
        std::filesystem::remove(program);
}

t_device *t_adapter_test::add_port(const std::string &name, int port_num)
{
    t_device *dev = add_port_to(port_model, name);
    dev->port_num = static_cast<int8_t>(port_num);
    return dev;
}

t_device *t_adapter_test::add_combo_port(const std::string &name, int port_num, uint8_t sub_port)
{
    t_device *dev = add_port(name, port_num);
    dev->is_combo = 1;
    dev->sub_port = sub_port;
    return dev;
}

void t_adapter_test::install_program(const std::string &name, const std::string &then)
{
    write_program("/usr/sbin/" + name, "#!/bin/sh\necho \"$@\" >> " + call_log(name) + "\n" + then + "\n");
}

std::string t_adapter_test::calls_of(const std::string &name)
{
    return read_file(call_log(name));
}

void t_adapter_test::configure_wan(const std::string &name)
{
    write_config("switch", "config switch_port 'wan'\n\toption switch_port 'port1'\n\n"
                           "config switch_port 'port1'\n\toption ifname '" +
                               name + "'\n");
}
