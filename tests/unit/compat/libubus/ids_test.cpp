// SPDX-License-Identifier: MIT
// Ids of the daemon, with random numbers of the test's choice.
#include "compat/libubus/ubusd/bus.h"

#include <cstring>
#include <deque>
#include <gtest/gtest.h>
#include <unistd.h>

namespace {

std::deque<uint32_t> numbers;

} // namespace

// In place of read(): the next number, or a failure when there is none.
extern "C" ssize_t __wrap_read(int, void *into, size_t size)
{
    if (numbers.empty()) {
        return -1;
    }
    memcpy(into, &numbers.front(), size);
    numbers.pop_front();
    return static_cast<ssize_t>(size);
}

namespace {

using namespace ubusd;

class ids : public testing::Test {
protected:
    void SetUp() override
    {
        numbers.clear();
        initialise_table(table_);
    }

    avl_tree table_ = {};
};

TEST_F(ids, those_of_the_daemons_own_objects_are_never_given_out)
{
    numbers = {0, 1, 1023, 1024};
    id_node node = {};
    ASSERT_TRUE(assign_id(table_, node));
    EXPECT_EQ(node.id, 1024U);
}

TEST_F(ids, one_in_use_is_not_given_out_again)
{
    numbers = {5000, 5000, 6000, 5000};
    id_node first = {}, second = {}, third = {};
    ASSERT_TRUE(assign_id(table_, first));
    ASSERT_TRUE(assign_id(table_, second));
    EXPECT_EQ(second.id, 6000U);
    EXPECT_EQ(find_id(table_, 5000), &first);
    release_id(table_, first);
    EXPECT_EQ(find_id(table_, 5000), nullptr);
    ASSERT_TRUE(assign_id(table_, third));
    EXPECT_EQ(third.id, 5000U);
}

TEST_F(ids, without_random_numbers_there_is_none)
{
    id_node node = {};
    errno = EIO;
    EXPECT_FALSE(assign_id(table_, node));
}

} // namespace
