// SPDX-License-Identifier: MIT
// What tests need to have a place of their own: the rights of root, or of a plain user in a user namespace, and folders
// of the host that can be written without a change to them.
#pragma once

#include <string>
#include <vector>

#include <gtest/gtest.h>

// Ends the program with a line about what could not be done.
void require(bool done, const std::string &what);

// Makes a plain user root of a user namespace, in which nobody else exists, and leaves root what it is.
void become_root();

// A mount namespace of this program alone, whatever further namespaces are wanted with it.
void enter_namespaces(int further = 0);

// Lays a writable folder over one of the host's, whose own files of these names are not seen there. What is written
// goes below `scratch`, a folder on a tmpfs.
void lay_over(const std::string &folder, const std::string &scratch, const std::vector<std::string> &left_over = {});

// False in a plain user's namespace: files of strangers, and ids to change to, are not to be had there.
bool has_other_users();

#define NEEDS_OTHER_USERS() \
    if (!has_other_users()) \
    GTEST_SKIP() << "needs root, for there are no other users here"
