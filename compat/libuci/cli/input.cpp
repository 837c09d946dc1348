// SPDX-License-Identifier: MIT
// The commands that read a text: import and batch.
#include "files.h"
#include "line_reader.h"
#include "session.h"

#include <cstdio>
#include <cstdlib>

namespace uci_cli {

namespace {

// Standard input, or the file named on the command line.
class input_stream {
public:
    explicit input_stream(const char *path)
        : stream_(path != nullptr ? fopen(path, "re") : stdin), owned_(path != nullptr)
    {
    }
    input_stream(const input_stream &) = delete;
    input_stream &operator=(const input_stream &) = delete;
    ~input_stream()
    {
        if (owned_ && stream_ != nullptr)
            fclose(stream_);
    }

    FILE *get() const { return stream_; }

private:
    FILE *stream_;
    bool owned_;
};

// What was imported stands alone in the context afterwards.
void unload_all(uci_context *ctx)
{
    uci_element *e = nullptr;
    uci_element *next = nullptr;
    uci_foreach_element_safe(&ctx->root, next, e) uci_unload(ctx, uci_to_package(e));
}

int write_imported(const session &s)
{
    // A commit may put another record in the place of the package.
    for (uci_list *place = s.ctx->root.next; place != &s.ctx->root; place = place->next) {
        uci_package *package = uci_to_package(list_to_element(place));
        if (uci_commit(s.ctx, &package, true) != UCI_OK)
            return fail(s);
        place = &package->e.list;
    }
    return EXIT_SUCCESS;
}

int import_over(const session &s, FILE *stream, const char *name)
{
    uci_package *package = nullptr;
    unload_all(s.ctx);
    if (uci_import(s.ctx, stream, name, &package, name != nullptr) != UCI_OK)
        return fail(s);
    return write_imported(s);
}

int import_into(const session &s, FILE *stream, char *name)
{
    uci_ptr ptr = {};
    if (!look_up(s, name, &ptr))
        return EXIT_FAILURE;
    if (uci_import(s.ctx, stream, name, &ptr.p, true) != UCI_OK || uci_save(s.ctx, ptr.p) != UCI_OK)
        return fail(s);
    return EXIT_SUCCESS;
}

constexpr int most_words = 3; // a command and its arguments

// One line of a batch: words are offsets into the line until all of them are read.
int run_line(session &s, uci_impl::line_reader *reader)
{
    size_t words[most_words + 1];
    int count = 0;
    for (; count <= most_words; ++count) {
        int rc = reader->read_word(&words[count]);
        if (rc != UCI_OK)
            return fail(s, rc);
        if (*reader->text_at(words[count]) == '\0')
            break;
    }
    if (count == 0)
        return EXIT_SUCCESS;
    const command *found = find_command(reader->text_at(words[0]), count - 1);
    // A batch within a batch would read the same file from its start, without an end.
    if (found == nullptr || found->run == batch) {
        fputs("Unknown command\n", stderr);
        return EXIT_FAILURE;
    }
    arguments args;
    args.first = count > 1 ? reader->text_at(words[1]) : nullptr;
    args.second = count > 2 ? reader->text_at(words[2]) : nullptr;
    return found->run(s, args);
}

} // namespace

int import(session &s, const arguments &args)
{
    input_stream input(s.input_path);
    if (input.get() == nullptr)
        return fail(s, UCI_ERR_IO);
    bool into = s.merge && args.first != nullptr;
    return into ? import_into(s, input.get(), args.first) : import_over(s, input.get(), args.first);
}

int batch(session &s, const arguments &)
{
    input_stream input(s.input_path);
    uci_impl::file_text text;
    int rc = input.get() != nullptr ? uci_impl::read_stream(input.get(), &text) : UCI_ERR_IO;
    if (rc != UCI_OK)
        return fail(s, rc);
    uci_impl::line_reader reader(text.data.get(), text.size);
    while (reader.next_line() == UCI_OK) {
        // A line that fails does not stop the others.
        if (reader.next_command())
            run_line(s, &reader);
    }
    return EXIT_SUCCESS;
}

} // namespace uci_cli
