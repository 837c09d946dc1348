// SPDX-License-Identifier: MIT
// Changes in memory through the library.
#include "place.h"

#include <cstring>

namespace {

class editing : public place {
protected:
    editing()
    {
        write_conf("net", "config t 'main'\n\toption name 'router'\n\tlist dns 'a'\n\tlist dns 'b'\n\tlist dns 'a'\n"
                          "config rule\n\toption n 'first'\nconfig rule\n\toption n 'second'\n");
        ctx_ = open();
    }

    int set(const std::string &str) { return edit(ctx_.get(), uci_set, str); }
    int remove(const std::string &str) { return edit(ctx_.get(), uci_delete, str); }
    int add_list(const std::string &str) { return edit(ctx_.get(), uci_add_list, str); }
    int del_list(const std::string &str) { return edit(ctx_.get(), uci_del_list, str); }
    int rename(const std::string &str) { return edit(ctx_.get(), uci_rename, str); }
    std::string value(const std::string &str) { return value_of(ctx_.get(), str); }

    // The changes as they would wait in the save directory.
    std::string saved()
    {
        tuple net(ctx_.get(), "net");
        EXPECT_EQ(uci_save(ctx_.get(), net.ptr.p), UCI_OK);
        return read_text(save("net"));
    }

    std::string committed()
    {
        tuple net(ctx_.get(), "net");
        EXPECT_EQ(uci_commit(ctx_.get(), &net.ptr.p, false), UCI_OK);
        return read_text(conf("net"));
    }

    context ctx_;
};

TEST_F(editing, setting_the_same_value_is_no_change)
{
    EXPECT_EQ(set("net.main.name=router"), UCI_OK);
    EXPECT_EQ(set("net.main=t"), UCI_OK);
    EXPECT_EQ(saved(), "");
    EXPECT_FALSE(exists(save()));
}

TEST_F(editing, a_new_value_keeps_the_place_of_the_option)
{
    EXPECT_EQ(set("net.main.name=a much longer name"), UCI_OK);
    EXPECT_EQ(set("net.main.dns=one"), UCI_OK);
    EXPECT_EQ(set("net.main.extra=x"), UCI_OK);
    EXPECT_EQ(exported(ctx_.get(), "net")
                  .find("\toption name 'a much longer name'\n\toption dns 'one'\n\toption extra 'x'\n"),
              strlen("\nconfig t 'main'\n"));
}

TEST_F(editing, the_pointer_follows_a_set)
{
    tuple t(ctx_.get(), "net.main.fresh=1");
    ASSERT_EQ(uci_set(ctx_.get(), &t.ptr), UCI_OK);
    ASSERT_NE(t.ptr.o, nullptr);
    EXPECT_STREQ(t.ptr.o->v.string, "1");
    EXPECT_EQ(t.ptr.last, &t.ptr.o->e);
    t.ptr.value = "a value of another length";
    ASSERT_EQ(uci_set(ctx_.get(), &t.ptr), UCI_OK);
    EXPECT_STREQ(t.ptr.o->v.string, "a value of another length");
    EXPECT_EQ(t.ptr.last, &t.ptr.o->e) << "never left pointing at freed memory";
}

TEST_F(editing, four_names_without_a_lookup_are_enough)
{
    uci_ptr ptr = {};
    ptr.package = "net";
    ptr.section = "main";
    ptr.option = "name";
    ptr.value = "direct";
    EXPECT_EQ(uci_set(ctx_.get(), &ptr), UCI_OK);
    EXPECT_EQ(value("net.main.name"), "direct");
    ptr = {};
    ptr.package = "nosuch";
    ptr.section = "main";
    ptr.value = "t";
    EXPECT_EQ(uci_set(ctx_.get(), &ptr), UCI_ERR_NOTFOUND);
}

TEST_F(editing, the_section_must_exist_for_an_option)
{
    EXPECT_EQ(set("net.nosuch.x=1"), UCI_ERR_INVAL);
    EXPECT_EQ(set("net.nosuch.x="), UCI_ERR_INVAL);
    EXPECT_EQ(set("net.@rule[2].x=1"), UCI_ERR_INVAL);
    EXPECT_EQ(set("net.@rule[2]=t"), UCI_ERR_INVAL);
    EXPECT_EQ(set("net.main.name"), UCI_ERR_INVAL);
    EXPECT_EQ(set("net=x"), UCI_ERR_INVAL);
    EXPECT_EQ(set("net.main=bad type"), UCI_ERR_INVAL);
    EXPECT_EQ(saved(), "");
}

TEST_F(editing, an_empty_value_deletes_what_exists)
{
    EXPECT_EQ(set("net.main.name="), UCI_OK);
    EXPECT_EQ(set("net.main.nosuch="), UCI_OK);
    EXPECT_EQ(set("net.nosuch="), UCI_OK);
    EXPECT_EQ(set("net.@rule[0]="), UCI_OK);
    EXPECT_EQ(value("net.main.name"), "(none)");
    EXPECT_EQ(value("net.@rule[0].n"), "second");
    EXPECT_EQ(saved(), "-net.main.name\n-net.cfg0292bd\n");
}

TEST_F(editing, a_list_item_is_deleted_by_its_number)
{
    EXPECT_EQ(remove("net.main.dns=1"), UCI_OK);
    EXPECT_EQ(value("net.main.dns"), "a|a|");
    EXPECT_EQ(remove("net.main.dns=2"), UCI_OK) << "past the end: nothing";
    EXPECT_EQ(remove("net.main.dns=-1"), UCI_OK);
    EXPECT_EQ(remove("net.main.dns=x"), UCI_ERR_MEM);
    EXPECT_EQ(value("net.main.dns"), "a|a|");
    EXPECT_EQ(saved(), "-net.main.dns='1'\n");
    EXPECT_EQ(remove("net.main.name=0"), UCI_OK) << "a plain option goes as a whole";
    EXPECT_EQ(value("net.main.name"), "(none)");
}

TEST_F(editing, deleting_what_is_not_there_is_an_error)
{
    EXPECT_EQ(remove("net.main.nosuch"), UCI_ERR_NOTFOUND);
    EXPECT_EQ(remove("net.nosuch"), UCI_ERR_NOTFOUND);
    EXPECT_EQ(remove("net.@rule[7]"), UCI_ERR_NOTFOUND);
    EXPECT_EQ(remove("net"), UCI_ERR_INVAL);
}

TEST_F(editing, an_option_becomes_a_list_with_its_old_value_first)
{
    EXPECT_EQ(add_list("net.main.name=second"), UCI_OK);
    EXPECT_EQ(value("net.main.name"), "router|second|");
    EXPECT_EQ(add_list("net.main.fresh=one"), UCI_OK);
    EXPECT_EQ(value("net.main.fresh"), "one|");
    EXPECT_EQ(add_list("net.main.fresh="), UCI_OK);
    EXPECT_EQ(value("net.main.fresh"), "one||");
}

TEST_F(editing, a_list_needs_section_option_and_value)
{
    EXPECT_EQ(add_list("net.nosuch.x=1"), UCI_ERR_INVAL);
    EXPECT_EQ(add_list("net.main.dns"), UCI_ERR_INVAL);
    // Accepting this would break the section in memory.
    EXPECT_EQ(add_list("net.main=x"), UCI_ERR_INVAL);
    EXPECT_EQ(del_list("net.nosuch.x=1"), UCI_ERR_INVAL);
    EXPECT_EQ(del_list("net.main.dns"), UCI_ERR_INVAL);
    EXPECT_EQ(exported(ctx_.get(), "net").find("\nconfig t 'main'\n\toption name 'router'\n\tlist dns 'a'\n"), 0u);
}

TEST_F(editing, every_equal_item_is_removed_from_a_list)
{
    EXPECT_EQ(del_list("net.main.dns=a"), UCI_OK);
    EXPECT_EQ(value("net.main.dns"), "b|");
    EXPECT_EQ(del_list("net.main.dns=zzz"), UCI_OK);
    EXPECT_EQ(del_list("net.main.nosuch=a"), UCI_OK);
    EXPECT_EQ(del_list("net.main.name=router"), UCI_OK);
    EXPECT_EQ(value("net.main.name"), "router");
    EXPECT_EQ(saved(), "~net.main.dns='a'\n~net.main.dns='zzz'\n");
}

TEST_F(editing, an_item_may_be_removed_by_its_own_text)
{
    tuple t(ctx_.get(), "net.main.dns");
    t.ptr.value = list_to_element(t.ptr.o->v.list.next)->name;
    EXPECT_EQ(uci_del_list(ctx_.get(), &t.ptr), UCI_OK);
    EXPECT_EQ(value("net.main.dns"), "b|");
}

TEST_F(editing, a_list_without_items_is_not_written)
{
    EXPECT_EQ(del_list("net.main.dns=a"), UCI_OK);
    EXPECT_EQ(del_list("net.main.dns=b"), UCI_OK);
    EXPECT_EQ(committed().find("dns"), std::string::npos);
    EXPECT_EQ(value("net.main.dns"), "(none)");
}

TEST_F(editing, sections_are_added_without_a_name)
{
    tuple net(ctx_.get(), "net");
    uci_section *section = nullptr;
    ASSERT_EQ(uci_add_section(ctx_.get(), net.ptr.p, "rule", &section), UCI_OK);
    EXPECT_STREQ(section->e.name, "cfg0492bd");
    EXPECT_TRUE(section->anonymous);
    uci_ptr ptr = {};
    ptr.p = net.ptr.p;
    ptr.s = section;
    ptr.option = "n";
    ptr.value = "third";
    EXPECT_EQ(uci_set(ctx_.get(), &ptr), UCI_OK);
    EXPECT_EQ(committed().find("config rule\n\toption n 'third'\n"), committed().rfind("config rule\n"));
    EXPECT_EQ(uci_add_section(ctx_.get(), nullptr, "rule", &section), UCI_ERR_INVAL);
}

TEST_F(editing, a_type_of_another_length_makes_the_generated_name_permanent)
{
    EXPECT_EQ(set("net.@rule[0]=elur"), UCI_OK);
    EXPECT_EQ(set("net.@rule[0]=longer"), UCI_OK);
    std::string text = committed();
    EXPECT_NE(text.find("config elur\n\toption n 'first'"), std::string::npos) << text;
    EXPECT_NE(text.find("config longer 'cfg0392bd'\n\toption n 'second'"), std::string::npos) << text;
}

TEST_F(editing, a_name_is_given_and_taken_away)
{
    EXPECT_EQ(rename("net.@rule[0]=named"), UCI_OK);
    EXPECT_EQ(rename("net.named.n=m"), UCI_OK);
    EXPECT_EQ(rename("net.nosuch=x"), UCI_ERR_NOTFOUND);
    EXPECT_EQ(rename("net.main.nosuch=x"), UCI_ERR_NOTFOUND);
    EXPECT_EQ(rename("net=x"), UCI_ERR_INVAL);
    EXPECT_EQ(value("net.named.m"), "first");
    EXPECT_EQ(saved(), "@net.cfg0292bd='named'\n@net.named.n='m'\n");
}

TEST_F(editing, a_name_in_use_is_not_given_twice)
{
    EXPECT_EQ(rename("net.@rule[0]=main"), UCI_ERR_DUPLICATE);
    EXPECT_EQ(rename("net.main.name=dns"), UCI_ERR_DUPLICATE);
    EXPECT_EQ(rename("net.main=main"), UCI_OK);
}

TEST_F(editing, sections_are_moved)
{
    tuple second(ctx_.get(), "net.@rule[1]"), main(ctx_.get(), "net.main");
    EXPECT_EQ(uci_reorder_section(ctx_.get(), second.ptr.s, 0), UCI_OK);
    EXPECT_EQ(uci_reorder_section(ctx_.get(), main.ptr.s, 99), UCI_OK);
    EXPECT_EQ(uci_reorder_section(ctx_.get(), nullptr, 0), UCI_ERR_INVAL);
    EXPECT_EQ(value("net.@[0].n"), "second");
    EXPECT_EQ(value("net.@[-1].name"), "router");
    EXPECT_EQ(saved(), "^net.cfg0392bd='0'\n^net.main='99'\n");
}

TEST_F(editing, a_bad_name_set_through_the_fields_is_dropped_when_read_again)
{
    uci_ptr ptr = {};
    ptr.package = "net";
    ptr.section = "bad-name";
    ptr.value = "t";
    EXPECT_EQ(uci_set(ctx_.get(), &ptr), UCI_OK);
    EXPECT_EQ(set("net.main.name=kept"), UCI_OK);
    EXPECT_EQ(saved(), "net.bad-name='t'\nnet.main.name='kept'\n");
    std::string text = committed();
    EXPECT_EQ(text.find("bad-name"), std::string::npos);
    EXPECT_NE(text.find("option name 'kept'"), std::string::npos);
}

TEST_F(editing, a_missing_context_or_pointer_is_an_invalid_argument)
{
    uci_ptr ptr = {};
    for (edit_call call : {uci_set, uci_delete, uci_rename, uci_add_list, uci_del_list, uci_revert}) {
        EXPECT_EQ(call(nullptr, &ptr), UCI_ERR_INVAL);
        EXPECT_EQ(call(ctx_.get(), nullptr), UCI_ERR_INVAL);
    }
}

} // namespace
