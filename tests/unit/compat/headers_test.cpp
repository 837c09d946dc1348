// SPDX-License-Identifier: MIT
// What the headers refuse to compile, as those of a router do, or more.
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <string>
#include <unistd.h>

#include <gtest/gtest.h>

namespace {

const std::string RECORDS = R"(
extern "C" {
#include <libubox/avl.h>
#include <libubox/list.h>
#include <libubus.h>
}
#include <uci.h>
struct t_record { int first; int numbers[4]; list_head link; avl_node node; };
)";

// Whether a function of these statements compiles behind the headers.
bool compiles(const std::string &statements)
{
    char path[] = "/tmp/headers-XXXXXX.cpp";
    const int fd = mkstemps(path, 4);
    close(fd);
    std::ofstream(path) << RECORDS << "void use(int *number, list_head *list, avl_tree *tree, uci_element *element,\n"
                        << "         uci_list *elements, uci_context *context)\n{\n"
                        << statements << "\n}\n";
    const std::string command = std::string(COMPILER) + " -std=gnu++20 -fsyntax-only " HEADERS " " + path + " 2>&1";
    FILE *errors = popen(command.c_str(), "r");
    std::string said(4096, '\0');
    said.resize(fread(said.data(), 1, said.size(), errors));
    const bool done = pclose(errors) == 0;
    EXPECT_TRUE(done || said.find("error:") != std::string::npos) << said;
    unlink(path);
    return done;
}

} // namespace

TEST(headers, take_a_record_from_a_pointer_to_its_member)
{
    EXPECT_TRUE(compiles("(void)container_of(number, t_record, first);"));
    EXPECT_TRUE(compiles("(void)container_of_safe(number, t_record, first);"));
    EXPECT_TRUE(
        compiles("t_record *r; list_for_each_entry(r, list, link) {} (void)list_first_entry(list, t_record, link);"));
    EXPECT_TRUE(
        compiles("t_record *r; avl_for_each_element(tree, r, node) {} r = avl_find_element(tree, number, r, node);"));
    EXPECT_TRUE(compiles("uci_foreach_element(elements, element) (void)uci_to_section(element);"));
    EXPECT_TRUE(compiles("(void)uci_to_backend(element);"));
}

TEST(headers, refuse_a_pointer_to_an_element_of_an_array_member)
{
    EXPECT_FALSE(compiles("(void)container_of(number, t_record, numbers);"));
    EXPECT_FALSE(compiles("(void)container_of_safe(number, t_record, numbers);"));
}

TEST(headers, refuse_a_pointer_to_something_else)
{
    EXPECT_FALSE(compiles("(void)container_of(list, t_record, first);"));
    EXPECT_FALSE(compiles("(void)list_entry(number, t_record, link);"));
    EXPECT_FALSE(compiles("t_record *r; list_for_each_entry(r, list, node) {}"));
    EXPECT_FALSE(compiles("t_record *r = avl_find_element(tree, number, r, link);"));
    EXPECT_FALSE(compiles("(void)list_to_element(element);"));
    for (const char *cast : {"uci_to_package", "uci_to_section", "uci_to_option", "uci_to_delta", "uci_to_backend"})
        EXPECT_FALSE(compiles(std::string("(void)") + cast + "(elements);")) << cast;
}

TEST(headers, offer_no_text_of_an_error)
{
    EXPECT_TRUE(compiles("(void)uci_load(context, \"network\", NULL);"));
    EXPECT_FALSE(compiles("uci_perror(context, \"network\");"));
    EXPECT_FALSE(compiles("char *text; uci_get_errorstr(context, &text, \"network\");"));
}
