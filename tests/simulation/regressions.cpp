// SPDX-License-Identifier: MIT
// Lives that failed once.
#include <algorithm>
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

// Empty when all is well.
static std::string what_fails(const std::filesystem::path &path)
{
    std::stringstream text;
    text << std::ifstream(path).rdbuf();
    t_life life;
    if (!read_life(text.str(), &life))
        return "it is no life";
    const t_outcome once = play(life, false);
    if (once.verdict != t_verdict::passed)
        return once.text;
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
