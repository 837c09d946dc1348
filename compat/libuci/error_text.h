// SPDX-License-Identifier: MIT
// The text of a context's last error, for our own program. The header offers none: the calls that routers have for it
// are not safe.
#pragma once

#include "support.h"

namespace uci_impl {

// "prefix: text", or the text alone for a null prefix; null when memory has run out. A null context has been misused.
heap<char> describe_error(const uci_context *ctx, const char *prefix);

} // namespace uci_impl
