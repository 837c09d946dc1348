// SPDX-License-Identifier: MIT
// The numbers behind the names that the other tests use: other programs see them as "err_code", people in the log.
#include "platform/result_codes.h"

#include <gtest/gtest.h>

#include "adapters/link_status.h"
#include "adapters/network_status.h"
#include "core/link_scan.h"
#include "platform/bus.h"

// holds: result-codes
TEST(result_codes, of_failures_are_told_by_their_numbers)
{
    EXPECT_EQ(OK, 0);
    EXPECT_EQ(ERR_INVALID_INPUT, -99);
    EXPECT_EQ(ERR_NO_MEMORY, -98);
    EXPECT_EQ(ERR_ALREADY_PRESENT, -97);
    EXPECT_EQ(ERR_NOTHING_DONE, -96);
    EXPECT_EQ(ERR_CONFIG_PACKAGE, -95);
    EXPECT_EQ(ERR_CONFIG_VALUE, -94);
    EXPECT_EQ(ERR_BUS_OBJECT, -93);
    EXPECT_EQ(ERR_BUSY, -85);
}

// holds: result-codes
TEST(result_codes, of_probes_are_told_by_their_numbers)
{
    EXPECT_EQ(DEVICE_WITHOUT_LINK, 99);
    EXPECT_EQ(PROBE_NO_BATCH, 98);
    EXPECT_EQ(PROBE_ALL_ANSWERED, 97);
    EXPECT_EQ(PROBE_SOME_SILENT, 96);
    EXPECT_EQ(PROBE_WAITING, 0);
}

// holds: bus-status-reply, status-codes
TEST(result_codes, of_the_network_are_told_by_their_numbers)
{
    EXPECT_EQ(NETWORK_UNKNOWN, -2);
    EXPECT_EQ(NETWORK_DISCONNECTED, -1);
    EXPECT_EQ(NETWORK_CONNECTED, 0);
    EXPECT_EQ(NETWORK_CONNECTING, 1);
    EXPECT_EQ(NETWORK_POOR_CONNECTED, 2);
}

// holds: bus-call-time, script-output-bound
TEST(limits, of_script_output_and_bus_calls_are_the_agreed_ones)
{
    EXPECT_EQ(PORT_STATE_SIZE, 512u);
    EXPECT_EQ(COMBO_STATE_SIZE, 128u);
    EXPECT_EQ(BUS_CALL_TIMEOUT_MS, 1000);
}
