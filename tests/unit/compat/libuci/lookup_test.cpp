// SPDX-License-Identifier: MIT
// What a lookup finds, against recorded answers and in the cases those leave out.
#include "place.h"

#include <cstring>
#include <filesystem>
#include <fstream>
#include <regex>

namespace {

const std::string recorded = WAN_DETECT_TEST_DATA "/golden/uci/00_lookup_api";

class lookup : public place {
protected:
    lookup()
    {
        std::filesystem::remove_all(conf());
        std::filesystem::copy(recorded + "/in", conf());
        ctx_ = open();
    }

    // Drops what the last lookup loaded.
    void forget()
    {
        while (!uci_list_empty(&ctx_->root))
            ASSERT_EQ(uci_unload(ctx_.get(), uci_to_package(list_to_element(ctx_->root.next))), UCI_OK);
    }

    context ctx_;
};

std::string text_or_dash(const char *text)
{
    return text != nullptr ? text : "-";
}

// A lookup in the words of the recording.
std::string described(const tuple &t)
{
    const uci_ptr &ptr = t.ptr;
    std::string names = std::string((ptr.flags & uci_ptr::UCI_LOOKUP_DONE) != 0 ? "D" : "") +
                        ((ptr.flags & uci_ptr::UCI_LOOKUP_COMPLETE) != 0 ? "C" : "") +
                        ((ptr.flags & uci_ptr::UCI_LOOKUP_EXTENDED) != 0 ? "X" : "");
    std::string text = "ret=" + std::to_string(t.rc) + " flags=" + std::to_string(ptr.flags) + "(" + names +
                       ") target=" + std::to_string(ptr.target) + " p=" + (ptr.p ? "1" : "0") +
                       " s=" + (ptr.s ? "1" : "0") + " o=" + (ptr.o ? "1" : "0") +
                       " last=" + (ptr.last ? std::to_string(ptr.last->type) : "NULL") +
                       " package=" + text_or_dash(ptr.package) + " section=" + text_or_dash(ptr.section) +
                       " option=" + text_or_dash(ptr.option) + " value=" + text_or_dash(ptr.value);
    if (ptr.o != nullptr)
        text += " otype=" + std::to_string(ptr.o->type);
    if (ptr.o != nullptr && ptr.o->type == UCI_TYPE_STRING)
        text += " string=" + std::string(ptr.o->v.string);
    return text;
}

TEST_F(lookup, every_recorded_lookup_answers_the_same)
{
    std::ifstream file(recorded + "/lookup.txt");
    std::regex form("(.*?) +ext=([01]) (ret=.*)");
    std::string line;
    int count = 0;
    while (std::getline(file, line)) {
        std::smatch part;
        if (line[0] == '#')
            continue;
        ASSERT_TRUE(std::regex_match(line, part, form)) << line;
        EXPECT_EQ(described(tuple(ctx_.get(), part[1], part[2] == "1")), part[3]) << line;
        forget();
        count++;
    }
    EXPECT_EQ(count, 58);
}

std::string described_edit(uci_context *ctx, const std::string &str, const std::string &call, bool with_pointers)
{
    const std::map<std::string, edit_call> calls = {
        {"set", uci_set}, {"delete", uci_delete}, {"add_list", uci_add_list}, {"del_list", uci_del_list}};
    tuple t(ctx, str);
    std::string text = "lookup=" + std::to_string(t.rc);
    if (t.rc != UCI_OK)
        return text;
    text += " " + call + "=" + std::to_string(calls.at(call)(ctx, &t.ptr));
    if (with_pointers)
        text += std::string(" p.s=") + (t.ptr.s ? "1" : "0") + " p.o=" + (t.ptr.o ? "1" : "0");
    return text;
}

TEST_F(lookup, every_recorded_edit_in_one_context_answers_the_same)
{
    std::ifstream file(recorded + "/edit_api.txt");
    std::regex form("(.*?) +(lookup=\\d( (\\w+)=\\d( p.s=.*)?)?)");
    std::string line;
    int count = 0;
    while (std::getline(file, line)) {
        std::smatch part;
        if (line[0] == '#')
            continue;
        ASSERT_TRUE(std::regex_match(line, part, form)) << line;
        EXPECT_EQ(described_edit(ctx_.get(), part[1], part[4], part[5].matched), part[2]) << line;
        count++;
    }
    EXPECT_EQ(count, 34);

    tuple net(ctx_.get(), "net");
    EXPECT_EQ(uci_commit(ctx_.get(), &net.ptr.p, false), UCI_OK);
    EXPECT_EQ(read_text(conf("net")), read_text(recorded + "/after_net"));
    EXPECT_EQ(read_text(save("net")), read_text(recorded + "/delta_after_commit.txt"));
}

TEST_F(lookup, a_control_byte_in_the_value_is_no_tuple)
{
    EXPECT_EQ(tuple(ctx_.get(), "net.lan.ipaddr=a\x01").rc, UCI_ERR_PARSE);
    EXPECT_EQ(tuple(ctx_.get(), "net.lan.ipaddr=a\tb\nc").rc, UCI_OK);
    EXPECT_TRUE(uci_validate_text("a\tb\nc \xc3\xa9"));
    EXPECT_FALSE(uci_validate_text("a\x1b"));
}

TEST_F(lookup, names_already_in_the_pointer_are_looked_up)
{
    uci_ptr ptr = {};
    ptr.package = "net";
    ptr.section = "lan";
    ptr.option = "ipaddr";
    ASSERT_EQ(uci_lookup_ptr(ctx_.get(), &ptr, nullptr, true), UCI_OK);
    EXPECT_STREQ(ptr.o->v.string, "192.0.2.1");
    EXPECT_EQ(ptr.target, UCI_TYPE_OPTION);

    ptr = {};
    ptr.package = "net";
    ptr.section = "@rule[1]";
    ASSERT_EQ(uci_lookup_ptr(ctx_.get(), &ptr, nullptr, true), UCI_OK);
    EXPECT_EQ(ptr.s, nullptr) << "an index is one only where the caller says so";
    ptr.flags = uci_ptr::UCI_LOOKUP_EXTENDED;
    ASSERT_EQ(uci_lookup_ptr(ctx_.get(), &ptr, nullptr, true), UCI_OK);
    ASSERT_NE(ptr.s, nullptr);
    EXPECT_STREQ(ptr.section, "cfg0592bd");
}

TEST_F(lookup, elements_already_in_the_pointer_give_their_names)
{
    tuple lan(ctx_.get(), "net.lan");
    uci_ptr ptr = {};
    ptr.s = lan.ptr.s;
    ptr.option = "proto";
    ASSERT_EQ(uci_lookup_ptr(ctx_.get(), &ptr, nullptr, true), UCI_OK);
    EXPECT_STREQ(ptr.package, "net");
    EXPECT_STREQ(ptr.section, "lan");
    EXPECT_STREQ(ptr.o->v.string, "static");
}

TEST_F(lookup, nothing_to_look_up_is_an_invalid_argument)
{
    uci_ptr ptr = {};
    char name[] = "net";
    EXPECT_EQ(uci_lookup_ptr(ctx_.get(), nullptr, name, true), UCI_ERR_INVAL);
    EXPECT_EQ(uci_lookup_ptr(nullptr, &ptr, name, true), UCI_ERR_INVAL);
    EXPECT_EQ(uci_lookup_ptr(ctx_.get(), &ptr, nullptr, true), UCI_ERR_INVAL);
}

TEST_F(lookup, parsing_alone_loads_nothing)
{
    uci_ptr ptr = {};
    char text[] = "nosuch.@rule[1].name=v=w";
    ASSERT_EQ(uci_parse_ptr(ctx_.get(), &ptr, text), UCI_OK);
    EXPECT_STREQ(ptr.package, "nosuch");
    EXPECT_STREQ(ptr.section, "@rule[1]");
    EXPECT_STREQ(ptr.option, "name");
    EXPECT_STREQ(ptr.value, "v=w");
    EXPECT_EQ(ptr.flags, uci_ptr::UCI_LOOKUP_EXTENDED);
    EXPECT_EQ(ptr.p, nullptr);
    EXPECT_TRUE(uci_list_empty(&ctx_->root));
}

TEST_F(lookup, an_index_as_large_as_a_number_can_be_finds_nothing)
{
    for (const char *str :
         {"net.@rule[99999999999999999999]", "net.@rule[-99999999999999999999]", "net.@[2147483648]"}) {
        tuple t(ctx_.get(), str);
        EXPECT_EQ(t.rc, UCI_OK) << str;
        EXPECT_EQ(t.ptr.s, nullptr) << str;
    }
}

TEST_F(lookup, the_next_element_of_a_name_is_found)
{
    tuple net(ctx_.get(), "net");
    uci_element *e = nullptr;
    EXPECT_EQ(uci_lookup_next(ctx_.get(), &e, &net.ptr.p->sections, "wan"), UCI_OK);
    ASSERT_NE(e, nullptr);
    EXPECT_STREQ(uci_to_section(e)->type, "interface");
    EXPECT_EQ(uci_lookup_next(ctx_.get(), &e, &net.ptr.p->sections, "wan"), UCI_ERR_NOTFOUND);
}

TEST_F(lookup, a_section_is_taken_apart_by_a_table_of_options)
{
    tuple main(ctx_.get(), "net.main");
    const uci_parse_option table[] = {{"ntp", UCI_TYPE_LIST},
                                      {"hostname", UCI_TYPE_STRING},
                                      {"timezone", UCI_TYPE_LIST},
                                      {"nosuch", UCI_TYPE_STRING}};
    uci_option *found[4];
    memset(found, 0xa5, sizeof(found));
    uci_parse_section(main.ptr.s, table, 4, found);
    ASSERT_NE(found[0], nullptr);
    ASSERT_NE(found[1], nullptr);
    EXPECT_STREQ(found[1]->v.string, "router");
    EXPECT_EQ(found[2], nullptr) << "a string is no list";
    EXPECT_EQ(found[3], nullptr);
}

TEST_F(lookup, elements_can_be_walked_and_removed_on_the_way)
{
    tuple net(ctx_.get(), "net");
    uci_element *e = nullptr;
    uci_element *next = nullptr;
    std::string names;
    uci_foreach_element(&net.ptr.p->sections, e)
    {
        EXPECT_EQ(e->type, UCI_TYPE_SECTION);
        EXPECT_EQ(uci_to_section(e)->package, net.ptr.p);
        names += std::string(uci_to_section(e)->anonymous ? "*" : e->name) + " ";
    }
    EXPECT_EQ(names, "main lan wan * * ");
    uci_foreach_element_safe(&net.ptr.p->sections, next, e)
    {
        uci_ptr ptr = {};
        ptr.s = uci_to_section(e);
        EXPECT_EQ(uci_delete(ctx_.get(), &ptr), UCI_OK);
    }
    EXPECT_TRUE(uci_list_empty(&net.ptr.p->sections));
}

} // namespace
