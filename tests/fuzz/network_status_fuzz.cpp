// SPDX-License-Identifier: MIT
// What the network manager and the online test answer, and how calls of them end. The input: a byte of options, two
// wait statuses of the online test, and for each call of the network manager a byte for its status and its reply.
#include <libubus.h>
#include <sys/wait.h>

#include "adapters/network_status.h"
#include "platform/bus.h"
#include "platform/log.h"
#include "tests/fuzz/support/bus_message.h"
#include "tests/fuzz/support/fake_commands.h"

namespace {

constexpr uint8_t IPV6 = 0x01;
constexpr uint8_t CONFIRM = 0x02;
constexpr uint8_t NO_SHELL = 0x04;
constexpr uint8_t JSON_FORM = 0x80;
constexpr uint8_t SILENT = 0x40; // the call ends without a reply
constexpr uint8_t STATUS_MASK = 0x0f;

t_input *answers;
int calls;
bool one_call_worked;
bool online;

int end_online_test(const std::string &)
{
    // The whole range of wait(): exits, signals, stops, and -1.
    const int status = static_cast<int16_t>(answers->word());
    online = online || (status != -1 && WIFEXITED(status) && WEXITSTATUS(status) == 0);
    return status;
}

} // namespace

int ubus_call_method(const char *object, const char *method, blob_buf *message, t_bus_reply_handler reply,
                     void *context)
{
    REQUIRE(*object && *method && message);
    calls++;
    const uint8_t how = answers->byte();
    if (!(how & SILENT)) {
        ubus_request request = {};
        request.priv = context;
        t_fuzz_message answer(answers->block(), how & JSON_FORM);
        reply(&request, UBUS_MSG_DATA, answer.attribute());
    }
    const int status = how & STATUS_MASK;
    one_call_worked = one_call_worked || status == UBUS_STATUS_OK;
    return status;
}

void prepare()
{
    log_set_level(LOG_LEVEL_Debug);
    fake_commands.ends = end_online_test;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    t_input input(data, size);
    answers = &input;
    calls = 0;
    one_call_worked = online = false;
    const uint8_t options = input.byte();
    const bool confirm = options & CONFIRM;
    fake_commands.start = !(options & NO_SHELL);

    const int status = get_network_status(options & IPV6, confirm);
    REQUIRE(calls == 1 || (calls == 2 && !(options & IPV6)));
    REQUIRE(status >= NETWORK_DISCONNECTED && status <= NETWORK_POOR_CONNECTED);
    REQUIRE(one_call_worked || status == NETWORK_DISCONNECTED);
    REQUIRE(status != NETWORK_CONNECTED || !confirm || online);
    REQUIRE(status != NETWORK_POOR_CONNECTED || (confirm && !online));
    return 0;
}
