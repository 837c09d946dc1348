# SPDX-License-Identifier: MIT
set(CMAKE_CXX_COMPILER_TARGET s390x-linux-gnu)
include("${CMAKE_CURRENT_LIST_DIR}/debian.cmake")
