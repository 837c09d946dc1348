// SPDX-License-Identifier: MIT
// Commands of the program uci, one per line as its "batch" reads them, and configurations that it imports. The input is
// a byte of options, and a configuration and the commands with a line "%%" between them.
#include <cstdlib>
#include <filesystem>
#include <sys/stat.h>

#include "compat/libuci/cli/session.h"
#include "tests/fuzz/support/fuzz.h"
#include "tests/fuzz/support/private_files.h"

namespace {

constexpr char COMMANDS_FILE[] = "/var/commands";
constexpr char CONFIG_FOLDER[] = "/etc/config";
constexpr char SAVE_FOLDER[] = "/tmp/.uci";
constexpr mode_t FOLDER_MODE = 0700;

constexpr uint8_t IMPORT = 0x01; // the commands are a configuration
constexpr uint8_t MERGE = 0x02;
constexpr uint8_t REAL_NAMES = 0x04;
constexpr uint8_t LENIENT = 0x08;
constexpr uint8_t QUIET = 0x10;
constexpr uint8_t KEEP_CHANGES = 0x20;

void empty_folder(const char *folder)
{
    std::error_code ignored;
    for (const auto &entry : std::filesystem::directory_iterator(folder))
        std::filesystem::remove_all(entry.path(), ignored);
}

void load_everything()
{
    uci_context *ctx = uci_alloc_context();
    REQUIRE(ctx);
    char **names = nullptr;
    REQUIRE(uci_list_configs(ctx, &names) == UCI_OK);
    for (char **name = names; *name; name++) {
        uci_package *package = nullptr;
        uci_load(ctx, *name, &package);
    }
    free(names);
    uci_free_context(ctx);
}

} // namespace

void prepare()
{
    enter_private_files();
    mkdir(SAVE_FOLDER, FOLDER_MODE);
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    t_input input(data, size);
    const uint8_t options = input.byte();
    const std::vector<std::string> files = split(text_of(input.rest()), PART_SEPARATOR, 2);
    empty_folder(CONFIG_FOLDER);
    empty_folder(SAVE_FOLDER);
    write_private_file(std::string(CONFIG_FOLDER) + "/net", files[0]);
    write_private_file(COMMANDS_FILE, files[1]);

    uci_cli::session session;
    session.ctx = uci_alloc_context();
    REQUIRE(session.ctx);
    session.program = "uci";
    session.input_path = COMMANDS_FILE;
    session.merge = options & MERGE;
    session.real_names = options & REAL_NAMES;
    session.quiet = options & QUIET;
    session.keeps_delta = options & KEEP_CHANGES;
    if (options & LENIENT)
        session.ctx->flags = static_cast<uci_flags>(session.ctx->flags & ~UCI_FLAG_STRICT);
    char package[] = "net";
    uci_cli::arguments arguments;
    if (options & IMPORT) {
        arguments.first = package;
        uci_cli::import(session, arguments);
    } else {
        REQUIRE(uci_cli::batch(session, arguments) == EXIT_SUCCESS);
    }
    uci_free_context(session.ctx);
    load_everything();
    return 0;
}
