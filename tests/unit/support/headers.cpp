// SPDX-License-Identifier: MIT
#include "support/headers.h"

COMMON_TEMPLATES(template)
