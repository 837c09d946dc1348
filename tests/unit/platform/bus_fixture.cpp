// SPDX-License-Identifier: MIT
#include "tests/unit/platform/bus_fixture.h"
#include "tests/unit/support/this_build.h"

#include <chrono>
#include <csignal>
#include <filesystem>
#include <sys/prctl.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <sys/wait.h>
#include <thread>
#include <unistd.h>

#include <gtest/gtest.h>

extern "C" {
#include <libubox/blobmsg_json.h>
}

namespace {

using clock_type = std::chrono::steady_clock;
using std::chrono::milliseconds;

constexpr milliseconds LOOP_TURN{5};
constexpr milliseconds BUS_START_PATIENCE{5000};

std::string bus_program()
{
    const std::string built = BIN_FOLDER + "/ubusd";
    return std::filesystem::exists(built) ? built : "ubusd";
}

bool accepts(const std::string &path)
{
    sockaddr_un address = {};
    address.sun_family = AF_UNIX;
    path.copy(address.sun_path, sizeof address.sun_path - 1);
    int fd = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
    bool accepted = connect(fd, reinterpret_cast<const sockaddr *>(&address), sizeof address) == 0;
    close(fd);
    return accepted;
}

struct t_pending_call {
    t_call_result result;
    bool done = false;
};

void take_reply(ubus_request *request, int, blob_attr *message)
{
    auto *call = static_cast<t_pending_call *>(request->priv);
    call->result.replies++;
    const blobmsg_policy policy[] = {{"err_code", BLOBMSG_TYPE_INT32}};
    blob_attr *fields[1];
    blobmsg_parse(policy, 1, fields, blob_data(message), static_cast<unsigned>(blob_len(message)));
    if (fields[0])
        call->result.err_code = static_cast<int32_t>(blobmsg_get_u32(fields[0]));
}

void take_status(ubus_request *request, int status)
{
    auto *call = static_cast<t_pending_call *>(request->priv);
    call->result.status = status;
    call->done = true;
}

} // namespace

bool loop_until(const std::function<bool()> &done, int timeout_ms)
{
    auto end = clock_type::now() + milliseconds(timeout_ms);
    while (!done()) {
        if (clock_type::now() >= end)
            return false;
        uloop_run_timeout(static_cast<int>(LOOP_TURN.count()));
    }
    return true;
}

t_bus_daemon::t_bus_daemon(const std::string &path) : path_(path)
{
    start();
}

t_bus_daemon::~t_bus_daemon()
{
    kill();
    unlink(path_.c_str());
}

void t_bus_daemon::start()
{
    std::string program = bus_program();
    pid_ = fork();
    if (pid_ == 0) {
        prctl(PR_SET_PDEATHSIG, SIGKILL);
        execlp(program.c_str(), program.c_str(), "-s", path_.c_str(), nullptr);
        _exit(127);
    }
    auto end = clock_type::now() + BUS_START_PATIENCE;
    while (!accepts(path_) && clock_type::now() < end)
        std::this_thread::sleep_for(milliseconds(2));
    ASSERT_TRUE(accepts(path_)) << program;
}

void t_bus_daemon::kill()
{
    if (pid_ < 0)
        return;
    ::kill(pid_, SIGKILL);
    waitpid(pid_, nullptr, 0);
    pid_ = -1;
}

void t_bus_daemon::stop()
{
    ::kill(pid_, SIGSTOP);
}

void t_bus_daemon::go_on()
{
    ::kill(pid_, SIGCONT);
}

t_bus_client::t_bus_client(const std::string &path) : context_(ubus_connect(path.c_str()))
{
    if (context_)
        ubus_add_uloop(context_);
}

t_bus_client::~t_bus_client()
{
    if (context_)
        ubus_free(context_);
}

bool t_bus_client::knows(const char *object)
{
    uint32_t id = 0;
    return ubus_lookup_id(context_, object, &id) == 0 && id != 0;
}

t_call_result t_bus_client::call(const char *object, const char *method, blob_attr *message)
{
    t_pending_call call;
    uint32_t id = 0;
    call.result.status = ubus_lookup_id(context_, object, &id);
    if (call.result.status != 0)
        return call.result;
    ubus_request request = {};
    ubus_invoke_async(context_, id, method, message, &request);
    request.data_cb = take_reply;
    request.complete_cb = take_status;
    request.priv = &call;
    ubus_complete_request_async(context_, &request);
    if (!loop_until([&call] { return call.done; })) {
        ubus_abort_request(context_, &request);
        call.result.status = UBUS_STATUS_TIMEOUT;
    }
    return call.result;
}

t_call_result t_bus_client::call(const char *method, const std::string &json)
{
    t_message message(json);
    return call("wan_detect", method, message.buffer.head);
}

bool t_bus_client::send_event(const char *id, blob_attr *message)
{
    return ubus_send_event(context_, id, message) == 0;
}

bool t_bus_client::send_event(const std::string &json)
{
    t_message message(json);
    return send_event("wan_detect_add_banned_dev", message.buffer.head);
}

t_message::t_message(const std::string &json)
{
    blob_buf_init(&buffer, 0);
    EXPECT_TRUE(blobmsg_add_json_from_string(&buffer, json.c_str())) << json;
}
