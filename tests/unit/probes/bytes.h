// SPDX-License-Identifier: MIT
#pragma once

#include <cstdint>
#include <vector>

// A frame, or a part of one.
using t_bytes = std::vector<uint8_t>;
