# SPDX-License-Identifier: MIT
# This machine's processor with musl, which Debian has for C only. The daemon takes nothing but headers from the C++ library, so those
# made for glibc do; the kernel's stand in CMAKE_FIND_ROOT_PATH.
set(CMAKE_SYSTEM_NAME Linux)
set(CMAKE_SYSTEM_PROCESSOR "${CMAKE_HOST_SYSTEM_PROCESSOR}")
set(CMAKE_C_COMPILER musl-gcc)
set(CMAKE_CXX_COMPILER g++)
set(machine "${CMAKE_HOST_SYSTEM_PROCESSOR}-linux")
execute_process(COMMAND g++ -dumpversion OUTPUT_VARIABLE version OUTPUT_STRIP_TRAILING_WHITESPACE)
execute_process(COMMAND g++ -print-file-name=include OUTPUT_VARIABLE compiler OUTPUT_STRIP_TRAILING_WHITESPACE)
set(CMAKE_CXX_FLAGS_INIT "-nostdinc")
foreach(folder "/usr/include/c++/${version}" "/usr/include/${machine}-gnu/c++/${version}" "/usr/include/${machine}-musl" "${compiler}"
    "${CMAKE_FIND_ROOT_PATH}/include")
  string(APPEND CMAKE_CXX_FLAGS_INIT " -isystem ${folder}")
endforeach()
string(APPEND CMAKE_CXX_FLAGS_INIT " -include ${CMAKE_CURRENT_LIST_DIR}/musl.h")
foreach(kind INCLUDE LIBRARY PACKAGE)
  set(CMAKE_FIND_ROOT_PATH_MODE_${kind} ONLY)
endforeach()
