// SPDX-License-Identifier: MIT
#include "status/panel.h"

#include <algorithm>
#include <cstring>

#include "status/fields.h"
#include "status/form.h"

constexpr int MOST_PORTS = 32;
constexpr int WIDEST_ROW = 5; // ports, in PAGE_WIDTH columns
constexpr int CELL_WIDTH = 14;
constexpr int INDENT = 2;
constexpr size_t GLYPH_SIZE = 4;
constexpr size_t LINK_SIZE = 13;

namespace {

using t_glyph = char[GLYPH_SIZE];

struct t_glyphs {
    t_glyph top[3], bottom[3]; // left, between cells, right
    t_glyph level, upright, cable;
    char link[LINK_SIZE], no_link[LINK_SIZE];
};

constexpr t_glyphs ASCII = {{"+", "+", "+"}, {"+", "+", "+"}, "-", "|", "+", "* link", "no link"};
constexpr t_glyphs UTF8 = {{"┌", "┬", "┐"}, {"└", "┴", "┘"}, "─", "│", "┬", "● link", "○ no link"};

// The lines of a row of ports, from above; those below the panel are left out when they are empty.
enum t_line_number { TOP, NAME, LABEL, ROLE, LINK, BOTTOM, CABLE, WHY, ANSWER, LINES };

// What stands in a cell of each line; nothing in those that are drawn.
constexpr char FORMS[] = "\0{name}\0{label}[ ({side})]\0LAN\0\0\0\0"
                         "[ban for {banned:t}]|{reserved:x}|[{lan_hosts:d} LAN host(s)]|{why:x}\0{answer.protocol:x}";

// How it is painted, but for what depends on the port.
constexpr char PAINTS[LINES][3] = {"", "1", "2", "", "", "", "", "", "32"};

struct t_panel {
    FILE *out;
    t_look look;
    const t_glyphs &glyphs;
    const char *wan;
    blob_attr *ports[WIDEST_ROW]; // of one row
    int count;
};

const char *field_text(blob_attr *port, const char *name)
{
    return text_of(find_field(port, name));
}

bool is_wan(const t_panel &panel, blob_attr *port)
{
    return *panel.wan && strcmp(field_text(port, "name"), panel.wan) == 0;
}

// No old host or ban is the last word on a port that has the role.
bool is_good(blob_attr *port)
{
    const char *why = field_text(port, "why");
    return strcmp(why, "works") == 0 || strcmp(why, "won") == 0;
}

// A port's last answer says nothing any more once the port was silent.
bool is_silent(blob_attr *port)
{
    const char *why = field_text(port, "why");
    return strcmp(why, "silent") == 0 || strcmp(why, "other_answered") == 0 || strcmp(why, "no_gateway") == 0;
}

void draw_cell(const t_panel &panel, t_line *line, int number, const char *form, blob_attr *port)
{
    char filled[CELL_WIDTH + 1];
    fill_form(filled, sizeof filled, number == WHY && is_good(port) ? "{why:x}" : form, port);
    const char *text = filled;
    const char *paint = PAINTS[number];
    const bool link = number_of(find_field(port, "link")) == 1;
    switch (number) {
    case ROLE:
        if (is_wan(panel, port)) {
            text = "WAN";
            paint = "1;33";
        }
        break;
    case LINK:
        text = link ? panel.glyphs.link : panel.glyphs.no_link;
        paint = link ? "32" : "2";
        break;
    case BOTTOM:
        text = link ? panel.glyphs.cable : "";
        break;
    case CABLE:
        text = link ? panel.glyphs.upright : "";
        break;
    case ANSWER:
        if (!link || is_silent(port))
            text = "";
        break;
    default:
        break;
    }
    line->put_centred(text, CELL_WIDTH, paint, number == TOP || number == BOTTOM ? panel.glyphs.level : " ");
}

// Left of the first cell, between two, and right of the last one.
const char *edge(const t_panel &panel, int number, int place)
{
    if (number == TOP)
        return panel.glyphs.top[place];
    if (number == BOTTOM)
        return panel.glyphs.bottom[place];
    return number < BOTTOM ? panel.glyphs.upright : " ";
}

void draw_line(const t_panel &panel, int number, const char *form)
{
    t_line line(panel.out, panel.look);
    line.put_centred("", INDENT, "", " ");
    for (int i = 0; i < panel.count; i++) {
        line.put(edge(panel, number, i == 0 ? 0 : 1));
        draw_cell(panel, &line, number, form, panel.ports[i]);
    }
    line.put(edge(panel, number, 2));
}

} // namespace

void draw_panel(FILE *out, blob_attr *status, t_look look)
{
    t_panel panel = {out, look, look.utf8 ? UTF8 : ASCII, field_text(status, "wan"), {}, 0};
    blob_attr *list = find_field(status, "ports");
    const int total = count_elements(list);
    const int shown = std::min(total, MOST_PORTS);
    t_elements ports(list);
    for (int rows = (shown + WIDEST_ROW - 1) / WIDEST_ROW, left = shown; rows > 0; rows--, left -= panel.count) {
        panel.count = (left + rows - 1) / rows;
        for (int i = 0; i < panel.count; i++)
            panel.ports[i] = ports.next();
        const char *form = FORMS;
        for (int number = TOP; number < LINES; number++, form += strlen(form) + 1)
            draw_line(panel, number, form);
    }
    if (total > shown)
        fprintf(out, "  and %d more\n", total - shown);
}
