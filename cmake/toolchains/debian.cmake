# SPDX-License-Identifier: MIT
# Debian's cross compiler for CMAKE_CXX_COMPILER_TARGET, and the emulator that runs its programs; included by the files beside it.
set(CMAKE_SYSTEM_NAME Linux)
string(REGEX REPLACE "-.*" "" CMAKE_SYSTEM_PROCESSOR "${CMAKE_CXX_COMPILER_TARGET}")
set(CMAKE_C_COMPILER "${CMAKE_CXX_COMPILER_TARGET}-gcc")
set(CMAKE_CXX_COMPILER "${CMAKE_CXX_COMPILER_TARGET}-g++")
set(CMAKE_CROSSCOMPILING_EMULATOR "qemu-${CMAKE_SYSTEM_PROCESSOR};-L;/usr/${CMAKE_CXX_COMPILER_TARGET}")
foreach(kind INCLUDE LIBRARY PACKAGE)
  set(CMAKE_FIND_ROOT_PATH_MODE_${kind} ONLY) # below CMAKE_FIND_ROOT_PATH: what this machine has is not for that processor
endforeach()
