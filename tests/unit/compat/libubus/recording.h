// SPDX-License-Identifier: MIT
// Recorded bus conversations (tests/golden/ubus) and the commands that belong to them.
#pragma once

#include <cstdint>
#include <map>
#include <string>
#include <vector>

using t_bytes = std::string;

struct t_step {
    enum t_kind { from_client, from_daemon, client_closes, daemon_closes };
    t_kind kind;
    t_bytes frame; // empty for the last two
};

struct t_conversation {
    std::string name; // "cli.3"
    std::vector<t_step> steps;

    uint32_t client_id() const; // as recorded
};

struct t_command {
    std::vector<std::string> arguments; // after "ubus -s $SOCK"
    std::string remark;                 // "stderr is a tty"
    int exit_code = 0;
    std::string output;
    std::string errors; // ends at "<usage text>", if it has that
    bool has_usage_text = false;
};

// The conversations of "03_list" in the order in which they began.
std::vector<t_conversation> load_conversations(const std::string &scenario);
t_conversation load_conversation(const std::string &scenario, const std::string &name);
std::vector<t_command> load_commands(const std::string &scenario);
// What the library clients of a scenario reported, in order, by label: "service", "caller".
std::map<std::string, std::vector<std::string>> load_reports(const std::string &scenario);
// The rest of the line that begins like this.
std::string load_note(const std::string &scenario, const std::string &start);

// Fields of a frame.
uint8_t frame_type(const t_bytes &frame);
uint16_t frame_seq(const t_bytes &frame);
uint32_t frame_peer(const t_bytes &frame);
uint32_t word_at(const t_bytes &frame, size_t offset);
void set_word_at(t_bytes &frame, size_t offset, uint32_t value);

// The words "a0000001" and up are ids the recorded daemon gave out.
bool is_recorded_id(uint32_t word);

t_bytes from_hex(const std::string &text);
std::string to_hex(const t_bytes &bytes);
