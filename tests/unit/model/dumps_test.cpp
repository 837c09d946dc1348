// SPDX-License-Identifier: MIT
#include "model/dumps.h"

#include <cerrno>
#include <ctime>
#include <fcntl.h>
#include <pthread.h>
#include <unistd.h>

#include "model/port_model.h"
#include "platform/clock.h"
#include "platform/log.h"
#include "tests/unit/model/model_test.h"

namespace {

using dumps = t_model_test;

const std::string RULE(82, '-');
const std::string DEVICE_HEADER = "----------------------------------Dumping device----------------------------------\n"
                                  "\tName\tport_num\tsub_port\tactive\tlink_active\tproto\t\n";
const std::string PROTOCOL_HEADER =
    "----------------------------------Dumping protocols----------------------------------\n"
    "\tName\t\tis_ipv4\t\tdevices\t\n";

} // namespace

// holds: dump-levels
TEST_F(dumps, nothing_is_dumped_at_level_6)
{
    add_port("eth0");
    add_proto("dhcp");
    t_log_capture log(6);
    dump_all_device(port_model.dev_hashmap_head);
    dump_all_protocols(port_model.proto_hashmap_head);
    EXPECT_EQ(log.text(), "");
}

// holds: dump-levels
TEST_F(dumps, an_empty_device_table_still_shows_its_frame)
{
    t_log_capture log;
    dump_all_device(nullptr);
    EXPECT_EQ(log.text(), DEVICE_HEADER + RULE + "\n");
}

// holds: dump-levels
TEST_F(dumps, an_empty_protocol_table_still_shows_its_frame)
{
    t_log_capture log;
    dump_all_protocols(nullptr);
    EXPECT_EQ(log.text(), PROTOCOL_HEADER + RULE + "\n");
}

// holds: dump-device
TEST_F(dumps, a_device_without_protocol_shows_null_and_a_combo_port_on_its_fibre_side_sfp)
{
    t_device *first = add_port("eth0");
    first->sub_port = SUB_PORT_PHY;
    first->port_num = 4;
    first->active = 1;
    t_device *second = add_port("eth1");
    second->is_combo = 1;
    second->sub_port = SUB_PORT_SFP;
    second->link_active = 1;
    second->proto = add_proto("pppoe");
    t_device *third = add_port("eth2");
    third->is_combo = 1;
    third->sub_port = SUB_PORT_PHY;
    t_log_capture log;
    dump_all_device(port_model.dev_hashmap_head);
    EXPECT_EQ(log.text(), DEVICE_HEADER +
                              "\teth0\t4\t\tphy\t\ttrue\tfalse\t\tnull\t\n"
                              "\teth1\t-1\t\tsfp\t\tfalse\ttrue\t\tpppoe\t\n"
                              "\teth2\t-1\t\tphy\t\tfalse\tfalse\t\tnull\t\n" +
                              RULE + "\n");
}

TEST_F(dumps, a_protocol_shows_its_family_and_its_devices_in_list_order)
{
    t_protocol *dhcp = add_proto("dhcp");
    dhcp->is_ipv4 = 1;
    add_proto("slaac");
    for (t_device *device : {add_port("eth2", 2), add_port("eth1", 1)})
        set_dev_using_specific_proto(port_model.dev_hashmap_head, port_model.proto_hashmap_head, device, dhcp, nullptr,
                                     nullptr);
    t_log_capture log;
    dump_all_protocols(port_model.proto_hashmap_head);
    EXPECT_EQ(log.text(), PROTOCOL_HEADER + "\tdhcp\t\ttrue\t\teth1\teth2\n" + "\tslaac\t\tfalse\t\n" + RULE + "\n");
}

// holds: dump-waits
TEST_F(dumps, the_device_dump_waits_for_a_writer)
{
    add_port("eth0");
    t_log_capture log;
    pthread_rwlock_wrlock(&gate.locks.device_lock);
    pthread_t reader;
    ASSERT_EQ(pthread_create(
                  &reader, nullptr,
                  [](void *) -> void * {
                      dump_all_device(port_model.dev_hashmap_head);
                      return nullptr;
                  },
                  nullptr),
              0);
    timespec soon = {};
    clock_gettime(CLOCK_REALTIME, &soon);
    soon.tv_sec += 1;
    EXPECT_EQ(pthread_timedjoin_np(reader, nullptr, &soon), ETIMEDOUT);
    EXPECT_EQ(log.text().find("eth0"), std::string::npos);
    pthread_rwlock_unlock(&gate.locks.device_lock);
    ASSERT_EQ(pthread_join(reader, nullptr), 0);
    EXPECT_NE(log.text().find("eth0"), std::string::npos);
}

// holds: dump-waits
TEST_F(dumps, the_device_dump_gives_the_lock_back)
{
    t_log_capture log;
    dump_all_device(nullptr);
    ASSERT_EQ(pthread_rwlock_trywrlock(&gate.locks.device_lock), 0);
    pthread_rwlock_unlock(&gate.locks.device_lock);
}

// holds: log-reader-deaf
TEST_F(dumps, a_reader_that_reads_no_more_holds_nobody_up)
{
    add_port("eth0");
    add_proto("dhcp");
    t_log_capture log; // and the level
    int ends[2];
    ASSERT_EQ(pipe2(ends, O_CLOEXEC | O_NONBLOCK), 0);
    const int saved = dup(STDOUT_FILENO);
    dup2(ends[1], STDOUT_FILENO);
    const char page[4096] = {};
    while (write(ends[1], page, sizeof page) > 0)
        ;
    char read_since[2 * sizeof page];
    EXPECT_GT(read(ends[0], read_since, sizeof read_since), 0); // room for some dumps, not for all of these
    fcntl(ends[1], F_SETFL, O_WRONLY);
    const t_time_stamp start = get_time_stamp();
    for (int i = 0; i < 100; i++) {
        dump_all_device(port_model.dev_hashmap_head);
        dump_all_protocols(port_model.proto_hashmap_head);
    }
    const int64_t took_ms = milliseconds_since(start);
    dup2(saved, STDOUT_FILENO);
    for (int fd : {saved, ends[0], ends[1]})
        close(fd);
    EXPECT_LT(took_ms, 2 * LOG_WAIT_LIMIT_MS);
}
