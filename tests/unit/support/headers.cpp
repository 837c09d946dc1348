// SPDX-License-Identifier: MIT
#include "tests/unit/support/headers.h"

COMMON_TEMPLATES(template)
