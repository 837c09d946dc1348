// SPDX-License-Identifier: MIT
#include "model/fake_wan.h"

#include "platform/result_codes.h"
#include "tests/unit/model/model_test.h"

namespace {

class fake_wan : public t_model_test {
protected:
    fake_wan()
    {
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

TEST_F(fake_wan, a_forgotten_port_is_minus_1_in_the_configuration)
{
    init_with("1");
    forget_fake_wan(&port_model);
    EXPECT_EQ(port_model.fake_wan, nullptr);
    EXPECT_TRUE(stored_none());
}

TEST_F(fake_wan, it_is_forgotten_even_when_it_cannot_be_written)
{
    init_with("1");
    remove_config("network");
    forget_fake_wan(&port_model);
    EXPECT_EQ(port_model.fake_wan, nullptr);
}

TEST_F(fake_wan, nothing_is_given_up_while_nobody_has_bound_the_way_up)
{
    init_with("1");
    EXPECT_FALSE(remove_fake_wan_if_match(device, false));
    EXPECT_EQ(port_model.fake_wan, device);
}
