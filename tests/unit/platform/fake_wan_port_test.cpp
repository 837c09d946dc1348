// SPDX-License-Identifier: MIT
#include "adapters/wan_switch.h"

#include "platform/result_codes.h"
#include "tests/unit/platform/adapter_fixture.h"

namespace {

class fake_wan_port : public t_adapter_test {
protected:
    fake_wan_port()
    {
        write_config("network", "config wan_detect 'auto_wan_detect'\n\toption fake_wan_port '1'\n");
        write_program(PORT_RELOAD_COMMAND, "#!/bin/sh\necho reload >>/tmp/calls_of_reload\n");
        device = add_port("eth1", 1);
        port_model.fake_wan = device;
    }
    static bool stored_none()
    {
        return read_file("/etc/config/network").find("option fake_wan_port '-1'") != std::string::npos;
    }

    t_device *device;
};

} // namespace

// holds: fake-wan-removal-codes
TEST_F(fake_wan_port, is_written_as_minus_1_and_the_ports_are_rebuilt)
{
    t_log_capture log;
    EXPECT_EQ(wan_detect_remove_fake_wan(), OK);
    EXPECT_EQ(port_model.fake_wan, nullptr);
    EXPECT_TRUE(stored_none());
    EXPECT_EQ(calls_of("reload"), "reload\n");
    EXPECT_TRUE(log.has("Debug", "wan_detect_remove_fake_wan",
                        "Set fake_wan_dev=null, network.auto_wan_detect.fake_wan_port=-1."));
}

// holds: fake-wan-removal-codes
TEST_F(fake_wan_port, where_there_is_none_nothing_is_done)
{
    port_model.fake_wan = nullptr;
    t_log_capture log;
    EXPECT_EQ(wan_detect_remove_fake_wan(), ERR_INVALID_INPUT);
    EXPECT_EQ(calls_of("reload"), "");
    EXPECT_TRUE(log.lines().empty());
}

TEST_F(fake_wan_port, is_given_up_even_when_that_cannot_be_written)
{
    remove_config("network");
    t_log_capture log;
    EXPECT_EQ(wan_detect_remove_fake_wan(), OK);
    EXPECT_EQ(port_model.fake_wan, nullptr);
    EXPECT_EQ(calls_of("reload"), "reload\n");
}

TEST_F(fake_wan_port, is_given_up_for_a_port_of_its_name)
{
    t_device twin = {};
    copy_name(twin.name, "eth1");
    t_log_capture log;
    EXPECT_TRUE(give_up_fake_wan_if_match(&twin, false));
    EXPECT_EQ(port_model.fake_wan, nullptr);
    EXPECT_FALSE(give_up_fake_wan_if_match(&twin, false));
}

TEST_F(fake_wan_port, where_a_link_is_needed_stays_for_a_port_without)
{
    t_log_capture log;
    EXPECT_FALSE(give_up_fake_wan_if_match(device, true));
    EXPECT_EQ(port_model.fake_wan, device);
    device->link_active = 1;
    EXPECT_TRUE(give_up_fake_wan_if_match(device, true));
}

TEST_F(fake_wan_port, stays_for_another_port_and_for_none)
{
    t_device other = {};
    copy_name(other.name, "eth10");
    EXPECT_FALSE(give_up_fake_wan_if_match(&other, false));
    EXPECT_FALSE(give_up_fake_wan_if_match(nullptr, false));
    EXPECT_EQ(port_model.fake_wan, device);
    EXPECT_EQ(calls_of("reload"), "");
}
