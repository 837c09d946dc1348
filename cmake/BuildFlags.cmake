# SPDX-License-Identifier: MIT
# Language level, warnings and hardening of our own code, and the two kinds of program we link.
set(CMAKE_CXX_STANDARD 20)
set(CMAKE_CXX_STANDARD_REQUIRED ON)
set(CMAKE_CXX_EXTENSIONS ON)

include(CheckPIESupported)
check_pie_supported(LANGUAGES C CXX)

# Where a folder lies over another one, files may have numbers that a 32-bit C library does not open files for unless it is told.
if(CMAKE_SIZEOF_VOID_P EQUAL 4)
  add_compile_definitions(_FILE_OFFSET_BITS=64)
endif()

# How everything is compiled and linked that runs on a router.
add_library(router_compile_flags INTERFACE)
target_compile_options(router_compile_flags INTERFACE
  -Wall -Wextra -Wshadow -Wconversion -Wformat=2 -Wundef -Wnon-virtual-dtor
  -fno-exceptions -fno-rtti -fno-threadsafe-statics
  -fstack-protector-strong -ffunction-sections -fdata-sections -fvisibility=hidden)
target_link_options(router_compile_flags INTERFACE
  -Wl,-z,relro -Wl,-z,now -Wl,-z,noexecstack -Wl,--gc-sections -Wl,--as-needed)
target_compile_definitions(router_compile_flags INTERFACE _GNU_SOURCE _GLIBCXX_ASSERTIONS)

include(CheckCXXCompilerFlag)
set(wanted_flags -fstack-clash-protection -fcf-protection -mbranch-protection=standard)
if(NOT WAN_DETECT_SANITIZE AND NOT WAN_DETECT_FUZZ AND NOT CMAKE_BUILD_TYPE STREQUAL "Debug")
  list(APPEND wanted_flags -ftrivial-auto-var-init=zero) # would hide from the tools what was never set
endif()
set(CMAKE_REQUIRED_FLAGS -Werror) # some compilers only warn of what is not for their processor
foreach(flag ${wanted_flags})
  string(MAKE_C_IDENTIFIER "HAVE${flag}" have)
  check_cxx_compiler_flag(${flag} ${have})
  if(${have})
    target_compile_options(router_compile_flags INTERFACE ${flag})
  endif()
endforeach()

# For a router's flash. Calls into libraries are bound at start anyway, so they need no stubs. Tables and texts need not
# begin with a line of the cache. Nothing unwinds: nothing is thrown, and a thread is cancelled where it has no
# destructors to run. But the virtual router, which refuses memory at each place of a program, tells the places by their
# callers, and so does a debugger.
set(size_flags -Oz -fno-plt -malign-data=abi)
if(NOT WAN_DETECT_LAB)
  list(APPEND size_flags -fno-asynchronous-unwind-tables)
endif()
foreach(flag ${size_flags})
  string(MAKE_C_IDENTIFIER "HAVE${flag}" have)
  check_cxx_compiler_flag(${flag} ${have})
  if(${have})
    target_compile_options(router_compile_flags INTERFACE $<$<CONFIG:MinSizeRel>:${flag}>)
  endif()
endforeach()
unset(CMAKE_REQUIRED_FLAGS)

option(WAN_DETECT_LTO "Optimise across sources, which takes a compiler and binutils that know how" OFF)
if(WAN_DETECT_LTO)
  include(CheckIPOSupported)
  check_ipo_supported(LANGUAGES CXX)
  set(CMAKE_INTERPROCEDURAL_OPTIMIZATION ON)
  if(CMAKE_CXX_COMPILER_ID STREQUAL "GNU")
    target_link_options(router_compile_flags INTERFACE -flto-partition=one)
  endif()
endif()

if(WAN_DETECT_FUZZ)
  set(WAN_DETECT_SANITIZE "fuzzer-no-link,address,undefined") # all of it counts its branches for the fuzzer
endif()
if(WAN_DETECT_SANITIZE)
  add_compile_options(-fsanitize=${WAN_DETECT_SANITIZE} -fno-omit-frame-pointer
    $<$<CXX_COMPILER_ID:GNU>:-Wno-maybe-uninitialized>) # GCC 12 sees ghosts in instrumented code
  add_link_options(-fsanitize=${WAN_DETECT_SANITIZE})
  if(WAN_DETECT_SANITIZE MATCHES "undefined")
    add_compile_options(-fno-sanitize-recover=undefined -fno-sanitize=vptr
      $<$<CXX_COMPILER_ID:Clang>:-fno-sanitize=function>) # both need RTTI
  endif()
else()
  # Fortification needs optimisation and would hide what the sanitizers look for. A firmware's own level stays when it is
  # not below what the compiler can do.
  include(CheckCXXSourceCompiles)
  check_cxx_source_compiles("
    #if !__has_builtin(__builtin_dynamic_object_size)
    #error
    #endif
    int main() { return 0; }" KNOWS_FORTIFY_3)
  if(KNOWS_FORTIFY_3)
    set(fortify_level 3)
  else()
    set(fortify_level 2)
  endif()
  check_cxx_source_compiles("
    #if !defined _FORTIFY_SOURCE || _FORTIFY_SOURCE < ${fortify_level}
    #error
    #endif
    int main() { return 0; }" IS_FORTIFIED_TO_${fortify_level})
  if(NOT IS_FORTIFIED_TO_${fortify_level})
    target_compile_options(router_compile_flags INTERFACE
      $<$<NOT:$<CONFIG:>>:-U_FORTIFY_SOURCE> $<$<NOT:$<CONFIG:>>:-D_FORTIFY_SOURCE=${fortify_level}>)
  endif()
endif()

# The same, with the place where the standard library's own checks end up.
add_library(router_assertions STATIC "${CMAKE_CURRENT_LIST_DIR}/assertions.cpp")
target_link_libraries(router_assertions PRIVATE router_compile_flags)
add_library(router_flags INTERFACE)
target_link_libraries(router_flags INTERFACE router_compile_flags router_assertions)

# Most of the time that a small source takes goes into the standard library's headers, so these may be read once for all. What a
# source forgets to include shows in the other builds.
option(WAN_DETECT_SHARED_HEADERS "Read the standard library's headers once: a quicker build, for tests" OFF)
if(WAN_DETECT_SHARED_HEADERS)
  target_precompile_headers(router_assertions PRIVATE <algorithm> <atomic> <cerrno> <csignal> <cstdio> <cstdlib> <cstring>
    <memory> <optional> <span> <string_view> <arpa/inet.h> <fcntl.h> <net/if.h> <netinet/in.h> <pthread.h> <sys/socket.h>
    <sys/stat.h> <unistd.h>)
endif()
function(wan_detect_share_headers)
  foreach(target compat_ubox compat_ubus compat_uci wan_detect_platform wan_detect_model wan_detect_adapters wan_detect_probes
      wan_detect_status wan_detect_core)
    if(WAN_DETECT_SHARED_HEADERS AND TARGET ${target})
      target_precompile_headers(${target} REUSE_FROM router_assertions)
    endif()
  endforeach()
endfunction()

# A program for the router: linked as C, so that it asks for no C++ runtime library. A sanitizer brings that runtime along
# by itself.
function(wan_detect_router_program target)
  target_link_libraries(${target} PRIVATE router_flags)
  set_target_properties(${target} PROPERTIES LINKER_LANGUAGE C)
endfunction()
set(CMAKE_CXX_IMPLICIT_LINK_LIBRARIES "")

# Sources that define a name which others of their library define, too: where CMAKE_UNITY_BUILD makes one source of a library, they
# become a second one.
function(wan_detect_apart target)
  get_target_property(mode ${target} UNITY_BUILD_MODE)
  if(NOT mode STREQUAL "GROUP")
    get_target_property(sources ${target} SOURCES)
    set_source_files_properties(${sources} PROPERTIES UNITY_GROUP together)
    set_target_properties(${target} PROPERTIES UNITY_BUILD_MODE GROUP)
  endif()
  list(GET ARGN 0 first)
  get_filename_component(group "${first}" NAME_WE)
  set_source_files_properties(${ARGN} PROPERTIES UNITY_GROUP ${group})
endfunction()

# A library of our own code: wan_detect_library(name [libraries...]) takes every source of the current folder.
function(wan_detect_library target)
  file(GLOB sources CONFIGURE_DEPENDS "${CMAKE_CURRENT_SOURCE_DIR}/*.cpp")
  add_library(${target} STATIC ${sources})
  target_include_directories(${target} PUBLIC "${CMAKE_SOURCE_DIR}")
  target_link_libraries(${target} PUBLIC ${ARGN} PRIVATE router_flags)
endfunction()
