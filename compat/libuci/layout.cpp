// SPDX-License-Identifier: MIT
// The records of uci.h are shared with programs built against other copies of the header: their shape must not move.
#include <uci.h>

#ifdef __LP64__

static_assert(sizeof(uci_list) == 16);

static_assert(sizeof(uci_element) == 32);
static_assert(offsetof(uci_element, type) == 16 && offsetof(uci_element, name) == 24);

static_assert(sizeof(uci_package) == 128);
static_assert(offsetof(uci_package, sections) == 32 && offsetof(uci_package, ctx) == 48);
static_assert(offsetof(uci_package, has_delta) == 56 && offsetof(uci_package, uses_conf2) == 57);
static_assert(offsetof(uci_package, path) == 64 && offsetof(uci_package, n_section) == 88);
static_assert(offsetof(uci_package, delta) == 96 && offsetof(uci_package, saved_delta) == 112);

static_assert(sizeof(uci_section) == 72);
static_assert(offsetof(uci_section, options) == 32 && offsetof(uci_section, package) == 48);
static_assert(offsetof(uci_section, anonymous) == 56 && offsetof(uci_section, type) == 64);

static_assert(sizeof(uci_option) == 64);
static_assert(offsetof(uci_option, section) == 32 && offsetof(uci_option, type) == 40);
static_assert(offsetof(uci_option, v) == 48);

static_assert(sizeof(uci_delta) == 56);
static_assert(offsetof(uci_delta, cmd) == 32 && offsetof(uci_delta, section) == 40 && offsetof(uci_delta, value) == 48);

static_assert(sizeof(uci_ptr) == 72);
static_assert(offsetof(uci_ptr, flags) == 4 && offsetof(uci_ptr, p) == 8 && offsetof(uci_ptr, s) == 16);
static_assert(offsetof(uci_ptr, o) == 24 && offsetof(uci_ptr, last) == 32 && offsetof(uci_ptr, package) == 40);
static_assert(offsetof(uci_ptr, section) == 48 && offsetof(uci_ptr, option) == 56 && offsetof(uci_ptr, value) == 64);

static_assert(offsetof(uci_context, pctx) == 16 && offsetof(uci_context, backend) == 24);
static_assert(offsetof(uci_context, backends) == 32 && offsetof(uci_context, flags) == 48);
static_assert(offsetof(uci_context, confdir) == 56 && offsetof(uci_context, savedir) == 64);
static_assert(offsetof(uci_context, conf2dir) == 72 && offsetof(uci_context, delta_path) == 80);
static_assert(offsetof(uci_context, err) == 96);
#ifdef __x86_64__
static_assert(sizeof(uci_context) == 336);
#endif

#endif
