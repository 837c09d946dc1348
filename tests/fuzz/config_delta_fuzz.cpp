// SPDX-License-Identifier: MIT
// Files of waiting changes: a commit keeps what they say, and a damaged file does not swallow later changes. The input
// is a configuration and its waiting changes, with a line "%%" between them.
#include <cstdio>
#include <cstdlib>
#include <sys/stat.h>
#include <uci.h>
#include <unistd.h>

#include "tests/fuzz/support/fuzz.h"
#include "tests/fuzz/support/private_files.h"

namespace {

constexpr char CONFIG_FILE[] = "/etc/config/net";
constexpr char CHANGES_FILE[] = "/tmp/.uci/net";
constexpr mode_t FOLDER_MODE = 0700;

struct t_loaded {
    uci_context *ctx = uci_alloc_context();
    uci_package *package = nullptr;
    int result;

    t_loaded()
    {
        REQUIRE(ctx);
        result = uci_load(ctx, "net", &package);
    }
    ~t_loaded() { uci_free_context(ctx); }
    t_loaded(const t_loaded &) = delete;
    t_loaded &operator=(const t_loaded &) = delete;

    std::string text()
    {
        char *text = nullptr;
        size_t size = 0;
        FILE *stream = open_memstream(&text, &size);
        REQUIRE(uci_export(ctx, stream, package, false) == UCI_OK);
        fclose(stream);
        const std::string result_text(text, size);
        free(text);
        return result_text;
    }
};

// What a program that only saves its change leaves behind is there for the next one.
void save_one_change()
{
    t_loaded loaded;
    char path[] = "net.witness=witness";
    uci_ptr ptr = {};
    REQUIRE(uci_lookup_ptr(loaded.ctx, &ptr, path, false) == UCI_OK);
    if (uci_set(loaded.ctx, &ptr) != UCI_OK)
        return;
    REQUIRE(uci_save(loaded.ctx, ptr.p) == UCI_OK);
    t_loaded next;
    REQUIRE(next.result == UCI_OK);
    char wanted[] = "net.witness";
    uci_ptr found = {};
    REQUIRE(uci_lookup_ptr(next.ctx, &found, wanted, false) == UCI_OK && found.s);
}

std::string commit()
{
    t_loaded loaded;
    REQUIRE(loaded.result == UCI_OK && uci_commit(loaded.ctx, &loaded.package, false) == UCI_OK);
    return loaded.text();
}

} // namespace

void prepare()
{
    enter_private_files();
    mkdir("/tmp/.uci", FOLDER_MODE);
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    const std::vector<std::string> files = split(text_of({data, size}), PART_SEPARATOR, 2);
    write_private_file(CONFIG_FILE, files[0]);
    write_private_file(CHANGES_FILE, files[1]);
    {
        t_loaded loaded;
        if (loaded.result != UCI_OK)
            return 0;
        loaded.text();
    }
    save_one_change();
    const std::string committed = commit();
    REQUIRE(read_private_file(CHANGES_FILE).empty());
    t_loaded after;
    REQUIRE(after.result == UCI_OK && after.text() == committed);
    return 0;
}
