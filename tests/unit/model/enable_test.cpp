// SPDX-License-Identifier: MIT
#include "model/port_config.h"

#include "tests/unit/model/model_test.h"

namespace {

class enable_switch : public t_model_test {
protected:
    bool enabled_with(const std::string &value)
    {
        write_config("network", section("wan_detect", "auto_wan_detect", {{"enable", value}, {"fake_wan_port", "1"}}));
        return get_wan_detect_enable();
    }
};

} // namespace

// holds: enabling-words
TEST_F(enable_switch, on_and_true_and_what_begins_so_enable)
{
    for (const char *value : {"on", "true", "true1", "once", "on "})
        EXPECT_TRUE(enabled_with(value)) << value;
}

// holds: enabling-words
TEST_F(enable_switch, everything_else_disables)
{
    t_log_capture log;
    for (const char *value : {"1", "yes", "ON", "True", "off", "false", "0", " on", "\xff"})
        EXPECT_FALSE(enabled_with(value)) << value;
    EXPECT_FALSE(enabled_with(std::string(5000, 'o')));
    EXPECT_EQ(lines_of(log, "Error"), t_names{});
}

// holds: enabling-words
TEST_F(enable_switch, a_missing_switch_is_off_and_reported)
{
    write_config("network", section("wan_detect", "auto_wan_detect", {{"other", "1"}}));
    t_log_capture log;
    EXPECT_FALSE(get_wan_detect_enable());
    EXPECT_EQ(lines_of(log, "Error"),
              t_names{"get_wan_detect_enable: Unable to get network.auto_wan_detect.enable, treat it as off!"});
    remove_config("network");
    EXPECT_FALSE(get_wan_detect_enable());
}
