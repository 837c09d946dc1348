# SPDX-License-Identifier: MIT
set(CMAKE_CXX_COMPILER_TARGET arm-linux-gnueabihf)
include("${CMAKE_CURRENT_LIST_DIR}/debian.cmake")
