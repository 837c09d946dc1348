// SPDX-License-Identifier: MIT
// C and C++ units share the records.
#include <gtest/gtest.h>

extern "C" int sum_of_fields_in_c(void);

TEST(ubox_headers, work_in_a_c_program)
{
    EXPECT_EQ(sum_of_fields_in_c(), 7);
}
