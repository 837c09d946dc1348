// SPDX-License-Identifier: MIT
#include "place.h"

#include "compat/libuci/error_text.h"
#include "tests/unit/support/own_place.h"
#include "tests/unit/support/this_build.h"

#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <sched.h>
#include <sstream>
#include <sys/mount.h>
#include <sys/wait.h>
#include <unistd.h>

namespace fs = std::filesystem;

// The default save and override directories belong to this program alone, and are empty.
void make_private_mounts()
{
    enter_namespaces();
    require(mount("tmpfs", "/run", "tmpfs", 0, "mode=755") == 0, "tmpfs on /run");
    lay_over("/tmp", "/run/layer", {fs::path(UCI_SAVEDIR).filename()});
    fs::remove_all(UCI_CONF2DIR);
}

int main(int argc, char **argv)
{
    bool listing = false;
    for (int i = 1; i < argc; ++i)
        listing = listing || strncmp(argv[i], "--gtest_list_tests", strlen("--gtest_list_tests")) == 0;
    testing::InitGoogleTest(&argc, argv);
    if (!listing)
        make_private_mounts();
    return RUN_ALL_TESTS();
}

std::string read_text(const std::string &path)
{
    std::ifstream file(path, std::ios::binary);
    std::ostringstream text;
    text << file.rdbuf();
    return text.str();
}

void write_text(const std::string &path, const std::string &text)
{
    std::ofstream file(path, std::ios::binary | std::ios::trunc);
    file << text;
    ASSERT_TRUE(file.flush()) << path;
}

bool exists(const std::string &path)
{
    return fs::exists(fs::symlink_status(path));
}

std::map<std::string, std::string> files_of(const std::string &directory)
{
    std::map<std::string, std::string> files;
    if (!fs::is_directory(directory))
        return files;
    for (const fs::directory_entry &entry : fs::directory_iterator(directory))
        files[entry.path().filename()] = read_text(entry.path());
    return files;
}

place::place()
{
    char path[] = "/run/uci-XXXXXX";
    require(mkdtemp(path) != nullptr, "mkdtemp");
    root_ = path;
    fs::create_directory(conf());
}

place::~place()
{
    fs::remove_all(root_);
}

void place::write_save(const std::string &package, const std::string &text) const
{
    fs::create_directory(save());
    write_text(save(package), text);
}

context place::open() const
{
    context ctx(uci_alloc_context());
    uci_set_confdir(ctx.get(), conf().c_str());
    uci_set_savedir(ctx.get(), save().c_str());
    return ctx;
}

outcome place::uci(const std::string &arguments, const std::string &directory) const
{
    std::string out = root_ + "/out";
    std::string err = root_ + "/err";
    std::string command = "cd '" + directory + "' && PATH='" + BIN_FOLDER + "':\"$PATH\" && { uci -c '" + conf() +
                          "' -t '" + save() + "' " + arguments + "\n} >'" + out + "' 2>'" + err + "' </dev/null";
    int status = system(command.c_str());
    EXPECT_TRUE(WIFEXITED(status)) << command;
    return {WEXITSTATUS(status), read_text(out), read_text(err)};
}

tuple::tuple(uci_context *ctx, const std::string &str, bool extended) : text(str)
{
    memset(&ptr, 0xa5, sizeof(ptr)); // whatever was there before must not matter
    rc = uci_lookup_ptr(ctx, &ptr, text.data(), extended);
}

int edit(uci_context *ctx, edit_call call, const std::string &str)
{
    tuple t(ctx, str);
    return t.rc != UCI_OK ? t.rc : call(ctx, &t.ptr);
}

std::string value_of(uci_context *ctx, const std::string &str)
{
    tuple t(ctx, str);
    if (t.rc != UCI_OK || t.ptr.o == nullptr)
        return "(none)";
    if (t.ptr.o->type == UCI_TYPE_STRING)
        return t.ptr.o->v.string;
    std::string items;
    uci_element *e = nullptr;
    uci_foreach_element(&t.ptr.o->v.list, e)
    {
        EXPECT_EQ(e->type, UCI_TYPE_ITEM);
        items += std::string(e->name) + "|";
    }
    return items;
}

std::string exported(uci_context *ctx, const std::string &package)
{
    tuple t(ctx, package);
    char *text = nullptr;
    size_t size = 0;
    FILE *stream = open_memstream(&text, &size);
    int rc = t.rc == UCI_OK ? uci_export(ctx, stream, t.ptr.p, false) : t.rc;
    fclose(stream);
    std::string result(text, size);
    free(text);
    return rc == UCI_OK ? result : "(error " + std::to_string(rc) + ")";
}

std::string error_text(uci_context *ctx, const char *prefix)
{
    uci_impl::heap<char> text = uci_impl::describe_error(ctx, prefix);
    return text != nullptr ? text.get() : "(none)";
}
