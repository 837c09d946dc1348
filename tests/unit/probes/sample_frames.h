// SPDX-License-Identifier: MIT
// Frames of the probes and of their peers, written out byte by byte.
#pragma once

#include <cstdint>
#include <initializer_list>
#include <vector>

#include "probes/wire/mac.h"
#include "tests/unit/probes/bytes.h"

// Several runs of bytes as one.
t_bytes join(std::initializer_list<t_bytes> pieces);
t_bytes zeros(size_t size);
// A 32-bit value as it lies in this machine's memory.
t_bytes native(uint32_t value);
t_bytes mac_bytes(const t_mac &mac);
// The same bytes with those at `offset` replaced.
t_bytes patched(t_bytes frame, size_t offset, const t_bytes &bytes);

// The address of an answering server.
constexpr t_mac SERVER_MAC = {{0x02, 0x5e, 0x00, 0x00, 0x00, 0x99}};

t_bytes expected_discover(const t_mac &mac, uint32_t xid);
t_bytes expected_padi(const t_mac &mac, uint32_t host_uniq);

// An OFFER of 10.20.30.40 from SERVER_MAC. Where its fields begin:
constexpr size_t OFFER_IP_PROTOCOL = 23;
constexpr size_t OFFER_SOURCE_PORT = 34;
constexpr size_t OFFER_DESTINATION_PORT = 36;
constexpr size_t OFFER_OP = 42;
constexpr size_t OFFER_COOKIE = 278;
constexpr size_t OFFER_OPTIONS = 282;
t_bytes offer(uint32_t xid, const t_bytes &options);

// Subnet mask, router 10.20.30.1, DNS servers 10.20.30.53 and 10.20.30.54, end.
t_bytes usual_options();

// A PADO from SERVER_MAC whose payload is `tags`. Where its fields begin:
constexpr size_t PADO_SOURCE = 6;
constexpr size_t PADO_ETHER_TYPE = 12;
constexpr size_t PADO_VERSION_TYPE = 14;
constexpr size_t PADO_CODE = 15;
constexpr size_t PADO_LENGTH = 18;
t_bytes pado(const t_bytes &tags);

t_bytes tag(uint16_t type, const t_bytes &value);
// AC-Name, an empty Service-Name and the Host-Uniq.
t_bytes usual_tags(uint32_t host_uniq);
