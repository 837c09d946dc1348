# SPDX-License-Identifier: MIT
# Where libubox, libubus and libuci come from: the installed ones (a router), or the stand-ins in compat/.
# Offers the targets router::ubox, router::blobmsg_json, router::ubus, router::uci, router::json and router::uthash, whose
# headers count as system headers.
find_package(Threads REQUIRED)

find_path(JSON_C_INCLUDE_DIR NAMES json-c/json.h REQUIRED)
find_library(JSON_C_LIBRARY NAMES json-c REQUIRED)
add_library(router::json INTERFACE IMPORTED)
target_include_directories(router::json SYSTEM INTERFACE "${JSON_C_INCLUDE_DIR}")
target_link_libraries(router::json INTERFACE "${JSON_C_LIBRARY}")

find_path(UTHASH_INCLUDE_DIR NAMES uthash.h REQUIRED)
add_library(router::uthash INTERFACE IMPORTED)
target_include_directories(router::uthash SYSTEM INTERFACE "${UTHASH_INCLUDE_DIR}")

set(router_libs_found FALSE)
if(NOT WAN_DETECT_LIBS STREQUAL "bundled")
  find_path(UBOX_INCLUDE_DIR NAMES libubox/uloop.h)
  find_library(UBOX_LIBRARY NAMES ubox)
  find_library(BLOBMSG_JSON_LIBRARY NAMES blobmsg_json)
  find_path(UBUS_INCLUDE_DIR NAMES libubus.h)
  find_library(UBUS_LIBRARY NAMES ubus)
  find_path(UCI_INCLUDE_DIR NAMES uci.h)
  find_library(UCI_LIBRARY NAMES uci)
  if(UBOX_INCLUDE_DIR AND UBOX_LIBRARY AND BLOBMSG_JSON_LIBRARY AND UBUS_INCLUDE_DIR AND UBUS_LIBRARY
     AND UCI_INCLUDE_DIR AND UCI_LIBRARY)
    set(router_libs_found TRUE)
  elseif(WAN_DETECT_LIBS STREQUAL "system")
    message(FATAL_ERROR "WAN_DETECT_LIBS=system, but libubox, libubus or libuci is not installed")
  endif()
endif()

function(wan_detect_router_library name include library)
  add_library(router::${name} INTERFACE IMPORTED)
  target_include_directories(router::${name} SYSTEM INTERFACE "${include}")
  target_link_libraries(router::${name} INTERFACE "${library}" ${ARGN})
endfunction()

if(router_libs_found)
  message(STATUS "libubox, libubus, libuci: installed")
  wan_detect_router_library(ubox "${UBOX_INCLUDE_DIR}" "${UBOX_LIBRARY}")
  wan_detect_router_library(blobmsg_json "${UBOX_INCLUDE_DIR}" "${BLOBMSG_JSON_LIBRARY}" router::ubox router::json)
  wan_detect_router_library(ubus "${UBUS_INCLUDE_DIR}" "${UBUS_LIBRARY}" router::ubox)
  wan_detect_router_library(uci "${UCI_INCLUDE_DIR}" "${UCI_LIBRARY}")
else()
  message(STATUS "libubox, libubus, libuci: bundled (compat/)")
  add_subdirectory(compat)
  wan_detect_router_library(ubox "${CMAKE_SOURCE_DIR}/compat/libubox/include" compat_ubox)
  wan_detect_router_library(blobmsg_json "${CMAKE_SOURCE_DIR}/compat/libubox/include" compat_blobmsg_json router::ubox)
  wan_detect_router_library(ubus "${CMAKE_SOURCE_DIR}/compat/libubus/include" compat_ubus router::ubox)
  wan_detect_router_library(uci "${CMAKE_SOURCE_DIR}/compat/libuci/include" compat_uci)
endif()
