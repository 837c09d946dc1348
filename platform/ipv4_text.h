// SPDX-License-Identifier: MIT
// Addresses as log lines write them.
#pragma once

#include <arpa/inet.h>
#include <cstdint>

// The dotted form, for use inside one expression: t_ipv4_text(address_be).text.
struct t_ipv4_text {
    char text[INET_ADDRSTRLEN];

    explicit t_ipv4_text(uint32_t address_be) : text{} { inet_ntop(AF_INET, &address_be, text, sizeof text); }
};
