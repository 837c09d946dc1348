// SPDX-License-Identifier: MIT
// What access lists allow others than root, and which files are no access lists.
#include "frames.h"
#include "tests/unit/support/own_place.h"

#include <csignal>
#include <fstream>
#include <sys/stat.h>
#include <unistd.h>

namespace {

constexpr uid_t NOBODY = 65534;
constexpr int ALLOWED = 0, REFUSED = 6;

class access_lists : public t_bus_test {
protected:
    void write_list(const std::string &name, const std::string &content, mode_t mode = 0644, uid_t owner = 0)
    {
        std::string path = folder_.path(name);
        std::ofstream(path) << content;
        ASSERT_EQ(chown(path.c_str(), owner, owner), 0);
        ASSERT_EQ(chmod(path.c_str(), mode), 0);
    }

    void restart()
    {
        daemon_->stop();
        daemon_.emplace(socket_, folder_.path("."));
    }

    // The status that nobody gets when it subscribes to an object of this name.
    int subscribe_to(const std::string &name)
    {
        t_connection owner = connect(), nobody = connect(NOBODY);
        uint32_t target = add_object(owner, name);
        nobody.send(frame(TYPE_ADD_OBJECT, 1, 0, ""));
        std::optional<t_bytes> ids = nobody.receive();
        EXPECT_TRUE(ids);
        EXPECT_EQ(receive_status(nobody), 0);
        t_bytes pair = attribute(3, word(word_at(*ids, 16))) + attribute(8, word(target));
        nobody.send(frame(TYPE_SUBSCRIBE, 2, 0, pair));
        int status = receive_status(nobody);
        owner.close();
        expect_alive(); // by now the name is free again
        return status;
    }

    void expect_soon(const std::string &name, int expected)
    {
        const auto deadline = std::chrono::steady_clock::now() + PATIENCE;
        int status;
        do {
            status = subscribe_to(name);
        } while (status != expected && std::chrono::steady_clock::now() < deadline);
        EXPECT_EQ(status, expected);
    }
};

TEST_F(access_lists, name_what_a_user_may_subscribe_to)
{
    NEEDS_OTHER_USERS();
    write_list("a.json", R"({"user":"nobody","subscribe":["exact","pre*"],"send":["sent"]})");
    restart();
    EXPECT_EQ(subscribe_to("exact"), ALLOWED);
    EXPECT_EQ(subscribe_to("exactly"), REFUSED);
    EXPECT_EQ(subscribe_to("prefix"), ALLOWED);
    EXPECT_EQ(subscribe_to("sent"), REFUSED);
}

TEST_F(access_lists, speak_for_one_user_or_one_group)
{
    NEEDS_OTHER_USERS();
    write_list("a.json", R"({"user":"daemon","subscribe":["of_another_user"]})");
    write_list("b.json", R"({"group":"nogroup","subscribe":["of_group"]})");
    write_list("c.json", R"({"subscribe":["of_nobody_named"]})");
    restart();
    EXPECT_EQ(subscribe_to("of_another_user"), REFUSED);
    EXPECT_EQ(subscribe_to("of_group"), ALLOWED);
    EXPECT_EQ(subscribe_to("of_nobody_named"), REFUSED);
}

TEST_F(access_lists, are_files_that_root_alone_can_write)
{
    NEEDS_OTHER_USERS();
    write_list("group.json", R"({"user":"nobody","subscribe":["group"]})", 0664);
    write_list("other.json", R"({"user":"nobody","subscribe":["other"]})", 0646);
    write_list("program.json", R"({"user":"nobody","subscribe":["program"]})", 0645);
    write_list("owner.json", R"({"user":"nobody","subscribe":["owner"]})", 0644, NOBODY);
    write_list("name.txt", R"({"user":"nobody","subscribe":["name"]})");
    write_list("good.json", R"({"user":"nobody","subscribe":["good"]})", 0600);
    ASSERT_EQ(mkdir(folder_.path("folder.json").c_str(), 0755), 0);
    restart();
    for (const char *name : {"group", "other", "program", "owner", "name"}) {
        EXPECT_EQ(subscribe_to(name), REFUSED) << name;
    }
    EXPECT_EQ(subscribe_to("good"), ALLOWED);
}

TEST_F(access_lists, that_make_no_sense_allow_nothing)
{
    NEEDS_OTHER_USERS();
    write_list("broken.json", R"({"user":"nobody","subscribe":["broken"])");
    write_list("empty.json", "");
    write_list("number.json", R"({"user":"nobody","subscribe":[7,{"number":1}],"access":{"number":7}})");
    write_list("text.json", R"({"user":"nobody","subscribe":"text"})");
    write_list("table.json", R"({"user":"nobody","subscribe":{"table":"table"}})");
    restart();
    for (const char *name : {"broken", "number", "text", "table"}) {
        EXPECT_EQ(subscribe_to(name), REFUSED) << name;
    }
}

TEST_F(access_lists, are_read_again_after_a_hang_up_signal)
{
    NEEDS_OTHER_USERS();
    restart();
    EXPECT_EQ(subscribe_to("o"), REFUSED);
    write_list("a.json", R"({"user":"nobody","subscribe":["*"]})");
    kill(daemon_->pid(), SIGHUP);
    expect_soon("o", ALLOWED);
    ASSERT_EQ(unlink(folder_.path("a.json").c_str()), 0);
    kill(daemon_->pid(), SIGHUP);
    expect_soon("o", REFUSED);
}

} // namespace
