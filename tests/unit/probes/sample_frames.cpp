// SPDX-License-Identifier: MIT
#include "tests/unit/probes/sample_frames.h"

#include <algorithm>
#include <cstring>

t_bytes join(std::initializer_list<t_bytes> pieces)
{
    t_bytes whole;
    for (const t_bytes &piece : pieces)
        whole.insert(whole.end(), piece.begin(), piece.end());
    return whole;
}

t_bytes zeros(size_t size)
{
    return t_bytes(size, 0);
}

t_bytes native(uint32_t value)
{
    t_bytes bytes(sizeof value);
    memcpy(bytes.data(), &value, sizeof value);
    return bytes;
}

t_bytes mac_bytes(const t_mac &mac)
{
    return t_bytes(mac.bytes, mac.bytes + MAC_SIZE);
}

t_bytes patched(t_bytes frame, size_t offset, const t_bytes &bytes)
{
    std::copy(bytes.begin(), bytes.end(), frame.begin() + static_cast<ptrdiff_t>(offset));
    return frame;
}

t_bytes expected_discover(const t_mac &mac, uint32_t xid)
{
    return join({
        // Ethernet: to everyone, from the port, IPv4
        {0xff, 0xff, 0xff, 0xff, 0xff, 0xff},
        mac_bytes(mac),
        {0x08, 0x00},
        // IPv4: version 4, 20 bytes; TOS 0; total length 396; identification d431; no fragment
        {0x45, 0x00, 0x01, 0x8c, 0xd4, 0x31, 0x00, 0x00},
        // TTL 64, UDP, checksum, 0.0.0.0, 255.255.255.255
        {0x40, 0x11, 0xa5, 0x30, 0x00, 0x00, 0x00, 0x00, 0xff, 0xff, 0xff, 0xff},
        // UDP: 68 to 67, length 376, no checksum
        {0x00, 0x44, 0x00, 0x43, 0x01, 0x78, 0x00, 0x00},
        // DHCP: boot request, Ethernet, 6-byte addresses, no hops
        {0x01, 0x01, 0x06, 0x00},
        native(xid),
        // secs 0, flags 0, ciaddr, yiaddr, siaddr, giaddr 0
        zeros(2 + 2 + 4 * 4),
        // chaddr
        mac_bytes(mac),
        zeros(10),
        // sname, file
        zeros(64),
        zeros(128),
        // magic cookie
        {0x63, 0x82, 0x53, 0x63},
        // 53 message type: DISCOVER
        {0x35, 0x01, 0x01},
        // 55 parameter request list: router, subnet mask, DNS server
        {0x37, 0x03, 0x03, 0x01, 0x06},
        // end, padding
        {0xff},
        zeros(119),
    });
}

t_bytes expected_padi(const t_mac &mac, uint32_t host_uniq)
{
    return join({
        // Ethernet: to everyone, from the port, PPPoE discovery
        {0xff, 0xff, 0xff, 0xff, 0xff, 0xff},
        mac_bytes(mac),
        {0x88, 0x63},
        // PPPoE: version 1 type 1, PADI, session 0, 12 bytes
        {0x11, 0x09, 0x00, 0x00, 0x00, 0x0c},
        // Service-Name: any
        {0x01, 0x01, 0x00, 0x00},
        // Host-Uniq, 4 bytes
        {0x01, 0x03, 0x00, 0x04},
        native(host_uniq),
    });
}

t_bytes offer(uint32_t xid, const t_bytes &options)
{
    return join({
        // Ethernet: to the port, from the server, IPv4
        {0x02, 0x00, 0x00, 0x00, 0x01, 0x01},
        mac_bytes(SERVER_MAC),
        {0x08, 0x00},
        // IPv4: 20 bytes, UDP, 10.20.30.1 to 10.20.30.40 (length and checksum are not looked at)
        {0x45, 0x00, 0x01, 0x48, 0x00, 0x00, 0x00, 0x00, 0x40, 0x11, 0x00, 0x00},
        {0x0a, 0x14, 0x1e, 0x01, 0x0a, 0x14, 0x1e, 0x28},
        // UDP: 67 to 68
        {0x00, 0x43, 0x00, 0x44, 0x01, 0x34, 0x00, 0x00},
        // DHCP: boot reply, Ethernet, 6-byte addresses, no hops
        {0x02, 0x01, 0x06, 0x00},
        native(xid),
        // secs 0, flags 0, ciaddr 0, yiaddr 10.20.30.40, siaddr 10.20.30.1, giaddr 0
        {0x00, 0x00, 0x00, 0x00},
        {0x00, 0x00, 0x00, 0x00, 0x0a, 0x14, 0x1e, 0x28, 0x0a, 0x14, 0x1e, 0x01, 0x00, 0x00, 0x00, 0x00},
        // chaddr, sname, file
        {0x02, 0x00, 0x00, 0x00, 0x01, 0x01},
        zeros(10 + 64 + 128),
        // magic cookie
        {0x63, 0x82, 0x53, 0x63},
        options,
    });
}

t_bytes usual_options()
{
    return {
        0x35, 0x01, 0x02,                                           // message type: OFFER
        0x01, 0x04, 0xff, 0xff, 0xff, 0x00,                         // subnet mask
        0x03, 0x04, 0x0a, 0x14, 0x1e, 0x01,                         // router
        0x06, 0x08, 0x0a, 0x14, 0x1e, 0x35, 0x0a, 0x14, 0x1e, 0x36, // DNS servers
        0xff,                                                       // end
    };
}

t_bytes pado(const t_bytes &tags)
{
    return join({
        // Ethernet: to the port, from the concentrator, PPPoE discovery
        {0x02, 0x00, 0x00, 0x00, 0x01, 0x01},
        mac_bytes(SERVER_MAC),
        {0x88, 0x63},
        // PPPoE: version 1 type 1, PADO, session 0, length of the tags
        {0x11, 0x07, 0x00, 0x00, static_cast<uint8_t>(tags.size() >> 8), static_cast<uint8_t>(tags.size())},
        tags,
    });
}

t_bytes tag(uint16_t type, const t_bytes &value)
{
    return join({
        {static_cast<uint8_t>(type >> 8), static_cast<uint8_t>(type)},
        {static_cast<uint8_t>(value.size() >> 8), static_cast<uint8_t>(value.size())},
        value,
    });
}

t_bytes usual_tags(uint32_t host_uniq)
{
    return join({tag(0x0102, {'a', 'c'}), tag(0x0101, {}), tag(0x0103, native(host_uniq))});
}
