// SPDX-License-Identifier: MIT
// Names of protocols: showing and comparing them.
#include "model/records.h"

#include <cstring>

const char *protocol_name(const t_protocol *protocol)
{
    return protocol ? protocol->name : "null";
}

bool has_prefix(const char *text, const char *keyword)
{
    return text && strncmp(text, keyword, strlen(keyword)) == 0;
}
