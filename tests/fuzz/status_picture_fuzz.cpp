// SPDX-License-Identifier: MIT
// What a person is shown of the daemon's replies. The input: a byte that chooses the forms (0x80: JSON) and the look,
// the answer of "status" with its length before it, and that of "history".
#include <cstdio>
#include <cstdlib>

#include "status/json_text.h"
#include "status/picture.h"
#include "tests/fuzz/support/bus_message.h"

namespace {

constexpr uint8_t JSON_FORM = 0x80;
constexpr uint8_t UTF8 = 0x01;
constexpr size_t MOST_LINES = 1000;

bool is_printable(char letter)
{
    return letter == '\n' || (letter >= ' ' && letter <= '~');
}

struct t_text {
    char *text = nullptr;
    size_t size = 0;
    FILE *out = open_memstream(&text, &size);

    ~t_text() { free(text); }
    std::string_view end()
    {
        fclose(out);
        return {text, size};
    }
};

void check_picture(t_fuzz_message &status, t_fuzz_message &history, bool utf8)
{
    t_text picture;
    draw_picture(picture.out, status.attribute(), history.attribute(), {utf8, false});
    const std::vector<std::string> lines = split(picture.end(), "\n", MOST_LINES + 1);
    REQUIRE(lines.back().empty());
    for (const std::string &line : lines) {
        size_t columns = 0;
        for (const char letter : line) {
            REQUIRE(utf8 || is_printable(letter));
            columns += (letter & 0xc0) != 0x80;
        }
        REQUIRE(columns <= static_cast<size_t>(PAGE_WIDTH));
    }
}

void check_json(t_fuzz_message &status)
{
    t_text json;
    print_json(json.out, status.attribute());
    for (const char letter : json.end())
        REQUIRE(is_printable(letter));
}

} // namespace

void prepare() {}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    t_input input(data, size);
    const uint8_t options = input.byte();
    t_fuzz_message status(input.block(), options & JSON_FORM);
    t_fuzz_message history(input.rest(), options & JSON_FORM);
    check_picture(status, history, options & UTF8);
    check_json(status);
    return 0;
}
