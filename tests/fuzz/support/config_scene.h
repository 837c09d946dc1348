// SPDX-License-Identifier: MIT
// Everything the daemon reads from the router's configuration, read once.
#pragma once

#include <string>

// The four packages as texts, in this order wherever they are listed.
constexpr const char *CONFIG_PACKAGES[] = {"network", "switch", "protocol", "sysmode"};
constexpr size_t CONFIG_PACKAGE_COUNT = sizeof CONFIG_PACKAGES / sizeof CONFIG_PACKAGES[0];

// For prepare().
void prepare_config_scene();

// Makes this text the package's file, without waiting changes. An empty text leaves no file.
void configure_package(const char *package, const std::string &text);

// Runs every loader on what is configured, in the daemon's order, checks the model that comes out and releases it.
void load_whole_configuration();
