// SPDX-License-Identifier: MIT
#include "model/fake_wan.h"

#include "platform/result_codes.h"
#include "tests/unit/model/fake_command.h"
#include "tests/unit/model/model_test.h"

namespace {

class fake_wan : public t_model_test {
protected:
    fake_wan()
    {
        commands_run.clear();
        add_port("eth0");
        device = add_port("eth1");
        write_config("switch", section("switch_port", "port1", {{"ifname", "eth1"}}) +
                                   section("switch_port", "port2", {{"ifname", "br-lan"}}) +
                                   section("switch_port", "port3", {{"ifname", "eth9"}}));
    }
    int init_with(const std::string &port)
    {
        write_config("network", section("wan_detect", "auto_wan_detect", {{"enable", "on"}, {"fake_wan_port", port}}));
        return init_fake_wan_device(&port_model);
    }
    static bool stored_none()
    {
        return read_file("/etc/config/network").find("option fake_wan_port '-1'") != std::string::npos;
    }

    t_device *device;
};

} // namespace

// holds: fake-wan-codes
TEST_F(fake_wan, the_configured_port_is_found)
{
    t_log_capture log;
    EXPECT_EQ(init_with("1"), OK);
    EXPECT_EQ(port_model.fake_wan, device);
    EXPECT_TRUE(log.has("Debug", "init_fake_wan_device", "Success get fake_wan :eth1"));
}

// holds: fake-wan-codes
TEST_F(fake_wan, minus_1_means_none)
{
    port_model.fake_wan = device;
    t_log_capture log;
    EXPECT_EQ(init_with("-1"), OK);
    EXPECT_EQ(port_model.fake_wan, nullptr);
    EXPECT_TRUE(log.has("Debug", "init_fake_wan_device",
                        "network.auto_wan_detect.fake_wan_port=-1, meaning there is no fake_wan"));
}

// holds: fake-wan-default, fake-wan-codes
TEST_F(fake_wan, a_missing_setting_is_written_as_minus_1)
{
    port_model.fake_wan = device;
    write_config("network", section("wan_detect", "auto_wan_detect", {{"enable", "on"}}));
    t_log_capture log;
    EXPECT_EQ(init_fake_wan_device(&port_model), -1);
    EXPECT_EQ(port_model.fake_wan, nullptr);
    EXPECT_TRUE(stored_none());
    EXPECT_EQ(lines_of(log, "Warning"),
              t_names{"init_fake_wan_device: Get network.auto_wan_detect.fake_wan_port failed!"});
    EXPECT_EQ(init_fake_wan_device(&port_model), OK);
}

TEST_F(fake_wan, without_the_package_or_its_section_nothing_is_invented)
{
    EXPECT_EQ(init_fake_wan_device(&port_model), -1);
    EXPECT_FALSE(file_exists("/etc/config/network"));
    write_config("network", section("interface", "wan", {{"proto", "dhcp"}}));
    EXPECT_EQ(init_fake_wan_device(&port_model), -1);
    EXPECT_EQ(port_model.fake_wan, nullptr);
    EXPECT_EQ(read_file("/etc/config/network").find("fake_wan_port"), std::string::npos);
}

// holds: fake-wan-codes
TEST_F(fake_wan, a_port_that_is_no_ethernet_port_is_refused)
{
    port_model.fake_wan = device;
    t_log_capture log;
    EXPECT_EQ(init_with("2"), ERR_CONFIG_VALUE);
    EXPECT_EQ(port_model.fake_wan, nullptr);
    EXPECT_TRUE(log.has("Error", "init_fake_wan_device", "switch.port2.ifname=br-lan, or not begin with \"eth\""));
}

// holds: fake-wan-codes
TEST_F(fake_wan, a_port_without_interface_is_refused)
{
    t_log_capture log;
    EXPECT_EQ(init_with("8"), ERR_CONFIG_VALUE);
    EXPECT_TRUE(log.has("Error", "init_fake_wan_device", "switch.port8.ifname=, or not begin with \"eth\""));
    for (const std::string &garbage : {std::string(64, '1'), std::string(5000, '1'), std::string("\xff\x02"),
                                       std::string("1.ifname"), std::string(" 1"), std::string("-2")})
        EXPECT_EQ(init_with(garbage), ERR_CONFIG_VALUE) << garbage;
    EXPECT_EQ(port_model.fake_wan, nullptr);
}

TEST_F(fake_wan, an_ethernet_port_that_is_no_device_means_none)
{
    t_log_capture log;
    EXPECT_EQ(init_with("3"), OK);
    EXPECT_EQ(port_model.fake_wan, nullptr);
    EXPECT_TRUE(log.has("Debug", "init_fake_wan_device", "Success get fake_wan :null"));
}

// holds: fake-wan-removal-codes
TEST_F(fake_wan, removing_it_writes_minus_1_and_rebuilds_the_ports)
{
    init_with("1");
    t_log_capture log;
    EXPECT_EQ(wan_detect_remove_fake_wan(), OK);
    EXPECT_EQ(port_model.fake_wan, nullptr);
    EXPECT_TRUE(stored_none());
    EXPECT_EQ(commands_run, t_names{"/sbin/wanlan_port_reload"});
    EXPECT_TRUE(log.has("Debug", "wan_detect_remove_fake_wan",
                        "Set fake_wan_dev=null, network.auto_wan_detect.fake_wan_port=-1."));
}

// holds: fake-wan-removal-codes
TEST_F(fake_wan, removing_none_does_nothing)
{
    init_with("-1");
    t_log_capture log;
    EXPECT_EQ(wan_detect_remove_fake_wan(), ERR_INVALID_INPUT);
    EXPECT_TRUE(commands_run.empty());
    EXPECT_TRUE(log.lines().empty());
}

TEST_F(fake_wan, it_is_forgotten_even_when_it_cannot_be_written)
{
    init_with("1");
    remove_config("network");
    EXPECT_EQ(wan_detect_remove_fake_wan(), OK);
    EXPECT_EQ(port_model.fake_wan, nullptr);
    EXPECT_EQ(commands_run, t_names{"/sbin/wanlan_port_reload"});
}

TEST_F(fake_wan, it_is_removed_for_a_port_of_its_name)
{
    init_with("1");
    t_device twin = {};
    copy_name(twin.name, "eth1");
    EXPECT_TRUE(remove_fake_wan_if_match(&twin, false));
    EXPECT_EQ(port_model.fake_wan, nullptr);
    EXPECT_FALSE(remove_fake_wan_if_match(&twin, false));
}

TEST_F(fake_wan, where_a_link_is_needed_it_stays_for_a_port_without)
{
    init_with("1");
    EXPECT_FALSE(remove_fake_wan_if_match(device, true));
    EXPECT_EQ(port_model.fake_wan, device);
    device->link_active = 1;
    EXPECT_TRUE(remove_fake_wan_if_match(device, true));
}

TEST_F(fake_wan, it_stays_for_another_port_and_for_none)
{
    init_with("1");
    t_device other = {};
    copy_name(other.name, "eth10");
    EXPECT_FALSE(remove_fake_wan_if_match(&other, false));
    EXPECT_FALSE(remove_fake_wan_if_match(nullptr, false));
    EXPECT_EQ(port_model.fake_wan, device);
    EXPECT_TRUE(commands_run.empty());
}
