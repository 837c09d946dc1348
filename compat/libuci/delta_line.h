// SPDX-License-Identifier: MIT
// One line of a delta file: reading, applying, writing.
#pragma once

#include "line_reader.h"

#include <uci.h>

namespace uci_impl {

struct delta_line {
    bool valid = false;
    bool is_cut = false; // its end is missing, so that anything appended would change what it says
    uci_command cmd = UCI_CMD_CHANGE;
    uci_ptr ptr = {}; // names only; they point into the reader's line and live until its next one
};

// The next line; one that makes no sense, or is about another package, is not valid.
// UCI_OK, UCI_ERR_NOTFOUND at the end, UCI_ERR_MEM.
int next_delta_line(line_reader *reader, const char *package, delta_line *line);

// Makes the change in the tree without recording it. The error of the edit, if it could not be made.
int apply_delta_line(uci_context *ctx, uci_package *package, delta_line *line);

// Keeps the line among the saved changes of the package, if the context wants that. UCI_OK or UCI_ERR_MEM.
int keep_saved_delta(uci_context *ctx, uci_package *package, const delta_line &line);

void write_delta_line(FILE *stream, const char *package, const uci_delta *delta);

} // namespace uci_impl
