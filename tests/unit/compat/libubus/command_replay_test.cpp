// SPDX-License-Identifier: MIT
// The `ubus` program against recorded conversations: the same frames, output, complaints and exit codes.
#include "scripted_daemon.h"

#include <csignal>

namespace {

constexpr uint8_t TYPE_STATUS = 1;
constexpr uint32_t BLOB_OF_STATUS = 0x0000000c;

// Conversations of commands bear the label of their kind, numbered in order.
class t_script_names {
public:
    std::string next(const t_command &command)
    {
        std::string label = "cli";
        if (command.remark.rfind("in background", 0) == 0) {
            label = is_listen(command) ? "listen" : "wait";
        }
        return label + "." + std::to_string(++counts_[label]);
    }

    static bool is_listen(const t_command &command)
    {
        for (const std::string &argument : command.arguments) {
            if (argument == "listen") {
                return true;
            }
        }
        return false;
    }

private:
    std::map<std::string, int> counts_;
};

t_bytes status_frame(uint16_t seq, uint32_t peer, uint32_t status)
{
    t_bytes frame = frame_header(TYPE_STATUS, seq, peer, BLOB_OF_STATUS);
    t_bytes attribute(8, '\0');
    set_word_at(attribute, 0, 0x01000008);
    set_word_at(attribute, 4, status);
    return frame + attribute;
}

class command_replay : public testing::TestWithParam<std::string> {
protected:
    std::vector<std::string> program_arguments(const t_command &command)
    {
        std::vector<std::string> arguments = {"-s", socket_};
        for (const std::string &argument : command.arguments) {
            bool is_long_wait = !arguments.empty() && arguments.back() == "-t" && argument == "2";
            arguments.push_back(is_long_wait ? "1" : argument);
        }
        return arguments;
    }

    // What the recording does to end a command that does not end by itself.
    void end_command(const t_command &command, t_process &process, t_connection &connection)
    {
        if (command.remark.find("SIGTERM") != std::string::npos) {
            process.signal(SIGTERM);
        } else if (command.remark.find("SIGINT") != std::string::npos) {
            process.signal(SIGINT);
        } else if (command.exit_code == -SIGKILL) {
            process.signal(SIGKILL);
        } else if (command.errors.find("call demo status (Not found)") != std::string::npos) {
            // The object was hidden; what is called then was left out of the recording.
            std::optional<t_bytes> call = connection.receive();
            ASSERT_TRUE(call);
            connection.send(status_frame(frame_seq(*call), frame_peer(*call), 4));
        }
        EXPECT_TRUE(connection.is_closed_by_peer());
    }

    void expect_recorded_result(const t_command &command, t_process &process)
    {
        EXPECT_EQ(process.wait(), command.exit_code);
        EXPECT_EQ(process.output(), command.output);
        if (command.has_usage_text) {
            EXPECT_EQ(process.errors().substr(0, command.errors.size()), command.errors);
            EXPECT_EQ(process.errors().substr(command.errors.size(), 7), "Usage: ");
        } else {
            EXPECT_EQ(process.errors(), command.errors);
        }
    }

    t_private_folder folder_;
    std::string socket_ = folder_.path("bus");
    t_scripted_daemon daemon_{socket_};
};

TEST_P(command_replay, frames_output_and_exit_code_are_the_recorded_ones)
{
    t_script_names names;
    std::vector<t_command> commands = load_commands(GetParam());
    ASSERT_FALSE(commands.empty());
    for (const t_command &command : commands) {
        SCOPED_TRACE(testing::Message() << "ubus " << testing::PrintToString(command.arguments) << command.remark);
        bool is_at_terminal = command.remark == "stderr is a tty";
        t_process process("ubus", program_arguments(command),
                          is_at_terminal ? t_process::to_terminal : t_process::to_pipe);
        if (!command.arguments.empty()) {
            daemon_.play(load_conversation(GetParam(), names.next(command)),
                         [&](t_connection &connection) { end_command(command, process, connection); });
        }
        expect_recorded_result(command, process);
        if (HasFailure()) {
            return;
        }
    }
}

INSTANTIATE_TEST_SUITE_P(recorded, command_replay,
                         testing::Values("03_list", "04_call_table", "05_call_missing_object", "06_call_missing_method",
                                         "07_call_errors", "08_events", "09_cli_listen", "11_invoke_timeout",
                                         "12_service_dies", "13_caller_dies", "14_deferred", "17_wait_for",
                                         "20_nonroot", "26_reconnect", "27_signature_types"),
                         [](const auto &which) { return "scenario_" + which.param; });

} // namespace
