// SPDX-License-Identifier: MIT
#include "platform/tallies.h"

t_tallies tallies;
