// SPDX-License-Identifier: MIT
#include "status/picture.h"

#include <cstring>

#include "status/fields.h"
#include "status/panel.h"

constexpr int MOST_ANSWERS = 16;
constexpr int MOST_HINTS = 8;

// One paragraph for each element that has the field, or that is none, the first of them with the title.
static void print_list(FILE *out, const char *title, const char *form, blob_attr *list, const char *field, int most)
{
    t_elements elements(list);
    while (blob_attr *element = elements.next()) {
        if (!find_field(element, field) || strcmp(text_of(find_field(element, field)), "open") == 0)
            continue;
        if (most-- == 0)
            break;
        print_paragraph(out, title, form, element);
        title = "";
    }
}

void draw_picture(FILE *out, blob_attr *status, blob_attr *history, t_look look, int most_verdicts)
{
    print_paragraph(out, "wan_detect", "{version}[, up {uptime:t}]", status);
    draw_panel(out, status, look);
    fputc('\n', out);
    print_paragraph(out, "now",
                    "[{starting:1}starting up]|{cycle.state:x}[; {cycle.next:x} in {cycle.next_ms:w}]"
                    "[{enabled:0}; detection is switched off][{router_mode:0}; as no router it detects nothing]",
                    status);
    print_paragraph(out, "WAN", "{wan}", status);
    print_paragraph(out, "connection", "{connection}", status);
    print_list(out, "answers",
               "{name}: {answer.protocol:x}[ {answer.mac}][, address {answer.address}][, gateway {answer.gateway}]"
               "[, name server {answer.dns}][; {answer.ago:t} ago]",
               find_field(status, "ports"), "answer", MOST_ANSWERS);
    print_list(out, "verdicts",
               "{ago:t} ago: [{winner}, ]{decision:x} ({opener:x}, {asked:n} asked[, {took_ms:w}]){swap:x}"
               "[, status {swap_status:d}][{confirmed:1}, confirmed][{confirmed:0}, not confirmed]",
               find_field(history, "cycles"), "decision", most_verdicts);
    print_paragraph(out, "failed", "[{counters.swaps_failed_in_a_row:d} swap(s); the next check waits {swap_pause:t}]",
                    status);
    print_list(out, "notes", "{:x}", find_field(status, "hints"), "", MOST_HINTS);
}
