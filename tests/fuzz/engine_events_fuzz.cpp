// SPDX-License-Identifier: MIT
// The engine in a world where anything happens at any time: cables, bus calls, commands, answers, changes of the
// configuration. Whatever happened, it comes to rest once it is switched off, and again once the router works. The
// input: two lines with the ports' order and the fake WAN port, and a row of steps: a byte that chooses the step, and
// what that step needs.
#include "tests/fuzz/support/engine_scene.h"
#include "tests/fuzz/support/fake_commands.h"
#include "tests/unit/core/fake_probes.h"

namespace {

constexpr int MOST_STEPS = 64;
constexpr int LONGEST_PAUSE_MS = 30'000;
constexpr int REST_MS = 120'000; // a switch is tested anew after 21 s; all of it again after that
constexpr int METHOD_SET = 2;
constexpr uint8_t FLAG = 0x80;
constexpr uint8_t HANDLER_MASK = 0x07;

enum t_step : uint8_t {
    PASS_TIME,
    FIRE_TIMER,
    PLUG,
    SCAN,
    LOOK_AT_COMBO_PORT,
    CALL,
    PEERS,
    PROBE_RESULTS,
    NETWORK,
    CONFIGURE,
    PORT_STATES,
    COMBO_STATE,
    COMMANDS,
    STEPS
};

template <typename Set> void set_member(Set &ports, const std::string &port, bool is_member)
{
    is_member ? static_cast<void>(ports.insert(port)) : static_cast<void>(ports.erase(port));
}

void set_peers(const std::string &port, uint8_t peers)
{
    enum : uint8_t { DHCP = 0x01, PPPOE = 0x02, GATEWAY_HOST = 0x04, LAN_HOST = 0x08, NAME_SERVER = 0x10 };
    set_member(fake_probes.dhcp_ports, port, peers & DHCP);
    set_member(fake_probes.pppoe_ports, port, peers & PPPOE);
    set_member(fake_probes.gateway_ports, port, peers & GATEWAY_HOST);
    set_member(fake_probes.lan_ports, port, peers & LAN_HOST);
    fake_probes.dns_ports.clear();
    if (peers & NAME_SERVER)
        fake_probes.dns_ports.push_back(port);
}

void set_probe_results(t_input &input)
{
    fake_probes.dhcp_result = -static_cast<int>(input.byte() & 0x7f);
    fake_probes.pppoe_result = -static_cast<int>(input.byte() & 0x7f);
    fake_probes.bridge_readable = !(input.byte() & FLAG);
}

void call(t_engine_scene &scene, const std::string &json)
{
    scene.call(METHOD_SET, {reinterpret_cast<const uint8_t *>(json.data()), json.size()}, true);
}

void take_step(t_engine_scene &scene, uint8_t choice, t_input &input)
{
    const bool flag = choice & FLAG;
    switch ((choice & ~FLAG) % STEPS) {
    case PASS_TIME:
        scene.pass_ms(input.word() % LONGEST_PAUSE_MS);
        break;
    case FIRE_TIMER:
        scene.fire_next_timer();
        break;
    case PLUG:
        scene.links[input.byte() % ENGINE_PORTS] = flag;
        break;
    case SCAN:
        scene.scan_links();
        break;
    case LOOK_AT_COMBO_PORT:
        scene.look_at_combo_port();
        break;
    case CALL: {
        const int handler = input.byte() & HANDLER_MASK;
        scene.call(handler, input.block(), !flag);
        break;
    }
    case PEERS: {
        const std::string port = t_engine_scene::port(input.byte());
        set_peers(port, input.byte());
        break;
    }
    case PROBE_RESULTS:
        set_probe_results(input);
        break;
    case NETWORK:
        scene.network_state = static_cast<int>(input.byte() % 5) - 2;
        scene.bus_result = flag ? input.byte() : 0;
        scene.online_test = static_cast<int16_t>(input.word());
        break;
    case CONFIGURE: {
        const auto setting = static_cast<t_setting>(input.byte() % SETTINGS);
        scene.configure(setting, text_of(input.block()));
        break;
    }
    case PORT_STATES:
        scene.port_states = text_of(input.block());
        break;
    case COMBO_STATE:
        scene.combo_state = text_of(input.block());
        break;
    case COMMANDS:
        scene.swap_works = flag;
        fake_commands.start = input.byte() % 4 != 0;
        break;
    }
}

} // namespace

void prepare()
{
    prepare_engine_scene();
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    t_input input(data, size);
    const std::string priority = text_of(input.block());
    const std::string fake_wan = text_of(input.block());
    t_engine_scene scene(priority.empty() ? "0 1 2 3 4" : priority, fake_wan);
    if (!scene.started())
        return 0;
    for (int steps = 0; !input.empty() && steps < MOST_STEPS; steps++) {
        take_step(scene, input.byte(), input);
        scene.check();
    }
    call(scene, R"({"enable":false})");
    scene.pass_ms(REST_MS);
    scene.check();
    REQUIRE(scene.at_rest());

    scene.mend_router();
    port_model.router_mode = 1;
    call(scene, R"({"enable":true})");
    scene.scan_links();
    scene.pass_ms(REST_MS);
    scene.check();
    REQUIRE(scene.at_rest());
    return 0;
}
