// SPDX-License-Identifier: MIT
// For every question the right answer, and the flaws that are put into it one at a time.
#include "lab/near_misses.h"

#include <arpa/inet.h>
#include <cstring>
#include <net/ethernet.h>

#include "lab/offer.h"
#include "probes/wire/wire_formats.h"

namespace {

constexpr t_mac SERVER_MAC = {{0x02, 0x00, 0x5e, 0x41, 0x00, 0x01}};
constexpr t_mac LAN_BRIDGE_MAC = {{0x02, 0x00, 0x5e, 0x10, 0x00, 0x01}}; // as lab/network.py sets it
constexpr uint16_t DISCOVER_IDENTIFICATION = 0xd431;
constexpr uint16_t PPPOE_DISCOVERY = 0x8863, PPPOE_SESSION = 0x8864;
constexpr uint8_t CODE_PADI = 0x09, CODE_PADO = 0x07, CODE_PADS = 0x65;
constexpr uint16_t DNS_CLIENT = 21000, DNS_SERVER = 53, DHCP_SERVER = 67;
constexpr uint8_t TCP = 6;
constexpr uint16_t BIT = 1; // what is off is off by one bit
constexpr uint8_t COOKIE[] = {0x63, 0x82, 0x53, 0x63};

template <typename Record> Record read(const t_flood_frame &frame)
{
    Record record = {};
    memcpy(&record, frame.bytes, frame.size < sizeof record ? frame.size : sizeof record);
    return record;
}

template <typename Record> void write(t_flood_frame *frame, const Record &record)
{
    memcpy(frame->bytes, &record, sizeof record);
    frame->size = sizeof record;
}

void finish_header(t_ipv4_header *ip)
{
    ip->checksum = 0;
    ip->checksum = checksum_finish(checksum_add(0, ip, sizeof *ip));
}

// --- DHCP

enum class t_offer_flaw { xid, op, port, protocol, cookie, own_mac, cut, shifted, COUNT };

t_dhcp_frame right_offer(const t_flood_frame &question)
{
    constexpr uint8_t options[] = {53, 1, 2, 54, 4, 10, 99, 0, 1, 3, 4, 10, 99, 0, 1, 255};
    return offer_to(read<t_dhcp_frame>(question), {.server_mac = SERVER_MAC,
                                                   .server_be = htonl(0x0a630001),
                                                   .address_be = htonl(0x0a630042),
                                                   .options = options});
}

void flawed_offer(t_flood_frame *frame, t_offer_flaw flaw, const t_flood_frame &question)
{
    t_dhcp_frame offer = right_offer(question);
    switch (flaw) {
    case t_offer_flaw::xid:
        offer.dhcp.xid ^= BIT;
        break;
    case t_offer_flaw::op:
        offer.dhcp.op = 1;
        break;
    case t_offer_flaw::port:
        offer.udp.destination_port_be ^= htons(BIT);
        break;
    case t_offer_flaw::protocol:
        offer.ipv4.protocol = TCP;
        break;
    case t_offer_flaw::cookie:
        offer.dhcp.magic_cookie[3] ^= BIT;
        break;
    case t_offer_flaw::own_mac:
        offer.ethernet.source = LAN_BRIDGE_MAC;
        break;
    case t_offer_flaw::cut:
    case t_offer_flaw::shifted:
    case t_offer_flaw::COUNT:
        break;
    }
    finish_header(&offer.ipv4);
    write(frame, offer);
    if (flaw == t_offer_flaw::cut)
        frame->size = offsetof(t_dhcp_frame, dhcp.options) - 1; // within the cookie
    if (flaw == t_offer_flaw::shifted) {                        // IP options: nothing stands where it is looked for
        constexpr size_t payload = offsetof(t_dhcp_frame, udp), options = 4;
        memmove(frame->bytes + payload + options, frame->bytes + payload, frame->size - payload);
        memset(frame->bytes + payload, 1, options);
        frame->bytes[offsetof(t_dhcp_frame, ipv4.version_ihl)] = 0x46;
        frame->size = static_cast<uint16_t>(frame->size + options);
    }
}

// --- PPPoE

enum class t_pado_fault {
    host_uniq,
    longer_host_uniq,
    no_host_uniq,
    session,
    code_padi,
    code_pads,
    version,
    type,
    broadcast,
    end_before,
    length,
    tag_length,
    COUNT
};

void flawed_pado(t_flood_frame *frame, t_pado_fault flaw, const t_flood_frame &question)
{
    auto pado = read<t_padi_frame>(question);
    pado.ethernet.destination = pado.ethernet.source;
    pado.ethernet.source = SERVER_MAC;
    pado.pppoe.code = CODE_PADO;
    switch (flaw) {
    case t_pado_fault::host_uniq:
        pado.host_uniq_value ^= BIT;
        break;
    case t_pado_fault::longer_host_uniq:
        pado.host_uniq.length_be = htons(sizeof pado.host_uniq_value + 1);
        pado.pppoe.length_be = htons(static_cast<uint16_t>(ntohs(pado.pppoe.length_be) + 1));
        break;
    case t_pado_fault::no_host_uniq:
        pado.host_uniq.type_be = htons(0x0104);
        break;
    case t_pado_fault::session:
        pado.ethernet.ether_type_be = htons(PPPOE_SESSION);
        break;
    case t_pado_fault::code_padi:
        pado.pppoe.code = CODE_PADI;
        break;
    case t_pado_fault::code_pads:
        pado.pppoe.code = CODE_PADS;
        break;
    case t_pado_fault::version:
        pado.pppoe.version_type = 0x21;
        break;
    case t_pado_fault::type:
        pado.pppoe.version_type = 0x12;
        break;
    case t_pado_fault::broadcast:
        pado.ethernet.source = BROADCAST_MAC;
        break;
    case t_pado_fault::end_before:
        pado.service_name.type_be = 0;
        break;
    case t_pado_fault::length:
        pado.pppoe.length_be = htons(FLOOD_FRAME_SIZE);
        break;
    case t_pado_fault::tag_length:
        pado.service_name.length_be = htons(sizeof pado);
        break;
    case t_pado_fault::COUNT:
        break;
    }
    write(frame, pado);
    frame->size = 60;
    memset(frame->bytes + sizeof pado, 0, frame->size - sizeof pado);
}

// --- ARP

enum class t_arp_flaw { opcode, other_opcode, ether_type, identity, COUNT };

// A host that was asked at its own MAC is recognised by it, one that was searched by its address.
void flawed_arp(t_flood_frame *frame, t_arp_flaw flaw, const t_flood_frame &question)
{
    const auto request = read<t_arp_frame>(question);
    const bool searched = request.ethernet.destination == BROADCAST_MAC;
    t_arp_frame reply = request;
    reply.ethernet.destination = request.ethernet.source;
    reply.ethernet.source = searched ? SERVER_MAC : request.ethernet.destination;
    reply.sender_mac = reply.ethernet.source;
    reply.sender_ip_be = request.target_ip_be;
    reply.target_mac = request.sender_mac;
    reply.target_ip_be = request.sender_ip_be;
    reply.opcode_be = htons(2);
    switch (flaw) {
    case t_arp_flaw::opcode:
        reply.opcode_be = htons(1);
        break;
    case t_arp_flaw::other_opcode:
        reply.opcode_be = htons(4);
        break;
    case t_arp_flaw::ether_type:
        reply.ethernet.ether_type_be = htons(0x8035);
        break;
    case t_arp_flaw::identity:
        if (searched)
            reply.sender_ip_be ^= htonl(BIT);
        else
            reply.sender_mac.bytes[MAC_SIZE - 1] ^= BIT;
        break;
    case t_arp_flaw::COUNT:
        break;
    }
    write(frame, reply);
}

// --- DNS

enum class t_answer_flaw { id, source, destination, port, protocol, no_answers, cut, COUNT };

void flawed_answer(t_flood_frame *frame, t_answer_flaw flaw, const t_flood_frame &question)
{
    const auto query = read<t_dns_query_frame>(question);
    t_dns_query_frame answer = query;
    answer.ethernet.destination = query.ethernet.source;
    answer.ethernet.source = query.ethernet.destination;
    answer.ipv4.source_be = query.ipv4.destination_be;
    answer.ipv4.destination_be = query.ipv4.source_be;
    answer.udp.source_port_be = query.udp.destination_port_be;
    answer.udp.destination_port_be = query.udp.source_port_be;
    answer.udp.checksum = 0;
    answer.dns.flags_be = htons(0x8180);
    answer.dns.ancount_be = htons(1); // of which none follows
    switch (flaw) {
    case t_answer_flaw::id:
        answer.dns.id_be ^= htons(BIT);
        break;
    case t_answer_flaw::source:
        answer.ipv4.source_be ^= htonl(BIT);
        break;
    case t_answer_flaw::destination:
        answer.ipv4.destination_be ^= htonl(BIT);
        break;
    case t_answer_flaw::port:
        answer.udp.source_port_be ^= htons(BIT);
        break;
    case t_answer_flaw::protocol:
        answer.ipv4.protocol = TCP;
        break;
    case t_answer_flaw::no_answers:
        answer.dns.ancount_be = 0;
        break;
    case t_answer_flaw::cut:
    case t_answer_flaw::COUNT:
        break;
    }
    finish_header(&answer.ipv4);
    write(frame, answer);
    if (flaw == t_answer_flaw::cut)
        frame->size = offsetof(t_dns_query_frame, name) - 1; // within the header
}

template <typename Flaw> Flaw flaw_of(size_t number)
{
    return static_cast<Flaw>(number % static_cast<size_t>(Flaw::COUNT));
}

bool take(t_flood_frame *known, const uint8_t *bytes, size_t size)
{
    if (known->size == size && memcmp(known->bytes, bytes, size) == 0)
        return false;
    memcpy(known->bytes, bytes, size);
    known->size = static_cast<uint16_t>(size);
    return true;
}

} // namespace

void make_near_miss(t_flood_frame *frame, size_t number, const t_questions &questions)
{
    constexpr size_t protocols = 4;
    const size_t turn = number / protocols;
    switch (number % protocols) {
    case 0:
        flawed_offer(frame, flaw_of<t_offer_flaw>(turn), questions.discover);
        break;
    case 1:
        flawed_pado(frame, flaw_of<t_pado_fault>(turn), questions.padi);
        break;
    case 2:
        flawed_arp(frame, flaw_of<t_arp_flaw>(turn), questions.arp);
        break;
    default:
        flawed_answer(frame, flaw_of<t_answer_flaw>(turn), questions.dns);
        break;
    }
}

void make_up_questions(t_questions *questions, t_dice *dice)
{
    t_dhcp_frame discover = {};
    discover.ethernet.source = SERVER_MAC; // answers to it stay behind the port
    discover.ethernet.ether_type_be = htons(ETHERTYPE_IP);
    discover.ipv4.version_ihl = IPV4_VERSION_IHL;
    discover.ipv4.protocol = IPV4_PROTOCOL_UDP;
    discover.dhcp.xid = static_cast<uint32_t>(dice->next());
    memcpy(discover.dhcp.magic_cookie, COOKIE, sizeof COOKIE);
    write(&questions->discover, discover);

    t_padi_frame padi = {};
    padi.ethernet.source = SERVER_MAC;
    padi.ethernet.ether_type_be = htons(PPPOE_DISCOVERY);
    padi.pppoe.version_type = 0x11;
    padi.pppoe.length_be = htons(sizeof padi - offsetof(t_padi_frame, service_name));
    padi.service_name.type_be = htons(0x0101);
    padi.host_uniq.type_be = htons(0x0103);
    padi.host_uniq.length_be = htons(sizeof padi.host_uniq_value);
    padi.host_uniq_value = static_cast<uint32_t>(dice->next());
    write(&questions->padi, padi);

    t_arp_frame arp = {};
    arp.ethernet.destination = BROADCAST_MAC;
    arp.ethernet.source = SERVER_MAC;
    arp.ethernet.ether_type_be = htons(ETHERTYPE_ARP);
    arp.target_ip_be = static_cast<uint32_t>(dice->next());
    write(&questions->arp, arp);

    t_dns_query_frame dns = {};
    dns.ethernet.source = SERVER_MAC;
    dns.ethernet.ether_type_be = htons(ETHERTYPE_IP);
    dns.ipv4.version_ihl = IPV4_VERSION_IHL;
    dns.ipv4.protocol = IPV4_PROTOCOL_UDP;
    dns.udp.source_port_be = htons(DNS_CLIENT);
    dns.udp.destination_port_be = htons(DNS_SERVER);
    dns.dns.id_be = static_cast<uint16_t>(dice->next());
    write(&questions->dns, dns);
}

bool take_question(t_questions *questions, const uint8_t *bytes, size_t size)
{
    t_dns_query_frame head = {};
    memcpy(&head, bytes, size < sizeof head ? size : sizeof head);
    const uint16_t ether_type = ntohs(head.ethernet.ether_type_be);
    const uint8_t code = reinterpret_cast<const t_padi_frame &>(head).pppoe.code;
    if (ether_type == PPPOE_DISCOVERY && size == sizeof(t_padi_frame) && code == CODE_PADI)
        return take(&questions->padi, bytes, size);
    if (ether_type == ETHERTYPE_ARP && size == sizeof(t_arp_frame))
        return reinterpret_cast<const t_arp_frame &>(head).opcode_be == htons(1) && take(&questions->arp, bytes, size);
    if (ether_type != ETHERTYPE_IP || head.ipv4.protocol != IPV4_PROTOCOL_UDP)
        return false;
    if (head.udp.destination_port_be == htons(DHCP_SERVER) && size == sizeof(t_dhcp_frame))
        return head.ipv4.identification_be == htons(DISCOVER_IDENTIFICATION) && take(&questions->discover, bytes, size);
    const bool dns = head.udp.destination_port_be == htons(DNS_SERVER) && head.udp.source_port_be == htons(DNS_CLIENT);
    return dns && size == sizeof(t_dns_query_frame) && take(&questions->dns, bytes, size);
}
