// SPDX-License-Identifier: MIT
#include "recording.h"

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <stdexcept>

namespace fs = std::filesystem;

namespace {

const std::string directory = WAN_DETECT_TEST_DATA "/golden/uci";

// The rest of a line behind a prefix, if it has it.
bool behind(const std::string &line, const std::string &prefix, std::string *rest)
{
    if (line.compare(0, prefix.size(), prefix) != 0)
        return false;
    *rest = line.substr(prefix.size());
    return true;
}

} // namespace

std::string case_path(const std::string &name)
{
    return directory + "/" + name;
}

std::vector<std::string> case_names()
{
    std::vector<std::string> names;
    for (const fs::directory_entry &entry : fs::directory_iterator(directory)) {
        if (fs::exists(entry.path() / "status.txt"))
            names.push_back(entry.path().filename());
    }
    std::sort(names.begin(), names.end());
    return names;
}

recorded_session read_session(const std::string &name)
{
    std::ifstream file(case_path(name) + "/status.txt", std::ios::binary);
    recorded_session session;
    std::vector<recorded_command> *part = &session.before;
    bool in_command = false; // its text may span lines
    std::string line;
    std::string rest;
    while (std::getline(file, line)) {
        if (in_command && behind(line, "exit=", &rest)) {
            part->back().status = std::stoi(rest);
            in_command = false;
        } else if (in_command) {
            part->back().arguments += "\n" + line;
        } else if (behind(line, "$ uci", &rest)) {
            part->push_back({rest, 0, "", ""});
            in_command = true;
        } else if (behind(line, "stdout: ", &rest)) {
            part->back().out += rest + "\n";
        } else if (behind(line, "stderr: ", &rest)) {
            part->back().err += rest + "\n";
        } else if (behind(line, "# save directory after commit: ", &rest)) {
            session.saved = rest;
        } else if (line == "# edit.txt, line by line") {
            part = &session.edits;
        } else if (line == "# after edit.txt") {
            part = &session.after;
        } else if (line.empty() || line[0] != '#') {
            throw std::runtime_error(name + ": unknown line: " + line);
        }
    }
    return session;
}
