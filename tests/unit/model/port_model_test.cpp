// SPDX-License-Identifier: MIT
#include "model/port_model.h"

#include "model/banned.h"
#include "model/current_wan.h"
#include "model/tables.h"
#include "tests/unit/model/model_test.h"

namespace {

using model_release = t_model_test;

} // namespace

TEST_F(model_release, everything_is_freed_and_nothing_points_at_it_any_more)
{
    t_device *device = add_port("eth0");
    t_protocol *dhcp = add_proto("dhcp");
    set_dev_using_specific_proto(port_model.dev_hashmap_head, nullptr, device, dhcp, nullptr, nullptr);
    for (t_device **table :
         {&port_model.wan_port_pool, &port_model.lan_agg[0], &port_model.lan_agg[1], &port_model.gaming})
        add_device(table, create_new_device("eth0"));
    port_model.priority_order[0] = port_model.fake_wan = device;
    port_model.wan_dev = device;
    port_model.wan_proto = dhcp;
    add_unique_banned_device_to_list(port_model.dev_hashmap_head, &port_model.banned_list, "eth0", 30);

    t_log_capture log;
    release_port_model(&port_model);
    EXPECT_EQ(lines_of(log, "Error"), t_names{});
    for (t_device *table : {port_model.dev_hashmap_head, port_model.wan_port_pool, port_model.lan_agg[0],
                            port_model.lan_agg[1], port_model.gaming})
        EXPECT_EQ(table, nullptr);
    EXPECT_EQ(port_model.proto_hashmap_head, nullptr);
    EXPECT_EQ(port_model.banned_list.count, 0);
    EXPECT_EQ(port_model.banned_list.head.next, nullptr);
    EXPECT_EQ(port_model.wan_dev.load(), nullptr);
    EXPECT_EQ(port_model.wan_proto, nullptr);
    EXPECT_EQ(port_model.fake_wan, nullptr);
    EXPECT_EQ(port_model.priority_order[0], nullptr);
}

TEST_F(model_release, an_empty_model_is_released_silently_and_twice_is_fine)
{
    t_log_capture log;
    release_port_model(&port_model);
    release_port_model(&port_model);
    EXPECT_TRUE(log.lines().empty());
}
