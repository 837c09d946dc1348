// SPDX-License-Identifier: MIT
// The two discovery protocols as one parameter, for what they have in common.
#pragma once

#include <string>

#include "platform/log.h"
#include "platform/result_codes.h"
#include "probes/discovery/dhcp_discovery.h"
#include "probes/discovery/pppoe_discovery.h"
#include "tests/unit/probes/probe_fixture.h"

struct t_discovery_protocol {
    const char *word;  // in names of functions and in most lines
    const char *label; // in lines about sockets
    const char *bad_list;
    const char *socket; // in the line about a failed sending
    const char *answer_word;
    int code_without_socket;
    const t_discovery &kind;
    t_discovery_batch *batch;
    t_bytes (*question)(const t_mac &mac, uint32_t identifier);
    t_bytes (*answer)(uint32_t identifier);
};

inline t_bytes usual_offer(uint32_t xid)
{
    return offer(xid, usual_options());
}

inline t_bytes usual_pado(uint32_t host_uniq)
{
    return pado(usual_tags(host_uniq));
}

inline const t_discovery_protocol DHCP = {
    "dhcp",
    "DHCP",
    "invalid parameters! Send failed!",
    "dhcp request socket",
    "discovery packet",
    -92,
    dhcp_discovery,
    &dhcp_detect_handle,
    expected_discover,
    usual_offer,
};

inline const t_discovery_protocol PPPOE = {
    "pppoe",
    "pppoe",
    "Invalid parameters! Send failed!",
    "pppoe discovery socket",
    "discovery offer(PADO) packet",
    -91,
    pppoe_discovery,
    &pppoe_detect_handle,
    expected_padi,
    usual_pado,
};

// Tests of one of them. Whoever tests both inherits a parameter as well.
class t_discovery_test : public t_probe_test {
protected:
    explicit t_discovery_test(const t_discovery_protocol &protocol) : protocol_(protocol) {}

    void TearDown() override
    {
        for (const t_discovery_protocol *protocol : {&DHCP, &PPPOE})
            if (protocol->batch->contexts)
                release_batch(protocol->kind);
        t_probe_test::TearDown();
    }

    int send() { return send_batch(protocol_.kind, &list_); }
    int process(bool final)
    {
        return collect_batch(protocol_.kind, model_.dev_hashmap_head, model_.proto_hashmap_head, final);
    }
    t_discovery_port &context(size_t place = 0) const { return protocol_.batch->contexts[place]; }

    // A frame arrives on a port, and its handler runs.
    static void receive(const t_bytes &frame, const char *port = "eth1")
    {
        fake_wire.arrive(port, frame);
        ASSERT_EQ(fake_wire.run_loop(), 1);
    }

    void expect_still_listening() const
    {
        EXPECT_EQ(context().answered, 0);
        EXPECT_EQ(context().socket.watcher.fd, fake_wire.socket_of("eth1"));
        EXPECT_EQ(fake_wire.watched_sockets(), 1);
    }

    // Names and texts with the protocol's word in them.
    std::string word() const { return protocol_.word; }
    std::string label() const { return protocol_.label; }
    std::string send_all() const { return "send_" + word() + "_discovery_all"; }
    std::string send_packet() const { return "send_" + word() + "_discovery_packet"; }
    std::string receiving() const { return "recv_" + word() + "_discovery_packet"; }
    std::string processing() const { return "process_" + word() + "_discovery_all"; }
    std::string releasing() const { return "release_" + word() + "_detect_handle"; }

    t_protocol *record() const { return &protocol_ == &DHCP ? dhcp_ : pppoe_; }

    const t_discovery_protocol &protocol_;
};

class t_both_protocols_test : public t_discovery_test,
                              public testing::WithParamInterface<const t_discovery_protocol *> {
protected:
    t_both_protocols_test() : t_discovery_test(*GetParam()) {}
};

inline std::string word_of(const testing::TestParamInfo<const t_discovery_protocol *> &parameter)
{
    return parameter.param->word;
}

#define FOR_BOTH_PROTOCOLS(suite) INSTANTIATE_TEST_SUITE_P(of, suite, testing::Values(&DHCP, &PPPOE), word_of)
