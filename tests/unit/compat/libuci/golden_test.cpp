// SPDX-License-Identifier: MIT
// Recorded sessions with configuration files: the program answers the same and leaves the same files behind.
#include "place.h"
#include "recording.h"

#include <filesystem>

namespace fs = std::filesystem;

namespace {

class golden : public place, public testing::WithParamInterface<std::string> {
protected:
    golden() : session_(read_session(GetParam()))
    {
        fs::remove_all(conf());
        fs::copy(case_path(GetParam()) + "/in", conf());
    }

    std::string recorded(const std::string &file) const { return read_text(case_path(GetParam()) + "/" + file); }
    bool has(const std::string &file) const { return exists(case_path(GetParam()) + "/" + file); }

    outcome run(const recorded_command &command) const
    {
        outcome got = uci(command.arguments, case_path(GetParam()));
        EXPECT_EQ(got.status, command.status) << "uci" << command.arguments;
        if (command.err == "<usage text>\n") {
            EXPECT_NE(got.err.find("usage"), std::string::npos) << "uci" << command.arguments;
        } else {
            EXPECT_EQ(got.err, command.err) << "uci" << command.arguments;
        }
        return got;
    }

    // The save directory as the recordings write it: the one file, or each below its name.
    std::string saved_changes() const
    {
        std::map<std::string, std::string> files = files_of(save());
        std::string text;
        for (const auto &[name, content] : files)
            text += (files.size() > 1 ? "## " + name + "\n" : "") + content;
        return text;
    }

    std::string saved_sizes() const
    {
        std::string text;
        for (const auto &[name, content] : files_of(save()))
            text += (text.empty() ? "" : ", ") + name + " (" + std::to_string(content.size()) + " bytes)";
        return text.empty() ? "(none)" : text;
    }

    void look_at_untouched_files() const
    {
        for (const recorded_command &command : session_.before) {
            outcome got = run(command);
            if (command.arguments == " show") {
                EXPECT_EQ(got.out, recorded("show.txt"));
            } else if (command.arguments == " export") {
                EXPECT_EQ(got.out, recorded("export.txt"));
            }
        }
        if (has("show_X.txt")) {
            EXPECT_EQ(uci("-X show").out, recorded("show_X.txt"));
        }
    }

    void edit_files() const
    {
        if (has("delta_in"))
            fs::copy(case_path(GetParam()) + "/delta_in", save());
        for (const recorded_command &command : session_.edits)
            EXPECT_EQ(run(command).out, command.out) << "uci" << command.arguments;
    }

    void commit_files() const
    {
        ASSERT_EQ(session_.after.size(), 3u);
        EXPECT_EQ(saved_changes(), recorded("delta.txt"));
        EXPECT_EQ(run(session_.after[0]).out, recorded("changes.txt"));
        EXPECT_EQ(uci("show").out, recorded("show_before_commit.txt"));
        EXPECT_EQ(run(session_.after[1]).out, "");
        recorded_command show = session_.after[2];
        show.arguments = " show";
        EXPECT_EQ(run(show).out, recorded("show_after_commit.txt"));
        EXPECT_EQ(files_of(conf()), files_of(case_path(GetParam()) + "/after"));
        EXPECT_EQ(saved_sizes(), session_.saved);
    }

    recorded_session session_;
};

TEST_P(golden, session_goes_as_recorded)
{
    ASSERT_FALSE(session_.before.empty());
    look_at_untouched_files();
    ASSERT_EQ(session_.edits.empty(), !has("edit.txt"));
    if (!session_.edits.empty()) {
        edit_files();
        commit_files();
    }
}

std::string name_of_case(const testing::TestParamInfo<std::string> &parameter)
{
    return parameter.param;
}

INSTANTIATE_TEST_SUITE_P(uci, golden, testing::ValuesIn(case_names()), name_of_case);

TEST(golden_data, every_case_is_there)
{
    EXPECT_EQ(case_names().size(), 71u);
}

} // namespace
