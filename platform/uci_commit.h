// SPDX-License-Identifier: MIT
// Commits that lose nothing. The library's own does not look whether what it wrote has come onto the disk before it
// puts it in the place of the old file.
#pragma once

#include <uci.h>

// Commits a package loaded in the context with its changes, unless the file holds them already. The library's code, and
// UCI_ERR_IO, with an Error line, when there is no room for the new file beside the old one: that stays whole, and the
// changes wait in the save folder, where they count.
int commit_uci_package(uci_context *context, uci_package **package);
