// SPDX-License-Identifier: MIT
// Reader of the recorded conversations.
#include "recording.h"

#include <algorithm>
#include <arpa/inet.h>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <stdexcept>

namespace {

const std::string FOLDER = WAN_DETECT_TEST_DATA "/golden/ubus/";
constexpr uint32_t FIRST_RECORDED_ID = 0xa0000001;
constexpr uint32_t LAST_RECORDED_ID = 0xa00000ff;
constexpr size_t PEER_OFFSET = 4;

std::vector<std::string> read_lines(const std::string &path)
{
    std::ifstream file(path);
    if (!file) {
        throw std::runtime_error("cannot read " + path);
    }
    std::vector<std::string> lines;
    for (std::string line; std::getline(file, line);) {
        lines.push_back(line);
    }
    return lines;
}

bool starts_with(const std::string &text, const std::string &prefix)
{
    return text.compare(0, prefix.size(), prefix) == 0;
}

// Words of a shell command, which quotes with ' only.
std::vector<std::string> split_words(const std::string &line)
{
    std::vector<std::string> words;
    std::string word;
    bool has_word = false, is_quoted = false;
    for (char c : line) {
        if (c == '\'') {
            is_quoted = !is_quoted;
            has_word = true;
        } else if (c == ' ' && !is_quoted) {
            if (has_word) {
                words.push_back(word);
            }
            word.clear();
            has_word = false;
        } else {
            word += c;
            has_word = true;
        }
    }
    if (has_word) {
        words.push_back(word);
    }
    return words;
}

t_command read_command(const std::string &line)
{
    const std::string start = "$ ubus -s $SOCK ";
    t_command command;
    std::string text = line.substr(start.size());
    size_t remark = text.find("   (");
    if (remark != std::string::npos) {
        command.remark = text.substr(remark + 4, text.size() - remark - 5);
        text.resize(remark);
    }
    command.arguments = split_words(text);
    return command;
}

} // namespace

uint32_t t_conversation::client_id() const
{
    return frame_peer(steps.at(0).frame);
}

t_conversation load_conversation(const std::string &scenario, const std::string &name)
{
    t_conversation conversation = {.name = name, .steps = {}};
    for (const std::string &line : read_lines(FOLDER + scenario + "." + name + ".hex")) {
        if (starts_with(line, "> ")) {
            conversation.steps.push_back({t_step::from_client, from_hex(line.substr(2))});
        } else if (starts_with(line, "< ")) {
            conversation.steps.push_back({t_step::from_daemon, from_hex(line.substr(2))});
        } else if (line == "# client closed") {
            conversation.steps.push_back({t_step::client_closes, {}});
        } else if (line == "# ubusd closed") {
            conversation.steps.push_back({t_step::daemon_closes, {}});
        }
    }
    return conversation;
}

std::vector<t_conversation> load_conversations(const std::string &scenario)
{
    std::vector<t_conversation> conversations;
    for (const auto &entry : std::filesystem::directory_iterator(FOLDER)) {
        std::string file = entry.path().filename();
        if (starts_with(file, scenario + ".") && entry.path().extension() == ".hex") {
            std::string name = file.substr(scenario.size() + 1);
            conversations.push_back(load_conversation(scenario, name.substr(0, name.size() - strlen(".hex"))));
        }
    }
    std::sort(conversations.begin(), conversations.end(),
              [](const auto &a, const auto &b) { return a.client_id() < b.client_id(); });
    return conversations;
}

std::vector<t_command> load_commands(const std::string &scenario)
{
    std::vector<t_command> commands;
    for (const std::string &line : read_lines(FOLDER + scenario + ".txt")) {
        if (starts_with(line, "$ ")) {
            commands.push_back(read_command(line));
        } else if (starts_with(line, "exit=")) {
            commands.back().exit_code = std::stoi(line.substr(strlen("exit=")));
        } else if (starts_with(line, "stdout: ")) {
            commands.back().output += line.substr(strlen("stdout: ")) + "\n";
        } else if (line == "stderr: <usage text>") {
            commands.back().has_usage_text = true;
        } else if (starts_with(line, "stderr: ")) {
            commands.back().errors += line.substr(strlen("stderr: ")) + "\n";
        }
    }
    return commands;
}

std::map<std::string, std::vector<std::string>> load_reports(const std::string &scenario)
{
    std::map<std::string, std::vector<std::string>> reports;
    std::string label;
    for (const std::string &line : read_lines(FOLDER + scenario + ".txt")) {
        if (starts_with(line, "[")) {
            label = line.substr(1, line.find(']') - 1);
        } else if (starts_with(line, "  | ")) {
            reports[label].push_back(line.substr(strlen("  | ")));
        }
    }
    return reports;
}

std::string load_note(const std::string &scenario, const std::string &start)
{
    for (const std::string &line : read_lines(FOLDER + scenario + ".txt")) {
        if (starts_with(line, start)) {
            return line.substr(start.size());
        }
    }
    return "";
}

uint8_t frame_type(const t_bytes &frame)
{
    return static_cast<uint8_t>(frame.at(1));
}

uint16_t frame_seq(const t_bytes &frame)
{
    return static_cast<uint16_t>(word_at(frame, 0));
}

uint32_t frame_peer(const t_bytes &frame)
{
    return word_at(frame, PEER_OFFSET);
}

uint32_t word_at(const t_bytes &frame, size_t offset)
{
    uint32_t word = 0;
    memcpy(&word, frame.substr(offset).data(), sizeof(word));
    return ntohl(word);
}

void set_word_at(t_bytes &frame, size_t offset, uint32_t value)
{
    uint32_t word = htonl(value);
    memcpy(&frame.at(offset), &word, sizeof(word));
}

bool is_recorded_id(uint32_t word)
{
    return word >= FIRST_RECORDED_ID && word <= LAST_RECORDED_ID;
}

t_bytes from_hex(const std::string &text)
{
    t_bytes bytes;
    for (size_t i = 0; i + 1 < text.size(); i += 2) {
        bytes += static_cast<char>(std::stoi(text.substr(i, 2), nullptr, 16));
    }
    return bytes;
}

std::string to_hex(const t_bytes &bytes)
{
    const char *digits = "0123456789abcdef";
    std::string text;
    for (char byte : bytes) {
        text += digits[static_cast<unsigned char>(byte) >> 4];
        text += digits[static_cast<unsigned char>(byte) & 15];
    }
    return text;
}
