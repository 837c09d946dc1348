// SPDX-License-Identifier: MIT
#include "probes/wire/frame_lines.h"

bool may_tell_of_frame(t_frame_lines *lines, t_log_level level)
{
    const int shown = log_get_level();
    if (shown < level || shown < LOG_LEVEL_Info)
        return shown >= level;
    const uint32_t number = count_in_second(&lines->second);
    if (number == 1)
        tell_lines_left_out(lines);
    if (number <= FRAME_LINES_PER_SECOND)
        return true;
    lines->left_out++;
    return false;
}

void tell_lines_left_out(t_frame_lines *lines)
{
    if (lines->left_out > 0)
        LOG(Info, "%s: %u more lines about received frames left out\n", lines->probe, lines->left_out);
    lines->left_out = 0;
}
