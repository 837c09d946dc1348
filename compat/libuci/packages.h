// SPDX-License-Identifier: MIT
// Packages between memory and files: loading, the files they belong to, text in and out.
#pragma once

#include "edit.h"
#include "files.h"

#include <uci.h>

namespace uci_impl {

// The loaded package of that name or path, or null.
uci_package *find_package(uci_context *ctx, const char *name);

// Loads a package that is not loaded yet, with its waiting changes, and lists it in the context.
int load_package(uci_context *ctx, const char *name, uci_package **package);

// An empty package with the path its name leads to; not listed in the context yet.
int make_package(uci_context *ctx, const char *name, uci_package **package);

// Reads a text into the tree. Without record the package is being filled; with it, each line is an edit.
int parse_config(uci_context *ctx, const char *text, size_t size, uci_package *package, recording record);

// Reads a text whose own lines name the packages; each finished one is appended to the list.
int parse_packages(uci_context *ctx, const char *text, size_t size, uci_list *packages);

// Writes a package as text. UCI_ERR_IO if the stream failed.
int write_package(FILE *stream, uci_package *package, bool header, bool with_generated_names);

// Writes text between single quotes.
void write_quoted(FILE *stream, const char *text);

} // namespace uci_impl
