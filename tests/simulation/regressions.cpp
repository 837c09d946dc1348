// SPDX-License-Identifier: MIT
// Lives that are kept: those that failed once, and those that must fail, for a check has to be able to.
#include <algorithm>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <vector>

#include "tests/simulation/event_log.h"
#include "tests/simulation/play.h"
#include "tests/simulation/shrink.h"

namespace sim {

static std::vector<std::filesystem::path> files_in(const std::string &folder)
{
    std::vector<std::filesystem::path> found;
    std::error_code error;
    for (const auto &entry : std::filesystem::directory_iterator(folder, error))
        if (entry.path().extension() == ".life")
            found.push_back(entry.path());
    std::sort(found.begin(), found.end());
    return found;
}

constexpr const char *FAILS = "# fails: "; // and how, in the first line of a life that must

// Empty when all is well.
static std::string what_fails(const std::filesystem::path &path)
{
    std::stringstream file;
    file << std::ifstream(path).rdbuf();
    const std::string text = file.str();
    t_life life;
    if (!read_life(text, &life))
        return "it is no life";
    const t_outcome once = play(life, false);
    const std::string told = once.verdict == t_verdict::passed ? "" : once.text;
    const size_t length = strlen(FAILS);
    const std::string wanted = text.compare(0, length, FAILS) == 0 ? text.substr(length, text.find('\n') - length) : "";
    if (wanted.empty() ? !told.empty() : told.compare(0, wanted.size(), wanted) != 0)
        return wanted.empty() ? told
                              : "it must fail by \"" + wanted + "\", and did: " + (told.empty() ? "nothing" : told);
    return play(life, false).hash == once.hash ? "" : "replay: two runs of this life differ";
}

bool play_regressions(const std::string &folder)
{
    const auto paths = files_in(folder);
    size_t failed = 0;
    for (const auto &path : paths)
        if (const std::string text = what_fails(path); !text.empty()) {
            failed++;
            say("%s: FAILED: %s\n", path.filename().c_str(), text.c_str());
        }
    say("%zu lives of %s, each twice, %zu failed\n", paths.size(), folder.c_str(), failed);
    return failed == 0 && !paths.empty();
}

} // namespace sim
