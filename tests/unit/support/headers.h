// SPDX-License-Identifier: MIT
// The headers that most tests share, read once (CMake puts them before every source). What most of them would make of
// the standard library's templates, each for itself, is made once too, in headers.cpp.
#pragma once

#include <atomic>
#include <filesystem>
#include <fstream>
#include <functional>
#include <map>
#include <memory>
#include <regex>
#include <set>
#include <sstream>
#include <string>
#include <thread>
#include <vector>

#include <gtest/gtest.h>

#define COMMON_TEMPLATES(declare)                                                                                    \
    declare class std::vector<std::string>;                                                                          \
    declare class std::vector<unsigned char>;                                                                        \
    declare class std::vector<int>;                                                                                  \
    declare class std::set<std::string>;                                                                             \
    declare class std::map<std::string, std::string>;                                                                \
    declare class std::function<void()>;                                                                             \
    declare class std::basic_regex<char>;                                                                            \
    declare class std::unique_ptr<std::string>;                                                                      \
    declare testing::AssertionResult testing::internal::CmpHelperEQ(const char *, const char *, const int &,         \
                                                                    const int &);                                    \
    declare testing::AssertionResult testing::internal::CmpHelperEQ(const char *, const char *, const unsigned &,    \
                                                                    const unsigned &);                               \
    declare testing::AssertionResult testing::internal::CmpHelperEQ(const char *, const char *, const std::string &, \
                                                                    const std::string &);

COMMON_TEMPLATES(extern template)
