// SPDX-License-Identifier: MIT
#include "model/port_model.h"

#include "platform/result_codes.h"
#include "tests/unit/model/model_test.h"
#include "tests/unit/support/failing_memory.h"

namespace {

class device_protocol : public t_model_test {
protected:
    device_protocol()
    {
        device = add_port("eth1", 1);
        pppoe = add_proto("pppoe", 1);
        dhcp = add_proto("dhcp", 2);
        ocn = add_proto("ocn", 0);
    }
    int set(t_device *dev, t_protocol *protocol)
    {
        return set_dev_using_specific_proto(port_model.dev_hashmap_head, port_model.proto_hashmap_head, dev, protocol,
                                            nullptr, nullptr);
    }
    int set_by_name(const char *dev, const char *protocol)
    {
        return set_dev_using_specific_proto(port_model.dev_hashmap_head, port_model.proto_hashmap_head, nullptr,
                                            nullptr, dev, protocol);
    }

    t_device *device;
    t_protocol *pppoe, *dhcp, *ocn;
};

const char FUNCTION[] = "set_dev_using_specific_proto";

} // namespace

// holds: record-protocol-codes
TEST_F(device_protocol, a_protocol_is_recorded_on_both_sides)
{
    t_log_capture log;
    EXPECT_EQ(set(device, dhcp), OK);
    EXPECT_EQ(device->proto.load(), dhcp);
    EXPECT_EQ(names_of(dhcp->devices), t_names{"eth1"});
    EXPECT_EQ(dhcp->devices.count, 1);
    EXPECT_TRUE(log.has("Info", FUNCTION, "Success change device:eth1 protocol from null to dhcp"));
}

TEST_F(device_protocol, names_serve_as_well_as_records)
{
    EXPECT_EQ(set_by_name("eth1", "pppoe"), OK);
    EXPECT_EQ(device->proto.load(), pppoe);
}

// holds: pppoe-kept
TEST_F(device_protocol, pppoe_is_kept_when_dhcp_is_offered)
{
    set(device, pppoe);
    t_log_capture log;
    EXPECT_EQ(set(device, dhcp), OK);
    EXPECT_EQ(device->proto.load(), pppoe);
    EXPECT_EQ(dhcp->devices.count, 0);
    EXPECT_EQ(lines_of(log, "Info"),
              t_names{"set_dev_using_specific_proto: Ignore change dev:eth1 proto from pppoe(prio:1) to dhcp(prio:2)"});
}

// holds: pppoe-kept
TEST_F(device_protocol, dhcp_yields_to_pppoe)
{
    set(device, dhcp);
    t_log_capture log;
    EXPECT_EQ(set(device, pppoe), OK);
    EXPECT_EQ(device->proto.load(), pppoe);
    EXPECT_EQ(dhcp->devices.count, 0);
    EXPECT_EQ(dhcp->devices.head.next, nullptr);
    EXPECT_EQ(names_of(pppoe->devices), t_names{"eth1"});
    EXPECT_TRUE(log.has("Info", FUNCTION, "Success change device:eth1 protocol from dhcp to pppoe"));
}

// holds: record-protocol-codes
TEST_F(device_protocol, the_same_protocol_again_is_ignored)
{
    set(device, dhcp);
    t_log_capture log;
    set(device, dhcp);
    EXPECT_TRUE(log.has("Info", FUNCTION, "Ignore change dev:eth1 proto from dhcp(prio:2) to dhcp(prio:2)"));
    EXPECT_EQ(dhcp->devices.count, 1);
}

TEST_F(device_protocol, a_protocol_outside_the_order_replaces_others_and_is_only_cleared)
{
    set(device, dhcp);
    set(device, ocn);
    EXPECT_EQ(device->proto.load(), ocn);
    set(device, pppoe);
    EXPECT_EQ(device->proto.load(), ocn);
    set(device, nullptr);
    EXPECT_EQ(device->proto.load(), nullptr);
}

TEST_F(device_protocol, clearing_takes_the_port_out_of_its_protocols_list)
{
    set(device, dhcp);
    t_log_capture log;
    EXPECT_EQ(set_by_name("eth1", nullptr), OK);
    EXPECT_EQ(device->proto.load(), nullptr);
    EXPECT_EQ(dhcp->devices.count, 0);
    EXPECT_TRUE(log.has("Debug", FUNCTION, "Clear device:eth1 now protocol!"));
    EXPECT_TRUE(log.has("Info", FUNCTION, "Success change device:eth1 protocol from dhcp to null"));
}

TEST_F(device_protocol, the_ports_of_a_protocol_stand_in_priority_order)
{
    for (t_device *each : {add_port("eth3", 3), add_port("eth2", 2), device})
        set(each, dhcp);
    EXPECT_EQ(names_of(dhcp->devices), (t_names{"eth1", "eth2", "eth3"}));
    EXPECT_EQ(dhcp->devices.count, 3);
}

// holds: record-protocol-codes
TEST_F(device_protocol, what_cannot_be_found_is_refused)
{
    t_log_capture log;
    EXPECT_EQ(set(nullptr, dhcp), ERR_INVALID_INPUT);
    EXPECT_EQ(set_by_name("eth9", "dhcp"), ERR_INVALID_INPUT);
    EXPECT_EQ(set_by_name("eth1", "nonsense"), ERR_INVALID_INPUT);
    EXPECT_EQ(set_by_name("eth1", ""), ERR_INVALID_INPUT);
    EXPECT_EQ(lines_of(log, "Error"),
              (t_names{"set_dev_using_specific_proto: Null input parameters device",
                       "set_dev_using_specific_proto: Can't find device eth9",
                       "set_dev_using_specific_proto: Can't find protocol nonsense",
                       "find_protocol: Invalid proto_name!", "set_dev_using_specific_proto: Can't find protocol "}));
    EXPECT_EQ(device->proto.load(), nullptr);
}

TEST_F(device_protocol, without_memory_the_port_has_its_protocol_but_is_not_listed)
{
    {
        t_memory_shortage shortage(0, sizeof(t_device_list));
        EXPECT_EQ(set(device, dhcp), OK);
    }
    EXPECT_EQ(device->proto.load(), dhcp);
    EXPECT_EQ(dhcp->devices.count, 0);
    set(device, nullptr);
    EXPECT_EQ(dhcp->devices.count, 0);
}

// holds: clear-protocols-codes
TEST_F(device_protocol, all_ports_lose_their_protocols)
{
    t_device *second = add_port("eth2", 2);
    add_port("eth3", 3);
    set(device, dhcp);
    set(second, pppoe);
    t_log_capture log;
    EXPECT_EQ(clear_all_dev_proto(&port_model), OK);
    EXPECT_EQ(device->proto.load(), nullptr);
    EXPECT_EQ(second->proto.load(), nullptr);
    EXPECT_EQ(lines_of(log, "Info"),
              (t_names{"set_dev_using_specific_proto: Success change device:eth1 protocol from dhcp to null",
                       "set_dev_using_specific_proto: Success change device:eth2 protocol from pppoe to null",
                       "set_dev_using_specific_proto: Success change device:eth3 protocol from null to null"}));
}

// holds: clear-protocols-codes
TEST_F(device_protocol, the_ports_of_one_protocol_lose_it_and_the_others_keep_theirs)
{
    t_device *second = add_port("eth2", 2), *third = add_port("eth3", 3);
    set(device, dhcp);
    set(second, pppoe);
    set(third, dhcp);
    EXPECT_EQ(clear_dev_proto_by_proto(&port_model, dhcp), OK);
    EXPECT_EQ(device->proto.load(), nullptr);
    EXPECT_EQ(second->proto.load(), pppoe);
    EXPECT_EQ(third->proto.load(), nullptr);
    EXPECT_EQ(dhcp->devices.count, 0);
}

// holds: clear-protocols-codes
TEST_F(device_protocol, an_empty_model_has_nothing_to_clear)
{
    release_port_model(&port_model);
    t_log_capture log;
    EXPECT_EQ(clear_all_dev_proto(&port_model), OK);
    EXPECT_EQ(clear_dev_proto_by_proto(&port_model, nullptr), OK);
    EXPECT_TRUE(log.lines().empty());
}
