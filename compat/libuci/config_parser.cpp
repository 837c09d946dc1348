// SPDX-License-Identifier: MIT
// Reads configuration text, command by command, into the tree.
#include "line_reader.h"
#include "names.h"
#include "packages.h"
#include "support.h"
#include "tree.h"

#include <cstdio>
#include <cstring>
#include <string_view>

namespace uci_impl {

namespace {

class config_parser {
public:
    config_parser(uci_context *ctx, const char *text, size_t size) : ctx_(ctx), reader_(text, size) {}

    // Everything goes into one package; package lines are ignored.
    void fill(uci_package *package, recording record)
    {
        package_ = package;
        record_ = record;
    }
    // Package lines start new packages, appended to the list.
    void collect(uci_list *packages) { packages_ = packages; }

    int run();

private:
    bool is_strict() const { return (ctx_->flags & UCI_FLAG_STRICT) != 0; }
    int fail(const char *reason) { return fail_at(reason, reader_.byte()); }
    int fail_at(const char *reason, size_t byte);
    int read_word(size_t *word);
    int end_of_command();
    int read_commands();
    int read_command();
    int read_package();
    int read_config(size_t start);
    int read_option(size_t start, bool is_list);
    int enter_section(const char *type, const char *name);

    uci_context *ctx_;
    line_reader reader_;
    uci_package *package_ = nullptr;
    uci_list *packages_ = nullptr; // null: package lines are ignored
    uci_section *section_ = nullptr;
    recording record_ = recording::off;
};

int config_parser::fail_at(const char *reason, size_t byte)
{
    ctx_->pctx->reason = reason;
    ctx_->pctx->line = reader_.line_number();
    ctx_->pctx->byte = static_cast<int>(byte);
    return UCI_ERR_PARSE;
}

int config_parser::read_word(size_t *word)
{
    int rc = reader_.read_word(word);
    return rc == UCI_ERR_PARSE ? fail(reader_.reason()) : rc;
}

int config_parser::end_of_command()
{
    size_t surplus = 0;
    int rc = read_word(&surplus);
    if (rc == UCI_OK && is_strict() && *reader_.text_at(surplus) != '\0')
        return fail("too many arguments");
    return rc;
}

int config_parser::read_package()
{
    size_t name = 0;
    int rc = read_word(&name);
    if (rc != UCI_OK)
        return rc;
    if (*reader_.text_at(name) == '\0')
        return fail("insufficient arguments");
    if (!is_valid_package_line(reader_.text_at(name)))
        return fail("invalid character in name field");
    rc = end_of_command();
    if (rc != UCI_OK || packages_ == nullptr)
        return rc;
    rc = make_package(ctx_, reader_.text_at(name), &package_);
    if (rc != UCI_OK)
        return rc;
    section_ = nullptr;
    list_append(packages_, &package_->e.list);
    return UCI_OK;
}

int config_parser::enter_section(const char *type, const char *name)
{
    section_ = *name != '\0' ? find_section(package_, name) : nullptr;
    if (section_ == nullptr)
        return create_section(package_, type, name, record_, &section_);
    if (strcmp(section_->type, type) != 0)
        return fail("section of different type overwrites prior section with same name");
    return UCI_OK;
}

int config_parser::read_config(size_t start)
{
    if (package_ == nullptr)
        return fail_at("attempting to import a file without a package name", start);
    size_t type = 0;
    size_t name = 0;
    int rc = read_word(&type);
    if (rc != UCI_OK)
        return rc;
    if (*reader_.text_at(type) == '\0')
        return fail("insufficient arguments");
    if (!is_valid_type(reader_.text_at(type)))
        return fail("invalid character in type field");
    rc = read_word(&name);
    if (rc != UCI_OK)
        return rc;
    if (*reader_.text_at(name) != '\0' && !is_valid_name(reader_.text_at(name)))
        return fail("invalid character in name field");
    rc = end_of_command();
    return rc == UCI_OK ? enter_section(reader_.text_at(type), reader_.text_at(name)) : rc;
}

int config_parser::read_option(size_t start, bool is_list)
{
    if (section_ == nullptr)
        return fail_at("option/list command found before the first section", start);
    size_t name = 0;
    size_t value = 0;
    int rc = read_word(&name);
    if (rc != UCI_OK)
        return rc;
    if (*reader_.text_at(name) == '\0')
        return fail("insufficient arguments");
    if (!is_valid_name(reader_.text_at(name)))
        return fail("invalid character in name field");
    rc = read_word(&value);
    if (rc == UCI_OK)
        rc = end_of_command();
    if (rc != UCI_OK)
        return rc;
    const char *text = reader_.text_at(value);
    if (is_list)
        return append_item(section_, reader_.text_at(name), text, record_);
    // An option without value is as good as none, and does not undo an earlier one.
    return *text != '\0' ? change_option(section_, reader_.text_at(name), text, record_) : UCI_OK;
}

int config_parser::read_command()
{
    size_t start = reader_.byte();
    const std::string_view keyword = reader_.take_keyword();
    // In full, or its first letter.
    auto is = [keyword](std::string_view name) {
        return keyword == name || (keyword.size() == 1 && keyword[0] == name[0]);
    };
    if (is("package"))
        return read_package();
    if (is("config"))
        return read_config(start);
    if (is("option"))
        return read_option(start, false);
    if (is("list"))
        return read_option(start, true);
    return fail_at("invalid command", start);
}

int config_parser::read_commands()
{
    while (reader_.next_command()) {
        int rc = read_command();
        if (rc != UCI_OK)
            return rc;
    }
    return UCI_OK;
}

int config_parser::run()
{
    for (;;) {
        int rc = reader_.next_line();
        if (rc == UCI_ERR_NOTFOUND)
            return UCI_OK;
        if (rc == UCI_OK)
            rc = read_commands();
        if (rc == UCI_ERR_PARSE && !is_strict()) {
            const uci_parse_context &error = *ctx_->pctx;
            fprintf(stderr, "Parse error (%s) at line %d, byte %d\n", error.reason, error.line, error.byte);
            ctx_->pctx->reason = nullptr;
            continue;
        }
        if (rc != UCI_OK)
            return rc;
    }
}

} // namespace

int parse_config(uci_context *ctx, const char *text, size_t size, uci_package *package, recording record)
{
    config_parser parser(ctx, text, size);
    parser.fill(package, record);
    return parser.run();
}

int parse_packages(uci_context *ctx, const char *text, size_t size, uci_list *packages)
{
    config_parser parser(ctx, text, size);
    parser.collect(packages);
    return parser.run();
}

} // namespace uci_impl
