// SPDX-License-Identifier: MIT
// A directory of its own for each test, with a configuration and a save directory, and the built uci to run on them.
#pragma once

#include <uci.h>

#include <map>
#include <memory>
#include <string>
#include <vector>

#include <gtest/gtest.h>

struct outcome {
    int status;
    std::string out;
    std::string err;
};

struct free_context {
    void operator()(uci_context *ctx) const { uci_free_context(ctx); }
};
using context = std::unique_ptr<uci_context, free_context>;

std::string read_text(const std::string &path); // empty when missing
void write_text(const std::string &path, const std::string &text);
bool exists(const std::string &path);
// Name and content of every file of a directory, hidden ones too; empty when it is missing.
std::map<std::string, std::string> files_of(const std::string &directory);
// Adds a layer that can be written and thrown away, owned by this program.
void make_private_mounts();

class place : public testing::Test {
protected:
    place();
    ~place() override;

    std::string conf(const std::string &package = "") const
    {
        return root_ + "/conf" + (package.empty() ? "" : "/" + package);
    }
    std::string save(const std::string &package = "") const
    {
        return root_ + "/save" + (package.empty() ? "" : "/" + package);
    }
    std::string root() const { return root_; }
    void write_conf(const std::string &package, const std::string &text) const { write_text(conf(package), text); }
    void write_save(const std::string &package, const std::string &text) const;

    // A context on the two directories.
    context open() const;
    // uci with these arguments, as a shell would read them, in a given directory.
    outcome uci(const std::string &arguments, const std::string &directory = "/") const;

private:
    std::string root_;
};

// A lookup that keeps the text it refers to.
struct tuple {
    tuple(uci_context *ctx, const std::string &str, bool extended = true);

    std::string text;
    uci_ptr ptr = {};
    int rc = 0;
};

using edit_call = int (*)(uci_context *, uci_ptr *);
// Looks up and edits; the code of the first that fails.
int edit(uci_context *ctx, edit_call call, const std::string &str);

// The value; items of a list between bars ("a|b|"); "(none)" when there is no such option.
std::string value_of(uci_context *ctx, const std::string &str);
std::string exported(uci_context *ctx, const std::string &package);
std::string error_text(uci_context *ctx, const char *prefix = nullptr);
